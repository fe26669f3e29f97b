// SPDX-License-Identifier: MIT
// What "brix serve" records of its sessions.
#include "toolserver.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QRegularExpression>

#include <csignal>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_ToolServeAudit : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ToolServer> m_server;

    QString trail() const { return m_server->path(u"audit.log"_s); }
    bool start(const QStringList &more = {})
    {
        m_server->serverPassword = u"auditor's"_s;
        return m_server->start(QStringList{u"--audit"_s, trail(), u"--audit-user"_s, u"op"_s} +
                               more);
    }
    // The server has written all entries when it has ended.
    void stop()
    {
        kill(pid_t(m_server->process().processId()), SIGTERM);
        QVERIFY(m_server->process().waitForFinished(60'000));
        QCOMPARE(m_server->process().exitCode(), 0);
    }

    static ToolResult log(const QStringList &arguments)
    {
        return ToolProcess().run(QStringList{u"log"_s} + arguments);
    }

    // The entries of the log, with "id" among their fields.
    QList<QJsonObject> entries() const
    {
        QList<QJsonObject> entries;
        for (const QByteArray &line :
             log({u"show"_s, u"--json"_s, u"-n"_s, u"1000"_s, trail()}).lines()) {
            const QJsonObject entry = QJsonDocument::fromJson(line).object();
            QJsonObject fields = entry.value("fields"_L1).toObject();
            fields.insert(u"id"_s, entry.value("id"_L1));
            entries.append(fields);
        }
        return entries;
    }
    QJsonObject entry(const QString &name, const QString &value) const
    {
        for (const QJsonObject &fields : entries()) {
            if (fields.value(name).toString() == value)
                return fields;
        }
        return {};
    }

private Q_SLOTS:
    void init() { m_server = std::make_unique<ToolServer>(); }
    void cleanup() { m_server.reset(); }

    void auditHasEachStepOfASession()
    {
        QVERIFY(start());
        QVERIFY(writeFile(m_server->path(u"source"_s), "content"));
        QCOMPARE(m_server->run({u"put"_s, m_server->path(u"source"_s), m_server->url(u"file"_s)})
                     .exitCode,
                 0);
        stop();
        const QList<QJsonObject> all = entries();
        QVERIFY(all.size() >= 4);
        QCOMPARE(all.first().value("id"_L1).toString(), u"Connected"_s);
        QCOMPARE(all.first().value("address"_L1).toString(), u"127.0.0.1"_s);
        QCOMPARE(all.first().value("session"_L1).toString(), u"1"_s);
        QVERIFY(!all.first().contains("user"_L1));
        QCOMPARE(all.at(1).value("id"_L1).toString(), u"LoggedIn"_s);
        QCOMPARE(all.at(1).value("user"_L1).toString(), u"ann"_s);
        QCOMPARE(all.last().value("id"_L1).toString(), u"Disconnected"_s);
        QCOMPARE(all.last().value("user"_L1).toString(), u"ann"_s);
        const QJsonObject sent = entry(u"command"_s, u"sndf"_s);
        QCOMPARE(sent.value("id"_L1).toString(), u"Command"_s);
        QCOMPARE(sent.value("session"_L1).toString(), u"1"_s);
        QCOMPARE(sent.value("address"_L1).toString(), u"127.0.0.1"_s);
        QCOMPARE(sent.value("user"_L1).toString(), u"ann"_s);
        QVERIFY(sent.value("path"_L1).toString().endsWith(u"file"));
        QCOMPARE(sent.value("result"_L1).toString(), u"done"_s);
        QCOMPARE(sent.value("bytes"_L1).toString(), u"7"_s);
        QVERIFY(sent.value("ms"_L1).toString().toDouble() > 0);
    }

    void auditHasTheResultOfEachCommand_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("target");
        QTest::addColumn<QString>("result");
        QTest::addColumn<QString>("bytes");
        const auto row = [](const char *name, const QStringList &arguments, const QString &command,
                            const QString &path, const QString &target, const QString &result,
                            const QString &bytes) {
            QTest::newRow(name) << arguments << command << path << target << result << bytes;
        };
        row("make a directory", {u"mkdir"_s, u"URL/new"_s}, u"mkd_"_s, u"new"_s, {}, u"done"_s, {});
        row("remove a file", {u"rm"_s, u"URL/file"_s}, u"rmf_"_s, u"file"_s, {}, u"done"_s, {});
        row("no", {u"exists"_s, u"URL/missing"_s}, u"exst"_s, u"missing"_s, {}, u"no"_s, {});
        row("rename", {u"mv"_s, u"URL/file"_s, u"other"_s}, u"rnf_"_s, u"file"_s, u"other"_s,
            u"done"_s, {});
        row("read a file", {u"get"_s, u"URL/file"_s, u"-"_s}, u"cldv"_s, u"file"_s, {}, u"done"_s,
            u"7"_s);
        row("call", {u"call"_s, u"URL"_s, u"version"_s}, u"plgb"_s, u"version"_s, {}, u"done"_s,
            {});
        row("call what is not there", {u"call"_s, u"URL"_s, u"missing"_s}, u"plgb"_s, u"missing"_s,
            {}, u"no"_s, {});
        row("a name with a line feed", {u"mkdir"_s, u"URL/a%0Ab%20"_s}, u"mkd_"_s,
            u"a\\nb\\u{20}"_s, {}, u"done"_s, {});
    }

    void auditHasTheResultOfEachCommand()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, command);
        QFETCH(QString, path);
        QFETCH(QString, target);
        QFETCH(QString, result);
        QFETCH(QString, bytes);
        QVERIFY(writeFile(m_server->homePath(u"file"_s), "content"));
        QVERIFY(start());
        if (command == u"cldv")
            arguments = {u"cat"_s, u"URL/file"_s};
        arguments.replaceInStrings(u"URL/"_s, m_server->url());
        arguments.replaceInStrings(u"URL"_s, m_server->url());
        (void)m_server->run(arguments);
        stop();
        const QJsonObject fields = entry(u"command"_s, command);
        QVERIFY2(fields.value("path"_L1).toString().endsWith(path),
                 qPrintable(fields.value("path"_L1).toString()));
        QVERIFY(fields.value("target"_L1).toString().endsWith(target));
        QCOMPARE(fields.value("result"_L1).toString(), result);
        QCOMPARE(fields.value("bytes"_L1).toString(), bytes);
    }

    void auditHasTheReasonOfARefusedLogin_data()
    {
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("password");
        QTest::addColumn<QString>("reason");
        QTest::newRow("wrong password") << u"ann"_s << u"wrong"_s << u"wrong password"_s;
        QTest::newRow("unknown") << u"eve"_s << u"secret"_s << u"unknown user"_s;
        QTest::newRow("disabled") << u"off"_s << u"secret"_s << u"the user is disabled"_s;
        QTest::newRow("no home") << u"lost"_s << u"secret"_s << u"the home directory is missing"_s;
        QTest::newRow("a forged line") << u"a%0Ab"_s << u"secret"_s << u"unknown user"_s;
    }

    void auditHasTheReasonOfARefusedLogin()
    {
        QFETCH(QString, user);
        QFETCH(QString, password);
        QFETCH(QString, reason);
        m_server->users.insert(
            new SUserData(u"off"_s, u"secret"_s, m_server->home(), QString(), QString(), true));
        m_server->users.insert(new SUserData(u"lost"_s, u"secret"_s, m_server->path(u"missing"_s)));
        QVERIFY(start());
        ToolProcess tool;
        tool.password = password;
        QCOMPARE(tool.run({u"whoami"_s, m_server->url({}, user)}).exitCode, 1);
        stop();
        const QJsonObject fields = entry(u"id"_s, u"LoginRefused"_s);
        QCOMPARE(fields.value("reason"_L1).toString(), reason);
        QCOMPARE(fields.value("as"_L1).toString(), QString(user).replace(u"%0A"_s, u"\\n"_s));
        QVERIFY(!fields.contains("user"_L1));
    }

    void auditIsReadWhileTheServerRuns()
    {
        QVERIFY(start());
        QCOMPARE(m_server->run({u"mkdir"_s, m_server->url(u"new"_s)}).exitCode, 0);
        QTRY_COMPARE_WITH_TIMEOUT(
            log({u"search"_s, trail(), u"command"_s, u"mkd_"_s}).lines().size(), 1, 20'000);
        QVERIFY(log({u"tail"_s, u"-n"_s, u"100"_s, trail()}).out.contains("command=mkd_"));
    }

    void auditRotatesWhileTheServerRuns()
    {
        QVERIFY(start({u"--audit-max-logs"_s, u"10"_s}));
        for (int i = 0; i < 5; ++i)
            QCOMPARE(m_server->run({u"whoami"_s, m_server->url()}).exitCode, 0);
        stop();
        QVERIFY(!entry(u"id"_s, u"LogRotate"_s).isEmpty());
        QVERIFY(entries().size() <= 12);
        QVERIFY(QFile::exists(m_server->path(u"audit.B00"_s)));
        QCOMPARE(ToolProcess().run({u"db"_s, u"check"_s, trail()}).exitCode, 0);
    }

    void auditIsContinuedByTheNextServer()
    {
        QVERIFY(start());
        stop();
        QVERIFY(start());
        QCOMPARE(m_server->run({u"whoami"_s, m_server->url()}).exitCode, 0);
        stop();
        QVERIFY(!entry(u"id"_s, u"LoggedIn"_s).isEmpty());
        QCOMPARE(QFileInfo(trail()).permissions() &
                     (QFileDevice::ReadGroup | QFileDevice::ReadOther),
                 QFileDevice::Permissions());
        m_server->serverPassword = u"wrong"_s;
        QVERIFY(!m_server->start({u"--audit"_s, trail(), u"--audit-user"_s, u"op"_s}));
        QTRY_COMPARE(m_server->process().state(), QProcess::NotRunning);
        QCOMPARE(m_server->process().exitCode(), 1);
    }

    void auditNeedsAnOwner()
    {
        QVERIFY(!m_server->start({u"--audit"_s, trail()}));
        QTRY_COMPARE(m_server->process().state(), QProcess::NotRunning);
        QCOMPARE(m_server->process().exitCode(), 2);
        QVERIFY(m_server->process().readAllStandardError().contains("--audit-user"));
        QVERIFY(!QFile::exists(trail()));
    }

    void logHasTheSameAsLinesWithTime_data()
    {
        QTest::addColumn<bool>("toFile");
        QTest::newRow("a file") << true;
        QTest::newRow("stderr") << false;
    }

    void logHasTheSameAsLinesWithTime()
    {
        QFETCH(bool, toFile);
        const QString file = m_server->path(u"text.log"_s);
        QVERIFY(writeFile(file, "older\n"));
        QVERIFY(m_server->start({u"--log"_s, toFile ? file : u"-"_s}));
        QCOMPARE(m_server->run({u"mkdir"_s, m_server->url(u"a%22%20result=%22b%0Ac"_s)}).exitCode,
                 0);
        stop();
        const QByteArray text =
            toFile ? readFile(file) : m_server->process().readAllStandardError();
        QCOMPARE(text.startsWith("older\n"), toFile);
        const QRegularExpression line(
            "\\n\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z  Command  session=\"1\"  "
            "address=\"127\\.0\\.0\\.1\"  user=\"ann\"  command=\"mkd_\"  "
            "path=\"[^\"]*a\\\\\" result=\\\\\"b\\\\nc\"  result=\"done\"  ms=\"\\d+\\.\\d{3}\"\\n"_L1);
        QVERIFY2(line.match(QString::fromUtf8(text)).hasMatch(), text.constData());
        QVERIFY(text.contains("  Connected  session=\"1\"  address=\"127.0.0.1\"\n"));
        QVERIFY(text.contains("  Disconnected  session=\"1\""));
    }

    void logThatCannotBeWrittenIsTold()
    {
        QVERIFY(!m_server->start({u"--log"_s, m_server->path(u"missing/log"_s)}));
        QTRY_COMPARE(m_server->process().state(), QProcess::NotRunning);
        QCOMPARE(m_server->process().exitCode(), 4);
        QVERIFY(m_server->process().readAllStandardError().contains("cannot write"));
    }
};

QTEST_GUILESS_MAIN(tst_ToolServeAudit)
#include "tst_toolserveaudit.moc"
