// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandiodevice.h>

namespace Talverine {

SCommandIODevice::~SCommandIODevice()
{
    if (m_deviceOwnership)
        delete m_device;
}

void SCommandIODevice::init(const SCommandId &id, const QString &fileName, QIODevice *device,
                            bool deviceOwnership, int version)
{
    setId(id);
    setVersion(version);
    m_fileName = fileName;
    m_device = device;
    m_deviceOwnership = deviceOwnership;
}

void SCommandIODevice::clear()
{
    m_fileName.clear();
    m_device.clear();
    m_deviceOwnership = false;
}

void SCommandIODevice::readFields(QDataStream &stream)
{
    stream >> m_fileName;
}

void SCommandIODevice::writeFields(QDataStream &stream) const
{
    stream << m_fileName;
}

} // namespace Talverine
