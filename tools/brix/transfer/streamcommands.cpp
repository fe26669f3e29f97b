// SPDX-License-Identifier: MIT
// brix cat and brix put with "-": a remote file from end to end, as a stream.
#include "streamcommands.h"

#include "transferreport.h"
#include <cli/liveprogress.h>
#include <cli/terminal.h>
#include <process/blockingwork.h>
#include <process/interruption.h>
#include <process/standardstreams.h>
#include <remote/remotefile.h>
#include <remote/replacement.h>

#include <brixlib/protocol/wire.h>

#include <limits>
#include <optional>

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

// A server refuses a directory as it refuses a file that is missing, and ends the connection when
// it does not know the command.
Failure explained(const Login &login, const Failure &failure)
{
    try {
        Session session(login);
        session.open();
        const QString path = requiredPath(login.url);
        if (!session.commands().contains(CommandIds::kClientDevice))
            return session.failure(Outcome::Unavailable);
        if (session.isFolder(path))
            return {ExitCode::Refused, u"%1 is a directory"_s.arg(path)};
    } catch (const Failure &) {
        // The first failure is the one to report.
    }
    return failure;
}

ExitCode cat(const Output &output, const CatOptions &options)
{
    return withLogin(options.remote, [&](const Login &login) {
        // On a terminal the bar would stand in the middle of the content.
        LiveProgress progress(output.quiet || Terminal::isOutput());
        std::optional<Failure> unexplained;
        runBlocking(login.interruption, [&] {
            try {
                writeFile(login, options, &progress);
            } catch (const RemoteFile::Refusal &failure) {
                unexplained = failure;
            } catch (const RemoteFile::NotOpened &failure) {
                unexplained = failure;
            }
        });
        if (unexplained)
            throw explained(login, *unexplained);
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

void storeInput(const Login &login, const QString &temporary, LiveProgress *progress)
{
    RemoteFile file(login, temporary, login.url.path, QIODevice::WriteOnly | QIODevice::NewOnly);
    const auto block = std::make_unique<char[]>(kBlockBytes);
    while (const qint64 count = StandardStreams::readInput(block.get(), kBlockBytes)) {
        file.write(block.get(), count);
        progress->done += count;
    }
    file.finish();
}

// Renames the input, which has arrived whole under a temporary name; throws Failure unless it got
// the name. Nobody can repeat the input, so the server keeps it whatever happens.
void nameInput(const Login &login, const QString &temporary, qint64 bytes, TransferReport *report)
{
    const QString kept = u"%1; what arrived is kept as "_s + temporary;
    std::optional<Replacement::Result> result;
    try {
        Session session(login);
        session.open();
        Replacement::begin(session, temporary, login.url.path,
                           Replacement::WhenRefused::KeepTemporary,
                           [&](const Replacement::Result &ended) { result = ended; });
        session.waitWhile([&] { return !result; });
    } catch (const Failure &failure) {
        throw Failure{failure.code, kept.arg(failure.text)};
    }
    if (!result->isReplaced)
        throw *result->failure;
    report->addFile(bytes);
    if (result->failure)
        report->addFailure(login.url.path, result->failure->code, result->failure->text);
}

// Removes what was stored of an input that did not arrive whole. It stays if the server cannot be
// reached.
void removeRemains(const Login &login, const QString &temporary)
{
    try {
        Session session(login);
        session.open();
        session.ask(CommandIds::kRemoveFile,
                    [&](Session::Requester &server) { server.removeFile(temporary); });
    } catch (const Failure &) {
        // The first failure is the one to report.
    }
}

} // namespace

ExitCode getToStandardOutput(const Output &output, const RemoteOptions &options)
{
    CatOptions whole;
    whole.remote = options;
    return cat(output, whole);
}

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
            session.require(CommandIds::kClientDevice);
            session.require(CommandIds::kRenameFile);
            return targetFile(session, login.url);
        }();
        const QString temporary = Replacement::temporaryName(path);
        qint64 bytes = 0;
        try {
            LiveProgress progress(output.quiet);
            runBlocking(login.interruption, [&] { storeInput(login, temporary, &progress); });
            bytes = progress.done;
        } catch (const Failure &) {
            removeRemains(login, temporary);
            throw;
        }
        nameInput(login, temporary, bytes, &report);
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
