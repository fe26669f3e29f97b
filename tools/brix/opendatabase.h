// SPDX-License-Identifier: MIT
#pragma once

#include "failure.h"

#include <brixlib/database/sdbtext.h>

#include <brixsec/ssecurestring.h>

#include <QtCore/QString>

namespace Brix {

//! As whom a database is used. Without a name it grants what it grants to anyone.
struct DatabaseLogin
{
    QString user;
    Talverine::Security::SSecureString password;
};

/*!
 * A database file of this machine that is open. All members throw Failure.
 *
 * Lives in one thread.
 */
class OpenDatabase final
{
public:
    /*!
     * Opens \a file, which has to be there and to be a file. Refuses a user who has the owner's
     * name and another password, rather than leaving him with the rights of anyone.
     */
    OpenDatabase(const QString &file, const DatabaseLogin &login);

    Talverine::SDBText *operator->() { return &m_database; }
    Talverine::SDBText &operator*() { return m_database; }

    const QString &file() const { return m_file; }
    //! Throws what stands in the way of reading.
    void requireReading();
    //! Throws the error of the last operation unless \a isDone.
    void require(bool isDone) const;
    //! The record of a key; throws when there is none.
    Talverine::SDBRecord record(const QString &key);
    //! Whether the database makes the keys of its records itself.
    bool makesKeys() const;

    //! What an error of the database of \a file means to the user of the tool.
    static Failure failure(const QString &file, Talverine::DBError error);
    //! Throws unless \a file is there and is a file.
    static void requireFile(const QString &file);
    //! Says who uses it; throws when the owner's password is wrong.
    static void authenticate(Talverine::SDBText *database, const QString &file,
                             const DatabaseLogin &login);

private:
    QString m_file;
    Talverine::SDBText m_database;
};

} // namespace Brix
