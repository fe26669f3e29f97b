// SPDX-License-Identifier: MIT
#pragma once

#include <brixsec/ssecurestring.h>

#include <QtCore/QByteArray>
#include <QtCore/QCryptographicHash>

namespace Talverine {

//! The form in which user tables hold a password: SHA-512 of its UTF-8 bytes in lower-case
//! hexadecimal.
inline QByteArray passwordHash(const QByteArray &utf8)
{
    return QCryptographicHash::hash(utf8, QCryptographicHash::Sha512).toHex();
}

//! As above; what is taken out of \a password for it is wiped.
inline QByteArray passwordHash(const Security::SSecureString &password)
{
    QByteArray plain = password.toInsecureUtf8();
    const QByteArray hash = passwordHash(plain);
    Security::wipe(plain);
    return hash;
}

} // namespace Talverine
