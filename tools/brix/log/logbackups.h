// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QFileInfo>
#include <QtCore/QString>

namespace Brix::LogBackups {

//! The backups by rotation beside a log, which may be missing, in the order of their numbers.
QFileInfoList of(const QString &log);

} // namespace Brix::LogBackups
