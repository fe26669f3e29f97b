// SPDX-License-Identifier: MIT
#include "sessionrecorder.h"

#include <remote/commandname.h>

#include <brixlib/fileservice/commands/scommandfile.h>
#include <brixlib/fileservice/commands/scommandfilefilter.h>
#include <brixlib/fileservice/commands/scommandiodevice.h>
#include <brixlib/fileservice/commands/scommandpath.h>
#include <brixlib/fileservice/commands/scommandpathpair.h>
#include <brixlib/fileservice/commands/scommandsendfile.h>
#include <brixlib/fileservice/commands/scommandsetpermissions.h>
#include <brixlib/fileservice/sserverftp.h>
#include <brixlib/protocol/commands/scommandclientdevice.h>
#include <brixlib/protocol/commands/scommandpluggable.h>
#include <brixlib/protocol/users/sauthenticationdb.h>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace Talverine;

namespace {

struct Paths
{
    QString path;
    QString target;
};

// As the client wrote them; nothing for a command that is not about a path.
Paths pathsOf(SCommand *command)
{
    if (const auto *file = dynamic_cast<SCommandSendFile *>(command))
        return {file->targetFileName(), {}};
    if (const auto *file = dynamic_cast<SCommandFile *>(command))
        return {file->fileName(), {}};
    if (const auto *path = dynamic_cast<SCommandPath *>(command))
        return {path->value(), {}};
    if (const auto *pair = dynamic_cast<SCommandPathPair *>(command))
        return {pair->first(), pair->second()};
    if (const auto *filter = dynamic_cast<SCommandFileFilter *>(command))
        return {filter->path(), {}};
    if (const auto *device = dynamic_cast<SCommandIODevice *>(command))
        return {device->fileName(), {}};
    if (const auto *device = dynamic_cast<SCommandClientDevice *>(command))
        return {device->fileName(), {}};
    if (const auto *permissions = dynamic_cast<SCommandSetPermissions *>(command))
        return {permissions->fileName(), {}};
    if (const auto *pluggable = dynamic_cast<SCommandPluggable *>(command))
        return {pluggable->command(), {}};
    return {};
}

QString resultOf(bool succeeded, std::optional<bool> answer)
{
    if (!succeeded)
        return u"failed"_s;
    return answer.value_or(true) ? u"done"_s : u"no"_s;
}

} // namespace

SessionRecorder::SessionRecorder(SServerFtp *session, int number, Sink sink)
    : QObject(session)
    , m_session(session)
    , m_number(number)
    , m_sink(std::move(sink))
{
    connectSession();
    connectCommands();
}

void SessionRecorder::connectSession()
{
    connect(m_session, &SServerFtp::connectionInfo, this, [this](const QHostAddress &peer) {
        m_address = peer.toString();
        m_sink(event(u"Connected"_s));
    });
    connect(m_session, &SServerFtp::authenticationFinished, this,
            [this](const QString &user, AuthenticationStatus status) {
                recordLogin(user, status == AuthenticationStatus::Authenticated);
            });
    connect(m_session, &SServerFtp::invalidRootDir, this, [this] { m_isHomeMissing = true; });
    connect(m_session, &SServerFtp::finished, this, [this] { m_sink(event(u"Disconnected"_s)); });
}

void SessionRecorder::connectCommands()
{
    const auto setBytes = [this](qint64 bytes) {
        if (m_running)
            m_running->bytes = bytes;
    };
    connect(m_session, &SServerFtp::getFileTransferredSize, this, setBytes);
    connect(m_session, &SServerFtp::sendFileTransferredSize, this, setBytes);
    connect(m_session, &SServerFtp::clientDeviceTransferred, this,
            [setBytes](qint64 read, qint64 written) { setBytes(read + written); });
    connect(m_session, &SServerFtp::operationFinished, this, [this](bool result) {
        if (m_running)
            m_running->answer = result;
    });
    connect(m_session, &SServerFtp::pluggableResult, this, [this](const QString &, bool result) {
        if (m_running)
            m_running->answer = result;
    });
    connect(m_session, &SServerFtp::commandResult, this, &SessionRecorder::recordCommand);
}

SessionEvent SessionRecorder::event(const QString &id) const
{
    SessionEvent event{id, QDateTime::currentDateTimeUtc(), {}};
    event.add(u"session"_s, QString::number(m_number));
    event.add(u"address"_s, m_address);
    if (!m_session->currentUser().isEmpty())
        event.add(u"user"_s, m_session->currentUser());
    return event;
}

void SessionRecorder::begin(SCommand *command)
{
    const Paths paths = pathsOf(command);
    m_running = Running{paths.path, paths.target, {}, {}, {}};
    m_running->timer.start();
}

void SessionRecorder::recordLogin(const QString &user, bool isGood)
{
    SessionEvent login = event(isGood ? u"LoggedIn"_s : u"LoginRefused"_s);
    if (!isGood) {
        login.add(u"as"_s, user);
        login.add(u"reason"_s, reasonOfRefusal(user));
    }
    m_isHomeMissing = false;
    m_sink(login);
}

// The session tells only that the login was refused.
QString SessionRecorder::reasonOfRefusal(const QString &user) const
{
    // The home is looked at after the password, so that one was right.
    if (m_isHomeMissing)
        return u"the home directory is missing"_s;
    const auto *users = qobject_cast<const SAuthenticationDb *>(m_session->authenticationDb());
    const auto candidate = users ? users->sharedUser(user) : nullptr;
    if (!candidate)
        return u"unknown user"_s;
    if (!candidate->enabled())
        return u"the user is disabled"_s;
    return candidate->isValid() ? u"wrong password"_s
                                : u"the user has no password or no home directory"_s;
}

// A login is recorded as such. A command that did not begin was refused before it was executed.
void SessionRecorder::recordCommand(const SCommandId &id, bool succeeded)
{
    const std::optional<Running> running = std::exchange(m_running, std::nullopt);
    if (!running && (succeeded || id.isNull()))
        return;
    SessionEvent command = event(u"Command"_s);
    command.add(u"command"_s, commandName(id));
    if (running && !running->path.isEmpty())
        command.add(u"path"_s, running->path);
    if (running && !running->target.isEmpty())
        command.add(u"target"_s, running->target);
    command.add(u"result"_s, resultOf(succeeded, running ? running->answer : std::nullopt));
    if (running && running->bytes)
        command.add(u"bytes"_s, QString::number(*running->bytes));
    if (running)
        command.add(u"ms"_s, QString::number(double(running->timer.nsecsElapsed()) / 1e6, 'f', 3));
    m_sink(command);
}

} // namespace Brix
