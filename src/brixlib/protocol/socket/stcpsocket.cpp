// SPDX-License-Identifier: MIT
#include <brixlib/protocol/socket/stcpsocket.h>

#include "stcpsockethangup_p.h"
#include "stcpsocketthrottle_p.h"

#include <QtCore/QScopeGuard>
#include <QtCore/QScopedValueRollback>
#include <QtCore/QThread>

#include <limits>

namespace Talverine {

namespace {

constexpr qint64 kReportMsec = 100;
constexpr unsigned long kStepMsec = 1;
constexpr qint64 kUnlimited = std::numeric_limits<qint64>::max();

// A thread that was asked to stop is not held back: what it is about may end, and a stop does not
// last for as long as a low limit and a large block would make it.
qint64 allowanceOf(const STcpSocketThrottle &throttle)
{
    return QThread::currentThread()->isInterruptionRequested() ? kUnlimited : throttle.allowance();
}

} // namespace

STcpSocket::STcpSocket(QObject *parent)
    : QTcpSocket(parent)
    , m_incoming(std::make_shared<STcpSocketThrottle>())
    , m_outgoing(std::make_shared<STcpSocketThrottle>())
{
    connect(this, &QIODevice::channelReadyRead, this, &STcpSocket::onReadyRead);
    connect(this, &QIODevice::aboutToClose, this, &STcpSocket::onAboutToClose);
    connect(this, &QAbstractSocket::stateChanged, this, &STcpSocket::onStateChanged);
}

STcpSocket::~STcpSocket()
{
    // The base closes the connection when this part of the object is gone already.
    QObject::disconnect(this, nullptr, this, nullptr);
}

qint64 STcpSocket::bytesAvailable() const
{
    return QAbstractSocket::bytesAvailable();
}

qint64 STcpSocket::bytesToWrite() const
{
    return QAbstractSocket::bytesToWrite() + heldBack();
}

qint64 STcpSocket::incomingSpeed() const
{
    return m_incoming->limit();
}

qint64 STcpSocket::outcomingSpeed() const
{
    return m_outgoing->limit();
}

void STcpSocket::setIncomingSpeed(qint64 bytesPerSecond)
{
    m_incoming->setLimit(bytesPerSecond);
}

void STcpSocket::setOutcomingSpeed(qint64 bytesPerSecond)
{
    m_outgoing->setLimit(bytesPerSecond);
}

qint64 STcpSocket::writeData(const char *data, qint64 size)
{
    // After a peer has gone the buffer is not filled further: it would grow with every write.
    if (heldBack() > 0 && writeToSocket() < 0)
        return -1;
    return outcomingSpeed() == 0 ? writeThrough(data, size) : writeThrottled(data, size);
}

qint64 STcpSocket::writeThrough(const char *data, qint64 size)
{
    const qint64 written = QAbstractSocket::writeData(data, size);
    if (written > 0)
        countSent(written);
    return written;
}

qint64 STcpSocket::writeThrottled(const char *data, qint64 size)
{
    const qint64 taken = appendToBuffer(data, size);
    writeToSocket();
    return taken;
}

qint64 STcpSocket::writeToSocket()
{
    qint64 total = 0;
    while (heldBack() > 0) {
        const qint64 written = writeToSocket(-1);
        if (written < 0)
            return written;
        total += written;
    }
    return total;
}

qint64 STcpSocket::writeToSocket(qint64 size)
{
    if (size == 0 || heldBack() == 0)
        return 0;
    const qint64 allowance = waitToSend();
    if (allowance < 0)
        return -1;

    // Signals of the wait may have written, so what is left is known only now.
    const qint64 wanted = size < 0 ? heldBack() : qMin(size, heldBack());
    if (wanted == 0)
        return 0;
    const qint64 written = QAbstractSocket::writeData(m_writeBuffer.constData() + m_writeOffset,
                                                      qMin(wanted, allowance));
    if (written < 0)
        return written;
    m_outgoing->transferred(written);
    removeFromBuffer(written);
    handToSystem();
    emitOutcomingSpeedAfter(kReportMsec);
    return written;
}

qint64 STcpSocket::heldBack() const
{
    return m_writeBuffer.size() - m_writeOffset;
}

qint64 STcpSocket::appendToBuffer(const char *data, qint64 size)
{
    if (m_writeOffset > 0) {
        m_writeBuffer.remove(0, m_writeOffset);
        m_writeOffset = 0;
    }
    const qint64 room = std::numeric_limits<qint64>::max() - 1 - m_writeBuffer.size();
    const qint64 taken = qMin(size, room);
    m_writeBuffer.append(data, taken);
    return taken;
}

// An offset instead of a removal, which would move the rest of a large block for each small piece.
void STcpSocket::removeFromBuffer(qint64 size)
{
    m_writeOffset += size;
    if (heldBack() == 0)
        clearBuffer();
}

void STcpSocket::clearBuffer()
{
    m_writeBuffer.clear(); // not resize(), which would keep the room of the largest block
    m_writeOffset = 0;
}

// No events run while a write blocks, so the base would keep all data to its end.
void STcpSocket::handToSystem()
{
    if (state() == ConnectedState)
        flush();
}

// The bytes that may be sent now, or -1 when the peer has gone.
qint64 STcpSocket::waitToSend()
{
    for (;;) {
        const qint64 allowance = allowanceOf(*m_outgoing);
        if (allowance > 0)
            return allowance;
        QThread::msleep(kStepMsec);
        handToSystem();
        if (state() == ConnectedState && socketHangUp(socketDescriptor()) != SocketHangUp::None)
            takeNoteOfHangUp();
        if (state() != ConnectedState || m_hungUp)
            return -1;
    }
}

// The bytes that may count as received now, or -1 when the connection is lost. A peer that has only
// finished sending is still held to the limit with what it sent.
qint64 STcpSocket::waitToReceive()
{
    for (;;) {
        const qint64 allowance = allowanceOf(*m_incoming);
        if (allowance > 0)
            return allowance;
        QThread::msleep(kStepMsec);
        if (state() != ConnectedState || m_hungUp ||
            socketHangUp(socketDescriptor()) == SocketHangUp::Lost)
            return -1;
    }
}

// While events do not run, the base finds out that the peer has gone only when it reads up to the
// end. It does so here, since its callers go by the state; what the peer has sent stays readable.
void STcpSocket::takeNoteOfHangUp()
{
    // A slot that is called meanwhile may write and come back here.
    if (m_hungUp)
        return;
    const QScopedValueRollback<bool> hungUp(m_hungUp, true);
    // A bound on reading ahead would stop it short of the end. What is left is no more than the
    // system holds.
    const qint64 bound = readBufferSize();
    setReadBufferSize(0);
    const auto restore = qScopeGuard([this, bound] { setReadBufferSize(bound); });
    while (state() == ConnectedState && waitForReadyRead(0)) {
    }
    if (state() == ConnectedState)
        abort();
}

void STcpSocket::countSent(qint64 bytes)
{
    m_outgoing->transferred(bytes);
    emitOutcomingSpeedAfter(kReportMsec);
}

void STcpSocket::countReceived(qint64 bytes)
{
    m_incoming->transferred(bytes);
    emitIncomingSpeedAfter(kReportMsec);
}

void STcpSocket::emitIncomingSpeedAfter(qint64 msec)
{
    if (const std::optional<qint64> speed = m_incoming->takeReport(msec))
        Q_EMIT connectionIncomingSpeed(*speed);
}

void STcpSocket::emitOutcomingSpeedAfter(qint64 msec)
{
    if (const std::optional<qint64> speed = m_outgoing->takeReport(msec))
        Q_EMIT connectionOutcomingSpeed(*speed);
}

void STcpSocket::onReadyRead()
{
    qint64 left = bytesAvailable();
    while (left > 0) {
        const qint64 allowance = waitToReceive();
        if (allowance < 0)
            return;
        const qint64 counted = qMin(left, allowance);
        countReceived(counted);
        left -= counted;
    }
}

void STcpSocket::onAboutToClose()
{
    // A write that fails closes the socket, which comes back here.
    if (m_closing)
        return;
    const QScopedValueRollback<bool> closing(m_closing, true);
    writeToSocket();
}

void STcpSocket::onStateChanged(QAbstractSocket::SocketState state)
{
    // What one connection did not take is not for the next one.
    if (m_lastState == UnconnectedState)
        clearBuffer();
    m_lastState = state;
}

} // namespace Talverine

#include "moc_stcpsocket.cpp"
