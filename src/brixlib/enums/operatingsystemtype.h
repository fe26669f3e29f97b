// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/senum.h>

#include <QtCore/QMetaType>

namespace Talverine {

//! A family of operating systems.
// clang-format off
S_ENUM(OperatingSystemType,
    Mac_OS = 0,
    macOS = 1,
    OSX = 1,
    iOS = 2,
    Windows = 3,
    Linux = 4,
    BSD_ = 5,
    Unix = 6,
    Android = 7,
    Symbian = 8,
    OS_400 = 9,
    OS_2 = 10,
    BeOS = 11,
    watchOS = 12,
    tvOS = 13,
    iPadOS = 14,
    ChromeOS = 15,
    WearOS = 16,
    Unknown = 17
)
S_ENUM_TRANSLATION(OperatingSystemType)
// clang-format on

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::OperatingSystemType)
