// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/senum.h>

#include <QtCore/QMetaType>

namespace Talverine {

//! How a password is written in a URL.
// clang-format off
S_ENUM(PasswordType,
    None = 0,
    Plain = 1,
    Hash = 2,
    Aes = 3
)
S_ENUM_TRANSLATION(PasswordType)
// clang-format on

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::PasswordType)
