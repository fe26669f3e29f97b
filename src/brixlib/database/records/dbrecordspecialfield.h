// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/senum.h>

#include <QtCore/QMetaType>

// The lower-cased keys are names of fields in stored files, so they stay although the language
// keeps such names for itself.
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wunknown-warning-option"
#pragma clang diagnostic ignored "-Wreserved-identifier"
#endif

namespace Talverine {

//! The fields of a record that the database itself writes; see SDBRecord for their names.
// clang-format off
S_ENUM(DBRecordSpecialField,
    _Signature = 0,
    _RecOwner = 1,
    _CultureInfo = 2,
    _UniqueIncKey = 3,
    _DateTime = 4
)
S_ENUM_TRANSLATION(DBRecordSpecialField)
// clang-format on

} // namespace Talverine

#if defined(__clang__)
#pragma clang diagnostic pop
#endif

Q_DECLARE_METATYPE(Talverine::DBRecordSpecialField)
