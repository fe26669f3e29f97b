// SPDX-License-Identifier: MIT
// brix serve: a file server.
#include "homeoverlap.h"
#include "partialfiles.h"
#include "processrights.h"
#include "serveaudit.h"
#include "serveguards.h"
#include "sessionlog.h"
#include "sessionrecorder.h"
#include "userfilewatch.h"
#include <cli/failure.h>
#include <process/hangupsignal.h>
#include <process/interruption.h>
#include <process/logwriter.h>
#include <process/messagehandler.h>
#include <tool.h>

#include <brixlib/fileservice/sserverftp.h>
#include <brixlib/protocol/pluggables/spluggableserverversion.h>
#include <brixlib/protocol/server/sservercontroller.h>
#include <brixlib/protocol/socket/stcpsocket.h>
#include <brixlib/protocol/socket/stcpsocketspeedcontroller.h>
#include <brixlib/workers/ssimplebackgroundrunner.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QEventLoop>
#include <QtCore/QSet>
#include <QtNetwork/QHostAddress>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace Talverine;

namespace {

struct ServeOptions
{
    QString users;
    QString address = u"127.0.0.1"_s;
    quint16 port = 0;
    QString name;
    bool documentRoot = false;
    ServeGuards guards;
    qint64 limitIn = 0;
    qint64 limitOut = 0;
    bool strictJail = false;
    int fileMask = -1;
    int partialDays = 0;
    ServeAuditOptions audit;
    bool verbose = false;
};

bool isOctalMask(const std::string &text)
{
    return !text.empty() && text.size() <= 4 &&
           text.find_first_not_of("01234567") == std::string::npos &&
           std::stoi(text, nullptr, 8) <= 0777;
}

void declareServe(Command *command, ServeOptions *options)
{
    command
        ->addPath("--users", &options->users,
                  "The user file (see brix user); read again when it changes and on SIGHUP")
        .setRequired();
    command->addText("--address", &options->address,
                     "Address to listen on; 0.0.0.0 or :: for all. Default: 127.0.0.1");
    command->addNumber("--port", &options->port, "Port to listen on; 0 takes a free one");
    command->addText("--name", &options->name, "The server's name. Default: that of this machine");
    command->addFlag("--document-root", &options->documentRoot,
                     "Show each user the own home folder as /");
    command->addFlag("--strict-jail", &options->strictJail,
                     "Keep users in their homes by resolving links and comparing whole names");
    command->addSize("--limit-in", &options->limitIn,
                     "Bytes a second that all clients together may send; 0 for no limit");
    command->addSize("--limit-out", &options->limitOut,
                     "Bytes a second that all clients together may receive; 0 for no limit");
    command
        ->addArgument(Argument::Kind::Text, "--umask",
                      "Permissions that new files of clients do not get, in octal, for instance "
                      "027. Default: those of the caller's umask",
                      [options](const auto &texts) {
                          options->fileMask = std::stoi(texts.front(), nullptr, 8);
                      })
        .setValueName("OCTAL")
        .addCheck([](const std::string &text) {
            return isOctalMask(text) ? std::string()
                                     : text + " is not an octal number from 0 to 777";
        });
    command->addNumber("--clean-partials", &options->partialDays,
                       "Remove, at the start, what killed servers have left of transfers in the "
                       "homes so many days ago (UUID.part); 0 keeps it",
                       0, 36500);
    command->addFlag("--verbose", &options->verbose,
                     "A line on stderr for each login, command and end of a session");
    ServeAuditOptions::declare(command, &options->audit);
    ServeGuards::declare(command, &options->guards);
}

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

// Listens, and serves each connection in a thread of its own.
class FileServer final : public QObject
{
public:
    FileServer(const Output &output, const ServeOptions &options)
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

    // What the homes hold of transfers that a killed server has left.
    void cleanPartialFiles()
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

    void listen()
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
            note(
                u"running as root: clients can do with the files in their homes whatever root can; "
                "run it as a user of its own"_s);
        noteUsers();
    }

    // Returns when the interruption has come and all sessions have ended.
    void run(const Interruption &interruption)
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

private:
    static QString place(const QHostAddress &address, quint16 port)
    {
        const auto form =
            address.protocol() == QAbstractSocket::IPv6Protocol ? u"[%1]:%2"_s : u"%1:%2"_s;
        return form.arg(address.toString(), QString::number(port));
    }

    void serve(qint64 descriptor)
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

    QSet<QString> homes() const
    {
        QSet<QString> homes;
        for (const QString &name : m_users.users()) {
            const QString home = m_users.sharedUser(name)->homeFolder();
            if (!home.isEmpty())
                homes.insert(QDir(home).absolutePath());
        }
        return homes;
    }

    void tellUsers()
    {
        note(u"read the user file again; users: %1"_s.arg(QString::number(m_users.users().size())));
        noteUsers();
    }

    void noteUsers()
    {
        if (m_users.isEmpty())
            note(u"the user file has no user; nobody can log in"_s);
        const QString mode = ProcessRights::sharedMode(m_options.users);
        if (!mode.isEmpty())
            note(
                u"%1 is open to other users of this machine (mode %2), and a line of it is as good "
                "as a password: chmod 600 %1"_s.arg(m_options.users, mode));
        const auto jail =
            m_options.strictJail ? HomeOverlap::Jail::Strict : HomeOverlap::Jail::Beginnings;
        for (const QString &warning : HomeOverlap::warnings(m_users, jail))
            note(warning);
    }

    void note(const QString &text)
    {
        if (!m_output.quiet)
            m_log.write(u"brix: "_s + text);
    }

    const Output &m_output;
    const ServeOptions &m_options;
    const QString m_descriptorLimit = ServeGuards::prepareProcess();
    SAuthenticationDb m_users;
    UserFileWatch m_userFile;
    const HangupSignal m_hangup{[this] { m_userFile.reload(); }};
    STcpSocketSpeedController m_speed;
    LogWriter m_log{LogWriter::standardError()};
    const MessageRedirection m_messages{&m_log};
    ServeAudit m_audit{m_options.audit, &m_log};
    int m_sessions = 0;
    // Last, so that its sessions end before what they use does.
    SServerController m_controller;
};

ExitCode serve(const Output &output, const ServeOptions &options)
{
    if (options.fileMask >= 0 && !ProcessRights::setFileMask(options.fileMask))
        throw Failure{ExitCode::Usage, u"--umask: this system has no such mask"_s};
    const Interruption interruption;
    FileServer server(output, options);
    server.cleanPartialFiles();
    server.listen();
    server.run(interruption);
    return ExitCode::Done;
}

} // namespace

void addServeCommand(Command *root)
{
    addCommand<ServeOptions>(
        root, "serve", "Serve files until Ctrl-C; the first line tells the address and port",
        "brix serve --users users.json --address 0.0.0.0 --port 7000", declareServe, serve);
}

} // namespace Brix
