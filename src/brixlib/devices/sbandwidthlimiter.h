// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <QtCore/QList>

#include <utility>

namespace Talverine {

/*!
 * Measures how many bytes went through in a sliding time interval and tells how many more may go.
 *
 *     qint64 allowed;
 *     while ((allowed = limiter.transferableBytes()) == 0)
 *         QThread::msleep(1);
 *     const qint64 written = device->write(data, qMin(size, allowed));
 *     if (written > 0)
 *         limiter.transferred(written);
 *
 * What may go can fall from one millisecond to the next with nothing transferred: ask once.
 *
 * The clock is the wall clock; after it was set back, samples that lie in the future are dropped.
 *
 * A value. Not thread-safe: the const queries drop old samples too.
 */
class BRIXLIB_EXPORT SBandwidthLimiter
{
public:
    //! A time (ms since the epoch) and the bytes that went through from then on.
    using Sample = std::pair<qint64, qint64>;

    SBandwidthLimiter() = default;

    bool operator==(const SBandwidthLimiter &other) const = default;

    //! Bytes per second that may go through; 0 for no limit, a negative one lets nothing through.
    qint64 bandwidth() const { return m_bandwidth; }
    void setBandwidth(qint64 bytesPerSecond) { m_bandwidth = bytesPerSecond; }

    //! Milliseconds for which a sample counts, 100 to 10,000; default 1000.
    int timeInterval() const { return m_timeInterval; }
    //! Takes the nearest allowed value.
    void setTimeInterval(int msec);

    //! Number of samples; at most one for each 50 ms.
    int count() const { return static_cast<int>(m_samples.size()); }
    //! The oldest sample; there must be one.
    Sample first() const { return m_samples.first(); }
    //! The newest sample; there must be one.
    Sample last() const { return m_samples.last(); }
    //! The sample \a index of count(), oldest first.
    Sample at(int index) const { return m_samples.at(index); }
    //! Milliseconds between the oldest and the newest sample, 0 with fewer than two.
    qint64 millisecs() const;

    //! Bytes per second since the oldest sample; within its very millisecond, that sample's bytes.
    qint64 currentBandwidth() const;
    //! Bytes that may go now, at least 0; the largest qint64 without a limit.
    qint64 transferableBytes() const;
    //! Counts \a bytes that have just gone through.
    void transferred(qint64 bytes);

protected:
    // The same at the time `now` (ms since the epoch), for a deriving class with its own clock.
    qint64 currentBandwidthAt(qint64 now) const;
    qint64 transferableBytesAt(qint64 now) const;
    void transferredAt(qint64 now, qint64 bytes);

private:
    void purge(qint64 now) const;

    qint64 m_bandwidth = 0;
    int m_timeInterval = 1000;
    mutable QList<Sample> m_samples; // oldest first
};

} // namespace Talverine
