// SPDX-License-Identifier: MIT
// The login of a client and how it adapts to the server behind it.
#include "clientsession.h"

#include <brixlib/foundation/sdatastream.h>
#include <brixsec/ssecurecredential.h>
#include <brixsec/ssecurestring.h>

#include <QtCore/QSemaphore>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

using Command = RawHandshake::Command;

const QString kPassword = u"grün 7"_s;

//! What each of the commands of a whole login looks like, byte for byte.
QByteArray loginBytes()
{
    // The answer is SHA-512 of the hash of the password and the text of the greeting's uuid.
    return RawBytes::authentication(
        u"alice"_s, "33f2cdcc874c4d3de1d801aa96401e25194b734ca9530fbfd43a06620ba2178e"
                    "1f5e93449dde661c2025b81e8eef75131fe21e2a7094822f32ec78a6385fd97a");
}

QByteArray listBytes(quint32 version = 0x00020000)
{
    return RawBytes::command("cmdl", {}, version);
}

QByteArray streamVersionBytes(quint32 version = 0x00010000)
{
    return RawBytes::command("strv", RawBytes::i32(20), version);
}

QByteArray probeBytes(int streamVersion, quint32 version = 0x00010100)
{
    return RawBytes::command("prob", RawBytes::i32(streamVersion), version);
}

QList<Command> commandsWith(const Command &one)
{
    return RawHandshake::baseCommands() + QList<Command>{one};
}

RawHandshake handshakeWith(const Command &one)
{
    RawHandshake handshake;
    handshake.commands = commandsWith(one);
    return handshake;
}

//! Logs the client in and then completes so many commands that have no reply of their own.
RawServer::Script serve(const RawHandshake &handshake, int commands = 0)
{
    return [handshake, commands](RawConnection &peer) {
        handshake(peer);
        for (int i = 0; i < commands; ++i)
            peer.answer();
        peer.readToEnd();
    };
}

//! Ends the session and gives all that the server has read.
QByteArray received(RawServer &server, ClientSession &session)
{
    session.inThread([&] { session.client->disconnect(); });
    return server.received();
}

} // namespace

class tst_SClientHandshake : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void wholeLoginByteForByte();
    void everyFormOfPasswordGivesTheSameBytes_data();
    void everyFormOfPasswordGivesTheSameBytes();
    void twoGreetingsGiveTwoAnswers();
    void streamVersionRisesBehindItsExchange();
    void oneStreamVersionForEachConnection();
    void takesTheSmallerStreamVersion_data();
    void takesTheSmallerStreamVersion();
    void refusesAStreamVersionBelowSeven_data();
    void refusesAStreamVersionBelowSeven();

    void commandsAfterAuthenticateWaitForTheList();
    void heldCommandsGoOutAtTheServersVersion();
    void heldCommandThatTheServerLacksIsDropped();
    void orderOfHeldCommandsIsKept();
    void commandQueuedDuringTheReleaseStaysBehind();
    void handshakeCommandsAreNotHeld();
    void loginBeforeTheGreetingIsToldInTheDebugLog();
    void loginOnConnectedPasses();
    void failedLoginKeepsHeldCommands();
    void failedLoginHoldsNothingMore();
    void laterLoginSendsHeldCommands();
    void statusBeyondTheKnownOnesIsNoLogin();
    void keepsTheStatusOfTheLastLogin();
    void cutStatusWordIsNoLoginAndEndsTheSession();

    void commandThatTheServerLacksIsUnavailable();
    void linkTestOnAServerWithoutItIsUnavailable();
    void versionIsNeverRaised();
    void listWithoutVersionsMakesEveryVersionZero();
    void missingVersionsAreZero();
    void emptyListLeavesEverythingAvailable();
    void oldServerWithoutStreamVersionKeepsTheSession();
    void listWithVersionsComesFirst();
    void laterCommandListNegotiatesAgain();
    void secondLoginAsksForNoListAndHoldsNothing();
    void commandsFromManyThreadsAllArrive();
};

void tst_SClientHandshake::wholeLoginByteForByte()
{
    RawServer server(serve(handshakeWith({"prob", 0x00010100}), 1));
    ClientSession session(server.port());
    SignalLog status(session.client, &SClientBase::authenticationResult);
    QVERIFY(session.open());
    session.client->authenticate(u"ALICE"_s, kPassword);
    session.client->enqueueCommand(new ProbeCommand);
    QVERIFY(session.waitForExchanges(4));
    QCOMPARE(session.exchanges(), QList<QByteArray>({"auth+", "cmdl+", "strv+", "prob+"}));
    QCOMPARE(status.value(), AuthenticationStatus::Authenticated);

    const QByteArray bytes = received(server, session);
    QCOMPARE(bytes, loginBytes() + listBytes() + streamVersionBytes() + probeBytes(20));
    // The start once more without any help: length, header, the name in UTF-16.
    QVERIFY(bytes.startsWith(QByteArray::fromHex("00000126"
                                                 "73636d64"
                                                 "00010000"
                                                 "73636d69"
                                                 "00010000"
                                                 "61757468"
                                                 "0000000a"
                                                 "0061006c006900630065"
                                                 "00000100"
                                                 "00330033006600320063006400630063")));
    QVERIFY(bytes.contains(QByteArray::fromHex("00000014"
                                               "73636d64"
                                               "00020000"
                                               "73636d69"
                                               "00010000"
                                               "636d646c"
                                               "00000018"
                                               "73636d64"
                                               "00010000"
                                               "73636d69"
                                               "00010000"
                                               "73747276"
                                               "00000014")));
}

void tst_SClientHandshake::everyFormOfPasswordGivesTheSameBytes_data()
{
    QTest::addColumn<int>("form");
    QTest::newRow("text") << 0;
    QTest::newRow("secure text") << 1;
    QTest::newRow("credential") << 2;
}

void tst_SClientHandshake::everyFormOfPasswordGivesTheSameBytes()
{
    QFETCH(int, form);
    RawServer server(serve({}));
    ClientSession session(server.port());
    QVERIFY(session.open());
    const Security::SSecureString secret(kPassword);
    if (form == 0)
        session.client->authenticate(u"Alice"_s, kPassword);
    else if (form == 1)
        session.client->authenticate(u"Alice"_s, secret);
    else
        session.client->authenticate(Security::SSecureCredential(u"Alice"_s, secret));
    QVERIFY(session.waitForExchanges(3));
    QCOMPARE(received(server, session), loginBytes() + listBytes() + streamVersionBytes());
    QCOMPARE(secret.toInsecureString(), kPassword);
}

void tst_SClientHandshake::twoGreetingsGiveTwoAnswers()
{
    RawHandshake other;
    other.greeting = QByteArray(16, '\x11');
    RawServer server(serve(other));
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->authenticate(u"alice"_s, kPassword);
    QVERIFY(session.waitForExchanges(1));
    const QByteArray bytes = received(server, session);
    QVERIFY(bytes.startsWith(RawBytes::authentication(
        u"alice"_s, RawBytes::challengeAnswer(kPassword, other.greeting))));
    QVERIFY(!bytes.startsWith(loginBytes()));
}

void tst_SClientHandshake::streamVersionRisesBehindItsExchange()
{
    RawServer server([](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.answer(); // a probe before the login
        peer.answer(RawBytes::u32(1));
        peer.answer(RawBytes::frame(RawHandshake::listBody(commandsWith({"prob", 0x00010100}))));
        peer.answer(RawBytes::u32(20));
        peer.answer(); // the probe after it
        peer.readToEnd();
    });
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->enqueueCommand(new ProbeCommand);
    session.client->authenticate(u"alice"_s, kPassword);
    session.client->enqueueCommand(new ProbeCommand);
    QVERIFY(session.waitForExchanges(5));
    QCOMPARE(received(server, session),
             probeBytes(17) + loginBytes() + listBytes() + streamVersionBytes() + probeBytes(20));
}

void tst_SClientHandshake::oneStreamVersionForEachConnection()
{
    RawServer first(serve({}));
    RawServer second(serve({}, 0));
    ClientSession one(first.port());
    ClientSession two(second.port());
    QVERIFY(one.open());
    QVERIFY(two.open());
    one.client->authenticate(u"alice"_s, kPassword);
    QVERIFY(one.waitForExchanges(3));
    int ofOne = 0;
    int ofTwo = 0;
    one.inThread([&] { ofOne = SDataStream::defaultVersion(); });
    two.inThread([&] { ofTwo = SDataStream::defaultVersion(); });
    QCOMPARE(ofOne, 20);
    QCOMPARE(ofTwo, 17);
    QCOMPARE(int(SDataStream::defaultVersion()), 17);
}

void tst_SClientHandshake::takesTheSmallerStreamVersion_data()
{
    QTest::addColumn<quint32>("theirs");
    QTest::addColumn<int>("agreed");
    QTest::newRow("the lowest") << 7u << 7;
    QTest::newRow("an old one") << 15u << 15;
    QTest::newRow("the same") << 20u << 20;
    QTest::newRow("a newer one") << 21u << 20;
    QTest::newRow("beyond every int") << 0xFFFFFFFFu << 20;
}

void tst_SClientHandshake::takesTheSmallerStreamVersion()
{
    QFETCH(quint32, theirs);
    QFETCH(int, agreed);
    RawHandshake handshake = handshakeWith({"prob", 0x00010100});
    handshake.streamVersion = theirs;
    RawServer server(serve(handshake, 1));
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->authenticate(u"alice"_s, kPassword);
    session.client->enqueueCommand(new ProbeCommand);
    QVERIFY(session.waitForExchanges(4));
    QVERIFY(received(server, session).endsWith(probeBytes(agreed)));
}

void tst_SClientHandshake::refusesAStreamVersionBelowSeven_data()
{
    QTest::addColumn<quint32>("theirs");
    QTest::newRow("6") << 6u;
    QTest::newRow("0") << 0u;
}

void tst_SClientHandshake::refusesAStreamVersionBelowSeven()
{
    QFETCH(quint32, theirs);
    RawHandshake handshake;
    handshake.streamVersion = theirs;
    RawServer server(serve(handshake));
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->authenticate(u"alice"_s, kPassword);
    QVERIFY(session.ends());
    QCOMPARE(session.exchanges(), QList<QByteArray>({"auth+", "cmdl+", "strv-"}));
    QCOMPARE(session.finished.value(0), SimpleWorkerError::WorkError);
}

void tst_SClientHandshake::commandsAfterAuthenticateWaitForTheList()
{
    QSemaphore listAsked;
    QSemaphore goOn;
    RawServer server([&](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.answer(RawBytes::u32(1));
        peer.readCommand();
        listAsked.release();
        (void)goOn.tryAcquire(1, RawConnection::kWaitMs);
        peer.send(RawBytes::ack() +
                  RawBytes::frame(RawHandshake::listBody(RawHandshake::baseCommands())) +
                  RawBytes::ack());
        peer.answer(RawBytes::u32(20));
        peer.answer(RawBytes::frame(RawBytes::text(u"alice")));
        peer.readToEnd();
    });
    ClientSession session(server.port());
    SignalLog enqueued(session.client, &SClientBase::commandEnqueue);
    QVERIFY(session.open());
    session.client->authenticate(u"alice"_s, kPassword);
    session.client->whoAmI();
    QVERIFY(listAsked.tryAcquire(1, RawConnection::kWaitMs));
    QTRY_COMPARE(session.exchanges(), QList<QByteArray>({"auth+"}));
    QCOMPARE(enqueued.count(), 2); // the login and the list, but not what was asked for
    goOn.release();
    QVERIFY(session.waitForExchanges(4));
    QCOMPARE(session.exchanges(), QList<QByteArray>({"auth+", "cmdl+", "strv+", "wami+"}));
    QCOMPARE(received(server, session),
             loginBytes() + listBytes() + streamVersionBytes() + RawBytes::command("wami"));
}

void tst_SClientHandshake::heldCommandsGoOutAtTheServersVersion()
{
    RawHandshake handshake;
    handshake.commands = {{"auth"}, {"cmdl"}, {"strv", 0x00000300}, {"prob", 0x00000200}};
    RawServer server(serve(handshake, 1));
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->authenticate(u"alice"_s, kPassword);
    session.client->enqueueCommand(new ProbeCommand);
    QVERIFY(session.waitForExchanges(4));
    QCOMPARE(received(server, session),
             loginBytes() + listBytes() + streamVersionBytes(0x300) + probeBytes(20, 0x200));
}

void tst_SClientHandshake::heldCommandThatTheServerLacksIsDropped()
{
    RawServer server(serve({}));
    ClientSession session(server.port());
    SignalLog unavailable(session.client, &SClientBase::unavailableCommand);
    auto token = std::make_shared<int>();
    const std::weak_ptr<int> life = token;
    QVERIFY(session.open());
    // In the worker's thread, so that the reply cannot arrive in between.
    session.inThread([&] {
        session.client->authenticate(u"alice"_s, kPassword);
        session.client->enqueueCommand(new ProbeCommand(std::move(token)));
    });
    QVERIFY(unavailable.waitForCount(1));
    QCOMPARE(unavailable.value(), SCommandId(Wire::word("prob")));
    QVERIFY(session.waitForExchanges(3));
    QCOMPARE(received(server, session), loginBytes() + listBytes() + streamVersionBytes());
    QVERIFY(life.expired());
}

void tst_SClientHandshake::orderOfHeldCommandsIsKept()
{
    constexpr int kCount = 50;
    QList<Command> commands = commandsWith({"prob", 0x00010100});
    RawHandshake handshake;
    handshake.commands = commands;
    const QByteArray name = RawBytes::frame(RawBytes::text(u"x"));
    RawServer server([&](RawConnection &peer) {
        handshake(peer);
        for (int i = 0; i < kCount; ++i)
            peer.answer(name);
        peer.readToEnd();
    });
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->authenticate(u"alice"_s, kPassword);
    QByteArray expected = loginBytes() + listBytes() + streamVersionBytes();
    // Some of them are queued before the list is there, some while the held ones are released.
    for (int i = 0; i < kCount; ++i) {
        if (i % 3 == 0)
            session.client->whoAmI();
        else
            session.client->serverName();
        expected += RawBytes::command(i % 3 == 0 ? "wami" : "srvn");
        if (i > kCount / 2)
            QThread::yieldCurrentThread();
    }
    QVERIFY(session.waitForExchanges(3 + kCount));
    QCOMPARE(received(server, session), expected);
}

void tst_SClientHandshake::commandQueuedDuringTheReleaseStaysBehind()
{
    const QByteArray name = RawBytes::frame(RawBytes::text(u"x"));
    const RawHandshake handshake;
    QSemaphore held;
    RawServer server([&](RawConnection &peer) {
        peer.send(handshake.greeting);
        peer.answer(RawBytes::u32(handshake.status));
        // The list releases what is held, so that it waits for the last of it.
        (void)held.tryAcquire(1, RawConnection::kWaitMs);
        peer.answer(RawBytes::frame(RawHandshake::listBody(handshake.commands)));
        peer.answer(RawBytes::u32(handshake.streamVersion));
        peer.answer(name);
        peer.answer(name);
        peer.readToEnd();
    });
    ClientSession session(server.port());
    TestClient *client = session.client;
    // In the worker's thread, between the first held command and the second.
    QObject::connect(client, &SClientBase::unavailableCommand, client,
                     [client] { client->whoAmI(); });
    QVERIFY(session.open());
    client->authenticate(u"alice"_s, kPassword);
    client->enqueueCommand(new ProbeCommand); // the server lacks it
    client->serverName();
    held.release();
    QVERIFY(session.waitForExchanges(5));
    QCOMPARE(session.exchanges().sliced(3), QList<QByteArray>({"srvn+", "wami+"}));
}

void tst_SClientHandshake::handshakeCommandsAreNotHeld()
{
    const QByteArray list = RawBytes::frame(RawHandshake::listBody(RawHandshake::baseCommands()));
    RawServer server([&](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.answer(RawBytes::u32(0)); // refused
        peer.answer(RawBytes::u32(1));
        peer.answer(list); // asked for by the caller
        peer.answer(list); // asked for by the login
        peer.answer(RawBytes::u32(20));
        peer.answer(RawBytes::u32(20));
        peer.readToEnd();
    });
    ClientSession session(server.port());
    session.client->setTimeout(2000);
    QVERIFY(session.open());
    session.client->authenticate(u"alice"_s, kPassword);
    session.client->authenticate(u"alice"_s, kPassword);
    session.client->commandList();
    QVERIFY(session.waitForExchanges(6));
    QCOMPARE(session.exchanges(),
             QList<QByteArray>({"auth+", "auth+", "cmdl+", "cmdl+", "strv+", "strv+"}));
}

void tst_SClientHandshake::loginBeforeTheGreetingIsToldInTheDebugLog()
{
    RawHandshake refusing;
    refusing.status = 0;
    RawServer server(serve(refusing));
    ClientSession session(server.port());
    SignalLog logins(session.client, &SClientBase::authenticationResult);
    QTest::ignoreMessage(QtDebugMsg, "SClientBase::authenticate: called before connected(), "
                                     "the login will fail");
    session.client->authenticate(u"alice"_s, kPassword);
    QVERIFY(session.open());
    QVERIFY(logins.waitForCount(1));
    QCOMPARE(logins.value(), AuthenticationStatus::NotAuthenticated);
    // Hashed without a greeting, which no server takes.
    QCOMPARE(received(server, session),
             RawBytes::authentication(u"alice",
                                      RawBytes::challengeAnswer(kPassword, QByteArray(16, '\0'))));
}

// The example of the header.
void tst_SClientHandshake::loginOnConnectedPasses()
{
    RawServer server(serve(handshakeWith({"prob", 0x00010100}), 1));
    SClientController controller;
    auto *client = new TestClient(server.port());
    SignalLog results(client, &SClientBase::commandResult);
    connect(client, &SClientBase::connected, client, [client] {
        client->authenticate(u"alice"_s, kPassword);
        client->enqueueCommand(new ProbeCommand);
    });
    controller.connectClientAsync(client, true);
    const auto isProbed = [&] { return results.value<0>() == ProbeCommand().id(); };
    QVERIFY(QTest::qWaitFor(isProbed, 10000));
    QVERIFY(results.value<1>());
}

void tst_SClientHandshake::failedLoginKeepsHeldCommands()
{
    RawServer server([](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.answer(RawBytes::u32(0));
        peer.readToEnd();
    });
    ClientSession session(server.port());
    SignalLog status(session.client, &SClientBase::authenticationResult);
    SignalLog unavailable(session.client, &SClientBase::unavailableCommand);
    auto token = std::make_shared<int>();
    const std::weak_ptr<int> life = token;
    QVERIFY(session.open());
    // In the worker's thread, so that the reply cannot arrive in between.
    session.inThread([&] {
        session.client->authenticate(u"alice"_s, kPassword);
        session.client->enqueueCommand(new ProbeCommand(std::move(token)));
    });
    QVERIFY(session.waitForExchanges(1));
    QCOMPARE(session.exchanges(), QList<QByteArray>({"auth+"}));
    QCOMPARE(status.value(), AuthenticationStatus::NotAuthenticated);
    // The session goes on; what was held is neither sent nor deleted.
    QVERIFY(!life.expired());
    QCOMPARE(session.finished.count(), 0);
    QCOMPARE(unavailable.count(), 0);
    QCOMPARE(received(server, session), loginBytes());
    QVERIFY(session.ends());
    QVERIFY(life.expired());
}

void tst_SClientHandshake::failedLoginHoldsNothingMore()
{
    RawServer server([](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.answer(RawBytes::u32(0));
        peer.answer();
        peer.readToEnd();
    });
    ClientSession session(server.port());
    QVERIFY(session.open());
    // In the worker's thread, so that the reply cannot arrive in between.
    session.inThread([&] {
        session.client->authenticate(u"alice"_s, kPassword);
        session.client->whoAmI(); // held for good
    });
    QVERIFY(session.waitForExchanges(1));
    session.client->enqueueCommand(new ProbeCommand);
    QVERIFY(session.waitForExchanges(2));
    QCOMPARE(session.exchanges(), QList<QByteArray>({"auth+", "prob+"}));
    QCOMPARE(received(server, session), loginBytes() + probeBytes(17));
}

void tst_SClientHandshake::laterLoginSendsHeldCommands()
{
    RawServer server([](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.answer(RawBytes::u32(0));
        peer.answer(RawBytes::u32(1));
        peer.answer(RawBytes::frame(RawHandshake::listBody(commandsWith({"prob", 0x00010100}))));
        peer.answer(RawBytes::u32(20));
        peer.answer();
        peer.readToEnd();
    });
    ClientSession session(server.port());
    QVERIFY(session.open());
    // In the worker's thread, so that the reply cannot arrive in between.
    session.inThread([&] {
        session.client->authenticate(u"alice"_s, kPassword);
        session.client->enqueueCommand(new ProbeCommand);
    });
    QVERIFY(session.waitForExchanges(1));
    session.client->authenticate(u"alice"_s, kPassword);
    QVERIFY(session.waitForExchanges(5));
    QCOMPARE(session.exchanges(), QList<QByteArray>({"auth+", "auth+", "cmdl+", "strv+", "prob+"}));
    QCOMPARE(received(server, session),
             loginBytes() + loginBytes() + listBytes() + streamVersionBytes() + probeBytes(20));
}

void tst_SClientHandshake::statusBeyondTheKnownOnesIsNoLogin()
{
    RawHandshake handshake;
    handshake.status = 2;
    RawServer server(serve(handshake));
    ClientSession session(server.port());
    SignalLog status(session.client, &SClientBase::authenticationResult);
    QVERIFY(session.open());
    session.client->authenticate(u"alice"_s, kPassword);
    QVERIFY(session.waitForExchanges(1));
    QCOMPARE(quint32(status.value()), 2u);
    QCOMPARE(received(server, session), loginBytes());
}

void tst_SClientHandshake::keepsTheStatusOfTheLastLogin()
{
    RawServer server([](RawConnection &peer) {
        RawHandshake()(peer);
        peer.answer(RawBytes::u32(0));
        peer.readToEnd();
    });
    ClientSession session(server.port());
    const auto status = [&session] {
        AuthenticationStatus value = {};
        session.inThread([&] { value = session.client->authenticationStatus(); });
        return value;
    };
    QVERIFY(session.open());
    QCOMPARE(status(), AuthenticationStatus::NotAuthenticated);
    session.client->authenticate(u"alice"_s, kPassword);
    QVERIFY(session.waitForExchanges(3));
    QCOMPARE(status(), AuthenticationStatus::Authenticated);
    session.client->authenticate(u"alice"_s, kPassword);
    QVERIFY(session.waitForExchanges(4));
    QCOMPARE(status(), AuthenticationStatus::NotAuthenticated);
}

void tst_SClientHandshake::cutStatusWordIsNoLoginAndEndsTheSession()
{
    RawServer server([](RawConnection &peer) {
        RawHandshake()(peer);
        peer.readCommand();
        peer.send(RawBytes::ack() + QByteArray::fromHex("000000"));
    });
    ClientSession session(server.port());
    QList<AuthenticationStatus> told;
    QList<AuthenticationStatus> kept;
    TestClient *client = session.client;
    QObject::connect(client, &SClientBase::authenticationResult, client,
                     [&](AuthenticationStatus status) {
                         told.append(status);
                         kept.append(client->authenticationStatus());
                     });
    QVERIFY(session.open());
    session.client->authenticate(u"alice"_s, kPassword);
    QVERIFY(session.waitForExchanges(3));
    session.client->authenticate(u"alice"_s, kPassword);
    QVERIFY(session.ends());
    const QList<AuthenticationStatus> expected = {AuthenticationStatus::Authenticated,
                                                  AuthenticationStatus::NotAuthenticated};
    QCOMPARE(told, expected);
    QCOMPARE(kept, expected);
    QCOMPARE(session.exchanges(), QList<QByteArray>({"auth+", "cmdl+", "strv+", "auth-"}));
}

void tst_SClientHandshake::commandThatTheServerLacksIsUnavailable()
{
    RawHandshake handshake;
    handshake.commands = {{"auth"}, {"cmdl", 0x00020000}, {"strv"}, {"wami"}};
    RawServer server(serve(handshake));
    ClientSession session(server.port());
    SignalLog unavailable(session.client, &SClientBase::unavailableCommand);
    QVERIFY(session.open());
    session.client->authenticate(u"alice"_s, kPassword);
    QVERIFY(session.waitForExchanges(3));
    QVERIFY(session.client->isCommandAvailable(CommandIds::kWhoAmI));
    QVERIFY(!session.client->isCommandAvailable(CommandIds::kServerName));
    QVERIFY(!session.client->isCommandAvailable(SCommandId()));

    session.client->serverName();
    QVERIFY(unavailable.waitForCount(1));
    QCOMPARE(unavailable.value(), CommandIds::kServerName);
    // The session goes on.
    QCOMPARE(session.finished.count(), 0);
    QCOMPARE(received(server, session), loginBytes() + listBytes() + streamVersionBytes());
}

void tst_SClientHandshake::linkTestOnAServerWithoutItIsUnavailable()
{
    RawHandshake handshake;
    handshake.commands.removeLast();
    RawServer server(serve(handshake));
    ClientSession session(server.port());
    SignalLog unavailable(session.client, &SClientBase::unavailableCommand);
    QVERIFY(session.open());
    session.client->authenticate(u"alice"_s, kPassword);
    QVERIFY(session.waitForExchanges(3));
    session.client->linkTest(1, 1);
    QVERIFY(unavailable.waitForCount(1));
    QCOMPARE(unavailable.value(), CommandIds::kLinkTest);
}

void tst_SClientHandshake::versionIsNeverRaised()
{
    RawServer server(serve(handshakeWith({"prob", 0x00090000}), 1));
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->authenticate(u"alice"_s, kPassword);
    session.client->enqueueCommand(new ProbeCommand);
    QVERIFY(session.waitForExchanges(4));
    QCOMPARE(session.client->commandVersion(Wire::word("prob")), 0x00090000);
    ProbeCommand probe;
    QCOMPARE(session.client->connectionCommandVersion(&probe), 0x00010100);
    probe.setVersion(0x000A0000);
    QCOMPARE(session.client->connectionCommandVersion(&probe), 0x00090000);
    QVERIFY(received(server, session).endsWith(probeBytes(20)));
}

void tst_SClientHandshake::listWithoutVersionsMakesEveryVersionZero()
{
    RawHandshake handshake = handshakeWith({"prob"});
    handshake.withVersions = false;
    RawServer server(serve(handshake, 1));
    ClientSession session(server.port());
    SignalLog list(session.client,
                   qOverload<const QHash<SCommandId, qint32> &>(&SClientBase::commandListResult));
    QVERIFY(session.open());
    session.client->authenticate(u"alice"_s, kPassword);
    session.client->enqueueCommand(new ProbeCommand);
    QVERIFY(session.waitForExchanges(4));
    QCOMPARE(list.value().size(), handshake.commands.size());
    QCOMPARE(list.value().values(), QList<qint32>(handshake.commands.size(), 0));
    QCOMPARE(session.client->commandVersion(Wire::word("prob")), 0);
    ProbeCommand probe;
    QCOMPARE(session.client->connectionCommandVersion(&probe), 0);
    QCOMPARE(received(server, session),
             loginBytes() + listBytes() + streamVersionBytes(0) + probeBytes(20, 0));
}

void tst_SClientHandshake::missingVersionsAreZero()
{
    using namespace RawBytes;
    RawServer server([](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.answer(frame(i32(2) + idRecord("strv") + idRecord("wami") + i32(1) + i32(0x500)));
        peer.answer(u32(20));
        peer.readToEnd();
    });
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->commandList();
    QVERIFY(session.waitForExchanges(2));
    QCOMPARE(session.client->commandVersion(CommandIds::kStreamVersion), 0x500);
    QCOMPARE(session.client->commandVersion(CommandIds::kWhoAmI), 0);
    QVERIFY(session.client->isCommandAvailable(CommandIds::kWhoAmI));
}

void tst_SClientHandshake::emptyListLeavesEverythingAvailable()
{
    RawHandshake handshake;
    handshake.commands.clear();
    RawServer server(serve(handshake, 1));
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->authenticate(u"alice"_s, kPassword);
    session.client->enqueueCommand(new ProbeCommand);
    QVERIFY(session.waitForExchanges(4));
    QVERIFY(session.client->isCommandAvailable(CommandIds::kWhoAmI));
    QVERIFY(received(server, session).endsWith(streamVersionBytes() + probeBytes(20)));
}

// Such a server is spoken to at the version that every connection starts with.
void tst_SClientHandshake::oldServerWithoutStreamVersionKeepsTheSession()
{
    RawServer server([](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.answer(RawBytes::u32(1));
        peer.answer(RawBytes::frame(
            RawHandshake::listBody({{"auth"}, {"cmdl"}, {"prob", 0x00010000}}, false)));
        peer.answer();
        peer.readToEnd();
    });
    ClientSession session(server.port());
    SignalLog unavailable(session.client, &SClientBase::unavailableCommand);
    QVERIFY(session.open());
    session.client->authenticate(u"alice"_s, kPassword);
    session.client->enqueueCommand(new ProbeCommand);
    QVERIFY(session.waitForExchanges(3));
    QCOMPARE(session.exchanges(), QList<QByteArray>({"auth+", "cmdl+", "prob+"}));
    QCOMPARE(unavailable.value(), CommandIds::kStreamVersion);
    QCOMPARE(received(server, session), loginBytes() + listBytes() + probeBytes(17, 0));
}

void tst_SClientHandshake::listWithVersionsComesFirst()
{
    RawServer server([](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.answer(RawBytes::frame(RawHandshake::listBody({{"wami", 5}, {"strv", 6}})));
        peer.answer(RawBytes::u32(20));
        peer.readToEnd();
    });
    ClientSession session(server.port());
    QObject context;
    QStringList order;
    QObject::connect(
        session.client, qOverload<const QList<SCommandId> &>(&SClientBase::commandListResult),
        &context, [&](const QList<SCommandId> &list) {
            order.append(u"list"_s);
            QCOMPARE(list, QList<SCommandId>({CommandIds::kWhoAmI, CommandIds::kStreamVersion}));
        });
    QObject::connect(session.client,
                     qOverload<const QHash<SCommandId, qint32> &>(&SClientBase::commandListResult),
                     &context, [&](const QHash<SCommandId, qint32> &hash) {
                         order.append(u"hash"_s);
                         QCOMPARE(hash,
                                  (QHash<SCommandId, qint32>{{CommandIds::kWhoAmI, 5},
                                                             {CommandIds::kStreamVersion, 6}}));
                     });
    QVERIFY(session.open());
    session.client->commandList();
    QVERIFY(session.waitForExchanges(2));
    QCOMPARE(order, QStringList({u"hash"_s, u"list"_s}));
}

void tst_SClientHandshake::laterCommandListNegotiatesAgain()
{
    const QList<Command> commands = commandsWith({"prob", 0x00010100});
    RawHandshake handshake;
    handshake.commands = commands;
    RawServer server([handshake, commands](RawConnection &peer) {
        handshake(peer);
        peer.answer(RawBytes::frame(RawHandshake::listBody(commands)));
        peer.answer(RawBytes::u32(18));
        peer.answer();
        peer.readToEnd();
    });
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->authenticate(u"alice"_s, kPassword);
    QVERIFY(session.waitForExchanges(3));
    session.client->commandList();
    QVERIFY(session.waitForExchanges(5));
    session.client->enqueueCommand(new ProbeCommand);
    QVERIFY(session.waitForExchanges(6));
    QCOMPARE(received(server, session), loginBytes() + listBytes() + streamVersionBytes() +
                                            listBytes() + streamVersionBytes() + probeBytes(18));
}

void tst_SClientHandshake::secondLoginAsksForNoListAndHoldsNothing()
{
    RawServer server([](RawConnection &peer) {
        RawHandshake()(peer);
        peer.answer(RawBytes::u32(0));
        peer.answer(RawBytes::frame(RawBytes::text(u"")));
        peer.answer(RawBytes::u32(1));
        peer.answer(RawBytes::frame(RawBytes::text(u"alice")));
        peer.readToEnd();
    });
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->authenticate(u"alice"_s, kPassword);
    QVERIFY(session.waitForExchanges(3));
    session.client->authenticate(u"alice"_s, kPassword);
    session.client->whoAmI();
    session.client->authenticate(u"alice"_s, kPassword);
    session.client->whoAmI();
    QVERIFY(session.waitForExchanges(7));
    QCOMPARE(session.exchanges().sliced(3),
             QList<QByteArray>({"auth+", "wami+", "auth+", "wami+"}));
    const QByteArray loginAndQuestion = loginBytes() + RawBytes::command("wami");
    QCOMPARE(received(server, session), loginBytes() + listBytes() + streamVersionBytes() +
                                            loginAndQuestion + loginAndQuestion);
}

void tst_SClientHandshake::commandsFromManyThreadsAllArrive()
{
    constexpr int kThreads = 4;
    constexpr int kEach = 100;
    RawServer server(serve(handshakeWith({"prob", 0x00010100}), kThreads * kEach));
    ClientSession session(server.port());
    QVERIFY(session.open());
    session.client->authenticate(u"alice"_s, kPassword);

    // They race with the list's arrival; none may stay behind among the held ones.
    SClientBase *client = session.client;
    QList<QThread *> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.append(QThread::create([client] {
            for (int k = 0; k < kEach; ++k)
                static_cast<TestClient *>(client)->enqueueCommand(new ProbeCommand);
        }));
        threads.last()->start();
    }
    for (QThread *thread : threads) {
        QVERIFY(thread->wait(10000));
        delete thread;
    }
    QVERIFY(session.waitForExchanges(3 + kThreads * kEach));
    QCOMPARE(received(server, session).count("prob"), kThreads * kEach);
}

QTEST_GUILESS_MAIN(tst_SClientHandshake)
#include "tst_sclienthandshake.moc"
