// SPDX-License-Identifier: MIT
#include "directsocket_p.h"

#include "systemsocket_p.h"

namespace Talverine {

namespace {

// A derived class may be connected to something that is no socket of the system.
bool isConnected(const STcpSocket *socket)
{
    return SystemSocket::isSupported() && socket &&
           socket->state() == QAbstractSocket::ConnectedState && socket->socketDescriptor() != -1;
}

} // namespace

bool DirectSocket::canSend()
{
    if (!isConnected(m_socket) || m_socket->outcomingSpeed() != 0)
        return false;
    if (m_socket->bytesToWrite() != 0)
        m_socket->flush();
    return isConnected(m_socket) && m_socket->bytesToWrite() == 0;
}

bool DirectSocket::canReceive() const
{
    return isConnected(m_socket) && m_socket->incomingSpeed() == 0 &&
           m_socket->bytesAvailable() == 0;
}

qint64 DirectSocket::send(const char *data, qint64 size)
{
    const qint64 sent = SystemSocket::send(m_socket->socketDescriptor(), data, size);
    if (sent > 0)
        m_socket->countSent(sent);
    return sent;
}

qint64 DirectSocket::receive(char *data, qint64 size)
{
    const qint64 received = SystemSocket::receive(m_socket->socketDescriptor(), data, size);
    if (received > 0)
        m_socket->countReceived(received);
    return received;
}

bool DirectSocket::hasBytes() const
{
    return SystemSocket::hasBytes(m_socket->socketDescriptor());
}

bool DirectSocket::waitToSend(int msec) const
{
    return SystemSocket::waitFor(m_socket->socketDescriptor(), SystemSocket::Readiness::ToSend,
                                 msec);
}

bool DirectSocket::waitToReceive(int msec) const
{
    return SystemSocket::waitFor(m_socket->socketDescriptor(), SystemSocket::Readiness::ToReceive,
                                 msec);
}

} // namespace Talverine
