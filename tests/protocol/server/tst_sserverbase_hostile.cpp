// SPDX-License-Identifier: MIT
// Peers that lie, dawdle, vanish, or will not let a stop through.
#include <brixlib/protocol/socket/stcpsocket.h>

#include <shared/processfacts.h>
#include <shared/rawclient.h>
#include <shared/sessionhost.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr auto kNotLoggedIn = "SServerBase::innerExecuteCommand: not authenticated error!";

// "A server told to stop stops within the time-out and a second."
constexpr int kTimeoutMs = 500;
constexpr int kStopMs = kTimeoutMs + 1000;

QByteArray iAmAlice()
{
    return RawBytes::ack() + RawBytes::frame(RawBytes::text(u"alice")) + RawBytes::ack();
}

// Sends the given bytes one by one, each after a pause.
class Dripper : public QObject
{
public:
    Dripper(RawClient &client, const QByteArray &bytes)
        : m_client(client)
        , m_bytes(bytes)
    {
        startTimer(20);
    }

protected:
    void timerEvent(QTimerEvent *) override
    {
        if (m_sent < m_bytes.size() && m_client.socket().state() == QAbstractSocket::ConnectedState)
            m_client.send(m_bytes.mid(m_sent++, 1));
    }

private:
    RawClient &m_client;
    const QByteArray m_bytes;
    qsizetype m_sent = 0;
};

// Is held to its limits once somebody is logged in.
class LimitedServer : public SServerBase
{
public:
    using SServerBase::SServerBase;

    qint64 incoming = 0;
    qint64 outgoing = 0;

protected:
    bool workerInit() override
    {
        if (!SServerBase::workerInit())
            return false;
        connect(this, &SServerBase::commandResult, this, [this] {
            socket()->setIncomingSpeed(incoming);
            socket()->setOutcomingSpeed(outgoing);
        });
        return true;
    }
};

// Answers the request for its name by a copy that takes for ever.
class CopyingServer : public SServerBase
{
public:
    using SServerBase::SServerBase;

protected:
    bool executeCommand(SCommand *) override
    {
        return copyFileLocal(u"endless"_s, u"nowhere"_s, true);
    }
};

} // namespace

class tst_SServerBase_hostile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The first connection makes what the process keeps: the counts start behind it.
    void initTestCase()
    {
        SessionHost host;
        {
            RawClient client;
            QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        }
        QTRY_COMPARE(host.controller.count(), 0);
    }

    void init()
    {
        m_descriptors = ProcessFacts::descriptors();
        m_threads = ProcessFacts::threads();
    }

    // Whatever the peers did, nothing of them stays.
    void cleanup()
    {
        QTRY_COMPARE(ProcessFacts::threads(), m_threads);
        QTRY_COMPARE(ProcessFacts::descriptors(), m_descriptors);
    }

    void aBadFrameEndsTheSessionAtOnce_data()
    {
        using namespace RawBytes;
        QTest::addColumn<QByteArray>("frame");
        QTest::newRow("length 0") << u32(0);
        QTest::newRow("length 1,048,577") << u32(1048577);
        QTest::newRow("length 0x80000000") << u32(0x80000000);
        QTest::newRow("length 0xFFFFFFFF") << u32(0xFFFFFFFF);
        QTest::newRow("one byte") << frame("x");
        QTest::newRow("wrong command magic") << frame("scmx" + body("wami").mid(4));
        QTest::newRow("wrong id magic")
            << frame("scmd" + u32(0x00010000) + "scmx" + u32(0x00010000) + "wami");
        QTest::newRow("unknown id") << command("nope");
        QTest::newRow("a file command") << command("pwd_");
        QTest::newRow("null id") << command(QByteArray(4, '\0'));
        QTest::newRow("text of 2 GiB") << command("cldv", u32(0x7FFFFFFE) + QByteArray(100, 'x'));
        QTest::newRow("text of 4 GiB") << command("cldv", u32(0xFFFFFFFC) + QByteArray(100, 'x'));
        QTest::newRow("text of odd size") << command("cldv", u32(3) + "abc");
        QTest::newRow("text longer than the body") << command("cldv", u32(100) + "abcd");
        QTest::newRow("array of 2 GiB") << command("plgb", text(u"x") + u32(0x7FFFFFFF) + "x");
        QTest::newRow("array of 4 GiB") << command("plgb", text(u"x") + u32(0xFFFFFFFD) + "x");
        QTest::newRow("user name of 2 GiB")
            << command("auth", u32(0x7FFFFFFE) + QByteArray(1000000, 'x'));
        QTest::newRow("missing fields") << command("lnkt", u32(1));
        QTest::newRow("noise") << frame(QByteArray(1048576, '\xA5'));
    }

    void aBadFrameEndsTheSessionAtOnce()
    {
        QFETCH(QByteArray, frame);
        SessionHost host;
        RawClient neighbour;
        QVERIFY(neighbour.openAndLogin(host.port(), u"alice"_s, u"secret"_s));

        for (const bool loggedIn : {false, true}) {
            RawClient client;
            if (loggedIn)
                QVERIFY(client.openAndLogin(host.port(), u"bob"_s, u"builder"_s));
            else
                QVERIFY(client.open(host.port()) && client.readGreeting());
            QElapsedTimer timer;
            timer.start();
            client.send(frame);
            QCOMPARE(client.read(4), RawBytes::nack());
            QVERIFY(client.endsHere());
            QVERIFY(timer.elapsed() < 5000);
        }

        neighbour.send(RawBytes::command("wami"));
        QCOMPARE(neighbour.readLike(iAmAlice()), iAmAlice());
    }

    // A client that is still sending may lose the nack word: the system resets a connection that is
    // closed with bytes unread.
    void aBodyAboveTheLimitIsNotRead()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(client.open(host.port()) && client.readGreeting());
        client.send(RawBytes::u32(1048577) + QByteArray(1048577, 'x'));
        QVERIFY(client.waitForEnd());
        const QByteArray answer =
            client.socket().isOpen() ? client.socket().readAll() : QByteArray();
        QVERIFY(answer.isEmpty() || answer == RawBytes::nack());
        QTRY_COMPARE(host.controller.count(), 0);
    }

    void aBodyCutAnywhereEndsTheSession_data()
    {
        QTest::addColumn<QByteArray>("body");
        const QByteArray login =
            RawBytes::body("auth", RawBytes::text(u"alice") + RawBytes::text(u"123"));
        for (qsizetype size = 1; size < login.size(); ++size)
            QTest::addRow("login, %d of %d bytes", int(size), int(login.size()))
                << login.left(size);
    }

    void aBodyCutAnywhereEndsTheSession()
    {
        QFETCH(QByteArray, body);
        SessionHost host;
        RawClient client;
        QVERIFY(client.open(host.port()) && client.readGreeting());
        client.send(RawBytes::frame(body));
        QCOMPARE(client.read(4), RawBytes::nack());
        QVERIFY(client.endsHere());
    }

    void aFrameThatDoesNotComeWholeEndsTheSession_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        const QByteArray whole = RawBytes::command("wami");
        for (qsizetype size = 1; size < whole.size(); ++size)
            QTest::addRow("%d of %d bytes", int(size), int(whole.size())) << whole.left(size);
        QTest::newRow("the longest body, one byte missing")
            << RawBytes::u32(1048576) + QByteArray(1048575, 'x');
    }

    void aFrameThatDoesNotComeWholeEndsTheSession()
    {
        QFETCH(QByteArray, bytes);
        SessionHost host;
        host.timeoutMs = 50;
        RawClient client;
        QVERIFY(client.open(host.port()) && client.readGreeting());
        client.send(bytes);
        QCOMPARE(client.read(4), RawBytes::nack());
        QVERIFY(client.endsHere());
    }

    // Bodies grow as they arrive.
    void theLengthWordCostsNoMemory()
    {
        SessionHost host;
        constexpr int kClients = 64;
        std::vector<std::unique_ptr<RawClient>> clients;
        for (int i = 0; i < kClients; ++i) {
            auto &client = *clients.emplace_back(std::make_unique<RawClient>());
            QVERIFY(client.open(host.port()) && client.readGreeting());
        }
        const qint64 before = ProcessFacts::heapBytes();
        for (const auto &client : clients)
            client->send(RawBytes::u32(1048576) + "scmd");
        QVERIFY(clients.back()->staysQuiet(300));
        const qint64 each = (ProcessFacts::heapBytes() - before) / kClients;
        QVERIFY2(each < 256 * 1024, qPrintable(u"%1 bytes each"_s.arg(each)));
    }

    // Address space counts too: a text of 2 GiB must not even be set aside.
    void theSizeOfATextCostsNoMemory()
    {
        SessionHost host;
        const qint64 before = ProcessFacts::kibibytes("VmPeak");
        for (int i = 0; i < 4; ++i) {
            RawClient client;
            QVERIFY(client.open(host.port()) && client.readGreeting());
            client.send(RawBytes::command("auth", RawBytes::u32(0x7FFFFFFE) + "x"));
            QCOMPARE(client.read(4), RawBytes::nack());
        }
        const qint64 grown = ProcessFacts::kibibytes("VmPeak") - before;
        QVERIFY2(grown < 1024 * 1024, qPrintable(u"grown by %1 KiB"_s.arg(grown)));
    }

    void aFloodCostsNoMemory_data()
    {
        using namespace RawBytes;
        QTest::addColumn<bool>("loggedIn");
        QTest::addColumn<QByteArray>("firstWords");
        QTest::addColumn<QByteArray>("flood");
        QTest::newRow("during the delay of a failed login")
            << false << authentication(u"alice", "x") << command("wami");
        QTest::newRow("commands, no answer read") << true << QByteArray() << command("wami");
        QTest::newRow("link test, no download read")
            << true << command("lnkt", i32(0) + i32(60)) + u64(0) << command("wami");
        QTest::newRow("device, no answer read")
            << true << command("cldv", text(u"file")) + u32(1) + u32(3) << u32(4);
    }

    // A client may send faster than it is answered; what it sends then has to wait on its side.
    void aFloodCostsNoMemory()
    {
        QFETCH(bool, loggedIn);
        QFETCH(QByteArray, firstWords);
        QFETCH(QByteArray, flood);
        SessionHost host;
        RawClient client;
        if (loggedIn)
            QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        else
            QVERIFY(client.open(host.port()) && client.readGreeting());
        client.socket().setReadBufferSize(16);
        const QByteArray block = flood.repeated(10000);
        qint64 sent = 0;
        const auto refill = [&] {
            while (client.socket().bytesToWrite() < 4 * block.size())
                sent += client.socket().write(block);
        };
        connect(&client.socket(), &QTcpSocket::bytesWritten, &client.socket(), refill);
        client.send(firstWords);
        refill();
        QTest::qWait(800);
        // The system's own buffers hold some MiB.
        const qint64 taken = sent - client.socket().bytesToWrite();
        QVERIFY2(taken < 32 << 20, qPrintable(u"%1 bytes were taken"_s.arg(taken)));
    }

    void aClientThatVanishesEndsItsSession_data()
    {
        using namespace RawBytes;
        QTest::addColumn<bool>("loggedIn");
        QTest::addColumn<QByteArray>("lastWords");
        QTest::newRow("after the greeting") << false << QByteArray();
        QTest::newRow("in the length word") << false << QByteArray(2, '\0');
        QTest::newRow("after the length word") << false << u32(100);
        QTest::newRow("in the body") << false << u32(100) + "scmd";
        QTest::newRow("after a bad frame") << false << u32(0);
        QTest::newRow("during the delay of a failed login")
            << false << authentication(u"alice", "x");
        QTest::newRow("logged in") << true << QByteArray();
        QTest::newRow("after a command") << true << command("wami");
        QTest::newRow("after many commands") << true << command("wami").repeated(5000);
        QTest::newRow("in the link test's upload")
            << true << command("lnkt", i32(10) + i32(10)) + u64(1000) + "x";
        QTest::newRow("in the link test's download")
            << true << command("lnkt", i32(0) + i32(30)) + u64(0);
        QTest::newRow("in a device") << true << command("cldv", text(u"file")) + u32(1);
    }

    void aClientThatVanishesEndsItsSession()
    {
        QFETCH(bool, loggedIn);
        QFETCH(QByteArray, lastWords);
        SessionHost host;
        RawClient client;
        if (loggedIn)
            QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        else
            QVERIFY(client.open(host.port()) && client.readGreeting());
        client.send(lastWords);
        QTRY_COMPARE(client.socket().bytesToWrite(), 0);
        client.vanish();
        QTRY_COMPARE(host.controller.count(), 0);
    }

    void aClientThatVanishesBeforeTheGreetingEndsItsSession()
    {
        SServerController controller;
        qint64 waiting = 0;
        connect(&controller, &SServerController::newConnection, this,
                [&](qint64 descriptor) { waiting = descriptor; });
        QVERIFY(controller.listen(QHostAddress(QHostAddress::LocalHost)));
        {
            RawClient client;
            QVERIFY(client.open(controller.serverPort()));
            QTRY_VERIFY(waiting != 0);
            client.vanish();
        }
        controller.serveNewConnection(new SServerBase(waiting), true);
        QTRY_COMPARE(controller.count(), 0);
    }

    void aSessionThatNeverStartsClosesItsDescriptor()
    {
        SServerController controller;
        qint64 waiting = 0;
        connect(&controller, &SServerController::newConnection, this,
                [&](qint64 descriptor) { waiting = descriptor; });
        QVERIFY(controller.listen(QHostAddress(QHostAddress::LocalHost)));
        RawClient client;
        QVERIFY(client.open(controller.serverPort()));
        QTRY_VERIFY(waiting != 0);
        delete new SServerBase(waiting);
        QVERIFY(client.endsHere());
    }

    void aStopIsSeen_data()
    {
        using namespace RawBytes;
        QTest::addColumn<bool>("loggedIn");
        QTest::addColumn<QByteArray>("lastWords");
        QTest::addColumn<QByteArray>("drip");
        const QByteArray none;
        const QByteArray endless(100000, 'x');
        QTest::newRow("idle, never logged in") << false << none << none;
        QTest::newRow("half a frame") << false << u32(100) + "scmd" << none;
        QTest::newRow("a frame byte by byte") << false << none << u32(1048576) + endless;
        QTest::newRow("a failed login") << false << authentication(u"alice", "x") << none;
        QTest::newRow("idle, logged in") << true << none << none;
        QTest::newRow("many commands") << true << command("wami").repeated(200000) << none;
        QTest::newRow("device, idle") << true << command("cldv", text(u"file")) << none;
        QTest::newRow("device, a write byte by byte")
            << true << command("cldv", text(u"file")) << u32(6) + i64(1LL << 60) + endless;
        QTest::newRow("link test, no upload") << true << command("lnkt", i32(60) + i32(60)) << none;
        QTest::newRow("link test, upload byte by byte")
            << true << command("lnkt", i32(60) + i32(60)) << u64(1048576) + endless;
        QTest::newRow("link test, a download that nobody reads")
            << true << command("lnkt", i32(0) + i32(60)) + u64(0) << none;
    }

    void aStopIsSeen()
    {
        QFETCH(bool, loggedIn);
        QFETCH(QByteArray, lastWords);
        QFETCH(QByteArray, drip);
        SessionHost host;
        host.timeoutMs = kTimeoutMs;
        RawClient client;
        if (loggedIn)
            QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        else
            QVERIFY(client.open(host.port()) && client.readGreeting());
        client.socket().setReadBufferSize(16);
        client.send(lastWords);
        const Dripper dripper(client, drip);
        // Let it get into the middle of things.
        QTest::qWait(100);
        QCOMPARE(host.controller.count(), 1);

        QElapsedTimer timer;
        timer.start();
        host.controller.interruptWorkers();
        QTRY_COMPARE_WITH_TIMEOUT(host.controller.count(), 0, 2 * kStopMs);
        QVERIFY2(timer.elapsed() <= kStopMs, qPrintable(u"took %1 ms"_s.arg(timer.elapsed())));
    }

    // A flood leaves no gap in which the session would wait for the peer.
    void aStopIsSeenInAFlood()
    {
        SessionHost host;
        host.timeoutMs = kTimeoutMs;
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        client.send(RawBytes::command("cldv", RawBytes::text(u"file")) + RawBytes::u32(6) +
                    RawBytes::i64(1LL << 60));
        const QByteArray block(1 << 20, 'x');
        const auto refill = [&] {
            if (client.socket().bytesToWrite() < 4 * block.size())
                client.socket().write(block);
        };
        connect(&client.socket(), &QTcpSocket::bytesWritten, this, refill);
        refill();
        refill();
        QTest::qWait(100);
        QElapsedTimer timer;
        timer.start();
        host.controller.interruptWorkers();
        QTRY_COMPARE_WITH_TIMEOUT(host.controller.count(), 0, 2 * kStopMs);
        QVERIFY2(timer.elapsed() <= kStopMs, qPrintable(u"took %1 ms"_s.arg(timer.elapsed())));
    }

    void aStopIsSeenUnderASpeedLimit_data()
    {
        using namespace RawBytes;
        QTest::addColumn<qint64>("incoming");
        QTest::addColumn<qint64>("outgoing");
        QTest::addColumn<QByteArray>("bytes");
        const QByteArray frame = RawBytes::frame(QByteArray(1048576, 'x'));
        const QByteArray device = command("cldv", text(u"file"));
        const QByteArray reading = device + u32(1) + u32(1) + u32(5) + i64(1048576);
        QTest::newRow("receiving at 256 bytes a second") << 256LL << 0LL << frame;
        QTest::newRow("receiving nothing") << -1LL << 0LL << frame;
        QTest::newRow("sending at 256 bytes a second") << 0LL << 256LL << reading;
        QTest::newRow("sending nothing") << 0LL << -1LL << reading;
    }

    void aStopIsSeenUnderASpeedLimit()
    {
        QFETCH(qint64, incoming);
        QFETCH(qint64, outgoing);
        QFETCH(QByteArray, bytes);
        SessionHost host([&](qint64 descriptor) {
            auto *server = new LimitedServer(descriptor, &host.users);
            server->incoming = incoming;
            server->outgoing = outgoing;
            return server;
        });
        host.timeoutMs = kTimeoutMs;
        QFile file(host.homeOf(u"alice"_s) + u"/file"_s);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.resize(1048576));
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        client.send(bytes);
        QTest::qWait(200);
        QCOMPARE(host.controller.count(), 1);

        QElapsedTimer timer;
        timer.start();
        host.controller.interruptWorkers();
        QTRY_COMPARE_WITH_TIMEOUT(host.controller.count(), 0, 2 * kStopMs);
        QVERIFY2(timer.elapsed() <= kStopMs, qPrintable(u"took %1 ms"_s.arg(timer.elapsed())));
    }

    void aStopIsSeenInALongCopy()
    {
        SessionHost host(
            [&](qint64 descriptor) { return new CopyingServer(descriptor, &host.users); });
        host.timeoutMs = kTimeoutMs;
        QFile file(host.homeOf(u"alice"_s) + u"/endless"_s);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.resize(qint64(1) << 40));
        QVERIFY(QFile::link(u"/dev/null"_s, host.homeOf(u"alice"_s) + u"/nowhere"_s));
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        client.send(RawBytes::command("srvn"));
        // A word comes at once and then every 100 ms.
        QCOMPARE(client.read(12), RawBytes::ack() + QByteArray::fromHex("50A050A050A050A0"));

        QElapsedTimer timer;
        timer.start();
        host.controller.interruptWorkers();
        QTRY_COMPARE_WITH_TIMEOUT(host.controller.count(), 0, 2 * kStopMs);
        QVERIFY2(timer.elapsed() <= kStopMs, qPrintable(u"took %1 ms"_s.arg(timer.elapsed())));
    }

    void aClientThatVanishesEndsItsCopy()
    {
        SessionHost host(
            [&](qint64 descriptor) { return new CopyingServer(descriptor, &host.users); });
        QFile file(host.homeOf(u"alice"_s) + u"/endless"_s);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.resize(qint64(1) << 40));
        QVERIFY(QFile::link(u"/dev/null"_s, host.homeOf(u"alice"_s) + u"/nowhere"_s));
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        client.send(RawBytes::command("srvn"));
        QCOMPARE(client.read(8), RawBytes::ack() + QByteArray::fromHex("50A050A0"));
        client.vanish();
        QTRY_COMPARE(host.controller.count(), 0);
    }

    void deletingTheControllerStopsAllSessionsSideBySide()
    {
        std::vector<std::unique_ptr<RawClient>> clients;
        auto host = std::make_unique<SessionHost>();
        host->timeoutMs = kTimeoutMs;
        for (int i = 0; i < 20; ++i) {
            auto &client = *clients.emplace_back(std::make_unique<RawClient>());
            QVERIFY(client.open(host->port()) && client.readGreeting());
            client.send(RawBytes::u32(1000) + "x");
        }
        QTRY_COMPARE(host->controller.count(), 20);
        QElapsedTimer timer;
        timer.start();
        host.reset();
        QVERIFY2(timer.elapsed() <= kStopMs, qPrintable(u"took %1 ms"_s.arg(timer.elapsed())));
        for (const auto &client : clients)
            QVERIFY(client->waitForEnd());
    }

    // Those who never log in or send a byte now and then hold their own thread and no more.
    void slowClientsDoNotHoldOthersUp()
    {
        SessionHost host;
        std::vector<std::unique_ptr<RawClient>> slow;
        std::vector<std::unique_ptr<Dripper>> drippers;
        for (int i = 0; i < 20; ++i) {
            auto &client = *slow.emplace_back(std::make_unique<RawClient>());
            QVERIFY(client.open(host.port()) && client.readGreeting());
            if (i % 2 == 0)
                drippers.push_back(std::make_unique<Dripper>(client, RawBytes::command("wami")));
        }
        RawClient client;
        QElapsedTimer timer;
        timer.start();
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        for (int i = 0; i < 50; ++i) {
            client.send(RawBytes::command("wami"));
            QCOMPARE(client.readLike(iAmAlice()), iAmAlice());
        }
        QVERIFY2(timer.elapsed() < 5000, qPrintable(u"took %1 ms"_s.arg(timer.elapsed())));
        for (int i = 0; i < 10; ++i)
            QTest::ignoreMessage(QtDebugMsg, kNotLoggedIn);
        for (int i = 0; i < 20; i += 2) {
            QCOMPARE(slow[i]->read(8), RawBytes::ack() + RawBytes::nack());
            QVERIFY(slow[i]->endsHere());
        }
        slow.clear();
        client.vanish();
        QTRY_COMPARE(host.controller.count(), 0);
    }

    void manySessionsComeAndGo()
    {
        SessionHost host;
        constexpr int kSessions = 200;
        std::vector<std::unique_ptr<RawClient>> clients;
        for (int i = 0; i < kSessions; ++i) {
            auto &client = *clients.emplace_back(std::make_unique<RawClient>());
            QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        }
        QTRY_COMPARE(host.controller.count(), kSessions);
        for (const auto &client : clients)
            client->send(RawBytes::command("wami"));
        for (const auto &client : clients)
            QCOMPARE(client->readLike(iAmAlice()), iAmAlice());
        clients.clear();
        QTRY_COMPARE_WITH_TIMEOUT(host.controller.count(), 0, 20000);
    }

private:
    qsizetype m_descriptors = 0;
    qsizetype m_threads = 0;
};

QTEST_GUILESS_MAIN(tst_SServerBase_hostile)
#include "tst_sserverbase_hostile.moc"
