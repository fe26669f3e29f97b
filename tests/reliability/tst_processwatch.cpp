// SPDX-License-Identifier: MIT
#include "processwatch.h"

#include <shared/seededrandom.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtTest/QTest>

#include <thread>

using Sample = ProcessWatch::Sample;

class tst_ProcessWatch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void samplesAProcess()
    {
        ProcessWatch watch(QCoreApplication::applicationPid());
        const Sample before = watch.sample();
        QVERIFY(before.msec >= 0);
        QVERIFY(before.memoryKiB > 1000);
        QVERIFY(before.threads >= 1);
        QVERIFY(before.descriptors >= 3);

        QFile file(QStringLiteral("/dev/null"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        constexpr qsizetype kBytes = 64 << 20;
        const QByteArray memory(kBytes, 'x');
        std::atomic_bool stop = false;
        std::thread thread([&stop] { stop.wait(false); });
        const Sample after = watch.sample();
        stop = true;
        stop.notify_all();
        thread.join();

        QCOMPARE(after.descriptors, before.descriptors + 1);
        QCOMPARE(after.threads, before.threads + 1);
        QVERIFY(after.memoryKiB >= before.memoryKiB + kBytes / 1024);
        QCOMPARE(watch.samples().size(), 2);
    }

    void samplesAnotherProcess()
    {
        QProcess child;
        child.start(QStringLiteral("cat"), {});
        QVERIFY(child.waitForStarted());
        ProcessWatch watch(child.processId());
        QTRY_COMPARE(watch.sample().threads, 1); // once it is no copy of this one any more
        child.closeWriteChannel();
        QVERIFY(child.waitForFinished());
        QCOMPARE(watch.sample().memoryKiB, -1);
    }

    void valuesBetweenTwoTimes()
    {
        ProcessWatch watch(QCoreApplication::applicationPid());
        const qint64 first = watch.sample().msec;
        QTRY_VERIFY(watch.sample().msec > first + 1);
        const qsizetype count = watch.samples().size();
        const qint64 last = watch.samples().last().msec;
        QCOMPARE(watch.between(first, last, &Sample::msec).size(), count);
        QCOMPARE(watch.between(first, first, &Sample::msec).first(), first);
        QVERIFY(watch.between(first, last - 1, &Sample::msec).size() < count);
        QCOMPARE(watch.between(last, last + 100, &Sample::msec).last(), last);
        QCOMPARE(watch.between(last + 1, last + 100, &Sample::msec), QList<qint64>());
    }

    void medianIsTheMiddle()
    {
        QCOMPARE(ProcessWatch::median({}), 0);
        QCOMPARE(ProcessWatch::median({5}), 5);
        QCOMPARE(ProcessWatch::median({9, 1, 5}), 5);
        QCOMPARE(ProcessWatch::median({9, 1, 5, 1000000, 1}), 5);
    }

    void fewValuesDoNotRise()
    {
        QCOMPARE(ProcessWatch::rise({}), 0);
        QCOMPARE(ProcessWatch::rise({1, 100}), 0);
        QCOMPARE(ProcessWatch::rise({1, 5, 100}), 99);
    }

    void whatComesAndGoesIsFlat()
    {
        SeededRandom random(7);
        QList<qint64> values;
        for (int i = 0; i < 300; ++i)
            values.append(1000 + random.between(-50, 50) + (random.chance(2) ? 5000 : 0));
        QVERIFY(qAbs(ProcessWatch::rise(values)) < 25);
    }

    void whatCreepsRises()
    {
        SeededRandom random(7);
        QList<qint64> values;
        for (int i = 0; i < 300; ++i)
            values.append(1000 + i + random.between(-50, 50));
        const qint64 rise = ProcessWatch::rise(values);
        QVERIFY2(rise > 175 && rise < 225, qPrintable(QString::number(rise)));
    }
};

QTEST_GUILESS_MAIN(tst_ProcessWatch)
#include "tst_processwatch.moc"
