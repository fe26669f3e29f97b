// SPDX-License-Identifier: MIT
#include "heaptuning.h"

namespace Brix::HeapTuning {

void returnLargeBlocks() {}

} // namespace Brix::HeapTuning
