// SPDX-License-Identifier: MIT
// Decoders look at many bytes at once and leave those in the device that are not theirs.
#pragma once

#include <QtCore/QIODevice>

#include <algorithm>

namespace Talverine::Compression {

/*!
 * Copies the next bytes of \a source and leaves them there: at least \a least unless it ends or
 * fails before, and up to \a most where that keeps nobody waiting. -1 for a failure.
 */
inline qint64 peekAhead(QIODevice *source, char *data, qint64 least, qint64 most)
{
    const qint64 wanted =
        source->isSequential() ? std::clamp(source->bytesAvailable(), least, most) : most;
    return source->peek(data, wanted);
}

} // namespace Talverine::Compression
