// SPDX-License-Identifier: MIT
#include <brixlib/protocol/sservercontroller.h>

#include "closeconnection_p.h"

#include <brixlib/protocol/sserverbase.h>
#include <brixlib/protocol/stcpserver.h>
#include <brixlib/workers/ssimplebackgroundrunner.h>

#include <brixrt/ssignalresult.h>

#include <QtCore/QDebug>
#include <QtCore/QMetaMethod>
#include <QtCore/QTimer>

namespace Talverine {

namespace {

constexpr int kAcceptRetryMs = 100;

} // namespace

SServerController::SServerController(QObject *parent)
    : QObject(parent)
    , m_server(new STcpServer(this))
{
    connect(m_server, &STcpServer::newConnection, this, &SServerController::onNewConnection);
    connect(m_server, &STcpServer::acceptError, this, &SServerController::onAcceptError);
}

SServerController::~SServerController()
{
    m_server->close();
    // The runners are children, and each waits for its thread: told all at once, the threads end
    // side by side.
    interruptWorkers();
}

bool SServerController::listen(const QHostAddress &address, unsigned short port)
{
    return m_server->listen(address, port);
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
    m_server->pauseAccepting();
}

void SServerController::resumeAccepting()
{
    m_isPaused = false;
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
    SSimpleBackgroundRunner *runner = makeRunner(server);
    if (autoDelete)
        connect(runner, &SSimpleBackgroundRunner::finished, runner, &QObject::deleteLater);
    SSignalResult result;
    connect(server, &SServerBase::started, &result, &SSignalResult::success);
    connect(server, &SServerBase::finished, &result, &SSignalResult::failed);
    runner->start(QThread::InheritPriority);
    if (result.waitResult())
        return runner;
    // The caller never gets to see it.
    connect(runner, &SSimpleBackgroundRunner::finished, runner, &QObject::deleteLater);
    if (!runner->isRunning())
        runner->deleteLater();
    return nullptr;
}

SSimpleBackgroundRunner *SServerController::serveNewConnectionAsync(SServerBase *server, bool start)
{
    SSimpleBackgroundRunner *runner = makeRunner(server);
    if (start)
        runner->start(QThread::InheritPriority);
    return runner;
}

SSimpleBackgroundRunner *SServerController::makeRunner(SServerBase *server)
{
    auto *runner = new SSimpleBackgroundRunner(server, this);
    connect(this, &SServerController::interruptWorkersRequested, runner,
            &SSimpleBackgroundRunner::requestInterruption);
    connect(runner, &SSimpleBackgroundRunner::started, this, &SServerController::incCount);
    connect(runner, &SSimpleBackgroundRunner::finished, this, &SServerController::decCount);
    return runner;
}

int SServerController::count() const
{
    return m_count;
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
    return m_maximumConnections >= 1 && m_count >= m_maximumConnections;
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
    QTimer::singleShot(kAcceptRetryMs, this, [this] {
        if (!m_isPaused)
            m_server->resumeAccepting();
    });
}

void SServerController::incCount()
{
    Q_EMIT connectionCountChanged(++m_count);
}

void SServerController::decCount()
{
    Q_EMIT connectionCountChanged(--m_count);
}

} // namespace Talverine

#include "moc_sservercontroller.cpp"
