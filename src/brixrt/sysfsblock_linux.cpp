// SPDX-License-Identifier: MIT
#include "sysfsblock_linux_p.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <algorithm>

namespace Talverine::StoragePlatform {

using namespace Qt::StringLiterals;

namespace {

// Layers of encryption, volumes and arrays; a bound against a tree that runs in a circle.
constexpr int kLayerLimit = 8;

// A partition's folder lies in the folder of its disk.
QString wholeDisk(const QString &device)
{
    return QFile::exists(device + u"/partition"_s) ? QFileInfo(device).path() : device;
}

bool saysRemovable(const QString &disk)
{
    QFile file(disk + u"/removable"_s);
    return file.open(QIODevice::ReadOnly) && file.read(16).trimmed() == "1";
}

// Host controllers are named "usb1", "usb2" … and stand above what hangs on them.
bool hangsOnUsb(const QString &disk)
{
    const QList<QStringView> parts = QStringView(disk).split(u'/');
    return std::any_of(parts.begin(), parts.end(), [](QStringView part) {
        return part.size() > 3 && part.startsWith(u"usb") && part[3].isDigit();
    });
}

bool isRemovable(const QString &device, int layersLeft)
{
    const QString disk = wholeDisk(device);
    if (saysRemovable(disk) || hangsOnUsb(disk))
        return true;
    if (layersLeft == 0)
        return false;
    const QFileInfoList below =
        QDir(disk + u"/slaves"_s).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot);
    return std::any_of(below.begin(), below.end(), [layersLeft](const QFileInfo &entry) {
        return isRemovable(entry.canonicalFilePath(), layersLeft - 1);
    });
}

} // namespace

bool isRemovableBlockDevice(const QString &root, unsigned majorNumber, unsigned minorNumber)
{
    const QString link = QStringLiteral("%1/%2:%3")
                             .arg(root, QString::number(majorNumber), QString::number(minorNumber));
    const QString device = QFileInfo(link).canonicalFilePath();
    return !device.isEmpty() && isRemovable(device, kLayerLimit);
}

} // namespace Talverine::StoragePlatform
