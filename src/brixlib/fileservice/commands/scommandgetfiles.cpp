// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandgetfiles.h>

namespace Talverine {

SCommandGetFiles::SCommandGetFiles()
    : SCommandGetFiles(QString(), FileFilterFlags::None)
{
}

SCommandGetFiles::SCommandGetFiles(const QString &path, const QString &filters,
                                   const QString &targetPath, const FileFilterFlags &flags)
{
    init(CommandIds::kGetFiles, path, filters, targetPath, flags, Wire::kSinceKeepAlive);
}

SCommandGetFiles::SCommandGetFiles(const QString &path, const FileFilterFlags &flags)
    : SCommandGetFiles(path, QString(), QString(), flags)
{
}

} // namespace Talverine
