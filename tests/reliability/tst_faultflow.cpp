// SPDX-License-Identifier: MIT
#include <shared/faultflow.h>

#include <QtTest/QTest>

using namespace std::chrono_literals;

namespace {

// A time like any other; the test's clock stands still unless it is moved.
const FaultFlow::Time kStart = FaultFlow::Time() + 1h;

QByteArray packet(const FaultFlow &flow, FaultFlow::Time now)
{
    return flow.packet(now).toByteArray();
}

// All packets that leave at \a now.
QList<QByteArray> packets(FaultFlow *flow, FaultFlow::Time now)
{
    QList<QByteArray> list;
    for (QByteArray bytes = packet(*flow, now); !bytes.isEmpty(); bytes = packet(*flow, now)) {
        list.append(bytes);
        flow->leave(bytes.size(), now);
    }
    return list;
}

} // namespace

class tst_FaultFlow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshFlowHoldsNothing()
    {
        const FaultFlow flow({}, kStart);
        QVERIFY(flow.isEmpty());
        QVERIFY(!flow.isAtFault());
        QVERIFY(!flow.isStalled(kStart));
        QVERIFY(!flow.nextTime(kStart));
        QCOMPARE(flow.room(kStart), FaultFlow::kBufferBytes);
        QCOMPARE(packet(flow, kStart), QByteArray());
        QCOMPARE(flow.passed(), 0);
    }

    void withoutAPlanAllPassesAtOnce()
    {
        FaultFlow flow({}, kStart);
        flow.take("abc", kStart);
        flow.take("defg", kStart);
        QCOMPARE(flow.nextTime(kStart).value(), kStart);
        QCOMPARE(packets(&flow, kStart), QList<QByteArray>{"abcdefg"});
        QCOMPARE(flow.passed(), 7);
        QVERIFY(flow.isEmpty());
    }

    void whatDidNotLeaveStays()
    {
        FaultFlow flow({}, kStart);
        flow.take("abcdef", kStart);
        flow.leave(4, kStart);
        flow.take("gh", kStart);
        QCOMPARE(packets(&flow, kStart), QList<QByteArray>{"efgh"});
    }

    void takesNoMoreThanItsBuffer()
    {
        FaultFlow flow({}, kStart);
        const QByteArray bytes(FaultFlow::kBufferBytes - 10, 'x');
        flow.take(bytes, kStart);
        QCOMPARE(flow.room(kStart), 10);
        flow.leave(100, kStart);
        QCOMPARE(flow.room(kStart), 110);
    }

    void manyBytesPassThroughTheSameBuffer()
    {
        FaultFlow flow({}, kStart);
        QByteArray sent;
        QByteArray left;
        for (int i = 0; i < 3000; ++i) {
            const QByteArray piece = QByteArray::number(i).repeated(100);
            flow.take(piece, kStart);
            sent += piece;
            const QByteArray bytes = packet(flow, kStart).left(350);
            left += bytes;
            flow.leave(bytes.size(), kStart);
        }
        left += packets(&flow, kStart).join();
        QCOMPARE(left, sent);
    }

    void delayHoldsEachByteBack()
    {
        FaultFlow flow({.delay = 30ms}, kStart);
        flow.take("abc", kStart);
        flow.take("def", kStart + 10ms);
        QCOMPARE(packet(flow, kStart + 29ms), QByteArray());
        QCOMPARE(flow.nextTime(kStart + 10ms).value(), kStart + 30ms);
        QCOMPARE(packets(&flow, kStart + 30ms), QList<QByteArray>{"abc"});
        QCOMPARE(flow.nextTime(kStart + 30ms).value(), kStart + 40ms);
        QCOMPARE(packets(&flow, kStart + 40ms), QList<QByteArray>{"def"});
    }

    void joinWindowMakesOnePacketOfMany()
    {
        FaultFlow flow({.joinWindow = 20ms}, kStart);
        flow.take("a", kStart);
        flow.take("b", kStart + 5ms);
        flow.take("c", kStart + 19ms);
        QCOMPARE(packet(flow, kStart + 19ms), QByteArray());
        QCOMPARE(packets(&flow, kStart + 20ms), QList<QByteArray>{"abc"});
        flow.take("d", kStart + 21ms);
        QCOMPARE(packet(flow, kStart + 40ms), QByteArray());
        QCOMPARE(packets(&flow, kStart + 41ms), QList<QByteArray>{"d"});
    }

    void packetsAreSplit()
    {
        FaultFlow flow({.packetBytes = 3}, kStart);
        flow.take("abcdefgh", kStart);
        QCOMPARE(packets(&flow, kStart), (QList<QByteArray>{"abc", "def", "gh"}));
    }

    void pauseStandsBetweenPackets()
    {
        FaultFlow flow({.packetBytes = 1, .packetPause = 5ms}, kStart);
        flow.take("abc", kStart);
        QCOMPARE(packets(&flow, kStart), QList<QByteArray>{"a"});
        QCOMPARE(packet(flow, kStart + 4ms), QByteArray());
        QCOMPARE(flow.nextTime(kStart).value(), kStart + 5ms);
        QCOMPARE(packets(&flow, kStart + 5ms), QList<QByteArray>{"b"});
    }

    void speedStaysAtTheLimit_data()
    {
        QTest::addColumn<qint64>("limit");
        QTest::addColumn<int>("stepMs");
        QTest::newRow("100 bytes a second, asked each ms") << qint64(100) << 1;
        QTest::newRow("1 MiB a second, asked each ms") << qint64(1 << 20) << 1;
        QTest::newRow("1 MiB a second, asked late each time") << qint64(1 << 20) << 23;
    }

    void speedStaysAtTheLimit()
    {
        QFETCH(const qint64, limit);
        QFETCH(const int, stepMs);
        FaultFlow flow({.bytesPerSecond = limit}, kStart);
        const QByteArray endless(FaultFlow::kBufferBytes, 'x');
        for (auto now = kStart; now < kStart + 10s; now += std::chrono::milliseconds(stepMs)) {
            flow.take(endless.first(flow.room(now)), now);
            (void)packets(&flow, now);
        }
        const double share = double(flow.passed()) / double(10 * limit);
        QVERIFY2(share > 0.95 && share < 1.05, qPrintable(QString::number(share)));
    }

    void limitIsNotSavedUp()
    {
        FaultFlow flow({.bytesPerSecond = 1000}, kStart);
        const auto later = kStart + 10s; // in which nothing came
        flow.take(QByteArray(1000, 'x'), later);
        QVERIFY(packets(&flow, later).join().size() <= 60);
    }

    void oneByteIsFlipped_data()
    {
        QTest::addColumn<qint64>("at");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("none") << qint64(-1) << QByteArray("abcdef");
        QTest::newRow("the first") << qint64(0) << QByteArray("Abcdef");
        QTest::newRow("the last of a piece") << qint64(2) << QByteArray("abCdef");
        QTest::newRow("the first of the next piece") << qint64(3) << QByteArray("abcDef");
        QTest::newRow("the last") << qint64(5) << QByteArray("abcdeF");
        QTest::newRow("one that never comes") << qint64(6) << QByteArray("abcdef");
    }

    void oneByteIsFlipped()
    {
        QFETCH(const qint64, at);
        FaultFlow flow({.flipAt = at, .flipBits = 0x20}, kStart);
        flow.take("abc", kStart);
        flow.take("def", kStart);
        QTEST(packets(&flow, kStart).join(), "expected");
    }

    void faultComesAfterExactlySoManyBytes()
    {
        FaultFlow flow({.faultAt = 5}, kStart);
        QCOMPARE(flow.room(kStart), 5);
        flow.take("abc", kStart);
        QCOMPARE(flow.room(kStart), 2);
        flow.take("de", kStart);
        QCOMPARE(flow.room(kStart), 0);
        flow.leave(4, kStart);
        QVERIFY(!flow.isAtFault());
        flow.leave(1, kStart);
        QVERIFY(flow.isAtFault());
        QCOMPARE(flow.room(kStart), 0);
        QVERIFY(!flow.isStalled(kStart));
    }

    void faultAtZeroIsThereAtOnce()
    {
        const FaultFlow flow({.faultAt = 0}, kStart);
        QVERIFY(flow.isAtFault());
        QCOMPARE(flow.room(kStart), 0);
    }

    void stallLastsForGoodByItself()
    {
        FaultFlow flow({.faultAt = 2, .fault = FlowFault::Stall}, kStart);
        flow.take("ab", kStart);
        QVERIFY(!flow.isStalled(kStart));
        flow.leave(2, kStart);
        QVERIFY(flow.isStalled(kStart + 1000h));
        QCOMPARE(flow.room(kStart + 1000h), 0);
        QVERIFY(!flow.nextTime(kStart));
    }

    void stallEnds()
    {
        FaultFlow flow({.faultAt = 2, .fault = FlowFault::Stall, .stallTime = 50ms}, kStart);
        flow.take("ab", kStart);
        flow.leave(2, kStart + 1ms);
        QVERIFY(flow.isStalled(kStart + 50ms));
        QCOMPARE(flow.room(kStart + 50ms), 0);
        QCOMPARE(flow.nextTime(kStart + 50ms).value(), kStart + 51ms);
        QVERIFY(!flow.isStalled(kStart + 51ms));
        QCOMPARE(flow.room(kStart + 51ms), FaultFlow::kBufferBytes);
        flow.take("cdefg", kStart + 51ms);
        QCOMPARE(packets(&flow, kStart + 51ms), QList<QByteArray>{"cdefg"});
    }

    void stallAtTheStartEndsToo()
    {
        FaultFlow flow({.faultAt = 0, .fault = FlowFault::Stall, .stallTime = 50ms}, kStart);
        QVERIFY(flow.isStalled(kStart + 49ms));
        QVERIFY(!flow.isStalled(kStart + 50ms));
    }
};

QTEST_APPLESS_MAIN(tst_FaultFlow)
#include "tst_faultflow.moc"
