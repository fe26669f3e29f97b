// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/senum.h>

#include <QtCore/QMetaType>

namespace Talverine {

//! A unit of storage; its value is the shift that turns a count of it into bytes.
// clang-format off
S_ENUM(BinaryUnit,
    Byte = 0,
    KiB = 10,
    MiB = 20,
    GiB = 30,
    TiB = 40,
    PiB = 50,
    EiB = 60,
    ZiB = 70,
    YiB = 80
)
S_ENUM_TRANSLATION(BinaryUnit)
// clang-format on

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::BinaryUnit)
