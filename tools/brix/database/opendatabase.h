// SPDX-License-Identifier: MIT
#pragma once

#include <cli/failure.h>

#include <brixlib/database/sdbtext.h>

#include <brixsec/ssecurestring.h>

#include <QtCore/QFile>
#include <QtCore/QString>

namespace Brix {

//! As whom a database is used. Without a name it grants what it grants to anyone.
struct DatabaseLogin
{
    QString user;
    Talverine::Security::SSecureString password;
};

//! A file that keeps the system's reason for the last write that failed.
class ReasonedFile final : public QFile
{
public:
    using QFile::QFile;

    //! Empty if no write has failed.
    QString writeReason() const { return m_writeReason; }

protected:
    qint64 writeData(const char *data, qint64 size) override;

private:
    QString m_writeReason;
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
     * name and another password, rather than leaving him with the rights of anyone. Failures
     * call it \a name, or \a file without one.
     */
    OpenDatabase(const QString &file, const DatabaseLogin &login, const QString &name = QString());

    Talverine::SDBText *operator->() { return &m_database; }
    Talverine::SDBText &operator*() { return m_database; }

    //! What failures call it.
    const QString &file() const { return m_file; }
    //! What it grants to anyone.
    Talverine::DBAuthGrants grants() const { return m_grants; }
    //! Throws unless the user may read.
    void requireReading();
    //! Throws unless the user may change any record.
    void requireWriting();
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
    //! Throws unless the user may read.
    static void requireReading(Talverine::SDBText *database, const QString &file);

private:
    //! As failure(), and tells a user who has not said who it is how to.
    Failure failureOfUser(Talverine::DBError error) const;

    QString m_file;
    bool m_isAnonymous;
    Talverine::DBAuthGrants m_grants = Talverine::DBAuthGrants::None;
    ReasonedFile m_device; // outlives the database
    Talverine::SDBText m_database;
};

} // namespace Brix
