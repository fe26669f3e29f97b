// SPDX-License-Identifier: MIT
#include <brixlib/workers/ssimplebackgroundrunner.h>
#include <brixlib/workers/ssimpleworker.h>

#include <QtCore/QRegularExpression>
#include <QtCore/QSemaphore>

#ifdef Q_OS_LINUX
#include <sys/resource.h>
#include <unistd.h>
#endif

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

#ifdef Q_OS_LINUX
//! What the process has taken of its address space.
rlim_t addressSpaceBytes()
{
    QFile file(u"/proc/self/statm"_s);
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    return file.readAll().split(' ').first().toULongLong() *
           static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}
#endif

//! What the worker of a test does and what became of it, shared with the thread of the test.
struct Course
{
    QSemaphore initialised;
    QSemaphore inStep;
    QSemaphore mayGoOn;
    QSemaphore dying;
    QAtomicInt steps = 0;
    QAtomicInt destroyed = 0;
    QAtomicPointer<QThread> stepThread;
    QAtomicPointer<QThread> deathThread;
    QAtomicInt error = -1;
};

class Worker : public SSimpleWorker
{
public:
    enum Kind { DoneAtOnce, FailsToInit, Fails, Idles, Blocks, WorksUntilInterrupted, DiesSlowly };

    Worker(Course *course, Kind kind, QObject *parent = nullptr)
        : SSimpleWorker(parent)
        , m_course(course)
        , m_kind(kind)
    {
        connect(
            this, &SSimpleWorker::finished, this,
            [course](SimpleWorkerError error) {
                course->error.storeRelease(static_cast<int>(error));
            },
            Qt::DirectConnection);
    }

    ~Worker() override
    {
        if (m_kind == DiesSlowly) {
            m_course->dying.release();
            m_course->mayGoOn.tryAcquire(1, 500);
        }
        m_course->deathThread.storeRelease(QThread::currentThread());
        m_course->destroyed.ref();
    }

    bool doWork() override
    {
        m_course->steps.ref();
        m_course->stepThread.storeRelease(QThread::currentThread());
        if (m_kind == DoneAtOnce || m_kind == DiesSlowly)
            done();
        if (m_kind == Blocks) {
            m_course->inStep.release();
            m_course->mayGoOn.acquire();
        }
        if (m_kind == WorksUntilInterrupted) {
            m_course->inStep.release();
            while (!isInterruptionRequested())
                QThread::yieldCurrentThread();
        }
        return m_kind != Fails;
    }

protected:
    bool workerInit() override
    {
        m_course->initialised.release();
        if (m_kind == FailsToInit)
            return false;
        return m_kind == Idles || SSimpleWorker::workerInit();
    }

private:
    Course *m_course;
    Kind m_kind;
};

SimpleWorkerError errorOf(const Course &course)
{
    return static_cast<SimpleWorkerError>(course.error.loadAcquire());
}

#ifdef Q_OS_LINUX
//! Starts a thread with a stack that the address space has no room for.
void startWithoutRoom(SSimpleBackgroundRunner *runner)
{
    rlimit before;
    QCOMPARE(getrlimit(RLIMIT_AS, &before), 0);
    rlimit tight = before;
    tight.rlim_cur = addressSpaceBytes() + (rlim_t(1) << 30);
    runner->findChild<QThread *>()->setStackSize(0xF0000000);
    QTest::ignoreMessage(QtCriticalMsg,
                         QRegularExpression(u"QThread::start: Thread creation error.*"_s));
    QCOMPARE(setrlimit(RLIMIT_AS, &tight), 0);
    runner->start();
    QCOMPARE(setrlimit(RLIMIT_AS, &before), 0);
}
#endif

} // namespace

class tst_SSimpleBackgroundRunner : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void adoptsTheWorker()
    {
        Course course;
        QObject parent;
        auto *worker = new Worker(&course, Worker::Idles, &parent);
        QTest::ignoreMessage(
            QtDebugMsg, "SSimpleBackgroundRunner::setWorker: the worker is taken from its parent");
        const SSimpleBackgroundRunner runner(worker);
        QCOMPARE(worker->parent(), nullptr);
        QVERIFY(worker->thread() != QThread::currentThread());
        QVERIFY(!runner.isRunning());
    }

    void tellsStartAndEnd()
    {
        Course course;
        SSimpleBackgroundRunner runner(new Worker(&course, Worker::DoneAtOnce));
        QSignalSpy started(&runner, &SSimpleBackgroundRunner::started);
        QSignalSpy finished(&runner, &SSimpleBackgroundRunner::finished);
        runner.start();
        QTRY_COMPARE(finished.count(), 1);
        QCOMPARE(started.count(), 1);
        QVERIFY(runner.waitForFinished());
        QVERIFY(!runner.isRunning());
        QCOMPARE(errorOf(course), SimpleWorkerError::NoError);
    }

    void workerWorksAndDiesInTheThread()
    {
        Course course;
        {
            SSimpleBackgroundRunner runner(new Worker(&course, Worker::DoneAtOnce));
            runner.start();
            QVERIFY(runner.waitForFinished());
            QCOMPARE(course.destroyed.loadAcquire(), 1);
        }
        QCOMPARE(course.destroyed.loadAcquire(), 1);
        QVERIFY(course.stepThread.loadAcquire() != QThread::currentThread());
        QCOMPARE(course.deathThread.loadAcquire(), course.stepThread.loadAcquire());
    }

    void failedInitSendsInitErrorAndEndsTheThread()
    {
        Course course;
        SSimpleBackgroundRunner runner(new Worker(&course, Worker::FailsToInit));
        runner.start();
        QVERIFY(runner.waitForFinished());
        QCOMPARE(errorOf(course), SimpleWorkerError::InitError);
        QCOMPARE(course.steps.loadAcquire(), 0);
        QCOMPARE(course.destroyed.loadAcquire(), 1);
    }

    void failedStepEndsTheThread()
    {
        Course course;
        SSimpleBackgroundRunner runner(new Worker(&course, Worker::Fails));
        runner.start();
        QVERIFY(runner.waitForFinished());
        QCOMPARE(errorOf(course), SimpleWorkerError::WorkError);
    }

    void interruptionEndsAnIdleWorker()
    {
        Course course;
        SSimpleBackgroundRunner runner(new Worker(&course, Worker::Idles));
        QSignalSpy interrupt(&runner, &SSimpleBackgroundRunner::interrupt);
        runner.start();
        QVERIFY(course.initialised.tryAcquire(1, 10000));
        QVERIFY(runner.isRunning());
        runner.requestInterruption();
        QCOMPARE(interrupt.count(), 1);
        QVERIFY(runner.waitForFinished());
        QCOMPARE(errorOf(course), SimpleWorkerError::InterruptRequested);
        QCOMPARE(course.steps.loadAcquire(), 0);
    }

    void interruptionWaitsForTheStep()
    {
        Course course;
        SSimpleBackgroundRunner runner(new Worker(&course, Worker::Blocks));
        runner.start();
        QVERIFY(course.inStep.tryAcquire(1, 10000));
        runner.requestInterruption();
        QVERIFY(!runner.waitForFinished(20));
        QVERIFY(runner.isRunning());
        course.mayGoOn.release();
        QVERIFY(runner.waitForFinished());
        QCOMPARE(errorOf(course), SimpleWorkerError::InterruptRequested);
        QCOMPARE(course.steps.loadAcquire(), 1);
    }

    void interruptionReachesARunningStep()
    {
        Course course;
        SSimpleBackgroundRunner runner(new Worker(&course, Worker::WorksUntilInterrupted));
        runner.start();
        QVERIFY(course.inStep.tryAcquire(1, 10000));
        runner.requestInterruption();
        QVERIFY(runner.waitForFinished());
        QCOMPARE(errorOf(course), SimpleWorkerError::InterruptRequested);
    }

    void interruptionBeforeTheStartEndsTheWorkerAfterIt()
    {
        Course course;
        SSimpleBackgroundRunner runner(new Worker(&course, Worker::Idles));
        runner.requestInterruption();
        runner.start();
        QVERIFY(runner.waitForFinished());
        QCOMPARE(errorOf(course), SimpleWorkerError::InterruptRequested);
    }

    void workerToldToTerminateBeforeTheStartEndsAfterIt_data()
    {
        QTest::addColumn<bool>("adopted");
        QTest::newRow("before it was handed over") << false;
        QTest::newRow("after it was handed over") << true;
    }

    void workerToldToTerminateBeforeTheStartEndsAfterIt()
    {
        QFETCH(bool, adopted);
        Course course;
        auto *worker = new Worker(&course, Worker::Idles);
        if (!adopted)
            worker->terminateLater();
        SSimpleBackgroundRunner runner(worker);
        if (adopted)
            worker->terminateLater();
        runner.start();
        const bool ended = runner.waitForFinished(10000);
        if (!ended)
            runner.findChild<QThread *>()->quit();
        QVERIFY(ended);
        QCOMPARE(errorOf(course), SimpleWorkerError::InterruptRequested);
        QCOMPARE(course.destroyed.loadAcquire(), 1);
    }

    void destructorEndsAnIdleWorker()
    {
        Course course;
        {
            SSimpleBackgroundRunner runner(new Worker(&course, Worker::Idles));
            runner.start();
            QVERIFY(course.initialised.tryAcquire(1, 10000));
        }
        QCOMPARE(course.destroyed.loadAcquire(), 1);
        QCOMPARE(errorOf(course), SimpleWorkerError::InterruptRequested);
    }

    void destructorInterruptsARunningStep()
    {
        Course course;
        {
            SSimpleBackgroundRunner runner(new Worker(&course, Worker::WorksUntilInterrupted));
            runner.start();
            QVERIFY(course.inStep.tryAcquire(1, 10000));
        }
        QCOMPARE(course.destroyed.loadAcquire(), 1);
    }

    void destructorRightAfterStartDoesNotHang()
    {
        for (int round = 0; round < 100; ++round) {
            Course course;
            {
                SSimpleBackgroundRunner runner(new Worker(&course, Worker::Idles));
                runner.start();
            }
            QCOMPARE(course.destroyed.loadAcquire(), 1);
        }
    }

    // The thread may be ending by the first one while the others are on their way.
    void interruptionsInARowEndTheWorkerOnce()
    {
        for (int round = 0; round < 100; ++round) {
            Course course;
            {
                SSimpleBackgroundRunner runner(new Worker(&course, Worker::Idles));
                QSignalSpy interrupt(&runner, &SSimpleBackgroundRunner::interrupt);
                runner.start();
                QVERIFY(course.initialised.tryAcquire(1, 10000));
                for (int i = 0; i < 10; ++i)
                    runner.requestInterruption();
                QCOMPARE(interrupt.count(), 10);
            }
            QCOMPARE(course.destroyed.loadAcquire(), 1);
            QCOMPARE(errorOf(course), SimpleWorkerError::InterruptRequested);
        }
    }

    void workerOfAThreadThatNeverStartedDiesWithTheRunner()
    {
        Course course;
        {
            const SSimpleBackgroundRunner runner(new Worker(&course, Worker::Idles));
        }
        QCOMPARE(course.destroyed.loadAcquire(), 1);
    }

    void startAfterTheEndDoesNothing()
    {
        Course course;
        SSimpleBackgroundRunner runner(new Worker(&course, Worker::DoneAtOnce));
        runner.start();
        QVERIFY(runner.waitForFinished());
        runner.start();
        QVERIFY(!runner.isRunning());
        QCOMPARE(course.steps.loadAcquire(), 1);
    }

    // The thread would begin anew, with a worker that is gone and thus nobody to end it.
    void startDuringTheEndDoesNothing()
    {
        Course course;
        SSimpleBackgroundRunner runner(new Worker(&course, Worker::DiesSlowly));
        runner.start();
        QVERIFY(course.dying.tryAcquire(1, 10000));
        runner.start();
        course.mayGoOn.release();
        const bool ended = runner.waitForFinished(1000);
        if (!ended)
            runner.findChild<QThread *>()->quit();
        QVERIFY(ended);
        QCOMPARE(course.steps.loadAcquire(), 1);
    }

    void startWithoutAWorkerDoesNothing()
    {
        SSimpleBackgroundRunner runner(nullptr);
        runner.start();
        QVERIFY(!runner.isRunning());
        runner.requestInterruption();
        QVERIFY(runner.waitForFinished(0));
    }

    void aThreadThatCannotBeMadeFinishesTheWorker()
    {
#ifdef Q_OS_LINUX
        Course course;
        SSimpleBackgroundRunner runner(new Worker(&course, Worker::Idles));
        QSignalSpy started(&runner, &SSimpleBackgroundRunner::started);
        QSignalSpy finished(&runner, &SSimpleBackgroundRunner::finished);
        startWithoutRoom(&runner);
        QVERIFY(!runner.isRunning());
        QCOMPARE(started.size(), 0);
        QCOMPARE(finished.size(), 1);
        QCOMPARE(course.destroyed.loadAcquire(), 1);
        QCOMPARE(course.error.loadAcquire(), static_cast<int>(SimpleWorkerError::InitError));
        runner.start();
        runner.requestInterruption();
        QCOMPARE(finished.size(), 1);
#else
        QSKIP("the address space has no limit here");
#endif
    }

    void aRunnerMayBeDeletedWhenItsThreadCannotBeMade()
    {
#ifdef Q_OS_LINUX
        Course course;
        auto *worker = new Worker(&course, Worker::Idles);
        const QPointer<SSimpleBackgroundRunner> runner = new SSimpleBackgroundRunner(worker);
        connect(worker, &SSimpleWorker::finished, this, [runner] { delete runner; });
        startWithoutRoom(runner);
        QVERIFY(runner.isNull());
        QCOMPARE(course.destroyed.loadAcquire(), 1);
#else
        QSKIP("the address space has no limit here");
#endif
    }

    void startTakesAPriority()
    {
        Course course;
        SSimpleBackgroundRunner runner(new Worker(&course, Worker::DoneAtOnce));
        runner.start(QThread::LowPriority);
        QVERIFY(runner.waitForFinished());
        QCOMPARE(errorOf(course), SimpleWorkerError::NoError);
    }
};

QTEST_GUILESS_MAIN(tst_SSimpleBackgroundRunner)
#include "tst_ssimplebackgroundrunner.moc"
