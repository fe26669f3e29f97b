// SPDX-License-Identifier: MIT
// Where POSIX systems differ.
#pragma once

namespace Talverine::PosixFile {

//! As fsync(), and the drive has written its own cache too.
int flush(int descriptor);

/*!
 * Gives the file of \a descriptor the access control list of the file \a model, or takes away the
 * one that it has from its directory. True where the file system has no such lists.
 */
[[nodiscard]] bool copyAccessList(int descriptor, const char *model);

} // namespace Talverine::PosixFile
