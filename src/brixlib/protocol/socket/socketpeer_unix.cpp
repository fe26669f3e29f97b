// SPDX-License-Identifier: MIT
#include "socketpeer_p.h"

#include <algorithm>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace Talverine {

namespace {

constexpr int kProbes = 6;

void setOption(qint64 socketDescriptor, int option, int value)
{
    setsockopt(static_cast<int>(socketDescriptor), IPPROTO_TCP, option, &value, sizeof value);
}

} // namespace

QHostAddress peerAddressOf(qint64 socketDescriptor)
{
    sockaddr_storage storage{};
    socklen_t size = sizeof storage;
    auto *const address = reinterpret_cast<sockaddr *>(&storage);
    if (getpeername(static_cast<int>(socketDescriptor), address, &size) != 0)
        return QHostAddress();
    return QHostAddress(address);
}

void setKeepAliveTime(qint64 socketDescriptor, int seconds)
{
#ifdef TCP_KEEPIDLE
    setOption(socketDescriptor, TCP_KEEPIDLE, seconds);
#else
    setOption(socketDescriptor, TCP_KEEPALIVE, seconds);
#endif
    setOption(socketDescriptor, TCP_KEEPINTVL, std::max(seconds / kProbes, 1));
    setOption(socketDescriptor, TCP_KEEPCNT, kProbes);
}

} // namespace Talverine
