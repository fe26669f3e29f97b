// SPDX-License-Identifier: MIT
// The reader of user names and passwords in URLs: an input is a URL.
#include "../fuzztarget.h"
#include "../targets.h"

#include <brixlib/fileservice/device/sclientdevice.h>
#include <brixlib/protocol/client/sclientbase.h>
#include <brixsec/ssecurecredential.h>

#include <QtCore/QUrl>

using namespace Talverine;
using namespace Qt::StringLiterals;
using Security::SSecureCredential;

namespace Fuzz {

namespace {

// A plain password of this kind is read as one of another form.
bool looksLikeAForm(const QString &password)
{
    return password.startsWith(u"(Plain,"_s) || password.startsWith(u"(Hash,"_s) ||
           password.startsWith(u"(Aes,"_s);
}

// The URL as a program keeps it: as text.
QUrl keptWith(const SSecureCredential &credential, PasswordType type)
{
    QUrl url(u"brix://press.example:7000/a"_s);
    SClientBase::addCredential(url, credential, type);
    return QUrl(url.toString(QUrl::FullyEncoded));
}

void requireRoundTrip(const SSecureCredential &credential)
{
    const QByteArray hash =
        SClientBase::decodeAndHashPassword(keptWith(credential, PasswordType::Hash));
    const QUrl enciphered = keptWith(credential, PasswordType::Aes);
    require(SClientBase::createSecureCredential(enciphered) == credential,
            "an enciphered password changes");
    require(SClientBase::decodeAndHashPassword(enciphered) == hash,
            "an enciphered password has another hash");

    const QString password = credential.password().toInsecureString();
    if (looksLikeAForm(password))
        return;
    const QUrl plain = keptWith(credential, PasswordType::Plain);
    require(SClientBase::createSecureCredential(plain) == credential, "a plain password changes");
    require(SClientBase::decodeAndHashPassword(plain) == hash, "a plain password has another hash");
}

} // namespace

bool credentials(const QByteArray &input)
{
    const QUrl url = QUrl::fromEncoded(input);
    const SSecureCredential credential = SClientBase::createSecureCredential(url);
    require(!SClientBase::decodeAndHashPassword(url).isEmpty(), "a password has no hash");
    const SClientDevice device(url, QString(), Security::SSecureString());
    require(!device.hashedPassword().isEmpty(), "a device has no hash of the password");
    if (!credential.isNull())
        requireRoundTrip(credential);
    return !credential.isNull();
}

} // namespace Fuzz
