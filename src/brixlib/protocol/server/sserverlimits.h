// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

#include <chrono>

namespace Talverine {

/*!
 * What a server session allows its client, beyond what the protocol itself bounds. A value class;
 * 0 in a field, the default, means no limit.
 *
 *     SServerLimits limits;
 *     limits.loginTimeout = std::chrono::seconds(30);
 *     session->setLimits(limits);
 *
 * A client that keeps within the limits sees the same bytes as without them. A client that exceeds
 * one loses the connection.
 */
struct SServerLimits
{
    //! Time from the greeting to a successful login. It starts anew when a further login fails and
    //! so logs the user out.
    std::chrono::milliseconds loginTimeout{0};
    //! Time without a command, or without a request to a remote device. Before a login it counts
    //! only without a loginTimeout.
    std::chrono::milliseconds idleTimeout{0};
    //! Silence after which the system probes the peer; it is given up after as long again. 0 leaves
    //! the times of the system, which are mostly two hours.
    std::chrono::seconds keepAlive{0};
    //! Bytes per second at which the body of a frame must arrive, and a reply must be taken. The
    //! session's timeout() is granted in addition.
    qint64 minimumRate = 0;
    //! Largest body of a command in bytes while no user is logged in.
    int loginBodyBytes = 0;
    //! Failed logins after which the session ends.
    int failedLogins = 0;

    bool operator==(const SServerLimits &other) const = default;
};

} // namespace Talverine
