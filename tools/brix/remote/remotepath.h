// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

//! Paths on the server, which are divided by "/" whatever system it runs on.
namespace Brix::RemotePath {

//! \a name in \a folder; in the user's own folder when that is empty.
QString join(const QString &folder, const QString &name);
//! What stands before the last name; empty for the user's own folder.
QString parent(const QString &path);
//! The last name; empty when the path ends in a slash or a dot.
QString name(const QString &path);
//! The path without slashes at its end.
QString withoutSlash(const QString &path);
/*!
 * Whether a name that a server gave can be that of a file on this machine, in the folder where it
 * is expected: not empty, no dots alone, no dividers.
 */
bool isSafeName(const QString &name);

/*!
 * Whether a receiving end of the library would store this path under another name: it writes "_"
 * for some characters, in the names of folders too, which then are not the ones that were made.
 */
bool isChangedOnArrival(const QString &path);

} // namespace Brix::RemotePath
