// SPDX-License-Identifier: MIT
#include <brixlib/protocol/commands/scommandpluggable.h>

namespace Talverine {

SCommandPluggable::SCommandPluggable()
    : SConcreteCommand(CommandIds::kPluggable)
{
}

SCommandPluggable::SCommandPluggable(const QString &command, const QByteArray &params)
    : SConcreteCommand(CommandIds::kPluggable)
    , m_command(command)
    , m_params(params)
{
}

void SCommandPluggable::readFields(QDataStream &stream)
{
    stream >> m_command >> m_params;
}

void SCommandPluggable::writeFields(QDataStream &stream) const
{
    stream << m_command << m_params;
}

} // namespace Talverine
