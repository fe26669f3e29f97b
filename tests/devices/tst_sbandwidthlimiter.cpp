// SPDX-License-Identifier: MIT
#include <brixlib/devices/sbandwidthlimiter.h>

#include <limits>

using namespace Talverine;

namespace {

constexpr qint64 kLargest = std::numeric_limits<qint64>::max();
constexpr qint64 kSmallest = std::numeric_limits<qint64>::min();

//! A limiter whose clock the test turns, in ms; it starts at the beginning of a slot of 50 ms.
class Limiter : public SBandwidthLimiter
{
public:
    qint64 currentBandwidth() const { return currentBandwidthAt(now); }
    qint64 transferableBytes() const { return transferableBytesAt(now); }
    void transferred(qint64 bytes) { transferredAt(now, bytes); }

    qint64 now = 1'700'000'000'000;
};

} // namespace

class tst_SBandwidthLimiter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshLimiterHasNoLimitAndNoSamples()
    {
        const SBandwidthLimiter limiter;
        QCOMPARE(limiter.bandwidth(), 0);
        QCOMPARE(limiter.timeInterval(), 1000);
        QCOMPARE(limiter.count(), 0);
        QCOMPARE(limiter.millisecs(), 0);
        QCOMPARE(limiter.currentBandwidth(), 0);
        QCOMPARE(limiter.transferableBytes(), 0x7FFFFFFFFFFFFFFF);
    }

    void timeIntervalIsKeptInRange_data()
    {
        QTest::addColumn<int>("msec");
        QTest::addColumn<int>("kept");
        QTest::newRow("5 gives 100") << 5 << 100;
        QTest::newRow("60000 gives 10,000") << 60000 << 10000;
        QTest::newRow("negative") << -1 << 100;
        QTest::newRow("smallest") << std::numeric_limits<int>::min() << 100;
        QTest::newRow("largest") << std::numeric_limits<int>::max() << 10000;
        QTest::newRow("below the range") << 99 << 100;
        QTest::newRow("lower end") << 100 << 100;
        QTest::newRow("within") << 500 << 500;
        QTest::newRow("upper end") << 10000 << 10000;
        QTest::newRow("above the range") << 10001 << 10000;
    }

    void timeIntervalIsKeptInRange()
    {
        QFETCH(int, msec);
        QFETCH(int, kept);
        SBandwidthLimiter limiter;
        limiter.setTimeInterval(msec);
        QCOMPARE(limiter.timeInterval(), kept);
    }

    void bandwidthIsKeptAsItStands()
    {
        SBandwidthLimiter limiter;
        for (qint64 value : {qint64(1), qint64(-1), kLargest, kSmallest, qint64(0)}) {
            limiter.setBandwidth(value);
            QCOMPARE(limiter.bandwidth(), value);
        }
    }

    void firstTransferAtOnceIsItsOwnBandwidth()
    {
        Limiter limiter;
        limiter.transferred(1000);
        QCOMPARE(limiter.currentBandwidth(), 1000);
        QCOMPARE(limiter.count(), 1);
        QCOMPARE(limiter.first(), std::pair(limiter.now, qint64(1000)));
    }

    void realClockStampsSamples()
    {
        SBandwidthLimiter limiter;
        const qint64 before = QDateTime::currentMSecsSinceEpoch();
        limiter.transferred(1000);
        const qint64 after = QDateTime::currentMSecsSinceEpoch();
        QVERIFY(limiter.first().first >= before);
        QVERIFY(limiter.first().first <= after);
        QVERIFY(limiter.currentBandwidth() > 0);
    }

    void spanIsMeasuredFromTheOldestSample()
    {
        Limiter limiter;
        limiter.transferred(1000);
        limiter.now += 1;
        QCOMPARE(limiter.currentBandwidth(), 1000 * 1000);
        limiter.now += 99;
        QCOMPARE(limiter.currentBandwidth(), 1000 * 1000 / 100);
        limiter.transferred(500);
        QCOMPARE(limiter.currentBandwidth(), 1500 * 1000 / 100);
        limiter.now += 200;
        QCOMPARE(limiter.currentBandwidth(), 1500 * 1000 / 300);
    }

    void transfersOfOneSlotMakeOneSampleWithTheFirstTime()
    {
        Limiter limiter;
        limiter.now += 10;
        const qint64 first = limiter.now;
        limiter.transferred(100);
        limiter.now += 39;
        limiter.transferred(20);
        QCOMPARE(limiter.count(), 1);
        QCOMPARE(limiter.last(), std::pair(first, qint64(120)));
        QCOMPARE(limiter.millisecs(), 0);

        limiter.now += 1;
        limiter.transferred(3);
        QCOMPARE(limiter.count(), 2);
        QCOMPARE(limiter.at(0), std::pair(first, qint64(120)));
        QCOMPARE(limiter.at(1), std::pair(limiter.now, qint64(3)));
        QCOMPARE(limiter.millisecs(), 40);
    }

    void samplesAgeOut()
    {
        Limiter limiter;
        limiter.transferred(100);
        limiter.now += 1000;
        QCOMPARE(limiter.currentBandwidth(), 100);
        QCOMPARE(limiter.count(), 1);
        limiter.now += 1;
        QCOMPARE(limiter.currentBandwidth(), 0);
        QCOMPARE(limiter.count(), 0);
    }

    void constQueriesDropOldSamplesToo()
    {
        Limiter limiter;
        limiter.setBandwidth(10);
        limiter.transferred(100);
        limiter.now += 1001;
        const Limiter &constant = limiter;
        QCOMPARE(constant.count(), 1);
        QCOMPARE(constant.transferableBytes(), 10);
        QCOMPARE(constant.count(), 0);
    }

    void listStaysShort()
    {
        Limiter limiter;
        limiter.setTimeInterval(10000);
        for (int i = 0; i < 30000; ++i) {
            limiter.now += 1;
            limiter.transferred(1);
            QVERIFY(limiter.count() <= 10000 / 50 + 2);
        }
        QVERIFY(limiter.count() >= 10000 / 50);
    }

    void limitMinusBandwidthMayGo()
    {
        Limiter limiter;
        limiter.setBandwidth(1000);
        QCOMPARE(limiter.transferableBytes(), 1000);
        limiter.transferred(400);
        QCOMPARE(limiter.transferableBytes(), 600);
        limiter.transferred(600);
        QCOMPARE(limiter.transferableBytes(), 0);
        limiter.transferred(600);
        QCOMPARE(limiter.transferableBytes(), 0);
    }

    // Whoever waits for half of a request of more than twice the limit waits for ever.
    void halfOfARequestAboveTwiceTheLimitNeverMayGo()
    {
        Limiter limiter;
        limiter.setBandwidth(1000);
        for (int msec = 0; msec < 5000; ++msec, ++limiter.now) {
            QVERIFY(limiter.transferableBytes() < 2002 / 2);
            if (msec == 10)
                limiter.transferred(1000);
        }
        QCOMPARE(limiter.transferableBytes(), 1000);
    }

    void nothingMayGoWithANegativeLimit()
    {
        Limiter limiter;
        limiter.setBandwidth(-1);
        QCOMPARE(limiter.transferableBytes(), 0);
        limiter.setBandwidth(kSmallest);
        QCOMPARE(limiter.transferableBytes(), 0);
        limiter.transferred(100);
        QCOMPARE(limiter.transferableBytes(), 0);
    }

    void hugeNumbersStopAtTheEndOfTheRange()
    {
        Limiter limiter;
        limiter.setBandwidth(kLargest);
        limiter.transferred(kLargest);
        limiter.transferred(kLargest);
        limiter.now += 1;
        QCOMPARE(limiter.currentBandwidth(), kLargest);
        QCOMPARE(limiter.transferableBytes(), 0);

        Limiter backwards;
        backwards.setBandwidth(kLargest);
        backwards.transferred(kSmallest);
        backwards.now += 1;
        QCOMPARE(backwards.currentBandwidth(), kSmallest);
        QCOMPARE(backwards.transferableBytes(), kLargest);
    }

    void samplesFromTheFutureAreDroppedWhenTheClockIsSetBack()
    {
        Limiter limiter;
        limiter.setBandwidth(1000);
        limiter.transferred(300);
        limiter.now += 200;
        limiter.transferred(700);
        QCOMPARE(limiter.transferableBytes(), 0);

        limiter.now -= 100;
        QCOMPARE(limiter.currentBandwidth(), 300 * 1000 / 100);
        QCOMPARE(limiter.count(), 1);

        limiter.now -= 3'600'000;
        QCOMPARE(limiter.transferableBytes(), 1000);
        QCOMPARE(limiter.count(), 0);
        limiter.transferred(1);
        QCOMPARE(limiter.first().first, limiter.now);
    }

    void clockSetForwardStartsAnew()
    {
        Limiter limiter;
        limiter.setBandwidth(1000);
        limiter.transferred(1000);
        limiter.now += 3'600'000;
        QCOMPARE(limiter.transferableBytes(), 1000);
    }

    void copiesAreEqualAndIndependent()
    {
        SBandwidthLimiter limiter;
        limiter.setBandwidth(5);
        limiter.setTimeInterval(200);
        limiter.transferred(1);
        SBandwidthLimiter copy(limiter);
        QVERIFY(copy == limiter);
        copy.setBandwidth(6);
        QVERIFY(copy != limiter);
        copy = limiter;
        QVERIFY(copy == limiter);
        copy.setTimeInterval(300);
        QVERIFY(copy != limiter);
        copy = limiter;
        copy.transferred(1);
        QVERIFY(copy != limiter);
        QCOMPARE(limiter.first().second, 1);
    }

    void steadyFlowKeepsTheLimit_data()
    {
        QTest::addColumn<qint64>("limit");
        QTest::newRow("1 MiB/s") << (qint64(1) << 20);
        QTest::newRow("100 MiB/s") << (qint64(100) << 20);
    }

    // One look a millisecond, at most a hundredth of the limit a piece, for a minute.
    void steadyFlowKeepsTheLimit()
    {
        QFETCH(qint64, limit);
        Limiter limiter;
        limiter.setTimeInterval(500);
        limiter.setBandwidth(limit);
        qint64 total = 0;
        for (int msec = 0; msec < 60000; ++msec, ++limiter.now) {
            const qint64 piece = qMin(limit / 100, limiter.transferableBytes());
            if (piece == 0)
                continue;
            limiter.transferred(piece);
            total += piece;
        }
        const double rate = static_cast<double>(total) / 60;
        const double error = rate / static_cast<double>(limit) - 1;
        QVERIFY2(qAbs(error) < 0.02, qPrintable(QString::number(error)));
    }

    // Nothing has passed for an interval, so a whole second's worth may go, twice a second.
    void burstsThatExhaustTheLimitAtOnceComeOncePerInterval()
    {
        constexpr qint64 limit = 1 << 20;
        Limiter limiter;
        limiter.setTimeInterval(500);
        limiter.setBandwidth(limit);
        QList<qint64> times;
        qint64 total = 0;
        for (int msec = 0; msec < 10000; ++msec, ++limiter.now) {
            const qint64 piece = limiter.transferableBytes();
            if (piece == 0)
                continue;
            QCOMPARE(piece, limit);
            limiter.transferred(piece);
            times.append(msec);
            total += piece;
        }
        QCOMPARE(times.mid(0, 3), (QList<qint64>{0, 501, 1002}));
        QCOMPARE(total, 20 * limit);
    }
};

QTEST_APPLESS_MAIN(tst_SBandwidthLimiter)
#include "tst_sbandwidthlimiter.moc"
