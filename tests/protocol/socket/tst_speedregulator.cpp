// SPDX-License-Identifier: MIT
#include <brixlib/protocol/socket/speedregulator_p.h>

#include <limits>

using namespace Talverine;

namespace {

constexpr qint64 kLargest = std::numeric_limits<qint64>::max();
constexpr qint64 kSmallest = std::numeric_limits<qint64>::min();

} // namespace

class tst_SpeedRegulator : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshRegulatorHasNothingBuiltUp() { QCOMPARE(SpeedRegulator().correction(), 0); }

    // 0.3 * C + 0.05 * e, cut to an integer, shared, and kept between the floor and the limit.
    void firstGrant_data()
    {
        QTest::addColumn<qint64>("limit");
        QTest::addColumn<qint64>("sum");
        QTest::addColumn<int>("sockets");
        QTest::addColumn<qint64>("grant");
        QTest::addColumn<qint64>("correction");
        using Row = qint64;
        QTest::newRow("idle single socket gets the limit")
            << Row(1000) << Row(0) << 1 << Row(1000) << Row(1000);
        QTest::newRow("two idle sockets: 350 / 2 is below the floor of 333")
            << Row(1000) << Row(0) << 2 << Row(333) << Row(1000);
        QTest::newRow("exactly at the limit") << Row(1000) << Row(1000) << 2 << Row(333) << Row(0);
        QTest::newRow("overload falls to the floor")
            << Row(1000) << Row(5000) << 2 << Row(333) << Row(-4000);
        QTest::newRow("three sockets: floor is a quarter")
            << Row(1000) << Row(5000) << 3 << Row(250) << Row(-4000);
        QTest::newRow("four sockets: floor is a sixth")
            << Row(1000) << Row(5000) << 4 << Row(166) << Row(-4000);
        QTest::newRow("no limit gives none") << Row(0) << Row(700) << 2 << Row(0) << Row(0);
        QTest::newRow("overload beyond the bound")
            << Row(1000) << Row(90000) << 2 << Row(333) << Row(-20000);
    }

    void firstGrant()
    {
        QFETCH(qint64, limit);
        QFETCH(qint64, sum);
        QFETCH(int, sockets);
        QFETCH(qint64, grant);
        QFETCH(qint64, correction);
        SpeedRegulator regulator;
        QCOMPARE(regulator.grant(limit, sum, sockets), grant);
        QCOMPARE(regulator.correction(), correction);
    }

    // Twice 500 of 1000: the error is 0, the correction stands, each gets 0.15 of it.
    void twoSocketsAtTheLimitKeepTheCorrection_data()
    {
        QTest::addColumn<int>("idleRounds");
        QTest::addColumn<qint64>("correction");
        QTest::addColumn<qint64>("grant");
        QTest::newRow("0.15 * 2000 is below the floor") << 2 << qint64(2000) << qint64(333);
        QTest::newRow("0.15 * 4000 is between") << 4 << qint64(4000) << qint64(600);
        QTest::newRow("0.15 * 8000 is above the limit") << 8 << qint64(8000) << qint64(1000);
    }

    void twoSocketsAtTheLimitKeepTheCorrection()
    {
        QFETCH(int, idleRounds);
        QFETCH(qint64, correction);
        QFETCH(qint64, grant);
        SpeedRegulator regulator;
        for (int i = 0; i < idleRounds; ++i)
            regulator.grant(1000, 0, 2);
        for (int i = 0; i < 3; ++i) {
            QCOMPARE(regulator.grant(1000, 500 + 500, 2), grant);
            QCOMPARE(regulator.correction(), correction);
        }
    }

    void correctionStaysWithinTenTimesTheLimitPerSocket()
    {
        SpeedRegulator regulator;
        for (int i = 0; i < 100; ++i)
            regulator.grant(1000, 0, 3);
        QCOMPARE(regulator.correction(), 30000);
        for (int i = 0; i < 100; ++i)
            regulator.grant(1000, 9000, 3);
        QCOMPARE(regulator.correction(), -30000);
        regulator.grant(1000, 9000, 1);
        QCOMPARE(regulator.correction(), -10000);
    }

    void resetForgetsTheCorrection()
    {
        SpeedRegulator regulator;
        regulator.grant(1000, 0, 2);
        regulator.reset();
        QCOMPARE(regulator.correction(), 0);
    }

    void fractionsAreCutTowardsZero()
    {
        SpeedRegulator regulator;
        // 0.3 * 5 + 0.05 * 5 = 1.75
        QCOMPARE(regulator.grant(5, 0, 5), 1 / 5);
        SpeedRegulator single;
        // 0.3 * 90 + 0.05 * 90 = 31.5, and the floor of one socket is the limit itself.
        QCOMPARE(single.grant(100, 10, 1), 100);
        SpeedRegulator two;
        for (int i = 0; i < 3; ++i)
            two.grant(1001, 0, 2);
        // C = 3003 + 1, e = 1: 901.25 / 2.
        QCOMPARE(two.grant(1001, 1000, 2), 450);
    }

    void extremesStayWithinRange_data()
    {
        QTest::addColumn<qint64>("limit");
        QTest::addColumn<qint64>("sum");
        for (qint64 limit : {kSmallest, qint64(-1000), qint64(-1), qint64(1), kLargest}) {
            for (qint64 sum : {kSmallest, qint64(0), kLargest})
                QTest::addRow("limit %lld, sum %lld", limit, sum) << limit << sum;
        }
    }

    void extremesStayWithinRange()
    {
        QFETCH(qint64, limit);
        QFETCH(qint64, sum);
        SpeedRegulator regulator;
        const int sockets = std::numeric_limits<int>::max();
        for (int i = 0; i < 10; ++i) {
            const qint64 grant = regulator.grant(limit, sum, sockets / 2);
            QVERIFY(grant <= qMax(limit, limit / sockets));
            QVERIFY(grant >= qMin(limit, qint64(0)));
        }
    }
};

QTEST_APPLESS_MAIN(tst_SpeedRegulator)
#include "tst_speedregulator.moc"
