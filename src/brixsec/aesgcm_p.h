// SPDX-License-Identifier: MIT
#pragma once

#include "securememory_p.h"

#include <QtCore/QByteArray>

#include <memory>

namespace Talverine::Security {

inline constexpr std::size_t kAesKeyBytes = 32;
inline constexpr qsizetype kGcmNonceBytes = 12;
inline constexpr qsizetype kGcmTagBytes = 16;

//! Derives a key of kAesKeyBytes by HKDF-SHA-256; null when the library for it fails.
std::unique_ptr<SecureBlock> deriveKey(const QByteArray &secret, const QByteArray &purpose);

/*!
 * Enciphers by AES-256-GCM: \a header, a random nonce, the tag, the cipher text. The header is
 * protected against changes but readable. Null on failure.
 */
QByteArray sealAesGcm(const SecureBlock &key, const QByteArray &header, const char *plain,
                      std::size_t size);

/*!
 * The plain bytes of what sealAesGcm() gave for the same key and header, or null: other key, other
 * header, changed or cut bytes.
 */
std::unique_ptr<SecureBlock> openAesGcm(const SecureBlock &key, const QByteArray &header,
                                        const QByteArray &sealed);

} // namespace Talverine::Security
