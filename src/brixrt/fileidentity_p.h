// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

#include <optional>

namespace Talverine {

//! The number of a file in its file system, and that of the file system. Hard links to one file
//! have the same identity.
struct FileIdentity
{
    quint64 volume = 0;
    quint64 file = 0;

    bool operator==(const FileIdentity &other) const = default;
};

//! The identity of the file that \a path leads to, through symbolic links too; none when there is
//! no such file or it cannot be examined. Implemented once for each platform.
std::optional<FileIdentity> fileIdentity(const QString &path);

//! The identity of an open file; \a handle is what QFileDevice::handle() returns.
std::optional<FileIdentity> fileIdentity(int handle);

} // namespace Talverine
