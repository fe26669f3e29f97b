// SPDX-License-Identifier: MIT
#include <brixlib/workers/ssimpleworker.h>

#include <QtCore/QRegularExpression>

#include <functional>
#include <limits>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

//! Does in each step what the test says.
class Worker : public SSimpleWorker
{
public:
    using SSimpleWorker::done;
    using SSimpleWorker::isInitialized;
    using SSimpleWorker::isInterruptionRequested;
    using SSimpleWorker::isRunning;

    bool doWork() override
    {
        ++steps;
        return step ? step() : true;
    }

    std::function<bool()> step;
    bool startsByItself = false;
    bool initResult = true;
    int steps = 0;

protected:
    bool workerInit() override { return startsByItself ? SSimpleWorker::workerInit() : initResult; }
};

//! Runs a function in a thread of its own and waits for its end.
template<typename Function>
void inOtherThread(Function function)
{
    const std::unique_ptr<QThread> thread(QThread::create(function));
    thread->start();
    thread->wait();
}

SimpleWorkerError errorOf(const QSignalSpy &spy)
{
    return spy.last().first().value<SimpleWorkerError>();
}

} // namespace

class tst_SSimpleWorker : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshWorkerIsIdle()
    {
        Worker worker;
        QVERIFY(!worker.isInitialized());
        QVERIFY(!worker.isRunning());
        QVERIFY(!worker.userData().isValid());
        QCOMPARE(worker.parent(), nullptr);
    }

    void userDataIsKept()
    {
        Worker worker;
        worker.setUserData(u"for the owner"_s);
        QCOMPARE(worker.userData().toString(), u"for the owner"_s);
        worker.setUserData(QVariant());
        QVERIFY(!worker.userData().isValid());
    }

    void initTellsThatItStarted()
    {
        Worker worker;
        QSignalSpy started(&worker, &SSimpleWorker::started);
        QSignalSpy finished(&worker, &SSimpleWorker::finished);
        worker.init();
        QVERIFY(worker.isInitialized());
        QCOMPARE(started.count(), 1);
        QCOMPARE(finished.count(), 0);
        QCOMPARE(worker.steps, 0);
    }

    void failedInitFinishesWithInitError()
    {
        Worker worker;
        worker.initResult = false;
        QSignalSpy started(&worker, &SSimpleWorker::started);
        QSignalSpy finished(&worker, &SSimpleWorker::finished);
        worker.init();
        QVERIFY(!worker.isInitialized());
        QCOMPARE(started.count(), 0);
        QCOMPARE(finished.count(), 1);
        QCOMPARE(errorOf(finished), SimpleWorkerError::InitError);
    }

    void defaultInitTakesOneStepOnStart()
    {
        Worker worker;
        worker.startsByItself = true;
        QSignalSpy finished(&worker, &SSimpleWorker::finished);
        worker.init();
        QCOMPARE(worker.steps, 1);
        QCOMPARE(finished.count(), 0);
        QVERIFY(!worker.isRunning());
    }

    void secondInitDoesNotDoubleTheSteps()
    {
        Worker worker;
        worker.startsByItself = true;
        worker.init();
        worker.init();
        QCOMPARE(worker.steps, 2);
    }

    void runBeforeInitFinishesWithInitError()
    {
        Worker worker;
        QSignalSpy finished(&worker, &SSimpleWorker::finished);
        worker.run();
        QCOMPARE(worker.steps, 0);
        QCOMPARE(finished.count(), 1);
        QCOMPARE(errorOf(finished), SimpleWorkerError::InitError);
    }

    void eachRunTakesOneStep()
    {
        Worker worker;
        QSignalSpy finished(&worker, &SSimpleWorker::finished);
        worker.init();
        for (int i = 1; i <= 3; ++i) {
            worker.run();
            QCOMPARE(worker.steps, i);
        }
        QCOMPARE(finished.count(), 0);
    }

    void runDuringAStepIsLost()
    {
        Worker worker;
        bool running = false;
        worker.step = [&] {
            running = worker.isRunning();
            worker.run();
            return true;
        };
        QSignalSpy finished(&worker, &SSimpleWorker::finished);
        worker.init();
        worker.run();
        QVERIFY(running);
        QCOMPARE(worker.steps, 1);
        QCoreApplication::processEvents();
        QCOMPARE(worker.steps, 1);
        QCOMPARE(finished.count(), 0);
    }

    void failedStepFinishesWithWorkError()
    {
        Worker worker;
        worker.step = [] { return false; };
        QSignalSpy finished(&worker, &SSimpleWorker::finished);
        worker.init();
        worker.run();
        QCOMPARE(finished.count(), 1);
        QCOMPARE(errorOf(finished), SimpleWorkerError::WorkError);
    }

    void failedStepOutweighsDone()
    {
        Worker worker;
        worker.step = [&] {
            worker.done();
            return false;
        };
        QSignalSpy finished(&worker, &SSimpleWorker::finished);
        worker.init();
        worker.run();
        QCOMPARE(finished.count(), 1);
        QCOMPARE(errorOf(finished), SimpleWorkerError::WorkError);
    }

    void doneFinishesWithoutError()
    {
        Worker worker;
        worker.step = [&] {
            worker.done();
            return true;
        };
        QSignalSpy finished(&worker, &SSimpleWorker::finished);
        worker.init();
        worker.run();
        QCOMPARE(finished.count(), 1);
        QCOMPARE(errorOf(finished), SimpleWorkerError::NoError);
    }

    void nothingRunsAfterFinished_data()
    {
        QTest::addColumn<SimpleWorkerError>("error");
        QTest::newRow("done") << SimpleWorkerError::NoError;
        QTest::newRow("failed") << SimpleWorkerError::WorkError;
        QTest::newRow("terminated") << SimpleWorkerError::InterruptRequested;
    }

    void nothingRunsAfterFinished()
    {
        QFETCH(SimpleWorkerError, error);
        Worker worker;
        worker.step = [&] {
            if (error == SimpleWorkerError::NoError)
                worker.done();
            return error != SimpleWorkerError::WorkError;
        };
        QSignalSpy finished(&worker, &SSimpleWorker::finished);
        worker.init();
        if (error == SimpleWorkerError::InterruptRequested)
            worker.terminateLater();
        else
            worker.run();
        QCOMPARE(finished.count(), 1);
        QCOMPARE(errorOf(finished), error);

        const int steps = worker.steps;
        worker.run();
        worker.terminateLater();
        QCOMPARE(worker.steps, steps);
        QCOMPARE(finished.count(), 1);
    }

    void terminateLaterWhileIdleReportsAtOnce()
    {
        Worker worker;
        QSignalSpy finished(&worker, &SSimpleWorker::finished);
        worker.init();
        worker.terminateLater();
        QCOMPARE(finished.count(), 1);
        QCOMPARE(errorOf(finished), SimpleWorkerError::InterruptRequested);
        QVERIFY(!worker.isRunning());
    }

    void terminateLaterBeforeInitReportsAtOnce()
    {
        Worker worker;
        QSignalSpy finished(&worker, &SSimpleWorker::finished);
        worker.terminateLater();
        QCOMPARE(finished.count(), 1);
        QCOMPARE(errorOf(finished), SimpleWorkerError::InterruptRequested);
    }

    // What runs the worker was not connected yet, and waits for a finished() that was long ago.
    void initAfterTerminateLaterReportsOnceMore()
    {
        Worker worker;
        worker.startsByItself = true;
        worker.terminateLater();
        QSignalSpy started(&worker, &SSimpleWorker::started);
        QSignalSpy finished(&worker, &SSimpleWorker::finished);
        worker.init();
        QCOMPARE(started.count(), 1);
        QCOMPARE(worker.steps, 0);
        QCOMPARE(finished.count(), 1);
        QCOMPARE(errorOf(finished), SimpleWorkerError::InterruptRequested);
    }

    void workerToldToTerminateMayDieInItsOwnStarted()
    {
        auto *worker = new Worker;
        QPointer<Worker> guard(worker);
        worker->terminateLater();
        connect(worker, &SSimpleWorker::started, this, [worker] { delete worker; });
        worker->init();
        QVERIFY(guard.isNull());
    }

    void terminateLaterWhileBusyReportsAfterTheStep()
    {
        Worker worker;
        QSignalSpy finished(&worker, &SSimpleWorker::finished);
        qsizetype reportsWithinStep = -1;
        worker.step = [&] {
            worker.terminateLater();
            reportsWithinStep = finished.count();
            return true;
        };
        worker.init();
        worker.run();
        QCOMPARE(reportsWithinStep, 0);
        QCOMPARE(finished.count(), 1);
        QCOMPARE(errorOf(finished), SimpleWorkerError::InterruptRequested);
        worker.run();
        QCOMPARE(worker.steps, 1);
    }

    void doneOutweighsTerminateLater()
    {
        Worker worker;
        QSignalSpy finished(&worker, &SSimpleWorker::finished);
        worker.step = [&] {
            worker.terminateLater();
            worker.done();
            return true;
        };
        worker.init();
        worker.run();
        QCOMPARE(finished.count(), 1);
        QCOMPARE(errorOf(finished), SimpleWorkerError::NoError);
    }

    void interruptedThreadTakesNoStep()
    {
        int steps = -1;
        QList<SimpleWorkerError> errors;
        inOtherThread([&] {
            Worker worker;
            connect(&worker, &SSimpleWorker::finished, &worker,
                    [&](SimpleWorkerError error) { errors.append(error); });
            worker.init();
            QThread::currentThread()->requestInterruption();
            worker.run();
            worker.run();
            steps = worker.steps;
        });
        QCOMPARE(steps, 0);
        QCOMPARE(errors, QList{SimpleWorkerError::InterruptRequested});
    }

    void doneInAnInterruptedThreadHasNoEffectAndTheNextRunReportsIt()
    {
        QList<SimpleWorkerError> errors;
        qsizetype errorsAfterFirstRun = -1;
        int steps = -1;
        bool seen = false;
        inOtherThread([&] {
            Worker worker;
            worker.step = [&] {
                QThread::currentThread()->requestInterruption();
                seen = Worker::isInterruptionRequested();
                worker.done();
                return true;
            };
            connect(&worker, &SSimpleWorker::finished, &worker,
                    [&](SimpleWorkerError error) { errors.append(error); });
            worker.init();
            worker.run();
            errorsAfterFirstRun = errors.size();
            worker.run();
            steps = worker.steps;
        });
        QVERIFY(seen);
        QCOMPARE(errorsAfterFirstRun, 0);
        QCOMPARE(errors, QList{SimpleWorkerError::InterruptRequested});
        QCOMPARE(steps, 1);
    }

    void workerMayDieInItsOwnFinished()
    {
        auto *worker = new Worker;
        QPointer<Worker> guard(worker);
        connect(worker, &SSimpleWorker::finished, this, [worker] { delete worker; });
        worker->init();
        worker->terminateLater();
        QVERIFY(guard.isNull());
    }

    void sleepLetsTheEventsGoOn()
    {
        int ticks = 0;
        QTimer timer;
        connect(&timer, &QTimer::timeout, this, [&] { ++ticks; });
        timer.start(1);
        QElapsedTimer clock;
        clock.start();
        SSimpleWorker::sleep(50);
        QVERIFY2(clock.elapsed() >= 49, qPrintable(QString::number(clock.elapsed())));
        QVERIFY(ticks > 0);
    }

    void sleepOfNothingReturns_data()
    {
        QTest::addColumn<int>("msec");
        QTest::newRow("nothing") << 0;
        QTest::newRow("less than nothing") << -1;
        QTest::newRow("smallest") << std::numeric_limits<int>::min();
    }

    void sleepOfNothingReturns()
    {
        QTest::failOnWarning(QRegularExpression(u".*"_s));
        QFETCH(int, msec);
        SSimpleWorker::sleep(msec);
    }

    // Two threads that hurry a worker on and one that ends it: exactly one finished() comes out.
    void terminateLaterFromOtherThreadsFinishesOnce()
    {
        for (int round = 0; round < 200; ++round) {
            Worker worker;
            QAtomicInt reports = 0;
            connect(
                &worker, &SSimpleWorker::finished, &worker, [&] { reports.ref(); },
                Qt::DirectConnection);
            worker.init();
            const auto terminate = [&] { worker.terminateLater(); };
            const std::unique_ptr<QThread> first(QThread::create(terminate));
            const std::unique_ptr<QThread> second(QThread::create(terminate));
            first->start();
            second->start();
            for (int i = 0; i < 50; ++i)
                worker.run();
            first->wait();
            second->wait();
            worker.run();
            QCOMPARE(reports.loadAcquire(), 1);
        }
    }
};

QTEST_GUILESS_MAIN(tst_SSimpleWorker)
#include "tst_ssimpleworker.moc"
