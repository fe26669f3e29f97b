// SPDX-License-Identifier: MIT
#include <cli/progressbar.h>

using namespace Brix;
using namespace Qt::StringLiterals;

class tst_ProgressBar : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lineTellsBytesRateAndTimeLeft()
    {
        QCOMPARE(
            ProgressBar::text(50 << 20, 100 << 20, 5'000, 80),
            u"[#############.............]   50%  50.0 MiB of 100.0 MiB  10.0 MiB/s  0:05 left"_s);
    }

    void barGivesWayOnANarrowTerminal()
    {
        const QString wide = ProgressBar::text(1 << 20, 4 << 20, 1'000, 100);
        QVERIFY(wide.startsWith(u"[#######.......................]   25%"_s));
        QVERIFY(ProgressBar::text(1 << 20, 4 << 20, 1'000, 60).startsWith(u"["_s));
        QCOMPARE(ProgressBar::text(1 << 20, 4 << 20, 1'000, 50),
                 u" 25%  1.0 MiB of 4.0 MiB  1.0 MiB/s  0:03 left"_s);
    }

    void lineIsNeverWiderThanTheTerminal()
    {
        for (int width = 0; width < 200; ++width) {
            QVERIFY(ProgressBar::text(123'456'789, 987'654'321, 4'321, width).size() <= width);
            QVERIFY(ProgressBar::text(123'456'789, 0, 4'321, width).size() <= width);
        }
    }

    void unknownTotalShowsWhatIsDone()
    {
        QCOMPARE(ProgressBar::text(2048, 0, 1'000, 80), u"2.0 KiB  2.0 KiB/s"_s);
    }

    void oddNumbersAreShownSoundly_data()
    {
        QTest::addColumn<qint64>("done");
        QTest::addColumn<qint64>("total");
        QTest::addColumn<qint64>("milliseconds");
        QTest::addColumn<QString>("contained");
        QTest::newRow("nothing yet") << 0LL << 100LL << 0LL << u"  0%"_s;
        QTest::newRow("all") << 100LL << 100LL << 1'000LL << u"100%"_s;
        QTest::newRow("more than all") << 200LL << 100LL << 1'000LL << u"100%"_s;
        QTest::newRow("hours left") << (1LL << 20) << (7LL << 30) << 1'000LL << u"1:59:27 left"_s;
        QTest::newRow("largest size")
            << 1LL << std::numeric_limits<qint64>::max() << 1'000LL << u"  0%"_s;
    }

    void oddNumbersAreShownSoundly()
    {
        QFETCH(qint64, done);
        QFETCH(qint64, total);
        QFETCH(qint64, milliseconds);
        QFETCH(QString, contained);
        const QString text = ProgressBar::text(done, total, milliseconds, 120);
        QVERIFY2(text.contains(contained), qPrintable(text));
    }
};

QTEST_APPLESS_MAIN(tst_ProgressBar)
#include "tst_progressbar.moc"
