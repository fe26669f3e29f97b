// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Talverine::StoragePlatform {

/*!
 * True when the block device of that number can be pulled out: its whole disk says so, or hangs on
 * USB, or one of the devices that it is laid upon does. \a root holds a link for each device, named
 * "major:minor", into the tree of devices, as /sys/dev/block does.
 */
bool isRemovableBlockDevice(const QString &root, unsigned majorNumber, unsigned minorNumber);

} // namespace Talverine::StoragePlatform
