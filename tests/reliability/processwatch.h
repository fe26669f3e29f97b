// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QElapsedTimer>
#include <QtCore/QList>

/*!
 * Keeps samples of what another process holds, and tells whether they stay flat.
 *
 * The rise of a row of samples is the median of its last third less the median of its first third:
 * it sees what creeps, and not what comes and goes.
 */
class ProcessWatch final
{
public:
    struct Sample
    {
        qint64 msec = 0; //!< since the watch was made
        qint64 memoryKiB = 0;
        qint64 threads = 0;
        qint64 descriptors = 0;
    };
    using Field = qint64 Sample::*;

    explicit ProcessWatch(qint64 process);

    //! Takes a sample and keeps it.
    Sample sample();
    const QList<Sample> &samples() const { return m_samples; }

    //! The values of \a field in the samples from \a first to \a last, in milliseconds.
    QList<qint64> between(qint64 first, qint64 last, Field field) const;

    static qint64 median(QList<qint64> values);
    //! 0 for less than three values.
    static qint64 rise(const QList<qint64> &values);

private:
    const qint64 m_process;
    QElapsedTimer m_timer;
    QList<Sample> m_samples;
};
