// SPDX-License-Identifier: MIT
#include <brixlib/protocol/scommandid.h>

#include <brixlib/protocol/wire.h>

#include <QtCore/QDataStream>

namespace Talverine {

QDataStream &operator<<(QDataStream &stream, const SCommandId &id)
{
    return stream << Wire::kIdMagic << Wire::kIdRecordVersion << quint32(id.id());
}

QDataStream &operator>>(QDataStream &stream, SCommandId &id)
{
    quint32 magic = 0;
    quint32 recordVersion = 0;
    quint32 value = 0;
    stream >> magic >> recordVersion >> value;
    id = magic == Wire::kIdMagic ? SCommandId(value) : SCommandId();
    return stream;
}

} // namespace Talverine
