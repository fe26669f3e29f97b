// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/socket/stcpsocket.h>

namespace Talverine {

/*!
 * The way past what a QTcpSocket does for each piece that it sends or receives: it copies all bytes
 * once, and has the event loop watch the socket and leave off again. The bytes on the wire are the
 * same. Nothing is signalled but the speed.
 *
 * It is open while the socket is connected, has no limit and holds no bytes itself, each in that
 * direction.
 *
 * Thread: lives in the thread of the socket.
 */
class DirectSocket
{
public:
    //! \a device may be anything, also null: the way is closed then.
    explicit DirectSocket(QIODevice *device)
        : m_socket(qobject_cast<STcpSocket *>(device))
    {
    }

    //! Hands to the system first what the socket has not sent yet.
    bool canSend();
    bool canReceive() const;

    //! Bytes that the system took at once; 0 when it takes none now, or no more at all.
    qint64 send(const char *data, qint64 size);
    //! Bytes that had arrived; 0 when there are none now, or no more come.
    qint64 receive(char *data, qint64 size);
    //! Whether there is something to receive.
    bool hasBytes() const;

    //! Whether the wait is over within \a msec milliseconds, be it by the end of the connection.
    bool waitToSend(int msec) const;
    bool waitToReceive(int msec) const;

private:
    STcpSocket *m_socket;
};

} // namespace Talverine
