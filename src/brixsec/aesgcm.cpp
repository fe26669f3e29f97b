// SPDX-License-Identifier: MIT
#include "aesgcm_p.h"

#include <limits>

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <openssl/rand.h>

namespace Talverine::Security {

namespace {

template<auto function>
struct Release
{
    template<typename T>
    void operator()(T *object) const
    {
        function(object);
    }
};

using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, Release<EVP_CIPHER_CTX_free>>;
using Kdf = std::unique_ptr<EVP_KDF, Release<EVP_KDF_free>>;
using KdfContext = std::unique_ptr<EVP_KDF_CTX, Release<EVP_KDF_CTX_free>>;

unsigned char *bytesOf(char *data)
{
    return reinterpret_cast<unsigned char *>(data);
}

const unsigned char *bytesOf(const char *data)
{
    return reinterpret_cast<const unsigned char *>(data);
}

} // namespace

std::unique_ptr<SecureBlock> deriveKey(const QByteArray &secret, const QByteArray &purpose)
{
    const Kdf kdf(EVP_KDF_fetch(nullptr, "HKDF", nullptr));
    const KdfContext context(kdf ? EVP_KDF_CTX_new(kdf.get()) : nullptr);
    if (!context)
        return nullptr;

    // The parameters are only read, though their type does not say so.
    char digest[] = "SHA256";
    auto *secretBytes = const_cast<char *>(secret.constData());
    auto *purposeBytes = const_cast<char *>(purpose.constData());
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, secretBytes,
                                          static_cast<std::size_t>(secret.size())),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, purposeBytes,
                                          static_cast<std::size_t>(purpose.size())),
        OSSL_PARAM_construct_end()};
    auto key = std::make_unique<SecureBlock>(kAesKeyBytes);
    if (EVP_KDF_derive(context.get(), bytesOf(key->data()), key->size(), parameters) != 1)
        return nullptr;
    return key;
}

QByteArray sealAesGcm(const SecureBlock &key, const QByteArray &header, const char *plain,
                      std::size_t size)
{
    if (size > static_cast<std::size_t>(std::numeric_limits<int>::max()) / 2)
        return {};
    const qsizetype overhead = header.size() + kGcmNonceBytes + kGcmTagBytes;
    QByteArray sealed(overhead + static_cast<qsizetype>(size), Qt::Uninitialized);
    std::copy(header.begin(), header.end(), sealed.begin());
    unsigned char *const nonce = bytesOf(sealed.data()) + header.size();
    unsigned char *const tag = nonce + kGcmNonceBytes;
    unsigned char *const cipher = tag + kGcmTagBytes;

    const CipherContext context(EVP_CIPHER_CTX_new());
    int written = 0;
    const bool done =
        context && RAND_bytes(nonce, kGcmNonceBytes) == 1 &&
        EVP_EncryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, bytesOf(key.data()), nonce) ==
            1 &&
        EVP_EncryptUpdate(context.get(), nullptr, &written, bytesOf(header.constData()),
                          static_cast<int>(header.size())) == 1 &&
        EVP_EncryptUpdate(context.get(), cipher, &written, bytesOf(plain),
                          static_cast<int>(size)) == 1 &&
        EVP_EncryptFinal_ex(context.get(), cipher + written, &written) == 1 &&
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, kGcmTagBytes, tag) == 1;
    return done ? sealed : QByteArray();
}

std::unique_ptr<SecureBlock> openAesGcm(const SecureBlock &key, const QByteArray &header,
                                        const QByteArray &sealed)
{
    const qsizetype overhead = header.size() + kGcmNonceBytes + kGcmTagBytes;
    const qsizetype size = sealed.size() - overhead;
    if (size < 0 || size > std::numeric_limits<int>::max() / 2 || !sealed.startsWith(header))
        return nullptr;
    const unsigned char *const nonce = bytesOf(sealed.constData()) + header.size();
    // The call takes the tag as changeable, but only reads it.
    auto *const tag = const_cast<unsigned char *>(nonce + kGcmNonceBytes);
    const unsigned char *const cipher = tag + kGcmTagBytes;

    auto plain = std::make_unique<SecureBlock>(static_cast<std::size_t>(size));
    const CipherContext context(EVP_CIPHER_CTX_new());
    int written = 0;
    const bool done =
        context &&
        EVP_DecryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, bytesOf(key.data()), nonce) ==
            1 &&
        EVP_DecryptUpdate(context.get(), nullptr, &written, bytesOf(header.constData()),
                          static_cast<int>(header.size())) == 1 &&
        EVP_DecryptUpdate(context.get(), bytesOf(plain->data()), &written, cipher,
                          static_cast<int>(size)) == 1 &&
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_TAG, kGcmTagBytes, tag) == 1 &&
        EVP_DecryptFinal_ex(context.get(), bytesOf(plain->data()) + written, &written) == 1;
    return done ? std::move(plain) : nullptr;
}

} // namespace Talverine::Security
