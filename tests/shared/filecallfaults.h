// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArrayList>

//! What happens to a call.
enum class FileFault {
    None,        //!< counts and records the calls
    Kill,        //!< SIGKILL instead of the call
    KillHalfway, //!< the same; a write writes half of its bytes before
    Fail,        //!< the call fails with EIO
    DiskFull,    //!< this and all later writes and new files fail with ENOSPC; half is written
};

//! The number of the call, from 1, and what happens to it.
struct FileFaultPlan
{
    int call = 0;
    FileFault fault = FileFault::None;
};

/*!
 * Lets the system calls by which this process changes files go wrong, or kills the process at one
 * of them. It takes the place of open() for new or emptied files, write(), ftruncate(), rename(),
 * unlink(), fsync(), fchmod() and fchown() in the whole program. Only calls on files and
 * directories count, not those on pipes and terminals.
 *
 *     FileCallFaults::arm({.call = 3, .fault = FileFault::Kill});
 *     database.purge(); // does not return
 *
 * Calls are counted only while armed. For one thread.
 */
namespace FileCallFaults {

void arm(const FileFaultPlan &plan);
//! Returns the names of the calls since arm(), each with its file: "rename a.db".
QByteArrayList disarm();

} // namespace FileCallFaults
