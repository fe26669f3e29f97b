// SPDX-License-Identifier: MIT
#include <brixlib/protocol/commands/scommandstreamversion.h>

#include <algorithm>

namespace Talverine {

SCommandStreamVersion::SCommandStreamVersion()
    : SConcreteCommand(CommandIds::kStreamVersion)
{
}

SCommandStreamVersion::SCommandStreamVersion(const QDataStream::Version &streamVersion)
    : SConcreteCommand(CommandIds::kStreamVersion)
    , m_streamVersion(streamVersion)
{
}

QDataStream::Version SCommandStreamVersion::streamVersion() const
{
    // The enumeration has five value bits; a cast from outside of them would be undefined.
    return static_cast<QDataStream::Version>(std::clamp(m_streamVersion, 0, 31));
}

void SCommandStreamVersion::setStreamVersion(const QDataStream::Version &streamVersion)
{
    m_streamVersion = streamVersion;
}

void SCommandStreamVersion::readFields(QDataStream &stream)
{
    stream >> m_streamVersion;
}

void SCommandStreamVersion::writeFields(QDataStream &stream) const
{
    stream << m_streamVersion;
}

} // namespace Talverine
