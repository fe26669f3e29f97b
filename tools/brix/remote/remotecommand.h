// SPDX-License-Identifier: MIT
#pragma once

#include "session.h"
#include <cli/passwordsource.h>
#include <tool.h>

namespace Brix {

//! What every sub-command that talks to a server takes.
struct RemoteOptions
{
    QString url;
    PasswordSource password;
    int timeoutSeconds = 10;
    int longestSeconds = 0; //!< of the whole command; 0 for no limit
    std::optional<qint64> largestReply;
};

//! Adds URL and the options of a connection.
void declareRemote(Command *command, RemoteOptions *options);

//! Work that makes connections of its own; throws Failure.
using LoginWork = std::function<ExitCode(const Login &login)>;

//! Finds out where to log in, and as whom, and does \a work; throws Failure.
ExitCode withLogin(const RemoteOptions &options, const LoginWork &work);

//! Work on an open session; throws Failure.
using RemoteWork = std::function<ExitCode(Session &session, const RemoteUrl &url)>;

//! Connects, logs in and does \a work; throws Failure.
ExitCode withSession(const RemoteOptions &options, const RemoteWork &work);

//! The path of \a url; throws Failure when there is none, since the whole home folder is not meant.
QString requiredPath(const RemoteUrl &url);

/*!
 * Where something on \a url goes to on the same server: \a text is a URL of that server or a path
 * there, and with a slash at its end the folder to put it in under its own name. Throws Failure.
 */
QString targetPath(const RemoteUrl &url, const QString &text);

} // namespace Brix
