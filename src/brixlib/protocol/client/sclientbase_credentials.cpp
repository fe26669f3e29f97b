// SPDX-License-Identifier: MIT
// User names and passwords in URLs. A password stands there as it is or as "(Form,value)".
#include <brixlib/protocol/client/sclientbase.h>

#include <brixlib/protocol/users/passwordhash_p.h>

#include <brixsec/saesstring.h>
#include <brixsec/ssecurecredential.h>

#include <QtCore/QUrl>

namespace Talverine {

using namespace Qt::StringLiterals;

namespace {

struct PasswordField
{
    PasswordType type = PasswordType::None;
    QString value;
};

QString encode(PasswordType type, const QString &value)
{
    return u"(%1,%2)"_s.arg(PasswordType_T::instance().toString(type), value);
}

// The form of a password field and what is in it; without a form, or for None, the whole field.
PasswordField decode(const QString &field)
{
    const auto &types = PasswordType_T::instance();
    for (const int value : types.values()) {
        const auto type = static_cast<PasswordType>(value);
        const QString prefix = u"(%1,"_s.arg(types.toString(type));
        if (type == PasswordType::None || !field.startsWith(prefix))
            continue;
        QString rest = field.sliced(prefix.size());
        if (rest.endsWith(u')'))
            rest.chop(1);
        return {type, rest.trimmed()};
    }
    return {PasswordType::None, field};
}

// In the other forms no password is an empty one; a null text has no enciphered form.
Security::SAesString encipheredPassword(const Security::SSecureCredential &credential)
{
    return credential.password().isNull() ? Security::SAesString(Security::SSecureString(u""_s))
                                          : credential.aes();
}

// The hash of a field that has a form; empty when the field is damaged.
QByteArray hashOf(const PasswordField &password)
{
    switch (password.type) {
    case PasswordType::Plain:
        return passwordHash(password.value.toUtf8());
    case PasswordType::Hash:
        return password.value.toUtf8();
    case PasswordType::Aes: {
        const Security::SSecureString plain =
            Security::SAesString::fromString(password.value).toSecureString();
        return plain.isNull() ? QByteArray() : passwordHash(plain);
    }
    case PasswordType::None:
        break;
    }
    return {};
}

} // namespace

void SClientBase::addCredential(QUrl &url, const Security::SSecureCredential &credential,
                                const PasswordType &type)
{
    if (credential.isNull())
        return;

    QString password;
    switch (type) {
    case PasswordType::Plain:
        password = credential.password().toInsecureString();
        break;
    case PasswordType::Hash:
        password = encode(type, QString::fromLatin1(passwordHash(credential.password())));
        break;
    case PasswordType::Aes:
        password = encode(type, encipheredPassword(credential).toString());
        break;
    case PasswordType::None:
    default:
        return;
    }
    url.setUserName(credential.username(), QUrl::DecodedMode);
    url.setPassword(password, QUrl::DecodedMode);
}

Security::SSecureCredential SClientBase::createSecureCredential(const QUrl &url)
{
    // Not decoded in full, the percent signs of a password would be decoded twice or not at all.
    const QString username = url.userName(QUrl::FullyDecoded);
    if (username.isEmpty())
        return {};

    const PasswordField password = decode(url.password(QUrl::FullyDecoded));
    switch (password.type) {
    case PasswordType::Hash: // does not give the password back
        return {};
    case PasswordType::Aes:
        return {username, Security::SAesString::fromString(password.value).toSecureString()};
    case PasswordType::Plain:
    case PasswordType::None:
        break;
    }
    return {username, Security::SSecureString(password.value)};
}

QByteArray SClientBase::decodeAndHashPassword(const QUrl &url)
{
    const QString field = url.password(QUrl::FullyDecoded);
    const QByteArray hash = hashOf(decode(field));
    return hash.isEmpty() ? passwordHash(field.toUtf8()) : hash;
}

} // namespace Talverine
