// SPDX-License-Identifier: MIT
// brix db purge, backup and restore: a database written anew, elsewhere or from elsewhere.
#include "dbcommands.h"
#include "stageddatabase.h"
#include <files/readonlydevice.h>

#include <brixlib/compression/compressionalgorithm.h>

#include <QtCore/QLoggingCategory>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::DBError;
using Talverine::Compression::CompressionAlgorithm;

namespace {

// purge

ExitCode purge(const Output &output, const DatabaseOptions &options)
{
    const DatabaseLogin login = loginOf(options.user);
    qint64 before = 0;
    qint64 after = 0;
    runDatabaseWork([&] {
        StagedDatabase staged(options.file, login);
        OpenDatabase &database = staged.database();
        before = database->bytes();
        database.require(database->purge());
        after = database->bytes();
        staged.commit();
    });
    output.result(u"purged: %1 before, %2 now"_s.arg(Output::bytes(before), Output::bytes(after)),
                  {{u"before"_s, before}, {u"bytes"_s, after}});
    return ExitCode::Done;
}

// backup

struct BackupOptions
{
    DatabaseOptions database;
    PlaceOptions target;
    QString compressor = u"none"_s;
};

void declareBackup(Command *command, BackupOptions *options)
{
    declareDatabase(command, &options->database);
    declarePlace(command, "OUT", &options->target,
                 "The backup; an older file is replaced, and \"-\" is stdout")
        .setRequired();
    command->addChoice("--compress", &options->compressor, {"none", "lz4", "zip"},
                       "How to compress it");
}

CompressionAlgorithm algorithmOf(const QString &name)
{
    if (name == u"lz4")
        return CompressionAlgorithm::Lz4;
    return name == u"zip" ? CompressionAlgorithm::Zip : CompressionAlgorithm::Uncompressed;
}

ExitCode backup(const Output &output, const BackupOptions &options)
{
    const LocalPlace place = options.target.place();
    requireOtherFile(options.database.file, place);
    qint64 written = 0;
    withDatabase(options.database, [&](OpenDatabase &database) {
        LocalOutput target(place, LocalOutput::Stdout::Whole);
        // It has a hash of the password, as the database has.
        target.makePrivate();
        database->setBackupCompressor(algorithmOf(options.compressor));
        const bool isDone = database->backup(&target);
        target.throwFailure();
        database.require(isDone);
        target.commit();
        written = target.written();
    });
    if (place.isStandardStream())
        return ExitCode::Done;
    output.result(u"%1: %2"_s.arg(place.path, Output::bytes(written)),
                  {{u"file"_s, place.path}, {u"bytes"_s, written}});
    return ExitCode::Done;
}

// restore

struct RestoreOptions
{
    DatabaseOptions database;
    QString source;
    bool merge = false;
};

void declareRestore(Command *command, RestoreOptions *options)
{
    declareDatabase(command, &options->database);
    command->addPath("BACKUP", &options->source, "The backup, compressed or not").setRequired();
    command->addFlag("--merge", &options->merge,
                     "Add its records, each in place of that of its key, instead of replacing "
                     "all");
}

Failure notRestored(const RestoreOptions &options, DBError error)
{
    switch (error) {
    case DBError::AuthError:
        return {ExitCode::Refused,
                u"%1 does not belong to this user, or has another password"_s.arg(options.source)};
    case DBError::KeyIsNull:
        return {ExitCode::Refused, u"%1 has another key field than %2, or none"_s.arg(
                                       options.source, options.database.file)};
    case DBError::WrongDB:
        return {ExitCode::Refused, u"%1 is not a backup, or it is damaged"_s.arg(options.source)};
    case DBError::SignError:
    case DBError::FileNotFound:
    case DBError::OpenError:
        return OpenDatabase::failure(options.source, error);
    default:
        return OpenDatabase::failure(options.database.file, error);
    }
}

ExitCode restore(const Output &output, const RestoreOptions &options)
{
    requireOtherFile(options.database.file, options.source);
    // Whether a backup is compressed is found out by trying, and Qt warns of each trial.
    QLoggingCategory::setFilterRules(u"default.debug=false\ndefault.warning=false"_s);
    const DatabaseLogin login = loginOf(options.database.user);
    qint64 records = 0;
    runDatabaseWork([&] {
        OpenDatabase::requireFile(options.source);
        StagedDatabase staged(options.database.file, login);
        OpenDatabase &database = staged.database();
        database.requireWriting();
        ReadOnlyDevice source(options.source);
        if (!database->restore(&source, options.merge))
            throw notRestored(options, database->error());
        records = database->count();
        staged.commit();
    });
    output.result(u"restored: %1 now"_s.arg(counted(records, u"record"_s, u"records"_s)),
                  {{u"records"_s, records}});
    return ExitCode::Done;
}

} // namespace

void addDbBackupCommand(Command *family, const std::string &example)
{
    addCommand<BackupOptions>(family, "backup", "Copy it, compressed or not", example,
                              declareBackup, backup);
}

void addDbBackupCommands(Command *family)
{
    addCommand<DatabaseOptions>(family, "purge",
                                "Write the file anew, sorted and without removed records",
                                "brix db purge inks.db --user ann", declareDatabase, purge);
    addDbBackupCommand(family, "brix db backup inks.db inks.backup --compress lz4");
    addCommand<RestoreOptions>(family, "restore", "Take records from a backup",
                               "brix db restore inks.db inks.backup --user ann", declareRestore,
                               restore);
}

} // namespace Brix
