// SPDX-License-Identifier: MIT
// What the sub-commands of brix db have in common.
#pragma once

#include "localstreams.h"
#include "opendatabase.h"
#include "passwordsource.h"
#include "tool.h"

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

//! A file of this machine, or a standard stream, as the command line tells.
struct PlaceOptions
{
    QString path;
    bool isStandardStream = false;

    LocalPlace place() const { return {isStandardStream ? QString() : path}; }
};

//! Adds a positional of that name, for which "-" is the standard stream.
CLI::Option *declarePlace(CLI::App *command, const std::string &name, PlaceOptions *options,
                          const std::string &description);
//! Adds FILE and the user.
void declareDatabase(CLI::App *command, DatabaseOptions *options);
//! Adds --user and --password-stdin.
void declareDatabaseUser(CLI::App *command, DatabaseUser *user);
//! Adds FIELD=VALUE, any number of them.
CLI::Option *declareFields(CLI::App *command, QStringList *texts);
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
void addDbBackupCommand(CLI::App *family, Tool *tool, const std::string &example);
void addDbBackupCommands(CLI::App *family, Tool *tool);
void addDbCheckCommand(CLI::App *family, Tool *tool);
void addDbFileCommands(CLI::App *family, Tool *tool);
void addDbJsonCommands(CLI::App *family, Tool *tool);
void addDbPairCommands(CLI::App *family, Tool *tool);
void addDbRecordCommands(CLI::App *family, Tool *tool);

} // namespace Brix
