// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/devices/sbandwidthlimiter.h>

#include <QtCore/QIODevice>

namespace Talverine {

/*!
 * Reads and writes through another device at a limited speed in each direction.
 *
 *     QFile file(path);
 *     SBandwidthDevice slow(&file);
 *     slow.setReadBandwidth(64 * 1024);
 *     slow.open(QIODevice::ReadOnly);
 *
 * While limited, reading and writing block the calling thread and its event loop until half of the
 * request may go. A request above twice the limit thus blocks for ever; readAll() makes one of all
 * that is left, or one of 16 KiB after the other from a sequential device. A limited request may be
 * served in part with more to come, that of readAll() too. The compressors and the other devices of
 * the library keep their requests within the limit.
 *
 * The underlying device stays its owner's. Lives in one thread, the underlying device's.
 */
class BRIXLIB_EXPORT SBandwidthDevice : public QIODevice
{
    Q_OBJECT
    //! Bytes per second; 0, the default, for no limit. The library reads from and writes to a
    //! device with these properties in requests that the limit allows.
    Q_PROPERTY(qint64 readBandwidth READ readBandwidth WRITE setReadBandwidth)
    Q_PROPERTY(qint64 writeBandwidth READ writeBandwidth WRITE setWriteBandwidth)

public:
    //! close() closes \a device too.
    explicit SBandwidthDevice(QIODevice *device, QObject *parent = nullptr);
    //! close() closes \a device too unless \a leaveOpen.
    SBandwidthDevice(QIODevice *device, bool leaveOpen, QObject *parent = nullptr);
    //! Closes the device.
    ~SBandwidthDevice() override;

    //! Bytes per second; 0, the default, for no limit.
    qint64 readBandwidth() const;
    void setReadBandwidth(qint64 bytesPerSecond);
    //! Bytes per second; 0, the default, for no limit.
    qint64 writeBandwidth() const;
    void setWriteBandwidth(qint64 bytesPerSecond);

    /*!
     * Opens the underlying device with \a mode unless it is open; false when that fails, or when it
     * is open, \a mode is not ReadOnly and it can't be written, or when \a mode neither reads nor
     * writes. Append, Truncate and NewOnly imply WriteOnly. This device itself is always
     * unbuffered: read-ahead would turn each small read into one of the buffer's size.
     */
    bool open(OpenMode mode) override;
    void close() override;
    bool seek(qint64 pos) override;
    bool isSequential() const override;
    qint64 size() const override;
    //! QIODevice's count plus the underlying device's.
    qint64 bytesAvailable() const override;
    //! QIODevice's count plus the underlying device's.
    qint64 bytesToWrite() const override;
    bool canReadLine() const override;

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *data, qint64 size) override;

    //! Hands what an underlying file has buffered to the system; true for any other device.
    bool flush();

private:
    void underlyingDeviceAboutToClose();
    void underlyingDeviceDestroyed();

    bool m_leaveOpen;
    QIODevice *m_device;
    SBandwidthLimiter m_writeLimiter;
    SBandwidthLimiter m_readLimiter;
};

} // namespace Talverine
