// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandcopydir.h>

namespace Talverine {

SCommandCopyDir::SCommandCopyDir()
    : SCommandCopyDir(QString(), QString())
{
}

SCommandCopyDir::SCommandCopyDir(const QString &source, const QString &target)
    : SConcreteCommand(CommandIds::kCopyDir, source, target, Wire::kSinceKeepAlive)
{
}

} // namespace Talverine
