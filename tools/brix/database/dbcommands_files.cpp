// SPDX-License-Identifier: MIT
// brix db create and info: a database as a whole.
#include "databaselock.h"
#include "databasescan.h"
#include "databaseview.h"
#include "dbcommands.h"
#include "fieldrules.h"
#include "newdatabase.h"

#include <brixrt/slocale.h>

#include <QtCore/QFileInfo>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::DBAuthGrants;
using Talverine::DBAuthGrants_T;
using Talverine::SDBText;
using Talverine::SLocale;

namespace {

QString grantsText(DBAuthGrants grants)
{
    return DBAuthGrants_T::instance().toString(grants, QLocale::c()).toLower();
}

// create

struct CreateOptions
{
    QString file;
    QString key;
    DatabaseUser user;
    QString grants = u"readonly"_s;
    QString culture = u"en-US"_s;
    QString version = u"2"_s;
};

void declareCreate(Command *command, CreateOptions *options)
{
    command->addPath("FILE", &options->file, "The database file; it must not be there yet")
        .setRequired();
    command
        ->addText("--key", &options->key,
                  "Name of the key field; \"_uniqueinckey\" for keys that the database makes")
        .setRequired();
    declareDatabaseUser(command, &options->user);
    command->argument("--user").setDescription("Who is to own it").setRequired();
    command->addChoice("--grants", &options->grants,
                       {"none", "readonly", "readwrite", "readownwrite", "all"},
                       "What others may do");
    command->addText("--culture", &options->culture,
                     "Language and country that numbers are written for. Default: en-US");
    command->addText("--db-version", &options->version, "A version of your own. Default: 2");
}

QLocale cultureOf(const QString &name)
{
    const SLocale culture(name, QLocale::OmitGroupSeparator);
    // The C locale is what unknown names lead to.
    if (SLocale::lcName(culture, false)
            .compare(QString(name).replace(u'_', u'-'), Qt::CaseInsensitive) != 0)
        throw Failure{ExitCode::Usage,
                      u"there is no culture %1; give one such as it-IT"_s.arg(name)};
    return culture;
}

void requireSound(const CreateOptions &options)
{
    QString fault = FieldRules::faultOfKeyName(options.key);
    if (fault.isEmpty() && !FieldRules::faultOfValue(options.version).isEmpty())
        fault = u"the version: %1"_s.arg(FieldRules::faultOfValue(options.version));
    if (fault.isEmpty() && !FieldRules::faultOfValue(options.user.name).isEmpty())
        fault = u"the user's name: %1"_s.arg(FieldRules::faultOfValue(options.user.name));
    if (!fault.isEmpty())
        throw Failure{ExitCode::Usage, fault};
}

ExitCode create(const Output &output, const CreateOptions &options)
{
    requireSound(options);
    QString error;
    const auto password = options.user.password.chosen(options.user.name, &error);
    if (!password)
        throw Failure{ExitCode::Usage, error};
    const auto grants = DBAuthGrants_T::instance().fromString(options.grants, DBAuthGrants::None);
    const bool isNew = writeNewDatabase(
        {options.file, options.key, grants, cultureOf(options.culture), options.version},
        {options.user.name, *password});
    if (!isNew)
        throw Failure{ExitCode::Refused, u"%1 is there already"_s.arg(options.file)};
    output.result(u"created %1"_s.arg(options.file),
                  {{u"file"_s, options.file}, {u"owner"_s, options.user.name}});
    return ExitCode::Done;
}

// info

struct Info
{
    QString key;
    QString owner;
    QString grants;
    QString culture;
    QString version;
    bool isHeadFromCopy = false;
    qint64 records = 0;
    qint64 deleted = 0;
    qint64 bytes = 0;
    qint64 deadBytes = 0;
    std::optional<LockHolder> holder;
};

Info infoOf(const DatabaseOptions &options, const DatabaseLogin &login)
{
    OpenDatabase::requireFile(options.file);
    const QString file = QFileInfo(options.file).canonicalFilePath();
    const DatabaseLock lock(file);
    DatabaseView view(options.file);
    view.open();
    SDBText &database = *view;
    Info info;
    info.holder = lock.holder();
    info.key = database.key();
    info.owner = database.owner();
    info.grants = grantsText(database.grants());
    info.culture = SLocale::lcName(database.culture(), false);
    info.version = database.version();
    info.isHeadFromCopy = view.isHeadFromCopy();
    OpenDatabase::authenticate(&database, options.file, login);

    DatabaseScan scan(options.file, info.key);
    ScannedRecord record;
    while (scan.next(&record)) {
        throwIfInterrupted();
        ++(record.isDeleted ? info.deleted : info.records);
        if (record.isDeleted)
            info.deadBytes += record.bytes;
    }
    info.bytes = scan.bytes();
    return info;
}

QJsonValue jsonOf(const std::optional<LockHolder> &holder)
{
    if (!holder)
        return QJsonValue::Null;
    return QJsonObject{{u"process"_s, holder->process},
                       {u"host"_s, holder->host},
                       {u"application"_s, holder->application}};
}

void write(const Output &output, const Info &info)
{
    if (output.json) {
        output.object({{u"key"_s, info.key},
                       {u"owner"_s, info.owner},
                       {u"grants"_s, info.grants},
                       {u"culture"_s, info.culture},
                       {u"version"_s, info.version},
                       {u"records"_s, info.records},
                       {u"deleted"_s, info.deleted},
                       {u"bytes"_s, info.bytes},
                       {u"dead"_s, info.deadBytes},
                       {u"headFromCopy"_s, info.isHeadFromCopy},
                       {u"lock"_s, jsonOf(info.holder)}});
        return;
    }
    output.table({{u"key field"_s, info.key},
                  {u"owner"_s, info.owner},
                  {u"grants"_s, info.grants},
                  {u"culture"_s, info.culture},
                  {u"version"_s, info.version},
                  {u"records"_s, QString::number(info.records)},
                  {u"deleted"_s, QString::number(info.deleted)},
                  {u"bytes"_s, QString::number(info.bytes)},
                  {u"dead bytes"_s, QString::number(info.deadBytes)},
                  {u"head"_s, info.isHeadFromCopy ? u"destroyed; its copy is used"_s : u"sound"_s},
                  {u"lock"_s, info.holder ? info.holder->text() : u"free"_s}});
}

ExitCode info(const Output &output, const DatabaseOptions &options)
{
    const DatabaseLogin login = loginOf(options.user);
    Info info;
    runDatabaseWork([&] { info = infoOf(options, login); });
    write(output, info);
    return ExitCode::Done;
}

// unlock

struct UnlockOptions
{
    QString file;
    bool force = false;
};

void declareUnlock(Command *command, UnlockOptions *options)
{
    command->addPath("FILE", &options->file, "The database file").setRequired();
    command->addFlag("--force", &options->force,
                     "Remove the lock although a program may still have it. Two programs that "
                     "write to a database at the same time destroy it");
}

ExitCode unlock(const Output &output, const UnlockOptions &options)
{
    OpenDatabase::requireFile(options.file);
    const QString file = QFileInfo(options.file).canonicalFilePath();
    const bool wasLocked = DatabaseLock::unlock(file, options.force);
    output.result((wasLocked ? u"unlocked %1"_s : u"%1 is not locked"_s).arg(options.file),
                  {{u"file"_s, options.file}, {u"wasLocked"_s, wasLocked}});
    return ExitCode::Done;
}

} // namespace

void addDbFileCommands(Command *family)
{
    addCommand<CreateOptions>(family, "create", "Make a database",
                              "brix db create inks.db --key name --user ann --grants readonly",
                              declareCreate, create);
    addCommand<DatabaseOptions>(family, "info",
                                "Tell whose a database is, what it grants and how full it is",
                                "brix db info inks.db", declareDatabase, info);
    addCommand<UnlockOptions>(family, "unlock",
                              "Remove the lock that a program which has ended left behind",
                              "brix db unlock inks.db", declareUnlock, unlock);
}

} // namespace Brix
