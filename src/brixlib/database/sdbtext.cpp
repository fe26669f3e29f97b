// SPDX-License-Identifier: MIT
#include <brixlib/database/sdbtext.h>

#include "sdbtext_p.h"

#include <QtCore/QDebug>
#include <QtCore/QFile>

using namespace Qt::StringLiterals;

namespace Talverine {

const QString SDBText::Version = specialFieldName(DatabaseSpecialRecordField::dbVersion);
const QString SDBText::Password = specialFieldName(DatabaseSpecialRecordField::dbPasswd);
const QString SDBText::Owner = specialFieldName(DatabaseSpecialRecordField::dbOwner);
const QString SDBText::Grants = specialFieldName(DatabaseSpecialRecordField::dbGrants);
const QString SDBText::Key = specialFieldName(DatabaseSpecialRecordField::dbKey);
const QString SDBText::Culture = specialFieldName(DatabaseSpecialRecordField::dbCultureInfo);

namespace {

// Creates a file that does not exist yet, as the creation that follows does.
bool canBeWritten(const QString &fileName)
{
    return QFile(fileName).open(QIODevice::ReadWrite);
}

} // namespace

SDBText::SDBText(QObject *parent)
    : ISDatabase(parent)
    , d(std::make_unique<SDBTextPrivate>())
{
    d->setUser(d->user, d->password);
}

SDBText::SDBText(const SDBText &other)
    : SDBText()
{
    assign(other);
}

SDBText::~SDBText()
{
    SDBText::close();
}

bool SDBText::close()
{
    const QMutexLocker guard(&d->mutex);
    d->close();
    Q_EMIT databaseClosed();
    d->error = DBError::NoError;
    return true;
}

bool SDBText::open(const QString &fileName)
{
    const QMutexLocker guard(&d->mutex);
    if (!QFile::exists(fileName))
        return returnBool(DBError::FileNotFound);
    auto file = std::make_unique<QFile>(fileName);
    const bool result = init(file.get());
    // Only now: the former device is closed by the one that takes its place.
    d->ownDevice = std::move(file);
    Q_EMIT databaseOpened(result);
    return result;
}

bool SDBText::open(QIODevice *device)
{
    const QMutexLocker guard(&d->mutex);
    const bool result = init(device);
    Q_EMIT databaseOpened(result);
    return result;
}

bool SDBText::create(const QString &fileName, const QString &key, DBAuthGrants grants,
                     const QLocale &locale, const QString &version)
{
    const QMutexLocker guard(&d->mutex);
    auto file = std::make_unique<QFile>(fileName);
    if (!createOn(file.get(), key, grants, locale, version))
        return false;
    const bool result = init(file.get());
    d->ownDevice = std::move(file);
    Q_EMIT databaseOpened(result);
    return result;
}

bool SDBText::create(QIODevice *device, const QString &key, DBAuthGrants grants,
                     const QLocale &locale, const QString &version)
{
    const QMutexLocker guard(&d->mutex);
    if (!createOn(device, key, grants, locale, version))
        return false;
    const bool result = init(device);
    Q_EMIT databaseOpened(result);
    return result;
}

bool SDBText::authenticate(const QString &user, const QString &password)
{
    const QMutexLocker guard(&d->mutex);
    d->setUser(user, password);
    const bool result = d->isNull() ? !user.isEmpty() : d->isOwner();
    Q_EMIT userAutenticated(result);
    return result;
}

DBError SDBText::error() const
{
    const QMutexLocker guard(&d->mutex);
    return d->error;
}

int SDBText::count() const
{
    const QMutexLocker guard(&d->mutex);
    return d->keys.count();
}

QLocale SDBText::culture() const
{
    const QMutexLocker guard(&d->mutex);
    return d->head.culture;
}

QString SDBText::owner() const
{
    const QMutexLocker guard(&d->mutex);
    return d->head.owner;
}

QString SDBText::version() const
{
    const QMutexLocker guard(&d->mutex);
    return d->head.version;
}

QString SDBText::key() const
{
    const QMutexLocker guard(&d->mutex);
    return d->head.key;
}

QString SDBText::fileName() const
{
    const QMutexLocker guard(&d->mutex);
    return d->fileName();
}

bool SDBText::isEmpty() const
{
    const QMutexLocker guard(&d->mutex);
    return d->isNull() || d->keys.isEmpty();
}

bool SDBText::isNull() const
{
    const QMutexLocker guard(&d->mutex);
    return d->isNull();
}

DBAuthGrants SDBText::grants() const
{
    const QMutexLocker guard(&d->mutex);
    return d->isOwner() ? DBAuthGrants::All : d->head.grants;
}

qint64 SDBText::bytes() const
{
    const QMutexLocker guard(&d->mutex);
    static_cast<void>(d->followFile());
    return d->device ? d->device->size() : 0;
}

bool SDBText::init(QIODevice *device)
{
    // Let go for a moment, another program could get in between, and on a full disk there would be
    // no other lock.
    std::unique_ptr<QLockFile> lock = device == d->device ? std::move(d->lock) : nullptr;
    SDBText::close();
    d->device = device;
    d->isHeadFromCopy = false;
    d->head = {};
    d->closeDevice(device);
    d->lock = std::move(lock);
    const DBError opened = d->openDevice();
    if (opened != DBError::NoError)
        return returnBool(opened);
    const DBError loaded = d->load();
    if (loaded != DBError::NoError)
        SDBText::close();
    return returnBool(loaded);
}

bool SDBText::createOn(QIODevice *device, const QString &key, DBAuthGrants grants,
                       const QLocale &locale, const QString &version)
{
    if (key.isEmpty())
        return returnBool(DBError::KeyIsNull);
    DatabaseHead head;
    head.key = key;
    head.owner = d->user;
    head.passwd = d->headPassword();
    head.grants = grants;
    head.culture = locale;
    head.version = version;
    if (!head.isReadable())
        return returnBool(DBError::CreateError);
    if (d->isOwnPlace(device))
        return createInPlace(device, head);
    // Until the new one is written, the open database and its lock stay as they are.
    SDBTextPrivate writer;
    return returnBool(writer.writeEmpty(device, head));
}

// Creates on the device or the file that is open, whose lock is needed for it.
bool SDBText::createInPlace(QIODevice *device, const DatabaseHead &head)
{
    const auto *file = qobject_cast<const QFileDevice *>(device);
    if (file && device != d->device && !canBeWritten(file->fileName()))
        return returnBool(DBError::CreateError);
    const bool wasOpen = !d->isNull();
    d->close();
    const DBError written = d->writeEmpty(device, head);
    // On success, init() emits it.
    if (written != DBError::NoError && wasOpen)
        Q_EMIT databaseClosed();
    return returnBool(written);
}

bool SDBText::returnBool(DBError error)
{
    d->error = error;
    if (error == DBError::NoError)
        return true;
    if (error != DBError::RecNotFound) {
        const QString text = DBError_T::instance().toString(error, QLocale::c());
        qDebug().noquote() << u"SDBText::returnBool: %1"_s.arg(text);
    }
    return false;
}

} // namespace Talverine

#include "moc_sdbtext.cpp"
