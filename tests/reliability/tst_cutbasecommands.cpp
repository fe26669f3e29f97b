// SPDX-License-Identifier: MIT
// Connections that are cut at every byte of each command of the base protocol, and of a session of
// a remote device.
#include "scenes.h"

#include <QtCore/QRegularExpression>

class tst_CutBaseCommands : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<FaultStage> m_stage;
    FaultStage::Whole m_handshake;

private Q_SLOTS:
    void initTestCase()
    {
        m_stage = std::make_unique<FaultStage>();
        Scenes::addPluggable(m_stage->server());
        QCOMPARE(m_stage->playWhole({}, &m_handshake), QString());
    }

    void init() { QTest::failOnWarning(QRegularExpression(QStringLiteral("."))); }

    void cleanupTestCase()
    {
        qInfo("%d cuts, the slowest %lld ms", m_stage->faults(), qlonglong(m_stage->slowestMs()));
        m_stage.reset();
    }

    void cutAtEveryByte_data()
    {
        QTest::addColumn<QByteArray>("name");
        const QList<QByteArray> names = Scenes::baseCommands().keys();
        for (const QByteArray &name : names)
            QTest::newRow(name.constData()) << name;
    }

    void cutAtEveryByte()
    {
        QFETCH(const QByteArray, name);
        FaultStage::Whole whole;
        QCOMPARE(m_stage->playCuts(Scenes::baseCommands().value(name), m_handshake, &whole),
                 QString());
        QVERIFY(whole.toServer > m_handshake.toServer && whole.toClient > m_handshake.toClient);
    }

    // With all that comes before the file is open, which is a handshake of its own.
    void deviceSessionCutAtEveryByte()
    {
        FaultStage::Whole whole;
        QCOMPARE(m_stage->playCuts(Scenes::device(), {}, &whole), QString());
    }
};

QTEST_GUILESS_MAIN(tst_CutBaseCommands)
#include "tst_cutbasecommands.moc"
