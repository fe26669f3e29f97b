// SPDX-License-Identifier: MIT
// brix db purge, backup, restore, merge and diff, as processes.
#include "limitedprocess.h"
#include "tooldatabase.h"

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_ToolDbCommandsBackup : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ToolDatabase> m_place;

    bool remove(const QStringList &keys) const
    {
        return m_place->asOwner(QStringList{u"rm"_s, u"inks.db"_s} + keys).exitCode == 0;
    }
    ToolResult backup(const QStringList &more = {}) const
    {
        return m_place->db(QStringList{u"backup"_s, u"inks.db"_s, u"saved"_s} + more);
    }
    ToolResult restore(const QStringList &more = {}) const
    {
        return m_place->asOwner(QStringList{u"restore"_s, u"inks.db"_s, u"saved"_s} + more);
    }
    // As on a disk that is full; gives what the tool said.
    QByteArray failOnFullDisk(const QStringList &arguments, rlim_t bytes) const
    {
        QProcess process;
        m_place->tool.prepare(&process, QStringList{u"db"_s} + arguments +
                                            QStringList{u"--user"_s, u"ada"_s});
        limitFileSize(&process, bytes);
        process.start();
        if (!process.waitForFinished(30'000) || process.exitCode() != 4)
            return "exit code " + QByteArray::number(process.exitCode());
        return process.readAllStandardError();
    }

private Q_SLOTS:
    void initTestCase() { QLoggingCategory::setFilterRules(u"default.debug=false"_s); }
    void init()
    {
        m_place = std::make_unique<ToolDatabase>();
        QVERIFY(m_place->create());
        QVERIFY(m_place->fill({u"yellow"_s, u"magenta"_s, u"cyan"_s}));
    }

    // purge

    void purgeSortsAndDropsWhatWasRemoved()
    {
        QVERIFY(remove({u"magenta"_s}));
        const SDBRecord before = m_place->record(u"yellow"_s);
        const auto result = m_place->asOwner({u"purge"_s, u"inks.db"_s, u"--json"_s});
        QCOMPARE(result.exitCode, 0);
        const QByteArray bytes = m_place->read();
        const auto told = ToolDatabase::object(result.out);
        QCOMPARE(told.value("bytes"_L1).toInteger(), bytes.size());
        QVERIFY(told.value("before"_L1).toInteger() > bytes.size());
        QVERIFY(!bytes.contains("name =$"));
        QVERIFY(bytes.indexOf("name = cyan") < bytes.indexOf("name = yellow"));
        QCOMPARE(m_place->record(u"yellow"_s), before);
        QCOMPARE(m_place->db({u"check"_s, u"inks.db"_s}).exitCode, 0);
        QCOMPARE(m_place->databases(), QStringList{u"inks.db"_s});
    }

    void purgeThroughALinkKeepsTheLink()
    {
        QVERIFY(remove({u"magenta"_s}));
        QVERIFY(QFile::link(m_place->path(), m_place->path(u"link.db"_s)));
        QCOMPARE(m_place->asOwner({u"purge"_s, u"link.db"_s}).exitCode, 0);
        QVERIFY(QFileInfo(m_place->path(u"link.db"_s)).isSymLink());
        QVERIFY(!m_place->read().contains("name =$"));
    }

    void permissionsStay()
    {
        const auto permissions = QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                 QFileDevice::ReadUser | QFileDevice::WriteUser |
                                 QFileDevice::ReadGroup;
        QVERIFY(QFile::setPermissions(m_place->path(), permissions));
        QCOMPARE(m_place->asOwner({u"purge"_s, u"inks.db"_s}).exitCode, 0);
        QCOMPARE(QFileInfo(m_place->path()).permissions(), permissions);
    }

    void purgeMakesADestroyedHeadWhole()
    {
        QByteArray bytes = m_place->read();
        QVERIFY(m_place->write(u"inks.db"_s, bytes.mid(bytes.indexOf("# --- Data"))));
        QCOMPARE(m_place->asOwner({u"purge"_s, u"inks.db"_s}).exitCode, 0);
        QCOMPARE(m_place->db({u"check"_s, u"inks.db"_s}).exitCode, 0);
        QCOMPARE(m_place->keys(), (QStringList{u"cyan"_s, u"magenta"_s, u"yellow"_s}));
    }

    // backup

    void backupComesBack_data()
    {
        QTest::addColumn<QString>("compressor");
        QTest::newRow("plain") << u"none"_s;
        QTest::newRow("lz4") << u"lz4"_s;
        QTest::newRow("zip") << u"zip"_s;
    }

    void backupComesBack()
    {
        QFETCH(QString, compressor);
        const QByteArray before = m_place->read();
        const auto saved = backup({u"--compress"_s, compressor, u"--json"_s});
        QVERIFY2(saved.exitCode == 0, saved.err.constData());
        QCOMPARE(ToolDatabase::object(saved.out).value("bytes"_L1).toInteger(),
                 m_place->read(u"saved"_s).size());
        QCOMPARE(m_place->read(u"saved"_s) == before, compressor == u"none"_s);
        QVERIFY(remove({u"magenta"_s, u"cyan"_s}));
        const QByteArray backupBytes = m_place->read(u"saved"_s);
        const auto result = restore();
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QCOMPARE(result.out, "restored: 3 records now\n"_ba);
        QVERIFY(result.err.isEmpty());
        QCOMPARE(m_place->read(), before);
        QCOMPARE(m_place->read(u"saved"_s), backupBytes);
        QVERIFY(!m_place->files().contains(u"saved.srec"_s));
        QCOMPARE(m_place->databases(), (QStringList{u"inks.db"_s, u"saved"_s}));
    }

    void dashIsTheStandardOutput_data() { backupComesBack_data(); }
    void dashIsTheStandardOutput()
    {
        QFETCH(QString, compressor);
        QCOMPARE(backup({u"--compress"_s, compressor}).exitCode, 0);
        const auto result =
            m_place->asOwner({u"backup"_s, u"inks.db"_s, u"-"_s, u"--compress"_s, compressor});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, m_place->read(u"saved"_s));
        QVERIFY(result.err.isEmpty());
        QVERIFY(!m_place->files().contains(u"-"_s));
    }

    void newBackupIsReadableByItsOwnerAlone()
    {
        QCOMPARE(backup().exitCode, 0);
        const auto others = QFileDevice::ReadGroup | QFileDevice::WriteGroup |
                            QFileDevice::ReadOther | QFileDevice::WriteOther;
        QCOMPARE(QFileInfo(m_place->path(u"saved"_s)).permissions() & others,
                 QFileDevice::Permissions());
    }

    void fullDiskLeavesTheOlderBackup_data()
    {
        QTest::addColumn<QString>("compressor");
        QTest::newRow("plain") << u"none"_s;
        QTest::newRow("lz4") << u"lz4"_s;
    }

    void fullDiskLeavesTheOlderBackup()
    {
        QFETCH(QString, compressor);
        QVERIFY(m_place->write(u"saved"_s, "older"_ba));
        const QByteArray error = failOnFullDisk(
            {u"backup"_s, u"inks.db"_s, u"saved"_s, u"--compress"_s, compressor}, 200);
        QVERIFY2(error.contains("cannot write"), error.constData());
        QCOMPARE(m_place->read(u"saved"_s), "older"_ba);
        QCOMPARE(m_place->databases(), (QStringList{u"inks.db"_s, u"saved"_s}));
    }

    void backupToAFolderIsTold()
    {
        const auto result = m_place->db({u"backup"_s, u"inks.db"_s, u"."_s});
        QCOMPARE(result.exitCode, 4);
        QVERIFY2(result.err.contains("it is a folder"), result.err.constData());
    }

    void backupOverItselfIsWrongUsage()
    {
        const QByteArray before = m_place->read();
        QCOMPARE(m_place->db({u"backup"_s, u"inks.db"_s, u"./inks.db"_s}).exitCode, 2);
        QCOMPARE(m_place->asOwner({u"restore"_s, u"inks.db"_s, u"inks.db"_s}).exitCode, 2);
        QCOMPARE(m_place->read(), before);
    }

    // restore

    void mergeTakesTheRecordsOfTheBackup()
    {
        QCOMPARE(backup().exitCode, 0);
        QVERIFY(remove({u"magenta"_s}));
        QCOMPARE(m_place->asOwner({u"set"_s, u"inks.db"_s, u"cyan"_s, u"level=9"_s}).exitCode, 0);
        QCOMPARE(m_place->asOwner({u"set"_s, u"inks.db"_s, u"red"_s, u"level=9"_s}).exitCode, 0);
        const auto result = restore({u"--merge"_s, u"--json"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(ToolDatabase::object(result.out), (QJsonObject{{u"records"_s, 4}}));
        QCOMPARE(m_place->record(u"cyan"_s).value(u"level"_s).toString(), u"4"_s);
        QCOMPARE(m_place->keys(), (QStringList{u"cyan"_s, u"magenta"_s, u"red"_s, u"yellow"_s}));
        QCOMPARE(m_place->db({u"check"_s, u"inks.db"_s}).exitCode, 0);
    }

    void whatIsNoBackupChangesNothing_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("text") << "no backup\n"_ba;
        QTest::newRow("zeros") << QByteArray(5000, '\0');
    }

    void whatIsNoBackupChangesNothing()
    {
        QFETCH(QByteArray, content);
        QVERIFY(m_place->write(u"saved"_s, content));
        const QByteArray before = m_place->read();
        for (const QStringList &more : {QStringList(), QStringList{u"--merge"_s}}) {
            const auto result = restore(more);
            QCOMPARE(result.exitCode, 1);
            QVERIFY2(result.err.contains("saved is not a backup, or it is damaged"),
                     result.err.constData());
            QCOMPARE(m_place->read(), before);
            QCOMPARE(m_place->databases(), (QStringList{u"inks.db"_s, u"saved"_s}));
        }
    }

    void cutBackupChangesNothing()
    {
        QCOMPARE(backup({u"--compress"_s, u"lz4"_s}).exitCode, 0);
        QVERIFY(m_place->write(u"saved"_s, m_place->read(u"saved"_s).chopped(5)));
        const QByteArray before = m_place->read();
        QCOMPARE(restore().exitCode, 1);
        QCOMPARE(m_place->read(), before);
    }

    void backupOfSomebodyElseIsRefused()
    {
        m_place->tool.password = u"other"_s;
        QVERIFY(m_place->create(u"saved"_s));
        m_place->tool.password = u"secret"_s;
        const QByteArray before = m_place->read();
        const auto result = restore();
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("saved does not belong to this user"), result.err.constData());
        QCOMPARE(m_place->read(), before);
    }

    void backupWithAnotherKeyFieldIsRefused()
    {
        QVERIFY(m_place->create(u"saved"_s, DBAuthGrants::ReadOnly, u"id"_s));
        const QByteArray before = m_place->read();
        const auto result = restore();
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("has another key field"), result.err.constData());
        QCOMPARE(m_place->read(), before);
    }

    // merge

    void mergeAddsWhatIsMissing()
    {
        QVERIFY(m_place->create(u"more.db"_s));
        QVERIFY(m_place->fill({u"red"_s, u"cyan"_s}, u"more.db"_s));
        const SDBRecord cyan = m_place->record(u"cyan"_s);
        const auto result = m_place->asOwner({u"merge"_s, u"inks.db"_s, u"more.db"_s});
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QCOMPARE(result.out, "added 1 record\n"_ba);
        QCOMPARE(m_place->record(u"cyan"_s), cyan);
        QCOMPARE(m_place->record(u"red"_s), m_place->record(u"red"_s, u"more.db"_s));
        QCOMPARE(m_place->keys(), (QStringList{u"cyan"_s, u"magenta"_s, u"red"_s, u"yellow"_s}));
        QCOMPARE(m_place->databases(), (QStringList{u"inks.db"_s, u"more.db"_s}));
    }

    void mergeNeedsTheSameKeyField()
    {
        QVERIFY(m_place->create(u"more.db"_s, DBAuthGrants::ReadOnly, u"id"_s));
        const QByteArray before = m_place->read();
        for (const QString &command : {u"merge"_s, u"diff"_s}) {
            const auto result = m_place->asOwner({command, u"inks.db"_s, u"more.db"_s});
            QCOMPARE(result.exitCode, 1);
            QVERIFY2(result.err.contains("the key field of"), result.err.constData());
        }
        QCOMPARE(m_place->read(), before);
        QCOMPARE(m_place->asOwner({u"merge"_s, u"inks.db"_s, u"inks.db"_s}).exitCode, 2);
    }

    // All that write a file anew

    void writingAnewNeedsTheRight_data() { commandsThatWriteAnew(); }

    void writingAnewNeedsTheRight()
    {
        QFETCH(QStringList, arguments);
        QVERIFY(m_place->create(u"saved"_s));
        const QByteArray before = m_place->read();
        const auto result = m_place->db(arguments);
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("inks.db does not grant this"), result.err.constData());
        QCOMPARE(m_place->read(), before);
        QCOMPARE(m_place->databases(), (QStringList{u"inks.db"_s, u"saved"_s}));
    }

    void writingAnewLeavesALockedDatabaseAlone_data() { commandsThatWriteAnew(); }

    void writingAnewLeavesALockedDatabaseAlone()
    {
        QFETCH(QStringList, arguments);
        QVERIFY(m_place->create(u"saved"_s));
        SDBText holder;
        QVERIFY(holder.open(m_place->path()));
        const QByteArray before = m_place->read();
        const auto result = m_place->asOwner(arguments);
        QCOMPARE(result.exitCode, 4);
        QVERIFY2(result.err.contains("inks.db is in use by process"), result.err.constData());
        QCOMPARE(m_place->read(), before);
    }

    void fullDiskLeavesTheDatabase_data() { commandsThatWriteAnew(); }

    void fullDiskLeavesTheDatabase()
    {
        QFETCH(QStringList, arguments);
        QVERIFY(m_place->create(u"saved"_s));
        QStringList keys;
        for (int i = 0; i < 20; ++i)
            keys.append(u"ink%1"_s.arg(i));
        QVERIFY(m_place->fill(keys, u"saved"_s));
        const QByteArray before = m_place->read();
        const rlim_t room = arguments.first() == u"purge"_s ? 900 : rlim_t(before.size() + 100);
        const QByteArray error = failOnFullDisk(arguments, room);
        QVERIFY2(error.contains("cannot"), error.constData());
        QCOMPARE(m_place->read(), before);
        QCOMPARE(m_place->databases(), (QStringList{u"inks.db"_s, u"saved"_s}));
    }

    // diff

    void sameDatabasesDoNotDiffer()
    {
        QCOMPARE(backup().exitCode, 0);
        QCOMPARE(m_place->asOwner({u"purge"_s, u"inks.db"_s}).exitCode, 0);
        const auto result = m_place->db({u"diff"_s, u"inks.db"_s, u"saved"_s});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.out.isEmpty());
    }

    void differencesAreTold()
    {
        QVERIFY(m_place->create(u"more.db"_s, DBAuthGrants::ReadWrite));
        QVERIFY(m_place->fill({u"black"_s, u"cyan"_s, u"magenta"_s}, u"more.db"_s));
        QCOMPARE(m_place->asOwner({u"set"_s, u"more.db"_s, u"cyan"_s, u"level=9"_s}).exitCode, 0);
        const auto content = m_place->db({u"diff"_s, u"inks.db"_s, u"more.db"_s, u"--content"_s});
        QCOMPARE(content.exitCode, 1);
        QCOMPARE(content.out, "> black\n! cyan\n< yellow\n"_ba);
        const auto all = m_place->asOwner({u"diff"_s, u"inks.db"_s, u"more.db"_s});
        QCOMPARE(all.exitCode, 1);
        QCOMPARE(all.out,
                 "grants: readonly | readwrite\n> black\n! cyan\n! magenta\n< yellow\n"_ba);
        const auto json = m_place->db({u"diff"_s, u"inks.db"_s, u"more.db"_s, u"--json"_s});
        QCOMPARE(
            json.lines().first(2),
            (QList<QByteArray>{R"({"first":"readonly","second":"readwrite","setting":"grants"})",
                               R"({"in":"second","key":"black"})"}));
    }

private:
    void commandsThatWriteAnew() const
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("purge") << QStringList{u"purge"_s, u"inks.db"_s};
        QTest::newRow("restore") << QStringList{u"restore"_s, u"inks.db"_s, u"saved"_s};
        QTest::newRow("restore --merge")
            << QStringList{u"restore"_s, u"inks.db"_s, u"saved"_s, u"--merge"_s};
        QTest::newRow("merge") << QStringList{u"merge"_s, u"inks.db"_s, u"saved"_s};
    }
};

QTEST_GUILESS_MAIN(tst_ToolDbCommandsBackup)
#include "tst_tooldbcommands_backup.moc"
