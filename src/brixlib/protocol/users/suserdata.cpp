// SPDX-License-Identifier: MIT
#include <brixlib/protocol/users/suserdata.h>

#include "passwordhash_p.h"

namespace Talverine {

SUserData::SUserData() = default;

SUserData::SUserData(const QString &username, const QString &password, const QString &homeFolder,
                     const QString &fullname, const QString &email, bool disabled)
    : SUserData(username, hashPassword(password), homeFolder, fullname, email, disabled)
{
}

SUserData::SUserData(const QString &username, const QByteArray &hashedPassword,
                     const QString &homeFolder, const QString &fullname, const QString &email,
                     bool disabled)
    : m_enabled(!disabled)
    , m_fullname(fullname)
    , m_email(email)
    , m_username(username.toLower())
    , m_hashedPassword(hashedPassword.toLower())
    , m_homeFolder(homeFolder)
{
}

SUserData::SUserData(const Interfaces::ISUser *user)
{
    if (!user)
        return;
    m_enabled = user->enabled();
    m_fullname = user->fullname();
    m_email = user->email();
    m_username = user->username().toLower();
    m_hashedPassword = user->hashedPassword().toLower();
    m_homeFolder = user->homeFolder();
}

SUserData::SUserData(const SUserData &other) = default;
SUserData &SUserData::operator=(const SUserData &other) = default;
SUserData::~SUserData() = default;

bool SUserData::operator==(const SUserData &other) const
{
    return m_enabled == other.m_enabled && m_fullname == other.m_fullname &&
           m_email == other.m_email && m_username == other.m_username &&
           m_hashedPassword == other.m_hashedPassword && m_homeFolder == other.m_homeFolder;
}

SUserData *SUserData::clone() const
{
    return new SUserData(*this);
}

bool SUserData::isNull() const
{
    return *this == SUserData() || *this == SUserData(QString(), QString(), QString());
}

bool SUserData::isValid() const
{
    return !isNull() && m_enabled && !m_username.isEmpty() && !m_hashedPassword.isEmpty() &&
           !m_homeFolder.isEmpty();
}

void SUserData::setEnabled(bool enabled)
{
    m_enabled = enabled;
}

bool SUserData::enabled() const
{
    return m_enabled;
}

void SUserData::setUsername(const QString &username)
{
    m_username = username.toLower();
}

QString SUserData::username() const
{
    return m_username;
}

void SUserData::setPassword(const QString &password)
{
    m_hashedPassword = hashPassword(password);
}

void SUserData::setHashedPassword(const QByteArray &hashedPassword)
{
    m_hashedPassword = hashedPassword.toLower();
}

QByteArray SUserData::hashedPassword() const
{
    return m_hashedPassword;
}

void SUserData::setHomeFolder(const QString &homeFolder)
{
    m_homeFolder = homeFolder;
}

QString SUserData::homeFolder() const
{
    return m_homeFolder;
}

void SUserData::setFullname(const QString &fullname)
{
    m_fullname = fullname;
}

QString SUserData::fullname() const
{
    return m_fullname;
}

void SUserData::setEmail(const QString &email)
{
    m_email = email;
}

QString SUserData::email() const
{
    return m_email;
}

QByteArray SUserData::hashPassword(const QString &password)
{
    return passwordHash(password.toUtf8());
}

QByteArray SUserData::hashPassword(const Security::SSecureString &password)
{
    return passwordHash(password);
}

} // namespace Talverine
