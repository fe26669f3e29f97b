// SPDX-License-Identifier: MIT
#include "backupslot_p.h"

#include "asidename_p.h"
#include "logbackups_p.h"
#include <brixlib/database/storage/diskfile_p.h>
#include <brixlib/database/storage/stagedfile_p.h>

#include <brixrt/sfilehelper.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <utility>

namespace Talverine {

namespace {

constexpr QLatin1String kStagedSuffix(".brixbackup");
constexpr qint64 kPieceBytes = 32768;

// Whether the log still has all that was copied to its backup.
bool beginsWith(const QString &logFile, const QString &backupFile)
{
    QFile log(logFile);
    QFile backup(backupFile);
    if (!log.open(QIODevice::ReadOnly) || !backup.open(QIODevice::ReadOnly))
        return false;
    while (!backup.atEnd()) {
        const QByteArray piece = backup.read(kPieceBytes);
        if (piece.isEmpty() || log.read(piece.size()) != piece)
            return false;
    }
    return true;
}

bool isThere(const QString &name)
{
    const QFileInfo file(name);
    return file.exists() || file.isSymLink();
}

// To its own name. Where that has been given to another file, to one that is free.
void bringBack(const QString &aside, const QString &name, const LogBackups &backups)
{
    const QString home = isThere(name) ? backups.nextName() : name;
    if (!isThere(home))
        static_cast<void>(DiskFile::moveOver(aside, home));
}

// The steps of take() from the last to the first: for as long as anything is renamed, a backup that
// has the name of the new one is the new one.
void undo(const AsideName &aside, const LogBackups &backups, const QString &logFile)
{
    const QString name = backups.names().at(aside.number());
    const QString next = backups.names().at(aside.next());
    // Only what the log still has goes.
    const bool isNewThere = !SFileHelper::isSameFile(next, logFile) && beginsWith(logFile, next);
    if (isNewThere && name == next) {
        static_cast<void>(DiskFile::moveOver(aside.path(), name));
        return;
    }
    // Of two, the other one is moved over it.
    if (isNewThere &&
        !isThere(AsideName(logFile, aside.next(), aside.next(), aside.stamp()).path()))
        QFile::remove(next);
    bringBack(aside.path(), name, backups);
}

} // namespace

BackupSlot::BackupSlot(const QString &logFile)
    : m_logFile(logFile)
    , m_path(LogBackups(logFile).nextName())
    , m_oldest(LogBackups(logFile).oldestName())
{
}

BackupSlot::~BackupSlot()
{
    if (m_isKept) {
        for (const Moved &moved : std::as_const(m_moved))
            QFile::remove(moved.aside);
        return;
    }
    if (m_isTaken && !isLogItself())
        QFile::remove(m_path);
    for (auto moved = m_moved.crbegin(); moved != m_moved.crend(); ++moved)
        static_cast<void>(DiskFile::moveOver(moved->aside, moved->name));
}

bool BackupSlot::isLogItself() const
{
    return SFileHelper::isSameFile(m_path, m_logFile);
}

QString BackupSlot::stagedName() const
{
    return m_logFile + kStagedSuffix;
}

// What would be written over is the first to be renamed and the last to come back.
bool BackupSlot::take(StagedFile *backup, const QString &stamp)
{
    m_isTaken = !isLogItself() && moveAside(m_path, stamp) && moveAside(m_oldest, stamp) &&
                backup->putInPlace();
    return m_isTaken;
}

bool BackupSlot::moveAside(const QString &name, const QString &stamp)
{
    const QFileInfo file(name);
    // A backup that was opened as a log has a name of its own ring.
    if ((!file.isFile() && !file.isSymLink()) || SFileHelper::isSameFile(name, m_logFile))
        return true;
    const LogBackups backups(m_logFile);
    const AsideName aside(m_logFile, backups.numberOf(name), backups.numberOf(m_path), stamp);
    if (!DiskFile::moveOver(name, aside.path()))
        return false;
    m_moved.append({name, aside.path()});
    return true;
}

void BackupSlot::removeRemains(const QString &logFile, const std::function<QString()> &stampOfLog)
{
    QFile::remove(logFile + kStagedSuffix);
    const QList<AsideName> remains = AsideName::findAll(logFile);
    if (remains.isEmpty())
        return;
    const LogBackups backups(logFile);
    const QString stamp = stampOfLog();
    for (const AsideName &aside : remains) {
        if (aside.stamp() == stamp)
            QFile::remove(aside.path());
        else
            undo(aside, backups, logFile);
    }
}

} // namespace Talverine
