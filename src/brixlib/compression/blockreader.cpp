// SPDX-License-Identifier: MIT
#include "blockreader_p.h"

#include "framedblocks_p.h"
#include "lookahead_p.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>

namespace Talverine::Compression {

namespace {

// The next bytes, fewer at the end. Those in memory are not copied, which would take as long as to
// decode LZ4; `block` has the memory for others.
QByteArrayView takeBytes(QIODevice *source, qint64 size, QByteArray *block)
{
    if (const std::optional<QByteArrayView> ahead = bytesInPlace(source)) {
        const QByteArrayView next = ahead->first(std::min<qint64>(size, ahead->size()));
        source->skip(next.size());
        return next;
    }
    readClaimed(source, size, block);
    return *block;
}

} // namespace

BlockReader::BlockReader(const BlockDecoder &decoder)
    : m_decoder(decoder)
{
}

qint64 BlockReader::readFramed(QIODevice *source, char *data, qint64 maxSize, qint64 compressedSize)
{
    if (isEmpty()) {
        if (compressedSize == 0)
            return readBlock(source, data, maxSize);
        if (!holdBlocks(source, compressedSize))
            return -1;
    }
    return take(data, maxSize);
}

void BlockReader::hold(const QByteArray &plain)
{
    if (isEmpty()) {
        m_held = plain;
        m_taken = 0;
    } else if (char *const room = grow(plain.size())) {
        std::copy(plain.begin(), plain.end(), room);
    }
}

qint64 BlockReader::take(char *data, qint64 maxSize)
{
    const qint64 count = std::min(maxSize, bytesAvailable());
    std::memcpy(data, m_held.constData() + m_taken, static_cast<size_t>(count));
    m_taken += count;
    return count;
}

void BlockReader::clear()
{
    m_held.clear();
    m_taken = 0;
}

qint64 BlockReader::readBlock(QIODevice *source, char *data, qint64 maxSize)
{
    const quint32 length = readWord(source);
    if (length == 0)
        return 0;
    const QByteArrayView block = takeBytes(source, length, &m_block);
    const qint64 size = m_decoder.plainSize(block);
    if (size > 0 && size <= maxSize && m_decoder.decodeInto(block, data, size))
        return size;
    holdDecoded(block);
    return take(data, maxSize);
}

bool BlockReader::holdBlocks(QIODevice *source, qint64 compressedSize)
{
    qint64 total = 0;
    do {
        const quint32 length = readWord(source);
        if (length == 0)
            break;
        holdDecoded(takeBytes(source, length, &m_block));
        total += qint64(sizeof length) + length;
    } while (total < compressedSize);
    if (total == compressedSize)
        return true;
    clear();
    return false;
}

void BlockReader::holdDecoded(QByteArrayView block)
{
    const qint64 size = m_decoder.plainSize(block);
    char *const room = size > 0 ? grow(size) : nullptr;
    if (room && m_decoder.decodeInto(block, room, size))
        return;
    if (room)
        m_held.truncate(m_held.size() - size);
    hold(m_decoder.decode(QByteArray::fromRawData(block.data(), block.size())));
}

// Room behind what is held; null when there is no memory. The memory of what was taken serves
// again.
char *BlockReader::grow(qint64 size)
{
    if (isEmpty()) {
        m_held.resize(0);
        m_taken = 0;
    }
    const qint64 before = m_held.size();
    try {
        m_held.resize(before + size);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
    return m_held.data() + before;
}

} // namespace Talverine::Compression
