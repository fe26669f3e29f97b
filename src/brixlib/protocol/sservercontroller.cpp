// SPDX-License-Identifier: MIT
#include <brixlib/protocol/sservercontroller.h>

#include "closeconnection_p.h"
#include "connectionrunners_p.h"

#include <brixlib/protocol/sserverbase.h>
#include <brixlib/protocol/stcpserver.h>
#include <brixlib/workers/ssimplebackgroundrunner.h>

#include <QtCore/QDebug>
#include <QtCore/QMetaMethod>
#include <QtCore/QTimer>

#include <utility>

namespace Talverine {

namespace {

constexpr int kAcceptRetryMs = 100;

// A parent would delete the server while its thread runs.
bool isRefused(const SServerBase &server)
{
    if (!server.parent())
        return false;
    qDebug() << "SServerController::serveNewConnection: the server has a parent";
    return true;
}

} // namespace

SServerController::SServerController(QObject *parent)
    : QObject(parent)
    , m_server(new STcpServer(this))
    , m_runners(new ConnectionRunners(this))
{
    connect(m_runners, &ConnectionRunners::countChanged, this,
            &SServerController::connectionCountChanged);
    connect(this, &SServerController::interruptWorkersRequested, m_runners,
            &ConnectionRunners::interrupt);
    connect(m_server, &STcpServer::newConnection, this, &SServerController::onNewConnection);
    connect(m_server, &STcpServer::acceptError, this, &SServerController::onAcceptError);
}

SServerController::~SServerController()
{
    m_server->close();
    delete m_runners;
}

bool SServerController::listen(const QHostAddress &address, unsigned short port)
{
    if (!m_server->listen(address, port))
        return false;
    updateAccepting();
    return true;
}

void SServerController::close()
{
    m_server->close();
}

bool SServerController::isListening() const
{
    return m_server->isListening();
}

void SServerController::pauseAccepting()
{
    m_isPaused = true;
    updateAccepting();
}

void SServerController::resumeAccepting()
{
    m_isPaused = false;
    updateAccepting();
}

// A server that does not listen has nothing that could be paused.
void SServerController::updateAccepting()
{
    if (!isListening())
        return;
    if (m_isPaused || m_isServing)
        m_server->pauseAccepting();
    else
        m_server->resumeAccepting();
}

QHostAddress SServerController::serverAddress() const
{
    return m_server->serverAddress();
}

unsigned short SServerController::serverPort() const
{
    return m_server->serverPort();
}

QString SServerController::errorString() const
{
    return m_server->errorString();
}

SSimpleBackgroundRunner *SServerController::serveNewConnection(SServerBase *server, bool autoDelete)
{
    if (!server || isRefused(*server))
        return nullptr;
    const QPointer<SSimpleBackgroundRunner> runner = m_runners->add(server);
    if (autoDelete)
        connect(runner, &SSimpleBackgroundRunner::finished, runner, &QObject::deleteLater);

    // The wait runs events. Accepting one connection within the wait for the other, a burst of them
    // would nest the waits until no stack is left.
    const QPointer<SServerController> self(this);
    const bool wasServing = std::exchange(m_isServing, true);
    updateAccepting();
    SSimpleBackgroundRunner *started = ConnectionRunners::start(runner, server);
    if (self) {
        m_isServing = wasServing;
        updateAccepting();
    }
    return started;
}

SSimpleBackgroundRunner *SServerController::serveNewConnectionAsync(SServerBase *server, bool start)
{
    if (server && isRefused(*server))
        return nullptr;
    SSimpleBackgroundRunner *runner = m_runners->add(server);
    if (start)
        runner->start(QThread::InheritPriority);
    return runner;
}

int SServerController::count() const
{
    return m_runners->count();
}

int SServerController::maximumConnections() const
{
    return m_maximumConnections;
}

void SServerController::setMaximumConnections(int maximum)
{
    m_maximumConnections = maximum;
}

bool SServerController::maximumConnectionsReached() const
{
    return m_maximumConnections >= 1 && count() >= m_maximumConnections;
}

void SServerController::interruptWorkers()
{
    Q_EMIT interruptWorkersRequested();
}

void SServerController::onNewConnection(qint64 socketDescriptor)
{
    static const QMetaMethod signal = QMetaMethod::fromSignal(&SServerController::newConnection);
    if (maximumConnectionsReached()) {
        qDebug() << "SServerController::onNewConnection: maximum connections reached";
        closeConnection(socketDescriptor);
    } else if (!isSignalConnected(signal)) {
        closeConnection(socketDescriptor);
    } else {
        Q_EMIT newConnection(socketDescriptor);
    }
}

// Out of descriptors the socket stops accepting for good; they come back as sessions end.
void SServerController::onAcceptError()
{
    QTimer::singleShot(kAcceptRetryMs, this, &SServerController::updateAccepting);
}

} // namespace Talverine

#include "moc_sservercontroller.cpp"
