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

/*!
 * Copies the next bytes of \a source and leaves them there: at least \a least unless it ends or
 * fails before, and up to \a most where that keeps nobody waiting. -1 for a failure.
 */
inline qint64 peekAhead(QIODevice *source, char *data, qint64 least, qint64 most)
{
    if (const std::optional<QByteArrayView> bytes = bytesInPlace(source)) {
        const qint64 count = std::min<qint64>(bytes->size(), most);
        std::copy_n(bytes->data(), count, data);
        return count;
    }
    const qint64 wanted =
        source->isSequential() ? std::clamp(source->bytesAvailable(), least, most) : most;
    return source->peek(data, wanted);
}

} // namespace Talverine::Compression
