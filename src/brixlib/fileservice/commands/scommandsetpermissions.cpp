// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandsetpermissions.h>

namespace Talverine {

SCommandSetPermissions::SCommandSetPermissions()
    : SConcreteCommand(CommandIds::kSetPermissions)
{
}

SCommandSetPermissions::SCommandSetPermissions(const QString &fileName,
                                               const FileEntryFlags &permissions)
    : SConcreteCommand(CommandIds::kSetPermissions)
    , m_fileName(fileName)
{
    setPermissions(permissions);
}

void SCommandSetPermissions::setPermissions(const FileEntryFlags &permissions)
{
    m_permissions = permissions & FileEntryFlags::Permissions;
}

void SCommandSetPermissions::clear()
{
    m_fileName.clear();
    m_permissions = FileEntryFlags::None;
}

bool SCommandSetPermissions::isNull() const
{
    return SConcreteCommand::isNull() || m_permissions == FileEntryFlags::None ||
           m_fileName.isEmpty();
}

// On the wire the flags come first.
void SCommandSetPermissions::readFields(QDataStream &stream)
{
    quint32 flags = 0;
    stream >> flags >> m_fileName;
    setPermissions(static_cast<FileEntryFlags>(flags));
}

void SCommandSetPermissions::writeFields(QDataStream &stream) const
{
    stream << static_cast<quint32>(m_permissions) << m_fileName;
}

} // namespace Talverine
