// SPDX-License-Identifier: MIT
// The text database beside SQLite, and its opening beside one pass of a checksum and one of a line
// scan over the same bytes. Times are those of the processor, which other programs on the machine
// disturb less; ratios are medians of turns.
//
//     bench_database --dir DIR [--records N] [--large N]
#include "shared/procfs.h"
#include "shared/sqlitetable.h"
#include "shared/timedpairs.h"

#include <brixlib/database/sdbtext.h>

#include <QtCore/QBuffer>
#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include <zlib.h>

using namespace Talverine;
using namespace Qt::StringLiterals;
using SqliteTable::Row;
using TimedPairs::now;

namespace {

constexpr int kTurns = 10;
constexpr int kLookups = 20000; // in a turn

[[noreturn]] void fail(const char *what)
{
    std::fprintf(stderr, "%s failed\n", what);
    std::exit(1);
}

void require(bool holds, const char *what)
{
    if (!holds)
        fail(what);
}

// ---- Records of 6 fields, about 250 bytes in the file with what the database adds

// 16 characters, in no order.
QByteArray keyOf(int number)
{
    const auto mixed = static_cast<quint32>(number) * 2654435761U;
    return QByteArray::number(mixed, 16).rightJustified(8, '0') +
           QByteArray::number(number).rightJustified(8, '0');
}

// Each colour has as many records as `perColour`.
Row rowOf(int number, int perColour)
{
    return {keyOf(number),
            "colour " + QByteArray::number(number / perColour),
            "supplier " + QByteArray::number(number % 17),
            QByteArray::number(number * 7),
            QByteArray::number(number % 100) + ".5",
            "opened, stirred"};
}

SDBRecord recordOf(const Row &row)
{
    SDBRecord record;
    record.insert(u"name"_s, QString::fromLatin1(row.name));
    record.insert(u"colour"_s, QString::fromLatin1(row.colour));
    record.insert(u"supplier"_s, QString::fromLatin1(row.supplier));
    record.insert(u"batch"_s, QString::fromLatin1(row.batch));
    record.insert(u"level"_s, QString::fromLatin1(row.level));
    record.insert(u"remark"_s, QString::fromLatin1(row.remark));
    return record;
}

struct Records
{
    std::vector<Row> rows;
    std::vector<SDBRecord> records;
};

Records makeRecords(int from, int count, int perColour)
{
    Records made;
    for (int i = from; i < from + count; ++i) {
        made.rows.push_back(rowOf(i, perColour));
        made.records.push_back(recordOf(made.rows.back()));
    }
    return made;
}

void createDatabase(SDBText *database, const QString &path)
{
    database->authenticate(u"ada"_s, u"secret"_s);
    require(database->create(path, u"name"_s), "create");
}

void fill(SDBText *database, int count, int perColour)
{
    for (int i = 0; i < count; ++i)
        require(database->insert(recordOf(rowOf(i, perColour))), "insert");
}

// ---- The marks

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double seconds(const TimedPairs::Work &work)
{
    const double start = now(CLOCK_THREAD_CPUTIME_ID);
    work();
    return now(CLOCK_THREAD_CPUTIME_ID) - start;
}

void printRates(const char *what, double count, const std::vector<double> &measured,
                const std::vector<double> &base)
{
    std::vector<double> ratios;
    for (std::size_t i = 0; i < measured.size(); ++i)
        ratios.push_back(base[i] / measured[i]);
    std::printf("%-44s %10.0f %10.0f a second   ratio %.2f\n", what, count / median(measured),
                count / median(base), median(ratios));
}

// In turns with SQLite; then what the signatures of the same records take.
void measureInsert(const QDir &dir, int count)
{
    SDBText database;
    createDatabase(&database, dir.filePath(u"insert.db"_s));
    require(database.addFieldIndex(u"colour"_s), "addFieldIndex");
    SqliteTable::Table table(QFile::encodeName(dir.filePath(u"insert.sqlite"_s)));
    std::vector<double> ours, theirs, signing;
    const int perTurn = count / kTurns;
    for (int turn = 0; turn < kTurns; ++turn) {
        Records made = makeRecords(turn * perTurn, perTurn, 10);
        ours.push_back(seconds([&] {
            for (const SDBRecord &record : made.records)
                require(database.insert(record), "insert");
        }));
        theirs.push_back(seconds([&] {
            for (const Row &row : made.rows)
                table.insert(row);
        }));
        signing.push_back(seconds([&] {
            for (SDBRecord &record : made.records)
                record.updateSignature();
        }));
    }
    printRates("insert, signed, beside SQLite", perTurn, ours, theirs);
    std::printf("%-44s %9.0f%%\n", "of that, the signatures", 100 * median(signing) / median(ours));
}

quint32 checksumAndLines(const QByteArray &bytes, qint64 *lines)
{
    const auto crc = crc32_z(0, reinterpret_cast<const Bytef *>(bytes.constData()),
                             static_cast<z_size_t>(bytes.size()));
    const char *at = bytes.constData();
    const char *const end = at + bytes.size();
    while ((at = static_cast<const char *>(std::memchr(at, '\n', static_cast<size_t>(end - at))))) {
        ++*lines;
        ++at;
    }
    return static_cast<quint32>(crc);
}

// The base reads the file too, as the database has to.
void measureOpen(const QString &path, int count)
{
    std::vector<double> ours, theirs;
    qint64 lines = 0;
    qint64 memory = 0;
    for (int turn = 0; turn < 3; ++turn) {
        const qint64 before = ProcFs::memoryKiB(QCoreApplication::applicationPid(), "VmRSS");
        SDBText database;
        database.authenticate(u"ada"_s, u"secret"_s);
        QFile::remove(path + u".idx"_s);
        ours.push_back(seconds([&] { require(database.open(path), "open"); }));
        require(database.count() == count, "count");
        if (turn == 0)
            memory = ProcFs::memoryKiB(QCoreApplication::applicationPid(), "VmRSS") - before;
        theirs.push_back(seconds([&] {
            QFile file(path);
            require(file.open(QIODevice::ReadOnly), "open of the file");
            QByteArray piece(1 << 20, Qt::Uninitialized);
            for (qint64 read; (read = file.read(piece.data(), piece.size())) > 0;)
                checksumAndLines(QByteArray::fromRawData(piece.constData(), read), &lines);
        }));
    }
    require(lines > count, "lines");
    const double mib = static_cast<double>(QFileInfo(path).size()) / 1048576;
    printRates("open, MiB, beside a checksum and a line scan", mib, ours, theirs);
    std::printf("%-44s %10.0f bytes a key\n", "memory of the open database",
                static_cast<double>(memory) * 1024 / count);
}

void measureValue(const QString &path, SqliteTable::Table *table, int count)
{
    SDBText database;
    database.authenticate(u"ada"_s, u"secret"_s);
    require(database.open(path), "open");
    std::mt19937 random(20261120);
    std::vector<double> ours, theirs;
    for (int turn = 0; turn < kTurns; ++turn) {
        std::vector<QByteArray> keys;
        std::vector<QString> texts;
        for (int i = 0; i < kLookups; ++i) {
            keys.push_back(keyOf(static_cast<int>(random() % static_cast<quint32>(count))));
            texts.push_back(QString::fromLatin1(keys.back()));
        }
        SDBRecord record;
        ours.push_back(seconds([&] {
            for (const QString &key : texts)
                require(database.value(key, record), "value");
        }));
        theirs.push_back(seconds([&] {
            for (const QByteArray &key : keys)
                require(table->valueBytes(key) > 0, "select");
        }));
    }
    printRates("value of random keys, beside SQLite", kLookups, ours, theirs);
}

// Hits of one colour in databases of one size and of ten times that.
void measureSearch(const QDir &dir, int records)
{
    for (const int scale : {1, 10}) {
        for (const int hits : {1, 10, 100}) {
            SDBText database;
            createDatabase(&database, dir.filePath(u"search.db"_s));
            require(database.addFieldIndex(u"colour"_s), "addFieldIndex");
            fill(&database, records * scale / 10, hits);
            QList<SDBRecord> found;
            const int colours = records * scale / 10 / hits;
            const auto search = [&](int number) {
                found.clear();
                const SDBField field(u"colour"_s,
                                     QStringLiteral("colour %1").arg(number % colours));
                require(database.searchField(field, found) && found.size() == hits, "search");
            };
            search(0);
            constexpr int kSearches = 100;
            const double time = seconds([&] {
                for (int i = 0; i < kSearches; ++i)
                    search(i);
            });
            std::printf("searchField, %7d records, %3d hits %19.1f us\n", records * scale / 10,
                        hits, time / kSearches * 1e6);
        }
    }
}

// The time for a record must not grow with their number.
void measureWhole(const QDir &dir, int records)
{
    std::printf("%-14s %9s %9s %9s %9s %9s %9s   us a record\n", "", "purge", "backup", "restore",
                "==", "+=", "-=");
    for (const int count : {records / 4, records / 2, records}) {
        SDBText database;
        createDatabase(&database, dir.filePath(u"whole.db"_s));
        fill(&database, count, 10);
        const QString backup = dir.filePath(u"whole.bak"_s);
        SDBText other;
        createDatabase(&other, dir.filePath(u"other.db"_s));
        const auto each = [count](const TimedPairs::Work &work) {
            return seconds(work) / count * 1e6;
        };
        const double purge = each([&] { require(database.purge(), "purge"); });
        const double saving = each([&] { require(database.backup(backup), "backup"); });
        const double adding = each([&] { other += database; });
        require(other.count() == count, "+=");
        const double comparing = each([&] { require(other == database, "=="); });
        const double removing = each([&] { other -= database; });
        require(other.isEmpty(), "-=");
        const double restoring = each([&] { require(other.restore(backup), "restore"); });
        std::printf("%7d        %9.2f %9.2f %9.2f %9.2f %9.2f %9.2f\n", count, purge, saving,
                    restoring, comparing, adding, removing);
    }
}

void fillTable(SqliteTable::Table *table, int count)
{
    table->run("BEGIN");
    for (int i = 0; i < count; ++i)
        table->insert(rowOf(i, 10));
    table->run("COMMIT");
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.addOptions(
        {{u"dir"_s, u"Where the files go."_s, u"DIR"_s, u"/dev/shm"_s},
         {u"records"_s, u"Records to insert, and of most figures."_s, u"N"_s, u"100000"_s},
         {u"large"_s, u"Records of the large file."_s, u"N"_s, u"1000000"_s}});
    parser.addHelpOption();
    parser.process(application);
    QDir dir(parser.value(u"dir"_s) + u"/bench_database"_s);
    dir.removeRecursively();
    require(dir.mkpath(u"."_s), "mkpath");
    const int records = parser.value(u"records"_s).toInt();
    const int large = parser.value(u"large"_s).toInt();

    measureInsert(dir, records);
    const QString path = dir.filePath(u"large.db"_s);
    {
        SDBText database;
        createDatabase(&database, path);
        fill(&database, large, 10);
    }
    measureOpen(path, large);
    {
        SqliteTable::Table table(QFile::encodeName(dir.filePath(u"large.sqlite"_s)));
        fillTable(&table, large);
        measureValue(path, &table, large);
    }
    QFile::remove(path);
    measureSearch(dir, records);
    measureWhole(dir, records);
    dir.removeRecursively();
    return 0;
}
