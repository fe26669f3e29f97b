// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/enums/byteorder.h>

#include <QtCore/QIODevice>

namespace Talverine {

/*!
 * Passes the bytes of another device through, and reads and writes numbers and arrays of elements
 * in a chosen byte order: for file formats of other programs.
 *
 *     SEndiannessDevice tiff(&file, ByteOrder::BigEndian);
 *     bool ok = false;
 *     const quint32 offset = tiff.readUInt32(&ok);
 *     if (!ok || !tiff.seek(offset))
 *         return false;
 *
 * Both devices stand at the same position as long as only this one is used: nothing is read ahead.
 *
 * The underlying device stays its owner's and open when this object is destroyed. Lives in one
 * thread, the underlying device's.
 */
class BRIXLIB_EXPORT SEndiannessDevice : public QIODevice
{
    Q_OBJECT

public:
    //! Open at once, in the mode and at the position of \a device, if that is open.
    SEndiannessDevice(QIODevice *device, const ByteOrder &byteOrder, QObject *parent = nullptr);
    ~SEndiannessDevice() override;

    //! The order of an element's bytes in the underlying device.
    ByteOrder byteOrder() const;
    //! Holds from the next call on.
    void setByteOrder(const ByteOrder &byteOrder);

    //! The next number. 0, with \a ok false, when it can't be read whole; \a ok may be null.
    qint8 readInt8(bool *ok = nullptr);
    quint8 readUInt8(bool *ok = nullptr);
    qint16 readInt16(bool *ok = nullptr);
    quint16 readUInt16(bool *ok = nullptr);
    qint32 readInt32(bool *ok = nullptr);
    quint32 readUInt32(bool *ok = nullptr);
    qint64 readInt64(bool *ok = nullptr);
    quint64 readUInt64(bool *ok = nullptr);
    float readFloat(bool *ok = nullptr);
    double readDouble(bool *ok = nullptr);

    /*!
     * Reads \a count elements of \a elementSize bytes each and turns each into the machine's order.
     * True also when the device ends early; pos() tells how far it came unless the device is
     * sequential, and what lies beyond in \a data is turned as well. False when reading fails, as
     * past the end of a connection, and when there is no such size; nothing is turned then.
     */
    [[nodiscard]] bool readEndianBytes(char *data, quint64 elementSize, quint64 count);
    //! Fills \a data to its size. False also when \a elementSize is 0 or does not divide that.
    [[nodiscard]] bool readEndianByteArray(QByteArray &data, quint64 elementSize);
    /*!
     * Writes \a count elements of \a elementSize bytes each, turned from the machine's order. False
     * when writing fails, and when there is no such size or no memory to turn an element in; true
     * when the device just takes no more.
     */
    [[nodiscard]] bool writeEndianBytes(const char *data, quint64 elementSize, quint64 count);
    //! False, with nothing written, also when \a elementSize is 0 or does not divide the size.
    [[nodiscard]] bool writeEndianByteArray(const QByteArray &data, quint64 elementSize);

    /*!
     * Opens the underlying device with \a mode, or expects it to be open with that very mode, and
     * starts where it stands; false otherwise. This device itself is always unbuffered, and that
     * flag makes no difference between two modes.
     */
    [[nodiscard]] bool open(OpenMode mode) override;
    //! Closes the underlying device too.
    void close() override;
    bool seek(qint64 pos) override;
    bool isSequential() const override;
    qint64 size() const override;
    //! QIODevice's count plus the underlying device's.
    qint64 bytesAvailable() const override;
    //! QIODevice's count plus the underlying device's.
    qint64 bytesToWrite() const override;
    bool canReadLine() const override;
    bool waitForReadyRead(int msecs) override;
    bool waitForBytesWritten(int msecs) override;

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *data, qint64 size) override;

private Q_SLOTS:
    void _on_aboutToClose();

private:
    bool isSwapping() const;
    template<typename T>
    T readNumber(bool *ok);
    qint64 readUpTo(char *data, qint64 size);
    qint64 writeUpTo(const char *data, qint64 size);
    bool writeSwapped(const char *data, quint64 elementSize, quint64 count);
    bool openAsUnderlying();
    void underlyingDeviceDestroyed();

    QIODevice *m_device;
    ByteOrder m_byteOrder;
};

} // namespace Talverine
