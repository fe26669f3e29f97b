// SPDX-License-Identifier: MIT
#pragma once

#include <cli/failure.h>

#include <chrono>

namespace Brix {
struct RemoteUrl;
}

//! What people are told when a server cannot be reached, does not let them in, or goes.
namespace Brix::ConnectionFailure {

/*!
 * Finds out why no session could begin within \a timeout: resolves the host again and connects
 * once more, which may block for two seconds longer than resolving takes.
 */
Failure noConnection(const RemoteUrl &url, std::chrono::milliseconds timeout);
//! The connection broke during the login.
Failure noLogin(const RemoteUrl &url);
Failure loginRefused(const RemoteUrl &url);
Failure broken(const RemoteUrl &url);

} // namespace Brix::ConnectionFailure
