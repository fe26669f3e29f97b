// SPDX-License-Identifier: MIT
#include "serveaudit.h"

#include "audittrail.h"
#include "sessionrecorder.h"
#include <cli/failure.h>
#include <process/logwriter.h>
#include <tool.h>

#include <brixlib/fileservice/sserverftp.h>

#include <QtCore/QFileInfo>

#include <limits>

namespace Brix {

using namespace Qt::StringLiterals;

namespace {

constexpr int kFewestLogs = 10;
constexpr int kKeptLogs = 300;
constexpr qint64 kMaxBytes = qint64(64) << 20;

DatabaseLogin ownerOf(const ServeAuditOptions &options)
{
    if (options.auditUser.isEmpty())
        throw Failure{ExitCode::Usage, u"--audit needs --audit-user, the owner of that log"_s};
    QString error;
    // Creating a log sets its password; a log without a password accepts no entries.
    const auto password = QFileInfo::exists(options.auditFile)
                              ? options.auditPassword.existing(options.auditUser, &error)
                              : options.auditPassword.chosen(options.auditUser, &error);
    if (!password)
        throw Failure{ExitCode::Usage, error};
    return {options.auditUser, *password};
}

} // namespace

void ServeAuditOptions::declare(Command *command, ServeAuditOptions *options)
{
    command->addPath("--audit", &options->auditFile,
                     "Log that gets an entry for each connection, login, command and end (see brix "
                     "log); made when it is missing");
    command->addText("--audit-user", &options->auditUser,
                     "Owner of that log. The password comes from BRIX_PASSWORD or a prompt");
    command->addFlag("--password-stdin", &options->auditPassword.fromStdin,
                     "Read the password of that log from the first line of stdin");
    command->addNumber("--audit-max-logs", &options->auditMaxLogs,
                       "Entries above which that log is rotated", kFewestLogs,
                       std::numeric_limits<int>::max());
    command->addText("--log", &options->log,
                     "File that gets the same as lines of text; - for stderr");
}

ServeAudit::ServeAudit(const ServeAuditOptions &options, LogWriter *standardError)
{
    if (!options.auditFile.isEmpty())
        m_trail = std::make_unique<AuditTrail>(
            options.auditFile, ownerOf(options),
            Talverine::RotateParameters{
                .maxLogs = options.auditMaxLogs, .keepLogs = kKeptLogs, .maxBytes = kMaxBytes});
    if (!options.log.isEmpty())
        openText(options.log, standardError);
}

ServeAudit::~ServeAudit() = default;

void ServeAudit::openText(const QString &fileName, LogWriter *standardError)
{
    m_text = standardError;
    if (fileName == u"-")
        return;
    auto file = std::make_unique<QFile>(fileName);
    if (!file->open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered))
        throw Failure{ExitCode::LocalIo,
                      u"cannot write %1: %2"_s.arg(fileName, file->errorString())};
    m_file = std::make_unique<LogWriter>(std::move(file));
    m_text = m_file.get();
}

SessionRecorder *ServeAudit::recorder(Talverine::SServerFtp *session, int number)
{
    if (!m_trail && !m_text)
        return nullptr;
    return new SessionRecorder(session, number, [this](const SessionEvent &event) {
        if (m_trail)
            m_trail->write(event);
        if (m_text)
            m_text->writePrintable(event.text());
    });
}

} // namespace Brix
