// SPDX-License-Identifier: MIT
#include <brixlib/protocol/scommand.h>

#include "scommand_p.h"

#include <brixlib/foundation/sdatastream.h>

namespace Talverine {

SCommand::~SCommand() = default;

bool SCommand::operator==(const SCommand &other) const
{
    return m_id == other.m_id && m_version == other.m_version;
}

bool SCommand::isNull() const
{
    return m_id.isNull();
}

bool SCommand::serializeArray(QByteArray &array) const
{
    // A stream on an array writes over what is there and would leave a longer rest behind.
    array.clear();
    SDataStream stream(&array, QIODevice::WriteOnly);
    return serialize(stream);
}

bool SCommand::deserializeArray(const QByteArray &array)
{
    SDataStream stream(array);
    return deserialize(stream);
}

void SCommand::writeHeader(QDataStream &stream) const
{
    SCommandHeader{Wire::kCommandMagic, m_version, m_id}.write(stream);
}

bool SCommand::readHeader(QDataStream &stream)
{
    SCommandHeader header;
    if (!header.read(stream) || header.id != m_id)
        return false;
    m_version = header.version;
    return true;
}

} // namespace Talverine
