// SPDX-License-Identifier: MIT
#include "fileidentity_p.h"

#include <QtCore/QDir>

#include <io.h>
#include <qt_windows.h>

namespace Talverine {

namespace {

std::optional<FileIdentity> identityOf(HANDLE handle)
{
    BY_HANDLE_FILE_INFORMATION information = {};
    if (handle == INVALID_HANDLE_VALUE || !GetFileInformationByHandle(handle, &information))
        return std::nullopt;
    return FileIdentity{information.dwVolumeSerialNumber,
                        quint64(information.nFileIndexHigh) << 32 | information.nFileIndexLow};
}

} // namespace

std::optional<FileIdentity> fileIdentity(const QString &path)
{
    // The rest of a name after a null character would be ignored.
    if (path.isEmpty() || path.contains(QChar::Null))
        return std::nullopt;
    const QString native = QDir::toNativeSeparators(path);
    // FILE_FLAG_BACKUP_SEMANTICS opens directories too. Without access rights, no share mode of
    // another program is in the way.
    const HANDLE handle = CreateFileW(reinterpret_cast<const wchar_t *>(native.utf16()), 0,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    const std::optional<FileIdentity> identity = identityOf(handle);
    if (handle != INVALID_HANDLE_VALUE)
        CloseHandle(handle);
    return identity;
}

std::optional<FileIdentity> fileIdentity(int handle)
{
    if (handle < 0)
        return std::nullopt;
    return identityOf(reinterpret_cast<HANDLE>(_get_osfhandle(handle)));
}

} // namespace Talverine
