// SPDX-License-Identifier: MIT
// Streams of compressors, whole and damaged.
#pragma once

#include <brixlib/compression/icompressor.h>

#include <shared/rawbytes.h>

#include <QtCore/QBuffer>
#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMessageLogContext>
#include <QtTest/QTest>

#include <atomic>

namespace Streams {

using Talverine::Compression::Interfaces::ICompressor;

//! Drops and counts what Qt warns of while one lives: damaged data by the thousand is no news.
class Hush
{
public:
    Hush()
    {
        s_count = 0;
        m_before = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext &, const QString &) { ++s_count; });
    }
    ~Hush() { qInstallMessageHandler(m_before); }
    Q_DISABLE_COPY_MOVE(Hush)

    int count() const { return s_count; }

private:
    static inline std::atomic<int> s_count = 0;
    QtMessageHandler m_before = nullptr;
};

//! Text-like bytes: words of a small vocabulary in a fixed disorder.
inline QByteArray text(qsizetype size)
{
    static const QList<QByteArray> words{"machine", "ink", "layer ", "of ",   "the ",  "print",
                                         "head ",   "is ", "ready",  ".\r\n", "17.5 ", "mm, "};
    QByteArray bytes;
    quint32 state = 1;
    while (bytes.size() < size) {
        state = state * 1664525 + 1013904223;
        bytes += words.at((state >> 16) % static_cast<quint32>(words.size()));
    }
    bytes.truncate(size);
    return bytes;
}

//! What a compressor gave until it gave no more.
struct Decoded
{
    QByteArray bytes;
    qint64 last = 0; //!< the result of its last call: 0 or -1
};

//! Reads on through blocks that yield nothing, until \a source has no more either.
inline Decoded decode(ICompressor *compressor, QIODevice *source, qint64 maxSize = 4096,
                      qint64 compressedSize = 0)
{
    Decoded decoded;
    QByteArray piece(maxSize, Qt::Uninitialized);
    for (;;) {
        decoded.last = compressor->decompress(source, piece.data(), maxSize, compressedSize);
        if (decoded.last < 0 || (decoded.last == 0 && source->atEnd()))
            return decoded;
        decoded.bytes += piece.first(decoded.last);
    }
}

inline Decoded decode(ICompressor *compressor, const QByteArray &stream, qint64 maxSize = 4096,
                      qint64 compressedSize = 0)
{
    QBuffer source;
    source.setData(stream);
    source.open(QIODevice::ReadOnly);
    return decode(compressor, &source, maxSize, compressedSize);
}

//! What \a compressor writes for \a data in one call; empty when it does not give its size.
inline QByteArray encode(ICompressor *compressor, const QByteArray &data)
{
    QBuffer target;
    target.open(QIODevice::WriteOnly);
    const qint64 count = compressor->compress(data.constData(), data.size(), &target);
    return count == data.size() ? target.data() : QByteArray();
}

//! A block behind its length word.
inline QByteArray framed(const QByteArray &block)
{
    return RawBytes::u32(static_cast<quint32>(block.size())) + block;
}

//! The blocks of a framed stream, without their length words.
inline QList<QByteArray> blocks(QByteArray stream)
{
    QList<QByteArray> blocks;
    while (stream.size() >= 4) {
        const auto length = stream.first(4).toHex().toUInt(nullptr, 16);
        blocks.append(stream.mid(4, length));
        stream.remove(0, 4 + static_cast<qsizetype>(length));
    }
    return blocks;
}

//! Lies about a count of bytes, as big-endian words.
inline QList<QByteArray> falseWords()
{
    return {RawBytes::u32(0), RawBytes::u32(1), RawBytes::u32(0x7FFFFFFF),
            RawBytes::u32(0xFFFFFFFF)};
}

//! Each stream that differs from \a stream in one bit.
inline QList<QByteArray> withOneBitFlipped(const QByteArray &stream)
{
    QList<QByteArray> damaged;
    for (qsizetype at = 0; at < stream.size(); ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            damaged.append(stream);
            damaged.last()[at] = static_cast<char>(stream.at(at) ^ (1 << bit));
        }
    }
    return damaged;
}

} // namespace Streams
