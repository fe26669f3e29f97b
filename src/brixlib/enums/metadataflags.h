// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/senum.h>

#include <QtCore/QMetaType>

namespace Talverine {

//! The events in which a metadata object dies.
// clang-format off
S_ENUM_FLAGS(MetadataFlags,
    None = 0,
    KillOnCopy = 1,
    KillOnSave = 2,
    KillOnSpaceTransform = 4,
    KillOnChanges = 8,
    KillOnPhysicalChange = 16,
    Volatile = 31
)
S_ENUM_TRANSLATION(MetadataFlags)
// clang-format on

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::MetadataFlags)
