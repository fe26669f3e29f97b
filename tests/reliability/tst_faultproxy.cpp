// SPDX-License-Identifier: MIT
#include <shared/faultproxy.h>
#include <shared/processfacts.h>
#include <shared/rawpeer.h>

#include <QtCore/QElapsedTimer>
#include <QtTest/QTest>

#include <future>
#include <optional>

#include <netinet/in.h>

using namespace std::chrono_literals;

using Record = FaultProxy::Record;

Q_DECLARE_METATYPE(FlowFault)

namespace {

constexpr auto kPatience = 10s;

sockaddr_in loopback(quint16 port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

//! A server's listening socket.
class Listener
{
public:
    Listener()
        : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address = loopback(0);
        socklen_t size = sizeof address;
        auto *const where = reinterpret_cast<sockaddr *>(&address);
        if (bind(m_socket.value(), where, size) == 0 && listen(m_socket.value(), 10) == 0 &&
            getsockname(m_socket.value(), where, &size) == 0)
            m_port = ntohs(address.sin_port);
        const timeval patience{10, 0};
        setsockopt(m_socket.value(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }

    quint16 port() const { return m_port; }
    int accept() { return ::accept(m_socket.value(), nullptr, nullptr); }

private:
    Descriptor m_socket;
    quint16 m_port = 0;
};

int connectTo(quint16 port)
{
    const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    if (connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        qWarning("cannot connect");
    return client;
}

//! A client and a server with the proxy between them.
class Path
{
public:
    explicit Path(const ConnectionPlan &plan = {})
    {
        proxy.setPlan(plan);
        client.emplace(connectTo(proxy.port()));
        server.emplace(m_listener.accept());
    }

    //! The sender and the receiver of a direction.
    RawPeer &source(bool toServer) { return toServer ? *client : *server; }
    RawPeer &target(bool toServer) { return toServer ? *server : *client; }

private:
    Listener m_listener;

public:
    FaultProxy proxy{m_listener.port()};
    std::optional<RawPeer> client;
    std::optional<RawPeer> server;
};

ConnectionPlan oneWay(bool toServer, const FlowPlan &plan)
{
    return toServer ? ConnectionPlan{.toServer = plan} : ConnectionPlan{.toClient = plan};
}

void addDirections()
{
    QTest::addColumn<bool>("toServer");
    QTest::newRow("to the server") << true;
    QTest::newRow("to the client") << false;
}

QByteArray content(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 7 + i / 251);
    return bytes;
}

} // namespace

class tst_FaultProxy : public QObject
{
    Q_OBJECT

private:
    qsizetype m_threads = 0; // without a proxy

private Q_SLOTS:
    void initTestCase() { m_threads = ProcessFacts::threads(); }

    void freshProxyListensAndHasNoConnection()
    {
        const Listener listener;
        const FaultProxy proxy(listener.port());
        QVERIFY(proxy.port() > 0);
        QCOMPARE(proxy.count(), 0U);
        QVERIFY(proxy.waitForIdle(0ms));
        QVERIFY(!proxy.waitForCount(1, 1ms));
    }

    void bytesPassBothWays()
    {
        Path path;
        const QByteArray up = content(5'000'000);
        const QByteArray down = content(3'000'001);
        auto sending = std::async(std::launch::async, [&] { return path.client->send(up); });
        auto answering = std::async(std::launch::async, [&] { return path.server->send(down); });
        auto received =
            std::async(std::launch::async, [&] { return path.client->receive(down.size()); });
        QCOMPARE(path.server->receive(up.size()), up);
        QCOMPARE(received.get(), down);
        QVERIFY(sending.get() && answering.get());
        QTRY_COMPARE(path.proxy.record(0).toServer, up.size());
        QTRY_COMPARE(path.proxy.record(0).toClient, down.size());
        QVERIFY(path.proxy.record(0).isOpen);
        QVERIFY(!path.proxy.record(0).hadFault);
    }

    void endOfOneSideReachesTheOther_data() { addDirections(); }

    void endOfOneSideReachesTheOther()
    {
        QFETCH(const bool, toServer);
        Path path;
        RawPeer &source = path.source(toServer);
        RawPeer &target = path.target(toServer);
        QVERIFY(source.send("last words"));
        source.finishSending();
        QCOMPARE(target.receive(20), "last words");
        QCOMPARE(target.readToEnd(), RawPeer::End::Finished);
        // The way back is still open.
        QVERIFY(target.send("answer"));
        QCOMPARE(source.receive(6), "answer");
        target.close();
        QCOMPARE(source.readToEnd(), RawPeer::End::Finished);
        QVERIFY(path.proxy.waitForIdle(kPatience));
    }

    void resetOfOneSideReachesTheOther_data() { addDirections(); }

    void resetOfOneSideReachesTheOther()
    {
        QFETCH(const bool, toServer);
        Path path;
        path.source(toServer).reset();
        QCOMPARE(path.target(toServer).readToEnd(), RawPeer::End::Reset);
        QVERIFY(path.proxy.waitForIdle(kPatience));
    }

    void serverThatIsNotThereBreaksTheConnectionOff()
    {
        quint16 port = 0;
        {
            const Listener listener;
            port = listener.port();
        }
        const FaultProxy proxy(port);
        RawPeer client(connectTo(proxy.port()));
        QCOMPARE(client.readToEnd(), RawPeer::End::Reset);
        QVERIFY(proxy.waitForCount(1, kPatience));
        QVERIFY(proxy.waitForIdle(kPatience));
        QVERIFY(!proxy.record(0).hadFault);
    }

    void cutComesAfterExactlySoManyBytes_data()
    {
        QTest::addColumn<bool>("toServer");
        QTest::addColumn<qint64>("at");
        QTest::addColumn<FlowFault>("fault");
        for (const bool toServer : {true, false}) {
            for (const qint64 at : {0, 1, 99, 100, 65'536, 100'001}) {
                for (const auto fault : {FlowFault::Reset, FlowFault::Close}) {
                    QTest::addRow("%s at %lld to the %s",
                                  fault == FlowFault::Reset ? "reset" : "close",
                                  static_cast<long long>(at), toServer ? "server" : "client")
                        << toServer << at << fault;
                }
            }
        }
    }

    void cutComesAfterExactlySoManyBytes()
    {
        QFETCH(const bool, toServer);
        QFETCH(const qint64, at);
        QFETCH(const FlowFault, fault);
        Path path(oneWay(toServer, {.faultAt = at, .fault = fault}));
        RawPeer &source = path.source(toServer);
        RawPeer &target = path.target(toServer);
        const QByteArray bytes = content(100'001);
        const bool sent = source.send(bytes);
        QCOMPARE(target.receive(at), bytes.first(at));
        const auto expected =
            fault == FlowFault::Reset ? RawPeer::End::Reset : RawPeer::End::Finished;
        QCOMPARE(target.readToEnd(), expected);
        // A sender that has met the break already is not told of it again.
        if (sent)
            QCOMPARE(source.readToEnd(), expected);
        source.close();
        target.close();
        QVERIFY(path.proxy.waitForIdle(kPatience));
        const Record record = path.proxy.record(0);
        QVERIFY(record.hadFault);
        QCOMPARE(toServer ? record.toServer : record.toClient, at);
    }

    void cutNeverComesBeforeItsByte_data() { addDirections(); }

    void cutNeverComesBeforeItsByte()
    {
        QFETCH(const bool, toServer);
        Path path(oneWay(toServer, {.faultAt = 10}));
        QVERIFY(path.source(toServer).send("123456789"));
        QCOMPARE(path.target(toServer).receive(9), "123456789");
        QVERIFY(path.target(toServer).send("answer"));
        QCOMPARE(path.source(toServer).receive(6), "answer");
        QVERIFY(!path.proxy.record(0).hadFault);
    }

    void halfCloseLeavesTheWayBackOpen_data() { addDirections(); }

    void halfCloseLeavesTheWayBackOpen()
    {
        QFETCH(const bool, toServer);
        Path path(oneWay(toServer, {.faultAt = 4, .fault = FlowFault::HalfClose}));
        RawPeer &source = path.source(toServer);
        RawPeer &target = path.target(toServer);
        QVERIFY(source.send("12345678"));
        QCOMPARE(target.receive(4), "1234");
        QCOMPARE(target.readToEnd(), RawPeer::End::Finished);
        // The sender does not notice.
        QVERIFY(source.send(content(1'000'000)));
        QVERIFY(target.send("answer"));
        QCOMPARE(source.receive(6), "answer");
        QTRY_VERIFY(path.proxy.record(0).hadFault);
        target.close();
        QCOMPARE(source.readToEnd(), RawPeer::End::Finished);
        source.close();
        QVERIFY(path.proxy.waitForIdle(kPatience));
    }

    void stallHoldsOneDirectionUp_data() { addDirections(); }

    void stallHoldsOneDirectionUp()
    {
        QFETCH(const bool, toServer);
        Path path(oneWay(toServer, {.faultAt = 4, .fault = FlowFault::Stall}));
        RawPeer &source = path.source(toServer);
        RawPeer &target = path.target(toServer);
        QVERIFY(source.send("12345678"));
        QCOMPARE(target.receive(4), "1234");
        // The other direction shows that the proxy has had its turn since.
        QVERIFY(target.send("answer"));
        QCOMPARE(source.receive(6), "answer");
        QVERIFY(!target.hasNews());
        QTRY_VERIFY(path.proxy.record(0).hadFault);
        const Record record = path.proxy.record(0);
        QVERIFY(record.isOpen);
        QCOMPARE(toServer ? record.toServer : record.toClient, 4);
    }

    void stallStopsTheSender()
    {
        Path path({.toServer = {.faultAt = 4, .fault = FlowFault::Stall}});
        auto sending =
            std::async(std::launch::async, [&] { return path.client->send(content(20'000'000)); });
        QCOMPARE(path.server->receive(4), content(4));
        QCOMPARE(sending.wait_for(200ms), std::future_status::timeout);
        path.proxy.resetAll();
        QVERIFY(!sending.get());
    }

    void stallEndsByItself()
    {
        Path path({.toServer = {.faultAt = 4, .fault = FlowFault::Stall, .stallTime = 50ms}});
        QElapsedTimer timer;
        timer.start();
        QVERIFY(path.client->send("12345678"));
        QCOMPARE(path.server->receive(8), "12345678");
        QVERIFY(timer.elapsed() >= 50);
    }

    void stalledConnectionEndsWithBothItsEnds()
    {
        Path path({.toServer = {.faultAt = 4, .fault = FlowFault::Stall}});
        QVERIFY(path.client->send("12345678"));
        QCOMPARE(path.server->receive(4), "1234");
        path.client->close(); // held up as the rest
        path.server->close();
        QVERIFY(path.proxy.waitForIdle(kPatience));
    }

    void stalledConnectionEndsWithAReset()
    {
        Path path({.toServer = {.faultAt = 4, .fault = FlowFault::Stall}});
        QVERIFY(path.client->send("12345678"));
        QCOMPARE(path.server->receive(4), "1234");
        path.client->reset();
        QCOMPARE(path.server->readToEnd(), RawPeer::End::Reset);
        QVERIFY(path.proxy.waitForIdle(kPatience));
    }

    void delayAddsToTheWay_data() { addDirections(); }

    void delayAddsToTheWay()
    {
        QFETCH(const bool, toServer);
        Path path(oneWay(toServer, {.delay = 60ms}));
        QElapsedTimer timer;
        timer.start();
        QVERIFY(path.source(toServer).send("slow"));
        QCOMPARE(path.target(toServer).receive(4), "slow");
        QVERIFY(timer.elapsed() >= 60);
        QVERIFY(path.target(toServer).send("fast"));
        QCOMPARE(path.source(toServer).receive(4), "fast");
    }

    void throttleBoundsTheSpeed()
    {
        Path path({.toServer = {.bytesPerSecond = 100'000}});
        const QByteArray bytes = content(30'000);
        QElapsedTimer timer;
        timer.start();
        QVERIFY(path.client->send(bytes));
        QCOMPARE(path.server->receive(bytes.size()), bytes);
        QVERIFY2(timer.elapsed() >= 250, qPrintable(QString::number(timer.elapsed())));
    }

    void packetsAreSplit()
    {
        Path path({.toServer = {.packetBytes = 3, .packetPause = 30ms}});
        QElapsedTimer timer;
        timer.start();
        QVERIFY(path.client->send("12345678"));
        QCOMPARE(path.server->receive(3), "123");
        QVERIFY(!path.server->hasNews());
        QCOMPARE(path.server->receive(5), "45678");
        QVERIFY(timer.elapsed() >= 60);
    }

    void packetsAreJoined()
    {
        Path path({.toServer = {.joinWindow = 50ms}});
        for (const char byte : QByteArray("12345678"))
            QVERIFY(path.client->send(QByteArray(1, byte)));
        QCOMPARE(path.server->receiveSome(100), 8);
    }

    void oneByteIsFlipped()
    {
        Path path({.toClient = {.flipAt = 3, .flipBits = 0x01}});
        QVERIFY(path.server->send("0000000"));
        QCOMPARE(path.client->receive(7), "0001000");
        QVERIFY(path.client->send("0000000"));
        QCOMPARE(path.server->receive(7), "0000000");
    }

    void eachConnectionHasItsPlan()
    {
        Listener listener;
        FaultProxy proxy(listener.port());
        proxy.setPlanner([](size_t index) {
            return index == 1 ? ConnectionPlan{.toServer = {.faultAt = 0}} : ConnectionPlan();
        });
        for (size_t i = 0; i < 3; ++i) {
            RawPeer client(connectTo(proxy.port()));
            RawPeer server(listener.accept());
            (void)server.send("x");
            QCOMPARE(client.receive(1), i == 1 ? QByteArray() : QByteArray("x"));
        }
        QVERIFY(proxy.waitForCount(3, kPatience));
        QVERIFY(proxy.waitForIdle(kPatience));
        QVERIFY(!proxy.record(0).hadFault);
        QVERIFY(proxy.record(1).hadFault);
        QVERIFY(!proxy.record(2).hadFault);
    }

    void planHoldsForConnectionsThatComeLater()
    {
        Path path;
        path.proxy.setPlan({.toServer = {.faultAt = 0}});
        QVERIFY(path.client->send("goes on"));
        QCOMPARE(path.server->receive(7), "goes on");
    }

    void resetAllBreaksEveryConnectionOff()
    {
        Path path;
        path.proxy.resetAll();
        QCOMPARE(path.client->readToEnd(), RawPeer::End::Reset);
        QCOMPARE(path.server->readToEnd(), RawPeer::End::Reset);
        QVERIFY(path.proxy.waitForIdle(kPatience));
        QVERIFY(!path.proxy.record(0).hadFault);
    }

    void endOfTheProxyBreaksOffAndLeavesNothing()
    {
        // A thread that has been waited for may still be on its way out of the system.
        QTRY_COMPARE(ProcessFacts::threads(), m_threads);
        const qsizetype descriptors = ProcessFacts::descriptors();
        {
            std::optional<RawPeer> client;
            std::optional<RawPeer> server;
            {
                Listener listener;
                const FaultProxy proxy(listener.port());
                client.emplace(connectTo(proxy.port()));
                server.emplace(listener.accept());
                QCOMPARE(ProcessFacts::threads(), m_threads + 1);
            }
            QCOMPARE(client->readToEnd(), RawPeer::End::Reset);
            QCOMPARE(server->readToEnd(), RawPeer::End::Reset);
        }
        QCOMPARE(ProcessFacts::descriptors(), descriptors);
        QTRY_COMPARE(ProcessFacts::threads(), m_threads);
    }

    void idleConnectionsCostNoTime()
    {
        Path path(
            {.toServer = {.faultAt = 1, .fault = FlowFault::Stall}, .toClient = {.delay = 10ms}});
        QVERIFY(path.client->send("1234"));
        QCOMPARE(path.server->receive(1), "1");
        path.client->finishSending();
        const auto processorTime = [] {
            timespec time{};
            clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
            return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
        };
        const auto before = processorTime();
        QVERIFY(!path.proxy.waitForIdle(300ms));
        QVERIFY(processorTime() - before < 100ms);
    }
};

QTEST_APPLESS_MAIN(tst_FaultProxy)
#include "tst_faultproxy.moc"
