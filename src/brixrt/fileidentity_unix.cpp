// SPDX-License-Identifier: MIT
#include "fileidentity_p.h"

#include <QtCore/QFile>

#include <sys/stat.h>

namespace Talverine {

namespace {

// The rest of a name after a null character would be ignored.
bool isName(const QString &path)
{
    return !path.isEmpty() && !path.contains(QChar::Null);
}

FileIdentity identityOf(const struct stat &status)
{
    return {static_cast<quint64>(status.st_dev), static_cast<quint64>(status.st_ino)};
}

} // namespace

std::optional<FileIdentity> fileIdentity(const QString &path)
{
    struct stat status = {};
    if (!isName(path) || stat(QFile::encodeName(path).constData(), &status) != 0)
        return std::nullopt;
    return identityOf(status);
}

std::optional<FileIdentity> fileIdentity(int handle)
{
    struct stat status = {};
    if (fstat(handle, &status) != 0)
        return std::nullopt;
    return identityOf(status);
}

} // namespace Talverine
