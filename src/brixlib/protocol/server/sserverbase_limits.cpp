// SPDX-License-Identifier: MIT
// The limits of a session, and its place in the connection guard.
#include <brixlib/protocol/server/sserverbase.h>

#include <brixlib/protocol/socket/socketpeer_p.h>

#include <brixlib/protocol/socket/stcpsocket.h>
#include <brixlib/protocol/wire.h>

#include <QtCore/QTimer>

#include <algorithm>

namespace Talverine {

namespace {

// While a command runs it cannot be ended, so the limits are looked at again this much later.
constexpr qint64 kRetryMs = 100;
constexpr qint64 kForever = -1;

} // namespace

void SServerBase::setLimits(const SServerLimits &limits)
{
    m_limits = limits;
}

SServerLimits SServerBase::limits() const
{
    return m_limits;
}

// The client has been greeted.
void SServerBase::startLimits()
{
    if (m_limits.keepAlive.count() > 0)
        setKeepAliveTime(socket()->socketDescriptor(),
                         static_cast<int>(m_limits.keepAlive.count()));
    setMinimumRate(m_limits.minimumRate);
    m_sinceCommand.start();
    setLoginDeadline();
    if (m_limits.loginTimeout.count() <= 0 && m_limits.idleTimeout.count() <= 0)
        return;
    m_limitTimer = new QTimer(this);
    m_limitTimer->setSingleShot(true);
    connect(m_limitTimer, &QTimer::timeout, this, &SServerBase::watchLimits);
    watchLimits();
}

void SServerBase::setLoginDeadline()
{
    if (m_limits.loginTimeout.count() <= 0)
        return;
    m_loginDeadline = QDeadlineTimer(m_limits.loginTimeout);
    setWaitDeadline(m_loginDeadline);
}

// The timer is not set anew with each command: that would cost more than a look at the clock here.
void SServerBase::watchLimits()
{
    const qint64 remaining = remainingMs();
    if (remaining == 0 && !isRunning())
        terminateLater();
    else if (remaining != kForever)
        m_limitTimer->start(static_cast<int>(std::clamp<qint64>(remaining, kRetryMs, 1 << 30)));
}

// Milliseconds until a limit ends the session.
qint64 SServerBase::remainingMs() const
{
    if (!m_loginDeadline.isForever())
        return m_loginDeadline.remainingTime();
    if (m_limits.idleTimeout.count() <= 0)
        return kForever;
    return std::max<qint64>(m_limits.idleTimeout.count() - m_sinceCommand.elapsed(), 0);
}

bool SServerBase::isIdleTooLong() const
{
    return m_limits.idleTimeout.count() > 0 &&
           m_sinceCommand.hasExpired(m_limits.idleTimeout.count());
}

void SServerBase::noteLogin(bool hasSucceeded)
{
    if (!hasSucceeded) {
        ++m_failedLogins;
        if (m_place)
            m_place->loginFailed();
        if (m_loginDeadline.isForever())
            setLoginDeadline();
        return;
    }
    m_failedLogins = 0;
    if (m_place)
        m_place->loginSucceeded();
    m_loginDeadline = QDeadlineTimer(QDeadlineTimer::Forever);
    setWaitDeadline(m_loginDeadline);
    // The time up to the limit may be shorter than what the timer was set to.
    if (m_limitTimer) {
        m_sinceCommand.start();
        watchLimits();
    }
}

bool SServerBase::hasExceededLogins() const
{
    return m_loginDeadline.hasExpired() ||
           (m_limits.failedLogins > 0 && m_failedLogins >= m_limits.failedLogins);
}

quint32 SServerBase::bodyLimit() const
{
    const bool isStranger = authenticationStatus() != AuthenticationStatus::Authenticated;
    if (!isStranger || m_limits.loginBodyBytes <= 0)
        return Wire::kBodyLimitBytes;
    return std::min(static_cast<quint32>(m_limits.loginBodyBytes), Wire::kBodyLimitBytes);
}

bool SServerBase::holdListing(qint64 bytes)
{
    const int waitMs = timeout() < 0 ? 0 : timeout() / 2;
    return !m_place || m_place->holdListing(bytes, std::chrono::milliseconds(waitMs));
}

} // namespace Talverine
