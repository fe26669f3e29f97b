// SPDX-License-Identifier: MIT
#pragma once

#include "databaselock.h"
#include "opendatabase.h"

#include <QtCore/QString>

#include <optional>

namespace Brix {

/*!
 * A database for changes that write it anew: they are made to a copy in its folder, which takes the
 * file's place in one step. Whatever stops the work before that, the file stays as it was. It is
 * locked meanwhile. All members throw Failure.
 *
 * Lives in one thread.
 */
class StagedDatabase final
{
public:
    StagedDatabase(const QString &file, const DatabaseLogin &login);
    //! Removes a copy that has not taken the file's place.
    ~StagedDatabase();
    Q_DISABLE_COPY_MOVE(StagedDatabase)

    //! The copy.
    OpenDatabase &database() { return *m_database; }
    //! Closes the copy and puts it in the file's place.
    void commit();

private:
    void removeCopy();

    QString m_name; // as the user gave it
    QString m_file;
    QString m_copy;
    DatabaseLock m_lock;
    std::optional<OpenDatabase> m_database;
};

} // namespace Brix
