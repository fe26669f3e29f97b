// SPDX-License-Identifier: MIT
#include "databaseworks.h"

#include <database/samplelog.h>

#include <brixlib/database/log/slogger.h>

#include <QtCore/QBuffer>
#include <QtCore/QDir>
#include <QtCore/QSet>

using namespace Talverine;
using namespace Talverine::Sample;
using namespace Qt::StringLiterals;

namespace {

using Levels = QMap<QString, QString>;
using Step = std::function<void()>;

// A record large enough that the files are written in several pieces.
constexpr int kPaddingCharacters = 1500;
const QString kFile = u"inks.db"_s;
const QString kBackup = u"backup.db"_s;
const QString kLog = u"machine.log"_s;

QString in(const QString &directory, const QString &name)
{
    return directory + u'/' + name;
}

SDBRecord padded(int number, int level)
{
    SDBRecord record = ink(u"ink%1"_s.arg(number, 4, 10, QLatin1Char('0')), level);
    record.insert(u"padding"_s, QString(kPaddingCharacters, u'x'));
    return record;
}

bool fill(SDBText &database, int records, int level)
{
    for (int number = 0; number < records; ++number) {
        if (!database.insert(padded(number, level)))
            return false;
    }
    return true;
}

//! A database of records of a level, with as many that were removed.
QByteArray databaseBytes(int records, int level)
{
    QBuffer device;
    SDBText database;
    if (!create(database, &device) || !fill(database, 2 * records, level))
        qFatal("no database");
    for (int number = records; number < 2 * records; ++number)
        database.remove(padded(number, level));
    return device.data();
}

QByteArray packedBackup(int records, int level)
{
    QBuffer device;
    SDBText database;
    QBuffer backup;
    if (!create(database, &device) || !fill(database, records, level))
        qFatal("no database");
    database.setBackupCompressor(Compression::CompressionAlgorithm::Lz4);
    if (!database.backup(&backup))
        qFatal("no backup");
    return backup.data();
}

Levels levelsOf(int records, int level)
{
    Levels levels;
    for (int number = 0; number < records; ++number)
        levels.insert(padded(number, level).value(u"name"_s).toString(), QString::number(level));
    return levels;
}

bool openAsAda(SDBText &database, const QString &file)
{
    return database.open(file) && (database.authenticate(kUser, kPassword), true);
}

//! The records of an open database; one without a fitting signature has the level "unsigned".
Levels levelsIn(SDBText &database)
{
    Levels levels;
    SDBRecord record;
    for (bool more = database.first(record); more;) {
        const QString name = record.value(u"name"_s).toString();
        levels.insert(name, record.checkSignature() ? record.value(u"level"_s).toString()
                                                    : u"unsigned"_s);
        more = database.next(name, record);
    }
    return levels;
}

//! The names in a directory that no database has left there when it was closed.
QStringList strangeFiles(const QString &directory, const QStringList &databases)
{
    QStringList strange;
    for (const QString &name : QDir(directory).entryList(QDir::Files | QDir::Hidden)) {
        bool isKnown = false;
        for (const QString &database : databases) {
            isKnown = isKnown || name == database || name == database + u".idx"_s ||
                      name == database + u".srec"_s ||
                      // Belongs to a backup that was being read. It blocks no one.
                      (name == database + u".lck"_s && database != kFile && database != kLog);
        }
        if (!isKnown)
            strange.append(name);
    }
    return strange;
}

QString contentFault(const Levels &found, const QList<Levels> &allowed)
{
    if (allowed.contains(found))
        return {};
    return u"%1 records, of which %2 are unsigned"_s.arg(found.size())
        .arg(found.values().count(u"unsigned"_s));
}

//! Opens the database, looks at its records, and uses it.
QString databaseFault(const QString &directory, const QList<Levels> &allowed, Levels *found)
{
    {
        SDBText database;
        if (!openAsAda(database, in(directory, kFile)))
            return u"does not open: %1"_s.arg(int(database.error()));
        *found = levelsIn(database);
        if (const QString fault = contentFault(*found, allowed); !fault.isEmpty())
            return fault;
        if (!database.insert(ink(u"after"_s)) || !database[u"after"_s].checkSignature())
            return u"takes no record"_s;
    }
    const QStringList strange = strangeFiles(directory, {kFile, kBackup});
    return strange.isEmpty() ? QString() : u"left behind: "_s + strange.join(u' ');
}

DatabaseWork onDatabase(const QString &name, const std::function<bool(SDBText &)> &work,
                        const std::function<Levels(int)> &result)
{
    const auto prepare = [](int records) {
        return Files{{kFile, databaseBytes(records, 1)}, {kBackup, databaseBytes(records + 1, 2)}};
    };
    const auto run = [work](const QString &directory, const Step &begin, const Step &end) {
        SDBText database;
        if (!openAsAda(database, in(directory, kFile)))
            qFatal("does not open");
        begin();
        const bool isDone = work(database);
        end();
        return isDone;
    };
    const auto check = [result](const QString &directory, const Files &before, bool *isNew) {
        const int records = int(before.value(kFile).count("name = "));
        const qint64 size = QFileInfo(in(directory, kFile)).size();
        Levels found;
        const QString fault =
            databaseFault(directory, {levelsOf(records, 1), result(records)}, &found);
        // A purge changes no record.
        *isNew = result(records) == levelsOf(records, 1) ? size != before.value(kFile).size()
                                                         : found == result(records);
        return fault;
    };
    return {name, prepare, run, check};
}

bool assignNew(SDBText &database)
{
    QBuffer device;
    SDBText other;
    device.setData(bytesOf(QFileInfo(database.fileName()).path() + u'/' + kBackup));
    if (!other.open(&device))
        qFatal("does not open");
    other.authenticate(kUser, kPassword);
    database = other;
    return database.error() == DBError::NoError;
}

QString backupOf(const SDBText &database)
{
    return in(QFileInfo(database.fileName()).path(), kBackup);
}

DatabaseWork packedRestore()
{
    const auto restore = [](SDBText &database) { return database.restore(backupOf(database)); };
    DatabaseWork work = onDatabase(u"restore-packed"_s, restore,
                                   [](int records) { return levelsOf(records + 1, 2); });
    work.prepare = [](int records) {
        return Files{{kFile, databaseBytes(records, 1)}, {kBackup, packedBackup(records + 1, 2)}};
    };
    return work;
}

// Whatever is not in the database any more is in the backup.
DatabaseWork backupAndClear()
{
    const auto backup = [](SDBText &database) { return database.backup(backupOf(database), true); };
    DatabaseWork work = onDatabase(u"backup-and-clear"_s, backup, [](int) { return Levels(); });
    work.prepare = [](int records) { return Files{{kFile, databaseBytes(records, 1)}}; };
    const auto checkDatabase = work.check;
    work.check = [checkDatabase](const QString &directory, const Files &before, bool *isNew) {
        const QString fault = checkDatabase(directory, before, isNew);
        if (!fault.isEmpty() || !*isNew)
            return fault;
        SDBText copy;
        const int records = int(before.value(kFile).count("name = "));
        if (!copy.open(in(directory, kBackup)) || levelsIn(copy) != levelsOf(records, 1))
            return u"cleared without a backup"_s;
        return QString();
    };
    return work;
}

// Logs

constexpr RotateParameters kUnlimited{.maxLogs = 100'000, .keepLogs = 5, .maxBytes = 1 << 30};
// Each opening rotates, however few the entries.
constexpr RotateParameters kTight{.maxLogs = 100'000, .keepLogs = 5, .maxBytes = 2000};

QSet<QString> signedIdsIn(const QString &fileName)
{
    // Not the file itself, which would get files beside it.
    QBuffer device;
    device.setData(bytesOf(fileName));
    SDBText database;
    QSet<QString> ids;
    if (!database.open(&device))
        return ids;
    SDBRecord record;
    for (bool more = database.first(record); more;) {
        if (record.checkSignature())
            ids.insert(record.value(SLogger::logId()).toString());
        more = database.next(record.value(database.key()).toString(), record);
    }
    return ids;
}

bool appendPadded(SLogger &log, const QString &prefix, int count)
{
    for (int number = 0; number < count; ++number) {
        SDBRecord entry = dated(number);
        entry.insert(u"padding"_s, QString(kPaddingCharacters, u'x'));
        if (!log.append(prefix + QString::number(number), entry))
            return false;
    }
    return true;
}

//! A log with so many entries and the nine backups before it, "0-…" being the oldest.
Files logWithBackups(int entries)
{
    const QTemporaryDir folder(scratchTemplate());
    SLogger log(folder.filePath(kLog), kUnlimited);
    bool isMade = log.open(kUser, kPassword);
    for (int rotation = 0; rotation < 9; ++rotation)
        isMade = isMade && appendPadded(log, u"%1-"_s.arg(rotation), 2) && log.rotate(false);
    isMade = isMade && appendPadded(log, u"9-"_s, entries) &&
             log.backup(folder.path(), u"copy.log"_s) && log.append(u"last"_s) && log.close();
    if (!isMade)
        qFatal("no log");
    Files files;
    const QDir dir(folder.path());
    for (const QString &name : dir.entryList(QDir::Files)) {
        if (!name.endsWith(u".idx") && !name.endsWith(u".srec"))
            files.insert(name, bytesOf(dir.filePath(name)));
    }
    return files;
}

//! As logWithBackups(), with the free name taken by a copy of the newest backup. The oldest one is
//! 01, which makes room with that.
Files logWithAllBackups(int entries)
{
    Files files = logWithBackups(entries);
    files[u"machine.B09"_s] = files.value(u"machine.B08"_s);
    files[u"machine.B00"_s].swap(files[u"machine.B01"_s]);
    return files;
}

QStringList rotatedFiles(const QString &directory)
{
    return QDir(directory).entryList({u"machine.log"_s, u"machine.B0?"_s}, QDir::Files);
}

//! What is missing of the entries "1-0" and so on up to those of the log itself.
QString missingEntries(const QString &directory, const Files &before)
{
    QSet<QString> found;
    for (const QString &name : rotatedFiles(directory))
        found += signedIdsIn(in(directory, name));
    const qsizetype entries = before.value(kLog).count("logid = 9-");
    for (int rotation = 1; rotation <= 9; ++rotation) {
        for (int number = 0; number < (rotation < 9 ? 2 : entries); ++number) {
            const QString id = u"%1-%2"_s.arg(rotation).arg(number);
            if (!found.contains(id))
                return u"lost "_s + id;
        }
    }
    if (!found.contains(u"last"_s))
        return u"lost the last entry"_s;
    return {};
}

// The next opening rotates where the rotation was not done. The oldest backup, with the entries of
// "0-", goes with either.
QString logFault(const QString &directory, const Files &before, const RotateParameters &limits,
                 bool *isNew)
{
    *isNew = bytesOf(in(directory, kLog)) != before.value(kLog);
    if (const QString fault = missingEntries(directory, before); !fault.isEmpty())
        return fault;
    {
        SLogger log(in(directory, kLog), *isNew ? kUnlimited : limits);
        if (!log.open(kUser, kPassword))
            return u"does not open: %1"_s.arg(int(log.error()));
        if (!log.append(u"after"_s) || !log.last().checkSignature())
            return u"takes no entry"_s;
    }
    if (const QString fault = missingEntries(directory, before); !fault.isEmpty())
        return u"after the next opening: "_s + fault;
    const QStringList strange =
        strangeFiles(directory, rotatedFiles(directory) + QStringList{u"copy.log"_s});
    return strange.isEmpty() ? QString() : u"left behind: "_s + strange.join(u' ');
}

// Each of the ten backups is as before, or what the rotation makes of it.
QString fullRingFault(const QString &directory, const Files &before, bool *isNew)
{
    if (const QString fault = logFault(directory, before, kUnlimited, isNew); !fault.isEmpty())
        return fault;
    for (int number = 0; number < 10; ++number) {
        const QString name = u"machine.B0%1"_s.arg(number);
        QByteArray expected = before.value(name);
        if (*isNew && number == 9)
            expected = before.value(kLog);
        const bool isExpected = !*isNew || number != 1;
        if (QFile::exists(in(directory, name)) != isExpected ||
            (isExpected && bytesOf(in(directory, name)) != expected))
            return u"not as it should be: "_s + name;
    }
    return {};
}

bool rotateLog(const QString &directory, const Step &begin, const Step &end)
{
    begin();
    bool isDone = false;
    {
        SLogger log(in(directory, kLog), kTight);
        isDone = log.open(kUser, kPassword);
        end();
    }
    return isDone;
}

bool restoreLog(const QString &directory, const Step &begin, const Step &end)
{
    SLogger log(in(directory, kLog), kUnlimited);
    if (!log.open(kUser, kPassword))
        qFatal("does not open");
    begin();
    const bool isDone = log.restore(directory, u"copy.log"_s, false);
    end();
    return isDone;
}

DatabaseWork onLog(const QString &name, decltype(DatabaseWork::run) run,
                   const RotateParameters &limits)
{
    const auto check = [limits](const QString &directory, const Files &before, bool *isNew) {
        return logFault(directory, before, limits, isNew);
    };
    return {name, logWithBackups, std::move(run), check};
}

} // namespace

const QList<DatabaseWork> &databaseWorks()
{
    const auto purge = [](SDBText &database) { return database.purge(); };
    const auto clear = [](SDBText &database) { return database.clear(); };
    const auto restore = [](SDBText &database) { return database.restore(backupOf(database)); };
    const auto replace = [](SDBText &database) { return database.replace(padded(0, 3)); };
    const auto other = [](int records) { return levelsOf(records + 1, 2); };
    const auto replaced = [](int records) {
        Levels levels = levelsOf(records, 1);
        levels[u"ink0000"_s] = u"3"_s;
        return levels;
    };
    static const QList<DatabaseWork> works{
        onDatabase(u"purge"_s, purge, [](int records) { return levelsOf(records, 1); }),
        onDatabase(u"clear"_s, clear, [](int) { return Levels(); }),
        onDatabase(u"restore"_s, restore, other),
        packedRestore(),
        onDatabase(u"assign"_s, assignNew, other),
        onDatabase(u"replace"_s, replace, replaced),
        backupAndClear(),
        onLog(u"rotate"_s, rotateLog, kTight),
        onLog(u"restore-log"_s, restoreLog, kUnlimited),
        {u"rotate-full-ring"_s, logWithAllBackups, rotateLog, fullRingFault},
    };
    return works;
}

const DatabaseWork *databaseWork(const QString &name)
{
    for (const DatabaseWork &work : databaseWorks()) {
        if (work.name == name)
            return &work;
    }
    return nullptr;
}

QString scratchTemplate()
{
    const QString memory = u"/dev/shm"_s;
    const bool isUsable = QFileInfo(memory).isDir() && QFileInfo(memory).isWritable();
    return in(isUsable ? memory : QDir::tempPath(), u"tst_killeddatabases-XXXXXX"_s);
}

bool writeFiles(const QString &directory, const Files &files)
{
    for (auto file = files.begin(); file != files.end(); ++file) {
        if (!setBytes(in(directory, file.key()), *file))
            return false;
    }
    return true;
}
