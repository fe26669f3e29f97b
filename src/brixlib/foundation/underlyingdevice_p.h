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

//! Hands what a file has buffered itself to the system; true for any other device.
inline bool flushUnderlyingFile(QIODevice *device)
{
    auto *file = qobject_cast<QFileDevice *>(device);
    return !file || file->flush();
}

} // namespace Talverine
