// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandstorageinfo.h>

namespace Talverine {

SCommandStorageInfo::SCommandStorageInfo()
    : SConcreteCommand(CommandIds::kStorageInfo, Wire::version(2, 0, 0))
{
}

} // namespace Talverine
