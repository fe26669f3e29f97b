// SPDX-License-Identifier: MIT
#include <brixsec/ssecurecredential.h>

namespace Talverine::Security {

namespace {

// Calls by name spell the type without the outer namespace, so both spellings are registered.
[[maybe_unused]] const int registered =
    qRegisterMetaType<SSecureCredential>("Security::SSecureCredential");

} // namespace

SSecureCredential::SSecureCredential(const QString &username, const SSecureString &password)
    : m_username(username)
    , m_password(password)
{
}

bool SSecureCredential::isNull() const
{
    return m_username.isEmpty() && m_password.isEmpty();
}

QString SSecureCredential::username() const
{
    return m_username;
}

const SSecureString &SSecureCredential::password() const
{
    return m_password;
}

SAesString SSecureCredential::aes() const
{
    return SAesString(m_password);
}

} // namespace Talverine::Security
