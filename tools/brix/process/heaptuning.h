// SPDX-License-Identifier: MIT
#pragma once

namespace Brix::HeapTuning {

/*!
 * Makes the heap return large blocks to the system as soon as they are released, and resize them
 * without a copy. Otherwise the heap keeps blocks up to the largest one that was ever released.
 * Does nothing where the heap has no such setting.
 */
void returnLargeBlocks();

} // namespace Brix::HeapTuning
