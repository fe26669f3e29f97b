// SPDX-License-Identifier: MIT
#include <shared/processfacts.h>
#include <shared/rawclient.h>
#include <shared/sessionhost.h>

#include <QtCore/QSemaphore>

#ifdef Q_OS_UNIX
#include <sys/resource.h>
#endif

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr auto kLimitReached = "SServerController::onNewConnection: maximum connections reached";

// Does not begin: its start fails after the socket was made.
class FailingServer : public SServerBase
{
public:
    using SServerBase::SServerBase;

protected:
    bool workerInit() override
    {
        SServerBase::workerInit();
        return false;
    }
};

// Takes as long as the test likes.
class SlowPluggable : public SPluggable
{
public:
    SlowPluggable(QSemaphore *called, QSemaphore *goOn)
        : m_called(called)
        , m_goOn(goOn)
    {
    }

    bool execute(const QByteArray &, QByteArray &output, const SPluggableEnvironment &) override
    {
        m_called->release();
        output = "done";
        return m_goOn->tryAcquire(1, 10000);
    }

private:
    QSemaphore *m_called;
    QSemaphore *m_goOn;
};

} // namespace

class tst_SServerController : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshControllerDoesNothing()
    {
        SServerController controller;
        QVERIFY(!controller.isListening());
        QCOMPARE(controller.serverPort(), 0);
        QCOMPARE(controller.count(), 0);
        QCOMPARE(controller.maximumConnections(), 0);
        QVERIFY(!controller.maximumConnectionsReached());
    }

    void listensAndCloses()
    {
        SServerController controller;
        QVERIFY(controller.listen(QHostAddress(QHostAddress::LocalHost), 0));
        QVERIFY(controller.isListening());
        QVERIFY(controller.serverPort() != 0);
        QCOMPARE(controller.serverAddress(), QHostAddress(QHostAddress::LocalHost));

        SServerController second;
        QVERIFY(!second.listen(QHostAddress(QHostAddress::LocalHost), controller.serverPort()));
        QVERIFY(!second.errorString().isEmpty());

        controller.close();
        QVERIFY(!controller.isListening());
        QVERIFY(second.listen(QHostAddress(QHostAddress::LocalHost)));
    }

    void servingWaitsForTheStart()
    {
        SServerController controller;
        QPointer<SSimpleBackgroundRunner> runner;
        bool returned = false;
        connect(&controller, &SServerController::newConnection, this, [&](qint64 descriptor) {
            runner = controller.serveNewConnection(new SServerBase(descriptor), true);
            returned = true;
        });
        QVERIFY(controller.listen(QHostAddress(QHostAddress::LocalHost)));
        RawClient client;
        QVERIFY(client.open(controller.serverPort()) && client.readGreeting());
        QTRY_VERIFY(returned);
        QVERIFY(runner);
        QVERIFY(runner->isRunning());
        QTRY_COMPARE(controller.count(), 1);

        client.vanish();
        QTRY_COMPARE(controller.count(), 0);
        QTRY_VERIFY(runner.isNull());
    }

    void withoutAutoDeleteTheRunnerStays()
    {
        SServerController controller;
        QPointer<SSimpleBackgroundRunner> runner;
        connect(&controller, &SServerController::newConnection, this, [&](qint64 descriptor) {
            runner = controller.serveNewConnection(new SServerBase(descriptor), false);
        });
        QVERIFY(controller.listen(QHostAddress(QHostAddress::LocalHost)));
        RawClient client;
        QVERIFY(client.open(controller.serverPort()) && client.readGreeting());
        QTRY_COMPARE(controller.count(), 1);
        client.vanish();
        QTRY_COMPARE(controller.count(), 0);
        QVERIFY(runner);
        QVERIFY(!runner->isRunning());
    }

    void aServerWithAParentIsRefused()
    {
        SServerController controller;
        QObject parent;
        auto *server = new SServerBase(0, &parent);
        const char line[] = "SServerController::serveNewConnection: the server has a parent";
        QTest::ignoreMessage(QtDebugMsg, line);
        QVERIFY(!controller.serveNewConnection(server, true));
        QTest::ignoreMessage(QtDebugMsg, line);
        QVERIFY(!controller.serveNewConnectionAsync(server, true));
        QCOMPARE(server->parent(), &parent);
        QCOMPARE(server->thread(), QThread::currentThread());
        QVERIFY(controller.findChildren<SSimpleBackgroundRunner *>().isEmpty());
    }

    void aSessionThatCannotBeginGivesNull_data()
    {
        QTest::addColumn<bool>("autoDelete");
        QTest::newRow("deletes itself") << true;
        QTest::newRow("would stay") << false;
    }

    void aSessionThatCannotBeginGivesNull()
    {
        QFETCH(bool, autoDelete);
        SServerController controller;
        QPointer<SServerBase> server;
        QPointer<SSimpleBackgroundRunner> runner;
        bool returned = false;
        connect(&controller, &SServerController::newConnection, this, [&](qint64 descriptor) {
            server = new FailingServer(descriptor);
            runner = controller.serveNewConnection(server, autoDelete);
            returned = true;
        });
        QVERIFY(controller.listen(QHostAddress(QHostAddress::LocalHost)));
        RawClient client;
        QVERIFY(client.open(controller.serverPort()));
        QTRY_VERIFY(returned);
        QVERIFY(runner.isNull());
        QVERIFY(client.waitForEnd());
        QTRY_VERIFY(server.isNull());
        QTRY_COMPARE(controller.count(), 0);
        QTRY_VERIFY(controller.findChildren<SSimpleBackgroundRunner *>().isEmpty());
    }

    // There is nothing whose start could be waited for.
    void noSessionGivesNull()
    {
        SServerController controller;
        QVERIFY(!controller.serveNewConnection(nullptr, true));
        QVERIFY(controller.findChildren<SSimpleBackgroundRunner *>().isEmpty());
    }

    void servingWithoutWaitingStartsOnDemand()
    {
        SServerController controller;
        SSimpleBackgroundRunner *runner = nullptr;
        connect(&controller, &SServerController::newConnection, this, [&](qint64 descriptor) {
            runner = controller.serveNewConnectionAsync(new SServerBase(descriptor), false);
        });
        QVERIFY(controller.listen(QHostAddress(QHostAddress::LocalHost)));
        RawClient client;
        QVERIFY(client.open(controller.serverPort()));
        QTRY_VERIFY(runner);
        QVERIFY(client.staysQuiet(50));
        QVERIFY(!runner->isRunning());
        QCOMPARE(controller.count(), 0);
        runner->start();
        QVERIFY(client.readGreeting());
        QTRY_COMPARE(controller.count(), 1);
    }

    void aRunnerThatIsNeverStartedClosesTheConnection()
    {
        RawClient client;
        {
            SServerController controller;
            bool made = false;
            connect(&controller, &SServerController::newConnection, this, [&](qint64 descriptor) {
                controller.serveNewConnectionAsync(new SServerBase(descriptor), false);
                made = true;
            });
            QVERIFY(controller.listen(QHostAddress(QHostAddress::LocalHost)));
            QVERIFY(client.open(controller.serverPort()));
            QTRY_VERIFY(made);
        }
        QVERIFY(client.endsHere());
    }

    void changesOfTheCountAreTold()
    {
        SessionHost host;
        QSignalSpy changed(&host.controller, &SServerController::connectionCountChanged);
        RawClient first;
        RawClient second;
        QVERIFY(first.open(host.port()) && first.readGreeting());
        QTRY_COMPARE(changed.size(), 1);
        QVERIFY(second.open(host.port()) && second.readGreeting());
        QTRY_COMPARE(changed.size(), 2);
        first.vanish();
        QTRY_COMPARE(changed.size(), 3);
        second.vanish();
        QTRY_COMPARE(changed, (QList<QVariantList>{{1}, {2}, {1}, {0}}));
    }

    void deletingARunnerEndsItsSession()
    {
        SServerController controller;
        SSimpleBackgroundRunner *runner = nullptr;
        connect(&controller, &SServerController::newConnection, this, [&](qint64 descriptor) {
            runner = controller.serveNewConnectionAsync(new SServerBase(descriptor), true);
        });
        QVERIFY(controller.listen(QHostAddress(QHostAddress::LocalHost)));
        RawClient client;
        QVERIFY(client.open(controller.serverPort()) && client.readGreeting());
        QTRY_COMPARE(controller.count(), 1);
        delete runner;
        QCOMPARE(controller.count(), 0);
        QVERIFY(client.endsHere());
    }

    void aConnectionAboveTheLimitIsClosedWithoutAGreeting()
    {
        SessionHost host;
        host.controller.setMaximumConnections(1);
        QCOMPARE(host.controller.maximumConnections(), 1);
        RawClient first;
        QVERIFY(first.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        QTRY_VERIFY(host.controller.maximumConnectionsReached());

        QTest::ignoreMessage(QtDebugMsg, kLimitReached);
        RawClient second;
        QVERIFY(second.open(host.port()));
        QVERIFY(second.endsHere());
        first.send(RawBytes::command("wami"));
        QCOMPARE(first.read(4), RawBytes::ack());

        first.vanish();
        QTRY_VERIFY(!host.controller.maximumConnectionsReached());
        RawClient third;
        QVERIFY(third.open(host.port()) && third.readGreeting());
    }

    void zeroAndBelowLiftTheLimit_data()
    {
        QTest::addColumn<int>("maximum");
        QTest::newRow("zero") << 0;
        QTest::newRow("minus one") << -1;
        QTest::newRow("smallest") << std::numeric_limits<int>::min();
    }

    void zeroAndBelowLiftTheLimit()
    {
        QFETCH(int, maximum);
        SessionHost host;
        host.controller.setMaximumConnections(1);
        RawClient first;
        QVERIFY(first.open(host.port()) && first.readGreeting());
        QTRY_VERIFY(host.controller.maximumConnectionsReached());
        host.controller.setMaximumConnections(maximum);
        QVERIFY(!host.controller.maximumConnectionsReached());
        RawClient second;
        QVERIFY(second.open(host.port()) && second.readGreeting());
    }

    void aConnectionNobodyWaitsForIsClosed()
    {
        SServerController controller;
        QVERIFY(controller.listen(QHostAddress(QHostAddress::LocalHost)));
        RawClient client;
        QVERIFY(client.open(controller.serverPort()));
        QVERIFY(client.endsHere());
    }

    void theCountReturnsToZeroAfterAnInterruption()
    {
        SessionHost host;
        QSignalSpy requested(&host.controller, &SServerController::interruptWorkersRequested);
        std::vector<std::unique_ptr<RawClient>> clients;
        for (int i = 0; i < 10; ++i) {
            auto &client = *clients.emplace_back(std::make_unique<RawClient>());
            QVERIFY(client.open(host.port()) && client.readGreeting());
        }
        QTRY_COMPARE(host.controller.count(), 10);
        host.controller.interruptWorkers();
        QCOMPARE(requested.size(), 1);
        QTRY_COMPARE(host.controller.count(), 0);
        for (const auto &client : clients)
            QVERIFY(client->endsHere());
        QVERIFY(host.controller.isListening());
        RawClient another;
        QVERIFY(another.open(host.port()) && another.readGreeting());
    }

    void anInterruptionLetsTheExchangeInProgressEnd()
    {
        QSemaphore called;
        QSemaphore goOn;
        SessionHost host;
        host.prepare = [&](SServerBase *server) {
            server->addPluggable(u"slow"_s, new SlowPluggable(&called, &goOn));
        };
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        client.send(RawBytes::command("plgb", RawBytes::text(u"slow") + RawBytes::array("x")) +
                    RawBytes::command("wami"));
        QVERIFY(called.tryAcquire(1, 10000));
        host.controller.interruptWorkers();
        QCOMPARE(client.read(4), RawBytes::ack());
        goOn.release();
        QCOMPARE(client.readFrame(), RawBytes::array("done") + '\1');
        QCOMPARE(client.read(4), RawBytes::ack());
        // The next command is not taken any more.
        QVERIFY(client.waitForEnd());
        QCOMPARE(client.socket().bytesAvailable(), 0);
        QTRY_COMPARE(host.controller.count(), 0);
    }

    void pausedConnectionsWait()
    {
        SessionHost host;
        host.controller.pauseAccepting();
        RawClient client;
        QVERIFY(client.open(host.port()));
        QVERIFY(client.staysQuiet(50));
        host.controller.resumeAccepting();
        QVERIFY(client.readGreeting());
    }

    void pausingWithoutListeningHoldsLater()
    {
        SServerController controller;
        int accepted = 0;
        connect(&controller, &SServerController::newConnection, this, [&](qint64 descriptor) {
            ++accepted;
            controller.serveNewConnectionAsync(new SServerBase(descriptor), true);
        });
        controller.resumeAccepting();
        controller.pauseAccepting();
        QVERIFY(controller.listen(QHostAddress(QHostAddress::LocalHost)));
        RawClient client;
        QVERIFY(client.open(controller.serverPort()));
        QVERIFY(client.staysQuiet(50));
        QCOMPARE(accepted, 0);
        controller.resumeAccepting();
        QVERIFY(client.readGreeting());
        controller.close();
        controller.pauseAccepting();
        controller.resumeAccepting();
    }

    void pausingDuringAServeHoldsAfterIt()
    {
        SServerController controller;
        connect(&controller, &SServerController::newConnection, this, [&](qint64 descriptor) {
            controller.pauseAccepting();
            controller.serveNewConnection(new SServerBase(descriptor), true);
        });
        QVERIFY(controller.listen(QHostAddress(QHostAddress::LocalHost)));
        RawClient first;
        QVERIFY(first.open(controller.serverPort()) && first.readGreeting());
        RawClient second;
        QVERIFY(second.open(controller.serverPort()));
        QVERIFY(second.staysQuiet(50));
        controller.resumeAccepting();
        QVERIFY(second.readGreeting());
    }

    // A wait within the wait for the other connection would use up the stack.
    void servingABurstDoesNotNest()
    {
        SServerController controller;
        int depth = 0;
        int deepest = 0;
        connect(&controller, &SServerController::newConnection, this, [&](qint64 descriptor) {
            deepest = std::max(deepest, ++depth);
            controller.serveNewConnection(new SServerBase(descriptor), true);
            --depth;
        });
        QVERIFY(controller.listen(QHostAddress(QHostAddress::LocalHost)));
        std::vector<std::unique_ptr<RawClient>> clients;
        for (int i = 0; i < 50; ++i) {
            clients.push_back(std::make_unique<RawClient>());
            clients.back()->socket().connectToHost(QHostAddress(QHostAddress::LocalHost),
                                                   controller.serverPort());
        }
        for (const auto &client : clients)
            QVERIFY(client->readGreeting());
        QCOMPARE(deepest, 1);
    }

    void sessionsGoOnAfterClose()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        host.controller.close();
        client.send(RawBytes::command("wami"));
        QCOMPARE(client.read(4), RawBytes::ack());
    }

    void aBurstOfConnectionsIsServed()
    {
        SessionHost host;
        constexpr int kClients = 300;
        std::vector<std::unique_ptr<RawClient>> clients;
        for (int i = 0; i < kClients; ++i) {
            clients.push_back(std::make_unique<RawClient>());
            clients.back()->socket().connectToHost(QHostAddress(QHostAddress::LocalHost),
                                                   host.port());
        }
        for (const auto &client : clients)
            QVERIFY(client->readGreeting());
        QTRY_COMPARE(host.controller.count(), kClients);
        clients.clear();
        QTRY_COMPARE_WITH_TIMEOUT(host.controller.count(), 0, 20000);
    }

    void acceptingRecoversWhenDescriptorsAreFreeAgain()
    {
#ifdef Q_OS_UNIX
        SessionHost host;
        RawClient client;
        // The client's side has its descriptor when there is room for no other.
        client.socket().connectToHost(QHostAddress(QHostAddress::LocalHost), host.port());
        rlimit before;
        QCOMPARE(getrlimit(RLIMIT_NOFILE, &before), 0);
        std::vector<std::unique_ptr<QFile>> fillers;
        rlimit tight = before;
        tight.rlim_cur = static_cast<rlim_t>(ProcessFacts::descriptors() + 5);
        QCOMPARE(setrlimit(RLIMIT_NOFILE, &tight), 0);
        do {
            fillers.push_back(std::make_unique<QFile>(u"/dev/null"_s));
        } while (fillers.back()->open(QIODevice::ReadOnly));
        const bool greetedTooEarly = !client.staysQuiet(500);
        fillers.clear();
        QCOMPARE(setrlimit(RLIMIT_NOFILE, &before), 0);
        QVERIFY(!greetedTooEarly);
        QVERIFY(client.readGreeting());
#else
        QSKIP("the number of descriptors has no limit here");
#endif
    }
};

QTEST_GUILESS_MAIN(tst_SServerController)
#include "tst_sservercontroller.moc"
