// SPDX-License-Identifier: MIT
// The families of commands. Each function adds the commands of one family to the root.
#pragma once

#include <cli/command.h>
#include <cli/exitcode.h>
#include <cli/failure.h>
#include <cli/output.h>

namespace Brix {

void addCompressCommands(Command *root);
void addDbCommands(Command *root);
void addFileCommands(Command *root);
void addLogCommands(Command *root);
void addServeCommand(Command *root);
void addServerCommands(Command *root);
void addStreamCommands(Command *root);
void addTransferCommands(Command *root);
void addUserCommands(Command *root);

} // namespace Brix
