// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandgetdir.h>

namespace Talverine {

SCommandGetDir::SCommandGetDir()
    : SCommandGetDir(QString(), false)
{
}

SCommandGetDir::SCommandGetDir(const QString &fileName, const QString &targetFileName,
                               bool removeFile)
{
    init(CommandIds::kGetDir, fileName, targetFileName, removeFile, Wire::version(1, 2, 0));
}

SCommandGetDir::SCommandGetDir(const QString &fileName, bool removeFile)
    : SCommandGetDir(fileName, QString(), removeFile)
{
}

} // namespace Talverine
