// SPDX-License-Identifier: MIT
#include "sstorageinfo_p.h"

#include "sysfsblock_linux_p.h"

#include <QtCore/QFile>
#include <QtCore/QStorageInfo>

#include <algorithm>
#include <array>
#include <string_view>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace Talverine::StoragePlatform {

namespace {

class FolderDescriptor
{
public:
    explicit FolderDescriptor(const QString &folder)
        : m_descriptor(
              ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
    }
    ~FolderDescriptor()
    {
        if (isOpen())
            ::close(m_descriptor);
    }
    Q_DISABLE_COPY_MOVE(FolderDescriptor)

    bool isOpen() const { return m_descriptor >= 0; }
    int get() const { return m_descriptor; }

private:
    int m_descriptor;
};

// Number of the block device that the folder lies on; 0 when there is none.
dev_t blockDevice(const QString &folder)
{
    struct stat status = {};
    if (::stat(QFile::encodeName(folder).constData(), &status) != 0)
        return 0;
    if (gnu_dev_major(status.st_dev) != 0)
        return status.st_dev;
    // File systems of several devices number themselves with major 0, as those without a device
    // do; the mount table names one of the devices.
    const QByteArray device = QStorageInfo(folder).device();
    const bool isBlockDevice = device.startsWith("/dev/") &&
                               ::stat(device.constData(), &status) == 0 && S_ISBLK(status.st_mode);
    return isBlockDevice ? status.st_rdev : 0;
}

// Folders may be told one by one to ignore case.
bool isCaseFolded(const QString &folder)
{
    const FolderDescriptor descriptor(folder);
    // The kernel writes an int, whatever the request's name says.
    int flags = 0;
    return descriptor.isOpen() && ::ioctl(descriptor.get(), FS_IOC_GETFLAGS, &flags) == 0 &&
           (flags & FS_CASEFOLD_FL) != 0;
}

} // namespace

bool isRemovable(const QString &folder)
{
    const dev_t number = blockDevice(folder);
    return gnu_dev_major(number) != 0 &&
           isRemovableBlockDevice(QStringLiteral("/sys/dev/block"), gnu_dev_major(number),
                                  gnu_dev_minor(number));
}

bool sync(const QString &folder)
{
    const FolderDescriptor descriptor(folder);
    return descriptor.isOpen() && ::syncfs(descriptor.get()) == 0;
}

Qt::CaseSensitivity sensitivity(const QString &folder, const QByteArray &fileSystemType)
{
    using namespace std::string_view_literals;
    static constexpr std::array kFoldingTypes{"vfat"sv, "msdos"sv, "exfat"sv, "ntfs"sv,   "ntfs3"sv,
                                              "cifs"sv, "smb3"sv,  "hfs"sv,   "hfsplus"sv};
    const std::string_view type(fileSystemType.constData(),
                                static_cast<std::size_t>(fileSystemType.size()));
    const bool folds =
        std::find(kFoldingTypes.begin(), kFoldingTypes.end(), type) != kFoldingTypes.end();
    return folds || isCaseFolded(folder) ? Qt::CaseInsensitive : Qt::CaseSensitive;
}

Qt::CaseSensitivity usualSensitivity()
{
    return Qt::CaseSensitive;
}

} // namespace Talverine::StoragePlatform
