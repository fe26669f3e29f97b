// SPDX-License-Identifier: MIT
#include <brixsec/saesstring.h>

#include <brixsec/sobfuscatedstring.h>

#include "aesgcm_p.h"

#include <QtCore/QMutex>

namespace Talverine::Security {

namespace {

// Calls by name spell the type without the outer namespace, so both spellings are registered.
[[maybe_unused]] const int registered = qRegisterMetaType<SAesString>("Security::SAesString");

constexpr QByteArray::Base64Options kTextForm =
    QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals;

QByteArray versionHeader()
{
    return QByteArrayLiteral("\x01");
}

QByteArray builtInSecret()
{
    static constexpr SObfuscatedString secret("brixlib keeps this text from a passing look");
    return secret.toUtf8();
}

// The process's key. Null only when the library behind it failed: nothing is enciphered then,
// rather than by a key that was not asked for.
class Key
{
public:
    std::shared_ptr<const SecureBlock> get()
    {
        const QMutexLocker lock(&m_mutex);
        if (!m_given)
            store(builtInSecret());
        return m_key;
    }
    void set(const QByteArray &secret)
    {
        const QMutexLocker lock(&m_mutex);
        store(secret);
    }

private:
    void store(const QByteArray &secret)
    {
        m_key = deriveKey(secret, QByteArrayLiteral("brixsec text 1"));
        m_given = true;
    }

    QMutex m_mutex;
    std::shared_ptr<const SecureBlock> m_key;
    bool m_given = false;
};

// Leaked on purpose: objects of other files may still be used after this file's statics are gone.
Key &processKey()
{
    static auto *instance = new Key;
    return *instance;
}

std::unique_ptr<SecureBlock> open(const QByteArray &sealed)
{
    const auto key = processKey().get();
    return key ? openAesGcm(*key, versionHeader(), sealed) : nullptr;
}

} // namespace

SAesString::SAesString(const SSecureString &text)
{
    const auto key = text.isNull() ? nullptr : processKey().get();
    if (!key)
        return;
    QByteArray plain = text.toInsecureUtf8();
    m_sealed = sealAesGcm(*key, versionHeader(), plain.constData(),
                          static_cast<std::size_t>(plain.size()));
    wipe(plain.data(), static_cast<std::size_t>(plain.size()));
}

SAesString SAesString::fromString(const QString &text)
{
    SAesString result;
    const QByteArray form = text.toLatin1();
    const auto decoded =
        QByteArray::fromBase64Encoding(form, kTextForm | QByteArray::AbortOnBase64DecodingErrors);
    // One secret has one text: unused bits of the last letter, or padding, are a change as well.
    if (!decoded || decoded.decoded.toBase64(kTextForm) != form || !open(decoded.decoded))
        return result;
    result.m_sealed = decoded.decoded;
    return result;
}

bool SAesString::isNull() const
{
    return m_sealed.isEmpty();
}

QString SAesString::toString() const
{
    return isNull() ? QString() : QString::fromLatin1(m_sealed.toBase64(kTextForm));
}

SSecureString SAesString::toSecureString() const
{
    const auto plain = isNull() ? nullptr : open(m_sealed);
    if (!plain)
        return {};
    return SSecureString(
        QByteArray::fromRawData(plain->data(), static_cast<qsizetype>(plain->size())));
}

void SAesString::setKey(const QByteArray &secret)
{
    processKey().set(secret.isEmpty() ? builtInSecret() : secret);
}

} // namespace Talverine::Security
