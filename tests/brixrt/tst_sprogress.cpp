// SPDX-License-Identifier: MIT
#include <brixrt/sprogress.h>

#include <thread>
#include <vector>

using namespace Talverine;

class tst_SProgress : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshProgressIsZeroAndNotAborted()
    {
        const SProgress progress;
        QCOMPARE(progress.progress(), 0);
        QVERIFY(!progress.isAbortRequested());
    }

    void diesWithItsParent()
    {
        QPointer<SProgress> progress;
        {
            QObject parent;
            progress = new SProgress(&parent);
        }
        QVERIFY(progress.isNull());
    }

    void tellsEachNewValueOnce()
    {
        SProgress progress;
        const QSignalSpy spy(&progress, &SProgress::progressChanged);
        progress.setProgress(0);
        QCOMPARE(spy.count(), 0);
        progress.setProgress(10);
        progress.setProgress(10);
        progress.setProgress(20);
        QCOMPARE(spy.count(), 2);
        QCOMPARE(spy.at(0).at(0).toInt(), 10);
        QCOMPARE(spy.at(1).at(0).toInt(), 20);
    }

    void tellsAbortOnceUntilReset()
    {
        SProgress progress;
        const QSignalSpy spy(&progress, &SProgress::abortRequested);
        progress.abort();
        progress.abort();
        QCOMPARE(spy.count(), 1);
        progress.reset();
        progress.abort();
        QCOMPARE(spy.count(), 2);
    }

    void resetTellsTheValue()
    {
        SProgress progress;
        progress.setProgress(10);
        const QSignalSpy spy(&progress, &SProgress::progressChanged);
        progress.reset();
        progress.reset();
        QCOMPARE(spy.count(), 1);
        QCOMPARE(spy.at(0).at(0).toInt(), 0);
    }

    void slotsServeConnections()
    {
        SProgress first;
        SProgress second;
        connect(&first, &SProgress::progressChanged, &second, &SProgress::setProgress);
        connect(&first, &SProgress::abortRequested, &second, &SProgress::abort);
        first.setProgress(33);
        first.abort();
        QCOMPARE(second.progress(), 33);
        QVERIFY(second.isAbortRequested());
        QVERIFY(QMetaObject::invokeMethod(&second, "reset", Qt::DirectConnection));
        QCOMPARE(second.progress(), 0);
    }

    void childrenAreReachedBeforeTheSignal()
    {
        SProgress progress;
        SProgress child;
        progress.addChild(&child);
        int seen = -1;
        bool seenAbort = false;
        connect(&progress, &SProgress::progressChanged, this, [&] { seen = child.progress(); });
        connect(&progress, &SProgress::abortRequested, this,
                [&] { seenAbort = child.isAbortRequested(); });
        progress.setProgress(60);
        progress.abort();
        QCOMPARE(seen, 60);
        QVERIFY(seenAbort);
        progress.reset();
        QCOMPARE(seen, 0);
        QVERIFY(!child.isAbortRequested());
    }

    void noLockIsHeldWhileASignalGoesOut()
    {
        SProgress progress;
        int answers = 0;
        connect(&progress, &SProgress::progressChanged, this, [&](int percent) {
            answers += progress.progress() == percent && !progress.isAbortRequested();
        });
        connect(&progress, &SProgress::abortRequested, this, [&] {
            answers += progress.isAbortRequested();
            progress.reset();
        });
        progress.setProgress(1);
        progress.abort();
        QCOMPARE(answers, 3);
    }

    void mayBeDeletedByItsSignal()
    {
        auto *progress = new SProgress;
        connect(progress, &SProgress::abortRequested, this, [progress] { delete progress; });
        progress->abort();
    }

    void threadsTellEachChangeToItsOwner()
    {
        SProgress progress;
        int told = 0;
        int aborts = 0;
        connect(&progress, &SProgress::progressChanged, this, [&] { ++told; });
        connect(&progress, &SProgress::abortRequested, this, [&] { ++aborts; });
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([&progress] {
                for (int percent = 1; percent <= 100; ++percent)
                    progress.setProgress(percent);
                progress.abort();
            });
        }
        for (std::thread &thread : threads)
            thread.join();
        QTRY_COMPARE(aborts, 1);
        QVERIFY(told >= 100);
        QCOMPARE(progress.progress(), 100);
    }
};

QTEST_GUILESS_MAIN(tst_SProgress)
#include "tst_sprogress.moc"
