// SPDX-License-Identifier: MIT
// brix db create and info, and what all of brix db has in common, as processes.
#include "limitedprocess.h"
#include "tooldatabase.h"

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr int kPatienceMs = 30'000;

bool waitForEnd(const QProcess &process)
{
    return QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, kPatienceMs) &&
           process.exitStatus() == QProcess::NormalExit;
}

} // namespace

class tst_ToolDbCommands : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ToolDatabase> m_place;

    ToolResult create(const QStringList &more = {}) const
    {
        return m_place->asOwner(QStringList{u"create"_s, u"inks.db"_s, u"--key"_s, u"name"_s} +
                                more);
    }

private Q_SLOTS:
    void initTestCase() { QLoggingCategory::setFilterRules(u"default.debug=false"_s); }
    void init() { m_place = std::make_unique<ToolDatabase>(); }

    // create

    void createMakesAnEmptyDatabase()
    {
        const auto result = create();
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "created "_ba + m_place->path().toLocal8Bit() + '\n');
        QVERIFY(result.err.isEmpty());
        QCOMPARE(m_place->files(), QStringList{u"inks.db"_s});

        SDBText database;
        QVERIFY(database.open(m_place->path()));
        QCOMPARE(database.key(), u"name"_s);
        QCOMPARE(database.owner(), u"ada"_s);
        QCOMPARE(database.version(), u"2"_s);
        QCOMPARE(database.grants(), DBAuthGrants::ReadOnly);
        QCOMPARE(database.culture().name(), u"en_US"_s);
        QCOMPARE(database.count(), 0);
        QVERIFY(database.authenticate(u"ada"_s, u"secret"_s));
    }

    void createTakesTheSettings()
    {
        const auto result = create({u"--grants"_s, u"readownwrite"_s, u"--culture"_s, u"it-IT"_s,
                                    u"--db-version"_s, u"7.1"_s, u"--json"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(ToolDatabase::object(result.out),
                 (QJsonObject{{u"file"_s, m_place->path()}, {u"owner"_s, u"ada"_s}}));
        SDBText database;
        QVERIFY(database.open(m_place->path()));
        QCOMPARE(database.grants(), DBAuthGrants::ReadOwnWrite);
        QCOMPARE(database.culture().name(), u"it_IT"_s);
        QCOMPARE(database.version(), u"7.1"_s);
    }

    void newFileIsReadableByItsOwnerAlone()
    {
        QCOMPARE(create().exitCode, 0);
        const auto others = QFileDevice::ReadGroup | QFileDevice::WriteGroup |
                            QFileDevice::ReadOther | QFileDevice::WriteOther;
        QCOMPARE(QFileInfo(m_place->path()).permissions() & others, QFileDevice::Permissions());
    }

    void createReplacesNothing()
    {
        QVERIFY(m_place->write(u"inks.db"_s, "mine"_ba));
        const auto result = create();
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("is there already"), result.err.constData());
        QCOMPARE(m_place->read(), "mine"_ba);
        QCOMPARE(m_place->files(), QStringList{u"inks.db"_s});
    }

    void createRefusesWhatTheFileCannotHold_data()
    {
        QTest::addColumn<QStringList>("more");
        QTest::newRow("a dot in the key field") << QStringList{u"--key"_s, u"a.b"_s};
        QTest::newRow("an equals sign in the key field") << QStringList{u"--key"_s, u"a=b"_s};
        QTest::newRow("a comment as key field") << QStringList{u"--key"_s, u"#a"_s};
        QTest::newRow("blanks around the key field") << QStringList{u"--key"_s, u" a"_s};
        QTest::newRow("no key field") << QStringList{u"--key"_s, QString()};
        QTest::newRow("a field of the head") << QStringList{u"--key"_s, u"dbkey"_s};
        QTest::newRow("another field of the head") << QStringList{u"--key"_s, u"dbowner"_s};
        QTest::newRow("a field of the database") << QStringList{u"--key"_s, u"_signature"_s};
        QTest::newRow("unknown grants")
            << QStringList{u"--key"_s, u"a"_s, u"--grants"_s, u"some"_s};
        QTest::newRow("an unknown culture")
            << QStringList{u"--key"_s, u"a"_s, u"--culture"_s, u"tlh-KX"_s};
        QTest::newRow("a version of two lines")
            << QStringList{u"--key"_s, u"a"_s, u"--db-version"_s, u"1\n2"_s};
    }

    void createRefusesWhatTheFileCannotHold()
    {
        QFETCH(QStringList, more);
        const auto result = m_place->asOwner(QStringList{u"create"_s, u"inks.db"_s} + more);
        QCOMPARE(result.exitCode, 2);
        QVERIFY(!result.err.isEmpty());
        QVERIFY(m_place->files().isEmpty());
    }

    void createNeedsAnOwnerWithAPassword()
    {
        QCOMPARE(m_place->db({u"create"_s, u"inks.db"_s, u"--key"_s, u"name"_s}).exitCode, 2);
        m_place->tool.password = u""_s;
        const auto result = create();
        QCOMPARE(result.exitCode, 2);
        QVERIFY2(result.err.contains("an empty password is not taken"), result.err.constData());
        QVERIFY(m_place->files().isEmpty());
    }

    void createInAMissingFolderFails()
    {
        const auto result = m_place->asOwner({u"create"_s, u"no/inks.db"_s, u"--key"_s, u"name"_s});
        QCOMPARE(result.exitCode, 4);
        QVERIFY2(result.err.contains("inks.db.lck: No such file or directory"),
                 result.err.constData());
    }

    void createOnAFullDiskLeavesNothing()
    {
        QProcess process;
        m_place->tool.prepare(&process, {u"db"_s, u"create"_s, u"inks.db"_s, u"--key"_s, u"name"_s,
                                         u"--user"_s, u"ada"_s});
        limitFileSize(&process, 100);
        process.start();
        QVERIFY(waitForEnd(process));
        QCOMPARE(process.exitCode(), 4);
        QVERIFY(process.readAllStandardError().contains("cannot write"));
        QVERIFY(m_place->files().isEmpty());
    }

    // info

    void infoTellsWhatIsInIt()
    {
        QVERIFY(m_place->create());
        QVERIFY(m_place->fill({u"cyan"_s, u"magenta"_s, u"yellow"_s}));
        QCOMPARE(m_place->asOwner({u"rm"_s, u"inks.db"_s, u"magenta"_s}).exitCode, 0);
        const QByteArray before = m_place->read();
        const auto result = m_place->db({u"info"_s, u"inks.db"_s, u"--json"_s});
        QCOMPARE(result.exitCode, 0);
        const qsizetype dead = before.indexOf("name = yellow") - before.indexOf("name =$");
        QCOMPARE(ToolDatabase::object(result.out), (QJsonObject{{u"key"_s, u"name"_s},
                                                                {u"owner"_s, u"ada"_s},
                                                                {u"grants"_s, u"readonly"_s},
                                                                {u"culture"_s, u"en-US"_s},
                                                                {u"version"_s, u"2"_s},
                                                                {u"records"_s, 2},
                                                                {u"deleted"_s, 1},
                                                                {u"bytes"_s, before.size()},
                                                                {u"dead"_s, dead},
                                                                {u"headFromCopy"_s, false},
                                                                {u"lock"_s, QJsonValue::Null}}));
        const auto text = m_place->db({u"info"_s, u"inks.db"_s});
        QCOMPARE(text.exitCode, 0);
        QVERIFY2(text.lines().contains("records     2"), text.out.constData());
        QVERIFY2(text.lines().contains("lock        free"), text.out.constData());
    }

    void deadBytesAreWhatPurgeGivesBack()
    {
        QVERIFY(m_place->create());
        QVERIFY(m_place->fill({u"cyan"_s, u"magenta"_s, u"yellow"_s}));
        QCOMPARE(m_place->asOwner({u"rm"_s, u"inks.db"_s, u"cyan"_s, u"magenta"_s}).exitCode, 0);
        const auto info =
            ToolDatabase::object(m_place->db({u"info"_s, u"inks.db"_s, u"--json"_s}).out);
        SDBText database;
        database.authenticate(u"ada"_s, u"secret"_s);
        QVERIFY(database.open(m_place->path()));
        QVERIFY(database.purge());
        QCOMPARE(info.value("bytes"_L1).toInteger() - info.value("dead"_L1).toInteger(),
                 database.bytes());
    }

    void infoTouchesNothing()
    {
        QCOMPARE(create().exitCode, 0);
        const QByteArray before = m_place->read();
        QCOMPARE(m_place->db({u"info"_s, u"inks.db"_s}).exitCode, 0);
        QCOMPARE(m_place->files(), QStringList{u"inks.db"_s});
        QCOMPARE(m_place->read(), before);
    }

    void infoNamesTheLockHolder()
    {
        QVERIFY(m_place->create());
        SDBText holder;
        QVERIFY(holder.open(m_place->path()));
        const auto result = m_place->db({u"info"_s, u"inks.db"_s, u"--json"_s});
        QCOMPARE(result.exitCode, 0);
        const auto lock = ToolDatabase::object(result.out).value("lock"_L1).toObject();
        QCOMPARE(lock.value("process"_L1).toInteger(), QCoreApplication::applicationPid());
        QCOMPARE(lock.value("application"_L1).toString(), QCoreApplication::applicationName());
        const auto text = m_place->db({u"info"_s, u"inks.db"_s});
        QVERIFY(
            text.out.contains("process " + QByteArray::number(QCoreApplication::applicationPid())));
    }

    void destroyedHeadIsTold()
    {
        QVERIFY(m_place->create());
        QVERIFY(m_place->fill({u"cyan"_s}));
        QByteArray bytes = m_place->read();
        bytes = bytes.mid(bytes.indexOf("# --- Data"));
        QVERIFY(m_place->write(u"inks.db"_s, bytes));
        const auto result = m_place->db({u"info"_s, u"inks.db"_s, u"--json"_s});
        QCOMPARE(result.exitCode, 0);
        const auto info = ToolDatabase::object(result.out);
        QCOMPARE(info.value("headFromCopy"_L1).toBool(), true);
        QCOMPARE(info.value("owner"_L1).toString(), u"ada"_s);
        QCOMPARE(info.value("records"_L1).toInt(), 1);
        QVERIFY(QFile::remove(m_place->path(u"inks.db.srec"_s)));
        const auto without = m_place->db({u"info"_s, u"inks.db"_s});
        QCOMPARE(without.exitCode, 1);
        QVERIFY2(without.err.contains("is not a database"), without.err.constData());
    }

    void infoReadsAFileThatMayNotBeWritten()
    {
        QCOMPARE(create().exitCode, 0);
        QVERIFY(QFile::setPermissions(m_place->path(), QFileDevice::ReadOwner));
        QProcess process;
        m_place->tool.prepare(&process, {u"db"_s, u"info"_s, u"inks.db"_s});
        obeyPermissions(&process);
        process.start();
        QVERIFY(waitForEnd(process));
        QCOMPARE(process.exitCode(), 0);
    }

    // What all have in common

    void whatIsNoDatabaseIsRefused_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("reason");
        QTest::newRow("missing") << u"none.db"_s << 4 << "there is no such file"_ba;
        QTest::newRow("a folder") << u"."_s << 4 << "it is a folder"_ba;
        QTest::newRow("a device") << u"/dev/full"_s << 4 << "it is not a file"_ba;
        QTest::newRow("empty") << u"empty"_s << 1 << "is not a database"_ba;
        QTest::newRow("another file") << u"other"_s << 1 << "is not a database"_ba;
        QTest::newRow("a forged head") << u"forged"_s << 1 << "the head of"_ba;
    }

    void whatIsNoDatabaseIsRefused()
    {
        QFETCH(QString, file);
        QFETCH(int, exitCode);
        QFETCH(QByteArray, reason);
        QVERIFY(m_place->create());
        QByteArray forged = m_place->read();
        QVERIFY(m_place->write(u"empty"_s, {}));
        QVERIFY(m_place->write(u"other"_s, "some\ntext = other\n"_ba));
        QVERIFY(m_place->write(u"forged"_s, forged.replace("= readonly", "= all")));
        for (const QStringList &arguments :
             {QStringList{u"list"_s, file}, QStringList{u"info"_s, file},
              QStringList{u"get"_s, file, u"cyan"_s},
              QStringList{u"set"_s, file, u"cyan"_s, u"level=1"_s}}) {
            const auto result = m_place->asOwner(arguments);
            QCOMPARE(result.exitCode, exitCode);
            QVERIFY(result.out.isEmpty());
            QVERIFY2(result.err.contains(reason), result.err.constData());
        }
        QCOMPARE(m_place->read(u"other"_s), "some\ntext = other\n"_ba);
        QCOMPARE(m_place->read(u"forged"_s), forged);
    }

    void lockedDatabaseIsLeftAlone()
    {
        QVERIFY(m_place->create());
        QVERIFY(m_place->fill({u"cyan"_s}));
        SDBText holder;
        QVERIFY(holder.open(m_place->path()));
        const QByteArray before = m_place->read();
        for (const QStringList &arguments :
             {QStringList{u"list"_s, u"inks.db"_s}, QStringList{u"rm"_s, u"inks.db"_s, u"cyan"_s},
              QStringList{u"set"_s, u"inks.db"_s, u"cyan"_s, u"level=1"_s}}) {
            const auto result = m_place->asOwner(arguments);
            QCOMPARE(result.exitCode, 4);
            QVERIFY2(result.err.contains("is in use by process " +
                                         QByteArray::number(QCoreApplication::applicationPid())),
                     result.err.constData());
        }
        QCOMPARE(m_place->read(), before);
    }

#ifdef Q_OS_LINUX
    void fileThatMayNotBeWrittenIsToldWithTheReason()
    {
        QVERIFY(m_place->create());
        QVERIFY(QFile::setPermissions(m_place->path(), QFileDevice::ReadOwner));
        QProcess process;
        m_place->tool.prepare(&process, {u"db"_s, u"list"_s, u"inks.db"_s});
        obeyPermissions(&process);
        process.start();
        QVERIFY(process.waitForFinished(30'000));
        QCOMPARE(process.exitCode(), 4);
        const QByteArray error = process.readAllStandardError();
        QVERIFY2(error.contains("inks.db for reading and writing: Permission denied"),
                 error.constData());
    }

    // The lock file can be created, and its text has no room.
    void fullDiskIsTheReasonThatIsTold()
    {
        QVERIFY(m_place->create());
        QVERIFY(m_place->fill({u"cyan"_s}));
        for (const QStringList &arguments :
             {QStringList{u"list"_s, u"inks.db"_s}, QStringList{u"get"_s, u"inks.db"_s, u"cyan"_s},
              QStringList{u"rm"_s, u"inks.db"_s, u"cyan"_s}, QStringList{u"purge"_s, u"inks.db"_s},
              QStringList{u"create"_s, u"new.db"_s, u"--key"_s, u"name"_s}}) {
            QProcess process;
            m_place->tool.prepare(&process, QStringList{u"db"_s} + arguments +
                                                QStringList{u"--user"_s, u"ada"_s});
            limitFileSize(&process, 0);
            process.start();
            QVERIFY(process.waitForFinished(30'000));
            const QByteArray error = process.readAllStandardError();
            QCOMPARE(process.exitCode(), 4);
            QVERIFY2(error.contains(".lck: File too large"), error.constData());
        }
        QCOMPARE(m_place->databases(), QStringList{u"inks.db"_s});
    }
#endif

    // unlock

    void lockOfAnotherHostIsToldWithOwnerHostAndTime()
    {
        QVERIFY(m_place->create());
        QVERIFY(m_place->fill({u"cyan"_s}));
        QVERIFY(m_place->write(u"inks.db.lck"_s, "4711\nplotter\nother.example\n"));
        const QDateTime written = QFileInfo(m_place->path(u"inks.db.lck"_s)).lastModified();
        const QByteArray owner =
            "inks.db is in use by process 4711 (plotter) on other.example since " +
            written.toUTC().toString(Qt::ISODate).toLatin1();
        const auto listed = m_place->db({u"list"_s, u"inks.db"_s});
        QCOMPARE(listed.exitCode, 4);
        QVERIFY2(listed.err.contains(owner), listed.err.constData());
        QVERIFY2(listed.err.contains("brix db unlock"), listed.err.constData());
        const auto refused = m_place->db({u"unlock"_s, u"inks.db"_s});
        QCOMPARE(refused.exitCode, 1);
        QVERIFY2(refused.err.contains(owner), refused.err.constData());
        QVERIFY(QFile::exists(m_place->path(u"inks.db.lck"_s)));
        const auto forced = m_place->db({u"unlock"_s, u"inks.db"_s, u"--force"_s});
        QCOMPARE(forced.exitCode, 0);
        QVERIFY(!QFile::exists(m_place->path(u"inks.db.lck"_s)));
        QCOMPARE(m_place->db({u"list"_s, u"inks.db"_s}).exitCode, 0);
    }

    void unlockRemovesTheLockOfNoLivingProgram_data()
    {
        QTest::addColumn<QByteArray>("lock");
        const QByteArray host = QSysInfo::machineHostName().toUtf8();
        QTest::newRow("ended") << QByteArray("2147483600\nplotter\n" + host + '\n');
        QTest::newRow("unreadable") << QByteArray("no lock at all");
        QTest::newRow("empty") << QByteArray();
    }

    void unlockRemovesTheLockOfNoLivingProgram()
    {
        QFETCH(QByteArray, lock);
        QVERIFY(m_place->create());
        QVERIFY(m_place->write(u"inks.db.lck"_s, lock));
        const auto result = m_place->db({u"unlock"_s, u"inks.db"_s, u"--json"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(ToolDatabase::object(result.out).value("wasLocked"_L1).toBool(), true);
        QVERIFY(!QFile::exists(m_place->path(u"inks.db.lck"_s)));
        const auto again = m_place->db({u"unlock"_s, u"inks.db"_s});
        QCOMPARE(again.exitCode, 0);
        QVERIFY2(again.out.contains("is not locked"), again.out.constData());
    }

    void unlockLeavesALivingProgramItsLock()
    {
        QVERIFY(m_place->create());
        SDBText holder;
        QVERIFY(holder.open(m_place->path()));
        const auto result = m_place->db({u"unlock"_s, u"inks.db"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("is in use by process " +
                                     QByteArray::number(QCoreApplication::applicationPid())),
                 result.err.constData());
        QVERIFY(QFile::exists(m_place->path(u"inks.db.lck"_s)));
    }

    void wrongPasswordOfTheOwnerIsRefused()
    {
        QVERIFY(m_place->create(u"inks.db"_s, DBAuthGrants::All));
        QVERIFY(m_place->fill({u"cyan"_s}));
        m_place->tool.password = u"guess"_s;
        const QByteArray before = m_place->read();
        for (const QStringList &arguments :
             {QStringList{u"list"_s, u"inks.db"_s}, QStringList{u"info"_s, u"inks.db"_s},
              QStringList{u"rm"_s, u"inks.db"_s, u"cyan"_s},
              QStringList{u"set"_s, u"inks.db"_s, u"cyan"_s, u"level=1"_s}}) {
            const auto result = m_place->asOwner(arguments);
            QCOMPARE(result.exitCode, 1);
            QVERIFY(result.out.isEmpty());
            QVERIFY2(result.err.contains("the password of ada"), result.err.constData());
        }
        QCOMPARE(m_place->read(), before);
    }

    void passwordComesFromStdinToo()
    {
        QVERIFY(m_place->create(u"inks.db"_s, DBAuthGrants::None));
        m_place->tool.password = QString();
        m_place->tool.input = "secret\n";
        QCOMPARE(m_place->asOwner({u"list"_s, u"inks.db"_s, u"--password-stdin"_s}).exitCode, 0);
        QCOMPARE(m_place->db({u"list"_s, u"inks.db"_s, u"--password-stdin"_s}).exitCode, 2);
    }

    void grantsHoldForOthers_data()
    {
        QTest::addColumn<DBAuthGrants>("grants");
        QTest::addColumn<int>("list");
        QTest::addColumn<int>("add");
        QTest::addColumn<int>("removeOfAda");
        QTest::newRow("none") << DBAuthGrants::None << 1 << 1 << 1;
        QTest::newRow("readonly") << DBAuthGrants::ReadOnly << 0 << 1 << 1;
        QTest::newRow("readownwrite") << DBAuthGrants::ReadOwnWrite << 0 << 0 << 1;
        QTest::newRow("readwrite") << DBAuthGrants::ReadWrite << 0 << 0 << 0;
        QTest::newRow("all") << DBAuthGrants::All << 0 << 0 << 0;
    }

    void grantsHoldForOthers()
    {
        QFETCH(DBAuthGrants, grants);
        QVERIFY(m_place->create(u"inks.db"_s, grants));
        QVERIFY(m_place->fill({u"cyan"_s}));
        const auto asBob = [&](const QStringList &arguments) {
            const auto result = m_place->db(arguments + QStringList{u"--user"_s, u"bob"_s});
            if (result.exitCode == 1 && !result.err.contains("does not grant this"))
                return -1;
            return result.exitCode;
        };
        QTEST(asBob({u"list"_s, u"inks.db"_s}), "list");
        QTEST(asBob({u"set"_s, u"inks.db"_s, u"red"_s, u"level=1"_s}), "add");
        QTEST(asBob({u"rm"_s, u"inks.db"_s, u"cyan"_s}), "removeOfAda");
    }

    void fileThatMayNotBeWrittenIsLeftAlone()
    {
        QVERIFY(m_place->create());
        QVERIFY(QFile::setPermissions(m_place->path(), QFileDevice::ReadOwner));
        const QByteArray before = m_place->read();
        QProcess process;
        m_place->tool.prepare(&process, {u"db"_s, u"set"_s, u"inks.db"_s, u"cyan"_s, u"level=1"_s,
                                         u"--user"_s, u"ada"_s});
        obeyPermissions(&process);
        process.start();
        QVERIFY(waitForEnd(process));
        QCOMPARE(process.exitCode(), 4);
        QVERIFY(process.readAllStandardError().contains("for reading and writing"));
        QCOMPARE(m_place->read(), before);
    }

    void everySubcommandHasAnExample()
    {
        const auto help = m_place->db({u"--help"_s});
        QCOMPARE(help.exitCode, 0);
        for (const QString &name : {u"create"_s, u"info"_s, u"get"_s, u"set"_s, u"rm"_s, u"list"_s,
                                    u"search"_s, u"values"_s, u"export"_s, u"import"_s, u"check"_s,
                                    u"purge"_s, u"backup"_s, u"restore"_s, u"merge"_s, u"diff"_s}) {
            QVERIFY2(help.out.contains(name.toLatin1()), qPrintable(name));
            const auto result = m_place->db({name, u"--help"_s});
            QCOMPARE(result.exitCode, 0);
            QVERIFY2(result.out.contains("Example:\n  brix db " + name.toLatin1()),
                     result.out.constData());
        }
    }
};

QTEST_GUILESS_MAIN(tst_ToolDbCommands)
#include "tst_tooldbcommands.moc"
