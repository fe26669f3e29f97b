// SPDX-License-Identifier: MIT
#pragma once

#include <shared/faultplan.h>

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>

#include <chrono>
#include <deque>
#include <optional>

/*!
 * One direction of a connection under a plan: takes bytes in and tells which are to leave when. It
 * holds at most kBufferBytes, knows no sockets, and is told what time it is.
 *
 *     flow.take(bytes, now);
 *     const QByteArrayView packet = flow.packet(now);
 *     flow.leave(send(packet), now);
 *
 * Lives in one thread.
 */
class FaultFlow final
{
public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr qint64 kBufferBytes = 256 * 1024;

    //! The connection stands since \a now.
    FaultFlow(const FlowPlan &plan, Time now);

    //! How many bytes it takes in now; none beyond the fault, unless that is a stall that is over.
    qint64 room(Time now) const;
    //! Takes \a bytes, at most room(), that have come at \a now.
    void take(QByteArrayView bytes, Time now);

    //! What is to leave at \a now in one piece; empty when nothing is. Good until the next call.
    QByteArrayView packet(Time now) const;
    //! The first \a count bytes of packet() have left.
    void leave(qint64 count, Time now);

    //! When packet() or room() change without a call, if ever.
    std::optional<Time> nextTime(Time now) const;

    //! Bytes that have left.
    qint64 passed() const { return m_passed; }
    //! Whether nothing waits to leave.
    bool isEmpty() const { return m_arrivals.empty(); }
    //! Whether the byte of the fault has been reached.
    bool isAtFault() const { return m_plan.faultAt >= 0 && m_passed >= m_plan.faultAt; }
    //! Whether nothing leaves because of a stall.
    bool isStalled(Time now) const;

private:
    struct Arrival
    {
        qint64 end; // the number of bytes that had come with it
        Time due;
    };

    void noteStall(Time now);
    qint64 dueBytes(Time now) const;
    qint64 limitedPacketBytes() const;
    Time::duration timeAtLimit(qint64 bytes) const;

    FlowPlan m_plan;
    QByteArray m_bytes;
    qint64 m_offset = 0; // of the first byte that waits, in m_bytes
    qint64 m_taken = 0;
    qint64 m_passed = 0;
    std::deque<Arrival> m_arrivals;
    Time m_nextPacket;
    Time m_paidUntil; // what has left uses the speed limit up to here
    std::optional<Time> m_stallEnd;
};
