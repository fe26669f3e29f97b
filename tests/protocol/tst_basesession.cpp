// SPDX-License-Identifier: MIT
// A client and a server of the library against each other.
#include "clientsession.h"

#include <shared/sessionhost.h>

#include <brixlib/foundation/sdatastream.h>
#include <brixlib/protocol/pluggables/spluggable.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

//! Gives the parameters back.
class Echo final : public SPluggable
{
public:
    bool execute(const QByteArray &params, QByteArray &output,
                 const SPluggableEnvironment &) override
    {
        output = params;
        return !params.isEmpty();
    }
};

} // namespace

class tst_BaseSession : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void everyCommandIsAnswered();
    void bothEndsAgreeOnTheStreamVersion();
    void versionsOfTheListAreThoseOfTheCommands();
    void wrongPasswordCostsASecondAndNothingElse();
    void commandBeforeLoginEndsTheSessionAtBothEnds();
    void removedUserLosesTheNextCommand();
    void unknownPluggableLeavesTheSession();
    void bodyOfOneMebibyteIsTaken();
    void bodyAboveOneMebibyteCostsTheSession();
    void sessionsOfTwoUsersStayApart();
    void aThousandExchangesWaitForNobody();
    void linkTestMeasuresBothWays();
    void speedLimitShowsInTheLinkTest();
    void clientsEndEndsTheServersSession();
    void serversStopEndsTheClient();

private:
    bool login();

    std::unique_ptr<SessionHost> m_host;
    std::unique_ptr<ClientSession> m_session;
};

void tst_BaseSession::init()
{
    m_host = std::make_unique<SessionHost>();
    m_host->prepare = [](SServerBase *server) {
        server->setServerName(u"press 4"_s);
        server->addPluggable(u"echo"_s, new Echo);
    };
    m_session = std::make_unique<ClientSession>(m_host->port());
}

void tst_BaseSession::cleanup()
{
    m_session.reset();
    m_host.reset();
}

bool tst_BaseSession::login()
{
    if (!m_session->open())
        return false;
    m_session->client->authenticate(u"Alice"_s, u"secret"_s);
    return m_session->waitForExchanges(3);
}

void tst_BaseSession::everyCommandIsAnswered()
{
    TestClient *client = m_session->client;
    SignalLog status(client, &SClientBase::authenticationResult);
    SignalLog list(client,
                   qOverload<const QHash<SCommandId, qint32> &>(&SClientBase::commandListResult));
    SignalLog serverName(client, &SClientBase::serverNameResult);
    SignalLog user(client, &SClientBase::whoAmIResult);
    SignalLog output(client, &SClientBase::pluggableResult);
    SignalLog pluggables(client, &SClientBase::pluggableListResult);
    SignalLog tested(client, &SClientBase::linkTestFinished);
    QVERIFY(m_session->open());
    client->authenticate(u"Alice"_s, u"secret"_s);
    client->serverName();
    client->whoAmI();
    client->pluggable(u"echo"_s, "again");
    client->pluggableList();
    client->linkTest(0, 0);
    QVERIFY(m_session->waitForExchanges(8));
    QCOMPARE(m_session->exchanges(), QList<QByteArray>({"auth+", "cmdl+", "strv+", "srvn+", "wami+",
                                                        "plgb+", "plgl+", "lnkt+"}));
    QCOMPARE(status.value(), AuthenticationStatus::Authenticated);
    QCOMPARE(list.value().size(), 9);
    QCOMPARE(serverName.value(), u"press 4"_s);
    QCOMPARE(user.value(), u"alice"_s);
    QCOMPARE(output.value<1>(), true);
    QCOMPARE(output.value<3>(), "again"_ba);
    QCOMPARE(pluggables.value(), QList<QString>({u"echo"_s}));
    QCOMPARE(tested.count(), 1);
}

void tst_BaseSession::bothEndsAgreeOnTheStreamVersion()
{
    QVERIFY(login());
    int ofClient = 0;
    int ofServer = 0;
    m_session->inThread([&] { ofClient = SDataStream::defaultVersion(); });
    QMetaObject::invokeMethod(
        m_host->session, [&] { ofServer = SDataStream::defaultVersion(); },
        Qt::BlockingQueuedConnection);
    QCOMPARE(ofClient, 20);
    QCOMPARE(ofServer, 20);
}

void tst_BaseSession::versionsOfTheListAreThoseOfTheCommands()
{
    QVERIFY(login());
    QCOMPARE(m_session->client->commandVersion(CommandIds::kCommandList), 0x00020000);
    QCOMPARE(m_session->client->commandVersion(CommandIds::kWhoAmI), 0x00010000);
    QVERIFY(m_session->client->isCommandAvailable(CommandIds::kClientDevice));
    QVERIFY(!m_session->client->isCommandAvailable(Wire::word("prob")));
}

void tst_BaseSession::wrongPasswordCostsASecondAndNothingElse()
{
    SignalLog status(m_session->client, &SClientBase::authenticationResult);
    SignalLog user(m_session->client, &SClientBase::whoAmIResult);
    QVERIFY(m_session->open());
    QElapsedTimer timer;
    timer.start();
    m_session->client->authenticate(u"alice"_s, u"guess"_s);
    m_session->client->whoAmI();
    QVERIFY(m_session->waitForExchanges(1));
    QVERIFY2(timer.elapsed() >= 950, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(m_session->exchanges(), QList<QByteArray>({"auth+"}));
    QCOMPARE(status.value(), AuthenticationStatus::NotAuthenticated);

    m_session->client->authenticate(u"alice"_s, u"secret"_s);
    QVERIFY(m_session->waitForExchanges(5));
    QCOMPARE(status.value(), AuthenticationStatus::Authenticated);
    QCOMPARE(user.value(), u"alice"_s); // held back until now
}

void tst_BaseSession::commandBeforeLoginEndsTheSessionAtBothEnds()
{
    QVERIFY(m_session->open());
    QTest::ignoreMessage(QtDebugMsg, "SServerBase::innerExecuteCommand: not authenticated error!");
    m_session->client->whoAmI();
    QVERIFY(m_session->ends());
    QCOMPARE(m_session->exchanges(), QList<QByteArray>({"wami-"}));
    QCOMPARE(m_session->finished.value(0), SimpleWorkerError::WorkError);
    QTRY_COMPARE(m_host->controller.count(), 0);
}

void tst_BaseSession::removedUserLosesTheNextCommand()
{
    QVERIFY(login());
    QVERIFY(m_host->users.remove(u"alice"_s));
    m_host->users.clear(); // removing alone is no change of the whole table
    QTest::ignoreMessage(QtDebugMsg, "SServerBase::innerExecuteCommand: not authenticated error!");
    m_session->client->whoAmI();
    QVERIFY(m_session->ends());
    QCOMPARE(m_session->exchanges().last(), "wami-"_ba);
    QTRY_COMPARE(m_host->controller.count(), 0);
}

void tst_BaseSession::unknownPluggableLeavesTheSession()
{
    SignalLog output(m_session->client, &SClientBase::pluggableResult);
    QVERIFY(login());
    m_session->client->pluggable(u"none"_s, "params");
    m_session->client->pluggable(u"echo"_s, {}); // reports a failure
    QVERIFY(m_session->waitForExchanges(5));
    QCOMPARE(output.value<0>(0), u"none"_s);
    QCOMPARE(output.value<1>(0), false);
    QCOMPARE(output.value<2>(0), "params"_ba);
    QCOMPARE(output.value<3>(0), ""_ba);
    QCOMPARE(output.value<1>(1), false);
    QCOMPARE(m_session->exchanges().mid(3), QList<QByteArray>({"plgb+", "plgb+"}));
}

void tst_BaseSession::bodyOfOneMebibyteIsTaken()
{
    SignalLog output(m_session->client, &SClientBase::pluggableResult);
    QVERIFY(login());
    // Header, name and the size of the parameters come on top.
    const QByteArray params(0x100000 - 20 - 12 - 4, 'p');
    m_session->client->pluggable(u"echo"_s, params);
    QVERIFY(m_session->waitForExchanges(4));
    QCOMPARE(m_session->exchanges().last(), "plgb+"_ba);
    QVERIFY(output.value<3>() == params);
}

void tst_BaseSession::bodyAboveOneMebibyteCostsTheSession()
{
    QVERIFY(login());
    m_session->client->pluggable(u"echo"_s, QByteArray(0x100000 - 20 - 12 - 4 + 1, 'p'));
    QVERIFY(m_session->ends());
    QCOMPARE(m_session->exchanges().last(), "plgb-"_ba);
    QCOMPARE(m_session->finished.value(0), SimpleWorkerError::WorkError);
    QTRY_COMPARE(m_host->controller.count(), 0);
}

void tst_BaseSession::sessionsOfTwoUsersStayApart()
{
    SignalLog alice(m_session->client, &SClientBase::whoAmIResult);
    QVERIFY(login());
    ClientSession other(m_host->port());
    SignalLog bob(other.client, &SClientBase::whoAmIResult);
    QVERIFY(other.open());
    other.client->authenticate(u"bob"_s, u"builder"_s);
    for (int i = 0; i < 20; ++i) {
        m_session->client->whoAmI();
        other.client->whoAmI();
    }
    QVERIFY(m_session->waitForExchanges(23));
    QVERIFY(other.waitForExchanges(23));
    QCOMPARE(alice.entries(), QList<std::tuple<QString>>(20, {u"alice"_s}));
    QCOMPARE(bob.entries(), QList<std::tuple<QString>>(20, {u"bob"_s}));
    QCOMPARE(m_host->controller.count(), 2);
}

// A delayed acknowledgement in each exchange would make it 40 seconds and more.
void tst_BaseSession::aThousandExchangesWaitForNobody()
{
    constexpr int kCount = 1000;
    QVERIFY(login());
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < kCount; ++i)
        m_session->client->whoAmI();
    QVERIFY(QTest::qWaitFor([&] { return m_session->results.count() >= 3 + kCount; }, 30000));
    QVERIFY2(timer.elapsed() < 20000, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(m_session->exchanges().count("wami+"), kCount);
}

void tst_BaseSession::linkTestMeasuresBothWays()
{
    SignalLog tested(m_session->client, &SClientBase::linkTestFinished);
    SignalLog moved(m_session->client, &SClientBase::transferredBytes);
    QVERIFY(login());
    m_session->client->linkTest(1, 1);
    QVERIFY(m_session->waitForExchanges(4));
    QCOMPARE(m_session->exchanges().last(), "lnkt+"_ba);
    QVERIFY(tested.value<0>() > 0.0);
    QVERIFY(tested.value<1>() > 0.0);
    QVERIFY(moved.count() > 0);
    for (qsizetype i = 1; i < moved.count(); ++i)
        QVERIFY(moved.value<0>(i) > moved.value<0>(i - 1)); // both phases add up
}

void tst_BaseSession::speedLimitShowsInTheLinkTest()
{
    constexpr qint64 kLimit = 2 * 1024 * 1024;
    SignalLog tested(m_session->client, &SClientBase::linkTestFinished);
    QVERIFY(login());
    m_session->inThread([&] { m_session->client->socket()->setOutcomingSpeed(kLimit); });
    m_session->client->linkTest(2, 0);
    QVERIFY(m_session->waitForExchanges(4));
    QCOMPARE(m_session->exchanges().last(), "lnkt+"_ba);
    // The limiter looks back over half a second, so a short test begins with a burst.
    QVERIFY2(tested.value<0>() < 2.0 * kLimit, qPrintable(QString::number(tested.value<0>())));
    QVERIFY2(tested.value<0>() > 0.5 * kLimit, qPrintable(QString::number(tested.value<0>())));
}

void tst_BaseSession::clientsEndEndsTheServersSession()
{
    QVERIFY(login());
    QCOMPARE(m_host->controller.count(), 1);
    m_session->controller.interruptWorkers();
    QVERIFY(m_session->ends());
    QTRY_COMPARE(m_host->controller.count(), 0);
    QTRY_VERIFY(m_host->session.isNull());
}

void tst_BaseSession::serversStopEndsTheClient()
{
    QVERIFY(login());
    m_host->controller.interruptWorkers();
    QVERIFY(m_session->ends());
    QCOMPARE(m_session->finished.value(0), SimpleWorkerError::InterruptRequested);
    QTRY_COMPARE(m_host->controller.count(), 0);
}

QTEST_GUILESS_MAIN(tst_BaseSession)
#include "tst_basesession.moc"
