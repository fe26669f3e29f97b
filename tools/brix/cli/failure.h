// SPDX-License-Identifier: MIT
#pragma once

#include "exitcode.h"

#include <QtCore/QString>

namespace Brix {

//! Thrown inside the tool to end a sub-command: what failed and why, and how the tool ends.
struct Failure
{
    ExitCode code;
    QString text;
};

} // namespace Brix
