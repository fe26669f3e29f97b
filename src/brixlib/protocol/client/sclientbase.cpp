// SPDX-License-Identifier: MIT
#include <brixlib/protocol/client/sclientbase.h>

#include <brixlib/protocol/socket/protocolsocket_p.h>

#include <brixlib/protocol/commands/scommandauthentication.h>
#include <brixlib/protocol/commands/scommandcommandlist.h>
#include <brixlib/protocol/commands/scommandlinktest.h>
#include <brixlib/protocol/commands/scommandpluggable.h>
#include <brixlib/protocol/commands/scommandpluggablelist.h>
#include <brixlib/protocol/commands/scommandservername.h>
#include <brixlib/protocol/commands/scommandstreamversion.h>
#include <brixlib/protocol/commands/scommandwhoami.h>
#include <brixlib/protocol/scommand.h>
#include <brixlib/protocol/scommandqueue.h>
#include <brixlib/protocol/socket/stcpsocket.h>
#include <brixlib/protocol/wire.h>
#include <brixsec/ssecurecredential.h>

#include <QtCore/QDebug>
#include <QtCore/QThread>
#include <QtCore/QTimer>
#include <QtNetwork/QHostInfo>

#include <memory>
#include <new>

// The handlers of replies stand in sclientbase_replies.cpp, the login and its handshake in
// sclientbase_handshake.cpp, credentials in URLs in sclientbase_credentials.cpp.
namespace Talverine {

namespace {

constexpr int kTimeoutMs = 10000;

} // namespace

QAtomicInt SClientBase::_emptyQueueFilterMSec = 0;

SClientBase::SClientBase(const QHostAddress &address, unsigned short port, QObject *parent)
    : SCommunicatorBase(parent)
    , m_address(address)
    , m_port(port)
{
    initClientBase();
}

SClientBase::SClientBase(const QString &host, unsigned short port, bool preferIPv4, QObject *parent)
    : SCommunicatorBase(parent)
    , m_host(host)
    , m_preferIPv4(preferIPv4)
    , m_port(port)
{
    initClientBase();
}

SClientBase::~SClientBase()
{
    // The queues clear themselves when they die; that is to start no timer any more.
    QObject::disconnect(m_queue, nullptr, nullptr, nullptr);
}

void SClientBase::initClientBase()
{
    setTimeout(kTimeoutMs);
    registerBaseCommands();
    setRootPath(QString());

    m_queue = new SCommandQueue(this);
    m_delayedQueue = new SCommandQueue(this);
    m_queueFilter = new QTimer(this);
    m_queueFilter->setSingleShot(true);
    m_queueFilter->setInterval(queueEmptyFilterTimeout());

    connectQueue();
    connect(this, &SClientBase::started, this, &SClientBase::onConnectionStarted);
    connectSyncing();
}

void SClientBase::registerBaseCommands()
{
    registerCommand(new SCommandCommandList);
    registerCommand(new SCommandAuthentication);
    registerCommand(new SCommandServerName);
    registerCommand(new SCommandWhoAmI);
    registerCommand(new SCommandStreamVersion(QDataStream::Qt_6_0));
    registerCommand(new SCommandPluggable(QString(), QByteArray()));
    registerCommand(new SCommandPluggableList);
    registerCommand(new SCommandLinkTest(0, 0));
}

void SClientBase::connectQueue()
{
    const auto startFilter = qOverload<>(&QTimer::start);
    connect(this, &SClientBase::commandResult, m_queueFilter, startFilter);
    connect(m_queue, &SCommandQueue::cleared, m_queueFilter, startFilter);
    connect(m_queue, &SCommandQueue::enqueued, m_queueFilter, &QTimer::stop);
    connect(m_queueFilter, &QTimer::timeout, this, &SClientBase::commandQueueEmptyEmitter);
    connect(m_queue, &SCommandQueue::firstEnqueued, this, &SClientBase::commandQueueNotEmpty);
    connect(m_queue, &SCommandQueue::enqueued, this, &SClientBase::commandEnqueue);
    connect(m_queue, &SCommandQueue::dequeued, this, &SClientBase::commandDequeue);
    connect(this, &SClientBase::commandQueueEmpty, this, &SClientBase::idle);
    connect(this, &SClientBase::commandQueueNotEmpty, this, &SClientBase::busy);
}

void SClientBase::connectSyncing()
{
    const auto syncOne = qOverload<const QString &>(&SClientBase::syncIf);
    connect(this, &SClientBase::localDirCreated, this, syncOne);
    connect(this, &SClientBase::localDirRemoved, this, syncOne);
    connect(this, &SClientBase::localFileRemoved, this, syncOne);

    const auto syncTwo = qOverload<const QString &, const QString &>(&SClientBase::syncIf);
    connect(this, &SClientBase::localDirRenamed, this, syncTwo);
    connect(this, &SClientBase::localFileRenamed, this, syncTwo);
    connect(this, &SClientBase::localFileCopied, this, syncTwo);
}

QString SClientBase::host(bool lookup) const
{
    if (!m_host.isEmpty() || !lookup || m_address.isNull())
        return m_host;
    return QHostInfo::fromName(m_address.toString()).hostName();
}

QHostAddress SClientBase::address() const
{
    return m_address;
}

unsigned short SClientBase::port() const
{
    return m_port;
}

bool SClientBase::preferIPv4() const
{
    return m_preferIPv4;
}

QAbstractSocket::SocketState SClientBase::state() const
{
    return isNull() ? QAbstractSocket::UnconnectedState : socket()->state();
}

void SClientBase::setAddress(const QHostAddress &address)
{
    m_address = address;
}

void SClientBase::setHost(const QString &host)
{
    m_host = host;
}

void SClientBase::setPort(unsigned short port)
{
    m_port = port;
}

void SClientBase::setPreferIPv4(bool prefer)
{
    m_preferIPv4 = prefer;
}

int SClientBase::queueEmptyFilterTimeout()
{
    return _emptyQueueFilterMSec.loadRelaxed();
}

void SClientBase::setQueueEmptyFilterTimeout(int milliseconds)
{
    _emptyQueueFilterMSec.storeRelaxed(milliseconds);
}

QHostAddress SClientBase::resolve(const QString &host, bool preferIPv4)
{
    QHostAddress parsed;
    if (parsed.setAddress(host))
        return parsed;

    QHostAddress v4;
    QHostAddress v6;
    const QList<QHostAddress> addresses = QHostInfo::fromName(host).addresses();
    for (const QHostAddress &address : addresses)
        (address.protocol() == QAbstractSocket::IPv4Protocol ? v4 : v6) = address;
    const bool takeV4 = v6.isNull() || (preferIPv4 && !v4.isNull());
    return takeV4 ? v4 : v6;
}

void SClientBase::commandList()
{
    enqueueCommand(new SCommandCommandList);
}

void SClientBase::serverName()
{
    enqueueCommand(new SCommandServerName);
}

void SClientBase::whoAmI()
{
    enqueueCommand(new SCommandWhoAmI);
}

void SClientBase::pluggable(const QString &command, const QByteArray &params)
{
    enqueueCommand(new SCommandPluggable(command, params));
}

void SClientBase::pluggableList()
{
    enqueueCommand(new SCommandPluggableList);
}

void SClientBase::linkTest(int uploadSeconds, int downloadSeconds)
{
    enqueueCommand(new SCommandLinkTest(uploadSeconds, downloadSeconds));
}

void SClientBase::disconnect()
{
    if (thread() != QThread::currentThread()) {
        QMetaObject::invokeMethod(
            this, [this] { disconnect(); }, Qt::QueuedConnection);
        return;
    }
    if (!isNull())
        socket()->disconnectFromHost();
}

void SClientBase::clearPendingCommands()
{
    m_queue->clear();
    m_delayedQueue->clear();
}

void SClientBase::commandQueueEmptyEmitter()
{
    if (m_queue->isEmpty())
        Q_EMIT commandQueueEmpty();
}

void SClientBase::onConnectionStarted()
{
    Q_EMIT connected(m_address);
}

bool SClientBase::workerInit()
{
    if (m_address.isNull() && !m_host.isEmpty())
        setAddress(resolve(m_host, m_preferIPv4));
    if (m_address.isNull())
        return false;

    auto *socket = new STcpSocket(this);
    return connectToServer(*socket, m_address, m_port, timeout()) && beginSession(socket);
}

bool SClientBase::beginSession(STcpSocket *socket)
{
    connect(socket, &QAbstractSocket::disconnected, this, &SClientBase::terminateLater);
    connect(this, &SClientBase::finished, this, &SClientBase::disconnect, Qt::QueuedConnection);

    setUuid(readGreeting(socket));
    if (uuid().isNull())
        return false;
    setSocket(socket);
    listenToQueue();
    return true;
}

void SClientBase::listenToQueue()
{
    connect(m_queue, &SCommandQueue::enqueued, this, &SClientBase::run, Qt::QueuedConnection);
    connect(this, &SClientBase::authenticationResult, this, &SClientBase::onAuthenticationResult);
    connect(this, qOverload<const QHash<SCommandId, qint32> &>(&SClientBase::commandListResult),
            this, &SClientBase::onCommandListResult);

    // One run() takes one command, so those that came before the connection need one each.
    for (qsizetype waiting = m_queue->size(); waiting > 0; --waiting)
        QMetaObject::invokeMethod(this, &SClientBase::run, Qt::QueuedConnection);
}

bool SClientBase::doWork()
{
    if (isNull())
        return false;
    const SCommandId none;
    if (isInterruptionRequested()) {
        Q_EMIT commandResult(none, true);
        return true;
    }
    if (socket()->state() == QAbstractSocket::UnconnectedState) {
        Q_EMIT commandResult(none, false);
        return false;
    }

    std::unique_ptr<SCommand> command(m_queue->tryDequeue());
    if (!command) {
        Q_EMIT commandResult(none, true);
        return true;
    }
    m_wasRefused = false;
    m_wasReplyTooLarge = false;
    const SCommandId id = command->isNull() ? none : command->id();
    const bool done = !command->isNull() && exchangeWithinMemory(command.get());
    command.reset();
    Q_EMIT commandResult(id, done);
    return done;
}

// The reply says how much memory it takes, so that memory may run out at any point of an exchange.
// No exception may leave the worker thread.
bool SClientBase::exchangeWithinMemory(SCommand *command)
{
    try {
        return exchange(command);
    } catch (const std::bad_alloc &) {
        m_wasReplyTooLarge = true;
        qDebug() << "SClientBase::doWork: out of memory";
        return false;
    }
}

bool SClientBase::exchange(SCommand *command)
{
    m_commandUnderWay = command->id();
    return sendCommand(command) && executeCommand(command) && readVerdict();
}

bool SClientBase::readVerdict()
{
    const quint32 word = readWord(socket());
    if (word == Wire::kNackWord)
        setRefused();
    return word == Wire::kAckWord;
}

bool SClientBase::sendCommand(SCommand *command)
{
    QByteArray body;
    if (!command->serializeArray(body))
        return false;
    return writeFrame(socket(), body) && readVerdict();
}

} // namespace Talverine

#include "moc_sclientbase.cpp"
