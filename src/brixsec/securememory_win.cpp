// SPDX-License-Identifier: MIT
#include "securememory_p.h"

#include <qt_windows.h>

namespace Talverine::Security {

void *allocateSecure(std::size_t bytes)
{
    void *memory = VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    // May be refused by a limit of the process, and the secret is needed all the same.
    if (memory)
        VirtualLock(memory, bytes);
    return memory;
}

void releaseSecure(void *memory, std::size_t)
{
    // This ends the lock, too.
    VirtualFree(memory, 0, MEM_RELEASE);
}

} // namespace Talverine::Security
