// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QString>
#include <QtCore/QStringList>

//! The files that a server which was killed has left of transfers: they have names of their own
//! form.
namespace Brix::PartialFiles {

struct Removal
{
    qint64 files = 0;
    qint64 bytes = 0;
    //! The paths of those that could not be removed.
    QStringList kept;
};

//! Whether \a name is one that a receiving end of the library gives to a partial file: a random
//! UUID in lower case and ".part".
bool isName(const QString &name);

/*!
 * Removes the partial files in and below \a directory that were last written before \a time. Keeps
 * links and all that is not a regular file, and does not follow links to directories.
 */
Removal removeOlderThan(const QDateTime &time, const QString &directory);

} // namespace Brix::PartialFiles
