// SPDX-License-Identifier: MIT
// Connections that are slow, that tear packets apart and join them, and that stall.
#include "scenes.h"

#include <QtCore/QRegularExpression>

using namespace std::chrono_literals;

Q_DECLARE_METATYPE(ConnectionPlan)

namespace {

constexpr int kLongMs = 10000;
constexpr int kShortMs = 200;

ConnectionPlan bothWays(const FlowPlan &plan)
{
    return {.toServer = plan, .toClient = plan};
}

} // namespace

class tst_SlowConnections : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<FaultStage> m_stage;
    FaultStage::Whole m_handshake;

    // At every \a step th byte from \a first to the last.
    QString stallEach(qint64 step, const FaultStage::Scene &scene, const FaultStage::Whole &whole,
                      bool toServer, qint64 first)
    {
        const qint64 last = toServer ? whole.toServer : whole.toClient;
        for (qint64 at = first; at < last; at += step) {
            const QString problem =
                m_stage->playFault(scene, whole, {toServer, at, FlowFault::Stall});
            if (!problem.isEmpty())
                return problem;
        }
        return QString();
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_stage = std::make_unique<FaultStage>();
        Scenes::addPluggable(m_stage->server());
        QCOMPARE(m_stage->playWhole({}, &m_handshake), QString());
    }

    void init()
    {
        QTest::failOnWarning(QRegularExpression(QStringLiteral(".")));
        m_stage->setTimeouts(kLongMs, kLongMs);
    }

    void cleanupTestCase() { m_stage.reset(); }

    void slowPathChangesNothing_data()
    {
        QTest::addColumn<ConnectionPlan>("plan");
        QTest::newRow("byte by byte") << bothWays({.packetBytes = 1});
        QTest::newRow("in pieces of 3 bytes with pauses")
            << bothWays({.packetBytes = 3, .packetPause = 1ms});
        QTest::newRow("joined") << bothWays({.joinWindow = 5ms});
        QTest::newRow("late") << bothWays({.delay = 10ms});
        QTest::newRow("late one way") << ConnectionPlan{.toClient = {.delay = 25ms}};
        QTest::newRow("20,000 bytes a second") << bothWays({.bytesPerSecond = 20'000});
        QTest::newRow("held up for a while in the handshake")
            << bothWays({.faultAt = 100, .fault = FlowFault::Stall, .stallTime = 300ms});
        QTest::newRow("held up for a while behind it") << ConnectionPlan{
            .toClient = {.faultAt = 530, .fault = FlowFault::Stall, .stallTime = 300ms}};
    }

    void slowPathChangesNothing()
    {
        QFETCH(const ConnectionPlan, plan);
        const auto base = Scenes::baseCommands();
        const auto files = Scenes::fileCommands();
        for (const auto &scene :
             {base.value("pluggable"), base.value("link test"), files.value("copy dir"),
              files.value("get files"), files.value("list dir"), Scenes::getFile(),
              Scenes::sendFile(), Scenes::device()}) {
            FaultStage::Whole whole;
            QCOMPARE(m_stage->playWhole(scene, &whole), QString());
            QCOMPARE(m_stage->playUnder(scene, whole, plan), QString());
        }
    }

    void clientGivesUpAStalledHandshake_data()
    {
        QTest::addColumn<bool>("toServer");
        QTest::newRow("to the server") << true;
        QTest::newRow("to the client") << false;
    }

    void clientGivesUpAStalledHandshake()
    {
        QFETCH(const bool, toServer);
        m_stage->setTimeouts(kShortMs, kLongMs);
        QCOMPARE(stallEach(29, {}, m_handshake, toServer, 0), QString());
    }

    void clientGivesUpAStalledExchange_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<bool>("toServer");
        QTest::newRow("get file, to the server") << QByteArray("get file") << true;
        QTest::newRow("get file, to the client") << QByteArray("get file") << false;
        QTest::newRow("send file, to the server") << QByteArray("send file") << true;
        QTest::newRow("send file, to the client") << QByteArray("send file") << false;
        QTest::newRow("copy file, to the client") << QByteArray("copy file") << false;
        QTest::newRow("list dir, to the client") << QByteArray("list dir") << false;
    }

    void clientGivesUpAStalledExchange()
    {
        QFETCH(const QByteArray, name);
        QFETCH(const bool, toServer);
        const FaultStage::Scene scene = Scenes::fileCommands().value(name);
        FaultStage::Whole whole;
        QCOMPARE(m_stage->playWhole(scene, &whole), QString());
        m_stage->setTimeouts(kShortMs, kLongMs);
        const qint64 first = toServer ? m_handshake.toServer : m_handshake.toClient;
        QCOMPARE(stallEach(13, scene, whole, toServer, first), QString());
    }

    void deviceGivesUpWhenItStalls()
    {
        FaultStage::Whole whole;
        QCOMPARE(m_stage->playWhole(Scenes::device(), &whole), QString());
        m_stage->setTimeouts(kShortMs, kLongMs);
        QCOMPARE(stallEach(41, Scenes::device(), whole, true, 0), QString());
        QCOMPARE(stallEach(13, Scenes::device(), whole, false, 0), QString());
    }

    // In the frame of a command, and in the content that follows it.
    void serverGivesUpAStalledClient()
    {
        FaultStage::Whole whole;
        QCOMPARE(m_stage->playWhole(Scenes::sendFile(), &whole), QString());
        m_stage->setTimeouts(kLongMs, kShortMs);
        for (const qint64 at : {m_handshake.toServer + 2, m_handshake.toServer + 30,
                                whole.toServer - 30, whole.toServer - 1}) {
            QCOMPARE(m_stage->playFault(Scenes::sendFile(), whole, {true, at, FlowFault::Stall}),
                     QString());
            // The client did not have to wait for its own time-out.
            QVERIFY(m_stage->slowestMs() < kLongMs / 2);
        }
    }
};

QTEST_GUILESS_MAIN(tst_SlowConnections)
#include "tst_slowconnections.moc"
