// SPDX-License-Identifier: MIT
#include <shared/faultconnection.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include <poll.h>

namespace {

constexpr qint64 kPieceBytes = 64 * 1024;

// The thread's own, since one read after the other uses it.
char *scratch()
{
    thread_local std::array<char, kPieceBytes> buffer;
    return buffer.data();
}

bool isBusy()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

} // namespace

FaultConnection::FaultConnection(Descriptor client, Descriptor server, const ConnectionPlan &plan,
                                 Time now)
    : m_client(std::move(client))
    , m_server(std::move(server))
    , m_up{FaultFlow(plan.toServer, now), plan.toServer.fault, m_client, m_server}
    , m_down{FaultFlow(plan.toClient, now), plan.toClient.fault, m_server, m_client}
{
}

void FaultConnection::prepare(pollfd *entries, Time now) const
{
    entries[0] = {-1, 0, 0};
    entries[1] = {-1, 0, 0};
    if (!m_isConnected) {
        entries[1] = {m_server.value(), POLLOUT, 0};
        return;
    }
    prepareEnd(&entries[0], m_up, m_down, now);
    prepareEnd(&entries[1], m_down, m_up, now);
}

// An end that is waited for without cause would tell again and again that it has hung up. In a
// stall it is watched for just that.
void FaultConnection::prepareEnd(pollfd *entry, const Direction &from, const Direction &to,
                                 Time now) const
{
    short events = 0;
    if (from.wantsToRead(now))
        events |= POLLIN;
    if (to.blocked)
        events |= POLLOUT;
    if (events != 0 || from.flow.isStalled(now))
        *entry = {from.from.value(), events, 0};
}

void FaultConnection::advance(const pollfd *entries, Time now)
{
    if (!m_isConnected && !finishConnecting(entries[1]))
        return;
    // Hung up while stalled: no end can get through to the other any more.
    const auto isGone = [&](const Direction &from, const pollfd &entry) {
        return from.flow.isStalled(now) && (entry.revents & (POLLHUP | POLLERR));
    };
    if (isGone(m_up, entries[0]) || isGone(m_down, entries[1])) {
        reset();
        return;
    }
    for (Direction *direction : {&m_up, &m_down}) {
        if (!receive(*direction, now) || !give(*direction, now)) {
            reset();
            return;
        }
        if (direction->flow.isAtFault() && !direction->faultDone)
            applyFault(*direction);
        if (isOver())
            return;
    }
    if (m_up.sourceEnded && m_up.targetEnded && m_down.sourceEnded && m_down.targetEnded) {
        m_client.close();
        m_server.close();
    }
}

bool FaultConnection::finishConnecting(const pollfd &entry)
{
    if (entry.revents == 0)
        return false;
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(m_server.value(), SOL_SOCKET, SO_ERROR, &error, &size);
    if (error != 0)
        reset();
    m_isConnected = error == 0;
    return m_isConnected;
}

bool FaultConnection::receive(Direction &direction, Time now)
{
    if (!direction.wantsToRead(now))
        return true;
    const qint64 room = direction.targetEnded ? kPieceBytes : direction.flow.room(now);
    const ssize_t count = recv(direction.from.value(), scratch(),
                               static_cast<size_t>(std::min(room, kPieceBytes)), MSG_DONTWAIT);
    if (count < 0)
        return isBusy();
    if (count == 0)
        direction.sourceEnded = true;
    else if (!direction.targetEnded)
        direction.flow.take(QByteArrayView(scratch(), count), now);
    return true;
}

bool FaultConnection::give(Direction &direction, Time now)
{
    direction.blocked = false;
    if (direction.targetEnded)
        return true;
    for (QByteArrayView packet = direction.flow.packet(now); !packet.isEmpty();
         packet = direction.flow.packet(now)) {
        const ssize_t count = send(direction.to.value(), packet.data(),
                                   static_cast<size_t>(packet.size()), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0) {
            direction.blocked = isBusy();
            return direction.blocked;
        }
        direction.flow.leave(count, now);
    }
    if (direction.sourceEnded && direction.flow.isEmpty())
        endTarget(direction);
    return true;
}

void FaultConnection::applyFault(Direction &direction)
{
    direction.faultDone = true;
    switch (direction.fault) {
    case FlowFault::Reset:
        reset();
        break;
    case FlowFault::Close:
        endTarget(m_up);
        endTarget(m_down);
        break;
    case FlowFault::HalfClose:
        endTarget(direction);
        break;
    case FlowFault::Stall:
        break;
    }
}

void FaultConnection::endTarget(Direction &direction)
{
    direction.targetEnded = true;
    direction.blocked = false;
    shutdown(direction.to.value(), SHUT_WR);
}

std::optional<FaultConnection::Time> FaultConnection::nextTime(Time now) const
{
    std::optional<Time> next;
    for (const Direction *direction : {&m_up, &m_down}) {
        // Who waits for the receiver is told by the poll.
        if (!m_isConnected || direction->blocked || direction->targetEnded)
            continue;
        const auto time = direction->flow.nextTime(now);
        if (time && (!next || *time < *next))
            next = time;
    }
    return next;
}

void FaultConnection::reset()
{
    m_client.reset();
    m_server.reset();
}
