// SPDX-License-Identifier: MIT
#pragma once

namespace Brix {

//! How the tool ends. Scripts rely on the numbers: they stay fixed.
enum class ExitCode : int {
    Done = 0,
    Refused = 1,       //!< the other side, or a rule, said no; or what was named is not there
    Usage = 2,         //!< the command line is wrong
    Connection = 3,    //!< no connection, or it broke; the same command may be given again
    LocalIo = 4,       //!< a file or folder on this machine
    Interrupted = 130, //!< Ctrl-C or SIGTERM ended a command before it was done
};

//! The texts of these numbers that --help shows.
inline constexpr auto exitCodesHelp =
    "Exit codes: 0 done, 1 refused or not found, 2 wrong usage, 3 connection or protocol\n"
    "failure (may be repeated), 4 local I/O failure, 130 interrupted.";

} // namespace Brix
