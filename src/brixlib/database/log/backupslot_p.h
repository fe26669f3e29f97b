// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QList>
#include <QtCore/QString>

#include <functional>

namespace Talverine {

class StagedFile;

/*!
 * The place of a log's next backup by rotation. The backups that it replaces or pushes out are only
 * renamed until keep(): when the rotation fails after all, everything is as before.
 *
 * The name of a renamed backup has the log's file name, the backup's own number, the number of the
 * new backup and the stamp of the rotation, which the new log has too: whatever a killed program
 * has left can be completed or undone without a guess.
 */
class BackupSlot final
{
public:
    explicit BackupSlot(const QString &logFile);
    //! Without keep(), removes the new backup and brings back those that made room for it.
    ~BackupSlot();
    Q_DISABLE_COPY_MOVE(BackupSlot)

    QString path() const { return m_path; }
    //! Whether the place is the log itself, under whatever name. It must not be taken then.
    bool isLogItself() const;
    //! The name to write the backup under.
    QString stagedName() const;
    //! Makes room and puts a backup in place that is flushed to the disk. \a stamp is that of the
    //! new log: digits that no other rotation of the log has.
    [[nodiscard]] bool take(StagedFile *backup, const QString &stamp);
    //! The log has its new content. Removes what made room.
    void keep() { m_isKept = true; }

    /*!
     * Completes or undoes a rotation of \a logFile that was killed, and removes what it has left.
     * \a stampOfLog, called only where it matters, returns the stamp of the rotation that has made
     * the log, or nothing if none has.
     */
    static void removeRemains(const QString &logFile, const std::function<QString()> &stampOfLog);

private:
    bool moveAside(const QString &name, const QString &stamp);

    const QString m_logFile;
    const QString m_path;
    const QString m_oldest;
    bool m_isTaken = false;
    bool m_isKept = false;

    struct Moved
    {
        QString name;
        QString aside;
    };
    QList<Moved> m_moved; //!< the backups that made room, in this order
};

} // namespace Talverine
