// SPDX-License-Identifier: MIT
#include "stcpsockethangup_p.h"

#include <winsock2.h>

namespace Talverine {

SocketHangUp socketHangUp(qintptr descriptor)
{
    if (descriptor < 0)
        return SocketHangUp::None;
    const SOCKET socket = static_cast<SOCKET>(descriptor);
    WSAPOLLFD entry{socket, POLLRDNORM, 0};
    if (WSAPoll(&entry, 1, 0) < 1)
        return SocketHangUp::None;
    if (entry.revents & (POLLERR | POLLNVAL))
        return SocketHangUp::Lost;
    if (entry.revents & POLLHUP)
        return SocketHangUp::PeerFinished;
    // An orderly end may also show as readable with nothing to read; Qt's sockets do not block.
    char byte;
    const bool ended = entry.revents & POLLRDNORM && recv(socket, &byte, 1, MSG_PEEK) == 0;
    return ended ? SocketHangUp::PeerFinished : SocketHangUp::None;
}

} // namespace Talverine
