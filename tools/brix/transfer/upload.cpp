// SPDX-License-Identifier: MIT
#include "upload.h"

#include <cli/output.h>
#include <process/interruption.h>
#include <remote/remotepath.h>

#include <brixlib/protocol/wire.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <optional>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace Talverine;

namespace {

// Why a file cannot be sent; empty when it can.
QString problemOfSource(const QString &local)
{
    if (!QFileInfo(local).isFile())
        return QFileInfo::exists(local) ? u"it is no file"_s : u"it does not exist"_s;
    QFile file(local);
    return file.open(QIODevice::ReadOnly) ? QString() : file.errorString();
}

// Returns the bytes available in a directory of the server: on a new session, since the one that
// failed is over. Unset if the server cannot be reached; the maximum if it does not tell.
std::optional<qint64> room(const Login &login, const QString &folder)
{
    try {
        Session session(login);
        session.open();
        if (!session.commands().contains(CommandIds::kStorageInfo))
            return std::numeric_limits<qint64>::max();
        session.ask(CommandIds::kChangeDir,
                    [&](Session::Requester &server) { server.changeDir(folder); });
        return session
            .ask(CommandIds::kStorageInfo, [](Session::Requester &server) { server.storageInfo(); })
            .storage.available;
    } catch (const Failure &) {
        return std::nullopt;
    }
}

} // namespace

Upload::Upload(Session &session, ProgressBar &progress, TransferReport &report, bool removeSource)
    : m_session(session)
    , m_lanes(session)
    , m_progress(progress)
    , m_report(report)
    , m_removeSource(removeSource)
{
    QObject::connect(&m_lanes, &Lanes::transferred, &m_lanes,
                     [this](qint64 done, qint64) { m_progress.show(m_report.bytes() + done); });
}

// Checks the server

// Throws Failure before anything is changed on the server.
void Upload::requireCommands() const
{
    m_session.require(CommandIds::kSendFile);
    if (!tellsTarget())
        m_session.require(CommandIds::kChangeDir);
    if (m_removeSource)
        m_session.require(CommandIds::kListDir);
}

// Earlier forms of the command have no field for the target. A server that lists no versions has
// version 0.
bool Upload::tellsTarget() const
{
    return m_session.commands().value(CommandIds::kSendFile) >= Wire::version(1, 2, 0);
}

// Returns why the server would store the file under another name; empty if it does not.
QString Upload::problemOfName(const File &file) const
{
    const bool isOdd = RemotePath::isChangedOnArrival(file.remote);
    if (tellsTarget())
        return isOdd && !m_session.commands().contains(CommandIds::kRenameFile)
                   ? u"the server would change its name, and cannot rename files"_s
                   : QString();
    const QString ownName = QFileInfo(file.local).fileName();
    // A backslash divides paths on some servers.
    if (isOdd || ownName.contains(u'\\'))
        return u"the server is too old to store a file under such a name"_s;
    return RemotePath::name(file.remote) == ownName
               ? QString()
               : u"the server is too old to store a file under another name than its own"_s;
}

// Collects the files

void Upload::sendFile(const QString &local, const QString &remote)
{
    requireCommands();
    const QFileInfo info(local);
    const File file{local, remote, info.fileName(), info.size()};
    const QString problem = problemOfName(file);
    if (!problem.isEmpty())
        throw Failure{ExitCode::Refused, u"%1: %2"_s.arg(file.name, problem)};
    const QString folder = RemotePath::parent(remote);
    if (!folder.isEmpty() && !makeRemoteFolder(folder))
        throw Failure{ExitCode::Refused,
                      u"the server has no directory %1 and does not make it"_s.arg(folder)};
    m_progress.setTotal(info.size());
    m_folders.push_back({info.path(), folder, QString(), {file}});
    sendAll();
}

void Upload::sendTree(const QString &local, const QString &remote)
{
    requireCommands();
    collect({local, remote, QString()});
    qint64 total = 0;
    qsizetype count = 0;
    for (const Folder &folder : m_folders) {
        count += folder.files.size();
        for (const File &file : folder.files)
            total += file.size;
    }
    m_progress.setTotal(total);
    if (tellsTarget())
        m_lanes.widenFor(count, total);
    sendAll();
    if (m_removeSource && !m_report.hasFailures())
        removeLocalFolders();
}

void Upload::collect(Folder folder)
{
    if (!makeRemoteFolder(folder.remote)) {
        m_report.addFailure(folder.name.isEmpty() ? folder.remote : folder.name, ExitCode::Refused,
                            u"the server does not make this folder"_s);
        return;
    }
    QList<Folder> inner;
    const auto entries =
        QDir(folder.local)
            .entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                           QDir::Name);
    for (const QFileInfo &entry : entries) {
        const QString remote = RemotePath::join(folder.remote, entry.fileName());
        const QString name = RemotePath::join(folder.name, entry.fileName());
        if (entry.isFile())
            folder.files.append({entry.filePath(), remote, name, entry.size()});
        else if (entry.isDir() && !entry.isSymLink())
            inner.append({entry.filePath(), remote, name});
        else if (entry.isSymLink())
            m_report.addSkipped(name, entry.isDir() ? u"a link to a folder"_s
                                                    : u"a link that leads nowhere"_s);
        else
            m_report.addSkipped(name, u"neither file nor folder"_s);
    }
    reportUnreadableNames(folder);
    m_folders.push_back(std::move(folder));
    for (const Folder &next : std::as_const(inner))
        collect(next);
}

// Qt passes over entries whose names are not UTF-8, so nobody would learn that they are missing.
void Upload::reportUnreadableNames(const Folder &folder)
{
    std::error_code error;
    std::filesystem::directory_iterator entry(QFileInfo(folder.local).filesystemFilePath(), error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const auto raw = entry->path().filename().u8string();
        const QByteArray bytes(reinterpret_cast<const char *>(raw.data()), qsizetype(raw.size()));
        const QString name = QString::fromUtf8(bytes);
        if (name.toUtf8() != bytes)
            m_report.addFailure(RemotePath::join(folder.name, name), ExitCode::LocalIo,
                                u"its name is not valid text"_s);
    }
    if (error)
        m_report.addFailure(
            folder.name.isEmpty() ? folder.local : folder.name, ExitCode::LocalIo,
            u"cannot be listed: %1"_s.arg(QString::fromLocal8Bit(error.message().c_str())));
}

bool Upload::makeRemoteFolder(const QString &remote)
{
    return m_session
        .ask(CommandIds::kMakeDir, [&](Session::Requester &server) { server.makeDir(remote); })
        .result;
}

// Sends them

void Upload::sendAll()
{
    for (Folder &folder : m_folders)
        folder.unfinished = folder.files.size();
    if (tellsTarget())
        sendSideBySide();
    else
        sendFolderByFolder();
    for (Folder &folder : m_folders)
        reportKeptSources(folder, Outcome::NotTried);
    explainBroken();
}

void Upload::sendSideBySide()
{
    for (Folder &folder : m_folders)
        sendFiles(folder);
    m_lanes.waitForAll();
}

// Every file has to be stored before the session enters another directory.
void Upload::sendFolderByFolder()
{
    for (Folder &folder : m_folders) {
        if (folder.files.isEmpty() || !enter(folder))
            continue;
        sendFiles(folder);
        m_lanes.waitForAll();
        if (m_removeSource && !folder.arrived.isEmpty() && returnHome(folder)) {
            removeSources(m_session, folder);
            m_lanes.waitForAll();
        }
    }
}

// Returns false after it has reported why.
bool Upload::enter(const Folder &folder)
{
    try {
        if (changeDir(QString()) && (folder.remote.isEmpty() || changeDir(folder.remote)))
            return true;
        m_report.addFailure(folder.name.isEmpty() ? folder.remote : folder.name, ExitCode::Refused,
                            u"the server does not enter this directory"_s);
    } catch (const Failure &failure) {
        for (const File &file : folder.files)
            m_report.addNotTried(file.name, failure.code);
    }
    return false;
}

// The listing is asked for by the path that was meant, not for the current directory.
bool Upload::returnHome(Folder &folder)
{
    Outcome outcome = Outcome::Done;
    try {
        if (changeDir(QString()))
            return true;
    } catch (const Failure &) {
        outcome = Outcome::NotTried;
    }
    reportKeptSources(folder, outcome);
    return false;
}

bool Upload::changeDir(const QString &remote)
{
    return m_session
        .ask(CommandIds::kChangeDir, [&](Session::Requester &server) { server.changeDir(remote); })
        .result;
}

void Upload::sendFiles(Folder &folder)
{
    for (const File &file : std::as_const(folder.files)) {
        if (Session *const lane = m_lanes.next())
            send(*lane, folder, file);
        else
            reportUnlessDone(file, Outcome::NotTried, {});
    }
}

void Upload::send(Session &lane, Folder &folder, File file)
{
    const QString problem = problemOfName(file);
    // The library would give up the whole session over a file that it cannot read.
    const QString localProblem = problemOfSource(file.local);
    if (!problem.isEmpty() || !localProblem.isEmpty()) {
        if (problem.isEmpty())
            m_report.addFailure(file.name, ExitCode::LocalIo,
                                u"cannot be read: %1"_s.arg(localProblem));
        else
            m_report.addFailure(file.name, ExitCode::Refused, problem);
        return endFile(lane, folder);
    }
    file.modified = QFileInfo(file.local).lastModified();
    if (RemotePath::isChangedOnArrival(file.remote))
        sendByDetour(lane, folder, file);
    else
        sendUnderItsName(lane, folder, file);
}

void Upload::sendUnderItsName(Session &lane, Folder &folder, const File &file)
{
    const QString target = tellsTarget() ? file.remote : RemotePath::name(file.remote);
    lane.post(
        CommandIds::kSendFile,
        [&](Session::Requester &server) { server.sendFile(file.local, target, false); },
        [this, &lane, &folder, file](Outcome outcome, const Answer &answer) {
            reportUnlessDone(file, outcome, answer);
            if (outcome == Outcome::Done)
                reportArrived(folder, file, answer.moved);
            endFile(lane, folder);
        });
}

void Upload::sendByDetour(Session &lane, Folder &folder, const File &file)
{
    // In a directory with such a name it would be stored elsewhere too.
    const bool isFolderOdd = RemotePath::isChangedOnArrival(folder.remote);
    const QString temporary = Replacement::temporaryName(isFolderOdd ? QString() : file.remote);
    lane.post(
        CommandIds::kSendFile,
        [&](Session::Requester &server) { server.sendFile(file.local, temporary, false); },
        [this, &lane, &folder, file, temporary](Outcome outcome, const Answer &answer) {
            if (outcome == Outcome::Done)
                return rename(lane, folder, file, temporary, answer.moved);
            reportUnlessDone(file, outcome, answer);
            endFile(lane, folder);
        });
}

void Upload::rename(Session &lane, Folder &folder, const File &file, const QString &temporary,
                    qint64 bytes)
{
    Replacement::begin(lane, temporary, file.remote, Replacement::WhenRefused::RemoveTemporary,
                       [this, &lane, &folder, file, bytes](const Replacement::Result &result) {
                           if (result.isReplaced)
                               reportArrived(folder, file, bytes);
                           if (result.failure)
                               m_report.addFailure(file.name, result.failure->code,
                                                   result.failure->text);
                           endFile(lane, folder);
                       });
}

void Upload::reportUnlessDone(const File &file, Outcome outcome, const Answer &answer)
{
    if (outcome != Outcome::Done)
        m_report.addUnfinished(answer.moved);
    if (outcome == Outcome::NotTried)
        m_report.addNotTried(file.name, m_session.failure(outcome).code);
    else if (outcome == Outcome::Unavailable)
        m_report.addFailure(file.name, ExitCode::Refused, m_session.failure(outcome).text);
    else if (outcome == Outcome::Failed)
        m_broken.append({file, answer});
}

void Upload::reportArrived(Folder &folder, const File &file, qint64 bytes)
{
    m_report.addFile(bytes);
    if (!m_removeSource)
        return;
    folder.arrived.append(file);
    folder.arrived.last().size = bytes;
}

void Upload::endFile(Session &lane, Folder &folder)
{
    const bool isLast = --folder.unfinished == 0;
    if (isLast && tellsTarget() && !folder.arrived.isEmpty())
        removeSources(lane, folder);
}

// Removes the sources

void Upload::removeSources(Session &lane, Folder &folder)
{
    lane.post(
        CommandIds::kListDir, [&](Session::Requester &server) { server.listDir(folder.remote); },
        [this, &folder](Outcome outcome, const Answer &answer) {
            if (outcome != Outcome::Done)
                return reportKeptSources(folder, outcome);
            QHash<QString, qint64> sizes;
            for (const SFileEntry &entry : answer.entries) {
                if (!entry.isDirectory())
                    sizes.insert(entry.fileName(), entry.size());
            }
            for (const File &file : std::exchange(folder.arrived, {}))
                removeSource(file, sizes.value(RemotePath::name(file.remote), -1));
        });
}

void Upload::removeSource(const File &file, qint64 sizeOnServer)
{
    const QFileInfo local(file.local);
    if (sizeOnServer != file.size)
        m_report.addFailure(file.name, ExitCode::Refused,
                            u"was sent, but the server does not list it with its size; it is kept "
                            "here"_s);
    else if (local.size() != file.size || local.lastModified() != file.modified)
        m_report.addFailure(file.name, ExitCode::LocalIo,
                            u"arrived, but was changed here meanwhile; it is kept here"_s);
    else if (!QFile::remove(file.local))
        m_report.addFailure(file.name, ExitCode::LocalIo, u"arrived, but cannot be removed here"_s);
}

void Upload::reportKeptSources(Folder &folder, Outcome outcome)
{
    const auto kept = std::exchange(folder.arrived, {});
    if (kept.isEmpty())
        return;
    const ExitCode code =
        outcome == Outcome::Done ? ExitCode::Refused : m_session.failure(outcome).code;
    const QString name = folder.name.isEmpty() ? folder.local : folder.name;
    m_report.addFailure(
        name, code,
        u"the server did not list the directory; what arrived from here is kept "
        "here: %1"_s.arg(kept.size() == 1 ? u"1 file"_s : u"%1 files"_s.arg(kept.size())));
}

void Upload::removeLocalFolders()
{
    for (auto folder = m_folders.crbegin(); folder != m_folders.crend(); ++folder) {
        if (!QDir().rmdir(folder->local))
            m_report.addSkipped(folder->local, u"kept here, since it is not empty"_s);
    }
}

// Explains what failed

void Upload::explainBroken()
{
    for (const Broken &broken : std::exchange(m_broken, {})) {
        const Failure failure = explanation(broken);
        m_report.addFailure(broken.file.name, failure.code, failure.text);
    }
}

// The library only tells that the exchange failed. How far it came tells the rest, and what the
// server says on a new session: one that is reached and refused the file is not to be tried again.
Failure Upload::explanation(const Broken &broken) const
{
    const Answer &answer = broken.answer;
    const Failure failure = m_session.failure(Outcome::Failed);
    if (m_session.login().interruption.isRequested())
        return answer.moved > 0
                   ? Failure{failure.code,
                             u"%1 after %2"_s.arg(failure.text, Output::bytes(answer.moved))}
                   : failure;
    if (!answer.localError.isEmpty())
        return {ExitCode::LocalIo, u"cannot be read: %1"_s.arg(answer.localError)};
    if (!answer.isStarted && !answer.isRefused)
        return failure;
    const auto available = room(m_session.login(), RemotePath::parent(broken.file.remote));
    if (available && *available < broken.file.size)
        return {ExitCode::Refused,
                u"the server has no room for it: %1 are needed, %2 are available"_s.arg(
                    Output::bytes(broken.file.size), Output::bytes(*available))};
    if (available && answer.isRefused)
        return {ExitCode::Refused,
                u"the server did not store it: it may not write there, or has no room"_s};
    return {failure.code, u"after %1 the server gave up (it may not write there, or has no room), "
                          "or the connection broke"_s.arg(Output::bytes(answer.moved))};
}

} // namespace Brix
