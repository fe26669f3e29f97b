// SPDX-License-Identifier: MIT
#include <brixlib/protocol/users/sauthenticationdb.h>

#include <brixlib/protocol/users/suserdata.h>

#include <brixrt/sfilehelper.h>
#include <brixrt/unshared_p.h>

#include <QtCore/QDebug>
#include <QtCore/QFile>
#include <QtCore/QFileDevice>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QMutexLocker>
#include <QtCore/QSaveFile>

#include <algorithm>

namespace Talverine {

using namespace Qt::StringLiterals;
using Interfaces::ISUser;

namespace {

constexpr auto usersKey = "users"_L1;
constexpr auto usernameKey = "username"_L1;
constexpr auto passwordKey = "password"_L1;
constexpr auto homeFolderKey = "homeFolder"_L1;
constexpr auto fullnameKey = "fullname"_L1;
constexpr auto emailKey = "email"_L1;
constexpr auto disabledKey = "disabled"_L1;

// Some hundred thousand users.
constexpr qint64 kUserFileBytes = qint64(64) << 20;
constexpr int kReadPieceBytes = 65536;

QJsonObject toJson(const ISUser &user)
{
    return {
        {usernameKey, user.username()},     {passwordKey, QString::fromUtf8(user.hashedPassword())},
        {homeFolderKey, user.homeFolder()}, {fullnameKey, user.fullname()},
        {emailKey, user.email()},           {disabledKey, !user.enabled()},
    };
}

// What a session of the user depends on.
bool hasSameLogin(const ISUser &a, const ISUser &b)
{
    return a.enabled() == b.enabled() && a.hashedPassword() == b.hashedPassword() &&
           a.homeFolder() == b.homeFolder();
}

SUserData *fromJson(const QJsonObject &object)
{
    return new SUserData(
        object.value(usernameKey).toString(), object.value(passwordKey).toString().toUtf8(),
        object.value(homeFolderKey).toString(), object.value(fullnameKey).toString(),
        object.value(emailKey).toString(), object.value(disabledKey).toBool());
}

// Reads all of the device, unless it is too large for a user file. It is open afterwards only if it
// was before.
bool readDevice(QIODevice *device, QByteArray *bytes)
{
    if (!device)
        return false;
    const bool wasOpen = device->isOpen();
    if (!wasOpen && !device->open(QIODevice::ReadOnly))
        return false;
    // readAll() would make room for all of the size that the device claims.
    *bytes = SFileHelper::readAllBuffer(device, kUserFileBytes, kReadPieceBytes);
    const bool isWhole = device->atEnd();
    if (!wasOpen)
        device->close();
    return isWhole;
}

// Files keep what they were given in a buffer, so a full disk shows only once they are closed.
bool writeAndClose(QIODevice *device, const QByteArray &bytes)
{
    const bool taken = device->write(bytes) == bytes.size();
    // Only commit() may close a QSaveFile: its close() ends the program.
    if (!qobject_cast<QSaveFile *>(device))
        device->close();
    const auto *file = qobject_cast<const QFileDevice *>(device);
    return taken && (!file || file->error() == QFileDevice::NoError);
}

} // namespace

SAuthenticationDb::SAuthenticationDb(QObject *parent)
    : ISAuthenticationDb(parent)
    , m_mutex(std::make_unique<QRecursiveMutex>())
{
}

SAuthenticationDb::SAuthenticationDb(const SAuthenticationDb &other)
    : SAuthenticationDb(nullptr)
{
    m_table = other.table();
}

SAuthenticationDb &SAuthenticationDb::operator=(const SAuthenticationDb &other)
{
    // Only one mutex is held at a time: two tables assigned crosswise cannot block each other.
    Table table = other.table();
    const QMutexLocker lock(m_mutex.get());
    m_table.swap(table);
    return *this;
}

SAuthenticationDb::~SAuthenticationDb() = default;

bool SAuthenticationDb::operator==(const SAuthenticationDb &other) const
{
    const Table theirs = other.table();
    const QMutexLocker lock(m_mutex.get());
    if (m_table.size() != theirs.size())
        return false;
    return std::all_of(m_table.keyValueBegin(), m_table.keyValueEnd(), [&](const auto &entry) {
        const auto found = theirs.constFind(entry.first);
        return found != theirs.cend() &&
               SUserData(entry.second.get()) == SUserData(found.value().get());
    });
}

SAuthenticationDb SAuthenticationDb::fromDevice(QIODevice *device)
{
    SAuthenticationDb db;
    QByteArray bytes;
    if (!readDevice(device, &bytes)) {
        qDebug() << "SAuthenticationDb::fromDevice: cannot open the device";
        return db;
    }
    const QJsonDocument document = QJsonDocument::fromJson(bytes);
    if (document.isNull() || !document.isObject()) {
        qDebug() << "SAuthenticationDb::fromDevice: no valid object(s) found";
        return db;
    }
    const QJsonArray users = document.object().value(usersKey).toArray();
    for (const auto &user : users)
        db.insert(fromJson(user.toObject()));
    return db;
}

SAuthenticationDb SAuthenticationDb::fromFile(const QString &fileName)
{
    QFile file(fileName);
    return fromDevice(&file);
}

SAuthenticationDb *SAuthenticationDb::clone() const
{
    return new SAuthenticationDb(*this);
}

bool SAuthenticationDb::isNull() const
{
    return isEmpty();
}

bool SAuthenticationDb::equalsTo(const Interfaces::IEquatable *other) const
{
    return isSameType(other) && *this == *dynamic_cast<const SAuthenticationDb *>(other);
}

void SAuthenticationDb::clear()
{
    const QMutexLocker lock(m_mutex.get());
    m_table.clear();
    Q_EMIT changed();
}

bool SAuthenticationDb::isEmpty() const
{
    const QMutexLocker lock(m_mutex.get());
    return m_table.isEmpty();
}

bool SAuthenticationDb::contains(const QString &username) const
{
    const QMutexLocker lock(m_mutex.get());
    return m_table.contains(username);
}

void SAuthenticationDb::insert(ISUser *user)
{
    if (!user)
        return;
    const QString username = user->username();
    const QMutexLocker lock(m_mutex.get());
    // The object that is there already must not get a second owner.
    if (m_table.value(username).get() != user)
        m_table.insert(username, std::shared_ptr<ISUser>(user));
    Q_EMIT added(username);
}

bool SAuthenticationDb::remove(const QString &username)
{
    const QMutexLocker lock(m_mutex.get());
    // Kept until the signal is out: a slot may still hold what value() gave.
    const auto user = m_table.take(username);
    if (!user)
        return false;
    Q_EMIT removed(username);
    return true;
}

const ISUser *SAuthenticationDb::value(const QString &username) const
{
    return sharedUser(username).get();
}

std::shared_ptr<const ISUser> SAuthenticationDb::sharedUser(const QString &username) const
{
    const QMutexLocker lock(m_mutex.get());
    return m_table.value(username);
}

QList<QString> SAuthenticationDb::users() const
{
    QList<QString> names;
    {
        const QMutexLocker lock(m_mutex.get());
        names = m_table.keys();
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool SAuthenticationDb::save(QIODevice *device)
{
    // Some devices would let themselves be opened, and truncated, a second time.
    if (!device || device->isOpen() || !device->open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        qDebug() << "SAuthenticationDb::save: cannot open the device";
        return false;
    }
    return writeAndClose(device, document());
}

bool SAuthenticationDb::load(QIODevice *device)
{
    const SAuthenticationDb loaded = fromDevice(device);
    if (loaded.isEmpty())
        return false;
    *this = loaded;
    return true;
}

void SAuthenticationDb::replaceBy(const SAuthenticationDb &other)
{
    Table former = other.table();
    const QMutexLocker lock(m_mutex.get());
    m_table.swap(former);
    // A slot may change the table.
    const Table current = unshared(m_table);
    for (auto it = former.cbegin(); it != former.cend(); ++it) {
        if (!current.contains(it.key()))
            Q_EMIT removed(it.key());
    }
    for (auto it = current.cbegin(); it != current.cend(); ++it) {
        const auto before = former.value(it.key());
        if (!before || !hasSameLogin(*before, **it))
            Q_EMIT added(it.key());
    }
}

// Made apart from the writing, so that no login waits for a slow disk.
QByteArray SAuthenticationDb::document() const
{
    const QMutexLocker lock(m_mutex.get());
    QJsonArray array;
    for (const auto &name : users())
        array.append(toJson(*m_table.value(name)));
    return QJsonDocument(QJsonObject{{usersKey, array}}).toJson(QJsonDocument::Indented);
}

SAuthenticationDb::Table SAuthenticationDb::table() const
{
    const QMutexLocker lock(m_mutex.get());
    return unshared(m_table);
}

} // namespace Talverine

#include "moc_sauthenticationdb.cpp"
