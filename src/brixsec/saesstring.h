// SPDX-License-Identifier: MIT
#pragma once

#include <brixsec/brixsec_export.h>
#include <brixsec/ssecurestring.h>

#include <QtCore/QByteArray>
#include <QtCore/QMetaType>
#include <QtCore/QString>

namespace Talverine::Security {

/*!
 * A secret text enciphered for a place where text is kept: a URL, a settings file.
 *
 * AES-256 in GCM. The text form is base64url without padding of a version byte (1), a random nonce
 * of 12 bytes, the tag of 16 bytes and the cipher text; so it consists of letters, digits, "-" and
 * "_", and a text that was changed or made with another key is recognised. The key is derived by
 * HKDF-SHA-256 from the secret given to setKey(). Without one it is a built-in secret, which only
 * obscures the text: whoever has the library can read it.
 *
 * Lives in one thread; const calls may come from any, and so may setKey().
 */
class BRIXSEC_EXPORT SAesString final
{
public:
    //! The null text.
    SAesString() = default;
    //! Enciphers \a text by the key of this moment; null for the null text.
    explicit SAesString(const SSecureString &text);

    /*!
     * Takes a text form as toString() gave it. Null when it is no such text, was changed, or was
     * made with another key than that of this moment.
     */
    static SAesString fromString(const QString &text);

    bool isNull() const;
    //! The text form; a null string for the null text.
    QString toString() const;
    /*!
     * The secret, deciphered by the key of this moment; null for the null text and when the key has
     * changed since.
     */
    SSecureString toSecureString() const;

    /*!
     * Sets the secret of the installation that the process's key is derived from, of any length
     * above 0; an empty one goes back to the built-in secret. Texts made before stay unreadable
     * until their key comes back. The argument is not wiped.
     */
    static void setKey(const QByteArray &secret);

    //! Compares the text forms: two encipherments of one secret differ.
    friend bool operator==(const SAesString &, const SAesString &) = default;

private:
    QByteArray m_sealed;
};

} // namespace Talverine::Security

Q_DECLARE_METATYPE(Talverine::Security::SAesString)
