// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <QtCore/QObject>

#include <memory>

namespace Talverine {

class STcpSocket;

/*!
 * Shares one pair of speed limits among many sockets.
 *
 * Every 100 ms it looks at what the sockets have reported and tells each how fast it may go. Only
 * sockets that have moved bytes within the last three seconds take part. With the fixed throttle
 * each gets an equal part of the limit; otherwise what some leave unused is granted to the others.
 *
 *     STcpSocketSpeedController controller;
 *     controller.setOutcomingSpeed(10 * 1024 * 1024);
 *     client->setSpeedController(&controller);
 *
 * Lives in a thread with an event loop, which is where its signals but for socketAdded() and
 * socketRemoved() are emitted. The other public functions may be called from any thread. A socket
 * may die at any time in its own thread, and counts as removed then.
 */
class BRIXLIB_EXPORT STcpSocketSpeedController : public QObject
{
    Q_OBJECT

public:
    explicit STcpSocketSpeedController(QObject *parent = nullptr);
    ~STcpSocketSpeedController() override;

    /*!
     * Lets \a socket take part from its next report on. It must not be dying during the call, and
     * stays its owner's. Null is ignored; one that is there already starts anew.
     */
    void add(STcpSocket *socket);
    //! Leaves \a socket, which is not looked at, with the limits that it has now.
    void remove(STcpSocket *socket);

    //! The limit of all sockets together in bytes per second; 0, the default, for none.
    qint64 incomingSpeed() const;
    void setIncomingSpeed(qint64 bytesPerSecond);
    //! The limit of all sockets together in bytes per second; 0, the default, for none.
    qint64 outcomingSpeed() const;
    void setOutcomingSpeed(qint64 bytesPerSecond);

    //! Whether each socket gets an equal part of the limit whatever the others use; default false.
    bool isFixedThrottleEnabled() const;
    void setFixedThrottle(bool fixed);

Q_SIGNALS:
    //! The limit that each added socket has just been set to.
    void socketIncomingSpeed(qint64 bytesPerSecond);
    //! The limit that each added socket has just been set to.
    void socketOutcomingSpeed(qint64 bytesPerSecond);
    //! In the thread that called add().
    void socketAdded();
    //! In the thread that called remove(), or the controller's own when the socket has died.
    void socketRemoved();
    //! What the sockets do together; every 100 ms.
    void currentIncomingSpeed(qint64 bytesPerSecond);
    //! What the sockets do together; every 100 ms.
    void currentOutcomingSpeed(qint64 bytesPerSecond);

private:
    struct Private;

    void onTimeout();

    std::unique_ptr<Private> d;
};

} // namespace Talverine
