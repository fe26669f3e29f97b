// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandlistdir.h>

namespace Talverine {

SCommandListDir::SCommandListDir()
    : SCommandListDir(QString())
{
}

SCommandListDir::SCommandListDir(const QString &path)
    : SConcreteCommand(CommandIds::kListDir, path, Wire::kDefaultCommandVersion)
{
}

} // namespace Talverine
