// SPDX-License-Identifier: MIT
#include "sha256_p.h"

#include <QtCore/QCryptographicHash>

#include <algorithm>

#include <openssl/evp.h>

namespace Talverine {

namespace {

// Looked up once, as that takes longer than a hash. Null where the configuration of the machine
// leaves no such algorithm. Leaked on purpose: it is used after the statics of other files are
// gone.
const EVP_MD *algorithm()
{
    static const EVP_MD *instance = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    return instance;
}

bool add(EVP_MD_CTX *context, QByteArrayView bytes)
{
    return EVP_DigestUpdate(context, bytes.data(), static_cast<std::size_t>(bytes.size())) == 1;
}

Sha256::Digest hashPlain(QByteArrayView first, QByteArrayView second)
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(first);
    hash.addData(second);
    Sha256::Digest digest;
    std::ranges::copy(hash.result(), digest.begin());
    return digest;
}

} // namespace

void Sha256::Free::operator()(EVP_MD_CTX *context) const
{
    EVP_MD_CTX_free(context);
}

Sha256::Sha256()
    : m_context(algorithm() ? EVP_MD_CTX_new() : nullptr)
{
    // The algorithm is set once and kept for each message.
    if (m_context && EVP_DigestInit_ex(m_context.get(), algorithm(), nullptr) != 1)
        m_context.reset();
}

Sha256::Digest Sha256::hash(QByteArrayView first, QByteArrayView second)
{
    Digest digest;
    return hashFast(first, second, &digest) ? digest : hashPlain(first, second);
}

bool Sha256::hashFast(QByteArrayView first, QByteArrayView second, Digest *digest)
{
    EVP_MD_CTX *context = m_context.get();
    auto *bytes = reinterpret_cast<unsigned char *>(digest->data());
    return context && EVP_DigestInit_ex(context, nullptr, nullptr) == 1 && add(context, first) &&
           add(context, second) && EVP_DigestFinal_ex(context, bytes, nullptr) == 1;
}

} // namespace Talverine
