// SPDX-License-Identifier: MIT
#include "session.h"

#include "connectionfailure.h"
#include "replylimits.h"
#include <process/interruption.h>

#include <brixlib/fileservice/sclientftp.h>
#include <brixlib/protocol/wire.h>

#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

#include <algorithm>
#include <cstdlib>
#include <optional>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace Talverine;

namespace {

// How long an interrupted exchange may take to clean up before the program ends without it.
constexpr auto interruptionGrace = 3s;

} // namespace

Session::Session(const Login &login)
    : m_login(login)
    , m_client(new SClientFtp(login.url.host, login.url.port, true))
    , m_ended(std::make_shared<EndedCommands>())
    , m_requester(m_client)
{
    m_client->setTimeout(int(login.timeout.count()));
    limitReplies(m_client, login.largestReply);
    connect(&login.interruption, &Interruption::requested, this, &Session::interrupt);
    listen(new AnswerCollector(m_client, m_ended));
}

Session::~Session()
{
    // The controller waits for the thread, which ends as soon as it is asked to.
    m_controller.interruptWorkers();
}

void Session::listen(AnswerCollector *collector)
{
    connect(collector, &AnswerCollector::ready, this, &Session::takeEnded, Qt::QueuedConnection);
    connect(collector, &AnswerCollector::transferred, this, &Session::transferred,
            Qt::QueuedConnection);
    connect(
        m_client, qOverload<const QHash<SCommandId, qint32> &>(&SClientFtp::commandListResult),
        this, [this](const QHash<SCommandId, qint32> &commands) { m_commands = commands; },
        Qt::QueuedConnection);
    connect(m_client, &SClientFtp::unavailableCommand, this, &Session::onUnavailable,
            Qt::QueuedConnection);
    connect(m_client, &SClientFtp::finished, this, &Session::onEnded, Qt::QueuedConnection);
}

void Session::interrupt()
{
    // A connection in the making holds nothing that would need an orderly end.
    if (m_connecting)
        m_login.interruption.endProgram();
    m_controller.interruptWorkers();
    QTimer::singleShot(interruptionGrace, this, &Session::onEnded);
}

void Session::takeEnded()
{
    for (const auto &ended : m_ended->take()) {
        // The handshake has commands of its own, and a list that nobody asked for here.
        if (ended.id == CommandIds::kCommandList)
            m_isListed = true;
        if (!m_pending.empty() && m_pending.front().id == ended.id)
            endFront(ended.succeeded ? Outcome::Done : Outcome::Failed, ended.answer);
    }
    Q_EMIT changed();
}

void Session::endFront(Outcome outcome, const Answer &answer)
{
    const Pending ended = std::move(m_pending.front());
    m_pending.pop_front();
    ended.done(outcome, answer);
}

void Session::onUnavailable(SCommandId id)
{
    const auto dropped = std::find_if(m_pending.begin(), m_pending.end(),
                                      [&](const Pending &pending) { return pending.id == id; });
    if (dropped == m_pending.end())
        return;
    const Done done = dropped->done;
    m_pending.erase(dropped);
    done(Outcome::Unavailable, {});
    Q_EMIT changed();
}

void Session::onEnded()
{
    takeEnded();
    m_isOver = true;
    while (!m_pending.empty())
        endFront(Outcome::NotTried, {});
    Q_EMIT changed();
}

void Session::open()
{
    m_connecting = true;
    const bool connected = m_controller.connectClient(m_client, false);
    m_connecting = false;
    if (!connected) {
        m_isOver = true;
        throw ConnectionFailure::noConnection(m_login.url, m_login.timeout);
    }
    authenticate();
    waitWhile([this] { return !m_isListed; });
    if (m_isOver)
        throw failure(Outcome::Failed);
}

void Session::authenticate()
{
    std::optional<Outcome> outcome;
    bool isAuthenticated = false;
    post(
        CommandIds::kAuthentication,
        [&](Requester &server) { server.authenticate(m_login.url.user, m_login.password); },
        [&](Outcome how, const Answer &answer) {
            outcome = how;
            isAuthenticated = answer.result;
        });
    waitWhile([&] { return !outcome; });
    // After an interruption a new session still removes what the work has left.
    if (outcome != Outcome::Done && m_login.interruption.isRequested())
        throw failure(Outcome::Failed);
    if (outcome != Outcome::Done)
        throw ConnectionFailure::noLogin(m_login.url);
    if (!isAuthenticated)
        throw ConnectionFailure::loginRefused(m_login.url);
}

void Session::require(SCommandId id) const
{
    if (!m_commands.contains(id))
        throw failure(Outcome::Unavailable);
}

Answer Session::ask(SCommandId id, const Start &start)
{
    std::optional<Outcome> outcome;
    Answer answer;
    post(id, start, [&](Outcome how, const Answer &what) {
        outcome = how;
        answer = what;
    });
    waitWhile([&] { return !outcome; });
    if (answer.isTooLarge)
        throw Failure{ExitCode::Connection,
                      u"the reply of %1 is larger than --max-reply or the memory allows"_s.arg(
                          m_login.url.authority())};
    if (*outcome != Outcome::Done)
        throw failure(*outcome);
    return answer;
}

void Session::post(SCommandId id, const Start &start, const Done &done)
{
    if (m_isOver) {
        done(Outcome::NotTried, {});
        return;
    }
    m_pending.push_back({id, done});
    start(m_requester);
}

// Only events change the session, and they come while the loop runs: no change is missed. Handling
// events one batch at a time would not do: some dispatchers wait on after the batch.
void Session::waitWhile(const std::function<bool()> &unfinished)
{
    QEventLoop loop;
    connect(this, &Session::changed, &loop, &QEventLoop::quit);
    while (!m_isOver && unfinished())
        loop.exec();
}

bool Session::exists(const QString &path)
{
    return ask(CommandIds::kExists, [&](Requester &server) { server.exists(path); }).result;
}

bool Session::isFolder(const QString &path)
{
    if (path.isEmpty())
        return true;
    const auto changeDir = [this](const QString &folder) {
        return ask(CommandIds::kChangeDir, [&](Requester &server) { server.changeDir(folder); })
            .result;
    };
    if (!changeDir(path))
        return false;
    // Every relative path would mean another file.
    if (!changeDir(u""_s))
        throw Failure{ExitCode::Refused,
                      u"%1 does not return to the home directory"_s.arg(m_login.url.authority())};
    return true;
}

QList<SFileEntry> Session::list(const QString &folder)
{
    auto entries =
        ask(CommandIds::kListDir, [&](Requester &server) { server.listDir(folder); }).entries;
    entries.removeIf([](const SFileEntry &entry) { return entry.fileName() == u".."_s; });
    std::sort(entries.begin(), entries.end(),
              [](const SFileEntry &a, const SFileEntry &b) { return a.fileName() < b.fileName(); });
    return entries;
}

Failure Session::failure(Outcome outcome) const
{
    if (m_login.interruption.isRequested())
        return m_login.interruption.failure();
    if (outcome == Outcome::Unavailable)
        return {ExitCode::Refused, u"%1 does not know this command"_s.arg(m_login.url.authority())};
    if (outcome == Outcome::NotTried)
        return {ExitCode::Connection,
                u"the connection to %1 had ended before"_s.arg(m_login.url.authority())};
    return ConnectionFailure::broken(m_login.url);
}

} // namespace Brix

#include "moc_session.cpp"
