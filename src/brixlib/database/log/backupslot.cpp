// SPDX-License-Identifier: MIT
#include "backupslot_p.h"

#include "logbackups_p.h"
#include <brixlib/database/storage/diskfile_p.h>
#include <brixlib/database/storage/stagedfile_p.h>

#include <brixrt/sfilehelper.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

namespace Talverine {

namespace {

constexpr QLatin1String kStagedSuffix(".brixbackup");
constexpr QLatin1String kAsideSuffix(".brixaside");
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

QString asideOf(const QString &backupFile)
{
    return backupFile + kAsideSuffix;
}

// Removes what was moved aside, or brings it back in the opposite order: the oldest backup is the
// last one aside, whenever this is stopped.
void settle(const QStringList &movedAside, bool isDone)
{
    if (isDone) {
        for (const QString &name : movedAside)
            QFile::remove(asideOf(name));
        return;
    }
    for (auto name = movedAside.crbegin(); name != movedAside.crend(); ++name)
        static_cast<void>(DiskFile::moveOver(asideOf(*name), *name));
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
    if (m_isTaken && !m_isKept)
        QFile::remove(m_path);
    settle(m_movedAside, m_isKept);
}

QString BackupSlot::stagedName() const
{
    return m_logFile + kStagedSuffix;
}

bool BackupSlot::take(StagedFile *backup)
{
    m_isTaken = moveAside(m_oldest) && moveAside(m_path) && backup->putInPlace();
    return m_isTaken;
}

bool BackupSlot::moveAside(const QString &name)
{
    // A backup that was opened as a log has a name of its own ring.
    if (!QFileInfo(name).isFile() || SFileHelper::isSameFile(name, m_logFile))
        return true;
    if (!DiskFile::moveOver(name, asideOf(name)))
        return false;
    m_movedAside.append(name);
    return true;
}

// A rotation that was killed before the log had its new content is undone: it is made again.
void BackupSlot::removeRemains(const QString &logFile)
{
    QFile::remove(logFile + kStagedSuffix);
    const LogBackups backups(logFile);
    QStringList movedAside;
    for (const QString &name : backups.names()) {
        if (QFile::exists(asideOf(name)))
            movedAside.append(name);
    }
    if (movedAside.isEmpty())
        return;
    // Of two, the other one was to be written over, and is the last.
    const QString backup =
        movedAside.size() > 1 ? movedAside.last() : backups.nameBefore(movedAside.first());
    const bool isDone = QFile::exists(backup) && !beginsWith(logFile, backup);
    if (!isDone && !movedAside.contains(backup) && QFile::exists(backup))
        QFile::remove(backup);
    settle(movedAside, isDone);
}

} // namespace Talverine
