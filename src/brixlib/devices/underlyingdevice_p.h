// SPDX-License-Identifier: MIT
// What the devices that wrap another device do alike.
#pragma once

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

//! Whether two modes open a device for the same; buffering is each device's own affair.
inline bool isSameMode(QIODevice::OpenMode a, QIODevice::OpenMode b)
{
    return (a | QIODevice::Unbuffered) == (b | QIODevice::Unbuffered);
}

} // namespace Talverine
