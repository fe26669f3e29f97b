// SPDX-License-Identifier: MIT
// What a session, and the listener before it, allow a client that nobody knows.
#include <brixlib/protocol/server/sserverlimits.h>
#include <brixlib/protocol/socket/stcpsocket.h>

#include <shared/processfacts.h>
#include <shared/rawclient.h>
#include <shared/sessionhost.h>

#ifdef Q_OS_UNIX
#include <fcntl.h>
#include <sys/resource.h>
#endif
#ifdef Q_OS_LINUX
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#endif

using namespace Talverine;
using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto kRefused = "SServerController::admit: refused by the connection guard";
constexpr auto kTooFew = "SServerController::admit: too few descriptors or too little memory";
constexpr auto kNotLoggedIn = "SServerBase::innerExecuteCommand: not authenticated error!";

QByteArray iAmAlice()
{
    return RawBytes::ack() + RawBytes::frame(RawBytes::text(u"alice")) + RawBytes::ack();
}

QByteArray refusedLogin()
{
    return RawBytes::ack() + RawBytes::u32(0) + RawBytes::ack();
}

// A host whose sessions have limits.
class LimitedHost : public SessionHost
{
public:
    explicit LimitedHost(const SServerLimits &limits)
    {
        prepare = [limits](SServerBase *made) { made->setLimits(limits); };
    }
};

// Sends one byte of \a bytes after the other, each after a pause.
class Trickle : public QObject
{
public:
    Trickle(RawClient &client, const QByteArray &bytes, int pauseMs)
        : m_client(client)
        , m_bytes(bytes)
    {
        startTimer(pauseMs);
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

#ifdef Q_OS_UNIX
// While one lives, the process has no more than so many descriptors.
class DescriptorLimit
{
public:
    explicit DescriptorLimit(rlim_t count)
    {
        getrlimit(RLIMIT_NOFILE, &m_before);
        const rlimit limit{count, m_before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &m_before); }
    Q_DISABLE_COPY_MOVE(DescriptorLimit)

private:
    rlimit m_before{};
};

// Counted without opening any, as a look at /proc does. What the caller of the test left open at a
// number above all limits here does not matter.
rlim_t usedDescriptors()
{
    constexpr int kAboveTheLimits = 100;
    rlim_t used = 0;
    for (int number = 0; number < kAboveTheLimits; ++number)
        used += fcntl(number, F_GETFD) != -1 ? 1 : 0;
    return used;
}
#endif

// Runs out of memory when it is asked for its name.
class HungryServer : public SServerBase
{
public:
    using SServerBase::SServerBase;

protected:
    bool executeCommand(SCommand *) override { throw std::bad_alloc(); }
};

} // namespace

class tst_SServerLimits : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The first connection makes what the process keeps.
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

    void cleanup()
    {
        QTRY_COMPARE(ProcessFacts::threads(), m_threads);
        QTRY_COMPARE(ProcessFacts::descriptors(), m_descriptors);
    }

    void thereAreNoLimitsByDefault()
    {
        const SServerBase server(0, nullptr);
        QCOMPARE(server.limits(), SServerLimits{});
        QCOMPARE(SServerLimits{}.loginTimeout, 0ms);
        QCOMPARE(SServerController().reservedDescriptors(), 0);
        QVERIFY(!SServerController().connectionGuard());
    }

    // The deadline for a login

    void clientThatDoesNotLogInIsDropped_data()
    {
        using namespace RawBytes;
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("says nothing") << QByteArray();
        QTest::newRow("in the length word") << QByteArray(2, '\0');
        QTest::newRow("in the body") << u32(100) + "scmd";
        QTest::newRow("fails to log in") << authentication(u"alice", "x");
        QTest::newRow("fails to log in again and again")
            << authentication(u"alice", "x").repeated(50);
    }

    void clientThatDoesNotLogInIsDropped()
    {
        QFETCH(QByteArray, bytes);
        LimitedHost host(SServerLimits{.loginTimeout = 300ms});
        RawClient client;
        QElapsedTimer timer;
        timer.start();
        QVERIFY(client.open(host.port()) && client.readGreeting());
        client.send(bytes);
        QVERIFY(client.waitForEnd());
        QVERIFY2(timer.elapsed() >= 290, qPrintable(QString::number(timer.elapsed())));
        // Less than the time-out of a wait.
        QVERIFY2(timer.elapsed() < 9000, qPrintable(QString::number(timer.elapsed())));
        QTRY_COMPARE(host.controller.count(), 0);
    }

    void clientThatTricklesItsLoginIsDropped()
    {
        LimitedHost host(SServerLimits{.loginTimeout = 300ms});
        RawClient client;
        QVERIFY(client.open(host.port()) && client.readGreeting());
        const Trickle trickle(client, RawBytes::authentication(u"alice", QByteArray(5000, 'x')),
                              20);
        QElapsedTimer timer;
        timer.start();
        QVERIFY(client.waitForEnd());
        QVERIFY2(timer.elapsed() < 9000, qPrintable(QString::number(timer.elapsed())));
    }

    void clientThatHasLoggedInMayStay()
    {
        LimitedHost host(SServerLimits{.loginTimeout = 100ms});
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        QVERIFY(client.staysQuiet(400));
        client.send(RawBytes::command("wami"));
        QCOMPARE(client.readLike(iAmAlice()), iAmAlice());
    }

    void deadlineStartsAnewWhenAnotherLoginFails()
    {
        LimitedHost host(SServerLimits{.loginTimeout = 200ms});
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        client.sendLogin(u"alice"_s, u"wrong"_s);
        QCOMPARE(client.read(12), refusedLogin());
        QVERIFY(client.endsHere());
    }

    // Idle clients

    void idleClientIsDropped()
    {
        LimitedHost host(SServerLimits{.loginTimeout = 20s, .idleTimeout = 300ms});
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        QElapsedTimer timer;
        timer.start();
        QVERIFY(client.endsHere());
        QVERIFY2(timer.elapsed() >= 250, qPrintable(QString::number(timer.elapsed())));
        QTRY_COMPARE(host.controller.count(), 0);
    }

    void clientThatAsksNowAndThenIsNotIdle()
    {
        LimitedHost host(SServerLimits{.idleTimeout = 3s});
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < 4000) {
            client.send(RawBytes::command("wami"));
            QCOMPARE(client.readLike(iAmAlice()), iAmAlice());
            QVERIFY(client.staysQuiet(200));
        }
    }

    void idleRemoteDeviceIsDropped()
    {
        LimitedHost host(SServerLimits{.idleTimeout = 300ms});
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        client.send(RawBytes::command("cldv", RawBytes::text(u"file")) + RawBytes::u32(4));
        QCOMPARE(client.read(4), RawBytes::ack());
        QCOMPARE(client.readWord64(), 0u);
        QVERIFY(client.waitForEnd());
        QTRY_COMPARE(host.controller.count(), 0);
    }

    // Frames

    void trickledBodyIsRefused()
    {
        LimitedHost host(SServerLimits{.minimumRate = 1000});
        host.timeoutMs = 400;
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        QElapsedTimer timer;
        timer.start();
        client.send(RawBytes::u32(100'000) + QByteArray(50, 'x'));
        const Trickle trickle(client, QByteArray(100'000, 'x'), 20);
        QCOMPARE(client.read(4), RawBytes::nack());
        QVERIFY(timer.elapsed() >= 390);
        QVERIFY(client.endsHere());
    }

    void bodyThatKeepsTheRateIsRead()
    {
        LimitedHost host(SServerLimits{.minimumRate = 10});
        host.timeoutMs = 400;
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        const QByteArray bytes = RawBytes::command("wami");
        const Trickle trickle(client, bytes, 40);
        QCOMPARE(client.readLike(iAmAlice()), iAmAlice());
    }

    void largeBodyBeforeTheLoginIsRefused()
    {
        LimitedHost host(SServerLimits{.loginBodyBytes = 4096});
        RawClient client;
        QVERIFY(client.open(host.port()) && client.readGreeting());
        client.send(RawBytes::u32(4097));
        QCOMPARE(client.read(4), RawBytes::nack());
        QVERIFY(client.endsHere());
    }

    void bodyAtTheLimitBeforeTheLoginIsRead()
    {
        LimitedHost host(SServerLimits{.loginBodyBytes = 4096});
        RawClient client;
        QVERIFY(client.open(host.port()) && client.readGreeting());
        // 20 bytes of header, and the two texts of 4 bytes and their UTF-16.
        const QByteArray login =
            RawBytes::authentication(QString(10, u'a'), QByteArray((4096 - 20 - 8 - 20) / 2, 'x'));
        QCOMPARE(login.size(), 4 + 4096);
        client.send(login);
        QCOMPARE(client.read(12), refusedLogin());
    }

    void largeBodyAfterTheLoginIsRead()
    {
        LimitedHost host(SServerLimits{.loginBodyBytes = 4096});
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        client.send(RawBytes::command("plgb", RawBytes::text(u"none") +
                                                  RawBytes::array(QByteArray(500'000, 'x'))));
        QCOMPARE(client.read(4), RawBytes::ack());
        QCOMPARE(client.readFrame(), RawBytes::u32(0xFFFFFFFF) + '\0');
        QCOMPARE(client.read(4), RawBytes::ack());
    }

    void sessionEndsAfterSoManyFailedLogins()
    {
        LimitedHost host(SServerLimits{.failedLogins = 2});
        RawClient client;
        QVERIFY(client.open(host.port()) && client.readGreeting());
        client.sendLogin(u"alice"_s, u"wrong"_s);
        QCOMPARE(client.read(12), refusedLogin());
        client.sendLogin(u"eve"_s, u"wrong"_s);
        QCOMPARE(client.read(12), refusedLogin());
        QVERIFY(client.endsHere());
    }

    void goodLoginClearsTheFailuresOfTheSession()
    {
        LimitedHost host(SServerLimits{.failedLogins = 2});
        RawClient client;
        QVERIFY(client.open(host.port()) && client.readGreeting());
        for (int round = 0; round < 2; ++round) {
            client.sendLogin(u"alice"_s, u"wrong"_s);
            QCOMPARE(client.read(12), refusedLogin());
            client.sendLogin(u"alice"_s, u"secret"_s);
            QCOMPARE(client.read(12), RawBytes::ack() + RawBytes::u32(1) + RawBytes::ack());
        }
    }

#ifdef Q_OS_LINUX
    void keepAliveTimesAreSet()
    {
        class Probe : public SServerBase
        {
        public:
            using SServerBase::SServerBase;
            std::atomic<int> idle = 0;

        protected:
            bool workerInit() override
            {
                const bool begun = SServerBase::workerInit();
                int value = 0;
                socklen_t size = sizeof value;
                getsockopt(static_cast<int>(socket()->socketDescriptor()), IPPROTO_TCP,
                           TCP_KEEPIDLE, &value, &size);
                idle = value;
                return begun;
            }
        };
        Probe *probe = nullptr;
        SessionHost host([&](qint64 descriptor) { return probe = new Probe(descriptor, nullptr); });
        host.prepare = [](SServerBase *session) {
            session->setLimits(SServerLimits{.keepAlive = 60s});
        };
        RawClient client;
        QVERIFY(client.open(host.port()) && client.readGreeting());
        QTRY_COMPARE(probe->idle.load(), 60);
    }
#endif

    void commandThatRunsOutOfMemoryEndsItsSessionOnly()
    {
        SessionHost host([&](qint64 descriptor) -> SServerBase * {
            return host.controller.count() == 0 ? new SServerBase(descriptor, &host.users)
                                                : new HungryServer(descriptor, &host.users);
        });
        RawClient neighbour;
        QVERIFY(neighbour.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        QTRY_COMPARE(host.controller.count(), 1);
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        QTRY_COMPARE(host.controller.count(), 2);
        client.send(RawBytes::command("wami"));
        QCOMPARE(client.read(4), RawBytes::ack());
        QVERIFY(client.endsHere());
        neighbour.send(RawBytes::command("wami"));
        QCOMPARE(neighbour.readLike(iAmAlice()), iAmAlice());
    }

    // The listener

    void guardRefusesConnectionsOfAnAddress()
    {
        SessionHost host;
        host.controller.setConnectionGuard(
            std::make_shared<SConnectionGuard>(SConnectionGuard::Limits{.perAddress = 1}));
        auto first = std::make_unique<RawClient>();
        QVERIFY(first->openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        QTest::ignoreMessage(QtDebugMsg, kRefused);
        RawClient second;
        QVERIFY(second.open(host.port()));
        QVERIFY(second.endsHere());
        first.reset();
        QTRY_COMPARE(host.controller.connectionGuard()->connections(), 0);
        RawClient third;
        QVERIFY(third.open(host.port()) && third.readGreeting());
    }

    void guardCountsConnectionsThatHaveNotLoggedIn()
    {
        SessionHost host;
        host.controller.setConnectionGuard(
            std::make_shared<SConnectionGuard>(SConnectionGuard::Limits{.pendingLogins = 1}));
        RawClient known;
        QVERIFY(known.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        QCOMPARE(host.controller.connectionGuard()->pendingLogins(), 0);
        RawClient silent;
        QVERIFY(silent.open(host.port()) && silent.readGreeting());
        QTest::ignoreMessage(QtDebugMsg, kRefused);
        RawClient refused;
        QVERIFY(refused.open(host.port()));
        QVERIFY(refused.endsHere());
        silent.vanish();
        QTRY_COMPARE(host.controller.connectionGuard()->pendingLogins(), 0);
        RawClient further;
        QVERIFY(further.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
    }

    // The guesser does not wait for the second that the session takes.
    void guesserIsGreetedLaterAndLater()
    {
        SessionHost host;
        host.controller.setConnectionGuard(std::make_shared<SConnectionGuard>(
            SConnectionGuard::Limits{.firstDelay = 200ms, .longestDelay = 800ms}));
        const std::shared_ptr<SConnectionGuard> guard = host.controller.connectionGuard();
        const QHostAddress here(QHostAddress::LocalHost);
        for (const int delay : {0, 200, 400, 800, 800}) {
            QElapsedTimer timer;
            timer.start();
            RawClient client;
            QVERIFY(client.open(host.port()));
            QVERIFY(client.readGreeting());
            QVERIFY2(timer.elapsed() >= delay - 50,
                     qPrintable(u"%1 of %2 ms"_s.arg(timer.elapsed()).arg(delay)));
            client.sendLogin(u"alice"_s, u"guess"_s);
            QCOMPARE(client.read(8), RawBytes::ack() + RawBytes::u32(0));
            client.vanish();
        }
        QCOMPARE(guard->failures(here), 5);
        RawClient good;
        QVERIFY(good.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        QCOMPARE(guard->failures(here), 0);
        QElapsedTimer timer;
        timer.start();
        RawClient next;
        QVERIFY(next.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        QVERIFY(timer.elapsed() < 700);
    }

    void connectionsThatWaitForAGreetingEndWithTheListener()
    {
        auto host = std::make_unique<SessionHost>();
        host->controller.setConnectionGuard(
            std::make_shared<SConnectionGuard>(SConnectionGuard::Limits{.firstDelay = 100s}));
        host->controller.connectionGuard()
            ->admit(QHostAddress(QHostAddress::LocalHost))
            ->loginFailed();
        RawClient first;
        QVERIFY(first.open(host->port()));
        QVERIFY(first.staysQuiet(100));
        QCOMPARE(host->controller.count(), 0);
        host->controller.close();
        QVERIFY(first.endsHere());
        QCOMPARE(host->controller.connectionGuard()->connections(), 0);

        QVERIFY(host->controller.listen(QHostAddress(QHostAddress::LocalHost)));
        RawClient second;
        QVERIFY(second.open(host->port()));
        QVERIFY(second.staysQuiet(100));
        host.reset();
        QVERIFY(second.endsHere());
    }

    // A place is given back also for a connection that the application closes itself.
    void connectionThatIsNeverServedLosesItsPlace()
    {
        SServerController controller;
        controller.setConnectionGuard(
            std::make_shared<SConnectionGuard>(SConnectionGuard::Limits{}));
        connect(&controller, &SServerController::newConnection, this,
                [](qint64 descriptor) { delete new SServerBase(descriptor); });
        QVERIFY(controller.listen(QHostAddress(QHostAddress::LocalHost)));
        for (int i = 0; i < 5; ++i) {
            RawClient client;
            QVERIFY(client.open(controller.serverPort()));
            QVERIFY(client.endsHere());
        }
        // At most the numbers that were open at the same time.
        QVERIFY(controller.connectionGuard()->connections() <= 5);
    }

    // No thread has started when they are accepted.
    void burstDoesNotPassTheLimit()
    {
        SServerController controller;
        std::vector<SSimpleBackgroundRunner *> runners;
        connect(&controller, &SServerController::newConnection, this, [&](qint64 descriptor) {
            runners.push_back(
                controller.serveNewConnectionAsync(new SServerBase(descriptor), false));
        });
        controller.setMaximumConnections(5);
        QVERIFY(controller.listen(QHostAddress(QHostAddress::LocalHost)));
        constexpr int kClients = 200;
        for (int i = 0; i < kClients - 5; ++i)
            QTest::ignoreMessage(QtDebugMsg,
                                 "SServerController::onNewConnection: maximum connections reached");
        std::vector<std::unique_ptr<RawClient>> clients;
        for (int i = 0; i < kClients; ++i) {
            auto &client = *clients.emplace_back(std::make_unique<RawClient>());
            client.socket().connectToHost(QHostAddress(QHostAddress::LocalHost),
                                          controller.serverPort());
        }
        int refused = 0;
        const auto allRefused = [&] {
            refused = 0;
            for (const auto &client : clients)
                refused += client->socket().state() == QAbstractSocket::UnconnectedState ? 1 : 0;
            return refused == kClients - 5;
        };
        QTRY_VERIFY_WITH_TIMEOUT(allRefused(), 30'000);
        QCOMPARE(runners.size(), 5u);
        QCOMPARE(controller.count(), 0);
        QVERIFY(controller.maximumConnectionsReached());
        qDeleteAll(runners);
        QVERIFY(!controller.maximumConnectionsReached());
    }

#ifdef Q_OS_UNIX
    // Both ends are in this process, which has the same limit.
    void connectionWithoutDescriptorsLeftIsRefusedAlone()
    {
        SessionHost host;
        host.controller.setReservedDescriptors(10);
        RawClient first;
        QVERIFY(first.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        QTRY_COMPARE(host.controller.count(), 1);
        {
            // Both ends of the connection, and one less than the thread and the reserve need.
            const DescriptorLimit limit(usedDescriptors() + 2 + 12);
            QTest::ignoreMessage(QtDebugMsg, kTooFew);
            RawClient second;
            QVERIFY(second.open(host.port()));
            QVERIFY(second.endsHere());
        }
        first.send(RawBytes::command("wami"));
        QCOMPARE(first.readLike(iAmAlice()), iAmAlice());
        RawClient third;
        QVERIFY(third.open(host.port()) && third.readGreeting());
    }
#endif

    void strangersCommandStillCostsTheConnection()
    {
        LimitedHost host(SServerLimits{.loginTimeout = 20s, .loginBodyBytes = 4096});
        RawClient client;
        QVERIFY(client.open(host.port()) && client.readGreeting());
        QTest::ignoreMessage(QtDebugMsg, kNotLoggedIn);
        client.send(RawBytes::command("wami"));
        QCOMPARE(client.read(8), RawBytes::ack() + RawBytes::nack());
        QVERIFY(client.endsHere());
    }

private:
    qsizetype m_descriptors = 0;
    qsizetype m_threads = 0;
};

QTEST_GUILESS_MAIN(tst_SServerLimits)
#include "tst_sserverlimits.moc"
