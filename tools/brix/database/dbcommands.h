// SPDX-License-Identifier: MIT
// What the sub-commands of brix db have in common.
#pragma once

#include "opendatabase.h"
#include <cli/passwordsource.h>
#include <files/placeoptions.h>
#include <tool.h>

#include <functional>

namespace Brix {

//! Who uses a database, as the command line tells.
struct DatabaseUser
{
    QString name;
    PasswordSource password;
};

//! A database file, and who uses it.
struct DatabaseOptions
{
    QString file;
    DatabaseUser user;
};

//! Adds FILE and the user.
void declareDatabase(Command *command, DatabaseOptions *options);
//! Adds --user and --password-stdin.
void declareDatabaseUser(Command *command, DatabaseUser *user);
//! Adds FIELD=VALUE, any number of them.
Argument &declareFields(Command *command, QStringList *texts);
//! The fields in the order of the command line, those of one name as a list; throws Failure.
Talverine::SDBRecord fieldsOf(const QStringList &texts);

//! Asks for the password of the user, if one was named; throws Failure.
DatabaseLogin loginOf(const DatabaseUser &user);
/*!
 * Runs \a work in a thread of its own, so that an interruption does not cut a change in two; it may
 * throw Failure.
 */
void runDatabaseWork(const std::function<void()> &work);
//! The same with an open database.
void withDatabase(const DatabaseOptions &options, const std::function<void(OpenDatabase &)> &work);
//! For long work, between its steps: throws Failure when the tool is to end.
void throwIfInterrupted();

//! Throws Failure when both are the same file.
void requireOtherFile(const QString &a, const QString &b);
void requireOtherFile(const QString &file, const LocalPlace &place);

//! "1 record", "2 records".
QString counted(qint64 count, const QString &one, const QString &many);

// One function for each kind of sub-commands.
//! Adds "backup" alone: what copies a database copies a log.
void addDbBackupCommand(Command *family, const std::string &example);
void addDbBackupCommands(Command *family);
void addDbCheckCommand(Command *family);
void addDbFileCommands(Command *family);
void addDbJsonCommands(Command *family);
void addDbPairCommands(Command *family);
void addDbRecordCommands(Command *family);

} // namespace Brix
