// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/senum.h>

#include <QtCore/QMetaType>

namespace Talverine {

//! A metric unit of length; its value is the decimal exponent of the metre.
// clang-format off
S_ENUM(SILengthUnit,
    YoctoMeter = -24,
    ZeptoMeter = -21,
    AttoMeter = -18,
    FemtoMeter = -15,
    PicoMeter = -12,
    NanoMeter = -9,
    MicroMeter = -6,
    MilliMeter = -3,
    CentiMeter = -2,
    DeciMeter = -1,
    Meter = 0,
    DecaMeter = 1,
    HectoMeter = 2,
    KiloMeter = 3,
    MegaMeter = 6,
    GigaMeter = 9,
    TeraMeter = 12,
    PetaMeter = 15,
    ExaMeter = 18,
    ZettaMeter = 21,
    YottaMeter = 24
)
S_ENUM_TRANSLATION(SILengthUnit)
// clang-format on

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::SILengthUnit)
