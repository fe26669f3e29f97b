// SPDX-License-Identifier: MIT
// brix db export and import: records as lines of JSON.
#include "dbcommands.h"
#include "fieldrules.h"
#include "recordjson.h"
#include <cli/terminal.h>
#include <process/standardstreams.h>

#include <brixrt/sfilehelper.h>

#include <QtCore/QSet>
#include <QtCore/QTemporaryFile>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::DBError;
using Talverine::SDBField;
using Talverine::SDBRecord;
using Talverine::SFileHelper;

namespace {

constexpr int kCopyBytes = 32'768;

// The other file of either command as it was given; none, or "-", is stdin or stdout.
// export

struct ExportOptions
{
    DatabaseOptions database;
    PlaceOptions target;
};

void declareExport(Command *command, ExportOptions *options)
{
    declareDatabase(command, &options->database);
    declarePlace(command, "OUT", &options->target,
                 "Where the lines go; \"-\", the default, for stdout");
}

struct Exported
{
    qint64 records = 0;
    qint64 unsound = 0;
};

// False when nobody reads stdout any more, as after "brix db export inks.db | head".
bool writeTo(LocalOutput *target, const LocalPlace &place, const QByteArray &line)
{
    if (target->write(line) == line.size())
        return true;
    if (place.isStandardStream() && !StandardStreams::hasReader())
        return false;
    target->throwFailure();
    return true;
}

Exported exportRecords(OpenDatabase &database, const LocalPlace &place)
{
    Exported done;
    const QList<SDBField> keys = database->values(QString());
    database.require(database->error() == DBError::NoError);
    LocalOutput target(place, LocalOutput::Stdout::AtOnce);
    target.open(QIODevice::WriteOnly);
    target.throwFailure();
    for (const SDBField &key : keys) {
        throwIfInterrupted();
        const SDBRecord record = database.record(key.value().toString());
        if (!writeTo(&target, place, RecordJson::fromRecord(record) + '\n'))
            return done;
        ++done.records;
        done.unsound += record.checkSignature() ? 0 : 1;
    }
    target.commit();
    return done;
}

ExitCode exportAll(const Output &output, const ExportOptions &options)
{
    const LocalPlace place = options.target.place();
    requireOtherFile(options.database.file, place);
    Exported done;
    withDatabase(options.database,
                 [&](OpenDatabase &database) { done = exportRecords(database, place); });
    if (done.unsound > 0)
        output.note(u"brix: the signatures of %1 do not match"_s.arg(
            counted(done.unsound, u"record"_s, u"records"_s)));
    if (place.isStandardStream() || (output.quiet && !output.json))
        return ExitCode::Done;
    output.result(u"exported %1"_s.arg(counted(done.records, u"record"_s, u"records"_s)),
                  {{u"file"_s, place.path}, {u"records"_s, done.records}});
    return ExitCode::Done;
}

// import

struct ImportOptions
{
    DatabaseOptions database;
    PlaceOptions source;
    bool replace = false;
};

void declareImport(Command *command, ImportOptions *options)
{
    declareDatabase(command, &options->database);
    declarePlace(command, "IN", &options->source,
                 "Where the lines come from; \"-\", the default, for stdin");
    command->addFlag("--replace", &options->replace,
                     "A record takes the place of that of its key, instead of being refused");
}

Failure badLine(qint64 line, const QString &fault)
{
    return {ExitCode::Refused, u"line %1 of the input: %2"_s.arg(QString::number(line), fault)};
}

/*!
 * The records of an input that is read twice: once to see that all is well, and once to take them.
 * It lies in a temporary file meanwhile, since stdin comes only once and a file may change.
 */
class ImportedRecords
{
public:
    //! Reads the whole input; throws Failure.
    explicit ImportedRecords(const LocalPlace &place)
    {
        LocalInput source(place);
        const bool isCopied = m_lines.open() &&
                              SFileHelper::copyDevice(&m_lines, &source, kCopyBytes) &&
                              m_lines.flush();
        source.throwFailure();
        if (!isCopied)
            throw Failure{ExitCode::LocalIo,
                          u"cannot write a temporary file: %1"_s.arg(m_lines.errorString())};
    }

    //! What next() gives is for this database.
    void setDatabase(const QString &keyName, bool makesKeys)
    {
        m_keyName = keyName;
        m_databaseMakesKeys = makesKeys;
    }

    void rewind()
    {
        m_line = 0;
        m_lines.seek(0);
    }

    //! Throws Failure for a line that is no record for this database.
    bool next(SDBRecord *record)
    {
        QByteArray text;
        while (text.isEmpty()) {
            throwIfInterrupted();
            text = m_lines.readLine();
            if (text.isEmpty())
                return false;
            ++m_line;
            text = text.trimmed();
        }
        *record = parsed(text);
        return true;
    }

    QString keyOf(const SDBRecord &record) const { return record.value(m_keyName).toString(); }
    qint64 line() const { return m_line; }

private:
    SDBRecord parsed(const QByteArray &text) const
    {
        QString fault;
        std::optional<SDBRecord> record = RecordJson::toRecord(text, &fault);
        if (!record)
            throw badLine(m_line, fault);
        for (const QString &name : QList<QString>(record->names())) {
            if (FieldRules::isWrittenByDatabase(name))
                record->remove(name);
        }
        fault = FieldRules::faultOfRecord(*record, m_keyName);
        if (fault.isEmpty() && !m_databaseMakesKeys && !record->contains(m_keyName))
            fault = u"it has no \"%1\", which is the key"_s.arg(m_keyName);
        if (!fault.isEmpty())
            throw badLine(m_line, fault);
        return *record;
    }

    QTemporaryFile m_lines;
    QString m_keyName;
    bool m_databaseMakesKeys = false;
    qint64 m_line = 0;
};

void requireNewKeys(OpenDatabase &database, ImportedRecords *records, bool mayReplace)
{
    QSet<QString> seen;
    SDBRecord record;
    while (records->next(&record)) {
        const QString key = records->keyOf(record);
        if (database.makesKeys())
            continue;
        if (seen.contains(key))
            throw badLine(records->line(), u"the key \"%1\" is there twice"_s.arg(key));
        if (!mayReplace && database->contains(key))
            throw badLine(records->line(), u"the database has a record \"%1\""_s.arg(key));
        seen.insert(key);
    }
}

struct Imported
{
    qint64 added = 0;
    qint64 replaced = 0;
};

Imported importRecords(OpenDatabase &database, ImportedRecords *records)
{
    Imported done;
    SDBRecord record;
    qint64 taken = 0;
    try {
        while (records->next(&record)) {
            const bool isThere = database->contains(record);
            database.require(isThere ? database->replace(record) : database->insert(record));
            ++(isThere ? done.replaced : done.added);
            taken = records->line();
        }
    } catch (const Failure &failure) {
        throw Failure{failure.code, u"%1; the lines before line %2 are taken"_s.arg(
                                        failure.text, QString::number(taken + 1))};
    }
    return done;
}

ExitCode importAll(const Output &output, const ImportOptions &options)
{
    const LocalPlace place = options.source.place();
    if (place.isStandardStream() && options.database.user.password.fromStdin)
        throw Failure{ExitCode::Usage, u"the password and the lines cannot both come from stdin"_s};
    Imported done;
    const DatabaseLogin login = loginOf(options.database.user);
    runDatabaseWork([&] {
        OpenDatabase::requireFile(options.database.file);
        // Before the database is open: others have it as long as the input comes, and it may be
        // an export of the same one.
        ImportedRecords records(place);
        OpenDatabase database(options.database.file, login);
        records.setDatabase(database->key(), database.makesKeys());
        records.rewind();
        requireNewKeys(database, &records, options.replace);
        records.rewind();
        done = importRecords(database, &records);
    });
    QString text =
        u"imported %1"_s.arg(counted(done.added + done.replaced, u"record"_s, u"records"_s));
    if (done.replaced > 0)
        text += u", %1 of them in place of others"_s.arg(done.replaced);
    output.result(text, {{u"added"_s, done.added}, {u"replaced"_s, done.replaced}});
    return ExitCode::Done;
}

} // namespace

void addDbJsonCommands(Command *family)
{
    addCommand<ExportOptions>(family, "export", "Write the records as lines of JSON",
                              "brix db export inks.db inks.jsonl", declareExport, exportAll);
    addCommand<ImportOptions>(family, "import", "Add records from lines of JSON",
                              "brix db import inks.db inks.jsonl --user ann", declareImport,
                              importAll);
}

} // namespace Brix
