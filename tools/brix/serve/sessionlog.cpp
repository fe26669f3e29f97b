// SPDX-License-Identifier: MIT
#include "sessionlog.h"

#include <process/logwriter.h>
#include <remote/commandname.h>

#include <brixlib/fileservice/sserverftp.h>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace Talverine;

// The session is its own context, so each line is queued in the session's thread.
void logSession(SServerFtp *session, int number, LogWriter *log)
{
    const auto write = [log, number](const QString &text) {
        log->write(u"[%1] %2"_s.arg(QString::number(number), text));
    };
    QObject::connect(
        session, &SServerFtp::connectionInfo, session,
        [write](const QHostAddress &peer) { write(u"connection from %1"_s.arg(peer.toString())); });
    QObject::connect(session, &SServerFtp::authenticationFinished, session,
                     [write](const QString &user, AuthenticationStatus status) {
                         const bool isGood = status == AuthenticationStatus::Authenticated;
                         write((isGood ? u"login of %1"_s : u"refused login of %1"_s).arg(user));
                     });
    QObject::connect(session, &SServerFtp::commandResult, session,
                     [write](SCommandId id, bool success) {
                         if (!id.isNull())
                             write(commandName(id) + (success ? QString() : u" failed"_s));
                     });
    QObject::connect(session, &SServerFtp::finished, session,
                     [write](SimpleWorkerError) { write(u"end of the session"_s); });
}

} // namespace Brix
