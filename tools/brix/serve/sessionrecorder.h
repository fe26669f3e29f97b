// SPDX-License-Identifier: MIT
#pragma once

#include "sessionevent.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <functional>
#include <optional>

namespace Talverine {
class SCommand;
class SCommandId;
class SServerFtp;
} // namespace Talverine

namespace Brix {

/*!
 * Records what happens in one session of a server, as events that it hands to a function.
 *
 * It becomes a child of the session, and calls the function in the session's thread. The function
 * should only queue the event, since the client waits meanwhile.
 */
class SessionRecorder final : public QObject
{
public:
    using Sink = std::function<void(const SessionEvent &event)>;

    SessionRecorder(Talverine::SServerFtp *session, int number, Sink sink);

    //! To be called before the session executes \a command.
    void begin(Talverine::SCommand *command);

private:
    //! The command that is being executed.
    struct Running
    {
        QString path;
        QString target;
        QElapsedTimer timer;
        //! What the client is told, for an operation that is answered by yes or no.
        std::optional<bool> answer;
        //! Bytes of the file that have moved; none for other commands.
        std::optional<qint64> bytes;
    };

    void connectSession();
    void connectCommands();
    void recordLogin(const QString &user, bool isGood);
    QString reasonOfRefusal(const QString &user) const;
    void recordCommand(const Talverine::SCommandId &id, bool succeeded);
    SessionEvent event(const QString &id) const;

    Talverine::SServerFtp *const m_session;
    const int m_number;
    const Sink m_sink;
    QString m_address;
    bool m_isHomeMissing = false;
    std::optional<Running> m_running;
};

} // namespace Brix
