// SPDX-License-Identifier: MIT
#include <brixlib/protocol/server/sconnectionguard.h>

#include "connectionbook_p.h"
#include "systemreserve_p.h"

#include <utility>

namespace Talverine {

namespace {

// Below this the heap uses the memory again soon, and a release costs more than it returns.
constexpr qint64 kReleasedBytes = 1 << 20;

} // namespace

SConnectionGuard::Place::Place(std::shared_ptr<ConnectionBook> book, const QHostAddress &address,
                               std::chrono::milliseconds delay)
    : m_book(std::move(book))
    , m_address(address)
    , m_delay(delay)
{
}

SConnectionGuard::Place::~Place()
{
    releaseListing();
    m_book->leave(m_address, m_isPending, m_delay.count() > 0);
}

void SConnectionGuard::Place::greeted()
{
    if (std::exchange(m_delay, std::chrono::milliseconds(0)).count() > 0)
        m_book->endDelay(m_address);
}

void SConnectionGuard::Place::loginSucceeded()
{
    m_book->loginSucceeded(m_address, std::exchange(m_isPending, false));
}

void SConnectionGuard::Place::loginFailed()
{
    m_book->loginFailed(m_address);
}

bool SConnectionGuard::Place::holdListing(qint64 bytes, std::chrono::milliseconds patience)
{
    if (bytes <= m_listingBytes)
        return true;
    if (!m_book->growListing(m_listingBytes, bytes - m_listingBytes, patience))
        return false;
    m_listingBytes = bytes;
    return true;
}

void SConnectionGuard::Place::releaseListing()
{
    const qint64 bytes = std::exchange(m_listingBytes, 0);
    if (bytes == 0)
        return;
    m_book->shrinkListing(bytes);
    if (bytes >= kReleasedBytes)
        SystemReserve::releaseFreeMemory();
}

SConnectionGuard::SConnectionGuard(const Limits &limits)
    : m_book(std::make_shared<ConnectionBook>(limits))
{
}

SConnectionGuard::~SConnectionGuard() = default;

SConnectionGuard::Limits SConnectionGuard::limits() const
{
    return m_book->limits;
}

std::unique_ptr<SConnectionGuard::Place> SConnectionGuard::admit(const QHostAddress &address)
{
    const QHostAddress key = ConnectionBook::keyOf(address);
    const auto delay = m_book->enter(key);
    if (!delay)
        return nullptr;
    return std::unique_ptr<Place>(new Place(m_book, key, *delay));
}

int SConnectionGuard::connections() const
{
    return m_book->connections();
}

int SConnectionGuard::connections(const QHostAddress &address) const
{
    const QHostAddress key = ConnectionBook::keyOf(address);
    return m_book->connections(&key);
}

int SConnectionGuard::pendingLogins() const
{
    return m_book->pendingLogins();
}

int SConnectionGuard::failures(const QHostAddress &address) const
{
    return m_book->failures(ConnectionBook::keyOf(address));
}

qint64 SConnectionGuard::listingBytes() const
{
    return m_book->listingBytes();
}

} // namespace Talverine
