// SPDX-License-Identifier: MIT
// brix log, as processes.
#include "limitedprocess.h"
#include "tooldatabase.h"

#include <brixlib/database/log/slogger.h>
#include <brixlib/foundation/sdotnetcompatibilityhelper.h>

#include <shared/utctime.h>

#include <QtCore/QRegularExpression>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr int kPatienceMs = 30'000;

// The identifiers of lines such as "17*  DATE  ID  FIELD=VALUE".
QByteArrayList idsOf(const QByteArray &lines)
{
    QByteArrayList ids;
    for (const QByteArray &line : lines.split('\n')) {
        if (!line.isEmpty())
            ids.append(line.mid(line.indexOf("Z  ") + 3).split(' ').first());
    }
    return ids;
}

bool waitForEnd(const QProcess &process)
{
    return QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, kPatienceMs) &&
           process.exitStatus() == QProcess::NormalExit;
}

} // namespace

class tst_ToolLogCommands : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ToolDatabase> m_place;

    ToolResult log(const QStringList &arguments) const
    {
        return m_place->tool.run(QStringList{u"log"_s} + arguments);
    }
    ToolResult asOwner(const QStringList &arguments) const
    {
        return log(arguments + QStringList{u"--user"_s, u"ada"_s});
    }
    QByteArrayList shown() const { return idsOf(log({u"show"_s, u"machine.log"_s}).out); }

    bool open(SLogger *logger) const { return logger->open(u"ada"_s, u"secret"_s); }
    // Each at a time of its own, by which a rotation counts them.
    static SDBRecord entryOf(int number)
    {
        SDBRecord entry;
        entry.insert(u"head"_s, number);
        const QDateTime date = utcTime(QDate(2024, 1, 1), QTime(0, number));
        entry.insert(SLogger::logDate(), SDotNetCompatibilityHelper::toBinary(date));
        return entry;
    }
    // Entries "E1" and so on, each with the field "head".
    bool fill(int count) const
    {
        SLogger logger(m_place->path(u"machine.log"_s), RotateParameters());
        bool isDone = open(&logger);
        for (int i = 1; i <= count; ++i) {
            isDone = isDone && logger.append(u"E%1"_s.arg(i), entryOf(i));
        }
        return isDone;
    }
    void verifyRefused(const ToolResult &result, int exitCode, const QByteArray &reason) const
    {
        QCOMPARE(result.exitCode, exitCode);
        QVERIFY(result.out.isEmpty());
        QVERIFY2(result.err.contains(reason), result.err.constData());
    }

private Q_SLOTS:
    void initTestCase() { QLoggingCategory::setFilterRules(u"default.debug=false"_s); }
    void init() { m_place = std::make_unique<ToolDatabase>(); }

    // append

    void appendMakesTheLogAndAddsEntries()
    {
        const auto result = asOwner({u"append"_s, u"machine.log"_s, u"HeadCleaned"_s, u"head=3"_s,
                                     u"ink=cyan"_s, u"ink=red"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "added 1\n"_ba);
        QVERIFY(result.err.isEmpty());
        const auto second = asOwner({u"append"_s, u"machine.log"_s, u"Ready"_s, u"--json"_s});
        QCOMPARE(second.out, "{\"key\":\"0000000000000002\"}\n"_ba);

        SLogger logger(m_place->path(u"machine.log"_s), RotateParameters());
        QVERIFY(open(&logger));
        QVERIFY(logger.isWriteable());
        QCOMPARE(logger.count(), 2);
        const SDBRecord first = logger.first();
        QVERIFY(first.checkSignature());
        QCOMPARE(first.value(SLogger::logId()).toString(), u"HeadCleaned"_s);
        QCOMPARE(first.value(u"head"_s).toString(), u"3"_s);
        QCOMPARE(first.value(u"ink"_s).toStringList(), (QStringList{u"cyan"_s, u"red"_s}));
        QVERIFY(std::abs(SLogger::recordDateTime(first).secsTo(QDateTime::currentDateTimeUtc())) <
                300);
    }

    void newLogIsReadableByItsOwnerAlone()
    {
        QCOMPARE(asOwner({u"append"_s, u"machine.log"_s, u"Ready"_s}).exitCode, 0);
        const auto others = QFileDevice::ReadGroup | QFileDevice::WriteGroup |
                            QFileDevice::ReadOther | QFileDevice::WriteOther;
        for (const QString &name :
             {u"machine.log"_s, u"machine.log.srec"_s, u"machine.log.idx"_s}) {
            const QFileInfo file(m_place->path(name));
            QVERIFY2(file.exists(), qPrintable(name));
            QVERIFY2(!(file.permissions() & others), qPrintable(name));
        }
    }

    void appendRotatesWhatHasOutgrownItsLimits()
    {
        QVERIFY(fill(11));
        const auto result =
            asOwner({u"append"_s, u"machine.log"_s, u"Last"_s, u"--max-logs"_s, u"10"_s});
        QCOMPARE(result.exitCode, 0);
        QVERIFY2(result.err.contains("the log was rotated"), result.err.constData());
        QCOMPARE(shown(), (QByteArrayList{"LogRotate", "E9", "E10", "E11", "Last"}));
        QVERIFY(QFile::exists(m_place->path(u"machine.B00"_s)));
        const auto quiet = asOwner(
            {u"append"_s, u"machine.log"_s, u"X"_s, u"--max-bytes"_s, u"100"_s, u"--quiet"_s});
        QCOMPARE(quiet.exitCode, 0);
        QVERIFY(quiet.err.isEmpty());
        QVERIFY(QFile::exists(m_place->path(u"machine.B01"_s)));
    }

    void appendWithoutLimitsReachedKeepsAll()
    {
        QVERIFY(fill(30));
        QCOMPARE(asOwner({u"append"_s, u"machine.log"_s, u"Last"_s}).exitCode, 0);
        QCOMPARE(shown().size(), 31);
    }

    void appendRefusesWhatALogCannotHold_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("no identifier") << QStringList{u""_s};
        QTest::newRow("an identifier of two lines") << QStringList{u"a\nb"_s};
        QTest::newRow("no field") << QStringList{u"A"_s, u"head"_s};
        QTest::newRow("a dot in a name") << QStringList{u"A"_s, u"a.b=1"_s};
        QTest::newRow("the log's identifier") << QStringList{u"A"_s, u"logid=1"_s};
        QTest::newRow("the log's date") << QStringList{u"A"_s, u"logdate=1"_s};
        QTest::newRow("the pin") << QStringList{u"A"_s, u"logpindown=true"_s};
        QTest::newRow("the key") << QStringList{u"A"_s, u"_uniqueinckey=1"_s};
    }

    void appendRefusesWhatALogCannotHold()
    {
        QFETCH(QStringList, arguments);
        verifyRefused(asOwner(QStringList{u"append"_s, u"machine.log"_s} + arguments), 2, "brix: ");
        QVERIFY(m_place->files().isEmpty());
    }

    void newLogNeedsAPassword()
    {
        m_place->tool.password = u""_s;
        verifyRefused(asOwner({u"append"_s, u"machine.log"_s, u"A"_s}), 2,
                      "an empty password is not taken");
        QCOMPARE(log({u"append"_s, u"machine.log"_s, u"A"_s}).exitCode, 2);
        QVERIFY(m_place->files().isEmpty());
    }

    void fullDiskIsTold()
    {
        QVERIFY(fill(3));
        QProcess process;
        m_place->tool.prepare(
            &process, {u"log"_s, u"append"_s, u"machine.log"_s, u"A"_s, u"--user"_s, u"ada"_s});
        limitFileSize(&process, rlim_t(m_place->read(u"machine.log"_s).size() + 10));
        process.start();
        QVERIFY(waitForEnd(process));
        QCOMPARE(process.exitCode(), 4);
        QVERIFY(process.readAllStandardError().contains("cannot write"));
        QCOMPARE(shown(), (QByteArrayList{"E1", "E2", "E3"}));
        // What was begun does not hide what comes behind it.
        QCOMPARE(asOwner({u"append"_s, u"machine.log"_s, u"B"_s}).exitCode, 0);
        QCOMPARE(shown(), (QByteArrayList{"E1", "E2", "E3", "B"}));
    }

    // show and search

    void showTellsTheEntriesInTheirOrder()
    {
        QVERIFY(fill(3));
        const auto text = log({u"show"_s, u"machine.log"_s});
        QCOMPARE(text.exitCode, 0);
        QCOMPARE(text.lines().size(), 3);
        const QRegularExpression line(
            u"^2  \\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z  E2  head=2$"_s);
        QVERIFY2(line.match(QString::fromUtf8(text.lines()[1])).hasMatch(), text.out.constData());
        const auto json = log({u"show"_s, u"machine.log"_s, u"--last"_s, u"1"_s, u"--json"_s});
        QCOMPARE(json.lines().size(), 1);
        const auto object = ToolDatabase::object(json.out);
        QCOMPARE(object.value("key"_L1).toString(), u"0000000000000003"_s);
        QCOMPARE(object.value("id"_L1).toString(), u"E3"_s);
        QCOMPARE(object.value("pinned"_L1).toBool(true), false);
        QCOMPARE(object.value("fields"_L1).toObject(), (QJsonObject{{u"head"_s, u"3"_s}}));
    }

    void openLogIsReadByOthers()
    {
        QVERIFY(fill(3));
        SLogger holder(m_place->path(u"machine.log"_s), RotateParameters());
        QVERIFY(open(&holder));
        const QStringList before = m_place->files();
        QCOMPARE(shown(), (QByteArrayList{"E1", "E2", "E3"}));
        const auto found = log({u"search"_s, u"machine.log"_s, u"head"_s, u"2"_s});
        QCOMPARE(found.exitCode, 0);
        QCOMPARE(idsOf(found.out), QByteArrayList{"E2"});
        QCOMPARE(m_place->files(), before);
        verifyRefused(asOwner({u"append"_s, u"machine.log"_s, u"A"_s}), 4, "is in use by process");
    }

    void entryThatIsBeingWrittenIsNotShown()
    {
        QVERIFY(fill(2));
        QVERIFY(m_place->write(u"machine.log"_s, m_place->read(u"machine.log"_s).chopped(30)));
        QCOMPARE(shown(), QByteArrayList{"E1"});
    }

    void searchWithoutAHitIsNotFound()
    {
        QVERIFY(fill(2));
        for (const QString &value : {u"3"_s, u"02"_s, u""_s})
            QCOMPARE(log({u"search"_s, u"machine.log"_s, u"head"_s, value}).exitCode, 1);
        QCOMPARE(log({u"search"_s, u"machine.log"_s, u"none"_s, u""_s}).exitCode, 1);
        QCOMPARE(idsOf(log({u"search"_s, u"machine.log"_s, u"logid"_s, u"E2"_s}).out),
                 QByteArrayList{"E2"});
    }

    // tail

    void tailShowsTheLastEntries()
    {
        QVERIFY(fill(12));
        QCOMPARE(idsOf(log({u"tail"_s, u"machine.log"_s}).out).first(), "E3"_ba);
        QCOMPARE(idsOf(log({u"tail"_s, u"machine.log"_s, u"-n"_s, u"2"_s}).out),
                 (QByteArrayList{"E11", "E12"}));
        QVERIFY(log({u"tail"_s, u"machine.log"_s, u"-n"_s, u"0"_s}).out.isEmpty());
    }

    void tailFollowsTheLogThroughARotation()
    {
        QVERIFY(fill(4));
        QProcess process;
        m_place->tool.prepare(&process,
                              {u"log"_s, u"tail"_s, u"-f"_s, u"-n"_s, u"1"_s, u"machine.log"_s});
        process.start();
        QByteArray told;
        const auto isTold = [&](const QByteArrayList &ids) {
            return QTest::qWaitFor(
                [&] {
                    told += process.readAllStandardOutput();
                    return idsOf(told) == ids;
                },
                kPatienceMs);
        };
        QVERIFY2(isTold({"E4"}), told.constData());
        SLogger logger(m_place->path(u"machine.log"_s),
                       RotateParameters{.maxLogs = 10000, .keepLogs = 2, .maxBytes = 1 << 26});
        QVERIFY(open(&logger));
        QVERIFY(logger.append(u"E5"_s));
        QVERIFY2(isTold({"E4", "E5"}), told.constData());
        // What the new log has of the old one has been told.
        QVERIFY(logger.rotate(true));
        QVERIFY2(isTold({"E4", "E5", "LogRotate"}), told.constData());
        QVERIFY(logger.append(u"E6"_s));
        QVERIFY2(isTold({"E4", "E5", "LogRotate", "E6"}), told.constData());
        process.terminate();
        QVERIFY(waitForEnd(process));
        QCOMPARE(process.exitCode(), 0);
        QVERIFY(process.readAllStandardError().isEmpty());
    }

    void tailMissesNothingBeforeARotation_data()
    {
        QTest::addColumn<bool>("hasBackup");
        QTest::addColumn<QByteArrayList>("told");
        QTest::newRow("from the backup")
            << true << QByteArrayList{"E4", "E5", "E6", "E7", "E8", "LogRotate", "After"};
        QTest::newRow("what was carried over")
            << false << QByteArrayList{"E4", "LogRotate", "E7", "E8", "After"};
    }

    void tailMissesNothingBeforeARotation()
    {
        QFETCH(bool, hasBackup);
        QFETCH(QByteArrayList, told);
        QVERIFY(fill(4));
        QProcess process;
        m_place->tool.prepare(&process,
                              {u"log"_s, u"tail"_s, u"-f"_s, u"-n"_s, u"1"_s, u"machine.log"_s});
        process.start();
        QByteArray lines;
        const auto ids = [&] {
            lines += process.readAllStandardOutput();
            return idsOf(lines);
        };
        QTRY_COMPARE_WITH_TIMEOUT(ids(), QByteArrayList{"E4"}, kPatienceMs);
        // All of this comes between two of its looks at the log.
        QCOMPARE(::kill(pid_t(process.processId()), SIGSTOP), 0);
        {
            SLogger logger(m_place->path(u"machine.log"_s),
                           RotateParameters{.maxLogs = 10000, .keepLogs = 2, .maxBytes = 1 << 26});
            QVERIFY(open(&logger));
            for (int i = 5; i <= 8; ++i)
                QVERIFY(logger.append(u"E%1"_s.arg(i), entryOf(i)));
            QVERIFY(logger.rotate(true));
            QVERIFY(logger.append(u"After"_s));
        }
        if (!hasBackup)
            QVERIFY(QFile::remove(m_place->path(u"machine.B00"_s)));
        QCOMPARE(::kill(pid_t(process.processId()), SIGCONT), 0);
        QTRY_COMPARE_WITH_TIMEOUT(ids(), told, kPatienceMs);
        process.terminate();
        QVERIFY(waitForEnd(process));
        QCOMPARE(ids(), told);
    }

    void tailEndsWithItsReader()
    {
        QVERIFY(fill(2));
        QProcess process;
        QProcess reader;
        m_place->tool.prepare(&process,
                              {u"log"_s, u"tail"_s, u"-f"_s, u"-n"_s, u"1"_s, u"machine.log"_s});
        process.setStandardOutputProcess(&reader);
        process.start();
        reader.start(u"head"_s, {u"-n"_s, u"1"_s});
        QVERIFY(waitForEnd(reader));
        QCOMPARE(idsOf(reader.readAllStandardOutput()), QByteArrayList{"E2"});
        // No entry comes any more, the writing of which would fail.
        QVERIFY(waitForEnd(process));
        QCOMPARE(process.exitCode(), 0);
        QVERIFY(process.readAllStandardError().isEmpty());
    }

    void tailWaitsForTheEndOfAnEntry()
    {
        QVERIFY(fill(3));
        const QByteArray whole = m_place->read(u"machine.log"_s);
        QVERIFY(m_place->write(u"machine.log"_s, whole.chopped(20)));
        QProcess process;
        m_place->tool.prepare(&process, {u"log"_s, u"tail"_s, u"-f"_s, u"machine.log"_s});
        process.start();
        QByteArray told;
        const auto count = [&] {
            told += process.readAllStandardOutput();
            return told.count('\n');
        };
        QTRY_COMPARE_WITH_TIMEOUT(count(), 2, kPatienceMs);
        QFile file(m_place->path(u"machine.log"_s));
        QVERIFY(file.open(QIODevice::Append));
        QVERIFY(file.write(whole.last(20)) == 20 && file.flush());
        QTRY_COMPARE_WITH_TIMEOUT(count(), 3, kPatienceMs);
        QCOMPARE(idsOf(told).last(), "E3"_ba);
        process.terminate();
        QVERIFY(waitForEnd(process));
    }

    // pin and unpin

    void pinnedEntryGetsANewNumber()
    {
        QVERIFY(fill(3));
        const auto result = asOwner({u"pin"_s, u"machine.log"_s, u"1"_s, u"0000000000000002"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "pinned, now 4\npinned, now 5\n"_ba);
        const auto lines = log({u"show"_s, u"machine.log"_s}).lines();
        QVERIFY(lines[1].startsWith("4*  ") && lines[1].contains("  E1  "));
        const auto unpinned = asOwner({u"unpin"_s, u"machine.log"_s, u"4"_s, u"--json"_s});
        QCOMPARE(unpinned.out, "{\"key\":\"0000000000000006\"}\n"_ba);
        SLogger logger(m_place->path(u"machine.log"_s), RotateParameters());
        QVERIFY(open(&logger));
        QVERIFY(!SLogger::isPinned(logger.last()));
        QCOMPARE(logger.last().value(SLogger::logId()).toString(), u"E1"_s);
    }

    void pinOfAChangedEntryIsRefused()
    {
        QVERIFY(fill(2));
        QByteArray bytes = m_place->read(u"machine.log"_s);
        QVERIFY(m_place->write(u"machine.log"_s, bytes.replace("logid = E2", "logid = E9")));
        const QByteArray before = m_place->read(u"machine.log"_s);
        const qsizetype line =
            before.first(before.indexOf("_uniqueinckey = 0000000000000002")).count('\n') + 1;
        const auto result = asOwner({u"pin"_s, u"machine.log"_s, u"1"_s, u"2"_s});
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(result.out, "pinned, now 3\n"_ba);
        QVERIFY2(result.err.contains("machine.log:" + QByteArray::number(line) +
                                     ": the signature of \"0000000000000002\" does not match"),
                 result.err.constData());
        QCOMPARE(asOwner({u"pin"_s, u"machine.log"_s, u"2"_s, u"--accept-changed"_s}).out,
                 "pinned, now 4\n"_ba);
    }

    void pinTellsWhatIsMissing()
    {
        QVERIFY(fill(2));
        const auto result = asOwner({u"pin"_s, u"machine.log"_s, u"1"_s, u"9"_s, u"2"_s});
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(result.out, "pinned, now 3\n"_ba);
        QVERIFY2(result.err.contains("has no entry 9"), result.err.constData());
        verifyRefused(asOwner({u"pin"_s, u"machine.log"_s, u"two"_s}), 2, "not the number");
        verifyRefused(asOwner({u"pin"_s, u"machine.log"_s, u"0"_s}), 2, "not the number");
    }

    // rotate and backups

    void rotateKeepsTheNewestAndThePinned()
    {
        QVERIFY(fill(12));
        QCOMPARE(asOwner({u"pin"_s, u"machine.log"_s, u"1"_s}).exitCode, 0);
        const QByteArray before = m_place->read(u"machine.log"_s);
        const auto result =
            asOwner({u"rotate"_s, u"machine.log"_s, u"--keep-logs"_s, u"3"_s, u"--json"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(ToolDatabase::object(result.out).value("backup"_L1).toString(), u"machine.B00"_s);
        QCOMPARE(m_place->read(u"machine.B00"_s), before);
        QCOMPARE(shown(), (QByteArrayList{"LogRotate", "E1", "E11", "E12"}));
        const auto empty = asOwner({u"rotate"_s, u"machine.log"_s, u"--keep-logs"_s, u"0"_s});
        QCOMPARE(empty.out, "rotated to machine.B01, 0 entries kept\n"_ba);
        QCOMPARE(shown(), QByteArrayList{"LogRotate"});
    }

    void backupsAreListed()
    {
        QVERIFY(log({u"backups"_s, u"machine.log"_s}).out.isEmpty());
        QVERIFY(fill(1));
        QCOMPARE(asOwner({u"rotate"_s, u"machine.log"_s}).exitCode, 0);
        QCOMPARE(asOwner({u"rotate"_s, u"machine.log"_s}).exitCode, 0);
        const auto text = log({u"backups"_s, u"machine.log"_s});
        QCOMPARE(text.exitCode, 0);
        QCOMPARE(text.lines().size(), 2);
        QVERIFY(text.lines()[0].startsWith(m_place->path(u"machine.B00"_s).toLocal8Bit() + "  "));
        const auto json = log({u"backups"_s, u"machine.log"_s, u"--json"_s});
        QCOMPARE(ToolDatabase::object(json.lines()[1]).value("bytes"_L1).toInteger(),
                 QFileInfo(m_place->path(u"machine.B01"_s)).size());
    }

    // backup and restore

    void backupComesBack_data()
    {
        QTest::addColumn<QString>("compressor");
        QTest::newRow("plain") << u"none"_s;
        QTest::newRow("lz4") << u"lz4"_s;
    }

    void backupComesBack()
    {
        QFETCH(QString, compressor);
        QVERIFY(fill(3));
        const QByteArray before = m_place->read(u"machine.log"_s);
        QCOMPARE(
            log({u"backup"_s, u"machine.log"_s, u"saved"_s, u"--compress"_s, compressor}).exitCode,
            0);
        QCOMPARE(asOwner({u"append"_s, u"machine.log"_s, u"E4"_s}).exitCode, 0);
        // Merged by a field, only what is missing comes in.
        const auto merged = asOwner(
            {u"restore"_s, u"machine.log"_s, u"saved"_s, u"--merge"_s, u"--unique"_s, u"logid"_s});
        QVERIFY2(merged.exitCode == 0, merged.err.constData());
        QCOMPARE(merged.out, "restored: 4 entries now\n"_ba);
        QCOMPARE(asOwner({u"restore"_s, u"machine.log"_s, u"saved"_s, u"--merge"_s}).exitCode, 0);
        QCOMPARE(shown(), (QByteArrayList{"E1", "E2", "E3", "E4", "E1", "E2", "E3"}));
        const auto result = asOwner({u"restore"_s, u"machine.log"_s, u"saved"_s});
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QCOMPARE(m_place->read(u"machine.log"_s), before);
        // What the log was before has been rotated away.
        QVERIFY(QFile::exists(m_place->path(u"machine.B00"_s)));
        QVERIFY(!QFile::exists(m_place->path(u"saved.srec"_s)));
    }

    void whatIsNoBackupCostsNothing_data()
    {
        QTest::addColumn<QString>("backup");
        QTest::addColumn<int>("exitCode");
        QTest::newRow("missing") << u"none"_s << 4;
        QTest::newRow("a folder") << u"."_s << 4;
        QTest::newRow("text") << u"text"_s << 1;
        QTest::newRow("an ordinary database") << u"inks.db"_s << 1;
        QTest::newRow("a log of somebody else") << u"other.log"_s << 1;
        QTest::newRow("cut off") << u"cut"_s << 1;
        QTest::newRow("the log") << u"machine.log"_s << 2;
    }

    void whatIsNoBackupCostsNothing()
    {
        QFETCH(QString, backup);
        QFETCH(int, exitCode);
        QVERIFY(fill(2));
        QVERIFY(m_place->create());
        QVERIFY(m_place->write(u"text"_s, "text\n"_ba));
        QCOMPARE(log({u"backup"_s, u"machine.log"_s, u"cut"_s, u"--compress"_s, u"lz4"_s}).exitCode,
                 0);
        QVERIFY(m_place->write(u"cut"_s, m_place->read(u"cut"_s).chopped(3)));
        {
            SLogger other(m_place->path(u"other.log"_s), RotateParameters());
            QVERIFY(other.open(u"eve"_s, u"secret"_s));
        }
        const QByteArray before = m_place->read(u"machine.log"_s);
        for (const QStringList &more : {QStringList(), QStringList{u"--merge"_s}}) {
            const auto result = asOwner(QStringList{u"restore"_s, u"machine.log"_s, backup} + more);
            QCOMPARE(result.exitCode, exitCode);
            QVERIFY(!result.err.isEmpty());
            QCOMPARE(m_place->read(u"machine.log"_s), before);
            QVERIFY(!QFile::exists(m_place->path(u"machine.B00"_s)));
        }
    }

    // What all have in common

    void whatIsNoLogIsRefused_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("reason");
        QTest::newRow("missing") << u"none"_s << 4 << "there is no such file"_ba;
        QTest::newRow("a folder") << u"."_s << 4 << "it is a folder"_ba;
        QTest::newRow("text") << u"text"_s << 1 << "is not a database"_ba;
        QTest::newRow("an ordinary database") << u"inks.db"_s << 1 << "but not a log"_ba;
    }

    void whatIsNoLogIsRefused()
    {
        QFETCH(QString, file);
        QFETCH(int, exitCode);
        QFETCH(QByteArray, reason);
        QVERIFY(m_place->create());
        QVERIFY(m_place->fill({u"a"_s, u"b"_s}));
        QVERIFY(m_place->write(u"text"_s, "text\n"_ba));
        const QByteArray before = m_place->read();
        for (const QStringList &arguments :
             {QStringList{u"show"_s, file}, QStringList{u"tail"_s, file},
              QStringList{u"search"_s, file, u"a"_s, u"b"_s}, QStringList{u"pin"_s, file, u"1"_s},
              QStringList{u"unpin"_s, file, u"1"_s}, QStringList{u"rotate"_s, file},
              QStringList{u"restore"_s, file, u"source"_s}})
            verifyRefused(asOwner(arguments), exitCode, reason);
        if (file != u"none"_s)
            verifyRefused(asOwner({u"append"_s, file, u"A"_s, u"--max-bytes"_s, u"1"_s}), exitCode,
                          reason);
        QCOMPARE(m_place->read(), before);
        QVERIFY(!QFile::exists(m_place->path(u"inks.B00"_s)));
    }

    void wrongPasswordIsRefused()
    {
        QVERIFY(fill(2));
        m_place->tool.password = u"guess"_s;
        const QByteArray before = m_place->read(u"machine.log"_s);
        for (const QStringList &arguments :
             {QStringList{u"append"_s, u"machine.log"_s, u"A"_s},
              QStringList{u"pin"_s, u"machine.log"_s, u"1"_s},
              QStringList{u"rotate"_s, u"machine.log"_s},
              QStringList{u"restore"_s, u"machine.log"_s, u"machine.log.srec"_s}})
            verifyRefused(asOwner(arguments), 1,
                          "belongs to another user, or has another password");
        verifyRefused(asOwner({u"show"_s, u"machine.log"_s}), 1, "the password of ada");
        QCOMPARE(m_place->read(u"machine.log"_s), before);
    }

    void everySubcommandHasAnExample()
    {
        for (const QString &name :
             {u"append"_s, u"show"_s, u"tail"_s, u"search"_s, u"pin"_s, u"unpin"_s, u"rotate"_s,
              u"backup"_s, u"restore"_s, u"backups"_s}) {
            const auto result = log({name, u"--help"_s});
            QCOMPARE(result.exitCode, 0);
            QVERIFY2(result.out.contains("Example:\n  brix log " + name.toLatin1()),
                     result.out.constData());
        }
    }
};

QTEST_GUILESS_MAIN(tst_ToolLogCommands)
#include "tst_toollogcommands.moc"
