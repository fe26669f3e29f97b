// SPDX-License-Identifier: MIT
// The user, the device with its lock, and the head.
#include "sdbtext_p.h"

#include <brixlib/database/records/recordwriter_p.h>
#include <brixlib/database/records/ssignature.h>
#include <brixlib/database/storage/stagedfile_p.h>

#include <brixrt/sfilehelper.h>
#include <brixrt/slocale.h>

#include <QtCore/QBuffer>
#include <QtCore/QDebug>
#include <QtCore/QFile>
#include <QtCore/QFileDevice>
#include <QtCore/QFileInfo>

using namespace Qt::StringLiterals;

namespace Talverine {

namespace {

constexpr int kLockPatienceMs = 500;
constexpr QLatin1String kLockSuffix(".lck");
constexpr QLatin1String kHeadSuffix(".srec");

QString passwordHash(const QString &password)
{
    return SSignature::generate(password, QCryptographicHash::Sha1);
}

bool grantsReading(DBAuthGrants grants)
{
    return grants != DBAuthGrants::None;
}

bool grantsWriting(DBAuthGrants grants)
{
    return grants == DBAuthGrants::ReadWrite || grants == DBAuthGrants::All;
}

bool grantsInserting(DBAuthGrants grants)
{
    return grantsWriting(grants) || grants == DBAuthGrants::ReadOwnWrite;
}

// Those of the current user follow from the others.
QFileDevice::Permissions permissionsOf(const QFileDevice &file)
{
    return file.permissions() &
           ~(QFileDevice::ReadUser | QFileDevice::WriteUser | QFileDevice::ExeUser);
}

// A program that is killed while it makes its lock leaves an empty file, which names no owner.
// While it lives, the system holds the file for it.
bool takeOwnerlessLock(QLockFile &lock, const QString &name)
{
    if (QFileInfo(name).size() != 0)
        return false;
    // By now it would have written its name, had it gone on.
    lock.setStaleLockTime(kLockPatienceMs / 2);
    const bool isTaken = lock.tryLock(0);
    lock.setStaleLockTime(0);
    return isTaken;
}

// A buffer keeps its bytes without Truncate, and a temporary file that is open underneath with it.
bool openTruncated(QIODevice *device, QIODevice::OpenMode mode)
{
    if (!device->open(mode | QIODevice::Truncate))
        return false;
    auto *file = qobject_cast<QFileDevice *>(device);
    return !file || file->size() == 0 || file->resize(0);
}

// Opens for writing and keeps the content.
bool openWithPermissions(QFile *file, const QIODevice *database)
{
    const auto *databaseFile = qobject_cast<const QFileDevice *>(database);
    if (!databaseFile)
        return false;
    const QFileDevice::Permissions permissions = permissionsOf(*databaseFile);
    return file->open(QIODevice::WriteOnly | QIODevice::Append, permissions) &&
           (permissionsOf(*file) == permissions || file->setPermissions(permissions));
}

bool holds(const QString &fileName, const QByteArray &bytes)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) && file.size() == bytes.size() && file.readAll() == bytes;
}

} // namespace

QString companionFile(const QIODevice *device, QLatin1String suffix)
{
    const auto *file = qobject_cast<const QFileDevice *>(device);
    return file && !file->fileName().isEmpty() ? file->fileName() + suffix : QString();
}

// The permissions are set before the content is written: it has texts of the database and the hash
// of a password. They are also set before the former content is discarded: only the owner of the
// file can set them.
bool openCompanion(QFile *file, const QIODevice *database)
{
    return openWithPermissions(file, database) && file->resize(0);
}

void SDBTextPrivate::setUser(const QString &name, const QString &secret)
{
    user = name;
    password = secret;
    m_passwordHash = passwordHash(secret);
}

// A database without a password has nobody's: no hash is empty.
bool SDBTextPrivate::isOwner() const
{
    if (user.isEmpty() || head.owner.isEmpty() || m_passwordHash.isEmpty())
        return false;
    return user.compare(head.owner, Qt::CaseInsensitive) == 0 && head.passwd == m_passwordHash;
}

bool SDBTextPrivate::mayRead() const
{
    return grantsReading(head.grants) || isOwner();
}

bool SDBTextPrivate::mayWrite() const
{
    return grantsWriting(head.grants) || isOwner();
}

bool SDBTextPrivate::mayInsert() const
{
    return grantsInserting(head.grants) || isOwner();
}

bool SDBTextPrivate::mayWriteOwn(const QString &key)
{
    SDBRecord record;
    if (!mayInsert() || search(key, &record) != DBError::NoError)
        return false;
    const QLocale locale = record.locale(SLocale(u"en-US"_s, QLocale::OmitGroupSeparator));
    return record.field(SDBRecord::ownerKey()).toString(true, locale) == user;
}

bool SDBTextPrivate::isOwnDevice(const QIODevice *other) const
{
    if (!other)
        return false;
    if (other == device)
        return true;
    const auto *otherFile = qobject_cast<const QFileDevice *>(other);
    const auto *ownFile = qobject_cast<const QFileDevice *>(device.data());
    return otherFile && ownFile && SFileHelper::isSameFile(*otherFile, *ownFile);
}

bool SDBTextPrivate::isOwnPlace(const QIODevice *other) const
{
    if (isOwnDevice(other))
        return true;
    const QString own = fileName();
    const QString name = companionFile(other, QLatin1String());
    return !own.isEmpty() && !name.isEmpty() &&
           QFileInfo(own).absoluteFilePath() == QFileInfo(name).absoluteFilePath();
}

QString SDBTextPrivate::fileName() const
{
    return companionFile(device, QLatin1String());
}

DBError SDBTextPrivate::openDevice()
{
    if (!takeLock(device))
        return DBError::FileLockError;
    if (!device || !device->open(kDatabaseOpenMode)) {
        lock.reset();
        return DBError::OpenError;
    }
    isOpen = true;
    forgetRepairs();
    if (isPlainFile())
        StagedFile::removeRemains(fileName());
    return DBError::NoError;
}

DBError SDBTextPrivate::openEmpty(QIODevice *target, DBError failure)
{
    if (!target)
        return failure;
    // The lock is held on: nobody gets in between.
    target->close();
    if (!takeLock(target)) {
        closeDevice(target);
        return DBError::FileLockError;
    }
    const bool isEmpty = openTruncated(target, kDatabaseOpenMode);
    if (!isEmpty)
        closeDevice(target);
    return isEmpty ? DBError::NoError : failure;
}

DBError SDBTextPrivate::writeEmpty(QIODevice *target, const DatabaseHead &newHead)
{
    const DBError opened = openEmpty(target, DBError::CreateError);
    if (opened != DBError::NoError)
        return opened;
    const bool isWritten = newHead.write(target);
    closeDevice(target);
    return isWritten ? DBError::NoError : DBError::WriteError;
}

void SDBTextPrivate::close()
{
    // The index is saved for the file that has the name.
    static_cast<void>(followFile());
    static_cast<void>(settle());
    closeDevice(device);
    saveIndex();
}

void SDBTextPrivate::closeDevice(QIODevice *target)
{
    if (target && target->isOpen())
        target->close();
    isOpen = device && device->isOpen();
    lock.reset();
}

DBError SDBTextPrivate::truncate()
{
    const DBError result = openEmpty(device, DBError::ResetError);
    isOpen = device && device->isOpen();
    hasIndex = isOpen;
    isHeadEndMissing = false;
    forgetRepairs();
    clearIndexes();
    return result;
}

void SDBTextPrivate::abandon()
{
    closeDevice(device);
    hasIndex = false;
    clearIndexes();
}

bool SDBTextPrivate::takeLock(QIODevice *target)
{
    const QString name = companionFile(target, kLockSuffix);
    if (lock && m_lockName == name)
        return true;
    lock.reset();
    if (name.isEmpty())
        return true;
    m_lockName = name;
    lock = std::make_unique<QLockFile>(name);
    // However old, a lock holds as long as its owner lives: a database may stay open for months.
    lock->setStaleLockTime(0);
    if (lock->tryLock(kLockPatienceMs) || takeOwnerlessLock(*lock, name))
        return true;
    lock.reset();
    return false;
}

DBError SDBTextPrivate::load()
{
    const SDBRecord record = readHeadRecord();
    if (record.isEmpty())
        return DBError::WrongDB;
    if (!record.checkSignature())
        return DBError::SignError;
    head = DatabaseHead::fromRecord(record);
    if (head.key.isEmpty())
        return DBError::KeyIsNull;
    // The records' own key lines end it where they have its name.
    if (head.key == specialFieldName(DatabaseSpecialRecordField::dbKey))
        isHeadEndMissing = false;
    saveHeadCopy();
    return loadIndex() ? DBError::NoError : createIndex();
}

SDBRecord SDBTextPrivate::readHeadRecord()
{
    if (device->size() < 1)
        return SDBRecord();
    bool hasEnd = false;
    SDBRecord record = readSpecialRecord(device, &hasEnd);
    isHeadEndMissing = !record.isEmpty() && !hasEnd;
    if (!record.isEmpty() || !mayReadHeadCopy)
        return record;
    record = readHeadCopy();
    isHeadFromCopy = !record.isEmpty();
    return record;
}

SDBRecord SDBTextPrivate::readHeadCopy()
{
    const QString name = companionFile(device, kHeadSuffix);
    QFile file(name);
    if (name.isEmpty() || !file.open(QIODevice::ReadOnly))
        return SDBRecord();
    qDebug() << "SDBText::loadSpecialRecordBackup: database corrupted! Using the backup index.";
    return readSpecialRecord(&file);
}

// A copy that can't be written is no reason to refuse the database.
void SDBTextPrivate::saveHeadCopy()
{
    const QString name = companionFile(device, kHeadSuffix);
    if (name.isEmpty() || isHeadFromCopy)
        return;
    QBuffer text;
    if (!text.open(QIODevice::WriteOnly) || !head.write(&text))
        return;
    QFile file(name);
    // The same bytes are not written again: if that failed halfway, there would be no copy.
    if (holds(name, text.data()))
        static_cast<void>(openWithPermissions(&file, device));
    else if (openCompanion(&file, device))
        static_cast<void>(writeAll(&file, text.data()));
}

// To be told before the target is emptied.
DBError SDBTextPrivate::faultOfBackup(const QIODevice *target) const
{
    if (!mayRead())
        return DBError::AuthError;
    // Opening it would empty the database.
    if (isOwnPlace(target))
        return DBError::OpenError;
    return hasOpenDevice() ? DBError::NoError : DBError::SeekError;
}

DBError SDBTextPrivate::faultOfSource(const QIODevice *source) const
{
    if (!mayWrite())
        return DBError::AuthError;
    if (!source || isOwnPlace(source))
        return DBError::OpenError;
    if (isForeign())
        return DBError::KeyIsNull;
    // Opening it would create it. fileName() gives a temporary file its name; exists() does not.
    const auto *file = qobject_cast<const QFile *>(source);
    return file && !QFile::exists(file->fileName()) ? DBError::FileNotFound : DBError::NoError;
}

DBError SDBTextPrivate::copyTo(QIODevice *target)
{
    // A copy of what can't be repaired is better than none.
    static_cast<void>(settle());
    if (!hasOpenDevice() || !device->seek(0))
        return DBError::SeekError;
    if (isHeadFromCopy && !head.write(target))
        return DBError::WriteError;
    if (!SFileHelper::copyDevice(target, device, kCopyPieceBytes))
        return DBError::WriteError;
    auto *file = qobject_cast<QFileDevice *>(target);
    return !file || file->flush() ? DBError::NoError : DBError::WriteError;
}

DBError SDBTextPrivate::copyToClosed(QIODevice *target, bool keepsLock)
{
    if (!target || !(target->isOpen() || openTruncated(target, QIODevice::WriteOnly)) ||
        !target->isWritable())
        return DBError::OpenError;
    const DBError result = copyTo(target);
    if (result == DBError::NoError && !keepsLock)
        closeDevice(target);
    else
        target->close();
    return result;
}

} // namespace Talverine
