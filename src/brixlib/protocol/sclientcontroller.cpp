// SPDX-License-Identifier: MIT
#include <brixlib/protocol/sclientcontroller.h>

#include <brixlib/protocol/sclientbase.h>
#include <brixlib/workers/ssimplebackgroundrunner.h>
#include <brixrt/ssignalresult.h>

#include <QtCore/QPointer>

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

SClientController::SClientController(QObject *parent)
    : SClientController(QNetworkProxy(), parent)
{
}

SClientController::SClientController(const QNetworkProxy &proxy, QObject *parent)
    : QObject(parent)
    , m_proxy(proxy)
{
}

SClientController::~SClientController()
{
    // The runners wait for their threads; none is to count down in an object half gone.
    const auto runners = findChildren<SSimpleBackgroundRunner *>(Qt::FindDirectChildrenOnly);
    for (SSimpleBackgroundRunner *runner : runners) {
        QObject::disconnect(runner, nullptr, this, nullptr);
        runner->requestInterruption();
    }
}

SSimpleBackgroundRunner *SClientController::addRunner(SClientBase *client)
{
    auto *runner = new SSimpleBackgroundRunner(client, this);
    connect(this, &SClientController::interruptWorkersRequested, runner,
            &SSimpleBackgroundRunner::requestInterruption);
    connect(runner, &SSimpleBackgroundRunner::started, this, [this, runner] { incCount(runner); });
    connect(runner, &SSimpleBackgroundRunner::finished, this, [this, runner] { decCount(runner); });
    // A runner deleted by its client's end waits for its thread, whose finished() then gets lost.
    connect(runner, &QObject::destroyed, this, [this, runner] { decCount(runner); });
    return runner;
}

SSimpleBackgroundRunner *SClientController::connectClient(SClientBase *client, bool autoDelete)
{
    // The client may end, and take the runner along, before the wait for its start is over.
    const QPointer<SSimpleBackgroundRunner> runner = addRunner(client);
    if (autoDelete)
        connect(client, &SClientBase::finished, runner, &QObject::deleteLater);

    SSignalResult result;
    connect(client, &SClientBase::started, &result, &SSignalResult::success);
    connect(client, &SClientBase::finished, &result, &SSignalResult::failed);
    runner->start(QThread::InheritPriority);
    if (result.waitResult())
        return runner;
    deleteAfterEnd(runner);
    return nullptr;
}

SSimpleBackgroundRunner *SClientController::connectClientAsync(SClientBase *client, bool start)
{
    SSimpleBackgroundRunner *runner = addRunner(client);
    if (start)
        runner->start(QThread::InheritPriority);
    return runner;
}

int SClientController::count() const
{
    return static_cast<int>(m_running.size());
}

void SClientController::interruptWorkers()
{
    Q_EMIT interruptWorkersRequested();
}

void SClientController::incCount(const QObject *runner)
{
    m_running.insert(runner);
    Q_EMIT connectionCountChanged(count());
}

void SClientController::decCount(const QObject *runner)
{
    if (m_running.remove(runner))
        Q_EMIT connectionCountChanged(count());
}

} // namespace Talverine

#include "moc_sclientcontroller.cpp"
