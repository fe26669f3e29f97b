// SPDX-License-Identifier: MIT
#include "stcpsockethangup_p.h"

#include <poll.h>

namespace Talverine {

SocketHangUp socketHangUp(qintptr descriptor)
{
    pollfd entry{static_cast<int>(descriptor), POLLRDHUP, 0};
    if (descriptor < 0 || poll(&entry, 1, 0) < 1)
        return SocketHangUp::None;
    if (entry.revents & (POLLHUP | POLLERR | POLLNVAL))
        return SocketHangUp::Lost;
    return entry.revents & POLLRDHUP ? SocketHangUp::PeerFinished : SocketHangUp::None;
}

} // namespace Talverine
