// SPDX-License-Identifier: MIT
#include <brixlib/foundation/sdatastream.h>

#include "sdatastreamthreadversion_p.h"

namespace Talverine {

SDataStream::SDataStream()
{
    setVersion(defaultVersion());
}

SDataStream::SDataStream(const QByteArray &bytes)
    : QDataStream(bytes)
{
    setVersion(defaultVersion());
}

SDataStream::SDataStream(QByteArray *bytes, QIODeviceBase::OpenMode mode)
    : QDataStream(bytes, mode)
{
    setVersion(defaultVersion());
}

SDataStream::SDataStream(QIODevice *device)
    : QDataStream(device)
{
    setVersion(defaultVersion());
}

QDataStream::Version SDataStream::defaultVersion()
{
    return SDataStreamThreadVersion::instance().defaultVersion();
}

void SDataStream::setDefaultVersion(const QDataStream::Version &version)
{
    SDataStreamThreadVersion::instance().setDefaultVersion(version);
}

} // namespace Talverine
