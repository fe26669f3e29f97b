// SPDX-License-Identifier: MIT
#include <brixlib/compression/szip.h>

#include "blockreader_p.h"
#include "framedblocks_p.h"

#include <QtCore/QtEndian>

#include <algorithm>
#include <limits>
#include <new>
#include <typeinfo>

#include <zlib.h>

namespace Talverine::Compression {

using namespace Qt::StringLiterals;

namespace {

constexpr int kDefaultLevel = 1;
constexpr qsizetype kSizeBytes = 4;
// A byte of a stream stands for no more plain bytes: two bits can repeat 258 of them.
constexpr qint64 kLargestYield = 1032;
// The size of a block counts as an int with those who read it.
constexpr qint64 kLargestPiece = std::numeric_limits<int>::max();

// The most plain bytes that a stream of `length` bytes may claim.
qint64 largestYield(qint64 length)
{
    constexpr qint64 largest = std::numeric_limits<quint32>::max();
    return length > largest / kLargestYield ? largest : length * kLargestYield;
}

// The plain bytes of a bare stream if they are no more than `maxSize`, else none.
QByteArray decompressStream(const QByteArray &stream, qint64 maxSize)
{
    QByteArray block = uninitialized(kSizeBytes + stream.size());
    if (block.isEmpty())
        return block;
    const qint64 size = std::min(maxSize, largestYield(stream.size()));
    qToBigEndian(static_cast<quint32>(size), block.data());
    std::copy(stream.begin(), stream.end(), block.begin() + kSizeBytes);
    const QByteArray data = SZip::decompress(block);
    return data.size() <= maxSize ? data : QByteArray();
}

// What a block claims to hold; 0 when it can't be.
qint64 plainSize(QByteArrayView block)
{
    if (block.size() <= kSizeBytes)
        return 0;
    const qint64 size = qFromBigEndian<quint32>(block.data());
    return size > largestYield(block.size() - kSizeBytes) ? 0 : size;
}

// What Qt does with a block that is what it claims, without a copy. Any other is left to Qt.
bool decodeInto(QByteArrayView block, char *data, qint64 size)
{
    auto decoded = static_cast<uLongf>(size);
    const int result = uncompress(reinterpret_cast<Bytef *>(data), &decoded,
                                  reinterpret_cast<const Bytef *>(block.data()) + kSizeBytes,
                                  static_cast<uLong>(block.size() - kSizeBytes));
    return result == Z_OK && static_cast<qint64>(decoded) == size;
}

} // namespace

SZip::SZip(const ZipMode &mode)
    : SZip(kDefaultLevel, mode)
{
}

SZip::SZip(int level, const ZipMode &mode)
    : m_compressionLevel(level)
    , m_mode(mode)
    , m_reader(std::make_unique<BlockReader>(BlockDecoder{plainSize, decodeInto, decompress}))
{
}

SZip::~SZip() = default;

quint64 SZip::uniqueId()
{
    return typeid(SZip).hash_code();
}

ZipMode SZip::mode() const
{
    return m_mode;
}

int SZip::compressionLevel() const
{
    return m_compressionLevel;
}

void SZip::setCompressionLevel(int level)
{
    m_compressionLevel = level;
}

QByteArray SZip::compress(const QByteArray &data, int level)
{
    try {
        return qCompress(data, level);
    } catch (const std::bad_alloc &) {
        return QByteArray();
    }
}

QByteArray SZip::decompress(const QByteArray &block)
{
    // Qt takes memory for what is claimed before it looks at the stream.
    if (block.size() > kSizeBytes &&
        qFromBigEndian<quint32>(block.constData()) > largestYield(block.size() - kSizeBytes))
        return QByteArray();
    try {
        return qUncompress(block);
    } catch (const std::bad_alloc &) {
        return QByteArray();
    }
}

SZip *SZip::clone() const
{
    return new SZip(m_compressionLevel, m_mode);
}

quint64 SZip::id() const
{
    return uniqueId();
}

qint64 SZip::compress(const char *data, qint64 size, QIODevice *target)
{
    if (size <= 0)
        return 0;
    const bool bare = m_mode == ZipMode::ZipRawStream;
    const auto encode = [level = m_compressionLevel, bare](const QByteArray &piece) {
        QByteArray block = piece.size() <= kLargestPiece ? compress(piece, level) : QByteArray();
        return bare ? block.remove(0, kSizeBytes) : block;
    };
    const bool framed = m_mode == ZipMode::ZipFramed;
    return writeBlocks(target, data, size, framed, concurrence(), encode) ? size : -1;
}

qint64 SZip::decompress(QIODevice *source, char *data, qint64 maxSize, qint64 compressedSize)
{
    if (maxSize <= 0)
        return 0;
    if (m_mode == ZipMode::ZipFramed)
        return m_reader->readFramed(source, data, maxSize, compressedSize);
    if (m_reader->isEmpty())
        readBare(source, maxSize, compressedSize);
    return m_reader->take(data, maxSize);
}

bool SZip::finalize()
{
    m_reader->clear();
    return true;
}

qint64 SZip::bytesAvailable() const
{
    return m_reader->bytesAvailable();
}

QString SZip::name()
{
    return u"zip"_s;
}

int SZip::concurrence() const
{
    return m_mode == ZipMode::ZipFramed ? ICompressor::concurrence() : 1;
}

void SZip::readBare(QIODevice *source, qint64 maxSize, qint64 compressedSize)
{
    const QByteArray block = readBareBlock(source, compressedSize);
    if (block.isEmpty())
        return; // the end is no damage, which Qt would warn of
    const bool hasSize = m_mode == ZipMode::ZipQtBlock;
    m_reader->hold(hasSize ? decompress(block) : decompressStream(block, maxSize));
}

SZipDevice::SZipDevice(QIODevice *device, bool leaveOpen, int level, QObject *parent)
    : SCompressorDevice(device, new SZip(level, ZipMode::ZipFramed), leaveOpen, false, parent)
{
}

SZipDevice::SZipDevice(QIODevice *device, bool leaveOpen, QObject *parent)
    : SZipDevice(device, leaveOpen, 1, parent)
{
}

} // namespace Talverine::Compression

#include "moc_szip.cpp"
