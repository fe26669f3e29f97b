// SPDX-License-Identifier: MIT
#include <brixlib/compression/snullcompressor.h>

#include "framedblocks_p.h"

#include <brixrt/sfilehelper.h>

#include <QtCore/QIODevice>

#include <typeinfo>

namespace Talverine::Compression {

using namespace Qt::StringLiterals;

SNullCompressor::~SNullCompressor() = default;

quint64 SNullCompressor::uniqueId()
{
    return typeid(SNullCompressor).hash_code();
}

SNullCompressor *SNullCompressor::clone() const
{
    return new SNullCompressor;
}

quint64 SNullCompressor::id() const
{
    return uniqueId();
}

qint64 SNullCompressor::compress(const char *data, qint64 size, QIODevice *target)
{
    return SFileHelper::writeAll(target, QByteArrayView(data, size)) ? size : -1;
}

qint64 SNullCompressor::decompress(QIODevice *source, char *data, qint64 maxSize, qint64)
{
    return readBytes(source, data, maxSize);
}

bool SNullCompressor::finalize()
{
    return true;
}

qint64 SNullCompressor::bytesAvailable() const
{
    return 0;
}

QString SNullCompressor::name()
{
    return u"uncompressed"_s;
}

int SNullCompressor::concurrence() const
{
    return 1;
}

} // namespace Talverine::Compression
