// SPDX-License-Identifier: MIT
// brix get, brix put: moves files and trees of files.
#include "download.h"
#include "streamcommands.h"
#include "upload.h"
#include <remote/remotecommand.h>
#include <remote/remotepath.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

#include <functional>
#include <optional>

namespace Brix {

using namespace Qt::StringLiterals;

namespace {

struct TransferOptions
{
    RemoteOptions remote;
    QString local;
    bool isStandardStream = false; // the path was "-"
    bool recursive = false;
    bool removeSource = false;
    Download::TreeLimits limits;
};

void declareTransfer(Command *command, TransferOptions *options)
{
    command->addFlag("-r,--recursive", &options->recursive, "A folder with all that is in it");
    command->addFlag("--remove-source", &options->removeSource,
                     "Remove each file where it came from once it has arrived");
}

void declareGet(Command *command, TransferOptions *options)
{
    declareRemote(command, &options->remote);
    command
        ->addPath("LOCAL", &options->local,
                  "Where it goes: a file, or a folder to put it in; with -r the folder that "
                  "receives the content; \"-\" writes the content to stdout. Default: its own name "
                  "in the current folder")
        .addStore(
            [options](const auto &texts) { options->isStandardStream = texts.front() == "-"; });
    declareTransfer(command, options);
    command->addNumber("--max-depth", &options->limits.depth,
                       "Levels of folders that -r follows below the first", 0, 2000);
    command->addNumber("--max-entries", &options->limits.entries,
                       "Files and folders that -r takes; with more it fetches none", 0);
}

void declarePut(Command *command, TransferOptions *options)
{
    command
        ->addPath("LOCAL", &options->local,
                  "The file or, with -r, the folder; \"-\" stores what comes from stdin")
        .setRequired()
        .addStore(
            [options](const auto &texts) { options->isStandardStream = texts.front() == "-"; });
    declareRemote(command, &options->remote);
    declareTransfer(command, options);
}

using TransferWork = std::function<void(Session &, const RemoteUrl &, TransferReport &)>;

// Runs the work and writes its report. With --json, a transfer that fails as a whole has a report
// too.
ExitCode withReport(const Output &output, const TransferOptions &options, const TransferWork &work)
{
    std::optional<TransferReport> report;
    try {
        withSession(options.remote, [&](Session &session, const RemoteUrl &url) {
            work(session, url, report.emplace());
            return ExitCode::Done;
        });
    } catch (const Failure &failure) {
        if (!output.json)
            throw;
        if (!report)
            report.emplace();
        report->addFailure(options.remote.url, failure.code, failure.text);
    }
    return report->write(output);
}

// The name that something from the URL has here when none is given.
QString ownName(const RemoteUrl &url)
{
    const QString name = RemotePath::name(RemotePath::withoutSlash(url.path));
    if (!RemotePath::isSafeName(name))
        throw Failure{ExitCode::Usage, u"the URL ends in no name; say where it goes"_s};
    return name;
}

void getTree(Session &session, const RemoteUrl &url, const TransferOptions &options,
             Download *download)
{
    const QString local =
        options.local.isEmpty() ? QDir().absoluteFilePath(ownName(url)) : options.local;
    const QString remote = RemotePath::withoutSlash(url.path);
    if (!session.isFolder(remote))
        throw Failure{ExitCode::Refused, u"the server has no folder %1"_s.arg(url.path)};
    download->fetchTree(remote, QDir::cleanPath(local));
}

void getFile(Session &session, const RemoteUrl &url, const TransferOptions &options,
             Download *download)
{
    const QString remote = requiredPath(url);
    if (!session.exists(remote))
        throw Failure{ExitCode::Refused, u"the server has no %1"_s.arg(remote)};
    if (session.isFolder(remote))
        throw Failure{ExitCode::Refused, u"%1 is a folder; give -r"_s.arg(remote)};
    QString local = options.local.isEmpty() ? QDir::currentPath() + u'/' : options.local;
    if (local.endsWith(u'/') || QFileInfo(local).isDir())
        local += u'/' + ownName(url);
    download->fetchFile(remote, QDir::cleanPath(local));
}

ExitCode get(const Output &output, const TransferOptions &options)
{
    if (options.isStandardStream && (options.recursive || options.removeSource))
        throw Failure{ExitCode::Usage, u"-r and --remove-source are not for stdout"_s};
    if (options.isStandardStream)
        return getToStandardOutput(output, options.remote);
    return withReport(
        output, options, [&](Session &session, const RemoteUrl &url, TransferReport &report) {
            ProgressBar progress(output.quiet);
            Download download(session, progress, report, options.removeSource, options.limits);
            if (options.recursive)
                getTree(session, url, options, &download);
            else
                getFile(session, url, options, &download);
        });
}

void putTree(const RemoteUrl &url, const TransferOptions &options, Upload *upload)
{
    const QString local = QDir::cleanPath(options.local);
    if (!QFileInfo(local).isDir())
        throw Failure{ExitCode::LocalIo, u"there is no folder %1"_s.arg(local)};
    const QString remote = RemotePath::withoutSlash(url.path);
    upload->sendTree(local, remote.isEmpty() ? QDir(local).dirName() : remote);
}

void putFile(Session &session, const RemoteUrl &url, const TransferOptions &options, Upload *upload)
{
    const QFileInfo info(options.local);
    if (info.isDir())
        throw Failure{ExitCode::LocalIo, u"%1 is a folder; give -r"_s.arg(options.local)};
    if (!info.isFile())
        throw Failure{ExitCode::LocalIo, u"there is no file %1"_s.arg(options.local)};
    const bool intoFolder =
        url.path.isEmpty() || url.path.endsWith(u'/') || session.isFolder(url.path);
    upload->sendFile(options.local,
                     intoFolder ? RemotePath::join(url.path, info.fileName()) : url.path);
}

ExitCode put(const Output &output, const TransferOptions &options)
{
    if (options.isStandardStream && (options.recursive || options.removeSource))
        throw Failure{ExitCode::Usage, u"-r and --remove-source are not for stdin"_s};
    if (options.isStandardStream)
        return putStandardInput(output, options.remote);
    return withReport(output, options,
                      [&](Session &session, const RemoteUrl &url, TransferReport &report) {
                          ProgressBar progress(output.quiet);
                          Upload upload(session, progress, report, options.removeSource);
                          if (options.recursive)
                              putTree(url, options, &upload);
                          else
                              putFile(session, url, options, &upload);
                      });
}

} // namespace

void addTransferCommands(Command *root)
{
    addCommand<TransferOptions>(root, "get", "Fetch a file or a tree of files",
                                "brix get -r brix://ann@press:7000/jobs ./jobs", declareGet, get);
    addCommand<TransferOptions>(root, "put", "Send a file or a tree of files",
                                "brix put report.pdf brix://ann@press:7000/reports/", declarePut,
                                put);
}

} // namespace Brix
