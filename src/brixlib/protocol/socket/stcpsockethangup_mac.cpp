// SPDX-License-Identifier: MIT
#include "stcpsockethangup_p.h"

#include <poll.h>
#include <sys/socket.h>

namespace Talverine {

SocketHangUp socketHangUp(qintptr descriptor)
{
    pollfd entry{static_cast<int>(descriptor), POLLIN, 0};
    if (descriptor < 0 || poll(&entry, 1, 0) < 1)
        return SocketHangUp::None;
    if (entry.revents & (POLLHUP | POLLERR | POLLNVAL))
        return SocketHangUp::Lost;
    // Readable with nothing to read is how an orderly end shows.
    char byte;
    const bool ended = recv(entry.fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
    return ended ? SocketHangUp::PeerFinished : SocketHangUp::None;
}

} // namespace Talverine
