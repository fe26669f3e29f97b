// SPDX-License-Identifier: MIT
#include <brixlib/protocol/commands/scommandpluggablelist.h>

namespace Talverine {

SCommandPluggableList::SCommandPluggableList()
    : SConcreteCommand(CommandIds::kPluggableList)
{
}

} // namespace Talverine
