// SPDX-License-Identifier: MIT
#include <brixlib/protocol/pluggables/spluggable.h>

namespace Talverine {

SPluggable::SPluggable(QObject *parent)
    : QObject(parent)
{
}

SPluggable::~SPluggable() = default;

QString SPluggable::command() const
{
    return m_command;
}

void SPluggable::setCommand(const QString &command)
{
    m_command = command;
}

bool SPluggable::isNull() const
{
    return m_command.isEmpty();
}

} // namespace Talverine

#include "moc_spluggable.cpp"
