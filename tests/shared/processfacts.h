// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QDir>
#include <QtCore/QFile>

#ifdef __GLIBC__
#include <malloc.h>
#endif

/*!
 * What the system knows about a process, for tests of what is left behind: about the running test
 * program, or about the one whose number is given.
 */
namespace ProcessFacts {

constexpr qint64 kSelf = 0;

inline QString folderOf(qint64 process)
{
    return QStringLiteral("/proc/") +
           (process == kSelf ? QStringLiteral("self") : QString::number(process));
}

inline qsizetype entries(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

//! Open descriptors.
inline qsizetype descriptors(qint64 process = kSelf)
{
    return entries(folderOf(process) + QStringLiteral("/fd"));
}

//! Threads.
inline qsizetype threads(qint64 process = kSelf)
{
    return entries(folderOf(process) + QStringLiteral("/task"));
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
//! most address space it has had. -1 when there is none.
inline qint64 kibibytes(const QByteArray &name, qint64 process = kSelf)
{
    QFile file(folderOf(process) + QStringLiteral("/status"));
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
