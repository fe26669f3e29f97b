// SPDX-License-Identifier: MIT
#pragma once

#include <QtNetwork/QAbstractSocket>
#include <QtNetwork/QHostAddress>

namespace Talverine {

/*!
 * Sets what every socket of the protocol is set to, at either end. The socket must be connected, or
 * at least exist in the system: options set before are lost without a word.
 */
inline void setProtocolOptions(QAbstractSocket &socket)
{
    constexpr int kBufferBytes = 0x40000;
    socket.setSocketOption(QAbstractSocket::SendBufferSizeSocketOption, kBufferBytes);
    socket.setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, kBufferBytes);
    socket.setSocketOption(QAbstractSocket::KeepAliveOption, 1);
    // Without a bound the socket takes in whatever the peer sends while this end is busy with
    // something else. Little, since the bytes of a large block that come this way are copied once
    // more.
    constexpr int kReadAheadBytes = 65536;
    socket.setReadBufferSize(kReadAheadBytes);
    // An exchange is several small writes in one direction. Held back until the peer acknowledges
    // the one before, they cost 40 ms and more each.
    socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
}

//! Connects a client's \a socket within \a timeout milliseconds, and sets it up.
[[nodiscard]] inline bool connectToServer(QAbstractSocket &socket, const QHostAddress &address,
                                          quint16 port, int timeout)
{
    socket.connectToHost(address, port, QIODevice::ReadWrite);
    if (!socket.waitForConnected(timeout))
        return false;
    setProtocolOptions(socket);
    return true;
}

} // namespace Talverine
