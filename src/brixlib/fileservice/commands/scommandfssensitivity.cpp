// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandfssensitivity.h>

namespace Talverine {

SCommandFSSensitivity::SCommandFSSensitivity()
    : SConcreteCommand(CommandIds::kFSSensitivity)
{
}

} // namespace Talverine
