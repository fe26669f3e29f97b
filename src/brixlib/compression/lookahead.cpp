// SPDX-License-Identifier: MIT
#include "lookahead_p.h"

#include "framedblocks_p.h"

#include <brixrt/requestsize_p.h>

namespace Talverine::Compression {

namespace {

// Repeats a peek() at size bytes that returned only done of them. Returns more than done
// unless the device has ended or fails.
qint64 peekAgain(QIODevice *source, char *data, qint64 done, qint64 size)
{
    // QIODevice buffers what it has returned, except for an unbuffered random-access device.
    if (source->isSequential() || !(source->openMode() & QIODevice::Unbuffered))
        return source->peek(data, done + readRequestSize(source, size - done));
    const qint64 start = source->pos();
    const qint64 count = readBytes(source, data, size);
    return source->seek(start) ? count : -1;
}

} // namespace

qint64 peekDevice(QIODevice *source, char *data, qint64 least, qint64 most)
{
    const qint64 wanted =
        source->isSequential() ? std::clamp(source->bytesAvailable(), least, most) : most;
    qint64 count = source->peek(data, readRequestSize(source, wanted));
    while (count > 0 && count < least) {
        const qint64 more = peekAgain(source, data, count, least);
        if (more <= count)
            break;
        count = more;
    }
    return count;
}

} // namespace Talverine::Compression
