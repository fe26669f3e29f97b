// SPDX-License-Identifier: MIT
// Connections that are cut at every byte of the handshake.
#include "faultstage.h"

#include <QtCore/QRegularExpression>

Q_DECLARE_METATYPE(FlowFault)

class tst_CutHandshake : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { QTest::failOnWarning(QRegularExpression(QStringLiteral("."))); }

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
        FaultStage stage;
        FaultStage::Whole whole;
        QCOMPARE(stage.playWhole({}, &whole), QString());
        const qint64 size = toServer ? whole.toServer : whole.toClient;
        for (qint64 at = 0; at <= size; ++at)
            QCOMPARE(stage.playFault({}, whole, {toServer, at, fault}), QString());
        // The next connection works.
        QCOMPARE(stage.playWhole({}, &whole), QString());
        qInfo("%d cuts, the slowest %lld ms", stage.faults(), qlonglong(stage.slowestMs()));
    }
};

QTEST_GUILESS_MAIN(tst_CutHandshake)
#include "tst_cuthandshake.moc"
