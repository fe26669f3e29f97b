// SPDX-License-Identifier: MIT
#include <protocol/clientsession.h>

#include <shared/memorypeak.h>
#include <shared/processfacts.h>

#include <brixlib/protocol/scommandqueue.h>

#include <QtCore/QRegularExpression>
#include <QtCore/QSemaphore>
#include <QtCore/QTimer>
#include <QtCore/QtEndian>
#include <QtNetwork/QHostInfo>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr int kShortMs = 150;

//! One command of the base protocol with the reply that completes it.
struct Exchange
{
    const char *name;
    void (*request)(SClientBase &client);
    QByteArray reply;
};

QList<Exchange> exchanges()
{
    using namespace RawBytes;
    return {
        {"cmdl", [](SClientBase &client) { client.commandList(); },
         frame(RawHandshake::listBody({{"cmdl", 0x00020000}, {"wami"}}))},
        {"auth", [](SClientBase &client) { client.authenticate(u"alice"_s, u"secret"_s); }, u32(0)},
        {"srvn", [](SClientBase &client) { client.serverName(); }, frame(text(u"press 4"))},
        {"wami", [](SClientBase &client) { client.whoAmI(); }, frame(text(u"alice"))},
        {"plgb", [](SClientBase &client) { client.pluggable(u"ink"_s, "cyan"); },
         frame(array("42 %") + char(1))},
        {"plgl", [](SClientBase &client) { client.pluggableList(); },
         frame(i32(2) + text(u"ink") + text(u"paper"))},
        {"lnkt", [](SClientBase &client) { client.linkTest(0, 0); }, u64(0)},
    };
}

Exchange exchange(const QByteArray &name)
{
    const auto all = exchanges();
    return *std::find_if(all.begin(), all.end(), [&](const auto &one) { return one.name == name; });
}

//! A server that greets, reads one command, sends the bytes, and ends the connection.
RawServer::Script answerOnceWith(const QByteArray &bytes)
{
    return [bytes](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.readCommand();
        peer.send(bytes);
    };
}

//! The same, but waits for the client to end the connection.
RawServer::Script answerAndStay(const QByteArray &bytes)
{
    return [bytes](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.readCommand();
        peer.send(bytes);
        peer.readToEnd();
    };
}

//! A server that greets and completes commands with these replies, then waits for the end.
RawServer::Script answers(const QList<QByteArray> &replies)
{
    return [replies](RawConnection &peer) {
        peer.send(RawServer::uuid());
        for (const QByteArray &reply : replies)
            peer.answer(reply);
        peer.readToEnd();
    };
}

} // namespace

class tst_SClientBase : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { SClientBase::setQueueEmptyFilterTimeout(0); }

    // Fresh state and queries.
    void startsUnconnected();
    void keepsWhatItWasBuiltFrom();
    void derivedClassesMayChangeWhereItGoes();
    void registersItsPrototypesInOrder();
    void looksTheHostUpOnlyWhenAsked();
    void resolvesLiterals_data();
    void resolvesLiterals();
    void resolvesNamesByPreference_data();
    void resolvesNamesByPreference();
    void everythingIsAvailableBeforeTheListIsKnown();
    void filterIsReadOnceByTheConstructor();
    void isNotReachedByNullCommands();
    void localChangesAreFlushed();

    // How an exchange ended.
    void tellsARefusalFromALoss_data();
    void tellsARefusalFromALoss();

    // Connecting.
    void tellsTheAddressWhenConnected();
    void resolvesTheHostInTheWorker();
    void knownAddressIsTakenWhateverTheHost();
    void setsTheOptionsOnTheConnectedSocket();
    void movesItsHelpersToTheWorkerThread();
    void unknownHostEndsWithInitError();
    void closedPortEndsWithInitError();
    void cutGreetingEndsWithInitError_data();
    void cutGreetingEndsWithInitError();
    void nullGreetingEndsWithInitError();
    void silentServerEndsWithInitError();
    void slowGreetingIsRead();
    void timeoutOfZeroDoesNotWaitForTheConnection();

    // Exchanges.
    void commandsQueuedBeforeTheConnectionAllGoOut();
    void commandsGoOutInOrderOneAtATime();
    void resultComesAfterTheCommandIsDeleted();
    void runWithoutCommandReportsTheNullId();
    void runAfterAnInterruptionReportsNothingElse();
    void stepOnALostConnectionFails();
    void commandBeforeLoginReachesTheServerWhichEndsTheSession();
    void nackOfCompletionEndsTheSession();
    void wordThatIsNeitherAckNorNackEndsTheSession();
    void commandWithoutIdEndsTheSession();
    void nullCommandIsReportedWithTheNullId();
    void commandThatCannotBeWrittenEndsTheSession();
    void unknownCommandIsSentButNotHandled();
    void failedCommandLeavesTheOthersInTheQueue();
    void cutAnswerEndsTheSession_data();
    void cutAnswerEndsTheSession();
    void missingAnswerEndsTheSession_data();
    void missingAnswerEndsTheSession();
    void slowAnswerIsRead();
    void wrongReplyEndsTheSession_data();
    void wrongReplyEndsTheSession();
    void spareBytesOfAReplyAreIgnored();
    void longReplyIsRead();
    void replyUpToItsLimitIsRead();
    void replyBeyondItsLimitIsNotRead_data();
    void replyBeyondItsLimitIsNotRead();
    void limitOfOneCommandCountsForNoOther();
    void memoryThatRunsOutEndsTheSession();
    void falseLengthCostsNoMemory();
    void floodCostsNoMemory();
    void silentServerDoesNotHoldUpAStop();

    // Results.
    void tellsTheServerName();
    void tellsWhoIsLoggedIn();
    void tellsThePluggableResult_data();
    void tellsThePluggableResult();
    void tellsThePluggableList();
    void emptyPluggableListIsAResult();

    // The queue.
    void tellsHowTheQueueRuns();
    void holdsTheEmptyQueueBack();
    void anotherCommandWithinTheFilterHidesTheEmptyQueue();
    void waitingCommandHidesTheEmptyQueue();
    void clearPendingCommandsClearsBothQueues();

    // The end.
    void disconnectClosesTheConnection();
    void disconnectFromAnotherThreadIsDoneByTheWorker();
    void disconnectDuringAnExchangeComesAfterIt();
    void disconnectWithoutSocketDoesNothing();
    void closesTheConnectionWhenItHasFinished();
    void lossOfTheConnectionEndsTheIdleClient();
    void interruptionEndsTheIdleClient();

    // The link test.
};

void tst_SClientBase::startsUnconnected()
{
    TestClient client(7000);
    SignalLog results(&client, &SClientBase::commandResult);
    QVERIFY(client.isNull());
    QCOMPARE(client.state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(client.timeout(), 10000);
    QCOMPARE(client.rootPath(), QString());
    QCOMPARE(client.currentPath(), QDir(QDir::homePath()).absolutePath());
    QVERIFY(client.uuid().isNull());
    QVERIFY(!client.doWork());
    QCOMPARE(results.count(), 0);
}

void tst_SClientBase::keepsWhatItWasBuiltFrom()
{
    SClientBase byAddress(QHostAddress(u"192.0.2.7"_s), 7001);
    QCOMPARE(byAddress.address(), QHostAddress(u"192.0.2.7"_s));
    QCOMPARE(byAddress.port(), quint16(7001));
    QCOMPARE(byAddress.host(false), QString());

    SClientBase byName(u"press.example"_s, 65535, true);
    QVERIFY(byName.address().isNull());
    QCOMPARE(byName.port(), quint16(65535));
    QCOMPARE(byName.host(false), u"press.example"_s);
    QCOMPARE(byName.host(true), u"press.example"_s);
    QVERIFY(byName.preferIPv4());
    QVERIFY(!SClientBase(u"press.example"_s, 1, false).preferIPv4());
}

void tst_SClientBase::derivedClassesMayChangeWhereItGoes()
{
    TestClient client(7000);
    client.setHost(u"press.example"_s);
    client.setPort(7001);
    client.setPreferIPv4(true);
    client.setAddress(QHostAddress(u"192.0.2.7"_s));
    QCOMPARE(client.host(false), u"press.example"_s);
    QCOMPARE(client.port(), quint16(7001));
    QVERIFY(client.preferIPv4());
    QCOMPARE(client.address(), QHostAddress(u"192.0.2.7"_s));
}

void tst_SClientBase::registersItsPrototypesInOrder()
{
    const QList<SCommandId> expected = {
        Wire::word("cmdl"), Wire::word("auth"), Wire::word("srvn"),
        Wire::word("wami"), Wire::word("strv"), Wire::word("plgb"),
        Wire::word("plgl"), Wire::word("lnkt"), Wire::word("prob"),
    };
    QCOMPARE(TestClient(1).supportedCommands(), expected);
}

void tst_SClientBase::looksTheHostUpOnlyWhenAsked()
{
    const SClientBase client(QHostAddress(QHostAddress::LocalHost), 1);
    QCOMPARE(client.host(false), QString());
    QCOMPARE(client.host(true), QHostInfo::fromName(u"127.0.0.1"_s).hostName());
    QCOMPARE(SClientBase(QHostAddress(), 1).host(true), QString());
}

void tst_SClientBase::resolvesLiterals_data()
{
    QTest::addColumn<QString>("host");
    QTest::newRow("IPv4") << u"192.0.2.1"_s;
    QTest::newRow("IPv6") << u"2001:db8::1"_s;
}

void tst_SClientBase::resolvesLiterals()
{
    QFETCH(QString, host);
    QCOMPARE(SClientBase::resolve(host, true), QHostAddress(host));
    QCOMPARE(SClientBase::resolve(host, false), QHostAddress(host));
}

void tst_SClientBase::resolvesNamesByPreference_data()
{
    QTest::addColumn<QString>("host");
    QTest::newRow("a name of this machine") << u"localhost"_s;
    QTest::newRow("a name that cannot be") << QString(300, u'x');
    QTest::newRow("no name") << QString();
}

void tst_SClientBase::resolvesNamesByPreference()
{
    QFETCH(QString, host);
    QHostAddress v4;
    QHostAddress v6;
    const auto addresses = QHostInfo::fromName(host).addresses();
    for (const QHostAddress &address : addresses) {
        if (address.protocol() == QAbstractSocket::IPv4Protocol)
            v4 = address;
        else
            v6 = address;
    }
    QCOMPARE(SClientBase::resolve(host, true), v4.isNull() ? v6 : v4);
    QCOMPARE(SClientBase::resolve(host, false), v6.isNull() ? v4 : v6);
}

void tst_SClientBase::everythingIsAvailableBeforeTheListIsKnown()
{
    const TestClient client(1);
    QVERIFY(client.isCommandAvailable(CommandIds::kWhoAmI));
    QVERIFY(client.isCommandAvailable(SCommandId(Wire::word("none"))));
    QVERIFY(client.isCommandAvailable(SCommandId()));
    QCOMPARE(client.commandVersion(CommandIds::kWhoAmI), 0);

    ProbeCommand command;
    QCOMPARE(client.connectionCommandVersion(nullptr), 0);
    QCOMPARE(client.connectionCommandVersion(&command), 0);
    command.setVersion(-3);
    QCOMPARE(client.connectionCommandVersion(&command), -3);
}

void tst_SClientBase::filterIsReadOnceByTheConstructor()
{
    QCOMPARE(SClientBase::queueEmptyFilterTimeout(), 0);
    TestClient before(1);
    SClientBase::setQueueEmptyFilterTimeout(321);
    QCOMPARE(SClientBase::queueEmptyFilterTimeout(), 321);
    TestClient after(1);
    QCOMPARE(before.findChild<QTimer *>()->interval(), 0);
    QCOMPARE(after.findChild<QTimer *>()->interval(), 321);
    QVERIFY(after.findChild<QTimer *>()->isSingleShot());
}

void tst_SClientBase::isNotReachedByNullCommands()
{
    TestClient client(1);
    QSignalSpy enqueued(&client, &SClientBase::commandEnqueue);
    client.enqueueCommand(nullptr);
    QCOMPARE(enqueued.count(), 0);
}

// No machine that runs tests has a removable medium for sure, so this looks at the connections.
void tst_SClientBase::localChangesAreFlushed()
{
    const TestClient client(1);
    QCOMPARE(client.receivers(SIGNAL(localDirCreated(QString))), 1);
    QCOMPARE(client.receivers(SIGNAL(localDirRemoved(QString, bool))), 1);
    QCOMPARE(client.receivers(SIGNAL(localFileRemoved(QString))), 1);
    QCOMPARE(client.receivers(SIGNAL(localDirRenamed(QString, QString))), 1);
    QCOMPARE(client.receivers(SIGNAL(localFileRenamed(QString, QString))), 1);
    QCOMPARE(client.receivers(SIGNAL(localFileCopied(QString, QString))), 1);
    QCOMPARE(client.receivers(SIGNAL(localDirCopied(QString, QString))), 0);
    QCOMPARE(client.receivers(SIGNAL(localPermissionChanged(QString))), 0);
}

void tst_SClientBase::tellsARefusalFromALoss_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<bool>("stays");
    QTest::addColumn<bool>("isRefused");
    const QByteArray accepted = RawBytes::ack();
    QTest::newRow("done") << accepted + RawBytes::ack() << true << false;
    QTest::newRow("refused at once") << RawBytes::nack() << false << true;
    QTest::newRow("refused after the work") << accepted + RawBytes::nack() << false << true;
    QTest::newRow("lost at once") << QByteArray() << false << false;
    QTest::newRow("lost after the work") << accepted << false << false;
    QTest::newRow("lost in the last word")
        << accepted + RawBytes::nack().first(3) << false << false;
    QTest::newRow("another word") << accepted + RawBytes::u32(1) << true << false;
}

void tst_SClientBase::tellsARefusalFromALoss()
{
    QFETCH(QByteArray, reply);
    QFETCH(bool, stays);
    QFETCH(bool, isRefused);
    RawServer server(stays ? answerAndStay(reply) : RawServer::Script([reply](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.readCommand();
        peer.send(reply);
    }));
    ClientSession session(server.port());
    std::atomic_bool told = false;
    std::atomic_int count = 0;
    connect(
        session.client, &SClientBase::commandResult, session.client,
        [&, client = session.client.data()](SCommandId id) {
            if (id.isNull())
                return;
            told = client->wasRefused();
            ++count;
        },
        Qt::DirectConnection);
    QVERIFY(session.open());
    session.client->enqueueCommand(new ProbeCommand);
    QTRY_COMPARE(count, 1);
    QCOMPARE(told, isRefused);
}

void tst_SClientBase::tellsTheAddressWhenConnected()
{
    RawServer server(answers({}));
    ClientSession session(server.port());
    SignalLog connected(session.client, &SClientBase::connected);
    QVERIFY(session.open());
    QTRY_COMPARE(connected.count(), 1);
    QCOMPARE(connected.value(), QHostAddress(QHostAddress::LocalHost));
    session.inThread([&] {
        QCOMPARE(session.client->uuid(), QUuid::fromRfc4122(RawServer::uuid()));
        QCOMPARE(session.client->state(), QAbstractSocket::ConnectedState);
        QVERIFY(!session.client->isNull());
    });
}

void tst_SClientBase::resolvesTheHostInTheWorker()
{
    RawServer server(answers({}));
    auto *client = new SClientBase(u"localhost"_s, server.port(), true);
    SignalLog connected(client, &SClientBase::connected);
    SClientController controller;
    QVERIFY(controller.connectClient(client, false));
    QTRY_COMPARE(connected.count(), 1);
    QVERIFY(connected.value().isLoopback());
}

void tst_SClientBase::knownAddressIsTakenWhateverTheHost()
{
    RawServer server(answers({}));
    ClientSession session(server.port());
    session.client->setHost(QString(300, u'x'));
    QVERIFY(session.open());
}

void tst_SClientBase::setsTheOptionsOnTheConnectedSocket()
{
    // The system reports other sizes than were asked for, so a plain socket tells what to expect.
    QTcpServer listener;
    QVERIFY(listener.listen(QHostAddress(QHostAddress::LocalHost)));
    QTcpSocket plain;
    plain.connectToHost(listener.serverAddress(), listener.serverPort());
    QVERIFY(plain.waitForConnected(10000));
    const auto sizeAfterSetting = [&plain](QAbstractSocket::SocketOption option) {
        plain.setSocketOption(option, 262144);
        return plain.socketOption(option).toInt();
    };
    const int sendSize = sizeAfterSetting(QAbstractSocket::SendBufferSizeSocketOption);
    const int receiveSize = sizeAfterSetting(QAbstractSocket::ReceiveBufferSizeSocketOption);

    RawServer server(answers({}));
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.inThread([&] {
        STcpSocket *socket = session.client->socket();
        const auto option = [socket](QAbstractSocket::SocketOption name) {
            return socket->socketOption(name).toInt();
        };
        QCOMPARE(option(QAbstractSocket::LowDelayOption), 1);
        QCOMPARE(option(QAbstractSocket::KeepAliveOption), 1);
        QCOMPARE(option(QAbstractSocket::SendBufferSizeSocketOption), sendSize);
        QCOMPARE(option(QAbstractSocket::ReceiveBufferSizeSocketOption), receiveSize);
    });
}

void tst_SClientBase::movesItsHelpersToTheWorkerThread()
{
    RawServer server(answers({}));
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.inThread([&] {
        const auto children = session.client->findChildren<QObject *>();
        QVERIFY(children.size() >= 4); // two queues, a timer and the socket
        for (const QObject *child : children)
            QCOMPARE(child->thread(), QThread::currentThread());
    });
}

void tst_SClientBase::unknownHostEndsWithInitError()
{
    auto *client = new SClientBase(QString(300, u'x'), 1, false);
    SignalLog finished(client, &SClientBase::finished);
    SClientController controller;
    QVERIFY(!controller.connectClient(client, false));
    QTRY_COMPARE(finished.count(), 1);
    QCOMPARE(finished.value(), SimpleWorkerError::InitError);
}

void tst_SClientBase::closedPortEndsWithInitError()
{
    quint16 port = 0;
    {
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress(QHostAddress::LocalHost)));
        port = server.serverPort();
    }
    ClientSession session(port);
    SignalLog connected(session.client, &SClientBase::connected);
    QVERIFY(!session.open());
    QVERIFY(session.ends());
    QCOMPARE(session.finished.value(), SimpleWorkerError::InitError);
    QCOMPARE(connected.count(), 0);
}

void tst_SClientBase::cutGreetingEndsWithInitError_data()
{
    QTest::addColumn<int>("size");
    for (int size = 0; size < 16; ++size)
        QTest::addRow("%d bytes", size) << size;
}

void tst_SClientBase::cutGreetingEndsWithInitError()
{
    QFETCH(int, size);
    RawServer server([size](RawConnection &peer) { peer.send(RawServer::uuid().first(size)); });
    ClientSession session(server.port());
    QVERIFY(!session.open());
    QVERIFY(session.ends());
    // The loss of the connection speaks first.
    QCOMPARE(session.finished.count(), 2);
    QCOMPARE(session.finished.value(0), SimpleWorkerError::InterruptRequested);
    QCOMPARE(session.finished.value(1), SimpleWorkerError::InitError);
}

void tst_SClientBase::nullGreetingEndsWithInitError()
{
    RawServer server([](RawConnection &peer) {
        peer.send(QByteArray(16, '\0'));
        peer.readToEnd();
    });
    ClientSession session(server.port());
    QVERIFY(!session.open());
    QVERIFY(session.ends());
    QCOMPARE(session.finished.entries().size(), 1);
    QCOMPARE(session.finished.value(), SimpleWorkerError::InitError);
    QVERIFY(server.finishes());
}

void tst_SClientBase::silentServerEndsWithInitError()
{
    RawServer server([](RawConnection &peer) {
        peer.send(RawServer::uuid().first(15));
        peer.readToEnd();
    });
    ClientSession session(server.port());
    session.client->setTimeout(kShortMs);
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!session.open());
    QVERIFY(timer.elapsed() >= kShortMs);
    QVERIFY(session.ends());
    QCOMPARE(session.finished.value(), SimpleWorkerError::InitError);
}

void tst_SClientBase::slowGreetingIsRead()
{
    RawServer server([](RawConnection &peer) {
        peer.drip(RawServer::uuid(), 20);
        peer.readToEnd();
    });
    ClientSession session(server.port());
    session.client->setTimeout(300); // of each wait, not of them all
    QVERIFY(session.open());
}

void tst_SClientBase::timeoutOfZeroDoesNotWaitForTheConnection()
{
    RawServer server(answers({}));
    ClientSession session(server.port());
    session.client->setTimeout(0);
    QVERIFY(!session.open());
    QVERIFY(session.ends());
    QCOMPARE(session.finished.value(), SimpleWorkerError::InitError);
}

void tst_SClientBase::commandsQueuedBeforeTheConnectionAllGoOut()
{
    const QByteArray name = RawBytes::frame(RawBytes::text(u"x"));
    RawServer server(answers({name, name, name}));
    ClientSession session(server.port());
    session.client->serverName();
    session.client->whoAmI();
    session.client->serverName();
    QVERIFY(session.open());
    QVERIFY(session.waitForExchanges(3));
    QCOMPARE(session.exchanges(), QList<QByteArray>({"srvn+", "wami+", "srvn+"}));
}

void tst_SClientBase::commandsGoOutInOrderOneAtATime()
{
    const QByteArray name = RawBytes::frame(RawBytes::text(u"x"));
    std::atomic_bool early = false;
    RawServer server([&](RawConnection &peer) {
        peer.send(RawServer::uuid());
        for (int i = 0; i < 3; ++i) {
            peer.readCommand();
            peer.send(RawBytes::ack() + name);
            // Nothing may come before the exchange is complete.
            if (peer.socket().waitForReadyRead(50))
                early = true;
            peer.send(RawBytes::ack());
        }
        peer.readToEnd();
    });
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->serverName();
    session.client->whoAmI();
    session.client->serverName();
    QVERIFY(session.waitForExchanges(3));
    QCOMPARE(session.exchanges(), QList<QByteArray>({"srvn+", "wami+", "srvn+"}));
    session.inThread([&] { session.client->disconnect(); });
    QCOMPARE(server.received(),
             RawBytes::command("srvn") + RawBytes::command("wami") + RawBytes::command("srvn"));
    QVERIFY(!early);
}

void tst_SClientBase::resultComesAfterTheCommandIsDeleted()
{
    RawServer server(answers({{}}));
    ClientSession session(server.port());
    auto token = std::make_shared<int>();
    const std::weak_ptr<int> life = token;
    std::atomic_bool expired = false;
    QObject::connect(session.client, &SClientBase::commandResult, session.client,
                     [&](SCommandId id) { expired = !id.isNull() && life.expired(); });
    session.client->enqueueCommand(new ProbeCommand(std::move(token)));
    QVERIFY(!life.expired());
    QVERIFY(session.open());
    QVERIFY(session.waitForExchanges(1));
    QCOMPARE(session.exchanges(), QList<QByteArray>({"prob+"}));
    QVERIFY(expired);
}

void tst_SClientBase::runWithoutCommandReportsTheNullId()
{
    RawServer server(answers({}));
    ClientSession session(server.port());
    QVERIFY(session.open());
    QMetaObject::invokeMethod(session.client, "run", Qt::QueuedConnection);
    QVERIFY(session.results.waitForCount(1));
    QVERIFY(session.results.value<0>().isNull());
    QVERIFY(session.results.value<1>());
}

void tst_SClientBase::runAfterAnInterruptionReportsNothingElse()
{
    RawServer server(answers({}));
    ClientSession session(server.port());
    QVERIFY(session.open());
    QList<bool> given;
    session.inThread([&] {
        QThread::currentThread()->requestInterruption();
        session.client->whoAmI();
        given.append(session.client->doWork());
    });
    QCOMPARE(given, QList<bool>({true}));
    QVERIFY(session.ends());
    QCOMPARE(session.results.count(), 1);
    QVERIFY(session.results.value<0>().isNull());
    QVERIFY(session.results.value<1>());
    QCOMPARE(session.finished.value(), SimpleWorkerError::InterruptRequested);
    QCOMPARE(server.received(), QByteArray());
}

void tst_SClientBase::stepOnALostConnectionFails()
{
    RawServer server(answers({}));
    ClientSession session(server.port());
    QVERIFY(session.open());
    bool done = true;
    session.inThread([&] {
        session.client->whoAmI();
        session.client->socket()->abort();
        done = session.client->doWork();
    });
    QVERIFY(!done);
    QVERIFY(session.ends());
    QCOMPARE(session.results.count(), 1);
    QVERIFY(session.results.value<0>().isNull()); // the command stays in the queue
    QVERIFY(!session.results.value<1>());
}

void tst_SClientBase::commandBeforeLoginReachesTheServerWhichEndsTheSession()
{
    RawServer server(answerOnceWith(RawBytes::ack() + RawBytes::nack()));
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->whoAmI();
    QVERIFY(session.ends());
    QCOMPARE(session.exchanges(), QList<QByteArray>({"wami-"}));
    QCOMPARE(session.finished.value(), SimpleWorkerError::WorkError);
    QCOMPARE(server.received(), RawBytes::command("wami"));
}

void tst_SClientBase::nackOfCompletionEndsTheSession()
{
    const QByteArray reply = RawBytes::frame(RawBytes::text(u"alice"));
    RawServer server(answerAndStay(RawBytes::ack() + reply + RawBytes::nack()));
    ClientSession session(server.port());
    SignalLog names(session.client, &SClientBase::whoAmIResult);
    QVERIFY(session.open());
    session.client->whoAmI();
    QVERIFY(session.ends());
    QCOMPARE(names.value(), u"alice"_s); // the answer itself had come
    QCOMPARE(session.exchanges(), QList<QByteArray>({"wami-"}));
    QCOMPARE(session.finished.value(), SimpleWorkerError::WorkError);
    QVERIFY(server.finishes());
}

void tst_SClientBase::wordThatIsNeitherAckNorNackEndsTheSession()
{
    RawServer server(answerAndStay(RawBytes::u32(0x50A050A0)));
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->whoAmI();
    QVERIFY(session.ends());
    QCOMPARE(session.exchanges(), QList<QByteArray>({"wami-"}));
    QVERIFY(server.finishes());
}

void tst_SClientBase::commandWithoutIdEndsTheSession()
{
    class NullCommand final : public SConcreteCommand<NullCommand>
    {
    };
    RawServer server(answers({}));
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->enqueueCommand(new NullCommand);
    QVERIFY(session.ends());
    QCOMPARE(session.results.count(), 1);
    QVERIFY(session.results.value<0>().isNull());
    QVERIFY(!session.results.value<1>());
    QCOMPARE(session.finished.value(), SimpleWorkerError::WorkError);
    QCOMPARE(server.received(), QByteArray());
}

void tst_SClientBase::nullCommandIsReportedWithTheNullId()
{
    class Empty final : public SConcreteCommand<Empty>
    {
    public:
        Empty()
            : SConcreteCommand(Wire::word("none"))
        {
        }
        bool isNull() const override { return true; }
    };
    RawServer server(answers({}));
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->enqueueCommand(new Empty);
    QVERIFY(session.ends());
    QCOMPARE(session.results.count(), 1);
    QVERIFY(session.results.value<0>().isNull());
    QVERIFY(!session.results.value<1>());
    QCOMPARE(session.finished.value(), SimpleWorkerError::WorkError);
    QCOMPARE(server.received(), QByteArray());
}

void tst_SClientBase::commandThatCannotBeWrittenEndsTheSession()
{
    class Unwritable final : public SConcreteCommand<Unwritable>
    {
    public:
        Unwritable()
            : SConcreteCommand(Wire::word("none"))
        {
        }

    private:
        friend SConcreteCommand;
        void writeFields(QDataStream &stream) const { stream.setStatus(QDataStream::WriteFailed); }
    };
    RawServer server(answers({}));
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->enqueueCommand(new Unwritable);
    QVERIFY(session.ends());
    QCOMPARE(session.exchanges(), QList<QByteArray>({"none-"}));
    QCOMPARE(session.finished.value(0), SimpleWorkerError::WorkError);
    QCOMPARE(server.received(), QByteArray());
}

void tst_SClientBase::unknownCommandIsSentButNotHandled()
{
    class Foreign final : public SConcreteCommand<Foreign>
    {
    public:
        Foreign()
            : SConcreteCommand(Wire::word("none"))
        {
        }
    };
    RawServer server(answerAndStay(RawBytes::ack() + RawBytes::ack()));
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->enqueueCommand(new Foreign);
    QVERIFY(session.ends());
    QCOMPARE(session.exchanges(), QList<QByteArray>({"none-"}));
    QCOMPARE(server.received(), RawBytes::command("none"));
}

void tst_SClientBase::failedCommandLeavesTheOthersInTheQueue()
{
    RawServer server(answerAndStay(RawBytes::nack()));
    ClientSession session(server.port());
    auto token = std::make_shared<int>();
    const std::weak_ptr<int> life = token;
    std::atomic_bool waiting = false;
    QObject::connect(
        session.client, &SClientBase::finished, session.client, [&] { waiting = !life.expired(); },
        Qt::DirectConnection);
    session.client->whoAmI();
    session.client->enqueueCommand(new ProbeCommand(std::move(token)));
    QVERIFY(session.open());
    QVERIFY(session.ends());
    QVERIFY(waiting);
    QVERIFY(life.expired()); // with the client
    QCOMPARE(session.exchanges(), QList<QByteArray>({"wami-"}));
    QCOMPARE(server.received(), RawBytes::command("wami"));
}

void tst_SClientBase::cutAnswerEndsTheSession_data()
{
    QTest::addColumn<QByteArray>("name");
    for (const Exchange &one : exchanges())
        QTest::newRow(one.name) << QByteArray(one.name);
}

// Whatever the byte at which the server goes, the command fails and the session ends.
void tst_SClientBase::cutAnswerEndsTheSession()
{
    QFETCH(QByteArray, name);
    const Exchange one = exchange(name);
    const QByteArray whole = RawBytes::ack() + one.reply + RawBytes::ack();
    for (qsizetype cut = 0; cut < whole.size(); ++cut) {
        RawServer server(answerOnceWith(whole.first(cut)));
        ClientSession session(server.port());
        QVERIFY(session.open());
        one.request(*session.client);
        QVERIFY2(session.ends(), qPrintable(QString::number(cut)));
        QCOMPARE(session.exchanges().value(0), name + '-');
        QCOMPARE(session.finished.value(0), SimpleWorkerError::WorkError);
    }
}

void tst_SClientBase::missingAnswerEndsTheSession_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("sent");
    const auto all = exchanges();
    for (const Exchange &one : all) {
        const QByteArray name(one.name);
        const QByteArray ack = RawBytes::ack();
        QTest::addRow("%s, no word", one.name) << name << QByteArray();
        QTest::addRow("%s, half a word", one.name) << name << ack.first(2);
        QTest::addRow("%s, no reply", one.name) << name << ack;
        QTest::addRow("%s, half a reply", one.name)
            << name << ack + one.reply.first(one.reply.size() / 2);
        QTest::addRow("%s, no completion", one.name) << name << ack + one.reply;
    }
}

void tst_SClientBase::missingAnswerEndsTheSession()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, sent);
    RawServer server(answerAndStay(sent));
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.inThread([&] { session.client->setTimeout(kShortMs); });
    exchange(name).request(*session.client);
    QVERIFY(session.ends());
    QCOMPARE(session.exchanges().value(0), name + '-');
    QCOMPARE(session.finished.value(0), SimpleWorkerError::WorkError);
    QVERIFY(server.finishes());
}

void tst_SClientBase::slowAnswerIsRead()
{
    RawServer server([](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.readCommand();
        peer.drip(RawBytes::ack() + RawBytes::frame(RawBytes::text(u"me")) + RawBytes::ack(), 20);
        peer.readToEnd();
    });
    ClientSession session(server.port());
    SignalLog names(session.client, &SClientBase::whoAmIResult);
    QVERIFY(session.open());
    session.inThread([&] { session.client->setTimeout(300); });
    session.client->whoAmI();
    QVERIFY(session.waitForExchanges(1));
    QCOMPARE(session.exchanges(), QList<QByteArray>({"wami+"}));
    QCOMPARE(names.value(), u"me"_s);
}

void tst_SClientBase::wrongReplyEndsTheSession_data()
{
    using namespace RawBytes;
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("reply");
    const QByteArray ids = i32(2) + idRecord("wami") + idRecord("srvn");

    QTest::newRow("a frame of length 0") << "wami"_ba << u32(0);
    QTest::newRow("a text cut in its size") << "wami"_ba << frame(QByteArray(3, '\0'));
    QTest::newRow("a text cut short") << "srvn"_ba << frame(u32(8) + "abcd");
    QTest::newRow("a text of 2 GiB") << "srvn"_ba << frame(u32(0x80000000) + "abcd");
    QTest::newRow("a text of nearly 4 GiB") << "srvn"_ba << frame(u32(0xFFFFFFFE) + "abcd");
    QTest::newRow("a text of odd size") << "wami"_ba << frame(u32(3) + "abc");
    QTest::newRow("an output of 2 GiB") << "plgb"_ba << frame(u32(0x7FFFFFFF) + char(1));
    QTest::newRow("an output without result") << "plgb"_ba << frame(array("42 %"));
    QTest::newRow("a list without count") << "plgl"_ba << frame(QByteArray(1, '\0'));
    QTest::newRow("a list of 2 billion") << "plgl"_ba << frame(i32(0x7FFFFFFF) + text(u"ink"));
    QTest::newRow("a list of -1") << "plgl"_ba << frame(i32(-1));
    QTest::newRow("a list cut short") << "plgl"_ba << frame(i32(2) + text(u"ink") + u32(2));
    QTest::newRow("commands cut in an id") << "cmdl"_ba << frame(ids.chopped(1));
    QTest::newRow("2 billion commands") << "cmdl"_ba << frame(i32(0x7FFFFFFF) + ids.sliced(4));
    QTest::newRow("-1 commands") << "cmdl"_ba << frame(i32(-1));
    QTest::newRow("versions cut in their count") << "cmdl"_ba << frame(ids + '\0');
    QTest::newRow("versions cut short") << "cmdl"_ba << frame(ids + i32(2) + i32(1));
    QTest::newRow("2 billion versions") << "cmdl"_ba << frame(ids + i32(0x7FFFFFFF) + i32(1));
}

void tst_SClientBase::wrongReplyEndsTheSession()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, reply);
    RawServer server(answerAndStay(RawBytes::ack() + reply + RawBytes::ack()));
    ClientSession session(server.port());
    SignalLog names(session.client, &SClientBase::whoAmIResult);
    SignalLog serverNames(session.client, &SClientBase::serverNameResult);
    SignalLog outputs(session.client, &SClientBase::pluggableResult);
    SignalLog lists(session.client, &SClientBase::pluggableListResult);
    SignalLog commands(session.client, qOverload<const QHash<SCommandId, qint32> &>(
                                           &SClientBase::commandListResult));
    QVERIFY(session.open());
    session.inThread([&] { session.client->setTimeout(kShortMs); });
    exchange(name).request(*session.client);
    QVERIFY(session.ends());
    QCOMPARE(session.exchanges(), QList<QByteArray>({name + '-'}));
    QCOMPARE(session.finished.value(0), SimpleWorkerError::WorkError);
    QCOMPARE(names.count() + serverNames.count() + outputs.count() + lists.count() +
                 commands.count(),
             0);
    QVERIFY(server.finishes());
}

void tst_SClientBase::spareBytesOfAReplyAreIgnored()
{
    RawServer server(answers({RawBytes::frame(RawBytes::text(u"alice") + "more")}));
    ClientSession session(server.port());
    SignalLog names(session.client, &SClientBase::whoAmIResult);
    QVERIFY(session.open());
    session.client->whoAmI();
    QVERIFY(session.waitForExchanges(1));
    QCOMPARE(session.exchanges(), QList<QByteArray>({"wami+"}));
    QCOMPARE(names.value(), u"alice"_s);
}

// A reply has no upper bound.
void tst_SClientBase::longReplyIsRead()
{
    QByteArray output(5 * 1024 * 1024 + 3, '\0');
    for (qsizetype i = 0; i < output.size(); ++i)
        output[i] = static_cast<char>(i % 251);
    RawServer server(answers({RawBytes::frame(RawBytes::array(output) + char(1))}));
    ClientSession session(server.port());
    SignalLog outputs(session.client, &SClientBase::pluggableResult);
    QVERIFY(session.open());
    session.client->pluggable(u"log"_s, {});
    QVERIFY(session.waitForExchanges(1));
    QCOMPARE(session.exchanges(), QList<QByteArray>({"plgb+"}));
    QVERIFY(outputs.value<3>() == output);
}

void tst_SClientBase::replyUpToItsLimitIsRead()
{
    const QByteArray name = RawBytes::text(u"alice"); // 14 bytes
    RawServer server(answers({RawBytes::frame(name)}));
    ClientSession session(server.port());
    QCOMPARE(session.client->replyLimit(CommandIds::kWhoAmI), 0);
    session.client->setReplyLimit(CommandIds::kWhoAmI, name.size());
    QCOMPARE(session.client->replyLimit(CommandIds::kWhoAmI), name.size());
    QVERIFY(session.open());
    session.client->whoAmI();
    QVERIFY(session.waitForExchanges(1));
    QCOMPARE(session.exchanges(), QList<QByteArray>({"wami+"}));
    session.inThread([&] { QVERIFY(!session.client->wasReplyTooLarge()); });
}

void tst_SClientBase::replyBeyondItsLimitIsNotRead_data()
{
    QTest::addColumn<QByteArray>("name");
    for (const char *name : {"cmdl", "srvn", "wami", "plgb", "plgl"})
        QTest::newRow(name) << QByteArray(name);
}

void tst_SClientBase::replyBeyondItsLimitIsNotRead()
{
    QFETCH(QByteArray, name);
    const Exchange one = exchange(name);
    RawServer server(answerAndStay(RawBytes::ack() + one.reply + RawBytes::ack()));
    ClientSession session(server.port());
    const SCommandId id(qFromBigEndian<quint32>(name.constData()));
    session.client->setReplyLimit(id, one.reply.size() - 5);
    std::atomic_bool isTooLarge = false;
    connect(
        session.client, &SClientBase::commandResult, session.client,
        [&, client = session.client.data()] { isTooLarge = client->wasReplyTooLarge(); },
        Qt::DirectConnection);
    QVERIFY(session.open());
    QTest::ignoreMessage(QtDebugMsg,
                         QRegularExpression(u"^SClientBase::readReply: .* too large$"_s));
    one.request(*session.client);
    QVERIFY(session.ends());
    QCOMPARE(session.exchanges(), QList<QByteArray>({name + '-'}));
    QVERIFY(isTooLarge);
}

void tst_SClientBase::limitOfOneCommandCountsForNoOther()
{
    RawServer server(answers({RawBytes::frame(RawBytes::text(u"alice"))}));
    ClientSession session(server.port());
    session.client->setReplyLimit(CommandIds::kServerName, 1);
    QVERIFY(session.open());
    session.client->whoAmI();
    QVERIFY(session.waitForExchanges(1));
    QCOMPARE(session.exchanges(), QList<QByteArray>({"wami+"}));
}

void tst_SClientBase::memoryThatRunsOutEndsTheSession()
{
    const QByteArray output(1024 * 1024, 'x');
    RawServer server(answers({RawBytes::frame(RawBytes::array(output) + char(1))}));
    ClientSession session(server.port());
    std::atomic_bool isTooLarge = false;
    connect(
        session.client, &SClientBase::commandResult, session.client,
        [&, client = session.client.data()] { isTooLarge = client->wasReplyTooLarge(); },
        Qt::DirectConnection);
    // What memory runs out in need not be this library's own code.
    connect(
        session.client, &SClientBase::pluggableResult, session.client,
        [] { throw std::bad_alloc(); }, Qt::DirectConnection);
    QVERIFY(session.open());
    QTest::ignoreMessage(QtDebugMsg, "SClientBase::doWork: out of memory");
    session.client->pluggable(u"log"_s, {});
    QVERIFY(session.ends());
    QCOMPARE(session.exchanges(), QList<QByteArray>({"plgb-"}));
    QVERIFY(isTooLarge);
    QCOMPARE(session.finished.value(0), SimpleWorkerError::WorkError);
}

void tst_SClientBase::falseLengthCostsNoMemory()
{
    RawServer server(answerAndStay(RawBytes::ack() + RawBytes::u32(0xFFFFFFF0) + "little"));
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.inThread([&] { session.client->setTimeout(kShortMs); });
    const TestShared::MemoryPeak peak;
    QVERIFY(peak.isValid());
    session.client->whoAmI();
    QVERIFY(session.ends());
    QCOMPARE(session.exchanges(), QList<QByteArray>({"wami-"}));
    QVERIFY2(peak.growth() < 64 * 1024 * 1024, qPrintable(QString::number(peak.growth())));
}

// What nobody has asked for stays on the server's side.
void tst_SClientBase::floodCostsNoMemory()
{
    constexpr qint64 kFloodBytes = 256 * 1024 * 1024;
    std::atomic<qint64> sent = 0;
    RawServer server([&](RawConnection &peer) {
        peer.send(RawServer::uuid());
        const QByteArray block(0x10000, 'f');
        while (sent < kFloodBytes && peer.send(block))
            sent += block.size();
    });
    ClientSession session(server.port());
    QVERIFY(session.open());
    const qint64 before = ProcessFacts::kibibytes("VmRSS");
    QVERIFY(before > 0);
    qint64 seen = -1;
    QElapsedTimer standing;
    const auto stands = [&] {
        if (std::exchange(seen, sent) != sent || !standing.isValid())
            standing.start();
        return standing.hasExpired(300);
    };
    QVERIFY(QTest::qWaitFor(stands, 10000));
    QVERIFY(sent > 0);
    QVERIFY2(sent < kFloodBytes, "the client takes all");
    const qint64 grown = ProcessFacts::kibibytes("VmRSS") - before;
    QVERIFY2(grown < 16 * 1024, qPrintable(QString::number(grown)));

    session.client->whoAmI(); // the flood is no answer
    QVERIFY(session.ends());
    QCOMPARE(session.exchanges(), QList<QByteArray>({"wami-"}));
}

// Waits of a stopped session last together no longer than one of them may.
void tst_SClientBase::silentServerDoesNotHoldUpAStop()
{
    RawServer server([](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.readCommand();
        peer.send(RawBytes::ack() + RawBytes::u32(100000));
        while (peer.send("x"))
            QThread::msleep(20);
    });
    ClientSession session(server.port());
    SignalLog busy(session.client, &SClientBase::busy);
    QVERIFY(session.open());
    session.inThread([&] { session.client->setTimeout(300); });
    session.client->whoAmI();
    QVERIFY(busy.waitForCount(1));
    QElapsedTimer timer;
    timer.start();
    session.controller.interruptWorkers();
    QVERIFY(session.ends());
    QVERIFY2(timer.elapsed() < 3000, qPrintable(QString::number(timer.elapsed())));
}

void tst_SClientBase::tellsTheServerName()
{
    RawServer server(answers({RawBytes::frame(RawBytes::text(u"prëss 4"))}));
    ClientSession session(server.port());
    SignalLog names(session.client, &SClientBase::serverNameResult);
    QVERIFY(session.open());
    session.client->serverName();
    QVERIFY(session.waitForExchanges(1));
    QCOMPARE(session.exchanges(), QList<QByteArray>({"srvn+"}));
    QCOMPARE(names.value(), u"prëss 4"_s);
}

void tst_SClientBase::tellsWhoIsLoggedIn()
{
    RawServer server(answers({RawBytes::frame(RawBytes::u32(0xFFFFFFFF))}));
    ClientSession session(server.port());
    SignalLog names(session.client, &SClientBase::whoAmIResult);
    QVERIFY(session.open());
    session.client->whoAmI();
    QVERIFY(session.waitForExchanges(1));
    QCOMPARE(session.exchanges(), QList<QByteArray>({"wami+"}));
    QCOMPARE(names.count(), 1);
    QVERIFY(names.value().isNull());
}

void tst_SClientBase::tellsThePluggableResult_data()
{
    QTest::addColumn<bool>("result");
    QTest::addColumn<QByteArray>("output");
    QTest::newRow("done") << true << "42 %"_ba;
    QTest::newRow("failed") << false << "why"_ba;
    QTest::newRow("unknown") << false << ""_ba;
}

void tst_SClientBase::tellsThePluggableResult()
{
    QFETCH(bool, result);
    QFETCH(QByteArray, output);
    RawServer server(answers({RawBytes::frame(RawBytes::array(output) + char(result))}));
    ClientSession session(server.port());
    SignalLog outputs(session.client, &SClientBase::pluggableResult);
    QVERIFY(session.open());
    session.client->pluggable(u"ink"_s, "cyan");
    QVERIFY(session.waitForExchanges(1));
    QCOMPARE(session.exchanges(), QList<QByteArray>({"plgb+"}));
    QCOMPARE(outputs.value<0>(), u"ink"_s);
    QCOMPARE(outputs.value<1>(), result);
    QCOMPARE(outputs.value<2>(), "cyan"_ba);
    QCOMPARE(outputs.value<3>(), output);
    session.inThread([&] { session.client->disconnect(); });
    QCOMPARE(server.received(),
             RawBytes::command("plgb", RawBytes::text(u"ink") + RawBytes::array("cyan")));
}

void tst_SClientBase::tellsThePluggableList()
{
    RawServer server(answers({exchange("plgl").reply}));
    ClientSession session(server.port());
    SignalLog lists(session.client, &SClientBase::pluggableListResult);
    QVERIFY(session.open());
    session.client->pluggableList();
    QVERIFY(session.waitForExchanges(1));
    QCOMPARE(lists.value(), QList<QString>({u"ink"_s, u"paper"_s}));
}

void tst_SClientBase::emptyPluggableListIsAResult()
{
    RawServer server(answers({RawBytes::frame(RawBytes::i32(0))}));
    ClientSession session(server.port());
    SignalLog lists(session.client, &SClientBase::pluggableListResult);
    QVERIFY(session.open());
    session.client->pluggableList();
    QVERIFY(session.waitForExchanges(1));
    QCOMPARE(lists.count(), 1);
    QCOMPARE(lists.value(), QList<QString>());
}

void tst_SClientBase::tellsHowTheQueueRuns()
{
    const QByteArray name = RawBytes::frame(RawBytes::text(u"x"));
    RawServer server(answers({name, name}));
    ClientSession session(server.port());
    SignalLog notEmpty(session.client, &SClientBase::commandQueueNotEmpty);
    SignalLog empty(session.client, &SClientBase::commandQueueEmpty);
    SignalLog enqueued(session.client, &SClientBase::commandEnqueue);
    SignalLog dequeued(session.client, &SClientBase::commandDequeue);
    SignalLog busy(session.client, &SClientBase::busy);
    SignalLog idle(session.client, &SClientBase::idle);
    session.client->serverName();
    session.client->serverName();
    QCOMPARE(notEmpty.count(), 1); // they were queued in this thread
    QCOMPARE(busy.count(), 1);
    QCOMPARE(enqueued.count(), 2);
    QCOMPARE(dequeued.count(), 0);
    QVERIFY(session.open());
    QVERIFY(session.waitForExchanges(2));
    QCOMPARE(dequeued.count(), 2);
    QVERIFY(empty.waitForCount(1));
    QVERIFY(idle.waitForCount(1));
    QCOMPARE(idle.count(), empty.count());
}

void tst_SClientBase::holdsTheEmptyQueueBack()
{
    SClientBase::setQueueEmptyFilterTimeout(kShortMs);
    RawServer server(answers({RawBytes::frame(RawBytes::text(u"x"))}));
    ClientSession session(server.port());
    SClientBase::setQueueEmptyFilterTimeout(0); // only for those made later
    SignalLog empty(session.client, &SClientBase::commandQueueEmpty);
    QVERIFY(session.open());
    session.client->serverName();
    QVERIFY(session.waitForExchanges(1));
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(empty.count(), 0);
    QVERIFY(empty.waitForCount(1));
    QVERIFY2(timer.elapsed() > kShortMs / 2, qPrintable(QString::number(timer.elapsed())));
}

void tst_SClientBase::anotherCommandWithinTheFilterHidesTheEmptyQueue()
{
    SClientBase::setQueueEmptyFilterTimeout(1000);
    const QByteArray name = RawBytes::frame(RawBytes::text(u"x"));
    RawServer server(answers({name, name, name, name}));
    ClientSession session(server.port());
    SignalLog empty(session.client, &SClientBase::commandQueueEmpty);
    QVERIFY(session.open());
    for (int i = 1; i <= 4; ++i) {
        QVERIFY(empty.isEmpty());
        session.client->serverName();
        QVERIFY(session.waitForExchanges(i));
    }
    QVERIFY(empty.waitForCount(1));
    QCOMPARE(empty.count(), 1);
}

void tst_SClientBase::waitingCommandHidesTheEmptyQueue()
{
    TestClient client(1);
    const auto *filter = client.findChild<QTimer *>();
    SignalLog empty(&client, &SClientBase::commandQueueEmpty);
    client.clearPendingCommands();
    QVERIFY(filter->isActive());
    client.whoAmI();
    QVERIFY(!filter->isActive());
    Q_EMIT client.commandResult(SCommandId(), true);
    QVERIFY(filter->isActive());
    QTRY_VERIFY(!filter->isActive());
    QCOMPARE(empty.count(), 0);
}

void tst_SClientBase::clearPendingCommandsClearsBothQueues()
{
    TestClient client(1);
    const auto queues = client.findChildren<SCommandQueue *>();
    QCOMPARE(queues.size(), 2);
    QSignalSpy first(queues.at(0), &SCommandQueue::cleared);
    QSignalSpy second(queues.at(1), &SCommandQueue::cleared);
    SignalLog empty(&client, &SClientBase::commandQueueEmpty);

    auto token = std::make_shared<int>();
    client.enqueueCommand(new ProbeCommand(token));
    client.authenticate(u"alice"_s, u"secret"_s); // from here on commands are held back
    client.enqueueCommand(new ProbeCommand(token));
    QCOMPARE(queues.at(0)->size() + queues.at(1)->size(), 3);
    QCOMPARE(token.use_count(), 3);

    client.clearPendingCommands();
    QCOMPARE(token.use_count(), 1);
    QVERIFY(queues.at(0)->isEmpty());
    QVERIFY(queues.at(1)->isEmpty());
    QCOMPARE(first.count(), 1);
    QCOMPARE(second.count(), 1);
    QVERIFY(empty.waitForCount(1));
    client.clearPendingCommands();
    QCOMPARE(first.count(), 2);
    QCOMPARE(second.count(), 2);
}

void tst_SClientBase::disconnectClosesTheConnection()
{
    RawServer server(answers({}));
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.inThread([&] { session.client->disconnect(); });
    QVERIFY(session.ends());
    QCOMPARE(session.finished.value(), SimpleWorkerError::InterruptRequested);
    QVERIFY(server.finishes());
}

void tst_SClientBase::disconnectFromAnotherThreadIsDoneByTheWorker()
{
    RawServer server(answers({}));
    ClientSession session(server.port());
    QVERIFY(session.open());
    std::atomic<QThread *> closedBy = nullptr;
    connect(
        session.client->socket(), &STcpSocket::disconnected, session.client->socket(),
        [&] { closedBy = QThread::currentThread(); }, Qt::DirectConnection);
    const QThread *const worker = session.client->thread();
    session.client->disconnect();
    QVERIFY(session.ends());
    QCOMPARE(closedBy, worker);
    QCOMPARE(session.finished.value(), SimpleWorkerError::InterruptRequested);
    QVERIFY(server.finishes());
}

void tst_SClientBase::disconnectDuringAnExchangeComesAfterIt()
{
    QSemaphore isAsked;
    QSemaphore mayAnswer;
    RawServer server([&](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.readCommand();
        isAsked.release();
        mayAnswer.acquire();
        peer.send(RawBytes::ack() + RawBytes::frame(RawBytes::text(u"alice")) + RawBytes::ack());
        peer.readToEnd();
    });
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->whoAmI();
    const bool asked = isAsked.tryAcquire(1, 10000);
    session.client->disconnect();
    mayAnswer.release();
    QVERIFY(asked);
    QVERIFY(session.ends());
    QCOMPARE(session.exchanges(), QList<QByteArray>({"wami+"}));
    QVERIFY(server.finishes());
}

void tst_SClientBase::disconnectWithoutSocketDoesNothing()
{
    TestClient client(1);
    QSignalSpy finished(&client, &SClientBase::finished);
    client.disconnect();
    QCOMPARE(finished.count(), 0);
}

// In the thread of the test, which does not end with the client and delete the socket.
void tst_SClientBase::closesTheConnectionWhenItHasFinished()
{
    RawServer server(answerAndStay(RawBytes::nack()));
    TestClient client(server.port());
    SignalLog finished(&client, &SClientBase::finished);
    client.init();
    QCOMPARE(client.state(), QAbstractSocket::ConnectedState);
    client.whoAmI();
    QTRY_COMPARE(client.state(), QAbstractSocket::UnconnectedState);
    QVERIFY(!client.isNull());
    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.value(), SimpleWorkerError::WorkError);
    QVERIFY(server.finishes());
}

void tst_SClientBase::lossOfTheConnectionEndsTheIdleClient()
{
    RawServer server([](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.answer(RawBytes::frame(RawBytes::text(u"x")));
        peer.vanish();
    });
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->serverName();
    QVERIFY(session.ends());
    QCOMPARE(session.exchanges(), QList<QByteArray>({"srvn+"}));
    QCOMPARE(session.finished.value(), SimpleWorkerError::InterruptRequested);
}

void tst_SClientBase::interruptionEndsTheIdleClient()
{
    RawServer server(answers({}));
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.controller.interruptWorkers();
    QVERIFY(session.ends());
    QCOMPARE(session.finished.value(), SimpleWorkerError::InterruptRequested);
    QVERIFY(server.finishes());
}

QTEST_GUILESS_MAIN(tst_SClientBase)
#include "tst_sclientbase.moc"
