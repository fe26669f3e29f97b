// SPDX-License-Identifier: MIT
// brix cat and brix put with "-": a remote file from end to end, as a stream.
#include "streamcommands.h"

#include "blockingwork.h"
#include "interruption.h"
#include "liveprogress.h"
#include "remotefile.h"
#include "remotepath.h"
#include "standardstreams.h"
#include "terminal.h"
#include "transferreport.h"

#include <brixlib/protocol/wire.h>

#include <QtCore/QUuid>

#include <limits>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace Talverine;

namespace {

constexpr qint64 kBlockBytes = 262144;

// cat

struct CatOptions
{
    RemoteOptions remote;
    qint64 offset = 0;
    qint64 count = std::numeric_limits<qint64>::max();
};

void declareCat(Command *command, CatOptions *options)
{
    declareRemote(command, &options->remote);
    command->addSize("--offset", &options->offset,
                     "Bytes of the file to leave out at its beginning");
    command->addSize("--count", &options->count, "Bytes to write at most. Default: to the end")
        .setDefaultText({});
}

void writeFile(const Login &login, const CatOptions &options, LiveProgress *progress)
{
    const QString path = requiredPath(login.url);
    RemoteFile file(login, path, path, QIODevice::ReadOnly);
    const qint64 size = file.size();
    if (options.offset > 0) {
        // No system has files that long; it would refuse to begin there.
        if (options.offset >= size)
            return;
        file.seek(options.offset);
    }
    progress->total = std::min(size - options.offset, options.count);
    const auto block = std::make_unique<char[]>(kBlockBytes);
    for (qint64 left = options.count; left > 0;) {
        const qint64 count = file.read(block.get(), std::min(left, kBlockBytes));
        if (count == 0)
            return;
        StandardStreams::writeOutput(block.get(), count);
        progress->done += count;
        left -= count;
    }
}

ExitCode cat(const Output &output, const CatOptions &options)
{
    return withLogin(options.remote, [&](const Login &login) {
        // On a terminal the bar would stand in the middle of the content.
        LiveProgress progress(output.quiet || Terminal::isOutput());
        runBlocking(login.interruption, [&] { writeFile(login, options, &progress); });
        return ExitCode::Done;
    });
}

// put -

// The path to store a file without a name of its own.
QString targetFile(Session &session, const RemoteUrl &url)
{
    if (url.path.isEmpty() || url.path.endsWith(u'/') || session.isFolder(url.path))
        throw Failure{ExitCode::Usage,
                      u"the URL names a folder, and what comes from stdin has no name"_s};
    return url.path;
}

void storeInput(const Login &login, const QString &staged, LiveProgress *progress)
{
    RemoteFile file(login, staged, login.url.path, QIODevice::WriteOnly | QIODevice::NewOnly);
    const auto block = std::make_unique<char[]>(kBlockBytes);
    while (const qint64 count = StandardStreams::readInput(block.get(), kBlockBytes)) {
        file.write(block.get(), count);
        progress->done += count;
    }
    file.finish();
}

bool rename(Session &session, const QString &from, const QString &to)
{
    return session
        .ask(CommandIds::kRenameFile,
             [&](Session::Requester &server) { server.renameFile(from, to); })
        .result;
}

void remove(Session &session, const QString &path)
{
    session.ask(CommandIds::kRemoveFile,
                [&](Session::Requester &server) { server.removeFile(path); });
}

// Renaming does not replace a file on the server, so an older one goes first.
void moveIntoPlace(Session &session, const QString &staged, const QString &path)
{
    if (rename(session, staged, path))
        return;
    remove(session, path);
    if (rename(session, staged, path))
        return;
    remove(session, staged);
    throw Failure{ExitCode::Refused, u"the server cannot have a file %1"_s.arg(path)};
}

// What was stored of an input that did not arrive whole. It stays when the server is gone too.
void removeRemains(const Login &login, const QString &staged)
{
    try {
        Session session(login);
        session.open();
        remove(session, staged);
    } catch (const Failure &) {
        // What went wrong first is worth telling, not this.
    }
}

} // namespace

// Under another name until it is whole, since an input may break off.
ExitCode putStandardInput(const Output &output, const RemoteOptions &options)
{
    if (options.password.fromStdin)
        throw Failure{ExitCode::Usage, u"the password and the file cannot both come from stdin"_s};
    return withLogin(options, [&](const Login &login) {
        TransferReport report;
        const QString path = [&] {
            Session session(login);
            session.open();
            return targetFile(session, login.url);
        }();
        const QString staged =
            RemotePath::join(RemotePath::parent(path),
                             u".brix-"_s + QUuid::createUuid().toString(QUuid::WithoutBraces));
        try {
            LiveProgress progress(output.quiet);
            runBlocking(login.interruption, [&] { storeInput(login, staged, &progress); });
            Session session(login);
            session.open();
            moveIntoPlace(session, staged, path);
            report.addFile(progress.done);
        } catch (const Failure &) {
            removeRemains(login, staged);
            throw;
        }
        return report.write(output);
    });
}

void addStreamCommands(Command *root)
{
    addCommand<CatOptions>(root, "cat", "Write a file's content to stdout",
                           "brix cat brix://ann@press:7000/log.txt --offset 1000 --count 200",
                           declareCat, cat);
}

} // namespace Brix
