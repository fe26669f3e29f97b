// SPDX-License-Identifier: MIT
#include "connectionbook_p.h"

#include <QtCore/QDeadlineTimer>

#include <algorithm>
#include <vector>

namespace Talverine {

namespace {

// Addresses whose failures are kept; with more of them the oldest failures are forgotten first.
constexpr qsizetype kKeptAddresses = 16384;
// A shift by more would overflow.
constexpr int kMostDoublings = 20;

bool isReached(int count, int limit)
{
    return limit > 0 && count >= limit;
}

} // namespace

ConnectionBook::ConnectionBook(const SConnectionGuard::Limits &chosen)
    : limits(chosen)
{
}

QHostAddress ConnectionBook::keyOf(const QHostAddress &address)
{
    bool isIPv4 = false;
    const quint32 ipv4 = address.toIPv4Address(&isIPv4);
    if (isIPv4)
        return QHostAddress(ipv4);
    if (address.protocol() != QAbstractSocket::IPv6Protocol)
        return address;
    Q_IPV6ADDR network = address.toIPv6Address();
    std::fill(std::begin(network.c) + 8, std::end(network.c), quint8(0));
    return QHostAddress(network);
}

std::optional<ConnectionBook::Msec> ConnectionBook::enter(const QHostAddress &address)
{
    const QMutexLocker lock(&m_mutex);
    const auto now = Clock::now();
    Entry entry = m_entries.value(address);
    if (isForgotten(entry, now))
        entry.failures = 0;
    const Msec delay = delayOf(entry, now);
    if (!hasRoom(entry, delay))
        return std::nullopt;
    ++entry.connections;
    ++entry.pending;
    entry.delayed += delay.count() > 0 ? 1 : 0;
    m_entries.insert(address, entry);
    ++m_connections;
    ++m_pending;
    return delay;
}

bool ConnectionBook::hasRoom(const Entry &entry, Msec delay) const
{
    return !isReached(entry.connections, limits.perAddress) &&
           !isReached(m_pending, limits.pendingLogins) &&
           !isReached(entry.pending, limits.pendingLoginsPerAddress) &&
           !(delay.count() > 0 && isReached(entry.delayed, limits.delayedPerAddress)) &&
           !(delay.count() == 0 && isSuspect(entry) &&
             isReached(entry.pending - entry.delayed, limits.delayedPerAddress));
}

// Until those that were greeted have failed, the time of the next greeting is not known: without a
// limit a guesser would have many greeted at once.
bool ConnectionBook::isSuspect(const Entry &entry) const
{
    return entry.failures > 0 && limits.firstDelay.count() > 0;
}

// The time counts from the last failure, so that a user who has waited is greeted at once.
ConnectionBook::Msec ConnectionBook::delayOf(const Entry &entry, Clock::time_point now) const
{
    if (entry.failures == 0 || limits.firstDelay.count() <= 0)
        return Msec(0);
    const int doublings = std::min(entry.failures - 1, kMostDoublings);
    const Msec doubled(limits.firstDelay.count() * (1LL << doublings));
    const Msec whole = std::min(doubled, limits.longestDelay);
    const auto passed = std::chrono::duration_cast<Msec>(now - entry.lastFailure);
    return std::max(whole - passed, Msec(0));
}

bool ConnectionBook::isForgotten(const Entry &entry, Clock::time_point now) const
{
    return entry.failures > 0 && now - entry.lastFailure >= limits.forgetAfter;
}

void ConnectionBook::leave(const QHostAddress &address, bool isPending, bool isDelayed)
{
    const QMutexLocker lock(&m_mutex);
    Entry &entry = m_entries[address];
    --entry.connections;
    --m_connections;
    entry.delayed -= isDelayed ? 1 : 0;
    if (isPending) {
        --entry.pending;
        --m_pending;
    }
    forgetIfUnused(address);
}

void ConnectionBook::forgetIfUnused(const QHostAddress &address)
{
    const auto it = m_entries.constFind(address);
    if (it != m_entries.cend() && it->connections == 0 &&
        (it->failures == 0 || isForgotten(*it, Clock::now())))
        m_entries.erase(it);
}

void ConnectionBook::endDelay(const QHostAddress &address)
{
    const QMutexLocker lock(&m_mutex);
    --m_entries[address].delayed;
}

void ConnectionBook::loginSucceeded(const QHostAddress &address, bool wasPending)
{
    const QMutexLocker lock(&m_mutex);
    Entry &entry = m_entries[address];
    entry.failures = 0;
    if (wasPending) {
        --entry.pending;
        --m_pending;
    }
}

void ConnectionBook::loginFailed(const QHostAddress &address)
{
    if (limits.firstDelay.count() <= 0)
        return;
    const QMutexLocker lock(&m_mutex);
    const auto now = Clock::now();
    makeRoomForFailures(now);
    Entry &entry = m_entries[address];
    entry.failures = isForgotten(entry, now) ? 1 : std::min(entry.failures + 1, kMostDoublings);
    entry.lastFailure = now;
}

// An attacker may have more addresses than this end has memory. Half of them leave at once, so that
// the search is seldom.
void ConnectionBook::makeRoomForFailures(Clock::time_point now)
{
    if (m_entries.size() < kKeptAddresses)
        return;
    std::vector<Clock::time_point> ages;
    for (const Entry &entry : std::as_const(m_entries)) {
        if (entry.connections == 0)
            ages.push_back(entry.lastFailure);
    }
    if (ages.empty())
        return;
    const auto middle = ages.begin() + static_cast<std::ptrdiff_t>(ages.size() / 2);
    std::nth_element(ages.begin(), middle, ages.end());
    m_entries.removeIf([&](const auto &item) {
        return item.value().connections == 0 &&
               (item.value().lastFailure <= *middle || isForgotten(item.value(), now));
    });
}

bool ConnectionBook::growListing(qint64 held, qint64 by, Msec patience)
{
    const QMutexLocker lock(&m_mutex);
    const QDeadlineTimer deadline(patience);
    while (limits.listingBytes > 0 && m_listingBytes + by > limits.listingBytes) {
        // More than all others together could release.
        if (held + by > limits.listingBytes || !m_listingShrunk.wait(&m_mutex, deadline))
            return false;
    }
    m_listingBytes += by;
    return true;
}

void ConnectionBook::shrinkListing(qint64 by)
{
    const QMutexLocker lock(&m_mutex);
    m_listingBytes -= by;
    m_listingShrunk.wakeAll();
}

int ConnectionBook::connections(const QHostAddress *address)
{
    const QMutexLocker lock(&m_mutex);
    return address ? m_entries.value(*address).connections : m_connections;
}

int ConnectionBook::pendingLogins()
{
    const QMutexLocker lock(&m_mutex);
    return m_pending;
}

int ConnectionBook::failures(const QHostAddress &address)
{
    const QMutexLocker lock(&m_mutex);
    const Entry entry = m_entries.value(address);
    return isForgotten(entry, Clock::now()) ? 0 : entry.failures;
}

qint64 ConnectionBook::listingBytes()
{
    const QMutexLocker lock(&m_mutex);
    return m_listingBytes;
}

} // namespace Talverine
