// SPDX-License-Identifier: MIT
// Decoders look at many bytes at once and leave those in the device that are not theirs.
#pragma once

#include <QtCore/QBuffer>
#include <QtCore/QByteArrayView>

#include <algorithm>
#include <optional>
#include <typeinfo>

namespace Talverine::Compression {

//! What \a source has ahead where it stands in memory. Nothing unless it is just a QBuffer: a class
//! derived from it may give other bytes than it holds.
inline std::optional<QByteArrayView> bytesInPlace(const QIODevice *source)
{
    if (typeid(*source) != typeid(QBuffer) || !source->isReadable())
        return std::nullopt;
    const QByteArrayView bytes = static_cast<const QBuffer *>(source)->data();
    // The array may be shorter by now, which peek() does not expect.
    return bytes.sliced(std::min<qint64>(source->pos(), bytes.size()));
}

//! Does what peekAhead() does, of a device of any class.
qint64 peekDevice(QIODevice *source, char *data, qint64 least, qint64 most);

/*!
 * Copies the next bytes of \a source and leaves them there. Returns their number: at least \a least
 * unless the source ends or fails before that, and up to \a most if that does not wait. Returns -1
 * if the first read fails.
 */
inline qint64 peekAhead(QIODevice *source, char *data, qint64 least, qint64 most)
{
    if (const std::optional<QByteArrayView> bytes = bytesInPlace(source)) {
        const qint64 count = std::min<qint64>(bytes->size(), most);
        std::copy_n(bytes->data(), count, data);
        return count;
    }
    return peekDevice(source, data, least, most);
}

} // namespace Talverine::Compression
