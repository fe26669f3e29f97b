// SPDX-License-Identifier: MIT
#include <brixrt/sstorageinfo.h>

#include "sstorageinfo_p.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

namespace Talverine {

namespace {

// The path itself if it is a folder, else the nearest parent that exists.
QString existingFolder(const QString &path)
{
    if (path.isEmpty())
        return {};
    QString folder = QDir::cleanPath(QDir(path).absolutePath());
    while (!QFileInfo(folder).isDir()) {
        const QString parent = QFileInfo(folder).path();
        if (parent == folder)
            return {};
        folder = parent;
    }
    return folder;
}

} // namespace

SStorageInfo::SStorageInfo(const QString &path)
    : m_folder(existingFolder(path))
{
}

SStorageInfo::~SStorageInfo()
{
    if (m_syncLater)
        sync();
}

bool SStorageInfo::isValid() const
{
    return storage().isValid();
}

QString SStorageInfo::rootPath() const
{
    return storage().rootPath();
}

QByteArray SStorageInfo::device() const
{
    return storage().device();
}

QByteArray SStorageInfo::fileSystemType() const
{
    return storage().fileSystemType();
}

qint64 SStorageInfo::bytesTotal() const
{
    return storage().bytesTotal();
}

qint64 SStorageInfo::bytesFree() const
{
    return storage().bytesFree();
}

qint64 SStorageInfo::bytesAvailable() const
{
    return storage().bytesAvailable();
}

bool SStorageInfo::isRemovable() const
{
    return !m_folder.isEmpty() && StoragePlatform::isRemovable(m_folder);
}

bool SStorageInfo::sync()
{
    if (m_folder.isEmpty())
        return false;
    return !isRemovable() || StoragePlatform::sync(m_folder);
}

void SStorageInfo::syncLater()
{
    m_syncLater = true;
}

Qt::CaseSensitivity SStorageInfo::sensitivity() const
{
    if (m_folder.isEmpty())
        return StoragePlatform::usualSensitivity();
    return StoragePlatform::sensitivity(m_folder, fileSystemType());
}

const QStorageInfo &SStorageInfo::storage() const
{
    if (!m_storage)
        m_storage = m_folder.isEmpty() ? QStorageInfo() : QStorageInfo(m_folder);
    return *m_storage;
}

} // namespace Talverine
