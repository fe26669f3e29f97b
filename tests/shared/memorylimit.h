// SPDX-License-Identifier: MIT
// Lets a test run out of memory while it reads a large file. One source file of a program includes
// this.
#pragma once

#include <QtCore/QFile>

#include <sys/resource.h>

/*!
 * While one lives, the process can't have 64 MiB more than it has. A sanitizer's own memory is
 * beyond any such limit: there, each single allocation of more than 64 MiB fails, at all times.
 */
class MemoryLimit
{
public:
    static constexpr qint64 kBytes = qint64(64) << 20;

    MemoryLimit()
    {
        getrlimit(RLIMIT_AS, &m_limit);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        const rlimit small{static_cast<rlim_t>(usedBytes() + kBytes), m_limit.rlim_max};
        setrlimit(RLIMIT_AS, &small);
#endif
    }
    ~MemoryLimit()
    {
        setrlimit(RLIMIT_AS, &m_limit);
    }
    Q_DISABLE_COPY_MOVE(MemoryLimit)

private:
    static qint64 usedBytes()
    {
        QFile file(QStringLiteral("/proc/self/statm"));
        if (!file.open(QIODevice::ReadOnly))
            qFatal("no statm");
        return file.readAll().split(' ').first().toLongLong() * 4096;
    }

    rlimit m_limit = {};
};

#if defined(__SANITIZE_ADDRESS__)
extern "C" [[gnu::visibility("default")]] const char *__asan_default_options()
{
    return "allocator_may_return_null=1:max_allocation_size_mb=64";
}
#elif defined(__SANITIZE_THREAD__)
extern "C" [[gnu::visibility("default")]] const char *__tsan_default_options()
{
    return "allocator_may_return_null=1:max_allocation_size_mb=64";
}
#endif
