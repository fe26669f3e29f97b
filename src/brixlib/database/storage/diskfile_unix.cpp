// SPDX-License-Identifier: MIT
#include "diskfile_p.h"

#include "posixfile_p.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Talverine {

namespace {

constexpr mode_t kAllBits = 07777;
constexpr mode_t kOthersBits = 07;
constexpr int kGroupShift = 3;

bool flush(int descriptor)
{
    int result = -1;
    do {
        result = PosixFile::flush(descriptor);
    } while (result != 0 && errno == EINTR);
    return result == 0 || errno == EINVAL || errno == ENOTSUP || errno == ENOSYS;
}

// Only root may change the owner of a file.
bool copyOwner(int descriptor, const struct stat &model)
{
    struct stat own = {};
    if (::fstat(descriptor, &own) != 0)
        return false;
    if (own.st_uid != model.st_uid && ::fchown(descriptor, model.st_uid, model.st_gid) == 0)
        return true;
    return own.st_gid == model.st_gid ||
           ::fchown(descriptor, static_cast<uid_t>(-1), model.st_gid) == 0;
}

// The permissions with those of the group cut down to what all users have.
mode_t withoutGroup(mode_t mode)
{
    const mode_t group = kOthersBits << kGroupShift;
    return (mode & ~group) | (mode & group & ((mode & kOthersBits) << kGroupShift));
}

} // namespace

bool DiskFile::sync(QFileDevice *file)
{
    return file->flush() && flush(file->handle());
}

bool DiskFile::syncEntry(const QString &fileName)
{
    const QByteArray directory = QFile::encodeName(QFileInfo(fileName).absolutePath());
    const int descriptor = ::open(directory.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // Who may not list a directory may write in it nevertheless.
    if (descriptor < 0)
        return errno == EACCES;
    const bool isDone = flush(descriptor);
    ::close(descriptor);
    return isDone;
}

bool DiskFile::copyAccess(QFileDevice *file, const QString &model)
{
    const QByteArray name = QFile::encodeName(model);
    struct stat wanted = {};
    if (::stat(name.constData(), &wanted) != 0)
        return false;
    mode_t mode = wanted.st_mode & kAllBits;
    if (!copyOwner(file->handle(), wanted))
        mode = withoutGroup(mode);
    else if (!PosixFile::copyAccessList(file->handle(), name.constData()))
        return false;
    return ::fchmod(file->handle(), mode) == 0;
}

} // namespace Talverine
