// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/sconcretecommand.h>

#include <QtCore/QDataStream>

namespace Talverine {

/*!
 * Tells the server the highest stream version of the client. Reply: one raw word, the server's own.
 * From the next command on both ends use the smaller of the two.
 */
class BRIXLIB_EXPORT SCommandStreamVersion : public SConcreteCommand<SCommandStreamVersion>
{
public:
    explicit SCommandStreamVersion(const QDataStream::Version &streamVersion);

    bool operator==(const SCommandStreamVersion &other) const = default;

    //! The version of the peer, which may be newer than any this Qt has a name for. Numbers that
    //! the enumeration cannot hold come out as the nearest it can: 0 or 31.
    QDataStream::Version streamVersion() const;
    void setStreamVersion(const QDataStream::Version &streamVersion);

private:
    friend SConcreteCommand;
    SCommandStreamVersion();
    void readFields(QDataStream &stream);
    void writeFields(QDataStream &stream) const;

    qint32 m_streamVersion = 0;
};

} // namespace Talverine
