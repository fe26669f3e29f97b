// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

//! What the system lets this process and others do; one source file for each kind of system.
namespace Brix::ProcessRights {

//! Whether the process may do everything on this machine, as root may.
bool isSuperuser();
//! "644" when users other than the owner may read or write \a file, else an empty text.
QString sharedMode(const QString &file);
//! Takes the permissions in \a mask away from each file that the process makes from now on. Returns
//! false where the system has no such mask.
[[nodiscard]] bool setFileMask(int mask);

} // namespace Brix::ProcessRights
