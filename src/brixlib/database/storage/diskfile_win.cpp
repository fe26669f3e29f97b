// SPDX-License-Identifier: MIT
#include "diskfile_p.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <windows.h>

namespace Talverine {

bool DiskFile::sync(QFileDevice *file)
{
    if (!file->flush())
        return false;
    const QString name = QDir::toNativeSeparators(file->fileName());
    // Any handle that may write flushes what others have written.
    const HANDLE handle =
        ::CreateFileW(reinterpret_cast<const wchar_t *>(name.utf16()), GENERIC_WRITE,
                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        return false;
    const bool isDone = ::FlushFileBuffers(handle);
    ::CloseHandle(handle);
    return isDone;
}

// NTFS keeps the order of its own entries, and there is no call for a directory.
bool DiskFile::syncEntry(const QString &)
{
    return true;
}

// The owner and the list of access come from the directory, as those of the model did.
bool DiskFile::copyAccess(QFileDevice *file, const QString &model)
{
    return file->setPermissions(QFile::permissions(model));
}

} // namespace Talverine
