// SPDX-License-Identifier: MIT
#include "posixfile_p.h"

#include <QtCore/QByteArray>

#include <cerrno>

#include <sys/xattr.h>
#include <unistd.h>

namespace Talverine {

namespace {

constexpr const char *kAccessList = "system.posix_acl_access";
// The largest value of an extended attribute.
constexpr size_t kListBytes = 65536;

bool isMissing(int error)
{
    return error == ENODATA || error == ENOTSUP;
}

} // namespace

int PosixFile::flush(int descriptor)
{
    return ::fsync(descriptor);
}

bool PosixFile::copyAccessList(int descriptor, const char *model)
{
    QByteArray list(kListBytes, Qt::Uninitialized);
    const ssize_t size = ::getxattr(model, kAccessList, list.data(), kListBytes);
    if (size >= 0)
        return ::fsetxattr(descriptor, kAccessList, list.constData(), static_cast<size_t>(size),
                           0) == 0;
    return isMissing(errno) && (::fremovexattr(descriptor, kAccessList) == 0 || isMissing(errno));
}

} // namespace Talverine
