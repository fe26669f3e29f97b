// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QDir>
#include <QtCore/QFile>

//! What the system tells of a process; Linux only.
namespace ProcFs {

//! One of the figures of /proc/<pid>/status in KiB, such as VmRSS; -1 when it cannot be read.
inline qint64 memoryKiB(qint64 pid, const QByteArray &field)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith(field + ':'))
            return line.mid(field.size() + 1).simplified().split(' ').value(0).toLongLong();
    }
    return -1;
}

//! Entries of /proc/<pid>/<folder>: "fd" for descriptors, "task" for threads.
inline qsizetype count(qint64 pid, const QString &folder)
{
    return QDir(QStringLiteral("/proc/%1/%2").arg(QString::number(pid), folder))
        .entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System)
        .size();
}

} // namespace ProcFs
