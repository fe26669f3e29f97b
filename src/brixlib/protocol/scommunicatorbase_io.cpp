// SPDX-License-Identifier: MIT
// Reading and writing on the socket: whole blocks, words and frames.
#include <brixlib/protocol/scommunicatorbase.h>

#include "blockingio_p.h"
#include <brixlib/protocol/socket/stcpsockethangup_p.h>

#include <brixlib/protocol/socket/stcpsocket.h>

namespace Talverine {

int SCommunicatorBase::timeout() const
{
    return m_io->timeout();
}

void SCommunicatorBase::setTimeout(int milliseconds)
{
    m_io->setTimeout(milliseconds);
}

qint64 SCommunicatorBase::readAll(QIODevice *device, char *buffer, qint64 size)
{
    return m_io->readAll(device, buffer, size);
}

qint64 SCommunicatorBase::readAll(QIODevice *device, QByteArray &buffer)
{
    return m_io->readAll(device, buffer.data(), buffer.size());
}

qint64 SCommunicatorBase::writeAll(QIODevice *device, const char *data, qint64 size)
{
    return m_io->writeAll(device, data, size);
}

qint64 SCommunicatorBase::writeAll(QIODevice *device, const QByteArray &data)
{
    return m_io->writeAll(device, data.constData(), data.size());
}

bool SCommunicatorBase::isStopOverdue()
{
    return m_io->isStopOverdue();
}

bool SCommunicatorBase::waitFor(QIODevice *device, bool (QIODevice::*wait)(int))
{
    return m_io->waitFor(device, wait);
}

void SCommunicatorBase::setWaitDeadline(const QDeadlineTimer &deadline)
{
    m_io->setDeadline(deadline);
}

void SCommunicatorBase::setMinimumRate(qint64 bytesPerSecond)
{
    m_io->setMinimumRate(bytesPerSecond);
}

bool SCommunicatorBase::isPeerGone() const
{
    return !m_socket || m_socket->state() != QAbstractSocket::ConnectedState ||
           socketHangUp(m_socket->socketDescriptor()) != SocketHangUp::None;
}

quint32 SCommunicatorBase::readWord(QIODevice *device)
{
    return m_io->readWord(device);
}

bool SCommunicatorBase::readWord64(QIODevice *device, quint64 *value)
{
    return m_io->readWord64(device, value);
}

bool SCommunicatorBase::writeWord(QIODevice *device, quint32 word)
{
    return m_io->writeWord(device, word);
}

bool SCommunicatorBase::writeWord64(QIODevice *device, quint64 word)
{
    return m_io->writeWord64(device, word);
}

bool SCommunicatorBase::readBody(QIODevice *device, quint32 length, QByteArray *body)
{
    return m_io->readBody(device, length, body);
}

bool SCommunicatorBase::readReplyFrame(QIODevice *device, QByteArray *body)
{
    return m_io->readReplyFrame(device, body);
}

bool SCommunicatorBase::writeFrame(QIODevice *device, const QByteArray &body)
{
    return m_io->writeFrame(device, body);
}

QUuid SCommunicatorBase::readGreeting(QIODevice *device)
{
    return m_io->readGreeting(device);
}

} // namespace Talverine
