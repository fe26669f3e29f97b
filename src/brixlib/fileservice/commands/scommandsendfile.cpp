// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandsendfile.h>

namespace Talverine {

SCommandSendFile::SCommandSendFile()
    : SCommandSendFile(QString(), false)
{
}

SCommandSendFile::SCommandSendFile(const QString &fileName, const QString &targetFileName,
                                   bool removeFile)
{
    init(CommandIds::kSendFile, fileName, targetFileName, removeFile, Wire::kSinceRawSize);
}

SCommandSendFile::SCommandSendFile(const QString &fileName, bool removeFile)
    : SCommandSendFile(fileName, QString(), removeFile)
{
}

} // namespace Talverine
