// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandexists.h>

namespace Talverine {

SCommandExists::SCommandExists()
    : SCommandExists(QString())
{
}

SCommandExists::SCommandExists(const QString &path)
    : SConcreteCommand(CommandIds::kExists, path, Wire::kDefaultCommandVersion)
{
}

} // namespace Talverine
