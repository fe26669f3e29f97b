// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/senum.h>

#include <QtCore/QMetaType>

namespace Talverine {

//! A prefix of the metric system; its value is the decimal exponent.
// clang-format off
S_ENUM(SIPrefix,
    Yocto = -24,
    Zepto = -21,
    Atto = -18,
    Femto = -15,
    Pico = -12,
    Nano = -9,
    Micro = -6,
    Milli = -3,
    Centi = -2,
    Deci = -1,
    Base = 0,
    Deca = 1,
    Hecto = 2,
    Kilo = 3,
    Mega = 6,
    Giga = 9,
    Tera = 12,
    Peta = 15,
    Exa = 18,
    Zetta = 21,
    Yotta = 24
)
S_ENUM_TRANSLATION(SIPrefix)
// clang-format on

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::SIPrefix)
