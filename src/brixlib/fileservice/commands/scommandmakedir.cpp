// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandmakedir.h>

namespace Talverine {

SCommandMakeDir::SCommandMakeDir()
    : SCommandMakeDir(QString())
{
}

SCommandMakeDir::SCommandMakeDir(const QString &path)
    : SConcreteCommand(CommandIds::kMakeDir, path, Wire::kDefaultCommandVersion)
{
}

} // namespace Talverine
