// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/senum.h>

#include <QtCore/QMetaType>

namespace Talverine {

//! A customary unit of length; its value is the length in inches.
// clang-format off
S_ENUM(SCSLengthUnit,
    Inch = 1,
    Foot = 12,
    Yard = 36,
    Rod = 198,
    Furlong = 7920,
    Mile = 63360
)
S_ENUM_TRANSLATION(SCSLengthUnit)
// clang-format on

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::SCSLengthUnit)
