// SPDX-License-Identifier: MIT
// brix db export and import, as processes.
#include "limitedprocess.h"
#include "tooldatabase.h"

#include <QtCore/QJsonArray>

#include <filesystem>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_ToolDbCommandsJson : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ToolDatabase> m_place;

    ToolResult import(const QByteArray &lines, const QStringList &more = {})
    {
        m_place->tool.input = lines;
        return m_place->asOwner(QStringList{u"import"_s, u"inks.db"_s} + more);
    }

private Q_SLOTS:
    void initTestCase() { QLoggingCategory::setFilterRules(u"default.debug=false"_s); }
    void init()
    {
        m_place = std::make_unique<ToolDatabase>();
        QVERIFY(m_place->create());
    }

    // export

    void exportWritesALineARecord()
    {
        QVERIFY(m_place->fill({u"magenta"_s, u"cyan"_s}));
        const auto result = m_place->db({u"export"_s, u"inks.db"_s});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.err.isEmpty());
        QCOMPARE(result.lines().size(), 2);
        QVERIFY(result.lines()[0].startsWith(R"({"name":"cyan","level":"4","maker":"Ann",)"));
        const auto second = ToolDatabase::object(result.lines()[1]);
        QCOMPARE(second.value("name"_L1).toString(), u"magenta"_s);
        QCOMPARE(second.value("_recowner"_L1).toString(), u"ada"_s);
        QCOMPARE(second.value("_signature"_L1).toString(),
                 m_place->record(u"magenta"_s).signature());
    }

    void exportToAFileIsTold()
    {
        QVERIFY(m_place->fill({u"cyan"_s}));
        const auto lines = m_place->db({u"export"_s, u"inks.db"_s}).out;
        const auto result = m_place->db({u"export"_s, u"inks.db"_s, u"out"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "exported 1 record\n"_ba);
        QCOMPARE(m_place->read(u"out"_s), lines);
        QCOMPARE(m_place->databases(), (QStringList{u"inks.db"_s, u"out"_s}));
    }

    void exportIsNotWrittenOverTheDatabase()
    {
        QVERIFY(m_place->fill({u"cyan"_s}));
        QVERIFY(QFile::link(m_place->path(), m_place->path(u"link.db"_s)));
        std::filesystem::create_hard_link(m_place->path().toStdString(),
                                          m_place->path(u"hard.db"_s).toStdString());
        const QByteArray before = m_place->read();
        for (const QString &target : {u"inks.db"_s, u"./inks.db"_s, u"link.db"_s, u"hard.db"_s}) {
            const auto result = m_place->db({u"export"_s, u"inks.db"_s, target});
            QCOMPARE(result.exitCode, 2);
            QVERIFY2(result.err.contains("both are the same file"), result.err.constData());
            QCOMPARE(m_place->read(), before);
        }
    }

    void dashIsTheStandardStream()
    {
        QVERIFY(m_place->fill({u"cyan"_s}));
        const auto exported = m_place->db({u"export"_s, u"inks.db"_s, u"-"_s});
        QCOMPARE(exported.exitCode, 0);
        QCOMPARE(exported.out, m_place->db({u"export"_s, u"inks.db"_s}).out);
        const auto imported = import(exported.out, {u"-"_s, u"--replace"_s});
        QVERIFY2(imported.exitCode == 0, imported.err.constData());
        QCOMPARE(imported.out, "imported 1 record, 1 of them in place of others\n"_ba);
        QCOMPARE(m_place->databases(), QStringList{u"inks.db"_s});
    }

    void failedExportLeavesTheOlderFile()
    {
        QVERIFY(m_place->fill({u"cyan"_s, u"magenta"_s}));
        QVERIFY(m_place->write(u"out"_s, "older"_ba));
        QProcess process;
        m_place->tool.prepare(&process, {u"db"_s, u"export"_s, u"inks.db"_s, u"out"_s});
        limitFileSize(&process, 100);
        process.start();
        QVERIFY(process.waitForFinished(30'000));
        QCOMPARE(process.exitCode(), 4);
        QVERIFY(process.readAllStandardError().contains("cannot write"));
        QCOMPARE(m_place->read(u"out"_s), "older"_ba);
        QCOMPARE(m_place->databases(), (QStringList{u"inks.db"_s, u"out"_s}));
    }

    void fullStdoutIsTold()
    {
        QVERIFY(m_place->fill({u"cyan"_s}));
        QProcess process;
        m_place->tool.prepare(&process, {u"db"_s, u"export"_s, u"inks.db"_s});
        process.setStandardOutputFile(u"/dev/full"_s);
        process.start();
        QVERIFY(process.waitForFinished(30'000));
        QCOMPARE(process.exitCode(), 4);
        QVERIFY(process.readAllStandardError().contains("cannot write to stdout"));
    }

    void exportEndsQuietlyWhenNobodyReads()
    {
        QStringList names;
        for (int i = 0; i < 2000; ++i)
            names.append(u"ink%1"_s.arg(i));
        QVERIFY(m_place->fill(names));
        QProcess tool;
        m_place->tool.prepare(&tool, {u"db"_s, u"export"_s, u"inks.db"_s});
        QProcess head;
        head.setProgram(u"head"_s);
        head.setArguments({u"-n1"_s});
        tool.setStandardOutputProcess(&head);
        tool.start();
        head.start();
        QVERIFY(tool.waitForFinished(30'000));
        QVERIFY(head.waitForFinished(30'000));
        QCOMPARE(tool.exitStatus(), QProcess::NormalExit);
        QCOMPARE(tool.exitCode(), 0);
        QCOMPARE(tool.readAllStandardError(), QByteArray());
        QCOMPARE(head.readAllStandardOutput().count('\n'), 1);
    }

    void exportTellsOfDamage()
    {
        QVERIFY(m_place->fill({u"cyan"_s, u"magenta"_s}));
        QVERIFY(m_place->write(u"inks.db"_s, m_place->read().replace("level = 4", "level = 5")));
        const auto result = m_place->db({u"export"_s, u"inks.db"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.lines().size(), 2);
        QVERIFY2(result.err.contains("the signatures of 1 record do not match"),
                 result.err.constData());
    }

    // import

    void importAddsSignedRecords()
    {
        const auto result = import(R"({"name":"größe","z":"1","a":["x","y 😀"],"n":1.5,"t":true}
{"name":"cyan","none":null,"one":["x"]})"_ba);
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QCOMPARE(result.out, "imported 2 records\n"_ba);
        const SDBRecord record = m_place->record(u"größe"_s);
        QVERIFY(record.checkSignature());
        QCOMPARE(record.names().first(5),
                 (QList<QString>{u"name"_s, u"z"_s, u"a"_s, u"n"_s, u"t"_s}));
        QCOMPARE(record.value(u"a"_s), QVariant(QVariantList{u"x"_s, u"y 😀"_s}));
        QCOMPARE(record.value(u"n"_s).toString(), u"1.5"_s);
        QCOMPARE(record.value(u"t"_s).toString(), u"true"_s);
        const SDBRecord other = m_place->record(u"cyan"_s);
        QVERIFY(!other.contains(u"none"_s));
        QCOMPARE(other.value(u"one"_s), QVariant(u"x"_s));
    }

    void whatWasExportedComesBack()
    {
        QVERIFY(m_place->fill({u"cyan"_s, u"magenta"_s, u"größe"_s}));
        QCOMPARE(m_place
                     ->asOwner({u"set"_s, u"inks.db"_s, u"cyan"_s, u"tag=b"_s, u"tag=a"_s,
                                u"text=\"quoted\\\" = {x: [y]}"_s, u"empty="_s})
                     .exitCode,
                 0);
        QCOMPARE(m_place->db({u"export"_s, u"inks.db"_s, u"out"_s}).exitCode, 0);
        QVERIFY(m_place->create(u"copy.db"_s));
        QCOMPARE(m_place->asOwner({u"import"_s, u"copy.db"_s, u"out"_s}).exitCode, 0);
        const auto diff = m_place->db({u"diff"_s, u"inks.db"_s, u"copy.db"_s, u"--content"_s});
        QCOMPARE(diff.exitCode, 0);
        QVERIFY(diff.out.isEmpty());
        QVERIFY(m_place->record(u"cyan"_s, u"copy.db"_s).checkSignature());
    }

    void databaseMakesTheKeys()
    {
        QVERIFY(m_place->create(u"inks.db"_s, DBAuthGrants::ReadOnly, SDBRecord::uniqueIncKey()));
        QCOMPARE(import(R"({"a":"1"})"
                        "\n"
                        R"({"_uniqueinckey":"0000000000000007","a":"1"})"_ba)
                     .exitCode,
                 0);
        QCOMPARE(m_place->keys(), (QStringList{u"0000000000000001"_s, u"0000000000000002"_s}));
    }

    void recordsAreReplacedOnlyWhenAsked()
    {
        QVERIFY(m_place->fill({u"cyan"_s}));
        const QByteArray lines = R"({"name":"red","level":"1"}
{"name":"cyan","level":"9"})";
        const QByteArray before = m_place->read();
        const auto refused = import(lines);
        QCOMPARE(refused.exitCode, 1);
        QVERIFY2(refused.err.contains("line 2 of the input"), refused.err.constData());
        QCOMPARE(m_place->read(), before);
        const auto result = import(lines, {u"--replace"_s, u"--json"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(ToolDatabase::object(result.out),
                 (QJsonObject{{u"added"_s, 1}, {u"replaced"_s, 1}}));
        QCOMPARE(m_place->record(u"cyan"_s).value(u"level"_s).toString(), u"9"_s);
        QVERIFY(!m_place->record(u"cyan"_s).contains(u"maker"_s));
    }

    void badLineIsToldAndNothingTaken_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("no JSON") << "name = cyan"_ba;
        QTest::newRow("cut off") << R"({"name":"cyan")"_ba;
        QTest::newRow("a list") << R"(["name","cyan"])"_ba;
        QTest::newRow("two objects") << R"({"name":"a"} {"name":"b"})"_ba;
        QTest::newRow("no key") << R"({"level":"1"})"_ba;
        QTest::newRow("a key of nothing") << R"({"name":null})"_ba;
        QTest::newRow("an empty key") << R"({"name":""})"_ba;
        QTest::newRow("a list as key") << R"({"name":["a","b"]})"_ba;
        QTest::newRow("a key of a removed record") << R"({"name":"$a"})"_ba;
        QTest::newRow("a key that came before") << R"({"name":"first"})"_ba;
        QTest::newRow("a name twice") << R"({"name":"a","b":"1","b":"2"})"_ba;
        QTest::newRow("an object as value") << R"({"name":"a","b":{"c":"1"}})"_ba;
        QTest::newRow("a list in a list") << R"({"name":"a","b":[["1"]]})"_ba;
        QTest::newRow("an empty list") << R"({"name":"a","b":[]})"_ba;
        QTest::newRow("nothing in a list") << R"({"name":"a","b":["1",null]})"_ba;
        QTest::newRow("an empty name") << R"({"name":"a","":"1"})"_ba;
        QTest::newRow("a dot in a name") << R"({"name":"a","b.0":"1"})"_ba;
        QTest::newRow("a line feed") << R"({"name":"a","b":"1\n2"})"_ba;
        QTest::newRow("a blank at the end") << R"({"name":"a","b":"1 "})"_ba;
        QTest::newRow("half a character") << R"({"name":"a","b":"\ud83d"})"_ba;
        QTest::newRow("no UTF-8") << "{\"name\":\"a\xFF\"}"_ba;
        QTest::newRow("deeply nested") << QByteArray(100'000, '[');
    }

    void badLineIsToldAndNothingTaken()
    {
        QFETCH(QByteArray, line);
        const QByteArray before = m_place->read();
        const auto result = import("{\"name\":\"first\"}\n\n" + line + "\n{\"name\":\"last\"}\n");
        QCOMPARE(result.exitCode, 1);
        QVERIFY(result.out.isEmpty());
        QVERIFY2(result.err.contains("line 3 of the input"), result.err.constData());
        QCOMPARE(m_place->read(), before);
    }

    void emptyInputIsNoRecord()
    {
        const auto result = import({});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "imported 0 records\n"_ba);
    }

    void fullDiskIsToldWithTheLine()
    {
        QByteArray lines;
        for (int i = 0; i < 50; ++i)
            lines += "{\"name\":\"ink" + QByteArray::number(i) + "\"}\n";
        QVERIFY(m_place->write(u"in"_s, lines));
        QProcess process;
        m_place->tool.prepare(&process,
                              {u"db"_s, u"import"_s, u"inks.db"_s, u"in"_s, u"--user"_s, u"ada"_s});
        limitFileSize(&process, 4000);
        process.start();
        QVERIFY(process.waitForFinished(30'000));
        QCOMPARE(process.exitCode(), 4);
        const QByteArray error = process.readAllStandardError();
        QVERIFY2(error.contains("the lines before line"), error.constData());
        const QByteArray number = error.mid(error.indexOf("before line ") + 12);
        const int taken = number.left(number.indexOf(' ')).toInt() - 1;
        QVERIFY(taken > 0);
        for (int i = 0; i < taken; ++i)
            QVERIFY(m_place->record(u"ink%1"_s.arg(i)).checkSignature());
    }

    void databaseIsFreeUntilAllLinesAreThere()
    {
        QVERIFY(m_place->fill({u"cyan"_s}));
        QProcess process;
        m_place->tool.prepare(
            &process, {u"db"_s, u"import"_s, u"inks.db"_s, u"--replace"_s, u"--user"_s, u"ada"_s});
        process.start();
        QVERIFY(process.waitForStarted());
        // More than a pipe holds: once this is gone, it reads.
        process.write(QByteArray(200'000, '\n'));
        QTRY_COMPARE_WITH_TIMEOUT(process.bytesToWrite(), 0, 30'000);
        const auto exported = m_place->db({u"export"_s, u"inks.db"_s});
        QVERIFY2(exported.exitCode == 0, exported.err.constData());
        process.write(exported.out);
        process.closeWriteChannel();
        QVERIFY(process.waitForFinished(30'000));
        QCOMPARE(process.exitCode(), 0);
        QCOMPARE(process.readAllStandardOutput(),
                 "imported 1 record, 1 of them in place of others\n"_ba);
    }

    void passwordAndLinesCannotBothComeFromStdin()
    {
        const auto result = import("secret\n{\"name\":\"a\"}\n", {u"--password-stdin"_s});
        QCOMPARE(result.exitCode, 2);
        QVERIFY2(result.err.contains("both come from stdin"), result.err.constData());
    }

    void importNeedsTheRight()
    {
        m_place->tool.input = "{\"name\":\"a\"}\n";
        const QByteArray before = m_place->read();
        const auto result = m_place->db({u"import"_s, u"inks.db"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("does not grant this"), result.err.constData());
        QCOMPARE(m_place->read(), before);
    }

    void missingInputIsTold()
    {
        const auto result = m_place->asOwner({u"import"_s, u"inks.db"_s, u"none"_s});
        QCOMPARE(result.exitCode, 4);
        QVERIFY2(result.err.contains("cannot read"), result.err.constData());
    }
};

QTEST_GUILESS_MAIN(tst_ToolDbCommandsJson)
#include "tst_tooldbcommands_json.moc"
