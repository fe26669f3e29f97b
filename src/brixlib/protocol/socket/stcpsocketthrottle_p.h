// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/devices/sbandwidthlimiter.h>

#include <QtCore/QMutex>

#include <optional>

namespace Talverine {

/*!
 * Limit and measured speed of one direction of a socket.
 *
 * A socket shares it with the speed controller, so that a controller which gives out limits in its
 * own thread never touches the socket itself, which may be dying in its worker's thread just then.
 *
 * Fully shared: every operation may be called from any thread, and calls nobody else.
 */
class STcpSocketThrottle
{
public:
    STcpSocketThrottle();

    //! Bytes per second, 0 for no limit.
    qint64 limit() const;
    //! A positive limit below 256 becomes 256.
    void setLimit(qint64 bytesPerSecond);

    //! Bytes that may go now.
    qint64 allowance() const;
    void transferred(qint64 bytes);

    //! The measured speed, if the last transfer lies more than \a msec after the last one reported.
    std::optional<qint64> takeReport(qint64 msec);

private:
    mutable QMutex m_mutex;
    SBandwidthLimiter m_limiter;
    qint64 m_lastReport = 0; // time of the limiter's sample that was reported last
};

} // namespace Talverine
