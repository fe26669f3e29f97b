// SPDX-License-Identifier: MIT
#include "securememory_p.h"

#include <sys/mman.h>

namespace Talverine::Security {

void *allocateSecure(std::size_t bytes)
{
    void *memory =
        ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return nullptr;
    // Both may be refused by a limit of the process, and the secret is needed all the same.
    ::mlock(memory, bytes);
#ifdef MADV_DONTDUMP
    ::madvise(memory, bytes, MADV_DONTDUMP);
#endif
    return memory;
}

void releaseSecure(void *memory, std::size_t bytes)
{
    // This ends the lock, too.
    ::munmap(memory, bytes);
}

} // namespace Talverine::Security
