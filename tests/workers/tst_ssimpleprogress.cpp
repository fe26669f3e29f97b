// SPDX-License-Identifier: MIT
#include <brixlib/workers/ssimplebackgroundrunner.h>
#include <brixlib/workers/ssimpleprogress.h>
#include <brixlib/workers/ssimpleworker.h>

using namespace Talverine;

namespace {

template<typename Function>
void inOtherThread(Function function)
{
    const std::unique_ptr<QThread> thread(QThread::create(function));
    thread->start();
    thread->wait();
}

//! Works until its progress says stop.
class Worker : public SSimpleWorker
{
public:
    explicit Worker(Interfaces::IProgress *progress, QAtomicInt *started)
        : m_progress(progress)
        , m_started(started)
    {
    }

    bool doWork() override
    {
        m_started->ref();
        while (!m_progress->isAbortRequested())
            QThread::yieldCurrentThread();
        return true;
    }

private:
    Interfaces::IProgress *m_progress;
    QAtomicInt *m_started;
};

} // namespace

class tst_SSimpleProgress : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshProgressIsNotAborted()
    {
        const SSimpleProgress progress;
        QVERIFY(!progress.isAbortRequested());
        QCOMPARE(progress.progress(), 0);
    }

    void abortSetsTheFlag()
    {
        SSimpleProgress progress;
        QSignalSpy requested(&progress, &SProgress::abortRequested);
        progress.abort();
        QVERIFY(progress.isAbortRequested());
        QCOMPARE(requested.count(), 1);
        progress.reset();
        QVERIFY(!progress.isAbortRequested());
    }

    void abortInterruptsTheCallingThread()
    {
        SSimpleProgress progress;
        bool interrupted = false;
        inOtherThread([&] {
            progress.abort();
            interrupted = QThread::currentThread()->isInterruptionRequested();
        });
        QVERIFY(interrupted);
        QVERIFY(progress.isAbortRequested());
        QVERIFY(!QThread::currentThread()->isInterruptionRequested());
    }

    void abortInTheMainThreadIsQuiet()
    {
        QTest::failOnWarning(QRegularExpression(QStringLiteral(".*")));
        SSimpleProgress progress;
        progress.abort();
        QVERIFY(progress.isAbortRequested());
    }

    void interruptedThreadCountsAsAborted()
    {
        const SSimpleProgress progress;
        bool before = true;
        bool after = false;
        inOtherThread([&] {
            before = progress.isAbortRequested();
            QThread::currentThread()->requestInterruption();
            after = progress.isAbortRequested();
        });
        QVERIFY(!before);
        QVERIFY(after);
        QVERIFY(!progress.isAbortRequested());
    }

    void abortReachesChildren()
    {
        SSimpleProgress progress;
        SProgress child;
        progress.addChild(&child);
        progress.abort();
        QVERIFY(child.isAbortRequested());
    }

    // The thread is interrupted by then, and a child of this kind looks aborted from inside it.
    void abortInAThreadReachesAChildThatLooksAborted()
    {
        SSimpleProgress progress;
        SSimpleProgress child;
        progress.addChild(&child);
        inOtherThread([&] { progress.abort(); });
        QVERIFY(child.isAbortRequested());
    }

    void interruptedRunnerStopsAWorkerThatAsksItsProgress()
    {
        SSimpleProgress progress;
        QAtomicInt started = 0;
        SSimpleBackgroundRunner runner(new Worker(&progress, &started));
        runner.start();
        QTRY_COMPARE(started.loadAcquire(), 1);
        runner.requestInterruption();
        QVERIFY(runner.waitForFinished());
        QVERIFY(!progress.isAbortRequested());
    }
};

QTEST_GUILESS_MAIN(tst_SSimpleProgress)
#include "tst_ssimpleprogress.moc"
