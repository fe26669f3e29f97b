// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandremovedir.h>

namespace Talverine {

SCommandRemoveDir::SCommandRemoveDir()
    : SCommandRemoveDir(QString())
{
}

SCommandRemoveDir::SCommandRemoveDir(const QString &path)
    : SConcreteCommand(CommandIds::kRemoveDir, path, Wire::kDefaultCommandVersion)
{
}

} // namespace Talverine
