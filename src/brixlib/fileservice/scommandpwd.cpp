// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/scommandpwd.h>

namespace Talverine {

SCommandPwd::SCommandPwd()
    : SConcreteCommand(CommandIds::kPwd)
{
}

} // namespace Talverine
