// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandremovefile.h>

namespace Talverine {

SCommandRemoveFile::SCommandRemoveFile()
    : SCommandRemoveFile(QString())
{
}

SCommandRemoveFile::SCommandRemoveFile(const QString &path)
    : SConcreteCommand(CommandIds::kRemoveFile, path, Wire::kDefaultCommandVersion)
{
}

} // namespace Talverine
