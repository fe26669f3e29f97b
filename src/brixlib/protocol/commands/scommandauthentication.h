// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/sconcretecommand.h>

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace Talverine {

//! Logs a user in. Reply: one raw word, the AuthenticationStatus.
class BRIXLIB_EXPORT SCommandAuthentication : public SConcreteCommand<SCommandAuthentication>
{
public:
    SCommandAuthentication();
    //! \a hashedPassword is salted with the session's uuid. The name becomes lower case.
    SCommandAuthentication(const QString &username, const QByteArray &hashedPassword);

    bool operator==(const SCommandAuthentication &other) const = default;

    QString username() const { return m_username; }
    //! Keeps the case of \a username; the reader turns it to lower case.
    void setUsername(const QString &username) { m_username = username; }
    QByteArray hashedPassword() const { return m_hashedPassword; }
    void setHashedPassword(const QByteArray &hash) { m_hashedPassword = hash; }

private:
    friend SConcreteCommand;
    void readFields(QDataStream &stream);
    void writeFields(QDataStream &stream) const;

    QString m_username;
    QByteArray m_hashedPassword;
};

} // namespace Talverine
