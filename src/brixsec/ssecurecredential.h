// SPDX-License-Identifier: MIT
#pragma once

#include <brixsec/brixsec_export.h>
#include <brixsec/saesstring.h>
#include <brixsec/ssecurestring.h>

#include <QtCore/QMetaType>
#include <QtCore/QString>

namespace Talverine::Security {

/*!
 * A user name with its password. Lives in one thread; const calls may come from any.
 */
class BRIXSEC_EXPORT SSecureCredential final
{
public:
    //! The null credential.
    SSecureCredential() = default;
    SSecureCredential(const QString &username, const SSecureString &password);

    //! True when both parts are empty.
    bool isNull() const;
    QString username() const;
    const SSecureString &password() const;
    //! The password, enciphered afresh at each call; null for a null password.
    SAesString aes() const;

    friend bool operator==(const SSecureCredential &, const SSecureCredential &) = default;

private:
    QString m_username;
    SSecureString m_password;
};

} // namespace Talverine::Security

Q_DECLARE_METATYPE(Talverine::Security::SSecureCredential)
