// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/spartialfilemanager.h>

#include <QtCore/QFileDevice>
#include <QtCore/QString>

#include <memory>

namespace Talverine {

/*!
 * A file that is being received: written under a partial name beside its final place, moved there
 * by finish(). Without finish() nothing of it stays on disk.
 *
 * Thread: a value; one thread at a time.
 */
class IncomingFile
{
public:
    explicit IncomingFile(const QString &target);

    //! The final name, which may differ from the target in characters that no file may have.
    QString name() const;
    //! Opens the partial file, by way of a QSaveFile if the storage \a needsSync. It has the
    //! permissions of the file that it is to replace, or those of any new file.
    [[nodiscard]] bool open(bool needsSync);
    QIODevice *device() const;
    //! Closes the partial file and moves it to the final name. An older file is replaced in one
    //! step, its permissions stay. Returns false when that fails; the older file stays then.
    [[nodiscard]] bool finish();

private:
    void takePermissionsOfOlderFile();

    // Declared first, so that the partial file is closed when it is removed.
    SPartialFileManager m_partial;
    std::unique_ptr<QFileDevice> m_device;
};

} // namespace Talverine
