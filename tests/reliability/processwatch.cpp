// SPDX-License-Identifier: MIT
#include "processwatch.h"

#include <shared/processfacts.h>

#include <algorithm>

ProcessWatch::ProcessWatch(qint64 process)
    : m_process(process)
{
    m_timer.start();
}

ProcessWatch::Sample ProcessWatch::sample()
{
    m_samples.append({m_timer.elapsed(), ProcessFacts::kibibytes("VmRSS", m_process),
                      ProcessFacts::threads(m_process), ProcessFacts::descriptors(m_process)});
    return m_samples.last();
}

QList<qint64> ProcessWatch::between(qint64 first, qint64 last, Field field) const
{
    QList<qint64> values;
    for (const Sample &sample : m_samples) {
        if (sample.msec >= first && sample.msec <= last)
            values.append(sample.*field);
    }
    return values;
}

qint64 ProcessWatch::median(QList<qint64> values)
{
    if (values.isEmpty())
        return 0;
    const auto middle = values.begin() + values.size() / 2;
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

qint64 ProcessWatch::rise(const QList<qint64> &values)
{
    const qsizetype third = values.size() / 3;
    return median(values.last(third)) - median(values.first(third));
}
