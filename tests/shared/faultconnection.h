// SPDX-License-Identifier: MIT
#pragma once

#include <shared/descriptor.h>
#include <shared/faultflow.h>

#include <optional>

struct pollfd;

/*!
 * A client and a server that do not know of what stands between them. The owner polls for what
 * prepare() asks for and hands the outcome to advance(), until isOver().
 *
 * Lives in one thread; nothing blocks.
 */
class FaultConnection final
{
public:
    using Time = FaultFlow::Time;

    //! \a server may still be on its way to be connected. Both do not block.
    FaultConnection(Descriptor client, Descriptor server, const ConnectionPlan &plan, Time now);

    //! Says in \a entries, one each of the client and the server, what is to be waited for.
    void prepare(pollfd *entries, Time now) const;
    //! Takes, gives and ends what can be, by what came of the wait.
    void advance(const pollfd *entries, Time now);
    //! When advance() is to be called although nothing has happened.
    std::optional<Time> nextTime(Time now) const;

    //! Breaks the connection off at both ends.
    void reset();
    bool isOver() const { return !m_client.isOpen() && !m_server.isOpen(); }

    qint64 toServer() const { return m_up.flow.passed(); }
    qint64 toClient() const { return m_down.flow.passed(); }
    //! Whether a fault of the plan has happened.
    bool hadFault() const { return m_up.faultDone || m_down.faultDone; }

private:
    struct Direction
    {
        FaultFlow flow;
        FlowFault fault;
        Descriptor &from;
        Descriptor &to;
        bool sourceEnded = false; // no more comes
        bool targetEnded = false; // the receiver has been told so; what still comes is dropped
        bool blocked = false;     // the receiver takes no more at the moment
        bool faultDone = false;

        bool wantsToRead(Time now) const
        {
            return !sourceEnded && (targetEnded || flow.room(now) > 0);
        }
    };

    bool finishConnecting(const pollfd &entry);
    bool receive(Direction &direction, Time now);
    bool give(Direction &direction, Time now);
    void applyFault(Direction &direction);
    void endTarget(Direction &direction);
    void prepareEnd(pollfd *entry, const Direction &from, const Direction &to, Time now) const;

    Descriptor m_client;
    Descriptor m_server;
    Direction m_up;
    Direction m_down;
    bool m_isConnected = false;
};
