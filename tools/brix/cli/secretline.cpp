// SPDX-License-Identifier: MIT
#include "secretline.h"

#include <openssl/crypto.h>

namespace Brix {

using Talverine::Security::SSecureString;

namespace {

constexpr qsizetype kMostBytes = 4096;

} // namespace

SecretLine::SecretLine()
{
    m_bytes.reserve(kMostBytes);
}

SecretLine::~SecretLine()
{
    Talverine::Security::wipe(m_bytes);
}

bool SecretLine::append(char byte)
{
    if (m_bytes.size() == kMostBytes)
        return false;
    m_bytes.append(byte);
    return true;
}

SSecureString SecretLine::take()
{
    while (m_bytes.endsWith('\n') || m_bytes.endsWith('\r'))
        m_bytes.chop(1);
    return takeSecret(m_bytes);
}

SSecureString takeSecret(QByteArray &local8Bit)
{
    QString text = QString::fromLocal8Bit(local8Bit);
    const SSecureString secret(text);
    wipe(text);
    Talverine::Security::wipe(local8Bit);
    return secret;
}

void wipe(QString &text)
{
    OPENSSL_cleanse(text.data(), size_t(text.size()) * sizeof(QChar));
    text.clear();
}

} // namespace Brix
