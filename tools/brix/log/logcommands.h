// SPDX-License-Identifier: MIT
// What the sub-commands of brix log have in common.
#pragma once

#include <database/dbcommands.h>

#include <brixlib/database/log/slogger.h>

#include <functional>
#include <limits>
#include <memory>

namespace Brix {

//! Limits that no log comes to: what opens it does not rotate it.
inline constexpr Talverine::RotateParameters kNoLimits{.maxLogs = std::numeric_limits<int>::max(),
                                                       .keepLogs = 300,
                                                       .maxBytes =
                                                           std::numeric_limits<qint64>::max()};

/*!
 * Opens a log for writing, which may rotate it. Throws Failure, also when \a owner may not write to
 * it.
 */
std::unique_ptr<Talverine::SLogger> openLog(const QString &file, const DatabaseLogin &owner,
                                            const Talverine::RotateParameters &limits);
//! Makes a log that only the owner of the file may read, unless \a file exists. Throws Failure.
void makeLogIfMissing(const QString &file, const DatabaseLogin &owner);
/*!
 * Opens a log for writing, runs \a work with it in a thread of its own, and tells in a note when
 * the opening has rotated it. Throws Failure, also when the user may not write to it.
 */
void withLog(const Output &output, const QString &file, const DatabaseLogin &login,
             const Talverine::RotateParameters &limits,
             const std::function<void(Talverine::SLogger &)> &work);
//! The same with a log that is there, is not rotated when it is opened, and the user's password.
void withExistingLog(const Output &output, const DatabaseOptions &options,
                     const std::function<void(Talverine::SLogger &)> &work);

// One function for each kind of sub-commands.
void addLogReadCommands(Command *family);
void addLogWriteCommands(Command *family);

} // namespace Brix
