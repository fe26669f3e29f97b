// SPDX-License-Identifier: MIT
// brix log append, pin, unpin, rotate and restore.
#include "logcommands.h"
#include "logentry.h"
#include <database/fieldrules.h>
#include <database/signaturecheck.h>
#include <files/readonlydevice.h>

#include <QtCore/QFileInfo>
#include <QtCore/QLoggingCategory>
#include <QtCore/QTemporaryDir>

#include <algorithm>
#include <limits>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::DBAuthGrants;
using Talverine::DBError;
using Talverine::RotateParameters;
using Talverine::SDBRecord;
using Talverine::SDBText;
using Talverine::SLogger;

namespace {

// Of some size, since an unlimited one makes the logger keep an arbitrary number of entries.
constexpr qint64 kMaxBytes = qint64(64) << 20;

Failure wrongUsage(const QString &text)
{
    return {ExitCode::Usage, text};
}

// append

struct AppendOptions
{
    DatabaseOptions log;
    QString id;
    QStringList fields;
    RotateParameters limits{.maxLogs = 10000, .keepLogs = 300, .maxBytes = kMaxBytes};
};

void declareAppend(Command *command, AppendOptions *options)
{
    declareDatabase(command, &options->log);
    command->argument("FILE").setDescription("The log; made when it is missing");
    command->argument("--user").setDescription("Whose the log is").setRequired();
    command->addText("ID", &options->id, "What has happened").setRequired();
    declareFields(command, &options->fields);
    command->addNumber("--max-logs", &options->limits.maxLogs,
                       "Entries above which the log is rotated first", 10);
    command->addNumber("--keep-logs", &options->limits.keepLogs,
                       "Entries that a rotation carries over, at most a third");
    command->addSize("--max-bytes", &options->limits.maxBytes,
                     "Bytes above which the log is rotated first", 1);
}

SDBRecord entryOf(const AppendOptions &options)
{
    const SDBRecord fields = fieldsOf(options.fields);
    QString fault = FieldRules::faultOfRecord(fields, SDBRecord::uniqueIncKey());
    for (const QString &name : fields.names()) {
        if (LogEntry::isOwnField(name))
            fault = u"the field name \"%1\": the log writes this field itself"_s.arg(name);
    }
    if (options.id.isEmpty())
        fault = u"the identifier is empty"_s;
    else if (!FieldRules::faultOfValue(options.id).isEmpty())
        fault = u"the identifier: %1"_s.arg(FieldRules::faultOfValue(options.id));
    if (!fault.isEmpty())
        throw wrongUsage(fault);
    return fields;
}

// Creating a log sets its password; a log without a password accepts no entries.
DatabaseLogin writerOf(const DatabaseOptions &log)
{
    if (QFileInfo::exists(log.file))
        return loginOf(log.user);
    QString error;
    const auto password = log.user.password.chosen(log.user.name, &error);
    if (!password)
        throw wrongUsage(error);
    return {log.user.name, *password};
}

void writeNumber(const Output &output, const QString &text, const SDBRecord &entry)
{
    output.result(text.arg(LogEntry::numberOf(entry)),
                  {{u"key"_s, entry.value(SDBRecord::uniqueIncKey()).toString()}});
}

ExitCode append(const Output &output, const AppendOptions &options)
{
    const SDBRecord fields = entryOf(options);
    const DatabaseLogin writer = writerOf(options.log);
    makeLogIfMissing(options.log.file, writer);
    SDBRecord entry;
    withLog(output, options.log.file, writer, options.limits, [&](SLogger &log) {
        if (!log.append(options.id, fields))
            throw OpenDatabase::failure(options.log.file, log.error());
        entry = log.last();
    });
    writeNumber(output, u"added %1"_s, entry);
    return ExitCode::Done;
}

// pin and unpin

struct PinOptions
{
    DatabaseOptions log;
    QStringList numbers;
    bool acceptChanged = false;
};

void declarePin(Command *command, PinOptions *options)
{
    declareDatabase(command, &options->log);
    command->addList("NUMBER", &options->numbers, "Numbers of the entries").setRequired();
    command->addFlag("--accept-changed", &options->acceptChanged,
                     "Change an entry also if its signature does not match; it is signed again");
}

// The entry as it is now; throws when there is none.
SDBRecord pinned(SLogger &log, const PinOptions &options, const QString &number, bool pin)
{
    const QString key = LogEntry::keyOf(number);
    const QList<SDBRecord> found = log.search(SDBRecord::uniqueIncKey(), key);
    if (found.isEmpty())
        throw Failure{ExitCode::Refused, u"%1 has no entry %2"_s.arg(options.log.file, number)};
    if (!options.acceptChanged)
        requireSignature(options.log.file, SDBRecord::uniqueIncKey(), key, found.first());
    if (!log.pinDown(found.first(), pin))
        throw OpenDatabase::failure(options.log.file, log.error());
    return log.last();
}

ExitCode setPins(const Output &output, const PinOptions &options, bool pin)
{
    for (const QString &number : options.numbers) {
        if (LogEntry::keyOf(number).isEmpty())
            throw wrongUsage(u"not the number of an entry: %1"_s.arg(number));
    }
    QList<SDBRecord> entries;
    std::optional<Failure> failure;
    withExistingLog(output, options.log, [&](SLogger &log) {
        // What has been pinned has a new number, which must be told.
        try {
            for (const QString &number : options.numbers)
                entries.append(pinned(log, options, number, pin));
        } catch (const Failure &thrown) {
            failure = thrown;
        }
    });
    for (const SDBRecord &entry : entries)
        writeNumber(output, pin ? u"pinned, now %1"_s : u"unpinned, now %1"_s, entry);
    if (failure)
        throw *failure;
    return ExitCode::Done;
}

ExitCode pin(const Output &output, const PinOptions &options)
{
    return setPins(output, options, true);
}

ExitCode unpin(const Output &output, const PinOptions &options)
{
    return setPins(output, options, false);
}

// rotate

struct RotateOptions
{
    DatabaseOptions log;
    int keep = 300;
};

void declareRotate(Command *command, RotateOptions *options)
{
    declareDatabase(command, &options->log);
    command->addNumber("--keep-logs", &options->keep,
                       "Entries to carry over, at most a third; pinned ones come beside them. 0 "
                       "leaves all of them out");
}

ExitCode rotate(const Output &output, const RotateOptions &options)
{
    OpenDatabase::requireFile(options.log.file);
    // Not to rotate twice, and not to keep an arbitrary number.
    const RotateParameters limits{.maxLogs = std::numeric_limits<int>::max(),
                                  .keepLogs = options.keep,
                                  .maxBytes =
                                      std::max(kMaxBytes, QFileInfo(options.log.file).size())};
    QString backup;
    int entries = 0;
    withLog(output, options.log.file, loginOf(options.log.user), limits, [&](SLogger &log) {
        if (!log.rotate(options.keep > 0))
            throw Failure{ExitCode::LocalIo,
                          u"cannot rotate %1; if a backup was made, it has all entries"_s.arg(
                              options.log.file)};
        backup = log.first().value(u"name"_s).toString();
        entries = log.count() - 1;
    });
    output.result(
        u"rotated to %1, %2 kept"_s.arg(backup, counted(entries, u"entry"_s, u"entries"_s)),
        {{u"backup"_s, backup}, {u"kept"_s, entries}});
    return ExitCode::Done;
}

// restore

struct RestoreOptions
{
    DatabaseOptions log;
    QString source;
    bool merge = false;
    QString unique;
};

void declareRestore(Command *command, RestoreOptions *options)
{
    declareDatabase(command, &options->log);
    command->addPath("BACKUP", &options->source, "The backup, compressed or not").setRequired();
    Argument &merge = command->addFlag(
        "--merge", &options->merge, "Add its entries, instead of putting them in the log's place");
    command
        ->addText("--unique", &options->unique,
                  "Leave out entries whose text in this field the log has already")
        .setNeeded(merge);
}

//! A plain copy of a backup, in a folder that goes with this object.
class PlainBackup
{
public:
    // Throws Failure unless the backup can be read and is this user's: before the log gives way.
    PlainBackup(const QString &backup, const DatabaseLogin &login)
    {
        OpenDatabase::requireFile(backup);
        SDBText database;
        database.authenticate(login.user, login.password.toInsecureString());
        if (!m_folder.isValid() ||
            !database.create(m_folder.filePath(fileName()), SDBRecord::uniqueIncKey(),
                             DBAuthGrants::ReadOnly))
            throw Failure{ExitCode::LocalIo, u"cannot write a temporary file"_s};
        ReadOnlyDevice source(backup);
        if (!database.restore(&source, false))
            throw notRestored(backup, database.error());
    }

    QString folder() const { return m_folder.path(); }
    static QString fileName() { return u"log"_s; }

private:
    static Failure notRestored(const QString &backup, DBError error)
    {
        if (error == DBError::WriteError)
            return {ExitCode::LocalIo, u"cannot write a temporary file: the disk is full, or it "
                                       "failed"_s};
        return {ExitCode::Refused,
                u"%1 is no backup of a log of this user with this password"_s.arg(backup)};
    }

    QTemporaryDir m_folder;
};

ExitCode restore(const Output &output, const RestoreOptions &options)
{
    requireOtherFile(options.log.file, options.source);
    // Whether a backup is compressed is found out by trying, and Qt warns of each trial.
    QLoggingCategory::setFilterRules(u"default.debug=false\ndefault.warning=false"_s);
    OpenDatabase::requireFile(options.log.file);
    const DatabaseLogin login = loginOf(options.log.user);
    int entries = 0;
    withLog(output, options.log.file, login, kNoLimits, [&](SLogger &log) {
        const PlainBackup backup(options.source, login);
        if (!log.restore(backup.folder(), PlainBackup::fileName(), options.merge, options.unique))
            throw OpenDatabase::failure(options.log.file, log.error());
        entries = log.count();
    });
    output.result(u"restored: %1 now"_s.arg(counted(entries, u"entry"_s, u"entries"_s)),
                  {{u"entries"_s, entries}});
    return ExitCode::Done;
}

} // namespace

void addLogWriteCommands(Command *family)
{
    addCommand<AppendOptions>(family, "append", "Add an entry",
                              "brix log append machine.log HeadCleaned head=3 --user ann",
                              declareAppend, append);
    addCommand<PinOptions>(family, "pin", "Let rotations keep entries",
                           "brix log pin machine.log 17 --user ann", declarePin, pin);
    addCommand<PinOptions>(family, "unpin", "Mark entries as not pinned any more",
                           "brix log unpin machine.log 42 --user ann", declarePin, unpin);
    addCommand<RotateOptions>(family, "rotate",
                              "Copy the log to a backup beside it, and begin anew",
                              "brix log rotate machine.log --user ann", declareRotate, rotate);
    addCommand<RestoreOptions>(family, "restore", "Take entries from a backup",
                               "brix log restore machine.log machine.B03 --merge --user ann",
                               declareRestore, restore);
}

} // namespace Brix
