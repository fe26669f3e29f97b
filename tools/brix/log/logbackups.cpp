// SPDX-License-Identifier: MIT
#include "logbackups.h"

#include <QtCore/QDir>

namespace Brix::LogBackups {

using namespace Qt::StringLiterals;

QFileInfoList of(const QString &log)
{
    const QFileInfo file(QFileInfo::exists(log) ? QFileInfo(log).canonicalFilePath() : log);
    QFileInfoList backups;
    for (int number = 0; number < 10; ++number) {
        const QFileInfo backup(
            file.dir().filePath(u"%1.B0%2"_s.arg(file.baseName(), QString::number(number))));
        if (backup.exists())
            backups.append(backup);
    }
    return backups;
}

} // namespace Brix::LogBackups
