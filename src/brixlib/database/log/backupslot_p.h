// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Talverine {

class StagedFile;

/*!
 * The place of a log's next backup by rotation. The backups that it replaces or pushes out are only
 * renamed until keep(): when the rotation fails after all, everything is as before.
 */
class BackupSlot final
{
public:
    explicit BackupSlot(const QString &logFile);
    //! Without keep(), removes the new backup and brings back those that made room for it.
    ~BackupSlot();
    Q_DISABLE_COPY_MOVE(BackupSlot)

    QString path() const { return m_path; }
    //! The name to write the backup under.
    QString stagedName() const;
    //! Makes room and puts a backup in place that is flushed to the disk.
    [[nodiscard]] bool take(StagedFile *backup);
    //! The log has its new content. Removes what made room.
    void keep() { m_isKept = true; }

    //! Completes or undoes a rotation of \a logFile that was killed, and removes what it has left.
    static void removeRemains(const QString &logFile);

private:
    bool moveAside(const QString &name);

    const QString m_logFile;
    const QString m_path;
    const QString m_oldest;
    QStringList m_movedAside; //!< the names of the backups that made room
    bool m_isTaken = false;
    bool m_isKept = false;
};

} // namespace Talverine
