// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

class QFileDevice;

//! What each system does in its own way to keep a file through a power cut.
namespace Talverine::DiskFile {

/*!
 * Writes what was written to the open \a file to the disk, and returns once it is there. A file
 * system that has no such operation counts as done.
 */
[[nodiscard]] bool sync(QFileDevice *file);
//! As sync(), for a closed file. True for a file that is not a regular one.
[[nodiscard]] bool sync(const QString &fileName);
//! Writes the directory entry of \a fileName to the disk.
[[nodiscard]] bool syncEntry(const QString &fileName);

/*!
 * Gives the open \a file the owner, the group and the permissions of \a model. Where the system
 * refuses another owner, the file keeps its own. Where it refuses the group, the group gets what
 * all users have: nobody gains access.
 */
[[nodiscard]] bool copyAccess(QFileDevice *file, const QString &model);

//! Renames \a from to \a to in one step. Replaces a file of that name.
[[nodiscard]] bool moveOver(const QString &from, const QString &to);

} // namespace Talverine::DiskFile
