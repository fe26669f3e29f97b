// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandpathpair.h>

namespace Talverine {

SCommandPathPair::SCommandPathPair(const SCommandId &id, const QString &first,
                                   const QString &second, int version)
    : SCommand(id, version)
    , m_first(first)
    , m_second(second)
{
}

void SCommandPathPair::clear()
{
    m_first.clear();
    m_second.clear();
}

void SCommandPathPair::readFields(QDataStream &stream)
{
    stream >> m_first >> m_second;
}

void SCommandPathPair::writeFields(QDataStream &stream) const
{
    stream << m_first << m_second;
}

} // namespace Talverine
