// SPDX-License-Identifier: MIT
// What the devices that wrap another device do alike.
#pragma once

#include <QtCore/QFileDevice>
#include <QtCore/QIODevice>

namespace Talverine {

/*!
 * Connects what every wrapper listens to: readyRead() is passed on; \a aboutToClose is called while
 * the device is still open, \a destroyed at once, whichever thread destroys it. Nothing for null.
 */
template<typename Wrapper>
void followDevice(QIODevice *device, Wrapper *wrapper, void (Wrapper::*aboutToClose)(),
                  void (Wrapper::*destroyed)())
{
    if (!device)
        return;
    QObject::connect(device, &QIODevice::aboutToClose, wrapper, aboutToClose);
    QObject::connect(device, &QObject::destroyed, wrapper, destroyed, Qt::DirectConnection);
    QObject::connect(device, &QIODevice::readyRead, wrapper, &QIODevice::readyRead);
}

//! Opens \a device with \a mode, or tells whether it is open for the same already. How it buffers
//! is its own affair.
[[nodiscard]] inline bool openUnderlyingDevice(QIODevice *device, QIODevice::OpenMode mode)
{
    if (!device->isOpen())
        return device->open(mode);
    return (device->openMode() | QIODevice::Unbuffered) == (mode | QIODevice::Unbuffered);
}

//! \a mode with the writing that it implies: to append, to truncate and to create are to write.
inline QIODevice::OpenMode completedMode(QIODevice::OpenMode mode)
{
    constexpr QIODevice::OpenMode kWriting =
        QIODevice::Append | QIODevice::Truncate | QIODevice::NewOnly;
    return mode & kWriting ? mode | QIODevice::WriteOnly : mode;
}

/*!
 * Opens \a device with \a mode unless it is open; then only whether it can be written matters, if
 * \a mode writes. False also for a mode that neither reads nor writes.
 */
[[nodiscard]] inline bool openOrShareUnderlyingDevice(QIODevice *device, QIODevice::OpenMode mode)
{
    const QIODevice::OpenMode completed = completedMode(mode);
    if (!(completed & QIODevice::ReadWrite))
        return false;
    if (!device->isOpen())
        return device->open(mode);
    return (completed & ~QIODevice::Unbuffered) == QIODevice::ReadOnly || device->isWritable();
}

/*!
 * Flushes the buffer of a file to the system; returns true for any other device. After a short
 * write QFile has no error string, so this tries again with the rest, which then fails with the
 * system's reason.
 */
inline bool flushUnderlyingFile(QIODevice *device)
{
    auto *file = qobject_cast<QFileDevice *>(device);
    return !file || file->flush() || file->flush();
}

//! Returns why \a device has just failed to read or write.
inline QString failureReason(QIODevice *device)
{
    // A file may have failed with a short write of its own buffer, which leaves no error string.
    if (device->isWritable())
        static_cast<void>(flushUnderlyingFile(device));
    return device->errorString();
}

} // namespace Talverine
