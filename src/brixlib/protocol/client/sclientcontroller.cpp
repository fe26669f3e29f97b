// SPDX-License-Identifier: MIT
#include <brixlib/protocol/client/sclientcontroller.h>

#include <brixlib/protocol/connectionrunners_p.h>

#include <brixlib/protocol/client/sclientbase.h>
#include <brixlib/workers/ssimplebackgroundrunner.h>

namespace Talverine {

SClientController::SClientController(QObject *parent)
    : SClientController(QNetworkProxy(), parent)
{
}

SClientController::SClientController(const QNetworkProxy &proxy, QObject *parent)
    : QObject(parent)
    , m_proxy(proxy)
    , m_runners(new ConnectionRunners(this))
{
    connect(m_runners, &ConnectionRunners::countChanged, this,
            &SClientController::connectionCountChanged);
    connect(this, &SClientController::interruptWorkersRequested, m_runners,
            &ConnectionRunners::interrupt);
}

SClientController::~SClientController()
{
    delete m_runners;
}

SSimpleBackgroundRunner *SClientController::connectClient(SClientBase *client, bool autoDelete)
{
    if (!client)
        return nullptr;
    const QPointer<SSimpleBackgroundRunner> runner = m_runners->add(client);
    if (autoDelete)
        connect(client, &SClientBase::finished, runner, &QObject::deleteLater);
    return ConnectionRunners::start(runner, client);
}

SSimpleBackgroundRunner *SClientController::connectClientAsync(SClientBase *client, bool start)
{
    SSimpleBackgroundRunner *runner = m_runners->add(client);
    if (start)
        runner->start(QThread::InheritPriority);
    return runner;
}

int SClientController::count() const
{
    return m_runners->count();
}

void SClientController::interruptWorkers()
{
    Q_EMIT interruptWorkersRequested();
}

} // namespace Talverine

#include "moc_sclientcontroller.cpp"
