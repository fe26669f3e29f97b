// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Talverine::CpuPlatform {

/*!
 * The largest number of threads of a core below \a root, which is laid out as
 * /sys/devices/system/cpu; 1 when the system has switched off that cores run several, or tells
 * nothing.
 */
int threadsPerCore(const QString &root);

//! How many numbers a list such as "0-3,8" has; 0 when it is damaged.
int countOfList(QByteArrayView list);

} // namespace Talverine::CpuPlatform
