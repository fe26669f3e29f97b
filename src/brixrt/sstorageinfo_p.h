// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

// What each platform answers in a file of its own; folders are absolute and exist.
namespace Talverine::StoragePlatform {

//! True when the folder's storage is one that a user pulls out.
bool isRemovable(const QString &folder);

//! Flushes the storage of the folder; false when the system reports an error.
bool sync(const QString &folder);

Qt::CaseSensitivity sensitivity(const QString &folder, const QByteArray &fileSystemType);

//! The answer where there is no folder to look at.
Qt::CaseSensitivity usualSensitivity();

} // namespace Talverine::StoragePlatform
