// SPDX-License-Identifier: MIT
#include <brixlib/protocol/commands/scommandservername.h>

namespace Talverine {

SCommandServerName::SCommandServerName()
    : SConcreteCommand(CommandIds::kServerName)
{
}

} // namespace Talverine
