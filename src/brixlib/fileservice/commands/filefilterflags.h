// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/flagoperators.h>

#include <QtCore/QMetaType>

namespace Talverine {

//! How SCommandGetFiles searches, as one 32-bit mask that also travels on the wire: the values stay
//! fixed.
enum class FileFilterFlags : quint32 {
    None = 0,
    Recursive = 1,     //!< the server walks subdirectories too
    RemoveAfter = 2,   //!< after the files, the client removes the searched directory
    DirectoryMode = 4, //!< the search stands for a whole directory, and is reported as one
};
BRIX_FLAG_OPERATORS(FileFilterFlags)

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::FileFilterFlags)
