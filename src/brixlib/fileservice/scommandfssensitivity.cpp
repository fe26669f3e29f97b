// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/scommandfssensitivity.h>

namespace Talverine {

SCommandFSSensitivity::SCommandFSSensitivity()
    : SConcreteCommand(CommandIds::kFSSensitivity)
{
}

} // namespace Talverine
