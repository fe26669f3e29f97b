// SPDX-License-Identifier: MIT
#include <brixlib/workers/ssimplebackgroundrunner.h>

#include <brixlib/workers/ssimpleworker.h>

#include "workerend_p.h"

#include <QtCore/QDebug>

namespace Talverine {

SSimpleBackgroundRunner::SSimpleBackgroundRunner(SSimpleWorker *worker, QObject *parent)
    : QObject(parent)
    , m_thread(new QThread(this))
{
    connect(m_thread, &QThread::started, this, &SSimpleBackgroundRunner::started);
    connect(m_thread, &QThread::finished, this, &SSimpleBackgroundRunner::finished);
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

    if (worker->parent())
        qDebug() << "SSimpleBackgroundRunner::setWorker: the worker is taken from its parent";
    worker->setParent(nullptr);
    worker->moveToThread(m_thread);
    m_worker = worker;

    // A runner may be told again while the thread is ending.
    connect(this, &SSimpleBackgroundRunner::interrupt, this, [worker, end = worker->m_end] {
        end->holdUp([worker] {
            QMetaObject::invokeMethod(worker, &SSimpleWorker::terminateLater, Qt::QueuedConnection);
        });
    });
    // Direct, since the worker's thread may be the one that waits for nothing but this.
    connect(worker, &SSimpleWorker::finished, m_thread, &QThread::quit, Qt::DirectConnection);
    connect(m_thread, &QThread::started, worker, &SSimpleWorker::init);
    connect(
        m_thread, &QThread::finished, m_thread, [end = worker->m_end] { end->note(); },
        Qt::DirectConnection);
    connect(m_thread, &QThread::finished, worker, &QObject::deleteLater);
    return true;
}

} // namespace Talverine

#include "moc_ssimplebackgroundrunner.cpp"
