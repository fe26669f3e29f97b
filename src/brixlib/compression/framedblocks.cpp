// SPDX-License-Identifier: MIT
#include "framedblocks_p.h"

#include <brixrt/requestsize_p.h>
#include <brixrt/sfilehelper.h>

#include <QtConcurrent/QtConcurrentRun>
#include <QtCore/QIODevice>
#include <QtCore/QThreadPool>
#include <QtCore/QtEndian>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

namespace Talverine::Compression {

namespace {

constexpr qint64 kSmallestPieceBytes = 16 * 1024;
// Above what a block of a device takes, so that it is read at once.
constexpr int kReadStepBytes = 256 * 1024;
constexpr qint64 kLongestBlockBytes = std::numeric_limits<quint32>::max();
constexpr qint64 kAllBytes = std::numeric_limits<qint64>::max();

QList<QFuture<QByteArray>> startPieces(const char *data, qint64 size, int concurrence,
                                       const BlockFunction &encode)
{
    const qint64 piece = std::max(size / concurrence, kSmallestPieceBytes);
    QList<QFuture<QByteArray>> results;
    qint64 done = 0;
    do {
        const qint64 count = std::min(piece, size - done);
        results.append(QtConcurrent::run(QThreadPool::globalInstance(), encode,
                                         QByteArray::fromRawData(data + done, count)));
        done += count;
    } while (done < size);
    return results;
}

} // namespace

bool writeWord(QIODevice *target, quint32 value)
{
    const quint32 word = qToBigEndian(value);
    return SFileHelper::writeAll(
        target, QByteArrayView(reinterpret_cast<const char *>(&word), sizeof word));
}

quint32 readWord(QIODevice *source)
{
    quint32 word = 0;
    const bool whole =
        readBytes(source, reinterpret_cast<char *>(&word), sizeof word) == sizeof word;
    return whole ? qFromBigEndian(word) : 0;
}

qint64 readBytes(QIODevice *source, char *data, qint64 size)
{
    qint64 done = 0;
    while (done < size) {
        const qint64 count = source->read(data + done, readRequestSize(source, size - done));
        if (count < 0 && done == 0)
            return -1;
        if (count <= 0)
            break;
        done += count;
    }
    return done;
}

QByteArray readClaimed(QIODevice *source, qint64 size)
{
    QByteArray bytes;
    readClaimed(source, size, &bytes);
    return bytes;
}

void readClaimed(QIODevice *source, qint64 size, QByteArray *bytes)
{
    SFileHelper::readAllBuffer(source, size, kReadStepBytes, bytes);
}

QByteArray readBareBlock(QIODevice *source, qint64 compressedSize)
{
    return readClaimed(source, compressedSize == 0 ? kAllBytes : compressedSize);
}

QByteArray uninitialized(qint64 size)
{
    try {
        return QByteArray(size, Qt::Uninitialized);
    } catch (const std::bad_alloc &) {
        return QByteArray();
    }
}

bool writeFramedBlock(QIODevice *target, const QByteArray &block)
{
    if (block.size() > kLongestBlockBytes)
        return false;
    static_cast<void>(writeWord(target, static_cast<quint32>(block.size())));
    return SFileHelper::writeAll(target, block);
}

bool writeFramedConcurrently(QIODevice *target, const char *data, qint64 size, int concurrence,
                             const BlockFunction &encode)
{
    QList<QFuture<QByteArray>> results = startPieces(data, size, concurrence, encode);
    bool written = true;
    for (QFuture<QByteArray> &result : results) {
        const QByteArray block = result.takeResult();
        written = written && !block.isEmpty() && writeFramedBlock(target, block);
    }
    return written;
}

bool writeBlocks(QIODevice *target, const char *data, qint64 size, bool framed, int concurrence,
                 const BlockFunction &encode)
{
    if (framed && concurrence > 1)
        return writeFramedConcurrently(target, data, size, concurrence, encode);
    const QByteArray block = encode(QByteArray::fromRawData(data, size));
    if (block.isEmpty())
        return false;
    return framed ? writeFramedBlock(target, block) : SFileHelper::writeAll(target, block);
}

} // namespace Talverine::Compression
