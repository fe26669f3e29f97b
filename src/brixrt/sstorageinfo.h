// SPDX-License-Identifier: MIT
#pragma once

#include <brixrt/brixrt_export.h>

#include <QtCore/QByteArray>
#include <QtCore/QStorageInfo>
#include <QtCore/QString>

#include <optional>

namespace Talverine {

/*!
 * The storage that a path lies on: whether it can be pulled out, how to flush it, how it takes the
 * case of names.
 *
 * A path that does not exist stands for its nearest existing parent folder, a relative path is
 * taken from the process's current folder. The empty path stands for no storage: it is not valid,
 * and answers as the platform usually does. Making one costs a look at the path and no more: the
 * system's table of mounts is read at the first question that needs it, and isValid(), device() and
 * the counts then stay as they were. Not shared between threads; sync() waits for the medium.
 */
class BRIXRT_EXPORT SStorageInfo final
{
    Q_DISABLE_COPY_MOVE(SStorageInfo)

public:
    explicit SStorageInfo(const QString &path);
    //! Calls sync() once if syncLater() was called.
    ~SStorageInfo();

    //! True when the path lies on a storage that is mounted.
    bool isValid() const;
    //! Folder that the storage is mounted on; empty when not valid.
    QString rootPath() const;
    //! Device as the system names it ("/dev/sda1"); empty when not valid.
    QByteArray device() const;
    //! File system as the system names it ("ext4"); empty when not valid.
    QByteArray fileSystemType() const;
    //! Size in bytes; -1 when not valid.
    qint64 bytesTotal() const;
    //! Free bytes, those that only the administrator may use included; -1 when not valid.
    qint64 bytesFree() const;
    //! Free bytes for this user; -1 when not valid.
    qint64 bytesAvailable() const;

    //! True for storage that a user pulls out: memory cards, USB drives. Network storage is none.
    bool isRemovable() const;

    /*!
     * Writes everything that waits for a removable medium onto it, and returns when that is done.
     * Storage that is not removable is left alone, as flushing it would stop every writer of the
     * machine; that is true, too. False when not valid or when the system reports an error.
     */
    bool sync();
    //! Puts a sync() off to the destructor.
    void syncLater();

    //! How names are compared; of an empty path the platform's usual answer.
    Qt::CaseSensitivity sensitivity() const;

private:
    const QStorageInfo &storage() const;

    QString m_folder;
    mutable std::optional<QStorageInfo> m_storage;
    bool m_syncLater = false;
};

} // namespace Talverine
