// SPDX-License-Identifier: MIT
#include "sstorageinfo_p.h"

#include <QtCore/QDir>

#include <qt_windows.h>

namespace Talverine::StoragePlatform {

namespace {

// "C:" of an absolute path; empty for a path on the network.
QString driveName(const QString &folder)
{
    return folder.size() >= 2 && folder[1] == u':' ? folder.first(2) : QString();
}

const wchar_t *wide(const QString &text)
{
    return reinterpret_cast<const wchar_t *>(text.utf16());
}

} // namespace

bool isRemovable(const QString &folder)
{
    const QString drive = driveName(folder);
    return !drive.isEmpty() && GetDriveTypeW(wide(drive + u'\\')) == DRIVE_REMOVABLE;
}

bool sync(const QString &folder)
{
    const QString drive = driveName(folder);
    if (drive.isEmpty())
        return false;
    const QString volume = QStringLiteral("\\\\.\\") + drive;
    const HANDLE handle =
        CreateFileW(wide(volume), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                    nullptr, OPEN_EXISTING, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        return false;
    const bool flushed = FlushFileBuffers(handle);
    CloseHandle(handle);
    return flushed;
}

Qt::CaseSensitivity sensitivity(const QString &, const QByteArray &)
{
    return Qt::CaseInsensitive;
}

Qt::CaseSensitivity usualSensitivity()
{
    return Qt::CaseInsensitive;
}

} // namespace Talverine::StoragePlatform
