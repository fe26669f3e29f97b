// SPDX-License-Identifier: MIT
#include <brixlib/protocol/commands/scommandcommandlist.h>

namespace Talverine {

SCommandCommandList::SCommandCommandList()
    : SConcreteCommand(CommandIds::kCommandList, Wire::kSinceCommandVersions)
{
}

} // namespace Talverine
