// SPDX-License-Identifier: MIT
#include <brixlib/compression/stifflzw.h>

#include "lzwdecoder_p.h"
#include "lzwencoder_p.h"

#include <QtCore/QPointer>

#include <stdexcept>
#include <typeinfo>
#include <utility>

namespace Talverine::Compression {

using namespace Qt::StringLiterals;

class STiffLZWPrivate final
{
public:
    bool isCompressing = false;
    bool isDecompressing = false;
    QPointer<QIODevice> target;
    QPointer<QIODevice> source;
    LzwEncoder encoder;
    LzwDecoder decoder;
};

STiffLZW::STiffLZW()
    : d(std::make_unique<STiffLZWPrivate>())
{
}

STiffLZW::~STiffLZW() = default;

quint64 STiffLZW::uniqueId()
{
    return typeid(STiffLZW).hash_code();
}

void STiffLZW::beginCompress(QIODevice *device)
{
    d->isCompressing = true;
    d->target = device;
    d->encoder.begin();
}

qint64 STiffLZW::incrementalCompress(const char *data, qint64 size)
{
    if (!d->isCompressing)
        return -1;
    if (size <= 0)
        return 0;
    return d->encoder.add(d->target, data, size) ? size : -1;
}

bool STiffLZW::endCompress()
{
    if (!std::exchange(d->isCompressing, false))
        return false;
    if (d->encoder.isEmpty())
        throw std::out_of_range("STiffLZW::endCompress: the stream has got no byte");
    return d->encoder.end(d->target);
}

void STiffLZW::beginDecompress(QIODevice *device)
{
    d->isDecompressing = true;
    d->source = device;
    d->decoder.begin();
}

qint64 STiffLZW::incrementalDecompress(char *data, qint64 maxSize, qint64 compressedSize)
{
    return d->decoder.decode(d->source, data, maxSize, compressedSize);
}

bool STiffLZW::endDecompress()
{
    d->isDecompressing = false;
    return true;
}

STiffLZW *STiffLZW::clone() const
{
    return new STiffLZW;
}

quint64 STiffLZW::id() const
{
    return uniqueId();
}

qint64 STiffLZW::compress(const char *data, qint64 size, QIODevice *target)
{
    // A stream that was begun for nothing could not be ended.
    if (size <= 0)
        return 0;
    if (!d->isCompressing)
        beginCompress(target);
    return incrementalCompress(data, size);
}

qint64 STiffLZW::decompress(QIODevice *source, char *data, qint64 maxSize, qint64 compressedSize)
{
    if (!d->isDecompressing)
        beginDecompress(source);
    return incrementalDecompress(data, maxSize, compressedSize);
}

bool STiffLZW::finalize()
{
    if (d->isCompressing && !endCompress())
        return false;
    d->isDecompressing = false;
    return true;
}

qint64 STiffLZW::bytesAvailable() const
{
    return d->decoder.bytesAvailable();
}

QString STiffLZW::name()
{
    return u"lzw"_s;
}

int STiffLZW::concurrence() const
{
    return 1;
}

STiffLZWDevice::STiffLZWDevice(QIODevice *device, bool leaveOpen, QObject *parent)
    : SCompressorDevice(device, new STiffLZW, leaveOpen, false, parent)
{
}

} // namespace Talverine::Compression

#include "moc_stifflzw.cpp"
