// SPDX-License-Identifier: MIT
#pragma once

#include <remote/remotecommand.h>

namespace Brix {

//! Writes the content of the file that the URL names to stdout; throws Failure.
ExitCode getToStandardOutput(const Output &output, const RemoteOptions &options);
//! Stores what comes from stdin as the file that the URL names; throws Failure.
ExitCode putStandardInput(const Output &output, const RemoteOptions &options);

} // namespace Brix
