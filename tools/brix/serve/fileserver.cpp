// SPDX-License-Identifier: MIT
#include "fileserver.h"

#include "homeoverlap.h"
#include "partialfiles.h"
#include "processrights.h"
#include "sessionlog.h"
#include "sessionrecorder.h"
#include <cli/failure.h>
#include <process/interruption.h>

#include <brixlib/fileservice/sserverftp.h>
#include <brixlib/protocol/pluggables/spluggableserverversion.h>
#include <brixlib/protocol/socket/stcpsocket.h>
#include <brixlib/workers/ssimplebackgroundrunner.h>

#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QEventLoop>
#include <QtNetwork/QHostAddress>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace Talverine;

namespace {

// A session that keeps to the limits from its first byte on; the speed controller, which shares
// them out among the sessions, has its say only when there is something to measure.
class LimitedSession final : public SServerFtp
{
public:
    LimitedSession(qint64 descriptor, qint64 limitIn, qint64 limitOut)
        : SServerFtp(descriptor)
        , m_limitIn(limitIn)
        , m_limitOut(limitOut)
    {
    }

    //! Null for none.
    void setRecorder(SessionRecorder *recorder) { m_recorder = recorder; }

protected:
    bool executeCommand(SCommand *command) override
    {
        if (m_recorder)
            m_recorder->begin(command);
        return SServerFtp::executeCommand(command);
    }

    bool workerInit() override
    {
        if (!SServerFtp::workerInit())
            return false;
        socket()->setIncomingSpeed(m_limitIn);
        socket()->setOutcomingSpeed(m_limitOut);
        return true;
    }

private:
    const qint64 m_limitIn;
    const qint64 m_limitOut;
    SessionRecorder *m_recorder = nullptr;
};

QString place(const QHostAddress &address, quint16 port)
{
    const auto form =
        address.protocol() == QAbstractSocket::IPv6Protocol ? u"[%1]:%2"_s : u"%1:%2"_s;
    return form.arg(address.toString(), QString::number(port));
}

} // namespace

FileServer::FileServer(const Output &output, const ServeOptions &options)
    : m_output(output)
    , m_options(options)
    , m_userFile(options.users, &m_users)
{
    connect(&m_userFile, &UserFileWatch::reloaded, this, &FileServer::tellUsers);
    connect(&m_userFile, &UserFileWatch::refused, this, [this](const QString &reason) {
        m_log.write(u"brix: %1; the users stay as they were"_s.arg(reason));
    });
    m_speed.setIncomingSpeed(options.limitIn);
    m_speed.setOutcomingSpeed(options.limitOut);
    options.guards.apply(&m_controller);
    connect(&m_controller, &SServerController::newConnection, this, &FileServer::serve);
}

void FileServer::cleanPartialFiles()
{
    if (m_options.partialDays == 0)
        return;
    const auto time = QDateTime::currentDateTimeUtc().addDays(-m_options.partialDays);
    PartialFiles::Removal all;
    for (const QString &home : homes()) {
        const auto removal = PartialFiles::removeOlderThan(time, home);
        all.files += removal.files;
        all.bytes += removal.bytes;
        all.kept += removal.kept;
    }
    note(u"removed %1 partial files (%2)"_s.arg(QString::number(all.files),
                                                Output::bytes(all.bytes)));
    for (const QString &path : std::as_const(all.kept))
        note(u"cannot remove %1"_s.arg(path));
}

void FileServer::listen()
{
    const QHostAddress address(m_options.address);
    if (address.isNull())
        throw Failure{ExitCode::Usage, u"\"%1\" is not an address"_s.arg(m_options.address)};
    if (!m_controller.listen(address, m_options.port))
        throw Failure{ExitCode::LocalIo,
                      u"cannot listen on %1: %2"_s.arg(place(address, m_options.port),
                                                       m_controller.errorString())};
    const QString where = place(m_controller.serverAddress(), m_controller.serverPort());
    m_output.result(u"listening on "_s + where, {{u"listening"_s, where}});
    if (!m_descriptorLimit.isEmpty())
        note(m_descriptorLimit);
    if (ProcessRights::isSuperuser())
        note(u"running as root: clients can do with the files in their homes whatever root can; "
             "run it as a user of its own"_s);
    noteUsers();
}

void FileServer::run(const Interruption &interruption)
{
    QEventLoop loop;
    const auto quitWhenIdle = [&] {
        if (interruption.isRequested() && m_controller.count() == 0)
            loop.quit();
    };
    connect(&m_controller, &SServerController::connectionCountChanged, &loop, quitWhenIdle);
    connect(&interruption, &Interruption::requested, &loop, [&] {
        m_controller.close();
        m_controller.interruptWorkers();
        quitWhenIdle();
    });
    loop.exec();
}

void FileServer::serve(qint64 descriptor)
{
    auto *session = new LimitedSession(descriptor, m_options.limitIn, m_options.limitOut);
    session->setLimits(m_options.guards.sessionLimits());
    session->setAuthenticationDb(&m_users);
    session->enableDocumentRoot(m_options.documentRoot);
    session->setStrictJail(m_options.strictJail);
    session->setStrictListings(true);
    if (!m_options.name.isEmpty())
        session->setServerName(m_options.name);
    session->addPluggable(u"version"_s, new SPluggableServerVersion);
    if (m_options.limitIn > 0 || m_options.limitOut > 0)
        session->setSpeedController(&m_speed);
    ++m_sessions;
    if (m_options.verbose)
        logSession(session, m_sessions, &m_log);
    session->setRecorder(m_audit.recorder(session, m_sessions));
    auto *runner = m_controller.serveNewConnectionAsync(session, true);
    connect(runner, &SSimpleBackgroundRunner::finished, runner, &QObject::deleteLater);
}

QSet<QString> FileServer::homes() const
{
    QSet<QString> homes;
    for (const QString &name : m_users.users()) {
        const QString home = m_users.sharedUser(name)->homeFolder();
        if (!home.isEmpty())
            homes.insert(QDir(home).absolutePath());
    }
    return homes;
}

void FileServer::tellUsers()
{
    note(u"read the user file again; users: %1"_s.arg(QString::number(m_users.users().size())));
    noteUsers();
}

void FileServer::noteUsers()
{
    if (m_users.isEmpty())
        note(u"the user file has no user; nobody can log in"_s);
    const QString mode = ProcessRights::sharedMode(m_options.users);
    if (!mode.isEmpty())
        note(u"%1 is open to other users of this machine (mode %2), and a line of it is as good "
             "as a password: chmod 600 %1"_s.arg(m_options.users, mode));
    const auto jail =
        m_options.strictJail ? HomeOverlap::Jail::Strict : HomeOverlap::Jail::Beginnings;
    for (const QString &warning : HomeOverlap::warnings(m_users, jail))
        note(warning);
}

void FileServer::note(const QString &text)
{
    if (!m_output.quiet)
        m_log.write(u"brix: "_s + text);
}

} // namespace Brix
