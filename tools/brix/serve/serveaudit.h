// SPDX-License-Identifier: MIT
#pragma once

#include <cli/passwordsource.h>

#include <QtCore/QString>

#include <memory>

namespace Talverine {
class SServerFtp;
}

namespace Brix {

class AuditTrail;
class Command;
class LogWriter;
class SessionRecorder;

//! The options of "brix serve" about what is recorded of the sessions.
struct ServeAuditOptions
{
    QString auditFile;
    QString auditUser;
    PasswordSource auditPassword;
    int auditMaxLogs = 100'000;
    //! A file, or "-" for stderr.
    QString log;

    static void declare(Command *command, ServeAuditOptions *options);
};

//! Records the sessions of a server as the options say, in a log, in a text file, or not at all.
class ServeAudit final
{
public:
    //! Opens the files. Lines for stderr are written by \a standardError, which must outlive this
    //! object. Throws Failure.
    ServeAudit(const ServeAuditOptions &options, LogWriter *standardError);
    ~ServeAudit();

    //! Returns a recorder for \a session, which owns it, or null when nothing is recorded. This
    //! object must outlive the session.
    SessionRecorder *recorder(Talverine::SServerFtp *session, int number);

private:
    void openText(const QString &fileName, LogWriter *standardError);

    std::unique_ptr<AuditTrail> m_trail;
    std::unique_ptr<LogWriter> m_file;
    //! m_file, or the writer of stderr, or null.
    LogWriter *m_text = nullptr;
};

} // namespace Brix
