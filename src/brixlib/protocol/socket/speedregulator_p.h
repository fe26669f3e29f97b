// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/saturated_p.h>

#include <algorithm>

namespace Talverine {

/*!
 * Shares one speed limit among sockets by proportional and integral control: capacity that stays
 * unused builds up and raises each socket's share up to the whole limit; overload drives the share
 * down, but never below two thirds of a fair one. All speeds are in bytes per second.
 */
class SpeedRegulator
{
public:
    //! What each of \a sockets, at least 1, is granted when they go at \a sum together.
    qint64 grant(qint64 limit, qint64 sum, int sockets)
    {
        const qint64 spare = Saturated::difference(limit, sum);
        correct(spare, Saturated::product(qint64(10) * sockets, limit));
        const auto control = static_cast<qint64>(0.3 * static_cast<double>(m_correction) +
                                                 0.05 * static_cast<double>(spare));
        const qint64 share = control / sockets;
        const qint64 lowest = limit / (sockets + sockets / 2);
        if (share < lowest)
            return lowest;
        return std::min(share, limit);
    }

    //! The spare capacity built up so far.
    qint64 correction() const { return m_correction; }
    void reset() { m_correction = 0; }

private:
    void correct(qint64 spare, qint64 bound)
    {
        // A negative limit has a negative bound.
        const auto [low, high] = std::minmax({bound, Saturated::difference(0, bound)});
        m_correction = std::clamp(Saturated::sum(m_correction, spare), low, high);
    }

    qint64 m_correction = 0;
};

} // namespace Talverine
