// SPDX-License-Identifier: MIT
// Servers that send without end: replies, listings, and words that keep a client waiting.
#include <brixlib/fileservice/sserverftp.h>
#include <brixlib/protocol/scommand.h>
#include <brixlib/protocol/socket/stcpsocket.h>
#include <brixlib/protocol/wire.h>

#include <shared/rawserver.h>
#include <shared/sessionhost.h>
#include <shared/toolprocess.h>

#include <QtCore/QElapsedTimer>

#include <sys/resource.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

//! Replies to a pluggable with so many bytes as it claims, and to a copy with keep-alive words.
class EndlessServer final : public SServerFtp
{
public:
    EndlessServer(qint64 descriptor, SAuthenticationDb *users, std::atomic<qint64> *sent)
        : SServerFtp(descriptor)
        , m_sent(sent)
    {
        setAuthenticationDb(users);
        setTimeout(5000);
    }

protected:
    bool executeCommand(SCommand *command) override
    {
        if (command->id() == CommandIds::kPluggable)
            return sendReply(0xFFFFFFF0);
        if (command->id() == CommandIds::kCopyFile)
            return keepWaiting();
        return SServerFtp::executeCommand(command);
    }

private:
    bool sendReply(quint32 bytes)
    {
        const QByteArray block(1 << 20, '\0');
        if (!writeWord(socket(), bytes))
            return false;
        while (*m_sent < bytes && writeAll(socket(), block) == block.size())
            *m_sent += block.size();
        return false;
    }

    bool keepWaiting()
    {
        while (writeWord(socket(), Wire::kKeepAliveWord))
            QThread::msleep(50);
        return false;
    }

    std::atomic<qint64> *m_sent;
};

} // namespace

class tst_ToolHostileServer : public QObject
{
    Q_OBJECT

private:
    std::atomic<qint64> m_sent = 0;
    SessionHost m_host{[this](qint64 descriptor) {
        return new EndlessServer(descriptor, &m_host.users, &m_sent);
    }};

    static QString url(quint16 port, const QString &path)
    {
        return u"brix://alice@127.0.0.1:%1/%2"_s.arg(QString::number(port), path);
    }
    QString url(const QString &path = {}) const { return url(m_host.port(), path); }
    static ToolProcess tool()
    {
        ToolProcess process;
        process.password = u"secret"_s;
        return process;
    }
    ToolResult run(const QStringList &arguments) const { return tool().run(arguments); }
    void makeFile(const QString &name) const
    {
        const QString path = m_host.homeOf(u"alice"_s) + u'/' + name;
        QVERIFY(QDir().mkpath(QFileInfo(path).path()));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
    }

private Q_SLOTS:
    void initTestCase()
    {
        for (const QString &name : {u"tree/a"_s, u"tree/b"_s, u"tree/one/c"_s, u"tree/one/two/d"_s})
            makeFile(name);
    }
    void init() { m_sent = 0; }

    void replyThatClaimsMoreThanTheLimitIsNotRead()
    {
        const ToolResult result = run({u"call"_s, url(), u"log"_s});
        QCOMPARE(result.exitCode, 3);
        QVERIFY2(result.err.contains("--max-reply"), result.err.constData());
        QVERIFY(result.out.isEmpty());
        // What the buffers of both systems take.
        QVERIFY2(m_sent < 64 << 20, qPrintable(QString::number(m_sent)));
    }

    void limitOfRepliesIsSet_data()
    {
        QTest::addColumn<QString>("bytes");
        QTest::addColumn<int>("exitCode");
        QTest::newRow("too small") << u"8"_s << 3;
        QTest::newRow("large enough") << u"4096"_s << 0;
        QTest::newRow("none") << u"0"_s << 0;
    }

    void limitOfRepliesIsSet()
    {
        QFETCH(QString, bytes);
        QFETCH(int, exitCode);
        QCOMPARE(run({u"ls"_s, url(), u"--max-reply"_s, bytes}).exitCode, exitCode);
    }

    // A sanitizer has address space of its own, far beyond any limit.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    void memoryThatRunsOutIsAnExitStatus()
    {
        QProcess client;
        tool().prepare(&client, {u"call"_s, url(), u"log"_s, u"--max-reply"_s, u"0"_s});
        client.setChildProcessModifier([] {
            const rlimit limit{rlim_t(1) << 30, rlim_t(1) << 30};
            setrlimit(RLIMIT_AS, &limit);
        });
        client.start();
        const auto hasEnded = [&] { return client.state() == QProcess::NotRunning; };
        QVERIFY(QTest::qWaitFor(hasEnded, 120'000));
        QCOMPARE(client.exitStatus(), QProcess::NormalExit);
        QCOMPARE(client.exitCode(), 3);
        const QByteArray err = client.readAllStandardError();
        QVERIFY2(err.contains("memory"), err.constData());
        QVERIFY(m_sent > 64 << 20);
    }
#endif

    // Each word comes in time.
    void commandEndsAfterItsTime()
    {
        QElapsedTimer timer;
        timer.start();
        const ToolResult result =
            run({u"cp"_s, url(u"tree/a"_s), u"tree/z"_s, u"--max-time"_s, u"1"_s});
        QCOMPARE(result.exitCode, 3);
        QVERIFY2(result.err.contains("not done within 1 s"), result.err.constData());
        QVERIFY(timer.elapsed() >= 1000);
    }

    void connectingEndsAfterItsTime()
    {
        RawServer server([](RawConnection &peer) { peer.drip(RawServer::uuid(), 600); });
        const ToolResult result = run({u"name"_s, url(server.port(), {}), u"--max-time"_s, u"1"_s});
        QCOMPARE(result.exitCode, 3);
        QVERIFY2(result.err.contains("not done within 1 s"), result.err.constData());
    }

    void waitingForInputEndsAfterTheTime()
    {
        QProcess client;
        tool().prepare(&client, {u"put"_s, u"-"_s, url(u"new"_s), u"--max-time"_s, u"1"_s});
        client.start();
        const auto hasEnded = [&] { return client.state() == QProcess::NotRunning; };
        QVERIFY(QTest::qWaitFor(hasEnded, 60'000)); // stdin stays open
        QCOMPARE(client.exitCode(), 3);
        const QByteArray err = client.readAllStandardError();
        QVERIFY2(err.contains("not done within 1 s"), err.constData());
        const QDir home(m_host.homeOf(u"alice"_s));
        QCOMPARE(home.entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList{u"tree"_s});
    }

    void commandWithinItsTimeIsDone()
    {
        QCOMPARE(run({u"ls"_s, url(), u"--max-time"_s, u"100"_s}).out, "tree/\n"_ba);
    }

    void treeOfTooManyEntriesIsNotFetched()
    {
        const QTemporaryDir target;
        const auto get = [&](const QString &most) {
            return run(
                {u"get"_s, u"-r"_s, url(u"tree"_s), target.path(), u"--max-entries"_s, most});
        };
        const ToolResult refused = get(u"5"_s);
        QCOMPARE(refused.exitCode, 1);
        QVERIFY2(refused.err.contains("than the 5 of --max-entries"), refused.err.constData());
        QVERIFY(!QFile::exists(target.filePath(u"a"_s)));

        QCOMPARE(get(u"6"_s).exitCode, 0);
        QVERIFY(QFile::exists(target.filePath(u"one/two/d"_s)));
    }

    void treeIsFollowedAsDeepAsAllowed()
    {
        const QTemporaryDir target;
        const ToolResult result =
            run({u"get"_s, u"-r"_s, url(u"tree"_s), target.path(), u"--max-depth"_s, u"1"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("one/two: its folder lies too deep: --max-depth allows 1"),
                 result.err.constData());
        QVERIFY(QFile::exists(target.filePath(u"one/c"_s)));
        QVERIFY(!QFile::exists(target.filePath(u"one/two"_s)));
    }
};

QTEST_GUILESS_MAIN(tst_ToolHostileServer)
#include "tst_toolhostileserver.moc"
