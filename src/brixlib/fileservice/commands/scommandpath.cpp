// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandpath.h>

namespace Talverine {

SCommandPath::SCommandPath(const SCommandId &id, const QString &value, int version)
    : SCommand(id, version)
    , m_value(value)
{
}

void SCommandPath::clear()
{
    m_value.clear();
}

void SCommandPath::readFields(QDataStream &stream)
{
    stream >> m_value;
}

void SCommandPath::writeFields(QDataStream &stream) const
{
    stream << m_value;
}

} // namespace Talverine
