// SPDX-License-Identifier: MIT
#include "toolserver.h"

#ifdef Q_OS_UNIX
#include <shared/faketerminal.h>
#endif

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#ifdef Q_OS_UNIX
#include <csignal>
#endif

using namespace Qt::StringLiterals;

class tst_ToolServerCommands : public QObject
{
    Q_OBJECT

private:
    ToolServer m_server;

    ToolResult run(const QString &command, const QStringList &more = {}) const
    {
        return m_server.run(QStringList{command, m_server.url()} + more);
    }
    QJsonObject runJson(const QString &command, const QStringList &more = {}) const
    {
        const auto lines = run(command, more + QStringList{u"--json"_s}).lines();
        return lines.isEmpty() ? QJsonObject() : QJsonDocument::fromJson(lines[0]).object();
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_server.start({u"--name"_s, u"press"_s})); }

    void whoAmITellsTheUser()
    {
        const auto result = run(u"whoami"_s);
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "ann\n"_ba);
        QVERIFY(result.err.isEmpty());
        QCOMPARE(runJson(u"whoami"_s), (QJsonObject{{u"user"_s, u"ann"_s}}));
    }

    void nameTellsTheServer()
    {
        QCOMPARE(run(u"name"_s).out, "press\n"_ba);
        QCOMPARE(runJson(u"name"_s), (QJsonObject{{u"name"_s, u"press"_s}}));
    }

    void commandsAreListedWithTheirVersions()
    {
        const auto lines = run(u"commands"_s).lines();
        QVERIFY(lines.contains("getf  1.2.0"));
        QVERIFY(lines.contains("sndf  2.0.0"));
        QVERIFY(lines.contains("auth  1.0.0"));
        QVERIFY(std::is_sorted(lines.begin(), lines.end()));
        QCOMPARE(runJson(u"commands"_s),
                 (QJsonObject{{u"id"_s, u"aflp"_s}, {u"version"_s, u"1.0.0"_s}}));
    }

    void pluggablesAreListed()
    {
        QCOMPARE(run(u"calls"_s).out, "version\n"_ba);
        QCOMPARE(runJson(u"calls"_s), (QJsonObject{{u"name"_s, u"version"_s}}));
    }

    void pluggableIsCalled()
    {
        const auto result = run(u"call"_s, {u"version"_s, u"some parameters"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "brix 2.0.12\n"_ba);
        QCOMPARE(runJson(u"call"_s, {u"version"_s}),
                 (QJsonObject{{u"result"_s, true},
                              {u"value"_s, u"brix 2.0.12"_s},
                              {u"base64"_s, u"U1RSR2JyaXggMi4wLjEy"_s}}));
    }

    void linkTestTellsBothRates()
    {
        const auto object = runJson(u"linktest"_s, {u"--up"_s, u"1"_s, u"--down"_s, u"0"_s});
        QVERIFY(object.value("up"_L1).toDouble() > 1'000'000);
        QCOMPARE(object.value("down"_L1).toDouble(-1), 0);
        const auto text = run(u"linktest"_s, {u"--up"_s, u"0"_s, u"--down"_s, u"0"_s});
        QCOMPARE(text.exitCode, 0);
        QCOMPARE(text.out, "up    0 bytes/s\ndown  0 bytes/s\n"_ba);
        QCOMPARE(run(u"linktest"_s, {u"--up"_s, u"-1"_s}).exitCode, 2);
    }

#ifdef Q_OS_UNIX
    void theLinkTestIsFollowedOnATerminal()
    {
        FakeTerminal terminal;
        QProcess client;
        m_server.client().prepare(
            &client, {u"linktest"_s, m_server.url(), u"--up"_s, u"1"_s, u"--down"_s, u"1"_s});
        terminal.attach(&client, {2});
        client.start();
        QVERIFY(client.waitForFinished(30'000));
        QCOMPARE(client.exitCode(), 0);
        // Of two seconds, at most ten times in each.
        const auto drawn = terminal.screen().count("% ");
        QVERIFY2(drawn > 1 && drawn < 30, terminal.screen().constData());
    }

    void theLinkTestIsInterrupted_data()
    {
        QTest::addColumn<QStringList>("seconds");
        QTest::newRow("while it sends") << QStringList{u"--up"_s, u"600"_s, u"--down"_s, u"0"_s};
        QTest::newRow("while it receives") << QStringList{u"--up"_s, u"0"_s, u"--down"_s, u"600"_s};
    }

    void theLinkTestIsInterrupted()
    {
        QFETCH(QStringList, seconds);
        FakeTerminal terminal;
        QProcess client;
        m_server.client().prepare(&client, QStringList{u"linktest"_s, m_server.url(), u"--json"_s} +
                                               seconds);
        terminal.attach(&client, {2});
        client.start();
        QTRY_VERIFY_WITH_TIMEOUT(terminal.screen().contains("% "), 20'000);
        kill(pid_t(client.processId()), SIGINT);
        QVERIFY(client.waitForFinished(20'000));
        QCOMPARE(client.exitCode(), 130);
        QVERIFY(client.readAllStandardOutput().isEmpty());
        QVERIFY(terminal.screen().contains("interrupted"));
        // The server goes on.
        QCOMPARE(run(u"whoami"_s).out, "ann\n"_ba);
    }
#endif

    void unknownPluggableIsRefused()
    {
        const auto result = run(u"call"_s, {u"nothing"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY(result.out.isEmpty());
        QVERIFY2(result.err.contains("has no pluggable nothing"), result.err.constData());
    }

    void longParametersArrive()
    {
        QCOMPARE(run(u"call"_s, {u"version"_s, QString(100'000, u'x')}).exitCode, 0);
    }
};

QTEST_GUILESS_MAIN(tst_ToolServerCommands)
#include "tst_toolservercommands.moc"
