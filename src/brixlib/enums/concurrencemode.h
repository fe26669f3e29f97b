// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/senum.h>

#include <QtCore/QMetaType>

namespace Talverine {

//! How many of the machine's threads a piece of work may take.
// clang-format off
S_ENUM(ConcurrenceMode,
    None = 0,
    Default = 1,
    Half = 2,
    MoreThanHalf = 3,
    AlmostFull = 4,
    Full = 5
)
S_ENUM_TRANSLATION(ConcurrenceMode)
// clang-format on

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::ConcurrenceMode)
