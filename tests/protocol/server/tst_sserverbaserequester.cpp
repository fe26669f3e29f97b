// SPDX-License-Identifier: MIT
#include <brixlib/protocol/pluggables/spluggablestring.h>
#include <brixlib/protocol/server/sserverbaserequester.h>

#include <shared/rawclient.h>
#include <shared/sessionhost.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

// A session with a client logged in, and a requester for it in the test's thread.
struct Session
{
    bool start()
    {
        const bool loggedIn = client.openAndLogin(host.port(), u"alice"_s, u"secret"_s);
        requester = std::make_unique<SServerBaseRequester>(host.session);
        return loggedIn;
    }

    SessionHost host;
    RawClient client;
    std::unique_ptr<SServerBaseRequester> requester;
};

} // namespace

class tst_SServerBaseRequester : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void queriesReachTheSession()
    {
        Session session;
        QVERIFY(session.start());
        SServerBaseRequester &requester = *session.requester;
        QSignalSpy errors(&requester, &SServerBaseRequester::invokeError);
        QCOMPARE(requester.worker(), session.host.session);
        QCOMPARE(requester.currentUser(), u"alice"_s);
        QCOMPARE(requester.rootPath(), session.host.homeOf(u"alice"_s));
        QCOMPARE(requester.peerAddress(), QHostAddress(QHostAddress::LocalHost));
        QCOMPARE(requester.authenticationDb(), &session.host.users);
        QVERIFY(!requester.serverName().isEmpty());
        QVERIFY(requester.pluggableList().isEmpty());
        QVERIFY(!requester.isDocumentRootEnabled());
        QCOMPARE(errors.size(), 0);
    }

    void requestsReachTheSession()
    {
        Session session;
        QVERIFY(session.start());
        SServerBaseRequester &requester = *session.requester;
        QSignalSpy errors(&requester, &SServerBaseRequester::invokeError);
        requester.setServerName(u"unit"_s);
        QCOMPARE(requester.serverName(), u"unit"_s);
        requester.enableDocumentRoot(true);
        QVERIFY(requester.isDocumentRootEnabled());
        requester.setAuthenticationDb(nullptr);
        QVERIFY(requester.authenticationDb() != &session.host.users);
        requester.setAuthenticationDb(&session.host.users);
        QCOMPARE(requester.authenticationDb(), &session.host.users);
        QCOMPARE(errors.size(), 0);
    }

    void pluggablesMoveToTheSession()
    {
        Session session;
        QVERIFY(session.start());
        SServerBaseRequester &requester = *session.requester;
        auto *pluggable = new SPluggableString(u"value"_s, nullptr);
        requester.addPluggable(u"name"_s, pluggable);
        QCOMPARE(requester.pluggableList(), QList<QString>{u"name"_s});
        QCOMPARE(pluggable->thread(), session.host.session->thread());
        QCOMPARE(pluggable->parent(), session.host.session);

        session.client.send(
            RawBytes::command("plgb", RawBytes::text(u"name") + RawBytes::array("")));
        QCOMPARE(session.client.read(4), RawBytes::ack());
        QCOMPARE(session.client.readFrame(), RawBytes::array("STRGvalue") + '\1');
        QCOMPARE(session.client.read(4), RawBytes::ack());

        requester.delPluggable(u"name"_s);
        QVERIFY(requester.pluggableList().isEmpty());
        requester.addPluggable(u"null"_s, nullptr);
        QCOMPARE(requester.pluggableList(), QList<QString>{u"null"_s});
    }

    void aPluggableIsNotLostWithASessionThatEndsFirst()
    {
        Session session;
        QVERIFY(session.start());
        // It runs no events before it ends.
        session.client.send(RawBytes::command("cldv", RawBytes::text(u"file")));
        QCOMPARE(session.client.read(4), RawBytes::ack());
        const QPointer<SPluggable> pluggable = new SPluggableString(u"value"_s, nullptr);
        session.requester->addPluggable(u"name"_s, pluggable);
        QVERIFY(pluggable);
        session.client.vanish();
        QTRY_VERIFY(session.requester->isNull());
        QTRY_VERIFY(pluggable.isNull());
    }

    // A session that serves a device runs no events.
    void queriesWaitForTheEndOfTheExchangeAndRequestsDoNot()
    {
        Session session;
        QVERIFY(session.start());
        session.client.send(RawBytes::command("cldv", RawBytes::text(u"file")));
        QCOMPARE(session.client.read(4), RawBytes::ack());
        QElapsedTimer timer;
        timer.start();
        session.requester->setServerName(u"unit"_s);
        QVERIFY(timer.elapsed() < 1000);
        session.client.send(RawBytes::u32(2));
        QCOMPARE(session.requester->serverName(), u"unit"_s);
        QCOMPARE(session.client.read(4), RawBytes::ack());
    }

    void aSessionThatIsGoneGivesDefaults()
    {
        Session session;
        QVERIFY(session.start());
        SServerBaseRequester &requester = *session.requester;
        QSignalSpy errors(&requester, &SServerBaseRequester::invokeError);
        session.client.vanish();
        QTRY_VERIFY(requester.isNull());
        QCOMPARE(requester.timeout(), 0);
        QCOMPARE(requester.currentUser(), QString());
        QCOMPARE(requester.serverName(), QString());
        QCOMPARE(requester.peerAddress(), QHostAddress());
        QCOMPARE(requester.authenticationDb(), nullptr);
        QVERIFY(requester.pluggableList().isEmpty());
        QVERIFY(!requester.isDocumentRootEnabled());
        requester.setServerName(u"unit"_s);
        requester.enableDocumentRoot(true);
        requester.setAuthenticationDb(nullptr);
        requester.delPluggable(u"x"_s);
        SPluggableString pluggable(u"value"_s, nullptr);
        requester.addPluggable(u"x"_s, &pluggable);
        QCOMPARE(pluggable.parent(), nullptr);
        QCOMPARE(errors.size(), 0);
    }

    void inTheSessionsOwnThreadCallsAreDirect()
    {
        SServerBase server(0);
        SServerBaseRequester requester(&server);
        requester.setServerName(u"unit"_s);
        QCOMPARE(requester.serverName(), u"unit"_s);
        requester.addPluggable(u"name"_s, new SPluggableString(u"value"_s, nullptr));
        QCOMPARE(server.pluggableList(), QList<QString>{u"name"_s});
    }
};

QTEST_GUILESS_MAIN(tst_SServerBaseRequester)
#include "tst_sserverbaserequester.moc"
