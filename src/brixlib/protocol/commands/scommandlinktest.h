// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Measures the connection: the client sends for some seconds, then the server does. Reply: raw
//! blocks both ways.
class BRIXLIB_EXPORT SCommandLinkTest : public SConcreteCommand<SCommandLinkTest>
{
public:
    //! Both are kept, and travel, as 32 bits.
    SCommandLinkTest(int uploadSeconds, qint64 downloadSeconds);

    bool operator==(const SCommandLinkTest &other) const = default;

    //! How long the client sends.
    int uploadSeconds() const { return m_uploadSeconds; }
    //! How long the server sends.
    int downloadSeconds() const { return m_downloadSeconds; }

protected:
    void setUploadSeconds(int seconds) { m_uploadSeconds = seconds; }
    void setDownloadSeconds(int seconds) { m_downloadSeconds = seconds; }

private:
    friend SConcreteCommand;
    SCommandLinkTest();
    void readFields(QDataStream &stream);
    void writeFields(QDataStream &stream) const;

    qint32 m_uploadSeconds = 0;
    qint32 m_downloadSeconds = 0;
};

} // namespace Talverine
