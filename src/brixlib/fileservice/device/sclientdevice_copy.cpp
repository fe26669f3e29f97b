// SPDX-License-Identifier: MIT
// Copying between devices of any kind.
#include <brixlib/fileservice/device/sclientdevice.h>

#include <brixlib/devices/sbuffereddevice.h>
#include <brixlib/foundation/interfaces.h>
#include <brixlib/foundation/underlyingdevice_p.h>

#include <algorithm>

#include <brixrt/sfilehelper.h>

namespace Talverine {

namespace {

// Some devices hold bytes back, and their close() does not tell that it could not write them.
bool flushWhole(QIODevice *device)
{
    if (auto *const buffered = qobject_cast<SBufferedDevice *>(device))
        return buffered->flush() && flushWhole(buffered->underlyingDevice());
    return flushUnderlyingFile(device);
}

bool closeWhole(QIODevice *device)
{
    auto *const client = qobject_cast<SClientDevice *>(device);
    if (!client) {
        device->close();
        return true;
    }
    bool isConfirmed = false;
    client->close(&isConfirmed);
    return isConfirmed;
}

// A remote source that has just lost its server is not at its end, but closed. A buffer gives
// nothing also where the device behind it fails, so that one is asked itself then.
qint64 readSome(QIODevice *device, char *data, qint64 size)
{
    if (!device || !device->isOpen())
        return -1;
    const qint64 count = device->read(data, size);
    const auto *const buffered = qobject_cast<SBufferedDevice *>(device);
    return count == 0 && buffered ? readSome(buffered->underlyingDevice(), data, size) : count;
}

// The size is the source's word.
int percent(qint64 done, qint64 size)
{
    return done < size ? static_cast<int>(done * 100 / size) : 100;
}

bool pump(QIODevice *target, QIODevice *source, Interfaces::IProgress *progress, char *buffer,
          qint64 bufferSize)
{
    const qint64 size = source->size();
    qint64 done = 0;
    while (!source->atEnd()) {
        if (progress) {
            progress->setProgress(percent(done, size));
            if (progress->isAbortRequested())
                return false;
        }
        const qint64 count = readSome(source, buffer, bufferSize);
        // A source that claims more than it gives is never at its end.
        if (count == 0)
            break;
        if (count < 0 || !SFileHelper::writeAll(target, QByteArrayView(buffer, count)))
            return false;
        done += count;
    }
    // A device that was closed on the way says that it is at its end, too.
    return source->isOpen() && target->isOpen() && flushWhole(target);
}

} // namespace

bool SClientDevice::copy(QIODevice *target, QIODevice *source, Interfaces::IProgress *progress,
                         int bufferSize)
{
    const std::unique_ptr<char[]> buffer(
        bufferSize > 0 ? new (std::nothrow) char[static_cast<std::size_t>(bufferSize)]() : nullptr);
    if (!buffer)
        return false;

    const bool closesSource = !source->isOpen();
    const bool closesTarget = !target->isOpen();
    // The source first: the target loses its content when it is opened.
    bool isCopied = (!closesSource || source->open(ReadOnly)) &&
                    (!closesTarget || target->open(WriteOnly)) &&
                    pump(target, source, progress, buffer.get(), bufferSize);
    if (closesTarget)
        isCopied = closeWhole(target) && isCopied;
    if (closesSource)
        isCopied = closeWhole(source) && isCopied;
    return isCopied;
}

bool SClientDevice::copy(QIODevice *target, QIODevice *source, int bufferSize)
{
    return copy(target, source, nullptr, bufferSize);
}

} // namespace Talverine
