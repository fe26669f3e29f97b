// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandcopyfile.h>

namespace Talverine {

SCommandCopyFile::SCommandCopyFile()
    : SCommandCopyFile(QString(), QString())
{
}

SCommandCopyFile::SCommandCopyFile(const QString &source, const QString &target)
    : SConcreteCommand(CommandIds::kCopyFile, source, target, Wire::kSinceKeepAlive)
{
}

} // namespace Talverine
