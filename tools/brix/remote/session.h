// SPDX-License-Identifier: MIT
#pragma once

#include "answercollector.h"
#include "remoteurl.h"
#include <cli/failure.h>

#include <brixlib/fileservice/sclientftprequester.h>
#include <brixlib/protocol/client/sclientcontroller.h>
#include <brixlib/protocol/scommandid.h>
#include <brixsec/ssecurestring.h>

#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QObject>

#include <chrono>
#include <deque>
#include <functional>
#include <optional>

namespace Talverine {
class SClientFtp;
}

namespace Brix {

class Interruption;

//! Where to log in, and as whom.
struct Login
{
    RemoteUrl url;
    Talverine::Security::SSecureString password;
    //! Limits each wait for the server.
    std::chrono::milliseconds timeout;
    const Interruption &interruption;
    //! Bounds the replies of the server, see limitReplies().
    std::optional<qint64> largestReply;
};

//! How a command ended.
enum class Outcome {
    Done,        //!< the exchange is complete; the answer tells whether the server did it
    Failed,      //!< the exchange failed, and the session with it
    NotTried,    //!< the session had ended before
    Unavailable, //!< the server does not know the command
};

/*!
 * One login on a server, for commands one after the other. The work is done in the library's worker
 * thread; here its signals become answers.
 *
 *     Session session({url, password, 10s, interruption});
 *     session.open();
 *     output.line(session.ask(CommandIds::kPwd, [](auto &server) { server.pwd(); }).text);
 *
 * Nothing is tried twice: the first exchange that fails ends the session.
 *
 * Thread: lives in the main thread.
 */
class Session final : public QObject
{
    Q_OBJECT

public:
    using Requester = Talverine::SClientFtpRequester;
    using Start = std::function<void(Requester &)>;
    using Done = std::function<void(Outcome, const Answer &)>;

    explicit Session(const Login &login);
    ~Session() override;

    const Login &login() const { return m_login; }
    //! Connects and logs in; throws Failure.
    void open();
    bool isOpen() const { return !m_isOver; }
    //! The server's commands with their versions.
    const QHash<Talverine::SCommandId, qint32> &commands() const { return m_commands; }
    //! Throws Failure unless the server's list has the command.
    void require(Talverine::SCommandId id) const;

    //! Runs one command and waits for its answer; throws Failure unless the exchange was done.
    Answer ask(Talverine::SCommandId id, const Start &start);
    //! Queues a command; \a done is called while waitWhile() runs, or at once after the end.
    void post(Talverine::SCommandId id, const Start &start, const Done &done);
    //! Commands that were posted and have not ended.
    qsizetype pending() const { return qsizetype(m_pending.size()); }
    //! Handles events as long as \a unfinished says so and the session lives.
    void waitWhile(const std::function<bool()> &unfinished);

    // Questions that many sub-commands have.

    bool exists(const QString &path);
    //! Whether \a path is a folder; the server's current folder is the user's own afterwards.
    bool isFolder(const QString &path);
    //! The entries of a folder in the order of their names, without "..".
    QList<Talverine::SFileEntry> list(const QString &folder);

    //! What a command's failed exchange means for people.
    Failure failure(Outcome outcome) const;

Q_SIGNALS:
    //! A transfer or link test that is under way has moved so many bytes.
    void transferred(qint64 done, qint64 total);
    //! A command has ended, the server's commands are known, or the session is over.
    void changed();

private:
    struct Pending
    {
        Talverine::SCommandId id;
        Done done;
    };

    void authenticate();
    void interrupt();
    void listen(AnswerCollector *collector);
    void takeEnded();
    void endFront(Outcome outcome, const Answer &answer);
    void onUnavailable(Talverine::SCommandId id);
    void onEnded();

    const Login m_login;
    Talverine::SClientController m_controller;
    Talverine::SClientFtp *m_client; // deletes itself in its thread; touched before that starts
    const std::shared_ptr<EndedCommands> m_ended;
    Requester m_requester;
    std::deque<Pending> m_pending;
    QHash<Talverine::SCommandId, qint32> m_commands;
    bool m_isListed = false; // the server has told its commands, be they none
    bool m_connecting = false;
    bool m_isOver = false;
};

} // namespace Brix
