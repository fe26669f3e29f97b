// SPDX-License-Identifier: MIT
#include <shared/faultflow.h>

#include <algorithm>

namespace {

// A limited flow sends in pieces of a fiftieth of a second, which is smooth enough.
constexpr qint64 kPacketsPerSecond = 50;

} // namespace

FaultFlow::FaultFlow(const FlowPlan &plan, Time now)
    : m_plan(plan)
    , m_nextPacket(now)
    , m_paidUntil(now)
{
    noteStall(now);
}

qint64 FaultFlow::room(Time now) const
{
    const qint64 room = kBufferBytes - (m_taken - m_passed);
    if (m_plan.faultAt < 0 || (isAtFault() && m_plan.fault == FlowFault::Stall && !isStalled(now)))
        return room;
    return std::clamp<qint64>(m_plan.faultAt - m_taken, 0, room);
}

void FaultFlow::take(QByteArrayView bytes, Time now)
{
    if (bytes.isEmpty())
        return;
    if (isEmpty() && m_plan.joinWindow.count() > 0)
        m_nextPacket = std::max(m_nextPacket, now + m_plan.joinWindow);
    // Nothing is left of what was there, or so much of it has gone that the rest is moved cheaply.
    if (m_offset == m_bytes.size() || m_offset > kBufferBytes) {
        m_bytes.remove(0, m_offset);
        m_offset = 0;
    }
    m_bytes.append(bytes.data(), bytes.size());
    const qint64 flip = m_plan.flipAt - m_taken;
    if (flip >= 0 && flip < bytes.size()) {
        char &byte = m_bytes[m_bytes.size() - bytes.size() + flip];
        byte = static_cast<char>(static_cast<quint8>(byte) ^ m_plan.flipBits);
    }
    m_taken += bytes.size();
    m_arrivals.push_back({m_taken, now + m_plan.delay});
}

qint64 FaultFlow::dueBytes(Time now) const
{
    qint64 due = 0;
    for (const Arrival &arrival : m_arrivals) {
        if (arrival.due > now)
            break;
        due = arrival.end - m_passed;
    }
    return due;
}

QByteArrayView FaultFlow::packet(Time now) const
{
    if (m_nextPacket > now || isStalled(now))
        return {};
    qint64 size = dueBytes(now);
    if (m_plan.packetBytes > 0)
        size = std::min(size, m_plan.packetBytes);
    if (m_plan.bytesPerSecond > 0)
        size = std::min(size, limitedPacketBytes());
    return QByteArrayView(m_bytes).sliced(m_offset, size);
}

void FaultFlow::leave(qint64 count, Time now)
{
    if (count < 1)
        return;
    m_offset += count;
    m_passed += count;
    while (!m_arrivals.empty() && m_arrivals.front().end <= m_passed)
        m_arrivals.pop_front();

    m_nextPacket = now + m_plan.packetPause;
    if (m_plan.bytesPerSecond > 0) {
        // Who comes late may make up for one packet.
        m_paidUntil = std::max(m_paidUntil, now - timeAtLimit(limitedPacketBytes()));
        m_paidUntil += timeAtLimit(count);
        m_nextPacket = std::max(m_nextPacket, m_paidUntil);
    }
    noteStall(now);
}

qint64 FaultFlow::limitedPacketBytes() const
{
    return std::max<qint64>(m_plan.bytesPerSecond / kPacketsPerSecond, 1);
}

FaultFlow::Time::duration FaultFlow::timeAtLimit(qint64 bytes) const
{
    const std::chrono::duration<double> seconds(double(bytes) / double(m_plan.bytesPerSecond));
    return std::chrono::duration_cast<Time::duration>(seconds);
}

void FaultFlow::noteStall(Time now)
{
    if (isAtFault() && !m_stallEnd && m_plan.stallTime.count() > 0)
        m_stallEnd = now + m_plan.stallTime;
}

bool FaultFlow::isStalled(Time now) const
{
    if (!isAtFault() || m_plan.fault != FlowFault::Stall)
        return false;
    return !m_stallEnd || *m_stallEnd > now;
}

std::optional<FaultFlow::Time> FaultFlow::nextTime(Time now) const
{
    if (isStalled(now))
        return m_stallEnd;
    if (isEmpty())
        return std::nullopt;
    return std::max(m_nextPacket, m_arrivals.front().due);
}
