// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandrenamefile.h>

namespace Talverine {

SCommandRenameFile::SCommandRenameFile()
    : SCommandRenameFile(QString(), QString())
{
}

SCommandRenameFile::SCommandRenameFile(const QString &source, const QString &target)
    : SConcreteCommand(CommandIds::kRenameFile, source, target, Wire::kDefaultCommandVersion)
{
}

} // namespace Talverine
