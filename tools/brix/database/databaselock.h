// SPDX-License-Identifier: MIT
#pragma once

#include <cli/failure.h>

#include <QtCore/QLockFile>
#include <QtCore/QString>

#include <optional>

namespace Brix {

//! The program that has a database open, as its lock file tells.
struct LockHolder
{
    qint64 process = 0; //!< 0 when the lock file does not tell
    QString host;
    QString application;

    //! "process 4711 (brix) on press".
    QString text() const;
};

/*!
 * The lock that an open database has on its file, "FILE.lck", for what the tool does with the file
 * itself. It is given back when this object dies.
 */
class DatabaseLock final
{
public:
    //! Tries to get it for half a second, as the database does.
    explicit DatabaseLock(const QString &file);

    //! Throws Failure when it is not taken.
    void require() const;
    //! Whose it is, when it is another program's. Nobody's where no lock file can be made.
    const std::optional<LockHolder> &holder() const { return m_holder; }

    /*!
     * Removes the lock file of \a file; returns false if there is none. Throws Failure when the
     * program that has the lock may still run, which can't be known of one on another host; with
     * \a force the lock file is removed all the same.
     */
    static bool unlock(const QString &file, bool force);

    //! Why a database said that it cannot have the lock of \a file.
    static Failure failure(const QString &file);

private:
    QString m_file;
    QLockFile m_lock;
    std::optional<LockHolder> m_holder;
};

} // namespace Brix
