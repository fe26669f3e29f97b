// SPDX-License-Identifier: MIT
#include <brixlib/compression/spackbits.h>

#include "blockreader_p.h"
#include "framedblocks_p.h"
#include "lookahead_p.h"
#include "packbitscodec_p.h"

#include <brixrt/requestsize_p.h>
#include <brixrt/sfilehelper.h>

#include <algorithm>
#include <array>
#include <optional>
#include <typeinfo>

namespace Talverine::Compression {

using namespace Qt::StringLiterals;

namespace {

constexpr std::size_t kBufferBytes = 8192;

PackBitsDecoded decodePeeked(QIODevice *source, char *data, qint64 maxSize)
{
    std::array<char, kBufferBytes> packets;
    // Enough for packets of any good encoder, and for one packet at least.
    const qint64 most = std::min<qint64>(kBufferBytes, packBitsBound(maxSize));
    const qint64 size = peekAhead(source, packets.data(), 1, most);
    return packBitsDecode(packets.data(), std::max(size, qint64(0)), data, maxSize);
}

// Decodes the whole packets that `source` has at hand, and takes them alone.
PackBitsDecoded decodeAhead(QIODevice *source, char *data, qint64 maxSize)
{
    const std::optional<QByteArrayView> packets = bytesInPlace(source);
    const PackBitsDecoded decoded =
        packets ? packBitsDecode(packets->data(), packets->size(), data, maxSize)
                : decodePeeked(source, data, maxSize);
    if (decoded.consumed > 0)
        source->skip(decoded.consumed);
    return decoded;
}

// The bytes that a packet has in `source`, fewer at the end; -1 when reading fails, which would not
// show at the start of the next packet.
qint64 readContent(QIODevice *source, char *data, qint64 size)
{
    qint64 done = 0;
    while (done < size) {
        const qint64 count = source->read(data + done, readRequestSize(source, size - done));
        if (count < 0)
            return -1;
        if (count == 0)
            break;
        done += count;
    }
    return done;
}

struct Packet
{
    qint64 count;
    bool isWhole;
};

// A packet of which `source` has only a part at hand, and may have to wait for the rest. A count of
// -1 is a failure.
Packet readPacket(QIODevice *source, char *data, qint64 room)
{
    char code = 0;
    if (!source->getChar(&code))
        return {0, false};
    if (code == kPackBitsSkipped)
        return {0, true};
    const qint64 length = packBitsLength(code);
    // It fitted when it was looked at, but others may have written to the file since.
    if (length > room)
        return {0, false};
    if (packBitsIsLiteral(code)) {
        const qint64 count = readContent(source, data, length);
        return {count, count == length};
    }
    char byte = 0;
    const qint64 count = readContent(source, &byte, 1);
    if (count < 1)
        return {count, false};
    std::fill_n(data, length, byte);
    return {length, true};
}

qint64 plainSize(QByteArrayView block)
{
    return std::max(packBitsDecodedSize(block.data(), block.size()), qint64(0));
}

bool decodeInto(QByteArrayView block, char *data, qint64 size)
{
    packBitsDecode(block.data(), block.size(), data, size);
    return true;
}

} // namespace

SPackBits::SPackBits(const PackBitsMode &mode)
    : m_mode(mode)
    , m_reader(std::make_unique<BlockReader>(BlockDecoder{plainSize, decodeInto, decompress}))
{
}

SPackBits::~SPackBits() = default;

quint64 SPackBits::uniqueId()
{
    return typeid(SPackBits).hash_code();
}

PackBitsMode SPackBits::mode() const
{
    return m_mode;
}

QByteArray SPackBits::compress(const QByteArray &data)
{
    // No block is without a packet: this one holds the array's terminating zero.
    if (data.isEmpty())
        return QByteArray(2, '\0');
    QByteArray block = uninitialized(packBitsBound(data.size()));
    if (!block.isEmpty())
        block.truncate(
            packBitsEncode(data.constData(), data.size(), block.data(), block.size()).produced);
    return block;
}

QByteArray SPackBits::decompress(const QByteArray &block)
{
    QByteArray data = uninitialized(packBitsDecodedSize(block.constData(), block.size()));
    packBitsDecode(block.constData(), block.size(), data.data(), data.size());
    return data;
}

SPackBits *SPackBits::clone() const
{
    return new SPackBits;
}

quint64 SPackBits::id() const
{
    return uniqueId();
}

qint64 SPackBits::compress(const char *data, qint64 size, QIODevice *target)
{
    if (size <= 0)
        return 0;
    const auto encode = [](const QByteArray &piece) { return compress(piece); };
    const bool written = m_mode == PackBitsMode::PackBitsFramed
                             ? writeBlocks(target, data, size, true, concurrence(), encode)
                             : _compress(data, size, target);
    return written ? size : -1;
}

qint64 SPackBits::decompress(QIODevice *source, char *data, qint64 maxSize, qint64 compressedSize)
{
    if (maxSize <= 0)
        return 0;
    if (m_mode == PackBitsMode::PackBitsFramed)
        return m_reader->readFramed(source, data, maxSize, compressedSize);
    if (m_reader->isEmpty()) {
        if (compressedSize == 0)
            return _decompress(source, data, maxSize);
        m_reader->hold(decompress(readClaimed(source, compressedSize)));
    }
    return m_reader->take(data, maxSize);
}

bool SPackBits::finalize()
{
    m_reader->clear();
    return true;
}

qint64 SPackBits::bytesAvailable() const
{
    return m_reader->bytesAvailable();
}

QString SPackBits::name()
{
    return u"packbits"_s;
}

int SPackBits::concurrence() const
{
    return m_mode == PackBitsMode::PackBitsFramed ? ICompressor::concurrence() : 1;
}

// The packets of compress(), without the memory that all of them take.
bool SPackBits::_compress(const char *data, qint64 size, QIODevice *target)
{
    std::array<char, kBufferBytes> packets;
    while (size > 0) {
        const PackBitsStep step = packBitsEncode(data, size, packets.data(), kBufferBytes);
        if (!SFileHelper::writeAll(target, QByteArrayView(packets.data(), step.produced)))
            return false;
        data += step.consumed;
        size -= step.consumed;
    }
    return true;
}

qint64 SPackBits::_decompress(QIODevice *source, char *data, qint64 maxSize)
{
    qint64 done = 0;
    while (done < maxSize) {
        const PackBitsDecoded decoded = decodeAhead(source, data + done, maxSize - done);
        done += decoded.produced;
        if (decoded.consumed > 0)
            continue;
        if (decoded.end == PackBitsEnd::SourceUsedUp || decoded.end == PackBitsEnd::TargetFull)
            break;
        const Packet packet = readPacket(source, data + done, maxSize - done);
        if (packet.count < 0)
            return -1;
        done += packet.count;
        if (!packet.isWhole)
            break;
    }
    return done;
}

SPackBitsDevice::SPackBitsDevice(QIODevice *device, bool leaveOpen, QObject *parent)
    : SPackBitsDevice(device, leaveOpen, false, parent)
{
}

SPackBitsDevice::SPackBitsDevice(QIODevice *device, bool leaveOpen, bool raw, QObject *parent)
    : SCompressorDevice(
          device, new SPackBits(raw ? PackBitsMode::PackBitsRaw : PackBitsMode::PackBitsFramed),
          leaveOpen, false, parent)
{
}

} // namespace Talverine::Compression

#include "moc_spackbits.cpp"
