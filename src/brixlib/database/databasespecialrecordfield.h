// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/senum.h>

#include <QtCore/QMetaType>

namespace Talverine {

//! The fields of a database's special record; their names in a file are the lower-cased keys.
// clang-format off
S_ENUM(DatabaseSpecialRecordField,
    dbKey = 0,
    dbOwner = 1,
    dbPasswd = 2,
    dbGrants = 3,
    dbVersion = 4,
    dbCultureInfo = 5
)
S_ENUM_TRANSLATION(DatabaseSpecialRecordField)
// clang-format on

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::DatabaseSpecialRecordField)
