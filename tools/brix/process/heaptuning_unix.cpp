// SPDX-License-Identifier: MIT
#include "heaptuning.h"

#include <cstdlib>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace Brix::HeapTuning {

void returnLargeBlocks()
{
#ifdef __GLIBC__
    // Above the buffers of transfers, which come and go with each file.
    constexpr int kLargeBytes = 1 << 20;
    mallopt(M_MMAP_THRESHOLD, kLargeBytes);
#endif
}

} // namespace Brix::HeapTuning
