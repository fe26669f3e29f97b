// SPDX-License-Identifier: MIT
#include <brixrt/srandom.h>

#include <QtCore/QSet>

using namespace Talverine;

class tst_SRandom : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sameSeedGivesTheSameNumbers()
    {
        SRandom a(7);
        SRandom b(7);
        SRandom other(8);
        int different = 0;
        for (int i = 0; i < 100; ++i) {
            const quint32 number = a.generate();
            QCOMPARE(b.generate(), number);
            different += other.generate() != number;
        }
        QVERIFY(different > 90);
    }

    void numbersStayBelowTheBound()
    {
        SRandom random(1);
        QSet<quint32> seen;
        for (int i = 0; i < 1000; ++i) {
            const quint32 number = random.generate(10);
            QVERIFY(number < 10);
            seen.insert(number);
        }
        QCOMPARE(seen.size(), 10);
    }

    void smallBoundsGiveZero()
    {
        SRandom random(1);
        QCOMPARE(random.generate(0), 0u);
        QCOMPARE(random.generate(1), 0u);
    }

    void defaultSeedsDiffer()
    {
        QSet<quint32> seeds;
        for (int i = 0; i < 20; ++i)
            seeds.insert(SRandom::defaultSeed());
        // Two of twenty are equal once in twenty million runs.
        QVERIFY(seeds.size() > 18);
    }
};

QTEST_APPLESS_MAIN(tst_SRandom)
#include "tst_srandom.moc"
