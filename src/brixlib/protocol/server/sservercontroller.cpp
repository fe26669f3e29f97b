// SPDX-License-Identifier: MIT
#include <brixlib/protocol/server/sservercontroller.h>

#include "closeconnection_p.h"
#include "systemreserve_p.h"
#include <brixlib/protocol/connectionrunners_p.h>
#include <brixlib/protocol/socket/socketpeer_p.h>

#include <brixlib/protocol/server/sserverbase.h>
#include <brixlib/protocol/server/stcpserver.h>
#include <brixlib/workers/ssimplebackgroundrunner.h>

#include <QtCore/QDebug>
#include <QtCore/QMetaMethod>
#include <QtCore/QTimer>

#include <new>
#include <utility>

namespace Talverine {

namespace {

constexpr int kAcceptRetryMs = 100;
// What wakes a thread takes up to two descriptors, and its first file another.
constexpr int kDescriptorsOfAThread = 3;
// A session's objects and its first buffers; the stack of its thread is the system's to refuse.
constexpr qint64 kMemoryOfASession = 1 << 20;

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
    close();
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
    const auto waiting = std::exchange(m_waiting, {});
    for (auto it = waiting.cbegin(); it != waiting.cend(); ++it)
        closeConnection(it.key());
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
    const QPointer<SSimpleBackgroundRunner> runner = addRunner(server);
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
    SSimpleBackgroundRunner *runner = addRunner(server);
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
    return m_maximumConnections >= 1 && m_runners->unfinished() >= m_maximumConnections;
}

std::shared_ptr<SConnectionGuard> SServerController::connectionGuard() const
{
    return m_guard;
}

void SServerController::setConnectionGuard(std::shared_ptr<SConnectionGuard> guard)
{
    m_guard = std::move(guard);
}

int SServerController::reservedDescriptors() const
{
    return m_reservedDescriptors;
}

void SServerController::setReservedDescriptors(int count)
{
    m_reservedDescriptors = count;
}

void SServerController::interruptWorkers()
{
    Q_EMIT interruptWorkersRequested();
}

// A derived session may have another descriptor, or none; it has no place then.
SSimpleBackgroundRunner *SServerController::addRunner(SServerBase *server)
{
    if (server)
        server->m_place = m_announced.take(server->socketDescriptor());
    return m_runners->add(server);
}

void SServerController::onNewConnection(qint64 socketDescriptor)
{
    // The number may have been that of a connection that the application closed without serving it.
    m_announced.remove(socketDescriptor);
    if (maximumConnectionsReached()) {
        qDebug() << "SServerController::onNewConnection: maximum connections reached";
        closeConnection(socketDescriptor);
    } else if (!admit(socketDescriptor)) {
        closeConnection(socketDescriptor);
    } else if (!wait(socketDescriptor)) {
        announce(socketDescriptor);
    }
}

bool SServerController::admit(qint64 socketDescriptor)
{
    static const QMetaMethod signal = QMetaMethod::fromSignal(&SServerController::newConnection);
    if (!isSignalConnected(signal))
        return false;
    if (!hasResources(socketDescriptor)) {
        qDebug() << "SServerController::admit: too few descriptors or too little memory";
        return false;
    }
    if (!m_guard)
        return true;
    std::shared_ptr<SConnectionGuard::Place> place =
        m_guard->admit(peerAddressOf(socketDescriptor));
    if (!place) {
        qDebug() << "SServerController::admit: refused by the connection guard";
        return false;
    }
    m_announced.insert(socketDescriptor, std::move(place));
    return true;
}

bool SServerController::hasResources(qint64 newestDescriptor) const
{
    const int inTheMaking = m_runners->unfinished() - m_runners->count() + 1;
    return SystemReserve::hasDescriptors(
               newestDescriptor, m_reservedDescriptors + inTheMaking * kDescriptorsOfAThread) &&
           SystemReserve::hasMemory(kMemoryOfASession);
}

// False when the connection is to be greeted at once. While it waits it has neither a thread nor
// more than its one descriptor.
bool SServerController::wait(qint64 socketDescriptor)
{
    const auto place = m_announced.value(socketDescriptor);
    if (!place || place->delay().count() == 0)
        return false;
    m_waiting.insert(socketDescriptor, m_announced.take(socketDescriptor));
    QTimer::singleShot(
        place->delay(), this, [this, socketDescriptor, known = std::weak_ptr(place)] {
            // After close() another connection may have the number.
            if (!known.expired() && m_waiting.value(socketDescriptor) == known.lock())
                endWait(socketDescriptor);
        });
    return true;
}

void SServerController::endWait(qint64 socketDescriptor)
{
    const auto place = m_waiting.take(socketDescriptor);
    // Others may have closed lower numbers meanwhile.
    constexpr qint64 kFromTheFirst = -1;
    if (maximumConnectionsReached() || !hasResources(kFromTheFirst)) {
        closeConnection(socketDescriptor);
        return;
    }
    place->greeted();
    m_announced.insert(socketDescriptor, place);
    announce(socketDescriptor);
}

// A session that cannot be made for lack of memory costs its connection and nothing else.
void SServerController::announce(qint64 socketDescriptor)
{
    try {
        Q_EMIT newConnection(socketDescriptor);
    } catch (const std::bad_alloc &) {
        qDebug() << "SServerController::announce: out of memory";
    }
}

// Out of descriptors the socket stops accepting for good; they come back as sessions end.
void SServerController::onAcceptError()
{
    QTimer::singleShot(kAcceptRetryMs, this, &SServerController::updateAccepting);
}

} // namespace Talverine

#include "moc_sservercontroller.cpp"
