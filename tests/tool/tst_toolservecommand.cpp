// SPDX-License-Identifier: MIT
#include "toolserver.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <csignal>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

// The default time-out of a session and a second.
constexpr int longestStop = 11'000;

// A connection that has been greeted and says nothing.
bool greet(QTcpSocket *socket, quint16 port)
{
    socket->connectToHost(QHostAddress(QHostAddress::LocalHost), port);
    return QTest::qWaitFor([&] { return socket->bytesAvailable() >= 16; }, 20'000);
}

} // namespace

class tst_ToolServeCommand : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ToolServer> m_server;

    void stop(int signal)
    {
        QElapsedTimer timer;
        timer.start();
        QProcess &process = m_server->process();
        kill(pid_t(process.processId()), signal);
        QVERIFY(process.waitForFinished(longestStop));
        QVERIFY(timer.elapsed() < longestStop);
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), 0);
    }

private Q_SLOTS:
    void init() { m_server = std::make_unique<ToolServer>(); }
    void cleanup() { m_server.reset(); }

    void firstLineTellsAddressAndPort()
    {
        QVERIFY(m_server->start());
        QVERIFY(m_server->firstLine().startsWith("listening on 127.0.0.1:"));
        QVERIFY(m_server->port() > 0);
        QTcpSocket socket;
        QVERIFY(greet(&socket, m_server->port()));
    }

    void firstLineIsAnObjectWithJson()
    {
        QVERIFY(!m_server->start({u"--json"_s}));
        const auto object = QJsonDocument::fromJson(m_server->firstLine()).object();
        QVERIFY(object.value("listening"_L1).toString().startsWith(u"127.0.0.1:"_s));
    }

    void listensOnAnIpv6Address()
    {
        QVERIFY(m_server->start({u"--address"_s, u"::1"_s}));
        QVERIFY(m_server->firstLine().startsWith("listening on [::1]:"));
        QCOMPARE(m_server->run({u"whoami"_s, m_server->url()}).out, "ann\n"_ba);
    }

    void takenPortIsTold()
    {
        QTcpServer other;
        QVERIFY(other.listen(QHostAddress::LocalHost));
        QVERIFY(!m_server->start({u"--port"_s, QString::number(other.serverPort())}));
        QTRY_COMPARE(m_server->process().state(), QProcess::NotRunning);
        QCOMPARE(m_server->process().exitCode(), 4);
        QVERIFY(m_server->process().readAllStandardError().contains("cannot listen on"));
    }

    void wrongAddressIsTold()
    {
        QVERIFY(!m_server->start({u"--address"_s, u"press"_s}));
        QTRY_COMPARE(m_server->process().state(), QProcess::NotRunning);
        QCOMPARE(m_server->process().exitCode(), 2);
        QVERIFY(m_server->process().readAllStandardError().contains("is not an address"));
    }

    void userFileMustBeThereAndSound()
    {
        ToolProcess tool;
        const QString file = m_server->path(u"broken.json"_s);
        QCOMPARE(tool.run({u"serve"_s, u"--users"_s, file}).exitCode, 4);
        QVERIFY(writeFile(file, "{broken"));
        const auto result = tool.run({u"serve"_s, u"--users"_s, file});
        QCOMPARE(result.exitCode, 1);
        QVERIFY(result.out.isEmpty());
        QVERIFY2(result.err.contains("not a sound user file"), result.err.constData());
    }

    void serverWithoutUsersSaysSo()
    {
        m_server->users.clear();
        QVERIFY(m_server->start());
        QVERIFY(m_server->logShowing("nobody can log in").contains("nobody can log in"));
    }

    void homesThatOverlapAreTold()
    {
        QVERIFY(QDir().mkdir(m_server->path(u"homes"_s)));
        m_server->users.insert(new SUserData(u"bob"_s, u"other"_s, m_server->path(u"homes"_s)));
        QVERIFY(m_server->start());
        const QByteArray warning = "brix: ann can read and change " +
                                   m_server->path(u"homes"_s).toUtf8() + ", the home of bob: ";
        QVERIFY(m_server->logShowing(warning).contains(warning));
    }

    void strictJailKeepsUsersInTheirHomes_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<bool>("isKept");
        QTest::newRow("without it") << QStringList() << false;
        QTest::newRow("with it") << QStringList{u"--strict-jail"_s} << true;
        QTest::newRow("with a document root")
            << QStringList{u"--strict-jail"_s, u"--document-root"_s} << true;
    }

    void strictJailKeepsUsersInTheirHomes()
    {
        QFETCH(QStringList, options);
        QFETCH(bool, isKept);
        QVERIFY(writeFile(m_server->path(u"home2/file"_s), "a neighbour's"));
        QVERIFY(writeFile(m_server->path(u"outside/file"_s), "another's"));
        QVERIFY(writeFile(m_server->homePath(u"tree/file"_s), "mine"));
        QVERIFY(QFile::link(m_server->path(u"outside"_s), m_server->homePath(u"out"_s)));
        QVERIFY(QFile::link(m_server->path(u"outside/file"_s), m_server->homePath(u"tree/link"_s)));
        QVERIFY(m_server->start(options));
        const int refused = isKept ? 1 : 0;
        QCOMPARE(m_server->run({u"cat"_s, m_server->url(u"tree/file"_s)}).out, "mine"_ba);
        for (const QString &name : {u"../home2/file"_s, u"out/file"_s, u"tree/link"_s}) {
            const auto result = m_server->run({u"cat"_s, m_server->url(name)});
            QCOMPARE(result.exitCode, refused);
            QCOMPARE(result.out.isEmpty(), isKept);
        }
        QCOMPARE(m_server->run({u"rm"_s, m_server->url(u"../home2/file"_s)}).exitCode, refused);
        QCOMPARE(QFileInfo::exists(m_server->path(u"home2/file"_s)), isKept);
        const QString source = m_server->path(u"source"_s);
        QVERIFY(writeFile(source, "new"));
        (void)m_server->run({u"put"_s, source, m_server->url(u"out/new"_s)});
        QCOMPARE(QFileInfo::exists(m_server->path(u"outside/new"_s)), !isKept);
        QCOMPARE(
            m_server
                ->run({u"get"_s, u"-r"_s, m_server->url(u"tree"_s), m_server->path(u"target"_s)})
                .exitCode,
            0);
        QCOMPARE(namesIn(m_server->path(u"target"_s)),
                 isKept ? QStringList{u"file"_s} : (QStringList{u"file"_s, u"link"_s}));
        const QByteArray log = m_server->process().readAllStandardError();
        QCOMPARE(log.contains("/home2: its path begins with"), !isKept);
    }

    void userFileThatOthersMayReadIsTold_data()
    {
        QTest::addColumn<int>("mode");
        QTest::newRow("the group reads") << 0640;
        QTest::newRow("others read") << 0604;
        QTest::newRow("the group writes") << 0620;
        QTest::newRow("the owner alone") << 0600;
    }

    void userFileThatOthersMayReadIsTold()
    {
        QFETCH(int, mode);
        QVERIFY(m_server->start({u"--verbose"_s}));
        const QByteArray file = m_server->path(u"users.json"_s).toLocal8Bit();
        QCOMPARE(chmod(file.constData(), mode_t(mode)), 0);
        kill(pid_t(m_server->process().processId()), SIGHUP);
        QVERIFY(m_server->logShowing("again; users: 1\n").contains("again; users: 1\n"));
        QCOMPARE(m_server->run({u"whoami"_s, m_server->url()}).exitCode, 0);
        const QByteArray log = m_server->logShowing("login of ann");
        const QByteArray warning =
            "(mode " + QByteArray::number(mode, 8) + "), and a line of it is as good as a password";
        QCOMPARE(log.contains(warning), mode != 0600);
        QCOMPARE(log.contains("chmod 600 " + file), mode != 0600);
    }

    void newFilesFollowTheUmask_data()
    {
        QTest::addColumn<QString>("mask");
        QTest::addColumn<int>("fileMode");
        QTest::addColumn<int>("directoryMode");
        QTest::newRow("nothing for others") << u"077"_s << 0600 << 0700;
        QTest::newRow("reading for the group") << u"27"_s << 0640 << 0750;
        QTest::newRow("all") << u"0"_s << 0666 << 0777;
    }

    void newFilesFollowTheUmask()
    {
        QFETCH(QString, mask);
        QFETCH(int, fileMode);
        QFETCH(int, directoryMode);
        QVERIFY(m_server->start({u"--umask"_s, mask}));
        QVERIFY(writeFile(m_server->path(u"source"_s), "content"));
        QCOMPARE(
            m_server->run({u"put"_s, m_server->path(u"source"_s), m_server->url(u"new/file"_s)})
                .exitCode,
            0);
        const auto modeOf = [this](const QString &name) {
            struct stat facts = {};
            stat(QFile::encodeName(m_server->homePath(name)).constData(), &facts);
            return int(facts.st_mode & 0777);
        };
        QCOMPARE(modeOf(u"new/file"_s), fileMode);
        QCOMPARE(modeOf(u"new"_s), directoryMode);
    }

    void wrongUmaskIsWrongUsage()
    {
        for (const QString &mask :
             {u"8"_s, u"1000"_s, u"-1"_s, u""_s, u"rwx"_s, u"00000000022"_s}) {
            const auto result =
                ToolProcess().run({u"serve"_s, u"--users"_s, u"f"_s, u"--umask="_s + mask});
            QCOMPARE(result.exitCode, 2);
        }
    }

    void changedUserFileIsReadAgain_data()
    {
        QTest::addColumn<bool>("withSignal");
        QTest::newRow("by itself") << false;
        QTest::newRow("on SIGHUP") << true;
    }

    void changedUserFileIsReadAgain()
    {
        QFETCH(bool, withSignal);
        QVERIFY(m_server->start());
        auto tool = m_server->client();
        tool.password = u"other"_s;
        QCOMPARE(
            tool.run({u"user"_s, u"passwd"_s, m_server->path(u"users.json"_s), u"ann"_s}).exitCode,
            0);
        if (withSignal)
            kill(pid_t(m_server->process().processId()), SIGHUP);
        const QByteArray line = "brix: read the user file again; users: 1\n";
        QVERIFY(m_server->logShowing(line).contains(line));
        QCOMPARE(tool.run({u"whoami"_s, m_server->url()}).out, "ann\n"_ba);
        QCOMPARE(m_server->run({u"whoami"_s, m_server->url()}).exitCode, 1);
    }

    void wrongUserFileIsRefusedAndTheUsersStay()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(m_server->path(u"users.json"_s), "{\"users\": ["));
        QByteArray log = m_server->logShowing("the users stay as they were\n");
        QVERIFY2(log.contains("not a sound user file"), log.constData());
        QCOMPARE(m_server->run({u"whoami"_s, m_server->url()}).out, "ann\n"_ba);
        QVERIFY(QFile::remove(m_server->path(u"users.json"_s)));
        log = m_server->logShowing("cannot read");
        QVERIFY2(log.contains("cannot read"), log.constData());
        QCOMPARE(m_server->run({u"whoami"_s, m_server->url()}).out, "ann\n"_ba);
    }

    void removedUserLosesTheSessionAtTheNextCommand()
    {
        const QString large = m_server->homePath(u"large"_s);
        QVERIFY(writeFile(large, QByteArray(8 << 20, 'x')));
        QVERIFY(m_server->start({u"--limit-out"_s, u"1048576"_s, u"--verbose"_s}));
        QProcess client;
        m_server->client().prepare(&client, {u"cat"_s, m_server->url(u"large"_s)});
        client.start();
        QVERIFY(m_server->logShowing("login of ann").contains("login of ann"));
        ToolProcess tool;
        QCOMPARE(
            tool.run({u"user"_s, u"remove"_s, m_server->path(u"users.json"_s), u"ann"_s}).exitCode,
            0);
        QVERIFY(client.waitForFinished(60'000));
        QCOMPARE(client.exitCode(), 3);
        QVERIFY(client.readAllStandardOutput().size() < 8 << 20);
        QVERIFY(m_server->logShowing("end of the session").contains("cldv failed"));
    }

    void signalStopsCleanly_data()
    {
        QTest::addColumn<int>("signal");
        QTest::newRow("Ctrl-C") << SIGINT;
        QTest::newRow("SIGTERM") << SIGTERM;
    }

    void signalStopsCleanly()
    {
        QFETCH(int, signal);
        QVERIFY(m_server->start());
        stop(signal);
    }

    void stopDoesNotWaitForSilentPeers()
    {
        QVERIFY(m_server->start());
        QTcpSocket silent;
        QVERIFY(greet(&silent, m_server->port()));
        QTcpSocket half;
        QVERIFY(greet(&half, m_server->port()));
        half.write("\0\0", 2);
        QVERIFY(half.waitForBytesWritten());
        stop(SIGTERM);
    }

    void stopEndsARunningTransfer()
    {
        QVERIFY(writeFile(m_server->homePath(u"large"_s), QByteArray(8 << 20, 'x')));
        QVERIFY(m_server->start({u"--limit-out"_s, u"262144"_s, u"--verbose"_s}));
        QProcess client;
        m_server->client().prepare(
            &client, {u"get"_s, m_server->url(u"large"_s), m_server->path(u"target"_s)});
        client.start();
        QVERIFY(m_server->logShowing("login of ann").contains("login of ann"));
        // The transfer runs when the partial file has come into being.
        QTRY_VERIFY_WITH_TIMEOUT(!namesIn(m_server->path(QString())).filter(u".part"_s).isEmpty(),
                                 20'000);
        stop(SIGTERM);
        QVERIFY(client.waitForFinished(20'000));
        QCOMPARE(client.exitCode(), 3);
        QCOMPARE(namesIn(m_server->path(QString())), (QStringList{u"home"_s, u"users.json"_s}));
    }

    void sessionsAreReportedWithVerbose()
    {
        QVERIFY(m_server->start({u"--verbose"_s}));
        QCOMPARE(m_server->run({u"ls"_s, m_server->url()}).exitCode, 0);
        const QByteArray log = m_server->logShowing("[1] end of the session\n");
        qsizetype at = -1;
        for (const char *line : {"[1] connection from 127.0.0.1\n", "[1] login of ann\n",
                                 "[1] auth\n", "[1] lstd\n", "[1] end of the session\n"}) {
            const qsizetype next = log.indexOf(line);
            QVERIFY2(next > at, line);
            at = next;
        }
        ToolProcess wrong;
        wrong.password = u"wrong"_s;
        QCOMPARE(wrong.run({u"whoami"_s, m_server->url()}).exitCode, 1);
        QVERIFY(m_server->logShowing("[2] refused login of ann\n").contains("[2] refused"));
    }

    void userNameWithALineFeedStaysOneLine()
    {
        QVERIFY(m_server->start({u"--verbose"_s}));
        const auto result =
            m_server->run({u"whoami"_s, m_server->url({}, u"eve%0A[1]%20login%20of%20ann"_s)});
        QCOMPARE(result.exitCode, 1);
        const QByteArray log = m_server->logShowing("[1] end of the session\n");
        QVERIFY2(log.contains("[1] refused login of eve\\n[1] login of ann\n"), log.constData());
        QVERIFY(!log.contains("\n[1] login of ann"));
    }

    void stalledReaderOfStderrStopsNeitherLoginsNorTheStop()
    {
        int ends[2] = {-1, -1};
        QCOMPARE(pipe(ends), 0);
        // The pipe is full before the server writes its first line.
        QCOMPARE(fcntl(ends[1], F_SETFL, O_NONBLOCK), 0);
        while (write(ends[1], "x", 1) == 1)
            continue;
        QCOMPARE(fcntl(ends[1], F_SETFL, 0), 0);
        m_server->process().setChildProcessModifier([&ends] { dup2(ends[1], STDERR_FILENO); });
        QVERIFY(m_server->start({u"--verbose"_s}));
        QCOMPARE(m_server->run({u"whoami"_s, m_server->url()}).out, "ann\n"_ba);
        stop(SIGTERM);
        close(ends[0]);
        close(ends[1]);
    }

    void nothingIsReportedWithoutVerbose()
    {
        QVERIFY(m_server->start());
        QCOMPARE(m_server->run({u"ls"_s, m_server->url()}).exitCode, 0);
        stop(SIGTERM);
        const QByteArray asRoot = geteuid() == 0 ? "brix: running as root: "_ba : ""_ba;
        const QByteArray log = m_server->process().readAllStandardError();
        QVERIFY2(log.startsWith("brix: at most "), log.constData());
        QVERIFY2(log.contains(" open files and connections\n" + asRoot), log.constData());
        QCOMPARE(log.count('\n'), asRoot.isEmpty() ? 1 : 2);
        QVERIFY(m_server->process().readAllStandardOutput().isEmpty());
    }

    void moreConnectionsThanAllowedAreClosed()
    {
        QVERIFY(m_server->start({u"--max-connections"_s, u"1"_s}));
        QTcpSocket first;
        QVERIFY(greet(&first, m_server->port()));
        QTcpSocket second;
        second.connectToHost(QHostAddress(QHostAddress::LocalHost), m_server->port());
        QTRY_COMPARE_WITH_TIMEOUT(second.state(), QAbstractSocket::UnconnectedState, 20'000);
        QCOMPARE(second.bytesAvailable(), 0);
        const auto refused = m_server->run({u"whoami"_s, m_server->url()});
        QCOMPARE(refused.exitCode, 3);
        QVERIFY2(refused.err.contains("cannot connect"), refused.err.constData());
    }

    void documentRootIsTheUsersFolder()
    {
        QVERIFY(QDir(m_server->home()).mkdir(u"sub"_s));
        QVERIFY(m_server->start({u"--document-root"_s}));
        QCOMPARE(m_server->run({u"pwd"_s, m_server->url()}).out, "/\n"_ba);
        QCOMPARE(m_server->run({u"pwd"_s, m_server->url(u"sub"_s)}).out, "/sub\n"_ba);
        QCOMPARE(m_server->run({u"pwd"_s, m_server->url(u"/sub"_s)}).out, "/sub\n"_ba);
    }

    void nameIsTheOneGiven()
    {
        QVERIFY(m_server->start({u"--name"_s, u"press 7"_s}));
        QCOMPARE(m_server->run({u"name"_s, m_server->url()}).out, "press 7\n"_ba);
    }

    void limitSlowsTransfersDown()
    {
        QVERIFY(writeFile(m_server->homePath(u"file"_s), QByteArray(2 << 20, 'x')));
        QVERIFY(m_server->start({u"--limit-out"_s, u"1048576"_s}));
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(
            m_server->run({u"get"_s, m_server->url(u"file"_s), m_server->path(u"t"_s)}).exitCode,
            0);
        QVERIFY2(timer.elapsed() > 1'000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(QFileInfo(m_server->path(u"t"_s)).size(), 2 << 20);
    }

    void userFileWithUpperCaseHashLetsIn()
    {
        m_server->users.insert(
            new SUserData(u"ann"_s, SUserData::hashPassword(u"secret"_s), m_server->home()));
        QVERIFY(m_server->start());
        const QString file = m_server->path(u"users.json"_s);
        QByteArray text = readFile(file);
        const QByteArray hash = SUserData::hashPassword(u"secret"_s);
        QVERIFY(text.contains(hash));
        QVERIFY(writeFile(file, text.replace(hash, hash.toUpper())));
        ToolServer other;
        other.users = SAuthenticationDb::fromFile(file);
        QVERIFY(other.start());
        QCOMPARE(other.run({u"whoami"_s, other.url()}).out, "ann\n"_ba);
    }

    void loginIsRefused_data()
    {
        QTest::addColumn<QString>("user");
        QTest::newRow("wrong password") << u"ann"_s;
        QTest::newRow("unknown user") << u"eve"_s;
        QTest::newRow("disabled user") << u"off"_s;
        QTest::newRow("user without a home folder") << u"homeless"_s;
        QTest::newRow("user whose home folder is missing") << u"lost"_s;
    }

    void loginIsRefused()
    {
        QFETCH(QString, user);
        m_server->users.insert(
            new SUserData(u"off"_s, u"other"_s, m_server->home(), QString(), QString(), true));
        m_server->users.insert(new SUserData(u"homeless"_s, u"other"_s, QString()));
        m_server->users.insert(new SUserData(u"lost"_s, u"other"_s, m_server->path(u"missing"_s)));
        QVERIFY(m_server->start());
        ToolProcess tool;
        tool.password = u"other"_s;
        const auto result = tool.run({u"whoami"_s, m_server->url(QString(), user)});
        QCOMPARE(result.exitCode, 1);
        QVERIFY(result.out.isEmpty());
        QVERIFY2(result.err.contains("refuses the login of " + user.toUtf8()),
                 result.err.constData());
    }

    void connectionThatCannotBeMadeIsTold_data()
    {
        QTest::addColumn<bool>("listens");
        QTest::newRow("nobody listens") << false;
        QTest::newRow("no greeting comes") << true;
    }

    void connectionThatCannotBeMadeIsTold()
    {
        QFETCH(bool, listens);
        QTcpServer silent;
        QVERIFY(silent.listen(QHostAddress::LocalHost));
        const quint16 port = silent.serverPort();
        if (!listens)
            silent.close();
        const auto result = m_server->run(
            {u"whoami"_s, u"--timeout"_s, u"1"_s, u"brix://ann@127.0.0.1:%1"_s.arg(port)});
        QCOMPARE(result.exitCode, 3);
        QVERIFY2(result.err.contains("cannot connect to 127.0.0.1:"), result.err.constData());
    }

    void unknownHostIsTold()
    {
        const auto result = m_server->run({u"whoami"_s, u"brix://ann@no-such-host.invalid:7000"_s});
        QCOMPARE(result.exitCode, 3);
        QVERIFY2(result.err.contains("the host no-such-host.invalid is unknown"),
                 result.err.constData());
    }

    void wrongUrlAndMissingPasswordAreWrongUsage()
    {
        auto result = m_server->run({u"whoami"_s, u"ann@press:7000"_s});
        QCOMPARE(result.exitCode, 2);
        QVERIFY2(result.err.contains("wrong URL"), result.err.constData());
        auto tool = m_server->client();
        result = tool.run({u"whoami"_s, u"--password-stdin"_s, u"brix://ann@127.0.0.1:7"_s});
        QCOMPARE(result.exitCode, 2);
        QVERIFY2(result.err.contains("stdin ended"), result.err.constData());
    }

    void passwordIsTakenFromStdinFirst()
    {
        QVERIFY(m_server->start());
        ToolProcess tool;
        tool.password = u"wrong"_s;
        tool.input = "secret\n"_ba;
        QCOMPARE(tool.run({u"whoami"_s, u"--password-stdin"_s, m_server->url()}).out, "ann\n"_ba);
    }
};

QTEST_GUILESS_MAIN(tst_ToolServeCommand)
#include "tst_toolservecommand.moc"
