// SPDX-License-Identifier: MIT
#include <brixlib/protocol/commands/scommandlinktest.h>

namespace Talverine {

SCommandLinkTest::SCommandLinkTest()
    : SCommandLinkTest(0, 0)
{
}

SCommandLinkTest::SCommandLinkTest(int uploadSeconds, qint64 downloadSeconds)
    : SConcreteCommand(CommandIds::kLinkTest)
    , m_uploadSeconds(uploadSeconds)
    , m_downloadSeconds(static_cast<qint32>(downloadSeconds))
{
}

void SCommandLinkTest::readFields(QDataStream &stream)
{
    stream >> m_uploadSeconds >> m_downloadSeconds;
}

void SCommandLinkTest::writeFields(QDataStream &stream) const
{
    stream << m_uploadSeconds << m_downloadSeconds;
}

} // namespace Talverine
