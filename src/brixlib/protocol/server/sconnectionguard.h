// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <QtCore/QtGlobal>
#include <QtNetwork/QHostAddress>

#include <chrono>
#include <memory>

namespace Talverine {

class ConnectionBook;

/*!
 * What all connections of a server share: how many there are of each address, how many have not
 * logged in yet, which addresses have failed to log in, and how much memory listings take.
 *
 *     SConnectionGuard::Limits limits;
 *     limits.perAddress = 20;
 *     limits.firstDelay = std::chrono::seconds(1);
 *     controller.setConnectionGuard(std::make_shared<SConnectionGuard>(limits));
 *
 * The controller asks the guard before it makes a session. One guard may serve several controllers.
 * The addresses of an IPv6 network of 64 bits count as one, an IPv4 address in an IPv6 form counts
 * as the IPv4 address.
 *
 * Thread: fully shared.
 */
class BRIXLIB_EXPORT SConnectionGuard
{
public:
    //! 0 in a field, the default, means no limit, and no delay.
    struct Limits
    {
        //! Connections of one address.
        int perAddress = 0;
        //! Connections that have not logged in, of all addresses and of one.
        int pendingLogins = 0;
        int pendingLoginsPerAddress = 0;
        /*!
         * How long after a failed login a further connection of the address is greeted. The time
         * doubles with each further failure up to longestDelay. A successful login of the address
         * clears its failures, and so does forgetAfter without a failure.
         */
        std::chrono::milliseconds firstDelay{0};
        std::chrono::milliseconds longestDelay{std::chrono::minutes(1)};
        std::chrono::milliseconds forgetAfter{std::chrono::minutes(10)};
        //! Connections of one address that may wait for such a greeting, and that may use it.
        int delayedPerAddress = 4;
        //! Bytes that the replies to all listings may take together.
        qint64 listingBytes = 0;

        bool operator==(const Limits &other) const = default;
    };

    /*!
     * One connection's place in the counts, from admit() until it is destroyed. It keeps what it
     * needs of the guard alive.
     *
     * Thread: used in one thread at a time.
     */
    class BRIXLIB_EXPORT Place
    {
    public:
        ~Place();
        Q_DISABLE_COPY_MOVE(Place)

        //! How long the greeting has to wait.
        std::chrono::milliseconds delay() const { return m_delay; }
        //! The greeting is sent: the connection no longer counts as delayed.
        void greeted();
        //! The connection no longer counts as pending, and the failures of its address are cleared.
        void loginSucceeded();
        //! Counts a failure of its address.
        void loginFailed();

        /*!
         * Takes memory of listings until the place holds \a bytes. Waits up to \a patience for
         * other listings to end. False leaves what the place holds unchanged.
         */
        [[nodiscard]] bool holdListing(qint64 bytes, std::chrono::milliseconds patience);
        //! Gives back all memory of listings that the place holds.
        void releaseListing();

    private:
        friend class SConnectionGuard;
        Place(std::shared_ptr<ConnectionBook> book, const QHostAddress &address,
              std::chrono::milliseconds delay);

        std::shared_ptr<ConnectionBook> m_book;
        QHostAddress m_address;
        std::chrono::milliseconds m_delay;
        qint64 m_listingBytes = 0;
        bool m_isPending = true;
    };

    explicit SConnectionGuard(const Limits &limits);
    ~SConnectionGuard();
    Q_DISABLE_COPY_MOVE(SConnectionGuard)

    Limits limits() const;

    //! A place for a connection of \a address, or null when a limit refuses the connection.
    [[nodiscard]] std::unique_ptr<Place> admit(const QHostAddress &address);

    //! Connections of all addresses, and of one.
    int connections() const;
    int connections(const QHostAddress &address) const;
    //! Connections that have not logged in.
    int pendingLogins() const;
    //! Failed logins of an address that count.
    int failures(const QHostAddress &address) const;
    //! Memory in bytes that listings hold.
    qint64 listingBytes() const;

private:
    const std::shared_ptr<ConnectionBook> m_book;
};

} // namespace Talverine
