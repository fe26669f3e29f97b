// SPDX-License-Identifier: MIT
#pragma once

#include "sha256_p.h"

#include <QtCore/QByteArray>
#include <QtCore/QCryptographicHash>
#include <QtCore/QString>

#include <array>

namespace Talverine {

/*!
 * One byte for each UTF-16 unit of a text, its low eight bits, in memory that is kept for the next
 * text.
 */
class LowBytes
{
public:
    //! Good until the next call.
    QByteArrayView of(QStringView text);

private:
    QByteArray m_buffer;
};

/*!
 * The signature of a record: each text changes the state to the SHA-256 of the state's hexadecimal
 * digits and the text's low bytes. The seed's hash is the first state.
 */
class SignatureChain
{
public:
    explicit SignatureChain(const QString &seed);

    void add(QStringView text);
    QString result() const;

private:
    void setState(const Sha256::Digest &digest);

    Sha256 m_hash;
    LowBytes m_lowBytes;
    std::array<char, 64> m_state; //!< hexadecimal
};

//! The signature of old records: the SHA-1 of the seed and all texts with ";" between them.
class LegacySignature
{
public:
    explicit LegacySignature(const QString &seed);

    void add(QStringView text);
    QString result() const;

private:
    QCryptographicHash m_hash{QCryptographicHash::Sha1};
    LowBytes m_lowBytes;
};

} // namespace Talverine
