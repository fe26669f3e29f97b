// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Talverine {

/*!
 * Whether \a path is the directory \a jail or is below it, after all links in both are resolved.
 * Directories are compared by their identity, so the file system's own rule for names holds. Both
 * paths are absolute and clean; what does not exist yet is judged by the directory that it would be
 * made in.
 *
 * Returns false when a link cannot be resolved or the file system cannot be asked. A link that is
 * made between this call and the use of the path is not noticed.
 */
bool isInsideJail(const QString &path, const QString &jail);

} // namespace Talverine
