// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/foundation/interfaces.h>

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace Talverine {

namespace Security {
class SSecureString;
}

/*!
 * One user of a server: who may log in, with which password, and into which folder.
 *
 * The password itself is never held, only its hash: hexadecimal SHA-512 of its UTF-8 bytes, 128
 * characters in lower case.
 *
 *     auto *user = new SUserData(u"ann"_s, u"secret"_s, u"/srv/ann"_s, u"Ann Smith"_s);
 *     db.insert(user); // the table owns it now
 *
 * Thread: a value; one thread at a time.
 */
class BRIXLIB_EXPORT SUserData : public Interfaces::ISUser
{
public:
    //! A null user: all texts empty, enabled.
    SUserData();
    /*!
     * Hashes \a password. The user name is turned to lower case. Note that the last argument says
     * \a disabled, while the getter says enabled().
     */
    SUserData(const QString &username, const QString &password, const QString &homeFolder,
              const QString &fullname = QString(), const QString &email = QString(),
              bool disabled = false);
    //! Takes \a hashedPassword as the hash that it is, in lower case.
    SUserData(const QString &username, const QByteArray &hashedPassword, const QString &homeFolder,
              const QString &fullname = QString(), const QString &email = QString(),
              bool disabled = false);
    //! Copies the six values of any kind of user; null gives a null user.
    explicit SUserData(const Interfaces::ISUser *user);
    SUserData(const SUserData &other);
    SUserData &operator=(const SUserData &other);
    ~SUserData() override;

    //! Compares all six values.
    bool operator==(const SUserData &other) const;

    SUserData *clone() const override;
    //! Whether this is an enabled user made of empty texts, the empty password hashed or not.
    bool isNull() const override;
    //! Fit to log in: enabled, with a user name, a password hash and a home folder.
    bool isValid() const override;

    void setEnabled(bool enabled) override;
    bool enabled() const override;
    //! Stored in lower case.
    void setUsername(const QString &username) override;
    QString username() const override;
    //! Hashes and stores the password.
    void setPassword(const QString &password);
    //! Stored in lower case, otherwise as it stands.
    void setHashedPassword(const QByteArray &hashedPassword) override;
    QByteArray hashedPassword() const override;
    void setHomeFolder(const QString &homeFolder) override;
    QString homeFolder() const override;
    void setFullname(const QString &fullname) override;
    QString fullname() const override;
    void setEmail(const QString &email) override;
    QString email() const override;

    //! Hexadecimal SHA-512 of the UTF-8 bytes, 128 characters in lower case.
    static QByteArray hashPassword(const QString &password);
    //! As above, without leaving a copy of \a password in memory.
    static QByteArray hashPassword(const Security::SSecureString &password);

private:
    bool m_enabled = true;
    QString m_fullname;
    QString m_email;
    QString m_username;
    QByteArray m_hashedPassword;
    QString m_homeFolder;
};

} // namespace Talverine
