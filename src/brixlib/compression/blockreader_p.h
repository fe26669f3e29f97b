// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>

class QIODevice;

namespace Talverine::Compression {

//! How the blocks of one algorithm are decoded. None of this throws.
struct BlockDecoder
{
    //! What a block claims to hold: no more than any of its length does. 0 when it is damaged.
    qint64 (*plainSize)(QByteArrayView block);
    //! Decodes to \a data, of just the plain size. False, with anything there, when it is not that.
    bool (*decodeInto)(QByteArrayView block, char *data, qint64 size);
    //! The plain bytes of a block that the other two can't do; empty when nobody can.
    QByteArray (*decode)(const QByteArray &block);
};

/*!
 * Reads blocks, and holds the plain bytes of the last ones until they are taken. A block that fits
 * in what a caller has room for is decoded there.
 *
 * Thread: one at a time.
 */
class BlockReader
{
public:
    explicit BlockReader(const BlockDecoder &decoder);

    /*!
     * Moves up to \a maxSize bytes to \a data and gives their count: of what is held, or when that
     * is nothing, of the next block of a framed stream, or with a \a compressedSize of all its
     * blocks until so many bytes. What does not fit is held. A length word of 0, or none, ends the
     * stream.
     *
     * -1, with nothing held, when the blocks do not add up to a \a compressedSize.
     */
    qint64 readFramed(QIODevice *source, char *data, qint64 maxSize, qint64 compressedSize);

    //! Holds \a plain bytes, behind those that are; none when there is no memory.
    void hold(const QByteArray &plain);
    //! Moves up to \a maxSize held bytes to \a data and gives their count.
    qint64 take(char *data, qint64 maxSize);

    qint64 bytesAvailable() const { return m_held.size() - m_taken; }
    bool isEmpty() const { return bytesAvailable() == 0; }
    void clear();

private:
    qint64 readBlock(QIODevice *source, char *data, qint64 maxSize);
    bool holdBlocks(QIODevice *source, qint64 compressedSize);
    void holdDecoded(QByteArrayView block);
    char *grow(qint64 size);

    BlockDecoder m_decoder;
    QByteArray m_block; // as read, for its memory
    QByteArray m_held;
    qint64 m_taken = 0; // of those
};

} // namespace Talverine::Compression
