// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/devices/siobuffer.h>
#include <brixlib/foundation/interfaces.h>

#include <QtCore/QIODevice>

namespace Talverine {

/*!
 * Reads and writes another device through two ring buffers, so that many small operations become
 * few large ones.
 *
 *     QFile file(path);
 *     SBufferedDevice buffered(&file, SBufferedDevice::networkFSBufferSize());
 *     if (!buffered.open(QIODevice::ReadOnly))
 *         return false;
 *
 * One call moves at most what a buffer holds or has free, which may be less than there is or than
 * was asked: read and write in loops, also for readAll(). A write drops what was read ahead and
 * goes to where the underlying device stands, which is behind that, also after a seek() to a place
 * that was read ahead. To write at the position after reading, drop the read-ahead first:
 *
 *     buffered.setBufferSize(buffered.bufferSize());
 *     buffered.seek(pos);
 *
 * What was written is out after a flush() that gave true. The flush within close() fails unseen.
 *
 * The underlying device stays its owner's. Lives in one thread, the underlying device's.
 */
class BRIXLIB_EXPORT SBufferedDevice : public QIODevice, public Interfaces::IBufferable
{
    Q_OBJECT
    Q_INTERFACES(Talverine::Interfaces::IBufferable)

public:
    //! Buffers of \a bufferSize bytes each; below 1024, of defaultBufferSize().
    SBufferedDevice(QIODevice *device, int bufferSize, QObject *parent = nullptr);
    //! Buffers of defaultBufferSize().
    explicit SBufferedDevice(QIODevice *device, QObject *parent = nullptr);
    //! Closes the device.
    ~SBufferedDevice() override;

    //! Null when it has died.
    QIODevice *underlyingDevice() const { return m_device; }

    //! 32 KiB.
    static int defaultBufferSize();
    //! 2 MiB, for files on a network share or a remote device.
    static int networkFSBufferSize();

    //! Bytes of either buffer.
    int bufferSize() const override;
    /*!
     * Flushes and drops what was read ahead: seek() before reading on. Takes any size; with 0, or
     * less, nothing can be read or written. A buffer that can't be had keeps its size.
     */
    void setBufferSize(int bytes) override;

    /*!
     * Opens the underlying device with \a mode, or expects it to be open with that very mode, and
     * starts where it stands; false otherwise. This device itself is always unbuffered by
     * QIODevice, and that flag makes no difference between two modes.
     */
    [[nodiscard]] bool open(OpenMode mode) override;
    /*!
     * Flushes, closes this device, then the underlying one. What is written at aboutToClose(), as
     * QTextStream does, goes out too. It is the same when the underlying device is closed first.
     */
    void close() override;
    //! Keeps what was read ahead from \a pos on, if \a pos is in it. Flushes.
    bool seek(qint64 pos) override;
    /*!
     * Hands what was written to the underlying device. False when that is not open, and what was
     * written stays; or when it does not take all of it, and what it did not take is dropped.
     */
    bool flush();

    bool isSequential() const override;
    //! The underlying device's; of a sequential one bytesAvailable().
    qint64 size() const override;
    bool atEnd() const override;
    //! QIODevice's count plus the underlying device's plus what was read ahead.
    qint64 bytesAvailable() const override;
    //! QIODevice's count plus the underlying device's plus what waits for a flush().
    qint64 bytesToWrite() const override;
    bool canReadLine() const override;

protected:
    //! -1 when the flush() that comes first fails; 0 when the underlying device gives nothing.
    qint64 readData(char *data, qint64 maxSize) override;
    //! -1 when the buffer is full and flush() fails; else the count of bytes that fit.
    qint64 writeData(const char *data, qint64 size) override;

    //! Gives each direction that is open a buffer of bufferSize() and takes the other's away.
    void bufferResize();
    //! Drops \a count bytes that were read ahead; all for a count outside of the buffer's size.
    void discart(qint64 count);
    //! setOpenMode(), unbuffered, then bufferResize().
    void _setOpenMode(OpenMode mode);

private:
    qint64 readAheadSize() const;
    bool readAhead(qint64 most);
    bool writeOut();
    void closeSelf();
    void underlyingDeviceAboutToClose();
    void underlyingDeviceDestroyed();

    QIODevice *m_device;
    SIOBuffer m_readBuffer;
    SIOBuffer m_writeBuffer;
    int m_bufferSize;
    qint64 m_bufferPos = 0; // in the underlying device, of the oldest byte that was read ahead
};

} // namespace Talverine
