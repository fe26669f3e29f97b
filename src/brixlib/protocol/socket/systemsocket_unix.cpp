// SPDX-License-Identifier: MIT
#include "systemsocket_p.h"

#include <algorithm>

#include <poll.h>
#include <sys/socket.h>

namespace Talverine::SystemSocket {

bool isSupported()
{
    return true;
}

qint64 send(qintptr descriptor, const char *data, qint64 size)
{
#ifdef MSG_NOSIGNAL
    constexpr int kFlags = MSG_DONTWAIT | MSG_NOSIGNAL;
#else
    constexpr int kFlags = MSG_DONTWAIT; // the socket itself raises no signal there
#endif
    const ssize_t count =
        ::send(static_cast<int>(descriptor), data, static_cast<std::size_t>(size), kFlags);
    return std::max<qint64>(count, 0);
}

qint64 receive(qintptr descriptor, char *data, qint64 size)
{
    const ssize_t count =
        ::recv(static_cast<int>(descriptor), data, static_cast<std::size_t>(size), MSG_DONTWAIT);
    return std::max<qint64>(count, 0);
}

bool hasBytes(qintptr descriptor)
{
    char byte;
    return ::recv(static_cast<int>(descriptor), &byte, 1, MSG_DONTWAIT | MSG_PEEK) > 0;
}

bool waitFor(qintptr descriptor, Readiness readiness, int msec)
{
    const short events = readiness == Readiness::ToReceive ? POLLIN : POLLOUT;
    pollfd entry{static_cast<int>(descriptor), events, 0};
    return poll(&entry, 1, msec) > 0;
}

} // namespace Talverine::SystemSocket
