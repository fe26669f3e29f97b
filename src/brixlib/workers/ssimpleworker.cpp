// SPDX-License-Identifier: MIT
#include <brixlib/workers/ssimpleworker.h>

#include "workerend_p.h"

#include <QtCore/QEventLoop>
#include <QtCore/QMutex>
#include <QtCore/QPointer>
#include <QtCore/QThread>
#include <QtCore/QTimer>

#include <algorithm>

namespace Talverine {

SSimpleWorker::SSimpleWorker(QObject *parent)
    : QObject(parent)
    , m_mutex(std::make_unique<QRecursiveMutex>())
    , m_end(std::make_shared<WorkerEnd>())
{
}

// A worker without a runner has no earlier end.
SSimpleWorker::~SSimpleWorker()
{
    m_end->note();
}

QVariant SSimpleWorker::userData() const
{
    const QMutexLocker lock(m_mutex.get());
    return m_userData;
}

void SSimpleWorker::setUserData(const QVariant &userData)
{
    const QMutexLocker lock(m_mutex.get());
    m_userData = userData;
}

void SSimpleWorker::sleep(int msec)
{
    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    timer.start(std::max(msec, 0)); // a negative time would never be over
    loop.exec();
}

void SSimpleWorker::init()
{
    const bool terminated = m_runState.loadAcquire() == Terminating;
    if (!workerInit()) {
        Q_EMIT finished(SimpleWorkerError::InitError);
        return;
    }
    m_initialized = true;
    const QPointer<SSimpleWorker> self(this);
    Q_EMIT started();
    // The first report may have come before the thread ran or was connected to it.
    if (self && terminated)
        Q_EMIT finished(SimpleWorkerError::InterruptRequested);
}

void SSimpleWorker::run()
{
    if (!m_initialized) {
        Q_EMIT finished(SimpleWorkerError::InitError);
        return;
    }
    if (!m_runState.testAndSetOrdered(Idle, InStep))
        return;

    // Whoever finishes below leaves the state at InStep, so that no further step is taken.
    if (isInterruptionRequested())
        Q_EMIT finished(SimpleWorkerError::InterruptRequested);
    else if (!doWork())
        Q_EMIT finished(SimpleWorkerError::WorkError);
    else if (m_doneFlag)
        Q_EMIT finished(SimpleWorkerError::NoError);
    else
        endStep();
}

// Signals go out after the lock is released: a receiver may be the end of this object.
void SSimpleWorker::endStep()
{
    {
        const QMutexLocker lock(m_mutex.get());
        if (!m_terminatePending) {
            m_runState.storeRelease(Idle);
            return;
        }
    }
    Q_EMIT finished(SimpleWorkerError::InterruptRequested);
}

void SSimpleWorker::terminateLater()
{
    {
        const QMutexLocker lock(m_mutex.get());
        if (!m_runState.testAndSetOrdered(Idle, Terminating)) {
            m_terminatePending = true;
            return;
        }
    }
    Q_EMIT finished(SimpleWorkerError::InterruptRequested);
}

bool SSimpleWorker::workerInit()
{
    connect(this, &SSimpleWorker::started, this, &SSimpleWorker::run, Qt::UniqueConnection);
    return true;
}

void SSimpleWorker::done()
{
    if (!isInterruptionRequested())
        m_doneFlag = true;
}

bool SSimpleWorker::isInitialized() const
{
    return m_initialized;
}

bool SSimpleWorker::isRunning() const
{
    return m_runState.loadAcquire() == InStep;
}

bool SSimpleWorker::isInterruptionRequested()
{
    return QThread::currentThread()->isInterruptionRequested();
}

} // namespace Talverine

#include "moc_ssimpleworker.cpp"
