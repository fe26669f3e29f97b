// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QFile>

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

} // namespace TestShared
