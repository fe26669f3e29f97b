// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandchangedir.h>

namespace Talverine {

SCommandChangeDir::SCommandChangeDir()
    : SCommandChangeDir(QString())
{
}

SCommandChangeDir::SCommandChangeDir(const QString &path)
    : SConcreteCommand(CommandIds::kChangeDir, path, Wire::kDefaultCommandVersion)
{
}

} // namespace Talverine
