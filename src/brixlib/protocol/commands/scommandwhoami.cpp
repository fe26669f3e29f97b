// SPDX-License-Identifier: MIT
#include <brixlib/protocol/commands/scommandwhoami.h>

namespace Talverine {

SCommandWhoAmI::SCommandWhoAmI()
    : SConcreteCommand(CommandIds::kWhoAmI)
{
}

} // namespace Talverine
