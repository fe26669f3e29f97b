// SPDX-License-Identifier: MIT
#include <brixlib/protocol/commands/scommandclientdevice.h>

namespace Talverine {

SCommandClientDevice::SCommandClientDevice()
    : SConcreteCommand(CommandIds::kClientDevice)
{
}

SCommandClientDevice::SCommandClientDevice(const QString &fileName)
    : SConcreteCommand(CommandIds::kClientDevice)
    , m_fileName(fileName)
{
}

void SCommandClientDevice::readFields(QDataStream &stream)
{
    stream >> m_fileName;
}

void SCommandClientDevice::writeFields(QDataStream &stream) const
{
    stream << m_fileName;
}

} // namespace Talverine
