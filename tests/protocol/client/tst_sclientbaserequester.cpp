// SPDX-License-Identifier: MIT
#include <protocol/clientsession.h>

#include <brixlib/protocol/client/sclientbaserequester.h>
#include <brixsec/ssecurecredential.h>
#include <brixsec/ssecurestring.h>

#include <QtNetwork/QHostInfo>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_SClientBaseRequester : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void queriesReachTheClient();
    void requestsReachTheServer();
    void everyFormOfAuthenticateReachesTheServer_data();
    void everyFormOfAuthenticateReachesTheServer();
    void clearsPendingCommands();
    void disconnectsTheClient();
    void goneClientGivesDefaults();
};

void tst_SClientBaseRequester::queriesReachTheClient()
{
    RawServer server([](RawConnection &peer) {
        RawHandshake()(peer);
        peer.readToEnd();
    });
    ClientSession session(server.port());
    SClientBaseRequester requester(session.client);
    SignalLog errors(&requester, &SClientBaseRequester::invokeError);
    QCOMPARE(requester.state(), QAbstractSocket::UnconnectedState); // still in this thread
    QVERIFY(session.open());
    QCOMPARE(requester.worker(), session.client);
    QCOMPARE(requester.state(), QAbstractSocket::ConnectedState);
    QCOMPARE(requester.address(), QHostAddress(QHostAddress::LocalHost));
    QCOMPARE(requester.port(), server.port());
    QCOMPARE(requester.host(false), QString());
    QCOMPARE(requester.host(true), QHostInfo::fromName(u"127.0.0.1"_s).hostName());
    QCOMPARE(requester.preferIPv4(), false);
    QCOMPARE(requester.timeout(), 10000);
    QVERIFY(requester.isCommandAvailable(Wire::word("none")));
    requester.authenticate(u"alice"_s, u"secret"_s);
    QVERIFY(session.waitForExchanges(3));
    QVERIFY(!requester.isCommandAvailable(Wire::word("none")));
    QVERIFY(requester.isCommandAvailable(CommandIds::kWhoAmI));
    QCOMPARE(errors.count(), 0);
}

void tst_SClientBaseRequester::requestsReachTheServer()
{
    using namespace RawBytes;
    const QByteArray name = frame(text(u"x"));
    RawServer server([&](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.answer(name);
        peer.answer(name);
        peer.answer(frame(array("out") + char(1)));
        peer.answer(frame(i32(0)));
        peer.readCommand();
        peer.send(ack());
        peer.read(8);
        peer.send(u64(0) + ack());
        peer.answer(frame(RawHandshake::listBody({{"strv"}})));
        peer.answer(u32(20));
        peer.readToEnd();
    });
    ClientSession session(server.port());
    SClientBaseRequester requester(session.client);
    SignalLog errors(&requester, &SClientBaseRequester::invokeError);
    QVERIFY(session.open());
    requester.serverName();
    requester.whoAmI();
    requester.pluggable(u"ink"_s, "cyan");
    requester.pluggableList();
    requester.linkTest(0, 0);
    requester.commandList();
    QVERIFY(session.waitForExchanges(7));
    QCOMPARE(session.exchanges(),
             QList<QByteArray>({"srvn+", "wami+", "plgb+", "plgl+", "lnkt+", "cmdl+", "strv+"}));
    QCOMPARE(errors.count(), 0);
}

void tst_SClientBaseRequester::everyFormOfAuthenticateReachesTheServer_data()
{
    QTest::addColumn<int>("form");
    QTest::newRow("text") << 0;
    QTest::newRow("secure text") << 1;
    QTest::newRow("credential") << 2;
}

void tst_SClientBaseRequester::everyFormOfAuthenticateReachesTheServer()
{
    QFETCH(int, form);
    RawServer server([](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.answer(RawBytes::u32(0));
        peer.readToEnd();
    });
    ClientSession session(server.port());
    SClientBaseRequester requester(session.client);
    SignalLog errors(&requester, &SClientBaseRequester::invokeError);
    QVERIFY(session.open());
    const Security::SSecureString secret(u"secret"_s);
    if (form == 0)
        requester.authenticate(u"Alice"_s, u"secret"_s);
    else if (form == 1)
        requester.authenticate(u"Alice"_s, secret);
    else
        requester.authenticate(Security::SSecureCredential(u"Alice"_s, secret));
    QVERIFY(session.waitForExchanges(1));
    QCOMPARE(errors.count(), 0);
    requester.disconnect();
    QCOMPARE(server.received(),
             RawBytes::authentication(u"alice"_s,
                                      RawBytes::challengeAnswer(u"secret"_s, RawServer::uuid())));
}

void tst_SClientBaseRequester::clearsPendingCommands()
{
    TestClient client(1);
    SClientBaseRequester requester(&client);
    auto token = std::make_shared<int>();
    client.enqueueCommand(new ProbeCommand(token));
    QCOMPARE(token.use_count(), 2);
    requester.clearPendingCommands();
    QCOMPARE(token.use_count(), 1);
}

void tst_SClientBaseRequester::disconnectsTheClient()
{
    RawServer server([](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.readToEnd();
    });
    ClientSession session(server.port());
    SClientBaseRequester requester(session.client);
    QVERIFY(session.open());
    requester.disconnect();
    QVERIFY(session.ends());
    QVERIFY(requester.isNull());
    QVERIFY(server.finishes());
}

void tst_SClientBaseRequester::goneClientGivesDefaults()
{
    SClientBaseRequester requester(nullptr);
    SignalLog errors(&requester, &SClientBaseRequester::invokeError);
    QVERIFY(requester.isNull());
    QVERIFY(requester.address().isNull());
    QCOMPARE(requester.host(true), QString());
    QVERIFY(!requester.isCommandAvailable(CommandIds::kWhoAmI));
    QCOMPARE(requester.port(), quint16(0));
    QVERIFY(!requester.preferIPv4());
    QCOMPARE(requester.state(), QAbstractSocket::UnconnectedState);
    requester.authenticate(u"alice"_s, u"secret"_s);
    requester.authenticate(u"alice"_s, Security::SSecureString(u"secret"_s));
    requester.authenticate(Security::SSecureCredential());
    requester.clearPendingCommands();
    requester.commandList();
    requester.linkTest(0, 0);
    requester.pluggable(u"ink"_s, {});
    requester.pluggableList();
    requester.serverName();
    requester.whoAmI();
    requester.disconnect();
    QCOMPARE(errors.count(), 0);
}

QTEST_GUILESS_MAIN(tst_SClientBaseRequester)
#include "tst_sclientbaserequester.moc"
