// SPDX-License-Identifier: MIT
#include <protocol/clientsession.h>

#include <QtNetwork/QNetworkProxy>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr int kShortMs = 300;

void greetAndStay(RawConnection &peer)
{
    peer.send(RawServer::uuid());
    peer.readToEnd();
}

//! A port at which connections stay unanswered: it listens, but its queue is full.
class FullServer final
{
public:
    FullServer()
    {
        m_server.setListenBacklogSize(1);
        m_ok = m_server.listen(QHostAddress(QHostAddress::LocalHost)) && fill();
    }
    bool isFull() const { return m_ok; }
    quint16 port() const { return m_server.serverPort(); }

private:
    bool fill()
    {
        for (int i = 0; i < 64; ++i) {
            auto &socket = m_sockets.emplace_back(std::make_unique<QTcpSocket>());
            socket->connectToHost(QHostAddress(QHostAddress::LocalHost), port());
            if (!socket->waitForConnected(200))
                return true;
        }
        return false;
    }

    QTcpServer m_server;
    std::vector<std::unique_ptr<QTcpSocket>> m_sockets;
    bool m_ok = false;
};

} // namespace

class tst_SClientController : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startsWithoutWorkers();
    void noClientGivesNull();
    void connectGivesTheRunner();
    void unreachableHostGivesNullAfterTheTimeout();
    void refusedConnectionGivesNull_data();
    void refusedConnectionGivesNull();
    void eventsGoOnWhileConnecting();
    void countsTheThreadsThatRun();
    void interruptionTakesTheCountBackToZero();
    void autoDeleteDeletesTheRunnerAtTheClientsEnd();
    void withoutAutoDeleteTheRunnerStays();
    void asyncStartsOnlyWhenAsked();
    void asyncTellsItsOutcomeBySignals();
    void clientsThatEndAtOnceAreCountedDown();
    void itsEndStopsTheClients();
    void interruptionBeforeTheConnectionEndsTheAttempt();
};

void tst_SClientController::startsWithoutWorkers()
{
    SClientController controller;
    QSignalSpy requested(&controller, &SClientController::interruptWorkersRequested);
    QCOMPARE(controller.count(), 0);
    controller.interruptWorkers();
    QCOMPARE(requested.count(), 1);
    SClientController withProxy(QNetworkProxy(QNetworkProxy::NoProxy), &controller);
    QCOMPARE(withProxy.count(), 0);
    QCOMPARE(withProxy.parent(), &controller);
}

// There is nothing whose outcome could be waited for.
void tst_SClientController::noClientGivesNull()
{
    SClientController controller;
    QVERIFY(!controller.connectClient(nullptr, true));
    QVERIFY(controller.findChildren<SSimpleBackgroundRunner *>().isEmpty());
}

void tst_SClientController::connectGivesTheRunner()
{
    RawServer server(greetAndStay);
    SClientController controller;
    auto *client = new TestClient(server.port());
    SSimpleBackgroundRunner *runner = controller.connectClient(client, false);
    QVERIFY(runner);
    QVERIFY(runner->isRunning());
    QCOMPARE(runner->parent(), &controller);
    QVERIFY(client->thread() != thread());
    QCOMPARE(controller.count(), 1);
}

void tst_SClientController::unreachableHostGivesNullAfterTheTimeout()
{
    const FullServer server;
    QVERIFY(server.isFull());
    SClientController controller;
    const QPointer<TestClient> client = new TestClient(server.port());
    client->setTimeout(kShortMs);
    SignalLog finished(client, &TestClient::finished);
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!controller.connectClient(client, true));
    QVERIFY2(timer.elapsed() >= kShortMs, qPrintable(QString::number(timer.elapsed())));
    QTRY_VERIFY(client.isNull());
    QCOMPARE(finished.value(), SimpleWorkerError::InitError);
    QTRY_COMPARE(controller.count(), 0);
}

void tst_SClientController::refusedConnectionGivesNull_data()
{
    QTest::addColumn<bool>("autoDelete");
    QTest::newRow("runner deletes itself") << true;
    QTest::newRow("runner is kept") << false;
}

void tst_SClientController::refusedConnectionGivesNull()
{
    QFETCH(bool, autoDelete);
    SClientController controller;
    SignalLog counts(&controller, &SClientController::connectionCountChanged);
    const QPointer<TestClient> client = new TestClient(1);
    QVERIFY(!controller.connectClient(client, autoDelete));
    QTRY_VERIFY(client.isNull());
    // Nobody knows the runner, so it goes in either case.
    QTRY_VERIFY(controller.findChildren<SSimpleBackgroundRunner *>().isEmpty());
    QCOMPARE(controller.count(), 0);
    QCOMPARE(counts.value(), 0);
}

void tst_SClientController::eventsGoOnWhileConnecting()
{
    RawServer server([](RawConnection &peer) {
        peer.drip(RawServer::uuid(), 10);
        peer.readToEnd();
    });
    SClientController controller;
    int ticks = 0;
    QTimer ticker;
    QObject::connect(&ticker, &QTimer::timeout, this, [&] { ++ticks; });
    ticker.start(10);
    QVERIFY(controller.connectClient(new TestClient(server.port()), true));
    QVERIFY2(ticks >= 3, qPrintable(QString::number(ticks)));
}

void tst_SClientController::countsTheThreadsThatRun()
{
    RawServer first(greetAndStay);
    RawServer second(greetAndStay);
    SClientController controller;
    SignalLog counts(&controller, &SClientController::connectionCountChanged);
    auto *one = new TestClient(first.port());
    auto *two = new TestClient(second.port());
    QVERIFY(controller.connectClient(one, true));
    QCOMPARE(controller.count(), 1);
    QVERIFY(controller.connectClient(two, false));
    QCOMPARE(controller.count(), 2);
    QMetaObject::invokeMethod(one, "disconnect");
    QTRY_COMPARE(controller.count(), 1);
    QMetaObject::invokeMethod(two, "disconnect");
    QTRY_COMPARE(controller.count(), 0);
    QCOMPARE(counts.entries(), (QList<std::tuple<int>>{1, 2, 1, 0}));
}

void tst_SClientController::interruptionTakesTheCountBackToZero()
{
    RawServer first(greetAndStay);
    RawServer second(greetAndStay);
    SClientController controller;
    SignalLog requested(&controller, &SClientController::interruptWorkersRequested);
    const QPointer<TestClient> one = new TestClient(first.port());
    const QPointer<TestClient> two = new TestClient(second.port());
    SignalLog finished(one, &TestClient::finished);
    QVERIFY(controller.connectClient(one, true));
    QVERIFY(controller.connectClient(two, false));
    controller.interruptWorkers();
    QCOMPARE(requested.count(), 1);
    QTRY_COMPARE(controller.count(), 0);
    QTRY_VERIFY(one.isNull() && two.isNull());
    QCOMPARE(finished.value(), SimpleWorkerError::InterruptRequested);
    // The sockets went with the clients.
    QVERIFY(first.finishes());
    QVERIFY(second.finishes());
}

void tst_SClientController::autoDeleteDeletesTheRunnerAtTheClientsEnd()
{
    RawServer server(greetAndStay);
    SClientController controller;
    auto *client = new TestClient(server.port());
    const QPointer<SSimpleBackgroundRunner> runner = controller.connectClient(client, true);
    QVERIFY(runner);
    QMetaObject::invokeMethod(client, "disconnect");
    QTRY_VERIFY(runner.isNull());
    QTRY_COMPARE(controller.count(), 0);
}

void tst_SClientController::withoutAutoDeleteTheRunnerStays()
{
    RawServer server(greetAndStay);
    QPointer<SSimpleBackgroundRunner> runner;
    {
        SClientController controller;
        const QPointer<TestClient> client = new TestClient(server.port());
        runner = controller.connectClient(client, false);
        QVERIFY(runner);
        QMetaObject::invokeMethod(client, "disconnect");
        QTRY_COMPARE(controller.count(), 0);
        QTRY_VERIFY(client.isNull());
        QVERIFY(runner);
        QVERIFY(!runner->isRunning());
    }
    QVERIFY(runner.isNull());
}

void tst_SClientController::asyncStartsOnlyWhenAsked()
{
    RawServer server(greetAndStay);
    SClientController controller;
    auto *client = new TestClient(server.port());
    SignalLog connected(client, &TestClient::connected);
    SSimpleBackgroundRunner *runner = controller.connectClientAsync(client, false);
    QVERIFY(runner);
    QVERIFY(!runner->isRunning());
    QVERIFY(client->thread() != thread()); // moved already
    QCOMPARE(controller.count(), 0);
    QCOMPARE(connected.count(), 0);
    runner->start(QThread::InheritPriority);
    QVERIFY(connected.waitForCount(1));
    QCOMPARE(controller.count(), 1);
}

void tst_SClientController::asyncTellsItsOutcomeBySignals()
{
    RawServer server(greetAndStay);
    SClientController controller;
    auto *good = new TestClient(server.port());
    auto *bad = new TestClient(1);
    SignalLog started(good, &TestClient::started);
    SignalLog finished(bad, &TestClient::finished);
    QVERIFY(controller.connectClientAsync(good, true));
    SSimpleBackgroundRunner *runner = controller.connectClientAsync(bad, true);
    QVERIFY(started.waitForCount(1));
    QVERIFY(finished.waitForCount(1));
    QCOMPARE(finished.value(), SimpleWorkerError::InitError);
    QTRY_COMPARE(controller.count(), 1);
    QCOMPARE(runner->parent(), &controller); // kept
}

void tst_SClientController::clientsThatEndAtOnceAreCountedDown()
{
    SClientController controller;
    SignalLog counts(&controller, &SClientController::connectionCountChanged);
    for (int i = 0; i < 30; ++i) {
        RawServer server([](RawConnection &peer) {
            peer.send(RawServer::uuid());
            peer.vanish();
        });
        // Either outcome may come first; what is given out must be alive.
        if (SSimpleBackgroundRunner *runner =
                controller.connectClient(new TestClient(server.port()), true))
            QCOMPARE(runner->parent(), &controller);
    }
    QTRY_COMPARE(controller.count(), 0);
    QTRY_VERIFY(controller.findChildren<SSimpleBackgroundRunner *>().isEmpty());
    int last = 0;
    for (const auto &[count] : counts.entries()) {
        QVERIFY(count >= 0);
        QCOMPARE(qAbs(count - last), 1);
        last = count;
    }
}

void tst_SClientController::itsEndStopsTheClients()
{
    RawServer first(greetAndStay);
    RawServer second(greetAndStay);
    QPointer<TestClient> one = new TestClient(first.port());
    QPointer<TestClient> two = new TestClient(second.port());
    {
        SClientController controller;
        QVERIFY(controller.connectClient(one, true));
        QVERIFY(controller.connectClientAsync(two, true));
    }
    QVERIFY(one.isNull());
    QVERIFY(two.isNull());
    QVERIFY(first.finishes());
}

void tst_SClientController::interruptionBeforeTheConnectionEndsTheAttempt()
{
    RawServer server([](RawConnection &peer) { peer.readToEnd(); }); // no greeting
    SClientController controller;
    const QPointer<TestClient> client = new TestClient(server.port());
    client->setTimeout(2 * kShortMs);
    SignalLog finished(client, &TestClient::finished);
    SSimpleBackgroundRunner *runner = controller.connectClientAsync(client, true);
    QTRY_COMPARE(controller.count(), 1);
    controller.interruptWorkers();
    QVERIFY(finished.waitForCount(1));
    QTRY_VERIFY(!runner->isRunning());
    QTRY_VERIFY(client.isNull());
}

QTEST_GUILESS_MAIN(tst_SClientController)
#include "tst_sclientcontroller.moc"
