// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandgetdev.h>

namespace Talverine {

SCommandGetDev::SCommandGetDev()
    : SCommandGetDev(QString())
{
}

SCommandGetDev::SCommandGetDev(const QString &fileName)
    : SCommandGetDev(fileName, nullptr)
{
}

SCommandGetDev::SCommandGetDev(const QString &fileName, QIODevice *device)
{
    init(CommandIds::kGetDev, fileName, device, false, Wire::kDefaultCommandVersion);
}

} // namespace Talverine
