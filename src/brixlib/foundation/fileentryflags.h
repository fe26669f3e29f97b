// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/flagoperators.h>

#include <QtCore/QMetaType>

namespace Talverine {

/*!
 * Properties and permissions of a file as one 32-bit mask, which also travels on the wire: the
 * values stay fixed. The high half holds QFileDevice::Permissions shifted left by 16.
 */
enum class FileEntryFlags : quint32 {
    None = 0x00000000,
    Directory = 0x00000001,   //!< a directory; clear means a file
    Symbolic = 0x00000002,    //!< a symbolic link
    Readable = 0x00000004,    //!< this process may read it
    Writable = 0x00000008,    //!< this process may write it
    Executable = 0x00000010,  //!< this process may execute it
    Hidden = 0x00000020,      //!< hidden from plain listings
    Permissions = 0xFFFF0000, //!< all bits of the permissions
};
BRIX_FLAG_OPERATORS(FileEntryFlags)

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::FileEntryFlags)
