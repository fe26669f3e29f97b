// SPDX-License-Identifier: MIT
#include <brixlib/protocol/scommunicatorbase.h>

#include "blockingio_p.h"
#include <brixlib/protocol/users/passwordhash_p.h>

#include <brixlib/foundation/scontexthelper.h>
#include <brixlib/protocol/scommand.h>
#include <brixlib/protocol/scommandhelper.h>
#include <brixlib/protocol/socket/stcpsocket.h>
#include <brixlib/protocol/socket/stcpsocketspeedcontroller.h>

#include <QtCore/QDir>

#include <limits>

// The paths and the local file operations stand in scommunicatorbase_files.cpp, reading and writing
// on the socket in scommunicatorbase_io.cpp.
namespace Talverine {

namespace {

// Above 92 PB the factor comes out of the divisor instead, so that nothing overflows.
int percent(qint64 size, qint64 total)
{
    constexpr qint64 kLargest = std::numeric_limits<qint64>::max() / 100;
    return static_cast<int>(size <= kLargest ? size * 100 / total : size / (total / 100));
}

} // namespace

SCommunicatorBase::SCommunicatorBase(QObject *parent)
    : SSimpleWorker(parent)
    , m_io(std::make_unique<BlockingIo>())
    , m_contextId(SContextHelper::newContextId())
    , m_currentPath(QDir(QDir::homePath()).absolutePath())
    , m_defaultHome(QDir::homePath())
{
    connect(this, &SCommunicatorBase::transferredBytes, this, &SCommunicatorBase::progressFromSize);
}

SCommunicatorBase::~SCommunicatorBase()
{
    SCommandHelper::deregisterCommands(m_contextId);
}

bool SCommunicatorBase::isNull() const
{
    return m_socket.isNull();
}

bool SCommunicatorBase::autoSync() const
{
    return m_autoSync;
}

void SCommunicatorBase::setAutoSync(bool enabled)
{
    m_autoSync = enabled;
}

void SCommunicatorBase::setSpeedController(STcpSocketSpeedController *controller)
{
    if (m_speedController)
        m_speedController->remove(m_socket);
    if (controller)
        controller->add(m_socket);
    m_speedController = controller;
}

void SCommunicatorBase::close()
{
    if (m_socket)
        m_socket->close();
}

void SCommunicatorBase::progressFromSize(qint64 size, qint64 totalSize)
{
    Q_EMIT progress(totalSize < 1 ? 100 : percent(size, totalSize));
}

AuthenticationStatus SCommunicatorBase::authenticationStatus() const
{
    return m_authenticationStatus;
}

void SCommunicatorBase::setAuthenticationStatus(AuthenticationStatus status)
{
    m_authenticationStatus = status;
}

unsigned int SCommunicatorBase::contextId() const
{
    return m_contextId;
}

void SCommunicatorBase::setContextId(unsigned int context)
{
    m_contextId = context;
}

QUuid SCommunicatorBase::uuid() const
{
    return m_uuid;
}

void SCommunicatorBase::setUuid(const QUuid &uuid)
{
    m_uuid = uuid;
}

STcpSocket *SCommunicatorBase::socket() const
{
    return m_socket;
}

void SCommunicatorBase::setSocket(STcpSocket *socket)
{
    m_socket = socket;
    if (m_speedController)
        m_speedController->add(socket);
}

QByteArray SCommunicatorBase::generateHashedPassword(const QByteArray &hash) const
{
    return saltedHash(hash, m_uuid);
}

void SCommunicatorBase::registerCommand(SCommand *prototype)
{
    SCommandHelper::registerCommand(prototype, m_contextId);
}

QList<SCommandId> SCommunicatorBase::supportedCommands() const
{
    return SCommandHelper::registeredCommands(m_contextId);
}

} // namespace Talverine

#include "moc_scommunicatorbase.cpp"
