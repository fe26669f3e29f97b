// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/senum.h>

#include <QtCore/QMetaType>

namespace Talverine {

//! A truth value with a text.
// clang-format off
S_ENUM_T(Bool,
(
    False = false,
    True = true
), bool)
S_ENUM_TRANSLATION(Bool)
// clang-format on

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::Bool)
