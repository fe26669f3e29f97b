// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/senum.h>

#include <QtCore/QMetaType>

namespace Talverine {

//! What a database lets users do who are not its owner. Files hold the lower-cased keys.
// clang-format off
S_ENUM(DBAuthGrants,
    // nothing
    None = 0,
    // read
    ReadOnly = 1,
    // read, insert, change and remove any record, clear and purge
    ReadWrite = 2,
    // read, insert, and change or remove records of their own
    ReadOwnWrite = 3,
    // as ReadWrite
    All = 4
)
S_ENUM_TRANSLATION(DBAuthGrants)
// clang-format on

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::DBAuthGrants)
