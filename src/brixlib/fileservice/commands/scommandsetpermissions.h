// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/fileentryflags.h>
#include <brixlib/protocol/sconcretecommand.h>

#include <QtCore/QString>

namespace Talverine {

/*!
 * Sets the permissions of a file on the server. Reply: one result byte. Only the high half of the
 * flags, FileEntryFlags::Permissions, is kept. A null command costs the session.
 */
class BRIXLIB_EXPORT SCommandSetPermissions : public SConcreteCommand<SCommandSetPermissions>
{
public:
    SCommandSetPermissions();
    SCommandSetPermissions(const QString &fileName, const FileEntryFlags &permissions);

    bool operator==(const SCommandSetPermissions &other) const = default;

    QString fileName() const { return m_fileName; }
    void setFileName(const QString &fileName) { m_fileName = fileName; }
    FileEntryFlags permissions() const { return m_permissions; }
    void setPermissions(const FileEntryFlags &permissions);
    //! Sets all fields back; id and version stay.
    void clear();

    //! True also without a file name or without any permission.
    bool isNull() const override;

private:
    friend SConcreteCommand;
    void readFields(QDataStream &stream);
    void writeFields(QDataStream &stream) const;

    QString m_fileName;
    FileEntryFlags m_permissions = FileEntryFlags::None;
};

} // namespace Talverine
