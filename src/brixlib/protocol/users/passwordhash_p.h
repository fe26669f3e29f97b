// SPDX-License-Identifier: MIT
#pragma once

#include <brixsec/ssecurestring.h>

#include <QtCore/QByteArray>
#include <QtCore/QCryptographicHash>
#include <QtCore/QUuid>

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

//! What proves the knowledge of a password, given its \a hash, in the session \a uuid: lower-case
//! hexadecimal SHA-512 of the hash followed by the text of the uuid.
inline QByteArray saltedHash(const QByteArray &hash, const QUuid &uuid)
{
    return passwordHash(hash + uuid.toByteArray());
}

} // namespace Talverine
