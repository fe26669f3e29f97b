// SPDX-License-Identifier: MIT
#pragma once

#include "serveaudit.h"
#include "serveguards.h"
#include "userfilewatch.h"
#include <cli/output.h>
#include <process/hangupsignal.h>
#include <process/logwriter.h>
#include <process/messagehandler.h>

#include <brixlib/protocol/server/sservercontroller.h>
#include <brixlib/protocol/socket/stcpsocketspeedcontroller.h>
#include <brixlib/protocol/users/sauthenticationdb.h>

#include <QtCore/QObject>
#include <QtCore/QSet>
#include <QtCore/QString>

namespace Brix {

class Interruption;

//! What "brix serve" is asked for.
struct ServeOptions
{
    QString users;
    QString address = QStringLiteral("127.0.0.1");
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

/*!
 * Listens, and serves each connection in a thread of its own.
 *
 * Lives in one thread, whose event loop runs in run(). The output and the options must outlive it.
 */
class FileServer final : public QObject
{
public:
    //! Opens what is recorded to. Throws Failure.
    FileServer(const Output &output, const ServeOptions &options);

    //! Removes what the homes hold of transfers that a killed server has left, as the options say.
    void cleanPartialFiles();
    //! Prints where it listens. Throws Failure when it cannot.
    void listen();
    //! Returns when the interruption has come and all sessions have ended.
    void run(const Interruption &interruption);

private:
    void serve(qint64 descriptor);
    QSet<QString> homes() const;
    void tellUsers();
    void noteUsers();
    void note(const QString &text);

    const Output &m_output;
    const ServeOptions &m_options;
    const QString m_descriptorLimit = ServeGuards::prepareProcess();
    Talverine::SAuthenticationDb m_users;
    UserFileWatch m_userFile;
    const HangupSignal m_hangup{[this] { m_userFile.reload(); }};
    Talverine::STcpSocketSpeedController m_speed;
    LogWriter m_log{LogWriter::standardError()};
    const MessageRedirection m_messages{&m_log};
    ServeAudit m_audit{m_options.audit, &m_log};
    int m_sessions = 0;
    // Last, so that its sessions end before what they use does.
    Talverine::SServerController m_controller;
};

} // namespace Brix
