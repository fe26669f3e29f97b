// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QDir>
#include <QtCore/QFile>

#ifdef __GLIBC__
#include <malloc.h>
#endif

/*!
 * What the system knows about the running test program, for tests of what is left behind.
 */
namespace ProcessFacts {

inline qsizetype entries(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

//! Open descriptors.
inline qsizetype descriptors()
{
    return entries(QStringLiteral("/proc/self/fd"));
}

//! Threads.
inline qsizetype threads()
{
    return entries(QStringLiteral("/proc/self/task"));
}

//! Bytes that are allocated on the heap; 0 where the system does not tell.
inline qint64 heapBytes()
{
#ifdef __GLIBC__
    const auto info = mallinfo2();
    return static_cast<qint64>(info.uordblks + info.hblkhd);
#else
    return 0;
#endif
}

//! The line \a name of the process's state, in KiB: "VmRSS" is what it has in memory, "VmPeak" the
//! most address space it has had.
inline qint64 kibibytes(const QByteArray &name)
{
    QFile file(QStringLiteral("/proc/self/status"));
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith(name + ':'))
            return line.mid(name.size() + 1).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

} // namespace ProcessFacts
