// SPDX-License-Identifier: MIT
#pragma once

#include <brixsec/brixsec_export.h>

#include <QtCore/QByteArray>
#include <QtCore/QMetaType>
#include <QtCore/QString>

#include <memory>

namespace Talverine::Security {

/*!
 * A secret text, held as UTF-8 in memory of its own that is wiped when the text dies and, where the
 * system allows it, never written to the swap space.
 *
 * A copy is a second block, so each copy can be cleared by itself. What the two functions named
 * "insecure" give out is in the caller's hands: an array from toInsecureUtf8() is shared with
 * nobody and can be overwritten in place, a QString is best not made at all. Lives in one thread;
 * const calls may come from any.
 */
class BRIXSEC_EXPORT SSecureString final
{
public:
    //! The null text.
    SSecureString();
    //! A null string gives the null text. The argument itself is not wiped.
    explicit SSecureString(const QString &text);
    //! The bytes are kept as they are; a null array gives the null text. The argument is not wiped.
    explicit SSecureString(const QByteArray &utf8);
    SSecureString(const SSecureString &other);
    SSecureString(SSecureString &&other) noexcept;
    SSecureString &operator=(const SSecureString &other);
    SSecureString &operator=(SSecureString &&other) noexcept;
    ~SSecureString();

    //! True when no text was given; an empty text is not null.
    bool isNull() const;
    //! True for the null text and for the empty one.
    bool isEmpty() const;

    QString toInsecureString() const;
    //! The bytes, in an array that nobody shares; null for the null text.
    QByteArray toInsecureUtf8() const;

    //! Wipes the text and makes it null.
    void clear();

    //! Compares the bytes; a null text equals an empty one. The time taken tells the sizes alone.
    BRIXSEC_EXPORT friend bool operator==(const SSecureString &a, const SSecureString &b);

private:
    std::unique_ptr<class SecureBlock> m_block;
};

//! Overwrites a secret in place and empties the array. A copy that shares its bytes keeps them.
BRIXSEC_EXPORT void wipe(QByteArray &bytes);

} // namespace Talverine::Security

Q_DECLARE_METATYPE(Talverine::Security::SSecureString)
