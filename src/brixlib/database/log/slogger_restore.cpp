// SPDX-License-Identifier: MIT
// Backups that a program asks for, and reading them.
#include <brixlib/database/log/slogger.h>

#include "logbackups_p.h"
#include <brixlib/database/temporarydatabase_p.h>

#include <brixrt/sfilehelper.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <utility>

using namespace Qt::StringLiterals;

namespace Talverine {

namespace {

constexpr int kCopyPieceBytes = 32768;

// Not by QFile::copy(): the copy of a read-only file must not be read-only.
DBError copyFile(const QString &source, const QString &target)
{
    QFile from(source);
    if (!from.open(QIODevice::ReadOnly))
        return from.exists() ? DBError::OpenError : DBError::FileNotFound;
    QFile to(target);
    const bool isDone = !target.isEmpty() && to.open(QIODevice::WriteOnly) &&
                        SFileHelper::copyDevice(&to, &from, kCopyPieceBytes) && to.flush();
    return isDone ? DBError::NoError : DBError::WriteError;
}

// A failed write leaves the error of the operation before.
DBError failureOf(const SDBText &database)
{
    const DBError error = database.error();
    return error == DBError::NoError ? DBError::WriteError : error;
}

// Removes the entries whose text in the field is one of the known.
DBError sift(SDBText *database, const QList<SDBField> &known)
{
    for (const SDBField &field : known) {
        QList<SDBRecord> doubles;
        database->searchField(field, doubles);
        for (const SDBRecord &record : std::as_const(doubles)) {
            if (!database->remove(record))
                return failureOf(*database);
        }
    }
    return database->close() ? DBError::NoError : failureOf(*database);
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
    return m_database.returnBool(copyFile(source, aside.path())) && rotate(false) &&
           m_database.restore(aside.path(), false);
}

bool SLogger::mergeNew(const QString &source, const QString &uniqueField)
{
    const TemporaryDatabase sifted(restorationNote());
    return m_database.returnBool(copyAndRemoveDuplicated(source, uniqueField, sifted.path())) &&
           m_database.restore(sifted.path(), true);
}

DBError SLogger::copyAndRemoveDuplicated(const QString &source, const QString &field,
                                         const QString &copy)
{
    if (const DBError copied = copyFile(source, copy); copied != DBError::NoError)
        return copied;
    SDBText database;
    if (!database.open(copy))
        return failureOf(database);
    if (!database.authenticate(m_user, m_password))
        return DBError::AuthError;
    if (!database.addFieldIndex(field))
        return failureOf(database);
    return sift(&database, m_database.values(field));
}

} // namespace Talverine
