// SPDX-License-Identifier: MIT
// brix db get, set, rm, list, search and values, as processes.
#include "limitedprocess.h"
#include "tooldatabase.h"

#include <QtCore/QJsonArray>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_ToolDbCommandsRecords : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ToolDatabase> m_place;

    ToolResult set(const QStringList &arguments) const
    {
        return m_place->asOwner(QStringList{u"set"_s, u"inks.db"_s} + arguments);
    }

private Q_SLOTS:
    void initTestCase() { QLoggingCategory::setFilterRules(u"default.debug=false"_s); }
    void init()
    {
        m_place = std::make_unique<ToolDatabase>();
        QVERIFY(m_place->create());
    }

    // set

    void setAddsARecord()
    {
        const auto result = set({u"cyan"_s, u"level=12"_s, u"note=a = b"_s, u"empty="_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "added cyan\n"_ba);
        QVERIFY(result.err.isEmpty());
        const SDBRecord record = m_place->record(u"cyan"_s);
        QVERIFY(record.checkSignature());
        QCOMPARE(record.names().first(4),
                 (QList<QString>{u"name"_s, u"level"_s, u"note"_s, u"empty"_s}));
        QCOMPARE(record.value(u"level"_s).toString(), u"12"_s);
        QCOMPARE(record.value(u"note"_s).toString(), u"a = b"_s);
        QCOMPARE(record.value(u"empty"_s), QVariant(u""_s));
        QCOMPARE(record.value(SDBRecord::ownerKey()).toString(), u"ada"_s);
    }

    void setChangesTheNamedFieldsOnly()
    {
        QVERIFY(m_place->fill({u"cyan"_s}));
        const auto result = set({u"cyan"_s, u"level=12"_s, u"note=new"_s, u"--json"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(ToolDatabase::object(result.out),
                 (QJsonObject{{u"key"_s, u"cyan"_s}, {u"replaced"_s, true}}));
        const SDBRecord record = m_place->record(u"cyan"_s);
        QVERIFY(record.checkSignature());
        QCOMPARE(record.value(u"level"_s).toString(), u"12"_s);
        QCOMPARE(record.value(u"maker"_s).toString(), u"Ann"_s);
        QCOMPARE(record.value(u"note"_s).toString(), u"new"_s);
        QCOMPARE(m_place->keys(), QStringList{u"cyan"_s});
    }

    void sameFieldTwiceMakesAList()
    {
        QCOMPARE(set({u"cyan"_s, u"tag=b"_s, u"tag=a"_s}).exitCode, 0);
        QCOMPARE(m_place->record(u"cyan"_s).value(u"tag"_s),
                 QVariant(QVariantList{u"b"_s, u"a"_s}));
        QCOMPARE(set({u"cyan"_s, u"tag=c"_s}).exitCode, 0);
        QCOMPARE(m_place->record(u"cyan"_s).value(u"tag"_s), QVariant(u"c"_s));
    }

    void textBeyondAsciiComesBack()
    {
        QCOMPARE(set({u"größe"_s, u"farbe=türkis 😀"_s}).exitCode, 0);
        const SDBRecord record = m_place->record(u"größe"_s);
        QVERIFY(record.checkSignature());
        QCOMPARE(record.value(u"farbe"_s).toString(), u"türkis 😀"_s);
        const auto result = m_place->db({u"get"_s, u"inks.db"_s, u"größe"_s});
        QVERIFY2(result.lines().contains("farbe = türkis 😀"), result.out.constData());
    }

    void databaseMakesTheKeys()
    {
        QVERIFY(m_place->create(u"log.db"_s, DBAuthGrants::ReadOnly, SDBRecord::uniqueIncKey()));
        const auto setIn = [&](const QString &key, const QString &field) {
            return m_place->asOwner({u"set"_s, u"log.db"_s, key, field});
        };
        QCOMPARE(setIn(u"-"_s, u"text=a"_s).out, "added 0000000000000001\n"_ba);
        QCOMPARE(setIn(u"-"_s, u"text=b"_s).out, "added 0000000000000002\n"_ba);
        // A record that is replaced comes in as a new one.
        QCOMPARE(setIn(u"0000000000000001"_s, u"text=c"_s).out, "replaced 0000000000000003\n"_ba);
        QCOMPARE(setIn(u"7"_s, u"text=d"_s).exitCode, 1);
        QCOMPARE(m_place->keys(u"log.db"_s),
                 (QStringList{u"0000000000000002"_s, u"0000000000000003"_s}));
    }

    void setRefusesWhatTheFileCannotHold_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("no equals sign") << QStringList{u"cyan"_s, u"level"_s};
        QTest::newRow("no name") << QStringList{u"cyan"_s, u"=1"_s};
        QTest::newRow("a dot in the name") << QStringList{u"cyan"_s, u"a.b=1"_s};
        QTest::newRow("a comment") << QStringList{u"cyan"_s, u"#a=1"_s};
        QTest::newRow("a blank at the end of a name") << QStringList{u"cyan"_s, u"a =1"_s};
        QTest::newRow("a blank before a value") << QStringList{u"cyan"_s, u"a= 1"_s};
        QTest::newRow("a blank behind a value") << QStringList{u"cyan"_s, u"a=1 "_s};
        QTest::newRow("two lines") << QStringList{u"cyan"_s, u"a=1\nb=2"_s};
        QTest::newRow("two lines in a list") << QStringList{u"cyan"_s, u"a=1"_s, u"a=2\n3"_s};
        QTest::newRow("the owner") << QStringList{u"cyan"_s, u"_recowner=eve"_s};
        QTest::newRow("the signature") << QStringList{u"cyan"_s, u"_signature=0"_s};
        QTest::newRow("the key") << QStringList{u"cyan"_s, u"name=red"_s};
        QTest::newRow("a key of a removed record") << QStringList{u"$cyan"_s, u"a=1"_s};
        QTest::newRow("a key with a blank") << QStringList{u"cyan "_s, u"a=1"_s};
        QTest::newRow("an empty key") << QStringList{u""_s, u"a=1"_s};
        QTest::newRow("no field") << QStringList{u"cyan"_s};
    }

    void setRefusesWhatTheFileCannotHold()
    {
        QFETCH(QStringList, arguments);
        const QByteArray before = m_place->read();
        const auto result = set(arguments);
        QCOMPARE(result.exitCode, 2);
        QVERIFY(!result.err.isEmpty());
        QCOMPARE(m_place->read(), before);
    }

    void fullDiskIsTold()
    {
        QVERIFY(m_place->fill({u"cyan"_s}));
        QProcess process;
        m_place->tool.prepare(&process, {u"db"_s, u"set"_s, u"inks.db"_s, u"red"_s, u"level=1"_s,
                                         u"--user"_s, u"ada"_s});
        limitFileSize(&process, rlim_t(m_place->read().size() + 10));
        process.start();
        QVERIFY(process.waitForFinished(30'000));
        QCOMPARE(process.exitCode(), 4);
        QVERIFY(process.readAllStandardError().contains("inks.db: File too large"));
        QVERIFY(m_place->record(u"cyan"_s).checkSignature());
    }

    void setOfAChangedRecordIsRefused()
    {
        QVERIFY(m_place->fill({u"cyan"_s, u"magenta"_s}));
        QVERIFY(m_place->write(u"inks.db"_s, m_place->read().replace("level = 7", "level = 9")));
        const QByteArray before = m_place->read();
        const qsizetype line = before.first(before.indexOf("name = magenta")).count('\n') + 1;
        const auto result = set({u"magenta"_s, u"maker=Ann"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("inks.db:" + QByteArray::number(line) +
                                     ": the signature of \"magenta\" does not match"),
                 result.err.constData());
        QCOMPARE(m_place->read(), before);
        QCOMPARE(set({u"cyan"_s, u"maker=Ann"_s}).exitCode, 0);
        QCOMPARE(set({u"magenta"_s, u"maker=Ann"_s, u"--accept-changed"_s}).exitCode, 0);
        QVERIFY(m_place->record(u"magenta"_s).checkSignature());
        QCOMPARE(m_place->record(u"magenta"_s).value(u"level"_s), QVariant(u"9"_s));
    }

    // get

    void getShowsTheFieldsInOrder()
    {
        QCOMPARE(set({u"cyan"_s, u"zone=3"_s, u"tag=b"_s, u"tag=a"_s}).exitCode, 0);
        const auto text = m_place->db({u"get"_s, u"inks.db"_s, u"cyan"_s});
        QCOMPARE(text.exitCode, 0);
        QCOMPARE(text.lines().first(4),
                 (QList<QByteArray>{"name = cyan", "zone = 3", "tag.0 = b", "tag.1 = a"}));
        const auto json = m_place->db({u"get"_s, u"inks.db"_s, u"cyan"_s, u"--json"_s});
        QCOMPARE(json.lines().size(), 1);
        QVERIFY2(json.out.startsWith(R"({"name":"cyan","zone":"3","tag":["b","a"],"_recowner")"),
                 json.out.constData());
        QCOMPARE(ToolDatabase::object(json.out).value("tag"_L1).toArray(),
                 (QJsonArray{u"b"_s, u"a"_s}));
    }

    void getOfNothingIsRefused()
    {
        const auto result = m_place->db({u"get"_s, u"inks.db"_s, u"cyan"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY(result.out.isEmpty());
        QVERIFY2(result.err.contains("has no record cyan"), result.err.constData());
    }

    void changedRecordIsTold()
    {
        QVERIFY(m_place->fill({u"cyan"_s}));
        QVERIFY(m_place->write(u"inks.db"_s, m_place->read().replace("level = 4", "level = 5")));
        const auto result = m_place->db({u"get"_s, u"inks.db"_s, u"cyan"_s});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.out.contains("level = 5"));
        QVERIFY2(result.err.contains("the signature of cyan does not match"),
                 result.err.constData());
    }

    // rm

    void removeTakesRecordsOut()
    {
        QVERIFY(m_place->fill({u"cyan"_s, u"magenta"_s, u"yellow"_s}));
        const auto result = m_place->asOwner({u"rm"_s, u"inks.db"_s, u"cyan"_s, u"yellow"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "removed cyan\nremoved yellow\n"_ba);
        QCOMPARE(m_place->keys(), QStringList{u"magenta"_s});
        QVERIFY(!m_place->read().contains("name = cyan"));
    }

    void removeTellsWhatIsMissingAndGoesOn()
    {
        QVERIFY(m_place->fill({u"cyan"_s, u"magenta"_s}));
        const auto result =
            m_place->asOwner({u"rm"_s, u"inks.db"_s, u"red"_s, u"cyan"_s, u"--json"_s});
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(result.out, "{\"key\":\"cyan\"}\n"_ba);
        QVERIFY2(result.err.contains("has no record red"), result.err.constData());
        QCOMPARE(m_place->keys(), QStringList{u"magenta"_s});
    }

    // list

    void listSortsTheKeysAsText()
    {
        QVERIFY(m_place->fill({u"9"_s, u"b"_s, u"10"_s, u"a"_s}));
        const auto text = m_place->db({u"list"_s, u"inks.db"_s});
        QCOMPARE(text.exitCode, 0);
        QCOMPARE(text.out, "10\n9\na\nb\n"_ba);
        const auto json = m_place->db({u"list"_s, u"inks.db"_s, u"--json"_s});
        QCOMPARE(json.lines().first(), "{\"key\":\"10\"}"_ba);
    }

    void emptyDatabaseListsNothing()
    {
        const auto result = m_place->db({u"list"_s, u"inks.db"_s});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.out.isEmpty());
    }

    // search and values

    void searchGivesTheKeysOfEqualTexts()
    {
        QVERIFY(m_place->fill({u"cyan"_s, u"magenta"_s, u"blue"_s}));
        const auto result = m_place->db({u"search"_s, u"inks.db"_s, u"level"_s, u"4"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "blue\ncyan\n"_ba);
        const auto json = m_place->db({u"search"_s, u"inks.db"_s, u"level"_s, u"7"_s, u"--json"_s});
        QCOMPARE(json.lines().size(), 1);
        QCOMPARE(ToolDatabase::object(json.out).value("name"_L1).toString(), u"magenta"_s);
        QCOMPARE(m_place->db({u"search"_s, u"inks.db"_s, u"name"_s, u"cyan"_s}).out, "cyan\n"_ba);
    }

    void searchOfNothingIsNotFound()
    {
        QVERIFY(m_place->fill({u"cyan"_s}));
        for (const QString &value : {u"5"_s, u"04"_s, u""_s}) {
            const auto result = m_place->db({u"search"_s, u"inks.db"_s, u"level"_s, value});
            QCOMPARE(result.exitCode, 1);
            QVERIFY(result.out.isEmpty());
        }
        QCOMPARE(m_place->db({u"search"_s, u"inks.db"_s, u"none"_s, u"4"_s}).exitCode, 1);
    }

    void valuesAreListedOnce()
    {
        QVERIFY(m_place->fill({u"cyan"_s, u"magenta"_s, u"blue"_s}));
        const auto result = m_place->db({u"values"_s, u"inks.db"_s, u"level"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "4\n7\n"_ba);
        QCOMPARE(m_place->db({u"values"_s, u"inks.db"_s, u"maker"_s, u"--json"_s}).out,
                 "{\"value\":\"Ann\"}\n"_ba);
        QCOMPARE(m_place->db({u"values"_s, u"inks.db"_s, u"none"_s}).out, ""_ba);
        QCOMPARE(m_place->db({u"values"_s, u"inks.db"_s, u""_s}).exitCode, 2);
    }

    void listIsSearchedAndListedAsOneValue()
    {
        for (const QStringList &fields : {QStringList{u"cyan"_s, u"tag=water"_s, u"tag=matt"_s},
                                          QStringList{u"blue"_s, u"tag=water"_s}})
            QCOMPARE(m_place->asOwner(QStringList{u"set"_s, u"inks.db"_s} + fields).exitCode, 0);
        const QStringList search{u"search"_s, u"inks.db"_s, u"tag"_s, u"water"_s};
        QCOMPARE(m_place->db(search).out, "blue\n"_ba);
        QCOMPARE(m_place->db(search + QStringList{u"matt"_s}).out, "cyan\n"_ba);
        QCOMPARE(m_place->db({u"search"_s, u"inks.db"_s, u"tag"_s, u"matt"_s}).exitCode, 1);
        const QStringList values{u"values"_s, u"inks.db"_s, u"tag"_s};
        QCOMPARE(m_place->db(values).out, "water\nwater, matt\n"_ba);
        QCOMPARE(m_place->db(values + QStringList{u"--json"_s}).out,
                 "{\"value\":\"water\"}\n{\"value\":[\"water\",\"matt\"]}\n"_ba);
    }

    void whoForgetsTheUserIsToldOfIt()
    {
        QVERIFY(m_place->fill({u"cyan"_s}));
        const QStringList arguments{u"set"_s, u"inks.db"_s, u"cyan"_s, u"level=3"_s};
        const auto nobody = m_place->db(arguments);
        QCOMPARE(nobody.exitCode, 1);
        QVERIFY2(nobody.err.contains("say who uses it with --user"), nobody.err.constData());
        const auto other = m_place->db(arguments + QStringList{u"--user"_s, u"bob"_s});
        QCOMPARE(other.exitCode, 1);
        QVERIFY2(!other.err.contains("--user"), other.err.constData());
    }

    void readingNeedsTheRight()
    {
        QVERIFY(m_place->create(u"own.db"_s, DBAuthGrants::None));
        QVERIFY(m_place->fill({u"cyan"_s}, u"own.db"_s));
        for (const QStringList &arguments :
             {QStringList{u"get"_s, u"own.db"_s, u"cyan"_s}, QStringList{u"list"_s, u"own.db"_s},
              QStringList{u"search"_s, u"own.db"_s, u"level"_s, u"4"_s},
              QStringList{u"values"_s, u"own.db"_s, u"level"_s}}) {
            const auto refused = m_place->db(arguments);
            QCOMPARE(refused.exitCode, 1);
            QVERIFY(refused.out.isEmpty());
            QVERIFY2(refused.err.contains("does not grant this"), refused.err.constData());
            QCOMPARE(m_place->asOwner(arguments).exitCode, 0);
        }
    }
};

QTEST_GUILESS_MAIN(tst_ToolDbCommandsRecords)
#include "tst_tooldbcommands_records.moc"
