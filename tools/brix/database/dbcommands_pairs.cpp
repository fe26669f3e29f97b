// SPDX-License-Identifier: MIT
// brix db merge and diff: two databases.
#include "dbcommands.h"
#include "fieldrules.h"
#include "stageddatabase.h"

#include <brixrt/slocale.h>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::DBAuthGrants_T;
using Talverine::DBError;
using Talverine::SDBField;
using Talverine::SDBRecord;
using Talverine::SLocale;

namespace {

// A and B
struct PairOptions
{
    QString first;
    QString second;
    DatabaseUser user;
    bool contentOnly = false;
};

void declarePair(Command *command, PairOptions *options)
{
    command->addPath("A", &options->first, "A database file").setRequired();
    command->addPath("B", &options->second, "Another one").setRequired();
    declareDatabaseUser(command, &options->user);
}

void declareDiff(Command *command, PairOptions *options)
{
    declarePair(command, options);
    command->addFlag("--content", &options->contentOnly,
                     "Leave out who wrote a record and when, and the settings");
}

void requireTwoFiles(const PairOptions &options)
{
    OpenDatabase::requireFile(options.first);
    OpenDatabase::requireFile(options.second);
    requireOtherFile(options.first, options.second);
}

void requireSameKeyField(OpenDatabase &first, OpenDatabase &second)
{
    if (first->key() != second->key())
        throw Failure{ExitCode::Refused,
                      u"the key field of %1 is \"%2\", that of %3 is \"%4\""_s.arg(
                          first.file(), first->key(), second.file(), second->key())};
}

// merge

ExitCode merge(const Output &output, const PairOptions &options)
{
    const DatabaseLogin login = loginOf(options.user);
    qint64 added = 0;
    runDatabaseWork([&] {
        requireTwoFiles(options);
        OpenDatabase second(options.second, login);
        second.requireReading();
        StagedDatabase staged(options.first, login);
        OpenDatabase &first = staged.database();
        first.requireWriting();
        requireSameKeyField(first, second);
        const int before = first->count();
        *first += *second;
        first.require(first->error() == DBError::NoError);
        added = first->count() - before;
        staged.commit();
    });
    output.result(u"added %1"_s.arg(counted(added, u"record"_s, u"records"_s)),
                  {{u"added"_s, added}});
    return ExitCode::Done;
}

// diff

struct SettingDifference
{
    QString name;
    QString first;
    QString second;
};

enum class Presence { First, Second, Both };

struct KeyDifference
{
    QString key;
    Presence presence;
};

struct Differences
{
    QList<SettingDifference> settings;
    QList<KeyDifference> keys;
};

QList<SettingDifference> settingDifferences(OpenDatabase &first, OpenDatabase &second)
{
    const auto grants = [](const OpenDatabase &database) {
        return DBAuthGrants_T::instance().toString(database.grants(), QLocale::c()).toLower();
    };
    const auto culture = [](OpenDatabase &database) {
        return SLocale::lcName(database->culture(), false);
    };
    QList<SettingDifference> settings{
        {u"owner"_s, first->owner(), second->owner()},
        {u"grants"_s, grants(first), grants(second)},
        {u"culture"_s, culture(first), culture(second)},
        {u"version"_s, first->version(), second->version()},
    };
    settings.removeIf(
        [](const SettingDifference &setting) { return setting.first == setting.second; });
    return settings;
}

// The record as somebody wrote it, without what the database added.
SDBRecord contentOf(SDBRecord record, const QString &keyName)
{
    for (const QString &name : QList<QString>(record.names())) {
        if (FieldRules::isWrittenByDatabase(name) && name != keyName)
            record.remove(name);
    }
    return record;
}

bool isSameRecord(OpenDatabase &first, OpenDatabase &second, const QString &key, bool contentOnly)
{
    const SDBRecord a = first.record(key);
    const SDBRecord b = second.record(key);
    if (contentOnly)
        return contentOf(a, first->key()) == contentOf(b, first->key());
    return a == b;
}

QList<SDBField> keysOf(OpenDatabase &database)
{
    const QList<SDBField> keys = database->values(QString());
    database.require(database->error() == DBError::NoError);
    return keys;
}

// Both lists of keys are sorted.
QList<KeyDifference> keyDifferences(OpenDatabase &first, OpenDatabase &second, bool contentOnly)
{
    QList<KeyDifference> differences;
    const QList<SDBField> firstKeys = keysOf(first);
    const QList<SDBField> secondKeys = keysOf(second);
    auto a = firstKeys.begin();
    auto b = secondKeys.begin();
    while (a != firstKeys.end() || b != secondKeys.end()) {
        throwIfInterrupted();
        const QString keyA = a == firstKeys.end() ? QString() : a->value().toString();
        const QString keyB = b == secondKeys.end() ? QString() : b->value().toString();
        if (b == secondKeys.end() || (a != firstKeys.end() && keyA < keyB)) {
            differences.append({keyA, Presence::First});
            ++a;
        } else if (a == firstKeys.end() || keyB < keyA) {
            differences.append({keyB, Presence::Second});
            ++b;
        } else {
            if (!isSameRecord(first, second, keyA, contentOnly))
                differences.append({keyA, Presence::Both});
            ++a;
            ++b;
        }
    }
    return differences;
}

void write(const Output &output, const Differences &differences)
{
    for (const SettingDifference &setting : differences.settings)
        output.result(u"%1: %2 | %3"_s.arg(setting.name, setting.first, setting.second),
                      {{u"setting"_s, setting.name},
                       {u"first"_s, setting.first},
                       {u"second"_s, setting.second}});
    for (const KeyDifference &key : differences.keys) {
        const bool isFirst = key.presence == Presence::First;
        const bool isSecond = key.presence == Presence::Second;
        output.result((isFirst    ? u"< "_s
                       : isSecond ? u"> "_s
                                  : u"! "_s) +
                          key.key,
                      {{u"key"_s, key.key},
                       {u"in"_s, isFirst    ? u"first"_s
                                 : isSecond ? u"second"_s
                                            : u"both"_s}});
    }
}

ExitCode diff(const Output &output, const PairOptions &options)
{
    const DatabaseLogin login = loginOf(options.user);
    Differences differences;
    runDatabaseWork([&] {
        requireTwoFiles(options);
        OpenDatabase first(options.first, login);
        OpenDatabase second(options.second, login);
        requireSameKeyField(first, second);
        if (!options.contentOnly)
            differences.settings = settingDifferences(first, second);
        differences.keys = keyDifferences(first, second, options.contentOnly);
    });
    write(output, differences);
    const bool isSame = differences.settings.isEmpty() && differences.keys.isEmpty();
    return isSame ? ExitCode::Done : ExitCode::Refused;
}

} // namespace

void addDbPairCommands(Command *family)
{
    addCommand<PairOptions>(family, "merge", "Add the records of B to A whose keys A does not have",
                            "brix db merge inks.db more.db --user ann", declarePair, merge);
    addCommand<PairOptions>(family, "diff", "Tell in which records two databases differ",
                            "brix db diff inks.db more.db", declareDiff, diff);
}

} // namespace Brix
