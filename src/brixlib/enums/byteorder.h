// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/senum.h>

#include <QtCore/QMetaType>

namespace Talverine {

//! The order of the bytes of a number in memory or in a stream.
// clang-format off
S_ENUM(ByteOrder,
    BigEndian = 0,
    LittleEndian = 1
)
S_ENUM_TRANSLATION(ByteOrder)
// clang-format on

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::ByteOrder)
