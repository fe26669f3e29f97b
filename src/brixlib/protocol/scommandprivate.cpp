// SPDX-License-Identifier: MIT
#include "scommand_p.h"

namespace Talverine {

bool SCommandHeader::read(QDataStream &stream)
{
    stream >> magic;
    if (magic != Wire::kCommandMagic)
        return false;
    stream >> version >> id;
    return stream.status() == QDataStream::Ok;
}

void SCommandHeader::write(QDataStream &stream) const
{
    stream << magic << version << id;
}

SCommandPrivate *SCommandPrivate::clone() const
{
    return new SCommandPrivate(*this);
}

bool SCommandPrivate::equalsTo(const Interfaces::IEquatable *other) const
{
    return isSameType(other) && *this == static_cast<const SCommandPrivate &>(*other);
}

bool SCommandPrivate::deserialize(QDataStream &stream)
{
    SCommandHeader header;
    if (!header.read(stream))
        return false;
    setId(header.id);
    return true;
}

bool SCommandPrivate::serialize(QDataStream &stream) const
{
    SCommandHeader{Wire::kCommandMagic, Wire::kDefaultCommandVersion, id()}.write(stream);
    return stream.status() == QDataStream::Ok;
}

} // namespace Talverine
