// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/senum.h>

#include <QtCore/QMetaType>

namespace Talverine {

//! The case that a text is brought to.
// clang-format off
S_ENUM(StringCase,
    AsIs = 0,
    Lower = 1,
    Upper = 2
)
S_ENUM_TRANSLATION(StringCase)
// clang-format on

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::StringCase)
