// SPDX-License-Identifier: MIT
#include "securememory_p.h"

#include <algorithm>
#include <cstring>

#include <openssl/crypto.h>

namespace Talverine::Security {

SecureBlock::SecureBlock(std::size_t size)
    : m_size(size)
    , m_data(static_cast<char *>(allocateSecure(std::max<std::size_t>(size, 1))))
{
    if (!m_data)
        qBadAlloc();
}

SecureBlock::SecureBlock(const char *data, std::size_t size)
    : SecureBlock(size)
{
    if (size > 0)
        std::memcpy(m_data, data, size);
}

SecureBlock::~SecureBlock()
{
    wipe(m_data, m_size);
    releaseSecure(m_data, std::max<std::size_t>(m_size, 1));
}

void wipe(void *data, std::size_t bytes)
{
    OPENSSL_cleanse(data, bytes);
}

bool equalInConstantTime(const char *a, std::size_t sizeA, const char *b, std::size_t sizeB)
{
    return sizeA == sizeB && CRYPTO_memcmp(a, b, sizeA) == 0;
}

} // namespace Talverine::Security
