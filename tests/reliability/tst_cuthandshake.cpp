// SPDX-License-Identifier: MIT
// Connections that are cut at every byte of the handshake.
#include "faultstage.h"

#include <QtCore/QRegularExpression>

Q_DECLARE_METATYPE(FlowFault)

class tst_CutHandshake : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<FaultStage> m_stage;
    FaultStage::Whole m_whole;

private Q_SLOTS:
    void initTestCase()
    {
        m_stage = std::make_unique<FaultStage>();
        QCOMPARE(m_stage->playWhole({}, &m_whole), QString());
    }

    void init() { QTest::failOnWarning(QRegularExpression(QStringLiteral("."))); }

    void cleanupTestCase()
    {
        qInfo("%d cuts, the slowest %lld ms", m_stage->faults(), qlonglong(m_stage->slowestMs()));
        m_stage.reset();
    }

    void cutAtEveryByte_data()
    {
        QTest::addColumn<bool>("toServer");
        QTest::addColumn<FlowFault>("fault");
        QTest::newRow("to the server, reset") << true << FlowFault::Reset;
        QTest::newRow("to the server, closed") << true << FlowFault::Close;
        QTest::newRow("to the server, half closed") << true << FlowFault::HalfClose;
        QTest::newRow("to the client, reset") << false << FlowFault::Reset;
        QTest::newRow("to the client, closed") << false << FlowFault::Close;
        QTest::newRow("to the client, half closed") << false << FlowFault::HalfClose;
    }

    void cutAtEveryByte()
    {
        QFETCH(const bool, toServer);
        QFETCH(const FlowFault, fault);
        const qint64 size = toServer ? m_whole.toServer : m_whole.toClient;
        for (qint64 at = 0; at <= size; ++at)
            QCOMPARE(m_stage->playFault({}, m_whole, {toServer, at, fault}), QString());
        // The next connection works.
        QCOMPARE(m_stage->playWhole({}, &m_whole), QString());
    }
};

QTEST_GUILESS_MAIN(tst_CutHandshake)
#include "tst_cuthandshake.moc"
