// SPDX-License-Identifier: MIT
#include "upload.h"

#include "output.h"
#include "remotepath.h"

#include <brixlib/protocol/wire.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QUuid>

#include <filesystem>
#include <numeric>

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

void Upload::sendFile(const QString &local, const QString &remote)
{
    const QString folder = RemotePath::parent(remote);
    if (!folder.isEmpty() && !makeRemoteFolder(folder))
        throw Failure{ExitCode::Refused,
                      u"the server has no folder %1 and does not make it"_s.arg(folder)};
    const QFileInfo info(local);
    m_progress.setTotal(info.size());
    m_files.append({local, remote, info.fileName(), info.size()});
    sendAll();
}

void Upload::sendTree(const QString &local, const QString &remote)
{
    collect({local, remote, QString()});
    const qint64 total =
        std::accumulate(m_files.begin(), m_files.end(), qint64(0),
                        [](qint64 sum, const File &file) { return sum + file.size; });
    m_progress.setTotal(total);
    m_lanes.widenFor(m_files.size(), total);
    sendAll();
    if (m_removeSource && !m_report.hasFailures())
        removeLocalFolders();
}

void Upload::collect(const Folder &folder)
{
    if (!makeRemoteFolder(folder.remote)) {
        m_report.addFailure(folder.name.isEmpty() ? folder.remote : folder.name, ExitCode::Refused,
                            u"the server does not make this folder"_s);
        return;
    }
    m_folders.append(folder);
    const auto entries =
        QDir(folder.local)
            .entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                           QDir::Name);
    for (const QFileInfo &entry : entries) {
        const QString remote = RemotePath::join(folder.remote, entry.fileName());
        const QString name = RemotePath::join(folder.name, entry.fileName());
        if (entry.isFile())
            m_files.append({entry.filePath(), remote, name, entry.size()});
        else if (entry.isDir() && !entry.isSymLink())
            collect({entry.filePath(), remote, name});
        else if (entry.isSymLink())
            m_report.addSkipped(name, entry.isDir() ? u"a link to a folder"_s
                                                    : u"a link that leads nowhere"_s);
        else
            m_report.addSkipped(name, u"neither file nor folder"_s);
    }
    reportUnreadableNames(folder);
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

void Upload::sendAll()
{
    for (const File &file : std::as_const(m_files)) {
        if (Session *const lane = m_lanes.next())
            send(*lane, file);
        else
            reportUnlessDone(file, Outcome::NotTried, {});
    }
    m_lanes.waitForAll();
}

void Upload::send(Session &lane, const File &file)
{
    // The library would give up the whole session over a file that it cannot read.
    const QString problem = problemOfSource(file.local);
    if (!problem.isEmpty())
        return m_report.addFailure(file.name, ExitCode::LocalIo,
                                   u"cannot be read: %1"_s.arg(problem));
    if (RemotePath::isChangedOnArrival(file.remote))
        return sendByDetour(lane, file);
    lane.post(
        CommandIds::kSendFile,
        [&](Session::Requester &server) { server.sendFile(file.local, file.remote, false); },
        [this, file](Outcome outcome, const Answer &answer) {
            reportUnlessDone(file, outcome, answer);
            if (outcome == Outcome::Done)
                finishFile(file, answer.moved);
        });
}

void Upload::sendByDetour(Session &lane, const File &file)
{
    const QString staged = u".brix-"_s + QUuid::createUuid().toString(QUuid::WithoutBraces);
    lane.post(
        CommandIds::kSendFile,
        [&](Session::Requester &server) { server.sendFile(file.local, staged, false); },
        [this, &lane, file, staged](Outcome outcome, const Answer &answer) {
            reportUnlessDone(file, outcome, answer);
            if (outcome == Outcome::Done)
                moveIntoPlace(lane, file, staged, answer.moved);
        });
}

void Upload::moveIntoPlace(Session &lane, const File &file, const QString &staged, qint64 bytes)
{
    lane.post(
        CommandIds::kRenameFile,
        [&](Session::Requester &server) { server.renameFile(staged, file.remote); },
        [this, &lane, file, staged, bytes](Outcome outcome, const Answer &answer) {
            reportUnlessDone(file, outcome, answer);
            if (outcome == Outcome::Done && answer.result)
                finishFile(file, bytes);
            else if (outcome == Outcome::Done)
                replaceOlder(lane, file, staged, bytes);
        });
}

// Renaming does not replace a file on the server, so an older one goes first.
void Upload::replaceOlder(Session &lane, const File &file, const QString &staged, qint64 bytes)
{
    const auto ignore = [](Outcome, const Answer &) {};
    lane.post(
        CommandIds::kRemoveFile,
        [&](Session::Requester &server) { server.removeFile(file.remote); }, ignore);
    lane.post(
        CommandIds::kRenameFile,
        [&](Session::Requester &server) { server.renameFile(staged, file.remote); },
        [this, &lane, file, staged, bytes, ignore](Outcome outcome, const Answer &answer) {
            reportUnlessDone(file, outcome, answer);
            if (outcome == Outcome::Done && answer.result)
                return finishFile(file, bytes);
            lane.post(
                CommandIds::kRemoveFile,
                [&](Session::Requester &server) { server.removeFile(staged); }, ignore);
            if (outcome == Outcome::Done)
                m_report.addFailure(file.name, ExitCode::Refused,
                                    u"the server cannot have a file of this name"_s);
        });
}

void Upload::reportUnlessDone(const File &file, Outcome outcome, const Answer &answer)
{
    if (outcome == Outcome::NotTried)
        m_report.addNotTried(file.name, m_session.failure(outcome).code);
    else if (outcome != Outcome::Done)
        explainFailure(file, answer);
}

void Upload::finishFile(const File &file, qint64 bytes)
{
    m_report.addFile(bytes);
    if (m_removeSource && !QFile::remove(file.local))
        m_report.addFailure(file.name, ExitCode::LocalIo, u"arrived, but cannot be removed here"_s);
}

// The library only tells that the exchange failed. How far it came tells the rest.
void Upload::explainFailure(const File &file, const Answer &answer)
{
    const Failure failure = m_session.failure(Outcome::Failed);
    if (failure.code == ExitCode::Interrupted || !answer.isStarted)
        return m_report.addFailure(file.name, failure.code, failure.text);
    if (answer.isMoved && answer.isRefused)
        return m_report.addFailure(
            file.name, ExitCode::Refused,
            u"the server did not store it: it may not write there, or has no room"_s);
    m_report.addFailure(file.name, failure.code,
                        u"after %1 the server gave up (it may not write there, or has no room), "
                        "or the connection broke"_s.arg(Output::bytes(answer.moved)));
}

void Upload::removeLocalFolders()
{
    for (auto folder = m_folders.crbegin(); folder != m_folders.crend(); ++folder) {
        if (!QDir().rmdir(folder->local))
            m_report.addSkipped(folder->local, u"kept here, since it is not empty"_s);
    }
}

} // namespace Brix
