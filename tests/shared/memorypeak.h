// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QFile>

#include <cstddef>
#include <limits>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// Of the sanitizer's run-time library; not every compiler brings a header that declares them.
extern "C" std::size_t __sanitizer_get_allocated_size(const volatile void *memory);
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*allocated)(const volatile void *,
                                                                           std::size_t),
                                                         void (*freed)(const volatile void *));
#endif

namespace TestShared {

//! A line of /proc/self/status in bytes, -1 where it cannot be read.
inline qint64 processStatusBytes(const QByteArray &key)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> lines = status.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith(key + ':'))
            return line.mid(key.size() + 1).trimmed().split(' ').first().toLongLong() * 1024;
    }
    return -1;
}

/*!
 * Watches how far the address space of the process grows. A single allocation of more than the room
 * left below an earlier peak shows; the constructor fills that room, so that any does.
 */
class MemoryPeak
{
public:
    MemoryPeak()
        : m_filler(
              static_cast<qsizetype>(processStatusBytes("VmPeak") - processStatusBytes("VmSize")),
              Qt::Uninitialized)
        , m_start(processStatusBytes("VmPeak"))
    {
    }

    bool isValid() const { return m_start > 0; }
    //! In bytes since the construction.
    qint64 growth() const { return processStatusBytes("VmPeak") - m_start; }

private:
    QByteArray m_filler;
    qint64 m_start;
};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

//! What is allocated on the heap now, and the most that has been, as the sanitizer's allocator
//! tells.
struct HeldMemory
{
    // The allocator calls these also before the sanitizer knows a thread.
    [[gnu::no_sanitize("thread")]] static void allocated(const volatile void *, std::size_t size)
    {
        const auto bytes = static_cast<qint64>(size);
        const qint64 now = __atomic_add_fetch(&current, bytes, __ATOMIC_RELAXED);
        qint64 before = __atomic_load_n(&peak, __ATOMIC_RELAXED);
        while (before < now && !__atomic_compare_exchange_n(&peak, &before, now, false,
                                                            __ATOMIC_RELAXED, __ATOMIC_RELAXED)) {
        }
    }
    [[gnu::no_sanitize("thread")]] static void freed(const volatile void *memory)
    {
        const std::size_t size = __sanitizer_get_allocated_size(memory);
        __atomic_sub_fetch(&current, static_cast<qint64>(size), __ATOMIC_RELAXED);
    }

    static inline const bool watched =
        __sanitizer_install_malloc_and_free_hooks(&allocated, &freed) != 0;
    static inline qint64 current = 0;
    static inline qint64 peak = 0;
};

/*!
 * Watches how much more memory the program holds at once. A sanitizer keeps memory of its own and
 * what has been freed, so that here the sizes of the allocations count.
 */
class HeldMemoryPeak
{
public:
    HeldMemoryPeak()
        : m_start(__atomic_load_n(&HeldMemory::current, __ATOMIC_RELAXED))
    {
        __atomic_store_n(&HeldMemory::peak, m_start, __ATOMIC_RELAXED);
    }

    //! In bytes since the construction; without a measure, more than any bound.
    qint64 growth() const
    {
        return HeldMemory::watched ? __atomic_load_n(&HeldMemory::peak, __ATOMIC_RELAXED) - m_start
                                   : std::numeric_limits<qint64>::max();
    }

private:
    qint64 m_start;
};

#else

//! Watches how much more memory the program holds at once: the most that it has had in use.
class HeldMemoryPeak
{
public:
    //! In bytes since the construction; without a measure, more than any bound.
    qint64 growth() const
    {
        return m_start >= 0 ? processStatusBytes("VmHWM") - m_start
                            : std::numeric_limits<qint64>::max();
    }

private:
    qint64 m_start = processStatusBytes("VmHWM");
};

#endif

} // namespace TestShared
