// SPDX-License-Identifier: MIT
#include "connectionfailure.h"

#include "remoteurl.h"

#include <brixlib/protocol/client/sclientbase.h>
#include <brixlib/protocol/wire.h>

#include <QtNetwork/QTcpSocket>

namespace Brix::ConnectionFailure {

using namespace Qt::StringLiterals;
using namespace Talverine;

namespace {

constexpr int probeMilliseconds = 1000;

QString timeoutText(std::chrono::milliseconds timeout)
{
    return u"%1 s"_s.arg(double(timeout.count()) / 1000);
}

QString whyNotConnected(const QTcpSocket &socket, std::chrono::milliseconds timeout)
{
    switch (socket.error()) {
    case QAbstractSocket::ConnectionRefusedError:
        return u"no program listens on this port"_s;
    case QAbstractSocket::SocketTimeoutError:
        return u"it does not respond within %1"_s.arg(timeoutText(timeout));
    default:
        return socket.errorString();
    }
}

QString whyNoGreeting(QTcpSocket &socket, std::chrono::milliseconds timeout)
{
    while (socket.bytesAvailable() < Wire::kGreetingBytes &&
           socket.waitForReadyRead(probeMilliseconds))
        continue;
    if (socket.state() != QAbstractSocket::ConnectedState)
        return u"it closes the connection at once; it is no brix server, or accepts no more "
               "connections"_s;
    return u"it sends no greeting within %1; it is no brix server, or is overloaded"_s.arg(
        timeoutText(timeout));
}

} // namespace

Failure noConnection(const RemoteUrl &url, std::chrono::milliseconds timeout)
{
    const QHostAddress address = SClientBase::resolve(url.host, true);
    if (address.isNull())
        return {ExitCode::Connection, u"the host %1 is unknown"_s.arg(url.host)};
    QTcpSocket socket;
    socket.connectToHost(address, url.port);
    const QString why = socket.waitForConnected(probeMilliseconds)
                            ? whyNoGreeting(socket, timeout)
                            : whyNotConnected(socket, timeout);
    return {ExitCode::Connection, u"cannot connect to %1: %2"_s.arg(url.authority(), why)};
}

Failure noLogin(const RemoteUrl &url)
{
    return {
        ExitCode::Connection,
        u"%1 does not respond to the login: it is no brix server, or the connection broke"_s.arg(
            url.authority())};
}

Failure loginRefused(const RemoteUrl &url)
{
    return {ExitCode::Refused, u"%1 refuses the login of %2: wrong password, or no such "
                               "user with a home folder"_s.arg(url.authority(), url.user)};
}

Failure broken(const RemoteUrl &url)
{
    return {ExitCode::Connection,
            u"%1 ended the connection: it refuses the command as a whole, or the line broke"_s.arg(
                url.authority())};
}

} // namespace Brix::ConnectionFailure
