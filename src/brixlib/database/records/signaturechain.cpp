// SPDX-License-Identifier: MIT
#include "signaturechain_p.h"

namespace Talverine {

QByteArrayView LowBytes::of(QStringView text)
{
    // A shorter text leaves the buffer as long as it is, so that it isn't filled again.
    if (m_buffer.size() < text.size())
        m_buffer.resize(text.size());
    char *bytes = m_buffer.data();
    const char16_t *units = text.utf16();
    for (qsizetype i = 0; i < text.size(); ++i)
        bytes[i] = static_cast<char>(units[i] & 0xFF);
    return QByteArrayView(bytes, text.size());
}

SignatureChain::SignatureChain(const QString &seed)
{
    setState(m_hash.hash(m_lowBytes.of(seed)));
}

void SignatureChain::add(QStringView text)
{
    setState(m_hash.hash(m_state, m_lowBytes.of(text)));
}

QString SignatureChain::result() const
{
    return QString::fromLatin1(m_state.data(), m_state.size());
}

void SignatureChain::setState(const Sha256::Digest &digest)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    auto *digit = m_state.data();
    for (const char byte : digest) {
        const auto number = static_cast<unsigned char>(byte);
        *digit++ = kDigits[number >> 4];
        *digit++ = kDigits[number & 0xF];
    }
}

LegacySignature::LegacySignature(const QString &seed)
{
    m_hash.addData(m_lowBytes.of(seed));
}

void LegacySignature::add(QStringView text)
{
    m_hash.addData(QByteArrayView(";"));
    m_hash.addData(m_lowBytes.of(text));
}

QString LegacySignature::result() const
{
    return QString::fromLatin1(m_hash.result().toHex());
}

} // namespace Talverine
