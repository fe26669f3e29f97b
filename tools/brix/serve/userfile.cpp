// SPDX-License-Identifier: MIT
#include "userfile.h"

#include <cli/failure.h>

#include <QtCore/QBuffer>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QLockFile>
#include <QtCore/QSaveFile>
#include <QtCore/QSet>

#include <chrono>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Talverine::SAuthenticationDb;

namespace {

// How long an edit waits for another one to end.
constexpr auto lockTimeout = 10s;

const QHash<QString, QJsonValue::Type> &userKeys()
{
    static const QHash<QString, QJsonValue::Type> keys{
        {u"username"_s, QJsonValue::String},   {u"password"_s, QJsonValue::String},
        {u"homeFolder"_s, QJsonValue::String}, {u"fullname"_s, QJsonValue::String},
        {u"email"_s, QJsonValue::String},      {u"disabled"_s, QJsonValue::Bool},
    };
    return keys;
}

// What is wrong with one user; empty when nothing is.
QString damageOfUser(const QJsonValue &value)
{
    if (!value.isObject())
        return u"is not an object"_s;
    const QJsonObject user = value.toObject();
    for (auto it = user.begin(); it != user.end(); ++it) {
        const auto type = userKeys().constFind(it.key());
        if (type == userKeys().cend())
            return u"has the unknown key \"%1\""_s.arg(it.key());
        if (it.value().type() != *type)
            return u"has a value of the wrong type under \"%1\""_s.arg(it.key());
    }
    if (user.value("username"_L1).toString().isEmpty())
        return u"has no name"_s;
    return {};
}

QString damageOfUsers(const QJsonArray &users)
{
    QSet<QString> names;
    for (qsizetype i = 0; i < users.size(); ++i) {
        const QString name = users[i].toObject().value("username"_L1).toString().toLower();
        QString damage = damageOfUser(users[i]);
        if (damage.isEmpty() && names.contains(name))
            damage = u"has the name of another, \"%1\""_s.arg(name);
        if (!damage.isEmpty())
            return u"user %1 %2"_s.arg(QString::number(i + 1), damage);
        names.insert(name);
    }
    return {};
}

// Why these bytes are not a user file, or hold what an edit would lose; empty when all is well.
QString damageOf(const QByteArray &bytes)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &parseError);
    if (document.isNull())
        return u"%1 at byte %2"_s.arg(parseError.errorString(), QString::number(parseError.offset));
    const QJsonObject object = document.object();
    if (!object.value("users"_L1).isArray())
        return u"it has no array \"users\""_s;
    if (object.size() > 1)
        return u"it has keys beside \"users\""_s;
    return damageOfUsers(object.value("users"_L1).toArray());
}

} // namespace

UserFile::UserFile(const QString &fileName)
    : m_fileName(fileName)
{
}

SAuthenticationDb UserFile::read() const
{
    const QFileInfo info(m_fileName);
    QFile file(m_fileName);
    if (info.isDir() || !file.open(QIODevice::ReadOnly))
        throw Failure{ExitCode::LocalIo,
                      u"cannot read %1: %2"_s.arg(m_fileName, info.isDir() ? u"it is a folder"_s
                                                                           : file.errorString())};
    QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        throw Failure{ExitCode::LocalIo,
                      u"cannot read %1: %2"_s.arg(m_fileName, file.errorString())};
    const QString damage = damageOf(bytes);
    if (!damage.isEmpty())
        throw Failure{ExitCode::Refused, u"%1 is not a sound user file and is left alone: %2"_s.arg(
                                             m_fileName, damage)};
    QBuffer buffer(&bytes);
    return SAuthenticationDb::fromDevice(&buffer);
}

bool UserFile::isMissingOrEmpty() const
{
    const QFileInfo info(m_fileName);
    return !info.exists() || (info.isFile() && info.size() == 0);
}

SAuthenticationDb UserFile::readOrEmpty() const
{
    return isMissingOrEmpty() ? SAuthenticationDb() : read();
}

void UserFile::edit(const std::function<void(SAuthenticationDb &)> &change) const
{
    QLockFile lock(m_fileName + u".lock"_s);
    if (!lock.tryLock(lockTimeout))
        throw Failure{
            ExitCode::LocalIo,
            lock.error() == QLockFile::LockFailedError
                ? u"%1 is being edited by someone else"_s.arg(m_fileName)
                : u"cannot make %1.lock: the folder is missing or may not be written"_s.arg(
                      m_fileName)};
    SAuthenticationDb users = readOrEmpty();
    change(users);
    write(users);
}

void UserFile::write(SAuthenticationDb &users) const
{
    QBuffer buffer;
    QSaveFile file(m_fileName);
    // The hashes are as good as the passwords to whoever reads them.
    const bool isWritten = users.save(&buffer) && file.open(QIODevice::WriteOnly) &&
                           file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner) &&
                           // commit() would not tell that the last bytes could not be written.
                           file.write(buffer.data()) == buffer.data().size() && file.flush() &&
                           file.commit();
    if (!isWritten)
        throw Failure{ExitCode::LocalIo,
                      u"cannot write %1: %2"_s.arg(m_fileName, file.errorString())};
}

} // namespace Brix
