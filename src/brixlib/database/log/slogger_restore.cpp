// SPDX-License-Identifier: MIT
// Backups that a program asks for, and reading them.
#include <brixlib/database/log/slogger.h>

#include "logbackups_p.h"
#include <brixlib/database/temporarydatabase_p.h>

#include <brixrt/sfilehelper.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

using namespace Qt::StringLiterals;

namespace Talverine {

namespace {

constexpr int kCopyPieceBytes = 32768;

// Not by QFile::copy(): the copy of a read-only file must not be read-only.
bool copyFile(const QString &source, const QString &target)
{
    QFile from(source);
    QFile to(target);
    return to.open(QIODevice::WriteOnly) && SFileHelper::copyDevice(&to, &from, kCopyPieceBytes) &&
           to.flush();
}

} // namespace

bool SLogger::backup(const QString &dir, const QString &name)
{
    const QMutexLocker guard(&m_mutex);
    const QString target = outsidePath(dir, name);
    return !target.isEmpty() && m_database.backup(target, false);
}

bool SLogger::restore(const QString &dir, const QString &name, bool merge,
                      const QString &uniqueField)
{
    const QMutexLocker guard(&m_mutex);
    const QString source = outsidePath(dir, name);
    if (source.isEmpty())
        return false;
    if (!merge)
        return restoreInPlace(source);
    return uniqueField.isEmpty() ? m_database.restore(source, true) : mergeNew(source, uniqueField);
}

bool SLogger::restore(const QString &dir, bool merge, const QString &uniqueField)
{
    return restore(dir, QString(), merge, uniqueField);
}

// Empty when there is no name to take.
QString SLogger::outsidePath(const QString &dir, const QString &name) const
{
    const QString fileName = name.isEmpty() ? QFileInfo(m_pathName).fileName() : name;
    return fileName.isEmpty() ? QString() : u"%1/%2"_s.arg(dir, fileName);
}

bool SLogger::restoreInPlace(const QString &source)
{
    if (!LogBackups(m_pathName).holds(source))
        return rotate(false) && m_database.restore(source, false);
    // The rotation may remove the backup that is asked for, or write over it.
    const TemporaryDatabase aside(restorationNote());
    return copyFile(source, aside.path()) && rotate(false) &&
           m_database.restore(aside.path(), false);
}

bool SLogger::mergeNew(const QString &source, const QString &uniqueField)
{
    const TemporaryDatabase sifted(restorationNote());
    return copyAndRemoveDuplicated(source, uniqueField, sifted.path()) &&
           m_database.restore(sifted.path(), true);
}

bool SLogger::copyAndRemoveDuplicated(const QString &source, const QString &field,
                                      const QString &copy)
{
    if (!copyFile(source, copy))
        return false;
    SDBText database;
    if (!database.open(copy) || !database.authenticate(m_user, m_password) ||
        !database.addFieldIndex(field))
        return false;
    for (const SDBField &known : m_database.values(field)) {
        QList<SDBRecord> doubles;
        database.searchField(known, doubles);
        for (const SDBRecord &record : doubles)
            database.remove(record);
    }
    return database.close();
}

} // namespace Talverine
