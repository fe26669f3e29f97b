// SPDX-License-Identifier: MIT
#include "processrights.h"

#include <QtCore/QFile>

#include <sys/stat.h>
#include <unistd.h>

namespace Brix::ProcessRights {

bool isSuperuser()
{
    return geteuid() == 0;
}

QString sharedMode(const QString &file)
{
    struct stat facts = {};
    if (stat(QFile::encodeName(file).constData(), &facts) != 0 ||
        (facts.st_mode & (S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH)) == 0)
        return QString();
    return QString::number(facts.st_mode & 0777, 8);
}

bool setFileMask(int mask)
{
    umask(mode_t(mask));
    return true;
}

} // namespace Brix::ProcessRights
