// SPDX-License-Identifier: MIT
// The login, what is held back until it is through, and how commands adapt to the server.
#include <brixlib/protocol/client/sclientbase.h>

#include <brixlib/protocol/users/passwordhash_p.h>

#include <brixlib/protocol/commands/scommandauthentication.h>
#include <brixlib/protocol/commands/scommandcommandlist.h>
#include <brixlib/protocol/commands/scommandstreamversion.h>
#include <brixlib/protocol/scommand.h>
#include <brixlib/protocol/scommandqueue.h>
#include <brixlib/protocol/wire.h>
#include <brixsec/ssecurecredential.h>

#include <QtCore/QDebug>
#include <QtCore/QMutexLocker>

#include <algorithm>

namespace Talverine {

namespace {

static_assert(Wire::kHighestStreamVersion == QDataStream::Qt_6_0);

bool isHandshakeCommand(const SCommandId &id)
{
    return id == CommandIds::kAuthentication || id == CommandIds::kCommandList ||
           id == CommandIds::kStreamVersion;
}

} // namespace

void SClientBase::authenticate(const QString &username, const QString &password)
{
    authenticateHashed(username, passwordHash(password.toUtf8()));
}

void SClientBase::authenticate(const QString &username, const Security::SSecureString &password)
{
    authenticateHashed(username, passwordHash(password));
}

void SClientBase::authenticate(const Security::SSecureCredential &credential)
{
    authenticate(credential.username(), credential.password());
}

void SClientBase::authenticateHashed(const QString &username, const QByteArray &hash)
{
    if (uuid().isNull())
        qDebug() << "SClientBase::authenticate: called before connected(), the login will fail";
    {
        const QMutexLocker locker(&m_handshakeMutex);
        if (m_serverCommands.isEmpty())
            m_delayed = true;
    }
    enqueueCommand(new SCommandAuthentication(username, generateHashedPassword(hash)));
}

void SClientBase::onAuthenticationResult(const AuthenticationStatus &status)
{
    if (status != AuthenticationStatus::Authenticated) {
        const QMutexLocker locker(&m_handshakeMutex);
        m_delayed = false;
        return;
    }
    if (serverCommands().isEmpty())
        enqueueCommand(new SCommandCommandList);
}

void SClientBase::onCommandListResult(const QHash<SCommandId, qint32> &list)
{
    {
        const QMutexLocker locker(&m_handshakeMutex);
        m_serverCommands = list;
    }
    enqueueCommand(new SCommandStreamVersion(QDataStream::Qt_6_0));
    flushDelayedCommands();
}

void SClientBase::enqueueCommand(SCommand *command)
{
    if (!command || checkAndDelay(command))
        return;
    enqueueAvailable(command);
}

bool SClientBase::checkAndDelay(SCommand *command)
{
    // The lock keeps a command from being held back just after the last one has been released.
    const QMutexLocker locker(&m_handshakeMutex);
    if (!m_delayed || isHandshakeCommand(command->id()))
        return false;
    m_delayedQueue->enqueue(command);
    return true;
}

void SClientBase::enqueueAvailable(SCommand *command)
{
    const QHash<SCommandId, int> commands = serverCommands();
    if (!commands.isEmpty()) {
        const SCommandId id = command->id();
        const auto found = commands.constFind(id);
        if (found == commands.constEnd()) {
            delete command;
            Q_EMIT unavailableCommand(id);
            return;
        }
        command->setVersion(std::min(command->version(), found.value()));
    }
    m_queue->enqueue(command);
}

void SClientBase::flushDelayedCommands()
{
    while (SCommand *command = takeDelayed())
        enqueueAvailable(command);
}

// Delayed mode ends with the last one, so that what another thread queues meanwhile stays behind.
SCommand *SClientBase::takeDelayed()
{
    const QMutexLocker locker(&m_handshakeMutex);
    SCommand *command = m_delayedQueue->tryDequeue();
    if (!command)
        m_delayed = false;
    return command;
}

QHash<SCommandId, int> SClientBase::serverCommands() const
{
    const QMutexLocker locker(&m_handshakeMutex);
    return m_serverCommands;
}

bool SClientBase::isCommandAvailable(const SCommandId &id) const
{
    const QHash<SCommandId, int> commands = serverCommands();
    return commands.isEmpty() || commands.contains(id);
}

bool SClientBase::wasRefused() const
{
    return m_wasRefused;
}

void SClientBase::setRefused()
{
    m_wasRefused = true;
}

int SClientBase::commandVersion(const SCommandId &id) const
{
    return serverCommands().value(id, 0);
}

int SClientBase::connectionCommandVersion(SCommand *command) const
{
    if (!command)
        return 0;
    // 0 stands in for a version that the server does not tell.
    return std::min(command->version(), commandVersion(command->id()));
}

} // namespace Talverine
