// SPDX-License-Identifier: MIT
#include "systemreserve_p.h"

#include <QtCore/QScopeGuard>

#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <sys/resource.h>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace Talverine::SystemReserve {

// The system always opens the lowest free number, so every number below the newest is in use.
bool hasDescriptors(qint64 newest, int count)
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return true;
    const auto end = static_cast<qint64>(limit.rlim_cur);
    int free = 0;
    for (qint64 number = newest + 1; number < end && free < count; ++number) {
        if (fcntl(static_cast<int>(number), F_GETFD) == -1 && errno == EBADF)
            ++free;
    }
    return free >= count;
}

// Not by new: a compiler may leave out an allocation that is never used.
bool hasMemory(qint64 bytes)
{
    void *volatile block = std::malloc(static_cast<std::size_t>(bytes));
    const auto release = qScopeGuard([block] { std::free(block); });
    return block != nullptr;
}

void releaseFreeMemory()
{
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}

} // namespace Talverine::SystemReserve
