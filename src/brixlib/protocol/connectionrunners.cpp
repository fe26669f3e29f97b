// SPDX-License-Identifier: MIT
#include "connectionrunners_p.h"

#include <brixlib/workers/ssimplebackgroundrunner.h>
#include <brixlib/workers/ssimpleworker.h>

#include <brixrt/ssignalresult.h>

namespace Talverine {

namespace {

// Deleting a runner earlier would block until its thread has ended.
void deleteAfterEnd(SSimpleBackgroundRunner *runner)
{
    if (!runner)
        return;
    QObject::connect(runner, &SSimpleBackgroundRunner::finished, runner, &QObject::deleteLater);
    if (!runner->isRunning())
        runner->deleteLater();
}

} // namespace

ConnectionRunners::ConnectionRunners(QObject *controller)
    : QObject(controller)
{
}

ConnectionRunners::~ConnectionRunners()
{
    Q_EMIT interrupt();
    // They wait for their threads one after the other, and none is to count down in an object half
    // gone.
    const auto runners =
        parent()->findChildren<SSimpleBackgroundRunner *>(Qt::FindDirectChildrenOnly);
    for (SSimpleBackgroundRunner *runner : runners)
        QObject::disconnect(runner, nullptr, this, nullptr);
    qDeleteAll(runners);
}

SSimpleBackgroundRunner *ConnectionRunners::add(SSimpleWorker *worker)
{
    auto *runner = new SSimpleBackgroundRunner(worker, parent());
    m_unfinished.insert(runner);
    connect(this, &ConnectionRunners::interrupt, runner,
            &SSimpleBackgroundRunner::requestInterruption);
    connect(runner, &SSimpleBackgroundRunner::started, this, [this, runner] { insert(runner); });
    connect(runner, &SSimpleBackgroundRunner::finished, this, [this, runner] { remove(runner); });
    // A runner that is deleted first waits for its thread, whose finished() then gets lost.
    connect(runner, &QObject::destroyed, this, [this, runner] { remove(runner); });
    return runner;
}

SSimpleBackgroundRunner *ConnectionRunners::start(const QPointer<SSimpleBackgroundRunner> &runner,
                                                  SSimpleWorker *worker)
{
    SSignalResult result;
    connect(worker, &SSimpleWorker::started, &result, &SSignalResult::success);
    connect(worker, &SSimpleWorker::finished, &result, &SSignalResult::failed);
    runner->start(QThread::InheritPriority);
    // The worker may end, and take the runner along, before the wait is over.
    if (result.waitResult())
        return runner;
    deleteAfterEnd(runner);
    return nullptr;
}

int ConnectionRunners::count() const
{
    return static_cast<int>(m_running.size());
}

int ConnectionRunners::unfinished() const
{
    return static_cast<int>(m_unfinished.size());
}

void ConnectionRunners::insert(const QObject *runner)
{
    m_running.insert(runner);
    Q_EMIT countChanged(count());
}

void ConnectionRunners::remove(const QObject *runner)
{
    m_unfinished.remove(runner);
    if (m_running.remove(runner))
        Q_EMIT countChanged(count());
}

} // namespace Talverine

#include "moc_connectionrunners_p.cpp"
