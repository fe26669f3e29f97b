// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/server/sconnectionguard.h>

#include <QtCore/QHash>
#include <QtCore/QMutex>
#include <QtCore/QWaitCondition>

#include <optional>

namespace Talverine {

/*!
 * The counts of a connection guard, shared with the places that it has given out.
 *
 * Thread: fully shared.
 */
class ConnectionBook
{
public:
    using Clock = std::chrono::steady_clock;
    using Msec = std::chrono::milliseconds;

    explicit ConnectionBook(const SConnectionGuard::Limits &limits);

    const SConnectionGuard::Limits limits;

    //! Enters a connection and returns the delay of its greeting, or nothing if it is refused.
    std::optional<Msec> enter(const QHostAddress &address);
    void leave(const QHostAddress &address, bool isPending, bool isDelayed);
    void endDelay(const QHostAddress &address);
    void loginSucceeded(const QHostAddress &address, bool wasPending);
    void loginFailed(const QHostAddress &address);

    //! \a held is what the caller holds already.
    bool growListing(qint64 held, qint64 by, Msec patience);
    void shrinkListing(qint64 by);

    int connections(const QHostAddress *address = nullptr);
    int pendingLogins();
    int failures(const QHostAddress &address);
    qint64 listingBytes();

    //! The address under which \a address counts.
    static QHostAddress keyOf(const QHostAddress &address);

private:
    struct Entry
    {
        int connections = 0;
        int pending = 0;
        int delayed = 0;
        int failures = 0;
        Clock::time_point lastFailure;
    };

    bool hasRoom(const Entry &entry, Msec delay) const;
    bool isSuspect(const Entry &entry) const;
    Msec delayOf(const Entry &entry, Clock::time_point now) const;
    bool isForgotten(const Entry &entry, Clock::time_point now) const;
    void forgetIfUnused(const QHostAddress &address);
    void makeRoomForFailures(Clock::time_point now);

    QMutex m_mutex;
    QWaitCondition m_listingShrunk;
    QHash<QHostAddress, Entry> m_entries;
    int m_connections = 0;
    int m_pending = 0;
    qint64 m_listingBytes = 0;
};

} // namespace Talverine
