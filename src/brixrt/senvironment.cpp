// SPDX-License-Identifier: MIT
#include <brixrt/senvironment.h>

#include "senvironment_p.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QStandardPaths>
#include <QtCore/QUuid>

#include <atomic>
#include <cstdlib>

namespace Talverine {

namespace {

// The numbers of the enumeration, which belongs to a library above this one; those below are the
// numbers of QStandardPaths.
constexpr int kLastStandardLocation = 18;
constexpr int kRootLocation = 100;
constexpr int kCommonDataLocation = 101;
constexpr int kColorFolder = 102;

QString uniqueName()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

// The process that has made the folder; 0 for none. A process that it forks has the same path, and
// must not remove the folder when it ends.
std::atomic<qint64> folderMaker{0};

const QString &folderPath()
{
    // Leaked on purpose: it is used after the statics of other files are gone.
    static const auto *path =
        new QString(QDir::tempPath() + QLatin1String("/brix-") + uniqueName());
    return *path;
}

void removeFolder()
{
    if (folderMaker == QCoreApplication::applicationPid())
        QDir(folderPath()).removeRecursively();
}

bool makeFolder()
{
    const QDir folder(folderPath());
    if (folder.exists())
        return true;
    constexpr auto kOwnerOnly =
        QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;
    // Of two threads that get here one finds it made.
    if (!QDir().mkdir(folderPath(), kOwnerOnly) && !folder.exists())
        return false;
    folderMaker = QCoreApplication::applicationPid();
    // Each comes where the other may not: a program can do without an application object.
    static const bool registered = [] {
        qAddPostRoutine(removeFolder);
        return std::atexit(removeFolder) == 0;
    }();
    Q_UNUSED(registered)
    return true;
}

// The folder that is there for all users of the machine: the one behind the user's own.
QString commonDataFolder()
{
    return QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation).value(1);
}

QString locationOf(int folder)
{
    switch (folder) {
    case kRootLocation:
        return QDir::rootPath();
    case kCommonDataLocation:
        return commonDataFolder();
    case kColorFolder:
        return systemColorFolder();
    default:
        break;
    }
    if (folder < 0 || folder > kLastStandardLocation)
        return QString();
    return QStandardPaths::writableLocation(static_cast<QStandardPaths::StandardLocation>(folder));
}

QString orElsewhere(const QString &path)
{
    if (!path.isEmpty())
        return path;
    const QString home = QStandardPaths::writableLocation(QStandardPaths::HomeLocation);
    return home.isEmpty() ? QDir::tempPath() : home;
}

} // namespace

const QString &SEnvironment::rawWindowsNewLine()
{
    static const auto *newLine = new QString(QStringLiteral("\r\n"));
    return *newLine;
}

QString SEnvironment::tempFolder(bool create)
{
    return !create || makeFolder() ? folderPath() : QString();
}

QString SEnvironment::tempUniqueFileName(const QString &folder)
{
    // Who names the process's folder means one that a file can be made in.
    const QString where = folder.isEmpty() || folder == folderPath() ? tempFolder(true) : folder;
    if (where.isEmpty())
        return QString();
    for (;;) {
        const QString path = where + u'/' + uniqueName();
        if (!QFile::exists(path))
            return path;
    }
}

QString SEnvironment::downloadFolder()
{
    return orElsewhere(QStandardPaths::writableLocation(QStandardPaths::DownloadLocation));
}

QString SEnvironment::specialFolder(SpecialFolder folder)
{
    return orElsewhere(locationOf(static_cast<int>(folder)));
}

quint32 SEnvironment::qtRuntimeVersion()
{
    quint32 version = 0;
    const QList<QByteArray> numbers = QByteArray(qVersion()).split('.');
    for (int i = 0; i < 3; ++i)
        version = version << 8 | numbers.value(i).toUInt();
    return version;
}

} // namespace Talverine
