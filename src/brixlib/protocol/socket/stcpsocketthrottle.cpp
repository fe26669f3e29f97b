// SPDX-License-Identifier: MIT
#include "stcpsocketthrottle_p.h"

namespace Talverine {

namespace {

constexpr int kIntervalMsec = 500;
constexpr qint64 kLowestLimit = 256;

} // namespace

STcpSocketThrottle::STcpSocketThrottle()
{
    m_limiter.setTimeInterval(kIntervalMsec);
}

qint64 STcpSocketThrottle::limit() const
{
    const QMutexLocker lock(&m_mutex);
    return m_limiter.bandwidth();
}

void STcpSocketThrottle::setLimit(qint64 bytesPerSecond)
{
    const bool tooLow = bytesPerSecond > 0 && bytesPerSecond < kLowestLimit;
    const QMutexLocker lock(&m_mutex);
    m_limiter.setBandwidth(tooLow ? kLowestLimit : bytesPerSecond);
}

qint64 STcpSocketThrottle::allowance() const
{
    const QMutexLocker lock(&m_mutex);
    return m_limiter.transferableBytes();
}

void STcpSocketThrottle::transferred(qint64 bytes)
{
    const QMutexLocker lock(&m_mutex);
    m_limiter.transferred(bytes);
}

std::optional<qint64> STcpSocketThrottle::takeReport(qint64 msec)
{
    const QMutexLocker lock(&m_mutex);
    if (m_limiter.count() == 0)
        return std::nullopt;
    const qint64 newest = m_limiter.last().first;
    const qint64 elapsed = newest - m_lastReport;
    // A negative time means that the clock was set back; waiting for it would silence the socket.
    if (elapsed >= 0 && elapsed <= msec)
        return std::nullopt;
    m_lastReport = newest;
    return m_limiter.currentBandwidth();
}

} // namespace Talverine
