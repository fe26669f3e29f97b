// SPDX-License-Identifier: MIT
// A device of limited speed keeps a request waiting until it may transfer half of it, and so
// forever if that is more than it ever may at once. These functions keep requests small enough.
#pragma once

#include <QtCore/QIODevice>
#include <QtCore/QVariant>

#include <algorithm>

namespace Talverine {

//! The properties of a device that limits its own speed: bytes per second, 0 for no limit.
inline constexpr char kReadBandwidthProperty[] = "readBandwidth";
inline constexpr char kWriteBandwidthProperty[] = "writeBandwidth";

//! Returns how many of \a size bytes to request at once, for the limit in \a property.
inline qint64 requestSize(const QIODevice *device, const char *property, qint64 size)
{
    const qint64 bytesPerSecond = device->property(property).toLongLong();
    return bytesPerSecond > 0 ? std::min(size, bytesPerSecond) : size;
}

//! Returns how many of \a size bytes to read from \a device in one call.
inline qint64 readRequestSize(const QIODevice *device, qint64 size)
{
    return requestSize(device, kReadBandwidthProperty, size);
}

//! Returns how many of \a size bytes to write to \a device in one call.
inline qint64 writeRequestSize(const QIODevice *device, qint64 size)
{
    return requestSize(device, kWriteBandwidthProperty, size);
}

} // namespace Talverine
