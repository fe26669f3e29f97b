// SPDX-License-Identifier: MIT
#include <brixlib/workers/ssimplebackgroundrunner.h>

#include <brixlib/workers/ssimpleworker.h>

namespace Talverine {

SSimpleBackgroundRunner::SSimpleBackgroundRunner(SSimpleWorker *worker, QObject *parent)
    : QObject(parent)
    , m_thread(new QThread(this))
{
    connect(m_thread, &QThread::started, this, &SSimpleBackgroundRunner::started);
    connect(m_thread, &QThread::finished, this, &SSimpleBackgroundRunner::finished);
    connect(m_thread, &QThread::finished, this, &SSimpleBackgroundRunner::noteEnd,
            Qt::DirectConnection);
    setWorker(worker);
}

SSimpleBackgroundRunner::~SSimpleBackgroundRunner()
{
    requestInterruption();
    m_thread->wait();
    // Still there only when the thread was never started and thus could not delete it.
    delete m_worker.data();
}

void SSimpleBackgroundRunner::start(QThread::Priority priority)
{
    // A thread without a worker would have nobody to end it. While the thread ends the worker is
    // still there, and the thread would begin anew right after.
    if (!m_worker || m_thread->isRunning() || m_thread->isFinished())
        return;
    m_thread->start(priority);
    if (!m_thread->isRunning() && !m_thread->isFinished())
        giveUp();
}

// The system has no more threads to give, and no signal of the thread will ever tell.
void SSimpleBackgroundRunner::giveUp()
{
    const QPointer<SSimpleBackgroundRunner> self(this);
    Q_EMIT m_worker->finished(SimpleWorkerError::InitError);
    // Who is told here, in its own thread and not by a queue, may delete the runner.
    if (!self)
        return;
    delete m_worker.data();
    Q_EMIT finished();
}

bool SSimpleBackgroundRunner::isRunning() const
{
    return m_thread->isRunning();
}

void SSimpleBackgroundRunner::requestInterruption()
{
    m_thread->requestInterruption();
    Q_EMIT interrupt();
}

bool SSimpleBackgroundRunner::waitForFinished(unsigned long msec)
{
    return m_thread->wait(msec);
}

bool SSimpleBackgroundRunner::setWorker(SSimpleWorker *worker)
{
    if (!worker || m_thread->isRunning())
        return false;

    worker->setParent(nullptr);
    worker->moveToThread(m_thread);
    m_worker = worker;

    connect(this, &SSimpleBackgroundRunner::interrupt, this,
            &SSimpleBackgroundRunner::terminateWorker);
    // Direct, since the worker's thread may be the one that waits for nothing but this.
    connect(worker, &SSimpleWorker::finished, m_thread, &QThread::quit, Qt::DirectConnection);
    connect(m_thread, &QThread::started, worker, &SSimpleWorker::init);
    connect(m_thread, &QThread::finished, worker, &QObject::deleteLater);
    return true;
}

// Qt wakes the thread after it has queued the call, and without a lock: a thread that ends in
// between would take away what wakes it. This lock keeps it from ending.
void SSimpleBackgroundRunner::terminateWorker()
{
    const QMutexLocker lock(&m_endMutex);
    if (!m_ended && m_worker)
        QMetaObject::invokeMethod(m_worker, &SSimpleWorker::terminateLater, Qt::QueuedConnection);
}

// In the thread, while it can still be woken; the worker dies after this.
void SSimpleBackgroundRunner::noteEnd()
{
    const QMutexLocker lock(&m_endMutex);
    m_ended = true;
}

} // namespace Talverine

#include "moc_ssimplebackgroundrunner.cpp"
