// SPDX-License-Identifier: MIT
#include <brixlib/devices/sbandwidthlimiter.h>

#include <brixlib/foundation/saturated_p.h>

#include <QtCore/QDateTime>

#include <limits>

namespace Talverine {

namespace {

constexpr int kShortestInterval = 100;
constexpr int kLongestInterval = 10000;
constexpr qint64 kSlotMsec = 50; // transfers within one slot share a sample
constexpr qint64 kNoLimit = std::numeric_limits<qint64>::max();

} // namespace

void SBandwidthLimiter::setTimeInterval(int msec)
{
    m_timeInterval = qBound(kShortestInterval, msec, kLongestInterval);
}

qint64 SBandwidthLimiter::millisecs() const
{
    return m_samples.size() < 2 ? 0 : m_samples.last().first - m_samples.first().first;
}

qint64 SBandwidthLimiter::currentBandwidth() const
{
    return currentBandwidthAt(QDateTime::currentMSecsSinceEpoch());
}

qint64 SBandwidthLimiter::transferableBytes() const
{
    return transferableBytesAt(QDateTime::currentMSecsSinceEpoch());
}

void SBandwidthLimiter::transferred(qint64 bytes)
{
    transferredAt(QDateTime::currentMSecsSinceEpoch(), bytes);
}

qint64 SBandwidthLimiter::currentBandwidthAt(qint64 now) const
{
    purge(now);
    if (m_samples.isEmpty())
        return 0;
    const Sample &oldest = m_samples.first();
    if (oldest.first == now)
        return oldest.second;
    qint64 bytes = 0;
    for (const Sample &sample : std::as_const(m_samples))
        bytes = Saturated::sum(bytes, sample.second);
    return Saturated::product(bytes, 1000) / (now - oldest.first);
}

qint64 SBandwidthLimiter::transferableBytesAt(qint64 now) const
{
    if (m_bandwidth == 0)
        return kNoLimit;
    const qint64 spare = Saturated::difference(m_bandwidth, currentBandwidthAt(now));
    return spare < 1 ? 0 : spare;
}

void SBandwidthLimiter::transferredAt(qint64 now, qint64 bytes)
{
    purge(now);
    if (!m_samples.isEmpty() && m_samples.last().first / kSlotMsec == now / kSlotMsec) {
        Sample &newest = m_samples.last();
        newest.second = Saturated::sum(newest.second, bytes);
    } else {
        m_samples.append({now, bytes});
    }
}

void SBandwidthLimiter::purge(qint64 now) const
{
    while (!m_samples.isEmpty() && m_samples.first().first < now - m_timeInterval)
        m_samples.removeFirst();
    // The clock was set back: these would count for as long as the step was.
    while (!m_samples.isEmpty() && m_samples.last().first > now)
        m_samples.removeLast();
}

} // namespace Talverine
