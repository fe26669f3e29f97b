// SPDX-License-Identifier: MIT
#include <brixlib/devices/sendiannessdevice.h>

#include <brixlib/foundation/saturated_p.h>
#include <brixlib/foundation/underlyingdevice_p.h>

#include <brixrt/requestsize_p.h>
#include <brixrt/sarray.h>

#include <QtCore/QSysInfo>
#include <QtCore/QtEndian>

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>

namespace Talverine {

namespace {

constexpr quint64 kLargestBytes = std::numeric_limits<qint64>::max();
// What is turned at once on the way out. Smaller parts stay within a nearer cache, but each costs a
// write: arrays of 1 MiB in parts of 64 KiB went to a file at two thirds of the rate.
constexpr quint64 kTurnedBytes = 1024 * 1024;

bool fits(quint64 elementSize, quint64 count)
{
    return count == 0 || elementSize <= kLargestBytes / count;
}

bool divides(quint64 elementSize, qsizetype size)
{
    return elementSize != 0 && static_cast<quint64>(size) % elementSize == 0;
}

// Reverses each element; `source` and `target` are the same or do not overlap.
void reverseElements(const char *source, quint64 elementSize, quint64 count, char *target)
{
    const auto elements = static_cast<qsizetype>(count);
    switch (elementSize) {
    case 2:
        qbswap<2>(source, elements, target);
        return;
    case 4:
        qbswap<4>(source, elements, target);
        return;
    case 8:
        qbswap<8>(source, elements, target);
        return;
    }
    if (source != target)
        std::memcpy(target, source, elementSize * count);
    for (char *end = target + elementSize * count; target != end; target += elementSize)
        std::reverse(target, target + elementSize);
}

} // namespace

SEndiannessDevice::SEndiannessDevice(QIODevice *device, const ByteOrder &byteOrder, QObject *parent)
    : QIODevice(parent)
    , m_device(device)
    , m_byteOrder(byteOrder)
{
    if (!device)
        return;
    followDevice(device, this, &SEndiannessDevice::_on_aboutToClose,
                 &SEndiannessDevice::underlyingDeviceDestroyed);
    connect(device, &QIODevice::readChannelFinished, this, &QIODevice::readChannelFinished);
    if (device->isOpen())
        openAsUnderlying();
}

SEndiannessDevice::~SEndiannessDevice() = default;

ByteOrder SEndiannessDevice::byteOrder() const
{
    return m_byteOrder;
}

void SEndiannessDevice::setByteOrder(const ByteOrder &byteOrder)
{
    m_byteOrder = byteOrder;
}

qint8 SEndiannessDevice::readInt8(bool *ok)
{
    return readNumber<qint8>(ok);
}

quint8 SEndiannessDevice::readUInt8(bool *ok)
{
    return readNumber<quint8>(ok);
}

qint16 SEndiannessDevice::readInt16(bool *ok)
{
    return readNumber<qint16>(ok);
}

quint16 SEndiannessDevice::readUInt16(bool *ok)
{
    return readNumber<quint16>(ok);
}

qint32 SEndiannessDevice::readInt32(bool *ok)
{
    return readNumber<qint32>(ok);
}

quint32 SEndiannessDevice::readUInt32(bool *ok)
{
    return readNumber<quint32>(ok);
}

qint64 SEndiannessDevice::readInt64(bool *ok)
{
    return readNumber<qint64>(ok);
}

quint64 SEndiannessDevice::readUInt64(bool *ok)
{
    return readNumber<quint64>(ok);
}

// The bytes are turned as those of an integer: turned ones may be no number for a float register.
float SEndiannessDevice::readFloat(bool *ok)
{
    return std::bit_cast<float>(readNumber<quint32>(ok));
}

double SEndiannessDevice::readDouble(bool *ok)
{
    return std::bit_cast<double>(readNumber<quint64>(ok));
}

bool SEndiannessDevice::readEndianBytes(char *data, quint64 elementSize, quint64 count)
{
    if (!fits(elementSize, count) || readUpTo(data, static_cast<qint64>(elementSize * count)) < 0)
        return false;
    if (isSwapping() && elementSize > 1)
        reverseElements(data, elementSize, count, data);
    return true;
}

bool SEndiannessDevice::readEndianByteArray(QByteArray &data, quint64 elementSize)
{
    return divides(elementSize, data.size()) &&
           readEndianBytes(data.data(), elementSize,
                           static_cast<quint64>(data.size()) / elementSize);
}

bool SEndiannessDevice::writeEndianBytes(const char *data, quint64 elementSize, quint64 count)
{
    if (!fits(elementSize, count))
        return false;
    if (isSwapping() && elementSize > 1)
        return writeSwapped(data, elementSize, count);
    return writeUpTo(data, static_cast<qint64>(elementSize * count)) >= 0;
}

bool SEndiannessDevice::writeEndianByteArray(const QByteArray &data, quint64 elementSize)
{
    return divides(elementSize, data.size()) &&
           writeEndianBytes(data.constData(), elementSize,
                            static_cast<quint64>(data.size()) / elementSize);
}

bool SEndiannessDevice::open(OpenMode mode)
{
    return m_device && openUnderlyingDevice(m_device, mode) && openAsUnderlying();
}

void SEndiannessDevice::close()
{
    if (!isOpen())
        return;
    QIODevice::close();
    if (m_device)
        m_device->close();
}

bool SEndiannessDevice::seek(qint64 pos)
{
    return m_device && QIODevice::seek(pos) && m_device->seek(pos);
}

bool SEndiannessDevice::isSequential() const
{
    return m_device && m_device->isSequential();
}

qint64 SEndiannessDevice::size() const
{
    return m_device ? m_device->size() : 0;
}

qint64 SEndiannessDevice::bytesAvailable() const
{
    return Saturated::sum(QIODevice::bytesAvailable(), m_device ? m_device->bytesAvailable() : 0);
}

qint64 SEndiannessDevice::bytesToWrite() const
{
    return QIODevice::bytesToWrite() + (m_device ? m_device->bytesToWrite() : 0);
}

bool SEndiannessDevice::canReadLine() const
{
    return (m_device && m_device->canReadLine()) || QIODevice::canReadLine();
}

bool SEndiannessDevice::waitForReadyRead(int msecs)
{
    return m_device && m_device->waitForReadyRead(msecs);
}

bool SEndiannessDevice::waitForBytesWritten(int msecs)
{
    return m_device && m_device->waitForBytesWritten(msecs);
}

qint64 SEndiannessDevice::readData(char *data, qint64 maxSize)
{
    if (!m_device)
        return -1;
    const qint64 count = m_device->read(data, readRequestSize(m_device, maxSize));
    if (count < 0)
        setErrorString(failureReason(m_device));
    return count;
}

qint64 SEndiannessDevice::writeData(const char *data, qint64 size)
{
    if (!m_device)
        return -1;
    const qint64 count = m_device->write(data, writeRequestSize(m_device, size));
    if (count < 0)
        setErrorString(failureReason(m_device));
    return count;
}

void SEndiannessDevice::_on_aboutToClose()
{
    QIODevice::close();
    // QFile flushes before aboutToClose(), and discards what slots of that signal write.
    flushUnderlyingFile(m_device);
}

// On a little-endian machine exactly the one value swaps, whatever else the field may hold.
bool SEndiannessDevice::isSwapping() const
{
    return (m_byteOrder == ByteOrder::BigEndian) != (QSysInfo::ByteOrder == QSysInfo::BigEndian);
}

template<typename T>
T SEndiannessDevice::readNumber(bool *ok)
{
    T number = 0;
    const bool whole = readUpTo(reinterpret_cast<char *>(&number), sizeof number) == sizeof number;
    if (ok)
        *ok = whole;
    if (!whole)
        return 0;
    return isSwapping() ? qbswap(number) : number;
}

// The count of bytes until `size` or the end, -1 for a failure. The end is asked for after a short
// read alone: the question may cost more than the read, of a remote device an exchange.
qint64 SEndiannessDevice::readUpTo(char *data, qint64 size)
{
    qint64 done = 0;
    while (done < size) {
        const qint64 count = read(data + done, size - done);
        if (count < 0)
            return -1;
        done += count;
        if (count == 0 || (done < size && atEnd()))
            break;
    }
    return done;
}

// The count of bytes that the device took, -1 for a failure.
qint64 SEndiannessDevice::writeUpTo(const char *data, qint64 size)
{
    qint64 done = 0;
    while (done < size) {
        const qint64 count = write(data + done, size - done);
        if (count < 0)
            return -1;
        if (count == 0)
            break;
        done += count;
    }
    return done;
}

// Turns a copy, a part of it at a time so that an array of any size needs the memory of one part.
bool SEndiannessDevice::writeSwapped(const char *data, quint64 elementSize, quint64 count)
{
    const quint64 atOnce = std::min(count, std::max(kTurnedBytes / elementSize, quint64(1)));
    SArray<char> turned(atOnce * elementSize, false);
    if (turned.size() != atOnce * elementSize)
        return false;
    for (quint64 done = 0; done < count;) {
        const quint64 elements = std::min(atOnce, count - done);
        const auto bytes = static_cast<qint64>(elements * elementSize);
        reverseElements(data + done * elementSize, elementSize, elements, turned.data());
        const qint64 written = writeUpTo(turned.data(), bytes);
        if (written < bytes)
            return written >= 0;
        done += elements;
    }
    return true;
}

bool SEndiannessDevice::openAsUnderlying()
{
    QIODevice::open(m_device->openMode() | Unbuffered);
    return isSequential() || QIODevice::seek(m_device->pos());
}

void SEndiannessDevice::underlyingDeviceDestroyed()
{
    m_device = nullptr;
}

} // namespace Talverine

#include "moc_sendiannessdevice.cpp"
