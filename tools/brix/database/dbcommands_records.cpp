// SPDX-License-Identifier: MIT
// brix db get, set, rm, list, search and values: single records and what is in them.
#include "dbcommands.h"
#include "fieldrules.h"
#include "recordjson.h"
#include "signaturecheck.h"
#include <cli/printabletext.h>

#include <QtCore/QJsonArray>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::DBError;
using Talverine::SDBField;
using Talverine::SDBRecord;
using Talverine::SDBText;

namespace {

constexpr auto kNewRecord = "-"_L1;
// What stands between the texts of a list in an index. No text of a record holds it.
constexpr auto kListGlue = "\r\n"_L1;

void writeRecord(const Output &output, const SDBRecord &record)
{
    if (output.json) {
        output.bytesAsTheyAre(printableJson(RecordJson::fromRecord(record)) + '\n');
        return;
    }
    for (const SDBField &field : record.fields()) {
        const QString lines = field.toString(QString(), QLocale::c());
        for (const QString &line : lines.split(u"\r\n"_s, Qt::SkipEmptyParts))
            output.line(line);
    }
}

QString keyOf(const SDBRecord &record, const QString &keyName)
{
    return record.value(keyName).toString();
}

// get

struct GetOptions
{
    DatabaseOptions database;
    QString key;
};

void declareGet(Command *command, GetOptions *options)
{
    declareDatabase(command, &options->database);
    command->addText("KEY", &options->key, "The record's key").setRequired();
}

ExitCode get(const Output &output, const GetOptions &options)
{
    SDBRecord record;
    withDatabase(options.database,
                 [&](OpenDatabase &database) { record = database.record(options.key); });
    writeRecord(output, record);
    if (!record.checkSignature())
        output.note(u"brix: the signature of %1 does not match"_s.arg(options.key));
    return ExitCode::Done;
}

// set

struct SetOptions
{
    DatabaseOptions database;
    QString key;
    QStringList fields;
    bool acceptChanged = false;
};

void declareSet(Command *command, SetOptions *options)
{
    declareDatabase(command, &options->database);
    command
        ->addText("KEY", &options->key,
                  "The record's key; \"-\" for a new record where the database makes the keys")
        .setRequired();
    declareFields(command, &options->fields).setRequired();
    command->addFlag("--accept-changed", &options->acceptChanged,
                     "Change the record also if its signature does not match; it is signed again");
}

Failure wrongUsage(const QString &text)
{
    return {ExitCode::Usage, text};
}

// The record with the fields set, and whether it is there already.
std::pair<SDBRecord, bool> changedRecord(OpenDatabase &database, const SetOptions &options,
                                         const SDBRecord &fields)
{
    const QString keyName = database->key();
    const QString fault = FieldRules::faultOfRecord(fields, keyName);
    if (!fault.isEmpty())
        throw wrongUsage(fault);
    if (fields.contains(keyName))
        throw wrongUsage(u"%1 is the key; it cannot be set"_s.arg(keyName));
    SDBRecord record;
    const bool isNew =
        database.makesKeys() ? options.key == kNewRecord : !database->contains(options.key);
    if (!isNew) {
        record = database.record(options.key);
        if (!options.acceptChanged)
            requireSignature(options.database.file, keyName, options.key, record);
    } else if (!database.makesKeys()) {
        const QString keyFault = FieldRules::faultOfKey(options.key);
        if (!keyFault.isEmpty())
            throw wrongUsage(keyFault);
        record.insert(keyName, options.key);
    }
    record.insert(fields);
    return {record, !isNew};
}

ExitCode set(const Output &output, const SetOptions &options)
{
    const SDBRecord fields = fieldsOf(options.fields);
    QString key;
    bool replaced = false;
    withDatabase(options.database, [&](OpenDatabase &database) {
        database.requireReading();
        const auto [record, isThere] = changedRecord(database, options, fields);
        replaced = isThere;
        QObject::connect(&*database, &SDBText::recordInserted,
                         [&](const QString &inserted) { key = inserted; });
        database.require(isThere ? database->replace(record) : database->insert(record));
    });
    output.result((replaced ? u"replaced %1"_s : u"added %1"_s).arg(key),
                  {{u"key"_s, key}, {u"replaced"_s, replaced}});
    return ExitCode::Done;
}

// rm

struct RemoveOptions
{
    DatabaseOptions database;
    QStringList keys;
};

void declareRemove(Command *command, RemoveOptions *options)
{
    declareDatabase(command, &options->database);
    command->addList("KEY", &options->keys, "Keys of the records").setRequired();
}

ExitCode remove(const Output &output, const RemoveOptions &options)
{
    QStringList removed;
    QStringList missing;
    withDatabase(options.database, [&](OpenDatabase &database) {
        for (const QString &key : options.keys) {
            const bool isRemoved = database->remove(key);
            database.require(isRemoved || database->error() == DBError::RecNotFound);
            (isRemoved ? removed : missing).append(key);
        }
    });
    for (const QString &key : removed)
        output.result(u"removed %1"_s.arg(key), {{u"key"_s, key}});
    for (const QString &key : missing)
        output.error(u"%1 has no record %2"_s.arg(options.database.file, key));
    return missing.isEmpty() ? ExitCode::Done : ExitCode::Refused;
}

// list

ExitCode list(const Output &output, const DatabaseOptions &options)
{
    QList<SDBField> keys;
    withDatabase(options, [&](OpenDatabase &database) {
        keys = database->values(QString());
        database.require(database->error() == DBError::NoError);
    });
    for (const SDBField &key : keys)
        output.result(key.value().toString(), {{u"key"_s, key.value().toString()}});
    return ExitCode::Done;
}

// search

struct SearchOptions
{
    DatabaseOptions database;
    QString field;
    QStringList values;
};

void declareSearch(Command *command, SearchOptions *options)
{
    declareDatabase(command, &options->database);
    command->addText("FIELD", &options->field, "Name of the field").setRequired();
    command
        ->addList(
            "VALUE", &options->values,
            "What it holds, all of it and in this case; all the texts of a list in their order")
        .setRequired();
}

ExitCode search(const Output &output, const SearchOptions &options)
{
    QList<SDBRecord> records;
    QString keyName;
    withDatabase(options.database, [&](OpenDatabase &database) {
        keyName = database->key();
        database.require(database->addFieldIndex(options.field));
        const bool isFound =
            database->searchField(SDBField(options.field, options.values.join(kListGlue)), records);
        database.require(isFound || database->error() == DBError::RecNotFound);
    });
    for (const SDBRecord &record : records) {
        if (output.json)
            writeRecord(output, record);
        else
            output.line(keyOf(record, keyName));
    }
    return records.isEmpty() ? ExitCode::Refused : ExitCode::Done;
}

// values

struct ValuesOptions
{
    DatabaseOptions database;
    QString field;
};

void declareValues(Command *command, ValuesOptions *options)
{
    declareDatabase(command, &options->database);
    command->addText("FIELD", &options->field, "Name of the field").setRequired();
}

ExitCode values(const Output &output, const ValuesOptions &options)
{
    if (options.field.isEmpty())
        throw wrongUsage(u"the field has no name"_s);
    QList<SDBField> values;
    withDatabase(options.database, [&](OpenDatabase &database) {
        values = database->values(options.field);
        database.require(database->error() == DBError::NoError);
    });
    for (const SDBField &value : values) {
        const QStringList texts = value.value().toString().split(kListGlue);
        output.result(texts.join(u", "_s),
                      {{u"value"_s, texts.size() > 1 ? QJsonValue(QJsonArray::fromStringList(texts))
                                                     : QJsonValue(texts.first())}});
    }
    return ExitCode::Done;
}

} // namespace

void addDbRecordCommands(Command *family)
{
    addCommand<GetOptions>(family, "get", "Show a record", "brix db get inks.db cyan", declareGet,
                           get);
    addCommand<SetOptions>(family, "set", "Change fields of a record, or add one",
                           "brix db set inks.db cyan level=12 maker=Ann --user ann", declareSet,
                           set);
    addCommand<RemoveOptions>(family, "rm", "Remove records",
                              "brix db rm inks.db cyan magenta --user ann", declareRemove, remove);
    addCommand<DatabaseOptions>(family, "list", "List the keys", "brix db list inks.db",
                                declareDatabase, list);
    addCommand<SearchOptions>(family, "search",
                              "List the keys of the records in which a field holds a value",
                              "brix db search inks.db maker Ann", declareSearch, search);
    addCommand<ValuesOptions>(family, "values", "List the different values of a field",
                              "brix db values inks.db maker", declareValues, values);
}

} // namespace Brix
