// SPDX-License-Identifier: MIT
#include "download.h"

#include <cli/output.h>
#include <files/localstreams.h>
#include <process/interruption.h>
#include <remote/remotepath.h>

#include <brixlib/protocol/wire.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QUuid>

#include <limits>
#include <numeric>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace Talverine;

namespace {

QString temporaryName(const QString &folder)
{
    return u"%1/.brix-%2"_s.arg(folder, QUuid::createUuid().toString(QUuid::WithoutBraces));
}

// Encoded by Qt: the standard library throws at text that is no valid UTF-16, which a server may
// send as a name.
std::filesystem::path systemPath(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    return reinterpret_cast<const char8_t *>(name.constData());
}

// Those of the user, the group and others; none for what is missing.
std::filesystem::perms permissionsOf(const QString &path)
{
    std::error_code error;
    const auto status = std::filesystem::status(systemPath(path), error);
    const bool isThere = std::filesystem::exists(status);
    return isThere ? status.permissions() & std::filesystem::perms::all
                   : std::filesystem::perms::none;
}

// A link is followed, as cp does.
QString followed(const QString &local)
{
    const QFileInfo info(local);
    return info.isSymLink() ? info.canonicalFilePath() : local;
}

} // namespace

Download::Download(Session &session, ProgressBar &progress, TransferReport &report,
                   bool removeSource, const TreeLimits &limits)
    : m_session(session)
    , m_lanes(session)
    , m_progress(progress)
    , m_report(report)
    , m_removeSource(removeSource)
    , m_limits(limits)
{
    QObject::connect(&m_lanes, &Lanes::transferred, &m_lanes, [this](qint64 done, qint64 total) {
        // The size of a single file is not known before.
        if (m_files.size() == 1)
            m_progress.setTotal(total);
        m_progress.show(m_report.bytes() + done);
    });
}

void Download::fetchFile(const QString &remote, const QString &local)
{
    if (QFileInfo(local).isDir())
        throw Failure{ExitCode::LocalIo, u"%1 is a folder"_s.arg(local)};
    stageIn(QFileInfo(local).path());
    m_files.append({remote, local, RemotePath::name(remote), 0});
    fetchAll();
}

void Download::fetchTree(const QString &remote, const QString &local)
{
    stageIn(local);
    m_remoteFolders.append(remote);
    collect(remote, local, QString(), 0);
    const qint64 total = std::accumulate(
        m_files.begin(), m_files.end(), qint64(0), [](qint64 sum, const File &file) {
            // The sizes are what the server claims.
            return sum + std::clamp<qint64>(file.size, 0, std::numeric_limits<qint64>::max() - sum);
        });
    m_progress.setTotal(total);
    m_lanes.widenFor(m_files.size(), total);
    fetchAll();
    if (!m_removeSource || m_report.hasFailures())
        return;
    try {
        removeRemoteFolders();
    } catch (const Failure &failure) {
        m_report.addFailure(remote, failure.code, failure.text);
    }
}

// Makes the folder and tries whether files can be made in it, while there is still a reason to
// tell.
void Download::stageIn(const QString &folder)
{
    if (!QDir().mkpath(folder))
        throw Failure{ExitCode::LocalIo, u"cannot make the folder %1"_s.arg(folder)};
    if (RemotePath::isChangedOnArrival(folder))
        throw Failure{ExitCode::LocalIo, u"cannot receive into %1: the name of that folder has one "
                                         "of ? < > * | \" in it"_s.arg(folder)};
    QFile probe(temporaryName(folder));
    if (!probe.open(QIODevice::WriteOnly))
        throw Failure{ExitCode::LocalIo,
                      u"cannot write in %1: %2"_s.arg(folder, probe.errorString())};
    m_newPermissions = permissionsOf(probe.fileName());
    probe.remove();
    m_stagingFolder = folder;
}

void Download::collect(const QString &remote, const QString &local, const QString &name, int depth)
{
    if (!makeFolder(local, name))
        return;
    const QList<SFileEntry> entries = m_session.list(remote);
    m_listed += entries.size();
    if (m_listed > m_limits.entries)
        throw Failure{ExitCode::Refused,
                      u"the server lists more files and folders than the %1 of --max-entries"_s.arg(
                          QString::number(m_limits.entries))};
    for (const auto &entry : entries) {
        if (!RemotePath::isSafeName(entry.fileName())) {
            m_report.addFailure(RemotePath::join(name, entry.fileName()), ExitCode::Refused,
                                u"the server gives a name that no file here can have"_s);
            continue;
        }
        collectEntry(entry, RemotePath::join(remote, entry.fileName()),
                     local + u'/' + entry.fileName(), RemotePath::join(name, entry.fileName()),
                     depth);
    }
}

void Download::collectEntry(const SFileEntry &entry, const QString &remote, const QString &local,
                            const QString &name, int depth)
{
    if (!entry.isReadable() && !entry.isSymbolic()) {
        m_report.addFailure(name, ExitCode::Refused, u"the server may not read it"_s);
    } else if (entry.isFile() && entry.isReadable()) {
        m_files.append({remote, local, name, entry.size()});
    } else if (entry.isSymbolic()) {
        m_report.addSkipped(name, entry.isDirectory() ? u"a link to a folder"_s
                                                      : u"a link that leads nowhere"_s);
    } else if (depth >= m_limits.depth) {
        m_report.addFailure(name, ExitCode::Refused,
                            u"its folder lies too deep: --max-depth allows %1 levels"_s.arg(
                                QString::number(m_limits.depth)));
    } else {
        m_remoteFolders.append(remote);
        collect(remote, local, name, depth + 1);
    }
}

void Download::fetchAll()
{
    for (const File &file : std::as_const(m_files)) {
        const QString problem = problemOfPlace(file.local);
        if (!problem.isEmpty())
            m_report.addFailure(file.name, ExitCode::LocalIo, problem);
        else if (Session *const lane = m_lanes.next())
            fetch(*lane, file);
        else
            reportNotTried(file);
    }
    m_lanes.waitForAll();
}

// Why no file can be put there; empty when one can.
QString Download::problemOfPlace(const QString &local) const
{
    const QFileInfo info(local);
    if (info.isDir())
        return u"%1 is a directory"_s.arg(local);
    if (info.isSymLink() && !info.exists())
        return u"%1 is a link that leads nowhere"_s.arg(local);
    if (isSpecialFile(local))
        return u"%1 is no ordinary file and is left alone"_s.arg(local);
    return {};
}

// Beside the place, which may be on another storage than the rest of the tree, unless the library
// would change the name of that directory.
QString Download::stagedName(const QString &place) const
{
    const QString folder = QFileInfo(place).path();
    return temporaryName(RemotePath::isChangedOnArrival(folder) ? m_stagingFolder : folder);
}

// An empty file with the permissions of the older one, which the library keeps when it replaces it:
// who may not read the older content must not read the new one while it arrives.
bool Download::stagePrivately(const QString &staged, const QString &place) const
{
    using std::filesystem::perms;
    const perms older = permissionsOf(place);
    if (!QFileInfo::exists(place) || (m_newPermissions & ~older) == perms::none)
        return true;
    QFile file(staged);
    std::error_code error;
    if (file.open(QIODevice::WriteOnly | QIODevice::NewOnly))
        std::filesystem::permissions(systemPath(staged), older, error);
    return file.isOpen() && !error;
}

void Download::fetch(Session &lane, const File &file)
{
    const QString place = followed(file.local);
    const QString staged = stagedName(place);
    if (!stagePrivately(staged, place)) {
        QFile::remove(staged);
        return m_report.addFailure(file.name, ExitCode::LocalIo,
                                   u"cannot be written in %1"_s.arg(QFileInfo(place).path()));
    }
    lane.post(
        CommandIds::kGetFile,
        [&](Session::Requester &server) { server.getFile(file.remote, staged, false); },
        [this, &lane, file, staged](Outcome outcome, const Answer &answer) {
            finish(lane, file, staged, outcome, answer);
        });
}

void Download::finish(Session &lane, const File &file, const QString &staged, Outcome outcome,
                      const Answer &answer)
{
    if (outcome != Outcome::Done) {
        // It may have arrived whole when the server takes it back with its last word.
        QFile::remove(staged);
        m_report.addUnfinished(answer.moved);
        return outcome == Outcome::NotTried ? reportNotTried(file)
                                            : explainFailure(file, outcome, answer);
    }
    if (!moveIntoPlace(file, staged)) {
        QFile::remove(staged);
        return;
    }
    m_report.addFile(answer.moved);
    if (m_removeSource)
        removeRemoteFile(lane, file);
}

void Download::reportNotTried(const File &file)
{
    m_report.addNotTried(file.name, m_session.failure(Outcome::NotTried).code);
}

bool Download::moveIntoPlace(const File &file, const QString &staged)
{
    if (!makeFolder(QFileInfo(file.local).path(), file.name))
        return false;
    const QString place = followed(file.local);
    std::error_code error;
    if (QFileInfo::exists(place))
        std::filesystem::permissions(systemPath(staged), permissionsOf(place), error);
    // Unlike QFile's, this renaming replaces an older file in one step.
    std::filesystem::rename(systemPath(staged), systemPath(place), error);
    if (!error)
        return true;
    m_report.addFailure(
        file.name, ExitCode::LocalIo,
        u"cannot be put in its place: %1"_s.arg(QString::fromLocal8Bit(error.message().c_str())));
    return false;
}

bool Download::makeFolder(const QString &folder, const QString &name)
{
    if (m_madeFolders.contains(folder))
        return true;
    if (!QDir().mkpath(folder)) {
        m_report.addFailure(name, ExitCode::LocalIo, u"cannot make the folder %1"_s.arg(folder));
        return false;
    }
    m_madeFolders.insert(folder);
    return true;
}

// The library only tells that the exchange failed. How far it came tells the rest.
void Download::explainFailure(const File &file, Outcome outcome, const Answer &answer)
{
    const Failure failure = m_session.failure(outcome);
    const QString moved = Output::bytes(answer.moved);
    if (m_session.login().interruption.isRequested())
        return m_report.addFailure(file.name, failure.code,
                                   answer.moved > 0 ? u"%1 after %2"_s.arg(failure.text, moved)
                                                    : failure.text);
    if (!answer.localError.isEmpty())
        return m_report.addFailure(file.name, ExitCode::LocalIo,
                                   u"cannot be written in %1: %2"_s.arg(
                                       QFileInfo(followed(file.local)).path(), answer.localError));
    if (answer.isMoved && answer.moved == 0)
        return m_report.addFailure(file.name, ExitCode::Refused,
                                   u"the server does not send it, and has ended the session"_s);
    m_report.addFailure(file.name, failure.code,
                        answer.isStarted ? u"the connection broke after %1"_s.arg(moved)
                                         : failure.text);
}

void Download::removeRemoteFile(Session &lane, const File &file)
{
    lane.post(
        CommandIds::kRemoveFile,
        [&](Session::Requester &server) { server.removeFile(file.remote); },
        [this, file](Outcome outcome, const Answer &answer) {
            if (outcome != Outcome::Done || !answer.result)
                m_report.addFailure(file.name,
                                    outcome == Outcome::Done ? ExitCode::Refused
                                                             : m_session.failure(outcome).code,
                                    u"arrived, but was not removed from the server"_s);
        });
}

// Removing a folder on the server takes all that is in it along, so only empty ones may go.
void Download::removeRemoteFolders()
{
    for (auto folder = m_remoteFolders.crbegin(); folder != m_remoteFolders.crend(); ++folder) {
        const bool isEmpty = m_session.list(*folder).isEmpty();
        const bool isRemoved =
            isEmpty && m_session
                           .ask(CommandIds::kRemoveDir,
                                [&](Session::Requester &server) { server.removeDir(*folder); })
                           .result;
        if (!isRemoved)
            m_report.addSkipped(*folder, isEmpty ? u"the server does not remove it"_s
                                                 : u"kept on the server, since it is not empty"_s);
    }
}

} // namespace Brix
