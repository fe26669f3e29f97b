// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/senum.h>

#include <QtCore/QMetaType>

namespace Talverine {

//! Why the last operation of a database failed.
// clang-format off
S_ENUM(DBError,
    NoError = 0,
    // the user may not do this
    AuthError = 1,
    // the special record was changed
    SignError = 2,
    // not a database
    WrongDB = 3,
    // no key, or the key fields of two databases differ
    KeyIsNull = 4,
    RecNotFound = 5,
    RecExist = 6,
    FileNotFound = 7,
    OpenError = 8,
    CreateError = 9,
    ResetError = 10,
    EndOfFile = 11,
    ReadError = 12,
    WriteError = 13,
    SeekError = 14,
    // no such index, or a field without name or value
    FieldIndexError = 15,
    // another program has the file open
    FileLockError = 16,
    APINotImplemented = 17,
    // the file and the index disagree, and whatever else
    UnknownError = 18
)
S_ENUM_TRANSLATION(DBError)
// clang-format on

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::DBError)
