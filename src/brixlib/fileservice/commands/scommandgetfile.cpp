// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandgetfile.h>

namespace Talverine {

SCommandGetFile::SCommandGetFile()
    : SCommandGetFile(QString(), false)
{
}

SCommandGetFile::SCommandGetFile(const QString &fileName, const QString &targetFileName,
                                 bool removeFile)
{
    init(CommandIds::kGetFile, fileName, targetFileName, removeFile, Wire::version(1, 2, 0));
}

SCommandGetFile::SCommandGetFile(const QString &fileName, bool removeFile)
    : SCommandGetFile(fileName, QString(), removeFile)
{
}

} // namespace Talverine
