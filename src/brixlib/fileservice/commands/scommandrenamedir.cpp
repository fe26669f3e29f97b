// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandrenamedir.h>

namespace Talverine {

SCommandRenameDir::SCommandRenameDir()
    : SCommandRenameDir(QString(), QString())
{
}

SCommandRenameDir::SCommandRenameDir(const QString &source, const QString &target)
    : SConcreteCommand(CommandIds::kRenameDir, source, target, Wire::kDefaultCommandVersion)
{
}

} // namespace Talverine
