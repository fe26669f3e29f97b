// SPDX-License-Identifier: MIT
#include <brixlib/compression/slz4.h>

#include "blockreader_p.h"
#include "framedblocks_p.h"

#include <QtCore/QtEndian>

#include <lz4.h>
#include <lz4hc.h>

#include <limits>
#include <typeinfo>

namespace Talverine::Compression {

using namespace Qt::StringLiterals;

namespace {

constexpr int kDefaultLevel = 1;
constexpr qsizetype kSizeBytes = 4;
// A byte of a block stands for no more plain bytes: it lengthens a match by that many.
constexpr qint64 kLargestYield = 255;

int compressBlock(const char *data, int size, char *block, int capacity, int level)
{
    return level < 1 ? LZ4_compress_default(data, block, size, capacity)
                     : LZ4_compress_HC(data, block, size, capacity, level);
}

// What a block claims to hold; 0 when it can't be.
qint64 plainSize(QByteArrayView block)
{
    const qint64 length = block.size() - kSizeBytes;
    if (length < 0 || length > std::numeric_limits<int>::max())
        return 0;
    const qint64 size = qFromBigEndian<quint32>(block.data());
    return size > LZ4_MAX_INPUT_SIZE || size > length * kLargestYield ? 0 : size;
}

bool decodeInto(QByteArrayView block, char *data, qint64 size)
{
    const int decoded =
        LZ4_decompress_safe(block.data() + kSizeBytes, data,
                            static_cast<int>(block.size() - kSizeBytes), static_cast<int>(size));
    return decoded == size;
}

} // namespace

SLz4::SLz4(const Lz4Mode &mode)
    : SLz4(kDefaultLevel, mode)
{
}

SLz4::SLz4(int level, const Lz4Mode &mode)
    : m_mode(mode)
    , m_compressionLevel(level)
    , m_reader(std::make_unique<BlockReader>(BlockDecoder{plainSize, decodeInto, decompress}))
{
}

SLz4::~SLz4() = default;

quint64 SLz4::uniqueId()
{
    return typeid(SLz4).hash_code();
}

Lz4Mode SLz4::mode() const
{
    return m_mode;
}

int SLz4::compressionLevel() const
{
    return m_compressionLevel;
}

void SLz4::setCompressionLevel(int level)
{
    m_compressionLevel = level;
}

QByteArray SLz4::compress(const QByteArray &data, int level)
{
    if (data.size() > LZ4_MAX_INPUT_SIZE)
        return QByteArray();
    const int size = static_cast<int>(data.size());
    const int capacity = LZ4_compressBound(size);
    QByteArray block = uninitialized(kSizeBytes + capacity);
    if (block.isEmpty())
        return block;
    qToBigEndian(static_cast<quint32>(size), block.data());
    const int length =
        compressBlock(data.constData(), size, block.data() + kSizeBytes, capacity, level);
    block.truncate(length > 0 ? kSizeBytes + length : 0);
    return block;
}

QByteArray SLz4::decompress(const QByteArray &block)
{
    QByteArray data = uninitialized(plainSize(block));
    if (data.isEmpty() || !decodeInto(block, data.data(), data.size()))
        return QByteArray();
    return data;
}

SLz4 *SLz4::clone() const
{
    return new SLz4(m_compressionLevel, m_mode);
}

quint64 SLz4::id() const
{
    return uniqueId();
}

qint64 SLz4::compress(const char *data, qint64 size, QIODevice *target)
{
    const auto encode = [level = m_compressionLevel](const QByteArray &piece) {
        return compress(piece, level);
    };
    const bool framed = m_mode == Lz4Mode::Lz4Framed;
    return writeBlocks(target, data, size, framed, concurrence(), encode) ? size : -1;
}

qint64 SLz4::decompress(QIODevice *source, char *data, qint64 maxSize, qint64 compressedSize)
{
    if (maxSize <= 0)
        return 0;
    if (m_mode == Lz4Mode::Lz4Framed)
        return m_reader->readFramed(source, data, maxSize, compressedSize);
    if (m_reader->isEmpty())
        m_reader->hold(decompress(readBareBlock(source, compressedSize)));
    return m_reader->take(data, maxSize);
}

bool SLz4::finalize()
{
    m_reader->clear();
    return true;
}

qint64 SLz4::bytesAvailable() const
{
    return m_reader->bytesAvailable();
}

QString SLz4::name()
{
    return u"lz4"_s;
}

int SLz4::concurrence() const
{
    return m_mode == Lz4Mode::Lz4Framed ? ICompressor::concurrence() : 1;
}

SLz4Device::SLz4Device(QIODevice *device, bool leaveOpen, int level, QObject *parent)
    : SCompressorDevice(device, new SLz4(level, Lz4Mode::Lz4Framed), leaveOpen, false, parent)
{
}

SLz4Device::SLz4Device(QIODevice *device, bool leaveOpen, QObject *parent)
    : SLz4Device(device, leaveOpen, 1, parent)
{
}

} // namespace Talverine::Compression

#include "moc_slz4.cpp"
