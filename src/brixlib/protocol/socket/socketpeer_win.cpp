// SPDX-License-Identifier: MIT
#include "socketpeer_p.h"

#include <algorithm>

#include <winsock2.h>
#include <ws2tcpip.h>

#include <mstcpip.h>

namespace Talverine {

namespace {

// The system sends ten probes.
constexpr ULONG kProbes = 10;

} // namespace

QHostAddress peerAddressOf(qint64 socketDescriptor)
{
    sockaddr_storage storage{};
    int size = sizeof storage;
    auto *const address = reinterpret_cast<sockaddr *>(&storage);
    if (getpeername(static_cast<SOCKET>(socketDescriptor), address, &size) != 0)
        return QHostAddress();
    return QHostAddress(address);
}

void setKeepAliveTime(qint64 socketDescriptor, int seconds)
{
    const ULONG msec = static_cast<ULONG>(seconds) * 1000;
    tcp_keepalive values{1, msec, std::max<ULONG>(msec / kProbes, 1000)};
    DWORD returned = 0;
    WSAIoctl(static_cast<SOCKET>(socketDescriptor), SIO_KEEPALIVE_VALS, &values, sizeof values,
             nullptr, 0, &returned, nullptr, nullptr);
}

} // namespace Talverine
