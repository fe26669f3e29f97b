// SPDX-License-Identifier: MIT
#include <shared/seededrandom.h>

#include <QtCore/QRegularExpression>

#include <array>

class tst_SeededRandom : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { qunsetenv("BRIX_TEST_SEED"); }

    void sameSeedGivesTheSameNumbers()
    {
        SeededRandom first(42);
        SeededRandom second(42);
        SeededRandom other(43);
        QCOMPARE(first.bytes(100), second.bytes(100));
        QCOMPARE(first.between(0, 1'000'000'000), second.between(0, 1'000'000'000));
        QVERIFY(first.bytes(100) != other.bytes(100));
    }

    void seedIsPrinted()
    {
        QTest::ignoreMessage(QtInfoMsg,
                             QRegularExpression(QStringLiteral("^seed: BRIX_TEST_SEED=[0-9]+$")));
        const SeededRandom random;
    }

    void printedSeedRepeatsARun()
    {
        qputenv("BRIX_TEST_SEED", "2147483647");
        QTest::ignoreMessage(QtInfoMsg, "seed: BRIX_TEST_SEED=2147483647");
        SeededRandom random;
        QCOMPARE(random.seed(), 2147483647U);
        QCOMPARE(random.bytes(50), SeededRandom(2147483647).bytes(50));
    }

    void bothBoundsAreReached()
    {
        SeededRandom random(1);
        std::array<int, 4> counts{};
        for (int i = 0; i < 4000; ++i) {
            const qint64 value = random.between(-1, 2);
            QVERIFY(value >= -1 && value <= 2);
            ++counts[static_cast<size_t>(value + 1)];
        }
        for (const int count : counts)
            QVERIFY2(count > 800 && count < 1200, qPrintable(QString::number(count)));
    }

    void spanOfOneGivesItsValue()
    {
        SeededRandom random(1);
        QCOMPARE(random.between(7, 7), 7);
    }

    void chanceIsInPercent()
    {
        SeededRandom random(1);
        int hits = 0;
        for (int i = 0; i < 10'000; ++i) {
            QVERIFY(!random.chance(0));
            QVERIFY(random.chance(100));
            hits += random.chance(30) ? 1 : 0;
        }
        QVERIFY2(hits > 2700 && hits < 3300, qPrintable(QString::number(hits)));
    }
};

QTEST_APPLESS_MAIN(tst_SeededRandom)
#include "tst_seededrandom.moc"
