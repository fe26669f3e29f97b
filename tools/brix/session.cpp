// SPDX-License-Identifier: MIT
#include "session.h"

#include "interruption.h"

#include <brixlib/fileservice/sclientftp.h>
#include <brixlib/protocol/wire.h>

#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

#include <algorithm>
#include <cstdlib>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace Talverine;

namespace {

// How long an interrupted exchange may take to clean up before the program ends without it.
constexpr auto interruptionGrace = 3s;

} // namespace

Session::Session(const RemoteUrl &url, std::chrono::milliseconds timeout,
                 const Interruption &interruption)
    : m_url(url)
    , m_timeout(timeout)
    , m_interruption(interruption)
    , m_client(new SClientFtp(url.host, url.port, true))
    , m_requester(m_client)
{
    m_client->setTimeout(int(timeout.count()));
    connect(&interruption, &Interruption::requested, this, &Session::interrupt);
    listenToAnswers();
    listenToTransfers();
    listenToEnds();
}

Session::~Session()
{
    // The controller waits for the thread, which ends as soon as it is asked to.
    m_controller.interruptWorkers();
}

template<typename Signal, typename Slot>
void Session::listen(Signal signal, Slot slot)
{
    connect(m_client, signal, this, slot, Qt::QueuedConnection);
}

void Session::listenToAnswers()
{
    const auto takeResult = [this](bool result) { m_answer.result = result; };
    for (const auto signal :
         {&SClientFtp::changeDirResult, &SClientFtp::makeDirResult, &SClientFtp::removeDirResult,
          &SClientFtp::removeFileResult, &SClientFtp::renameDirResult,
          &SClientFtp::renameFileResult, &SClientFtp::copyDirResult, &SClientFtp::copyFileResult,
          qOverload<bool>(&SClientFtp::exists), &SClientFtp::setSetFilePermissionsResult})
        listen(signal, takeResult);

    const auto takeText = [this](const QString &text) { m_answer.text = text; };
    listen(&SClientFtp::pwdResult, takeText);
    listen(&SClientFtp::serverNameResult, takeText);
    listen(&SClientFtp::whoAmIResult, takeText);

    listen(&SClientFtp::authenticationResult, [this](AuthenticationStatus status) {
        m_answer.result = status == AuthenticationStatus::Authenticated;
    });
    listen(qOverload<const QHash<SCommandId, qint32> &>(&SClientFtp::commandListResult),
           [this](const QHash<SCommandId, qint32> &commands) { m_commands = commands; });
    listen(&SClientFtp::listDirResult,
           [this](const QList<SFileEntry> &entries) { m_answer.entries = entries; });
    listen(&SClientFtp::storageInfoResult,
           [this](qint64 available, qint64 total, qint64 free, const QByteArray &type) {
               m_answer.storage = {available, total, free, type};
           });
    listen(&SClientFtp::pluggableListResult,
           [this](const QList<QString> &names) { m_answer.names = names; });
    listen(&SClientFtp::pluggableResult,
           [this](const QString &, bool result, const QByteArray &, const QByteArray &output) {
               m_answer.result = result;
               m_answer.bytes = output;
           });
}

void Session::listenToTransfers()
{
    const auto started = [this](const QString &) { m_answer.isStarted = true; };
    listen(&SClientFtp::transferredBytes, [this](qint64 done, qint64 total) {
        // A peer may claim a negative size.
        m_answer.moved = std::max<qint64>(done, 0);
        m_answer.size = std::max<qint64>(total, 0);
        Q_EMIT transferred(done, total);
    });
    listen(&SClientFtp::getFileStarted, started);
    listen(&SClientFtp::getFileFinished, [this](const QString &) { m_answer.isMoved = true; });
    listen(&SClientFtp::sendFileStarted, started);
    listen(&SClientFtp::sendFileFinished,
           [this](const QString &, bool) { m_answer.isMoved = true; });
    listen(&SClientFtp::linkTestFinished, [this](double upload, double download) {
        m_answer.uploadRate = upload;
        m_answer.downloadRate = download;
    });
}

void Session::listenToEnds()
{
    listen(&SClientFtp::commandResult, [this](SCommandId id, bool success) {
        // Commands of the handshake and steps without a command end here too.
        if (id == CommandIds::kCommandList) {
            m_isListed = true;
            Q_EMIT changed();
        }
        if (!m_pending.empty() && m_pending.front().id == id)
            endFront(success ? Outcome::Done : Outcome::Failed);
    });
    listen(&SClientFtp::unavailableCommand, [this](SCommandId id) { onUnavailable(id); });
    listen(&SClientFtp::finished, [this](SimpleWorkerError) { onEnded(); });
}

void Session::interrupt()
{
    // A connection in the making holds nothing that would need an orderly end.
    if (m_connecting)
        std::_Exit(int(ExitCode::Interrupted));
    m_controller.interruptWorkers();
    QTimer::singleShot(interruptionGrace, this, &Session::onEnded);
}

void Session::endFront(Outcome outcome)
{
    const Pending ended = std::move(m_pending.front());
    m_pending.pop_front();
    const Answer answer = std::exchange(m_answer, {});
    ended.done(outcome, answer);
    Q_EMIT changed();
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
    m_ended = true;
    while (!m_pending.empty())
        endFront(Outcome::NotTried);
    Q_EMIT changed();
}

void Session::open(const Security::SSecureString &password)
{
    m_connecting = true;
    const bool connected = m_controller.connectClient(m_client, false);
    m_connecting = false;
    if (!connected) {
        m_ended = true;
        if (SClientBase::resolve(m_url.host, true).isNull())
            throw Failure{ExitCode::Connection, u"the host %1 is unknown"_s.arg(m_url.host)};
        throw Failure{
            ExitCode::Connection,
            u"cannot connect to %1: nobody listens there, it is no brix server, or it did "
            "not answer in time"_s.arg(m_url.authority())};
    }
    const Answer answer = ask(CommandIds::kAuthentication, [&](Requester &server) {
        server.authenticate(m_url.user, password);
    });
    if (!answer.result)
        throw Failure{ExitCode::Refused,
                      u"%1 refuses the login of %2: wrong password, or no such "
                      "user with a home folder"_s.arg(m_url.authority(), m_url.user)};
    waitWhile([this] { return !m_isListed; });
    if (m_ended)
        throw failure(Outcome::Failed);
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
    if (*outcome != Outcome::Done)
        throw failure(*outcome);
    return answer;
}

void Session::post(SCommandId id, const Start &start, const Done &done)
{
    if (m_ended) {
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
    while (!m_ended && unfinished())
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
    const bool isFolder = changeDir(path);
    if (isFolder)
        changeDir(u""_s);
    return isFolder;
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
    if (m_interruption.isRequested())
        return {ExitCode::Interrupted, u"interrupted"_s};
    if (outcome == Outcome::Unavailable)
        return {ExitCode::Refused, u"%1 does not know this command"_s.arg(m_url.authority())};
    if (outcome == Outcome::NotTried)
        return {ExitCode::Connection,
                u"the connection to %1 had ended before"_s.arg(m_url.authority())};
    return {ExitCode::Connection,
            u"%1 ended the connection: it refuses the command as a whole, or the line broke"_s.arg(
                m_url.authority())};
}

} // namespace Brix

#include "moc_session.cpp"
