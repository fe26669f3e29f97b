// SPDX-License-Identifier: MIT
#include <brixlib/devices/siobuffer.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace Talverine {

namespace {

constexpr quint32 kRingMagic = 0x73696F62;  // "siob"
constexpr quint32 kArrayMagic = 0x73617272; // "sarr"
constexpr quint32 kVersion = 0x00010000;

constexpr quint64 kFirstPieceBytes = 64 * 1024;
// QDataStream counts raw bytes in an int.
constexpr quint64 kLargestPieceBytes = std::numeric_limits<int>::max();

quint64 wrapped(quint64 index, quint64 size)
{
    if (index < size)
        return index;
    return size == 0 ? 0 : index % size;
}

// Two sizes of the same bytes, as the elements are of one byte each; the quotient is all that is
// looked at, and no array has a negative size.
bool goTogether(qint64 count, qint64 bytes)
{
    return count == 0 || (count > 0 && bytes / count == 1);
}

// False when the bytes end early or can't be stored. The count is a claim: the array grows with the
// bytes that have come.
bool readBytes(QDataStream &stream, quint64 count, SArray<char> *bytes)
{
    for (quint64 done = 0; done < count; done = bytes->size()) {
        const quint64 piece =
            std::min({count - done, std::max(done, kFirstPieceBytes), kLargestPieceBytes});
        if (!bytes->resize(done + piece, false))
            return false;
        const int length = static_cast<int>(piece);
        if (stream.readRawData(bytes->data() + done, length) != length)
            return false;
    }
    return true;
}

void writeBytes(QDataStream &stream, const SArray<char> &bytes)
{
    for (quint64 done = 0; done < bytes.size() && stream.status() == QDataStream::Ok;) {
        const quint64 piece = std::min(bytes.size() - done, kLargestPieceBytes);
        stream.writeRawData(bytes.data() + done, static_cast<int>(piece));
        done += piece;
    }
}

} // namespace

SIOBuffer::SIOBuffer(quint64 size)
    : m_data(size)
{
}

bool SIOBuffer::setSize(quint64 size)
{
    clear();
    return m_data.resize(size);
}

quint64 SIOBuffer::bytesAvailable() const
{
    if (m_full)
        return size();
    const quint64 start = wrapped(m_start, size());
    const quint64 end = wrapped(m_end, size());
    return start > end ? end + size() - start : end - start;
}

bool SIOBuffer::contains(char byte) const
{
    const quint64 count = bytesAvailable();
    if (count == 0)
        return false;
    const quint64 start = wrapped(m_start, size());
    const quint64 first = std::min(count, size() - start);
    return std::memchr(data() + start, byte, first) || std::memchr(data(), byte, count - first);
}

quint64 SIOBuffer::write(const QByteArray &data)
{
    return write(data.constData(), static_cast<quint64>(data.size()));
}

quint64 SIOBuffer::write(const SArray<char> &data, quint64 size)
{
    return write(data.data(), std::min(size, data.size()));
}

quint64 SIOBuffer::read(SArray<char> &data, quint64 size)
{
    return read(data.data(), std::min(size, data.size()));
}

QByteArray SIOBuffer::read(quint64 size)
{
    QByteArray bytes(static_cast<qsizetype>(std::min(size, bytesAvailable())), Qt::Uninitialized);
    read(bytes.data(), static_cast<quint64>(bytes.size()));
    return bytes;
}

quint64 SIOBuffer::discart(quint64 size)
{
    const quint64 count = std::min(size, bytesAvailable());
    if (count == 0)
        return 0;
    wrapIndexes();
    // A ring that is said to be full ends where it starts, whatever its end was set to.
    if (m_full)
        m_end = m_start;
    m_start += count;
    wrapIndexes();
    m_full = false;
    return count;
}

bool SIOBuffer::deserialize(QDataStream &stream)
{
    quint32 magic = 0;
    quint32 version = 0;
    stream >> magic;
    if (magic != kRingMagic)
        return false;
    qint64 start = 0;
    qint64 end = 0;
    bool full = false;
    stream >> version >> start >> end >> full >> magic;
    if (stream.status() != QDataStream::Ok)
        return false;

    if (magic == kArrayMagic) {
        qint64 count = 0;
        qint64 bytes = 0;
        stream >> version >> count >> bytes;
        if (stream.status() != QDataStream::Ok)
            return false;
        if (goTogether(count, bytes)) {
            SArray<char> data;
            if (!readBytes(stream, static_cast<quint64>(count), &data))
                return false;
            m_data = std::move(data);
        }
    }
    m_start = static_cast<quint64>(start);
    m_end = static_cast<quint64>(end);
    m_full = full && !isNull();
    wrapIndexes();
    return true;
}

bool SIOBuffer::serialize(QDataStream &stream) const
{
    stream << kRingMagic << kVersion << static_cast<qint64>(m_start) << static_cast<qint64>(m_end)
           << isFull();
    const qint64 count = static_cast<qint64>(size());
    stream << kArrayMagic << kVersion << count << count;
    writeBytes(stream, m_data);
    return stream.status() == QDataStream::Ok;
}

quint64 SIOBuffer::writeAround(const char *data, quint64 size)
{
    const quint64 count = std::min(size, bytesFree());
    if (count == 0)
        return 0;
    wrapIndexes();
    const quint64 first = std::min(count, m_data.size() - m_end);
    std::memcpy(m_data.data() + m_end, data, first);
    std::memcpy(m_data.data(), data + first, count - first);
    m_end += count;
    wrapIndexes();
    m_full = m_end == m_start;
    return count;
}

quint64 SIOBuffer::readAround(char *data, quint64 size)
{
    const quint64 count = std::min(size, bytesAvailable());
    if (count == 0)
        return 0;
    wrapIndexes();
    const quint64 first = std::min(count, m_data.size() - m_start);
    std::memcpy(data, m_data.data() + m_start, first);
    std::memcpy(data + first, m_data.data(), count - first);
    return discart(count);
}

// Indexes from outside may lie beyond the storage. The division is spared where none is needed.
void SIOBuffer::wrapIndexes()
{
    m_start = wrapped(m_start, size());
    m_end = wrapped(m_end, size());
}

} // namespace Talverine
