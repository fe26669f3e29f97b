// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandpwd.h>

namespace Talverine {

SCommandPwd::SCommandPwd()
    : SConcreteCommand(CommandIds::kPwd)
{
}

} // namespace Talverine
