// SPDX-License-Identifier: MIT
// Two ways to do the same, in turns, slice by slice, so that what else the machine does meets both.
#pragma once

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <vector>

namespace TimedPairs {

inline double now(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

using Work = std::function<void()>;

// What two ways to do the same have taken, slice by slice.
class Pairs
{
public:
    explicit Pairs(clockid_t clock)
        : m_clock(clock)
    {
    }

    //! One slice, done by both.
    void add(const Work &measured, const Work &base)
    {
        // Whoever comes second finds the caches warm.
        const bool baseFirst = m_ratios.size() % 2 == 0;
        double times[2];
        for (const bool isBase : {baseFirst, !baseFirst}) {
            const double start = now(m_clock);
            isBase ? base() : measured();
            times[isBase] = now(m_clock) - start;
        }
        m_measured += times[0];
        m_base += times[1];
        m_ratios.push_back(times[1] / times[0]);
    }

    //! A row: both rates, and the median of the slices' ratios with its outer tenths.
    void print(const char *codec, const char *kind, const char *way, double bytes)
    {
        std::sort(m_ratios.begin(), m_ratios.end());
        const double mib = bytes / (1024.0 * 1024.0);
        std::printf("%-13s %-7s %-34s %8.1f %8.1f MiB/s   ratio %.3f  (%.3f to %.3f)\n", codec,
                    kind, way, mib / m_measured, mib / m_base, m_ratios[m_ratios.size() / 2],
                    m_ratios[m_ratios.size() / 10], m_ratios[m_ratios.size() * 9 / 10]);
        std::fflush(stdout);
    }

private:
    clockid_t m_clock;
    double m_measured = 0;
    double m_base = 0;
    std::vector<double> m_ratios;
};

} // namespace TimedPairs
