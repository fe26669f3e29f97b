// SPDX-License-Identifier: MIT
// The framed stream: blocks, each led by its length as a big-endian word of 32 bits, and each
// decoded by itself. What the compressors that write it do alike.
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>

#include <functional>

class QIODevice;

namespace Talverine::Compression {

//! Makes a block of plain bytes, or plain bytes of a block. Never throws.
using BlockFunction = std::function<QByteArray(const QByteArray &)>;

//! Writes \a value big-endian; false when \a target fails or takes no more.
[[nodiscard]] bool writeWord(QIODevice *target, quint32 value);

//! Reads what writeWord() wrote; 0 when there is no whole word.
quint32 readWord(QIODevice *source);

//! Reads until \a size or the end; -1 when reading fails before there is anything.
qint64 readBytes(QIODevice *source, char *data, qint64 size);

//! Up to \a size bytes, fewer at the end: memory is taken as they arrive, whatever \a size claims.
QByteArray readClaimed(QIODevice *source, qint64 size);
//! The same, in the memory that \a bytes have already.
void readClaimed(QIODevice *source, qint64 size, QByteArray *bytes);

//! The block that has no length word: \a compressedSize bytes, or with 0 all to the end.
QByteArray readBareBlock(QIODevice *source, qint64 compressedSize);

//! \a size bytes of any value; empty when they can't be had.
QByteArray uninitialized(qint64 size);

/*!
 * Writes the length word, whose failure goes unnoticed, and the block. False when the block's own
 * bytes can't be written; or, with nothing written, when its length does not fit in the word.
 */
[[nodiscard]] bool writeFramedBlock(QIODevice *target, const QByteArray &block);

/*!
 * Cuts \a data in as many pieces as \a concurrence says, none below 16 KiB, and one more of what is
 * left over; encodes each on the global thread pool, and writes the blocks in the order of the
 * pieces. No data makes one block of an empty piece.
 *
 * \a encode is called from several threads at once, on views of \a data; all calls have returned
 * before this one does. False when a block can't be made or written; none is written after it.
 */
[[nodiscard]] bool writeFramedConcurrently(QIODevice *target, const char *data, qint64 size,
                                           int concurrence, const BlockFunction &encode);

/*!
 * Writes one block of all of \a data, with its length word if \a framed; but if \a framed and with
 * a \a concurrence above 1 as writeFramedConcurrently() does. False when a block can't be made,
 * which an empty one stands for, or written.
 */
[[nodiscard]] bool writeBlocks(QIODevice *target, const char *data, qint64 size, bool framed,
                               int concurrence, const BlockFunction &encode);

} // namespace Talverine::Compression
