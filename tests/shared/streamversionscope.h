// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/sdatastream.h>

namespace TestShared {

//! Sets the thread's stream version for the time of a scope.
class StreamVersionScope
{
public:
    explicit StreamVersionScope(QDataStream::Version version)
        : m_before(Talverine::SDataStream::defaultVersion())
    {
        Talverine::SDataStream::setDefaultVersion(version);
    }
    ~StreamVersionScope() { Talverine::SDataStream::setDefaultVersion(m_before); }
    Q_DISABLE_COPY_MOVE(StreamVersionScope)

private:
    QDataStream::Version m_before;
};

} // namespace TestShared
