// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

namespace Brix {

class Interruption;

/*!
 * Runs work that blocks in a thread of its own while the events of this thread go on, and waits for
 * its end; a Failure that it throws comes out here. An \a interruption asks the thread to stop. If
 * that takes too long, the program ends without it. Throws std::bad_alloc also for
 * work that ran out of memory.
 */
void runBlocking(const Interruption &interruption, const std::function<void()> &work);

} // namespace Brix
