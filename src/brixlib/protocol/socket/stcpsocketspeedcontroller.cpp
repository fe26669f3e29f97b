// SPDX-License-Identifier: MIT
#include <brixlib/protocol/socket/stcpsocketspeedcontroller.h>

#include <brixlib/protocol/socket/stcpsocket.h>

#include "speedregulator_p.h"
#include "stcpsocketthrottle_p.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QHash>
#include <QtCore/QMutex>
#include <QtCore/QTimer>

#include <array>
#include <chrono>

namespace Talverine {

namespace {

using namespace std::chrono_literals;

constexpr auto kTimerInterval = 100ms;
constexpr qint64 kSilenceMsec = 3000;

using Throttle = std::shared_ptr<STcpSocketThrottle>;

//! What a socket has reported lately.
struct Record
{
    qint64 incoming = 0;
    qint64 outgoing = 0;
    QElapsedTimer lastReport; // invalid until there is one

    // An invalid timer would not answer "long ago" by itself.
    bool isActive() const
    {
        return lastReport.isValid() && !lastReport.hasExpired(kSilenceMsec - 1);
    }
};

/*!
 * An added socket. Limits reach it through its throttles, which stay alive as long as they are
 * referred to, so that the socket may die in its own thread while limits are given out in another.
 */
struct Member
{
    Throttle incoming;
    Throttle outgoing;
    std::array<QMetaObject::Connection, 3> connections;
};

struct Shares
{
    int active = 0;
    qint64 incomingSum = 0;
    qint64 outgoingSum = 0;
    qint64 incomingGrant = 0;
    qint64 outgoingGrant = 0;
};

} // namespace

struct STcpSocketSpeedController::Private
{
    Shares shareOut();
    void store(STcpSocket *socket, const Throttle &identity, qint64 Record::*speed, qint64 value);
    void setLimit(Throttle Member::*direction, qint64 bytesPerSecond);
    bool isMember(STcpSocket *socket, const Throttle &identity) const;
    bool forget(STcpSocket *socket, const Throttle &identity);

    mutable QMutex mutex; // guards all that follows; no signal is emitted while it is held
    qint64 incomingSpeed = 0;
    qint64 outgoingSpeed = 0;
    SpeedRegulator incomingRegulator;
    SpeedRegulator outgoingRegulator;
    bool fixedThrottle = false;
    // The sockets are keys only: they are not looked at, since they may be gone.
    QHash<STcpSocket *, Member> members;
    QHash<STcpSocket *, Record> records; // of those that take part
};

Shares STcpSocketSpeedController::Private::shareOut()
{
    const QMutexLocker lock(&mutex);
    Shares shares;
    records.removeIf([](const auto &entry) { return !entry.value().isActive(); });
    for (const Record &record : std::as_const(records)) {
        shares.incomingSum = Saturated::sum(shares.incomingSum, record.incoming);
        shares.outgoingSum = Saturated::sum(shares.outgoingSum, record.outgoing);
    }
    shares.active = static_cast<int>(records.size());

    if (shares.active == 0) {
        incomingRegulator.reset();
        outgoingRegulator.reset();
    } else if (fixedThrottle) {
        shares.incomingGrant = incomingSpeed / shares.active;
        shares.outgoingGrant = outgoingSpeed / shares.active;
    } else {
        shares.incomingGrant =
            incomingRegulator.grant(incomingSpeed, shares.incomingSum, shares.active);
        shares.outgoingGrant =
            outgoingRegulator.grant(outgoingSpeed, shares.outgoingSum, shares.active);
    }
    return shares;
}

// Reports are queued, so one may arrive after its socket was removed, or after another socket was
// made at the same address.
void STcpSocketSpeedController::Private::store(STcpSocket *socket, const Throttle &identity,
                                               qint64 Record::*speed, qint64 value)
{
    const QMutexLocker lock(&mutex);
    if (!isMember(socket, identity))
        return;
    Record &record = records[socket];
    record.*speed = value;
    record.lastReport.start();
}

void STcpSocketSpeedController::Private::setLimit(Throttle Member::*direction,
                                                  qint64 bytesPerSecond)
{
    const QMutexLocker lock(&mutex);
    for (const Member &member : std::as_const(members))
        (member.*direction)->setLimit(bytesPerSecond);
}

bool STcpSocketSpeedController::Private::isMember(STcpSocket *socket,
                                                  const Throttle &identity) const
{
    const auto member = members.constFind(socket);
    return member != members.cend() && member->incoming == identity;
}

bool STcpSocketSpeedController::Private::forget(STcpSocket *socket, const Throttle &identity)
{
    const QMutexLocker lock(&mutex);
    if (!isMember(socket, identity))
        return false;
    records.remove(socket);
    return members.remove(socket);
}

STcpSocketSpeedController::STcpSocketSpeedController(QObject *parent)
    : QObject(parent)
    , d(std::make_unique<Private>())
{
    const auto limitIncoming = [this](qint64 v) { d->setLimit(&Member::incoming, v); };
    const auto limitOutgoing = [this](qint64 v) { d->setLimit(&Member::outgoing, v); };
    connect(this, &STcpSocketSpeedController::socketIncomingSpeed, this, limitIncoming,
            Qt::DirectConnection);
    connect(this, &STcpSocketSpeedController::socketOutcomingSpeed, this, limitOutgoing,
            Qt::DirectConnection);

    // A child, so that it moves along to another thread.
    auto *timer = new QTimer(this);
    connect(timer, &QTimer::timeout, this, &STcpSocketSpeedController::onTimeout);
    timer->start(kTimerInterval);
}

STcpSocketSpeedController::~STcpSocketSpeedController() = default;

void STcpSocketSpeedController::add(STcpSocket *socket)
{
    if (!socket)
        return;
    const Throttle identity = socket->m_incoming;
    bool replacesDeadOne = false;
    {
        const QMutexLocker lock(&d->mutex);
        d->records.insert(socket, Record());
        if (d->isMember(socket, identity))
            return;
        replacesDeadOne = d->members.contains(socket);
        Member &member = d->members[socket];
        member = {identity, socket->m_outgoing, {}};

        const auto storeIncoming = [this, socket, identity](qint64 speed) {
            d->store(socket, identity, &Record::incoming, speed);
        };
        const auto storeOutgoing = [this, socket, identity](qint64 speed) {
            d->store(socket, identity, &Record::outgoing, speed);
        };
        const auto forget = [this, socket, identity] {
            if (d->forget(socket, identity))
                Q_EMIT socketRemoved();
        };
        member.connections = {
            connect(socket, &STcpSocket::connectionIncomingSpeed, this, storeIncoming),
            connect(socket, &STcpSocket::connectionOutcomingSpeed, this, storeOutgoing),
            connect(socket, &QObject::destroyed, this, forget),
        };
    }
    if (replacesDeadOne)
        Q_EMIT socketRemoved();
    Q_EMIT socketAdded();
}

void STcpSocketSpeedController::remove(STcpSocket *socket)
{
    Member member;
    {
        const QMutexLocker lock(&d->mutex);
        if (!d->members.contains(socket))
            return;
        member = d->members.take(socket);
        d->records.remove(socket);
    }
    for (const QMetaObject::Connection &connection : std::as_const(member.connections))
        QObject::disconnect(connection);
    Q_EMIT socketRemoved();
}

qint64 STcpSocketSpeedController::incomingSpeed() const
{
    const QMutexLocker lock(&d->mutex);
    return d->incomingSpeed;
}

void STcpSocketSpeedController::setIncomingSpeed(qint64 bytesPerSecond)
{
    const QMutexLocker lock(&d->mutex);
    d->incomingSpeed = bytesPerSecond;
}

qint64 STcpSocketSpeedController::outcomingSpeed() const
{
    const QMutexLocker lock(&d->mutex);
    return d->outgoingSpeed;
}

void STcpSocketSpeedController::setOutcomingSpeed(qint64 bytesPerSecond)
{
    const QMutexLocker lock(&d->mutex);
    d->outgoingSpeed = bytesPerSecond;
}

bool STcpSocketSpeedController::isFixedThrottleEnabled() const
{
    const QMutexLocker lock(&d->mutex);
    return d->fixedThrottle;
}

void STcpSocketSpeedController::setFixedThrottle(bool fixed)
{
    const QMutexLocker lock(&d->mutex);
    d->fixedThrottle = fixed;
}

void STcpSocketSpeedController::onTimeout()
{
    const Shares shares = d->shareOut();
    Q_EMIT currentIncomingSpeed(shares.incomingSum);
    Q_EMIT currentOutcomingSpeed(shares.outgoingSum);
    if (shares.active == 0)
        return;
    Q_EMIT socketIncomingSpeed(shares.incomingGrant);
    Q_EMIT socketOutcomingSpeed(shares.outgoingGrant);
}

} // namespace Talverine

#include "moc_stcpsocketspeedcontroller.cpp"
