// SPDX-License-Identifier: MIT
#include "systemsocket_p.h"

namespace Talverine::SystemSocket {

bool isSupported()
{
    return false;
}

qint64 send(qintptr, const char *, qint64)
{
    return 0;
}

qint64 receive(qintptr, char *, qint64)
{
    return 0;
}

bool hasBytes(qintptr)
{
    return false;
}

bool waitFor(qintptr, Readiness, int)
{
    return false;
}

} // namespace Talverine::SystemSocket
