// SPDX-License-Identifier: MIT
#include <brixlib/protocol/server/sserverbase.h>

#include "closeconnection_p.h"
#include <brixlib/protocol/socket/protocolsocket_p.h>
#include <brixlib/protocol/socket/socketcork_p.h>

#include <brixlib/foundation/sdatastream.h>
#include <brixlib/protocol/commands/scommandauthentication.h>
#include <brixlib/protocol/commands/scommandclientdevice.h>
#include <brixlib/protocol/commands/scommandcommandlist.h>
#include <brixlib/protocol/commands/scommandlinktest.h>
#include <brixlib/protocol/commands/scommandpluggable.h>
#include <brixlib/protocol/commands/scommandpluggablelist.h>
#include <brixlib/protocol/commands/scommandservername.h>
#include <brixlib/protocol/commands/scommandstreamversion.h>
#include <brixlib/protocol/commands/scommandwhoami.h>
#include <brixlib/protocol/replies.h>
#include <brixlib/protocol/scommandhelper.h>
#include <brixlib/protocol/socket/stcpsocket.h>
#include <brixlib/protocol/users/sauthenticationdb.h>
#include <brixlib/protocol/wire.h>

#include <brixsec/sobfuscatedstring.h>

#include <QtCore/QCoreApplication>
#include <QtNetwork/QHostInfo>

#include <new>

// The device session is in sserverbase_device.cpp, the limits are in sserverbase_limits.cpp, the
// phases of the link test in scommunicatorbase_linktest.cpp.
namespace Talverine {

using namespace Qt::StringLiterals;
using Interfaces::ISAuthenticationDb;
using Interfaces::ISUser;

namespace {

constexpr int kTimeoutMs = 10000;
constexpr int kFailedLoginDelayMs = 1000;
constexpr auto kStreamVersion = static_cast<QDataStream::Version>(Wire::kHighestStreamVersion);

// Calls by name spell types as they are declared, without the namespace around them.
[[maybe_unused]] const bool registered = [] {
    qRegisterMetaType<ISAuthenticationDb *>("Interfaces::ISAuthenticationDb*");
    qRegisterMetaType<SPluggable *>("SPluggable*");
    return true;
}();

QString defaultServerName()
{
    static constexpr Security::SObfuscatedString builtIn("server");
    const QString host = QHostInfo::localHostName();
    return host.isEmpty() ? builtIn.toString() : host;
}

// The body of a reply, written at the thread's stream version.
template<typename WriteFields>
QByteArray replyBody(WriteFields writeFields)
{
    QByteArray body;
    SDataStream stream(&body, QIODevice::WriteOnly);
    writeFields(stream);
    return body;
}

} // namespace

SServerBase::SServerBase(qint64 socketDescriptor, ISAuthenticationDb *db, QObject *parent)
    : SCommunicatorBase(parent)
{
    initSeverBase(socketDescriptor, db);
}

SServerBase::SServerBase(qint64 socketDescriptor, QObject *parent)
    : SServerBase(socketDescriptor, nullptr, parent)
{
}

SServerBase::SServerBase(qint64 socketDescriptor, std::nullptr_t)
    : SServerBase(socketDescriptor, nullptr, nullptr)
{
}

SServerBase::~SServerBase()
{
    if (!m_hasSocket && m_socketDescriptor != 0)
        closeConnection(m_socketDescriptor);
}

void SServerBase::initSeverBase(qint64 socketDescriptor, ISAuthenticationDb *db)
{
    m_socketDescriptor = socketDescriptor;
    m_serverName = defaultServerName();
    enableDocumentRoot(false);
    setTimeout(kTimeoutMs);
    registerCommand(new SCommandCommandList);
    registerCommand(new SCommandAuthentication);
    registerCommand(new SCommandServerName);
    registerCommand(new SCommandWhoAmI);
    registerCommand(new SCommandStreamVersion(kStreamVersion));
    registerCommand(new SCommandPluggable(QString(), QByteArray()));
    registerCommand(new SCommandPluggableList);
    registerCommand(new SCommandClientDevice);
    registerCommand(new SCommandLinkTest(0, 0));
    setAuthenticationDb(db);
    setUuid(QUuid::createUuid());
}

void SServerBase::setAuthenticationDb(ISAuthenticationDb *db)
{
    m_db = db ? db : new SAuthenticationDb(this);
    connect(m_db, &ISAuthenticationDb::changed, this, &SServerBase::onDbChanged);
    connect(m_db, &ISAuthenticationDb::added, this, &SServerBase::onUserChanged);
    // A table that loses one user tells so by this signal only.
    connect(m_db, &ISAuthenticationDb::removed, this, &SServerBase::onDbChanged);
}

ISAuthenticationDb *SServerBase::authenticationDb() const
{
    return m_db;
}

QString SServerBase::currentUser() const
{
    return m_currentUser;
}

void SServerBase::setServerName(const QString &name)
{
    m_serverName = name;
}

QString SServerBase::serverName() const
{
    return m_serverName;
}

void SServerBase::enableDocumentRoot(bool enabled)
{
    m_documentRootEnabled = enabled;
    Q_EMIT documentRootEnabled(enabled);
}

bool SServerBase::isDocumentRootEnabled() const
{
    return m_documentRootEnabled;
}

void SServerBase::addPluggable(const QString &name, SPluggable *pluggable)
{
    if (pluggable) {
        pluggable->setCommand(name);
        pluggable->setParent(this);
    }
    m_pluggables.insert(name, pluggable);
}

void SServerBase::delPluggable(const QString &name)
{
    m_pluggables.remove(name);
}

QList<QString> SServerBase::pluggableList() const
{
    return m_pluggables.keys();
}

QHostAddress SServerBase::peerAddress() const
{
    return isNull() ? QHostAddress() : socket()->peerAddress();
}

void SServerBase::setSocketDescriptor(qint64 socketDescriptor)
{
    m_socketDescriptor = socketDescriptor;
}

qint64 SServerBase::socketDescriptor() const
{
    return m_socketDescriptor;
}

SCommand *SServerBase::receivedCommand(QDataStream &stream)
{
    return SCommandHelper::createCommand(stream, contextId());
}

SCommand *SServerBase::receivedCommand(const QByteArray &bytes)
{
    return SCommandHelper::createCommand(bytes, contextId());
}

int SServerBase::connectionCommandVersion(SCommand *command) const
{
    if (!command)
        return 0;
    const auto versions = SCommandHelper::registeredCommandVersions(contextId());
    return std::min(command->version(), versions.value(command->id(), 0));
}

QString SServerBase::networkPathToAbsolute(const QString &path, const QString &root) const
{
    QString whole = path;
    if (m_documentRootEnabled)
        whole = QDir::isRelativePath(path) ? u"%1/%2"_s.arg(currentPath(), path)
                                           : u"%1%2"_s.arg(root, path);
    return absoluteChildPath(whole, root);
}

QString SServerBase::absoluteToNetworkPath(const QString &path, const QString &root) const
{
    const QString absolute = absoluteChildPath(path, root);
    if (absolute.isEmpty() || root.isEmpty() || !m_documentRootEnabled)
        return absolute;
    const QString jail = QDir(QDir::fromNativeSeparators(root)).absolutePath();
    if (!absolute.startsWith(jail, Qt::CaseInsensitive))
        return QString();
    const QString below = absolute.mid(jail.size());
    return below.startsWith(u'/') ? below : u'/' + below;
}

bool SServerBase::workerInit()
{
    if (m_socketDescriptor == 0)
        return false;
    auto *newSocket = new STcpSocket(this);
    m_hasSocket =
        newSocket->setSocketDescriptor(static_cast<qintptr>(m_socketDescriptor),
                                       QAbstractSocket::ConnectedState, QIODevice::ReadWrite);
    setProtocolOptions(*newSocket);
    setSocket(newSocket);
    connect(newSocket, &STcpSocket::disconnected, this, &SServerBase::terminateLater);
    connect(this, &SServerBase::finished, this, &SServerBase::close, Qt::QueuedConnection);

    const QByteArray greeting = uuid().toRfc4122();
    if (writeAll(newSocket, greeting) != greeting.size())
        return false;
    startLimits();

    // Only now: a client that speaks before it was greeted would call run() before its time. Its
    // bytes may lie in the socket already, and for those no signal comes any more.
    connect(newSocket, &STcpSocket::readyRead, this, &SServerBase::run);
    if (newSocket->bytesAvailable() != 0)
        QMetaObject::invokeMethod(this, &SServerBase::run, Qt::QueuedConnection);
    Q_EMIT connectionInfo(newSocket->peerAddress());
    return true;
}

bool SServerBase::doWork()
{
    if (isNull())
        return false;
    Q_EMIT busy();
    const bool goesOn = isInterruptionRequested() || processCommandsInMemory();
    Q_EMIT idle();
    m_sinceCommand.start();
    return goesOn;
}

// A command that takes more memory than there is costs its session and nothing else.
bool SServerBase::processCommandsInMemory()
{
    try {
        return processCommands();
    } catch (const std::bad_alloc &) {
        qDebug() << "SServerBase::doWork: out of memory";
        return false;
    }
}

// A readyRead() that comes meanwhile is lost, so this goes on until no byte is left.
bool SServerBase::processCommands()
{
    SCommandId id;
    do {
        // Lets the calls of other threads in, a change of the users among them, also when the
        // client sends one command after the other without a pause.
        QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
        if (socket()->state() == QAbstractSocket::UnconnectedState) {
            Q_EMIT commandResult(id, false);
            return false;
        }
        if (socket()->bytesAvailable() == 0)
            return true;
        const bool succeeded = processCommand(&id);
        Q_EMIT commandResult(id, succeeded);
        if (!succeeded || hasExceededLogins())
            return false;
    } while (!isInterruptionRequested());
    return true;
}

// \a id changes only when a command could be made of the frame.
bool SServerBase::processCommand(SCommandId *id)
{
    const std::unique_ptr<SCommand> command = readCommand();
    bool succeeded = false;
    if (command) {
        *id = command->id();
        writeWord(socket(), Wire::kAckWord);
        succeeded = innerExecuteCommand(command.get());
    }
    // A reply that a stop broke off has left the client out of step: it would take the word for a
    // part of that, and a slow one would hold up the stop until it has taken all before it.
    if (succeeded || !isInterruptionRequested() || socket()->bytesToWrite() == 0)
        writeWord(socket(), succeeded ? Wire::kAckWord : Wire::kNackWord);
    if (m_place)
        m_place->releaseListing();
    if (std::exchange(m_replyIsHeld, false))
        setSocketCorked(socket()->socketDescriptor(), false);
    return succeeded;
}

void SServerBase::holdReply()
{
    m_replyIsHeld = true;
    setSocketCorked(socket()->socketDescriptor(), true);
}

std::unique_ptr<SCommand> SServerBase::readCommand()
{
    const quint32 length = readWord(socket());
    QByteArray body;
    if (length == 0 || length > bodyLimit() || !readBody(socket(), length, &body))
        return nullptr;
    std::unique_ptr<SCommand> command(receivedCommand(body));
    if (command && command->isNull())
        return nullptr;
    return command;
}

bool SServerBase::innerExecuteCommand(SCommand *command)
{
    if (command->id() == CommandIds::kAuthentication) {
        const bool answered =
            executeCommandAuthentication(static_cast<const SCommandAuthentication &>(*command));
        // Limits how fast passwords can be tried.
        if (authenticationStatus() != AuthenticationStatus::Authenticated)
            sleep(kFailedLoginDelayMs);
        return answered;
    }
    if (authenticationStatus() != AuthenticationStatus::Authenticated) {
        qDebug() << "SServerBase::innerExecuteCommand: not authenticated error!";
        return false;
    }
    return executeCommand(command);
}

bool SServerBase::executeCommand(SCommand *command)
{
    switch (command->id().id()) {
    case CommandIds::kCommandList.id():
        return executeCommandCommandList(*command);
    case CommandIds::kServerName.id():
        return executeCommandServerName();
    case CommandIds::kWhoAmI.id():
        return executeCommandWhoAmI();
    case CommandIds::kStreamVersion.id():
        return executeCommandStreamVersion(static_cast<const SCommandStreamVersion &>(*command));
    case CommandIds::kPluggable.id():
        return executeCommandPluggable(static_cast<const SCommandPluggable &>(*command));
    case CommandIds::kPluggableList.id():
        return executeCommandPluggableList();
    case CommandIds::kClientDevice.id():
        return executeCommandClientDevice(static_cast<const SCommandClientDevice &>(*command));
    case CommandIds::kLinkTest.id():
        return executeCommandLinkTest(static_cast<const SCommandLinkTest &>(*command));
    default:
        return false;
    }
}

// Another thread may take a user out of the database at any time, so the stock database is asked
// for a share in it.
std::shared_ptr<const ISUser> SServerBase::user(const QString &username) const
{
    if (const auto *db = qobject_cast<const SAuthenticationDb *>(m_db.data()))
        return db->sharedUser(username);
    const ISUser *unowned = m_db ? m_db->value(username) : nullptr;
    return std::shared_ptr<const ISUser>(std::shared_ptr<void>(), unowned);
}

bool SServerBase::executeCommandAuthentication(const SCommandAuthentication &command)
{
    const auto candidate = user(command.username());
    setEnvironment(QString());
    setAuthenticationStatus(AuthenticationStatus::NotAuthenticated);
    if (candidate && candidate->isValid() &&
        generateHashedPassword(candidate->hashedPassword()) == command.hashedPassword() &&
        setEnvironment(candidate->username()))
        setAuthenticationStatus(AuthenticationStatus::Authenticated);
    noteLogin(authenticationStatus() == AuthenticationStatus::Authenticated);
    Q_EMIT authenticationFinished(command.username(), authenticationStatus());
    return writeWord(socket(), static_cast<quint32>(authenticationStatus()));
}

bool SServerBase::setEnvironment(const QString &username)
{
    if (username.isEmpty()) {
        m_currentUser.clear();
        return setRootPath(QDir::homePath());
    }
    const auto newUser = user(username);
    if (!newUser || !newUser->isValid()) {
        setEnvironment(QString());
        return false;
    }
    if (!setRootPath(newUser->homeFolder()))
        return false;
    m_currentUser = username;
    m_loginPassword = newUser->hashedPassword();
    m_loginHome = newUser->homeFolder();
    return true;
}

// For an exchange that has no end of its own: while it runs, no slot of this object is called.
bool SServerBase::isLoginCurrent() const
{
    const auto current = user(m_currentUser);
    return current && current->isValid() && current->hashedPassword() == m_loginPassword &&
           current->homeFolder() == m_loginHome;
}

void SServerBase::onDbChanged()
{
    if (!m_db || !m_db->contains(m_currentUser))
        setAuthenticationStatus(AuthenticationStatus::NotAuthenticated);
}

void SServerBase::onUserChanged(const QString &username)
{
    if (username == m_currentUser)
        setAuthenticationStatus(AuthenticationStatus::NotAuthenticated);
}

bool SServerBase::executeCommandCommandList(const SCommand &command)
{
    return writeFrame(socket(), replyBody([&](QDataStream &stream) {
                          if (command.version() < Wire::kSinceCommandVersions)
                              Replies::writeCommandIds(stream, supportedCommands());
                          else
                              Replies::writeCommandVersions(
                                  stream, SCommandHelper::registeredCommandVersions(contextId()));
                      }));
}

bool SServerBase::executeCommandServerName()
{
    return writeFrame(socket(), replyBody([&](QDataStream &stream) { stream << m_serverName; }));
}

bool SServerBase::executeCommandWhoAmI()
{
    return writeFrame(socket(), replyBody([&](QDataStream &stream) { stream << m_currentUser; }));
}

bool SServerBase::executeCommandStreamVersion(const SCommandStreamVersion &command)
{
    if (!writeWord(socket(), kStreamVersion))
        return false;
    SDataStream::setDefaultVersion(std::min(kStreamVersion, command.streamVersion()));
    return true;
}

bool SServerBase::executeCommandPluggable(const SCommandPluggable &command)
{
    QByteArray output;
    const bool result = callPluggable(command, output);
    const QByteArray body = replyBody([&](QDataStream &stream) { stream << output << result; });
    const bool written = writeFrame(socket(), body);
    Q_EMIT pluggableResult(command.command(), result, command.params(), output);
    return written;
}

bool SServerBase::callPluggable(const SCommandPluggable &command, QByteArray &output)
{
    SPluggable *pluggable = m_pluggables.value(command.command());
    if (!pluggable || pluggable->isNull())
        return false;
    const auto caller = user(m_currentUser);
    SPluggableEnvironment environment;
    environment.setUser(caller.get());
    environment.setDocumentRootEnabled(m_documentRootEnabled);
    environment.setValue(u"serverName"_s, m_serverName);
    return pluggable->execute(command.params(), output, environment);
}

bool SServerBase::executeCommandPluggableList()
{
    return writeFrame(socket(), replyBody([&](QDataStream &stream) {
                          Replies::writeTexts(stream, pluggableList());
                      }));
}

// The client sends first.
bool SServerBase::executeCommandLinkTest(const SCommandLinkTest &command)
{
    const auto block = makeLinkTestBlock();
    Q_EMIT linkTestStarted(command.uploadSeconds(), command.downloadSeconds());
    LinkTestPhase upload;
    LinkTestPhase download;
    if (!receiveLinkTest(command.uploadSeconds(), block.get(), nullptr, &upload) ||
        !sendLinkTest(command.downloadSeconds(), block.get(), &upload, &download))
        return false;
    Q_EMIT progress(100);
    Q_EMIT linkTestFinished(upload.bytesPerSecond(), download.bytesPerSecond());
    return true;
}

} // namespace Talverine

#include "moc_sserverbase.cpp"
