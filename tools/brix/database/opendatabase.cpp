// SPDX-License-Identifier: MIT
#include "opendatabase.h"

#include "databaselock.h"
#include <files/writeprobe.h>

#include <QtCore/QFileInfo>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::DBAuthGrants;
using Talverine::DBError;
using Talverine::DBError_T;
using Talverine::SDBRecord;
using Talverine::SDBText;

namespace {

Failure unreadable(const QString &file, const QString &reason)
{
    return {ExitCode::LocalIo, u"cannot read %1: %2"_s.arg(file, reason)};
}

// The library keeps no reason, so it is asked for again.
QString whyNotOpen(const QString &file)
{
    QFile again(file);
    return again.open(QIODevice::ReadWrite) ? u"the system gives no reason"_s : again.errorString();
}

Failure notWritten(const QString &file)
{
    const QString reason = whyNotWritable(file);
    return {ExitCode::LocalIo,
            u"cannot write %1: %2"_s.arg(
                file, reason.isEmpty() ? u"the disk is full, or it failed"_s : reason)};
}

Failure refused(const QString &text)
{
    return {ExitCode::Refused, text};
}

} // namespace

qint64 ReasonedFile::writeData(const char *data, qint64 size)
{
    const qint64 count = QFile::writeData(data, size);
    if (count < size)
        m_writeReason = errorString();
    return count;
}

OpenDatabase::OpenDatabase(const QString &file, const DatabaseLogin &login, const QString &name)
    : m_file(name.isEmpty() ? file : name)
    , m_isAnonymous(login.user.isEmpty())
{
    requireFile(file);
    // Its companions lie beside the file, not beside a link to it.
    m_device.setFileName(QFileInfo(file).canonicalFilePath());
    require(m_database.open(&m_device));
    // Asked later, the owner would get the rights that he has himself.
    m_grants = m_database.grants();
    authenticate(&m_database, m_file, login);
}

void OpenDatabase::requireWriting()
{
    const DBAuthGrants grants = m_database.grants();
    if (grants != DBAuthGrants::All && grants != DBAuthGrants::ReadWrite)
        throw failureOfUser(DBError::AuthError);
}

void OpenDatabase::requireReading()
{
    if (m_database.grants() == DBAuthGrants::None)
        throw failureOfUser(DBError::AuthError);
}

void OpenDatabase::require(bool isDone) const
{
    if (!isDone)
        throw failureOfUser(m_database.error());
}

SDBRecord OpenDatabase::record(const QString &key)
{
    SDBRecord record;
    if (m_database.value(key, record))
        return record;
    if (m_database.error() == DBError::RecNotFound)
        throw refused(u"%1 has no record %2"_s.arg(m_file, key));
    throw failureOfUser(m_database.error());
}

bool OpenDatabase::makesKeys() const
{
    return m_database.key() == SDBRecord::uniqueIncKey();
}

Failure OpenDatabase::failureOfUser(DBError error) const
{
    const bool isWriteError = error == DBError::WriteError || error == DBError::NoError;
    if (isWriteError && !m_device.writeReason().isEmpty())
        return {ExitCode::LocalIo, u"cannot write %1: %2"_s.arg(m_file, m_device.writeReason())};
    Failure told = failure(m_file, error);
    if (error == DBError::AuthError && m_isAnonymous)
        told.text += u"; say who uses it with --user"_s;
    return told;
}

Failure OpenDatabase::failure(const QString &file, DBError error)
{
    switch (error) {
    case DBError::AuthError:
        return refused(u"%1 does not grant this to the user"_s.arg(file));
    case DBError::WrongDB:
        return refused(u"%1 is not a database, or its head is destroyed"_s.arg(file));
    case DBError::SignError:
        return refused(u"the head of %1 is damaged: it is not what its signature says"_s.arg(file));
    case DBError::KeyIsNull:
        return refused(u"%1: the key is missing"_s.arg(file));
    case DBError::RecExist:
        return refused(u"%1 has a record of this key"_s.arg(file));
    case DBError::RecNotFound:
        return refused(u"%1 has no such record"_s.arg(file));
    case DBError::FileNotFound:
        return unreadable(file, u"there is no such file"_s);
    case DBError::FileLockError:
        return DatabaseLock::failure(QFileInfo(file).canonicalFilePath());
    case DBError::OpenError:
        return {ExitCode::LocalIo,
                u"cannot open %1 for reading and writing: %2"_s.arg(file, whyNotOpen(file))};
    case DBError::NoError:
    case DBError::WriteError:
        return notWritten(file);
    case DBError::ReadError:
        return unreadable(file, u"reading failed, or memory ran out"_s);
    default:
        return unreadable(file, DBError_T::instance().toString(error, QLocale::c()));
    }
}

void OpenDatabase::requireFile(const QString &file)
{
    const QFileInfo info(file);
    if (!info.exists())
        throw unreadable(file, u"there is no such file"_s);
    if (info.isDir())
        throw unreadable(file, u"it is a folder"_s);
    // A pipe would be waited for, and a device has no end.
    if (!info.isFile())
        throw unreadable(file, u"it is not a file"_s);
}

void OpenDatabase::authenticate(SDBText *database, const QString &file, const DatabaseLogin &login)
{
    if (login.user.isEmpty())
        return;
    const bool isOwner = database->authenticate(login.user, login.password.toInsecureString());
    if (!isOwner && login.user.compare(database->owner(), Qt::CaseInsensitive) == 0)
        throw refused(u"the password of %1, who owns %2, is another"_s.arg(login.user, file));
}

void OpenDatabase::requireReading(SDBText *database, const QString &file)
{
    if (database->grants() == DBAuthGrants::None)
        throw failure(file, DBError::AuthError);
}

} // namespace Brix
