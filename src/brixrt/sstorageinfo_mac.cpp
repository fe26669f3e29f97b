// SPDX-License-Identifier: MIT
#include "sstorageinfo_p.h"

#include <QtCore/QFile>

#include <sys/mount.h>
#include <unistd.h>

namespace Talverine::StoragePlatform {

bool isRemovable(const QString &folder)
{
    struct statfs status = {};
    if (::statfs(QFile::encodeName(folder).constData(), &status) != 0)
        return false;
        // MNT_REMOVABLE is of later systems, where it tells drives on a cable, too.
#ifdef MNT_REMOVABLE
    return (status.f_flags & MNT_REMOVABLE) != 0;
#else
    return false;
#endif
}

bool sync(const QString &folder)
{
    return ::sync_volume_np(QFile::encodeName(folder).constData(),
                            SYNC_VOLUME_FULLSYNC | SYNC_VOLUME_WAIT) == 0;
}

Qt::CaseSensitivity sensitivity(const QString &folder, const QByteArray &)
{
    // 0 is the answer of a storage that folds, -1 that of one which does not say.
    return ::pathconf(QFile::encodeName(folder).constData(), _PC_CASE_SENSITIVE) == 1
               ? Qt::CaseSensitive
               : Qt::CaseInsensitive;
}

Qt::CaseSensitivity usualSensitivity()
{
    return Qt::CaseInsensitive;
}

} // namespace Talverine::StoragePlatform
