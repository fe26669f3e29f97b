// SPDX-License-Identifier: MIT
#include "socketcork_p.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace Talverine {

// A failure means a socket that cannot be written to either, which its owner will see.
void setSocketCorked(qintptr descriptor, bool corked)
{
    const int value = corked;
    if (descriptor >= 0)
        setsockopt(static_cast<int>(descriptor), IPPROTO_TCP, TCP_CORK, &value, sizeof value);
}

} // namespace Talverine
