// SPDX-License-Identifier: MIT
#include "remotecommand.h"

#include "remotepath.h"
#include <process/interruption.h>

#include <new>

namespace Brix {

using namespace Qt::StringLiterals;

namespace {

RemoteUrl parsedUrl(const QString &text)
{
    QString error;
    auto url = RemoteUrl::parse(text, &error);
    if (!url)
        throw Failure{ExitCode::Usage, error};
    return *url;
}

} // namespace

void declareRemote(Command *command, RemoteOptions *options)
{
    command->addText("URL", &options->url, "brix://USER@HOST:PORT/PATH").setRequired();
    command->addFlag("--password-stdin", &options->password.fromStdin,
                     "Read the password from the first line of stdin");
    command->addNumber("--timeout", &options->timeoutSeconds,
                       "Seconds that the server may be silent", 1, 86400);
    command->addNumber("--max-time", &options->longestSeconds,
                       "Seconds that the whole command may take; 0 for no limit", 0, 31'536'000);
    command->addSize("--max-reply", &options->largestReply,
                     "Largest reply of the server that is read, 0 for no limit; without it 1 MiB "
                     "for names, 256 MiB for lists and the results of calls");
}

ExitCode withLogin(const RemoteOptions &options, const LoginWork &work)
{
    const RemoteUrl url = parsedUrl(options.url);
    QString error;
    const auto password = options.password.existing(url.user, &error);
    if (!password)
        throw Failure{ExitCode::Usage, error};
    Interruption interruption;
    if (options.longestSeconds > 0)
        interruption.limitTime(std::chrono::seconds(options.longestSeconds));
    try {
        return work({url, *password, std::chrono::seconds(options.timeoutSeconds), interruption,
                     options.largestReply});
    } catch (const std::bad_alloc &) {
        // The server says how much there is to be held.
        throw Failure{ExitCode::Connection, u"out of memory"_s};
    }
}

ExitCode withSession(const RemoteOptions &options, const RemoteWork &work)
{
    return withLogin(options, [&](const Login &login) {
        Session session(login);
        session.open();
        return work(session, login.url);
    });
}

QString requiredPath(const RemoteUrl &url)
{
    if (RemotePath::withoutSlash(url.path).isEmpty())
        throw Failure{ExitCode::Usage, u"the URL names no path"_s};
    return RemotePath::withoutSlash(url.path);
}

QString targetPath(const RemoteUrl &url, const QString &text)
{
    QString path = text;
    if (text.startsWith(u"brix://"_s, Qt::CaseInsensitive)) {
        RemoteUrl target = parsedUrl(text);
        path = std::exchange(target.path, url.path);
        if (!(target == url))
            throw Failure{ExitCode::Usage, u"both places must be on one server, of one user"_s};
    }
    if (path.isEmpty() || path.endsWith(u'/'))
        path += RemotePath::name(requiredPath(url));
    return path;
}

} // namespace Brix
