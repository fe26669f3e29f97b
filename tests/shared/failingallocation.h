// SPDX-License-Identifier: MIT
// Lets a test run out of memory. Replaces an allocation function of the whole program, so one
// source file of it includes this.
#pragma once

#include <QtCore/QtGlobal>

#include <atomic>
#include <new>

/*!
 * While one lives, no array of so many bytes or more can be had where null stands for a failure.
 */
class FailingAllocation
{
public:
    explicit FailingAllocation(std::size_t bytes) { s_bytes = bytes; }
    ~FailingAllocation() { s_bytes = 0; }
    Q_DISABLE_COPY_MOVE(FailingAllocation)

    static bool fails(std::size_t bytes) { return s_bytes != 0 && bytes >= s_bytes; }

private:
    static inline std::atomic<std::size_t> s_bytes = 0;
};

void *operator new[](std::size_t bytes, const std::nothrow_t &) noexcept
{
    if (FailingAllocation::fails(bytes))
        return nullptr;
    try {
        return ::operator new[](bytes);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}
