// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandsenddev.h>

namespace Talverine {

SCommandSendDev::SCommandSendDev()
    : SCommandSendDev(QString())
{
}

SCommandSendDev::SCommandSendDev(const QString &fileName)
    : SCommandSendDev(fileName, nullptr)
{
}

SCommandSendDev::SCommandSendDev(const QString &fileName, QIODevice *device)
{
    init(CommandIds::kSendDev, fileName, device, false, Wire::kDefaultCommandVersion);
}

} // namespace Talverine
