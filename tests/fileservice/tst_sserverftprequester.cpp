// SPDX-License-Identifier: MIT
#include "filesession.h"

#include <brixlib/fileservice/sserverftprequester.h>

#include <shared/rawclient.h>

#include <QtCore/QRegularExpression>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_SServerFtpRequester : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { QTest::failOnWarning(QRegularExpression(u"."_s)); }

    void asksASessionInItsThread()
    {
        std::unique_ptr<SServerFtpRequester> requester;
        FileServer server;
        server.configure = [&](SServerFtp &session) {
            requester = std::make_unique<SServerFtpRequester>(&session);
        };
        RawClient client;
        QVERIFY(client.openAndLogin(server.port(), u"alice"_s, u"secret"_s));
        QCOMPARE(requester->currentUser(), u"alice"_s);
        QCOMPARE(requester->rootPath(), server.home());
        requester->setServerName(u"store"_s);
        QCOMPARE(requester->serverName(), u"store"_s);

        client.vanish();
        QVERIFY(server.waitForEnd());
        QVERIFY(requester->isNull());
        QCOMPARE(requester->currentUser(), QString());
    }

    void belongsToItsParent()
    {
        SServerFtp session;
        QObject parent;
        auto *const requester = new SServerFtpRequester(&session, &parent);
        QCOMPARE(requester->parent(), &parent);
        QCOMPARE(requester->worker(), &session);
    }
};

QTEST_GUILESS_MAIN(tst_SServerFtpRequester)
#include "tst_sserverftprequester.moc"
