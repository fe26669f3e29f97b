// SPDX-License-Identifier: MIT
#pragma once

#include <new>
#include <type_traits>

namespace Talverine {

/*!
 * Returns what \a work returns, or \a failure when memory runs out in it. No exception may leave
 * the library: what a file or a peer holds must not end the program.
 */
template<typename Work>
std::invoke_result_t<Work> orOutOfMemory(std::invoke_result_t<Work> failure, const Work &work)
{
    try {
        return work();
    } catch (const std::bad_alloc &) {
        return failure;
    }
}

} // namespace Talverine
