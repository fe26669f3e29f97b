// SPDX-License-Identifier: MIT
#pragma once

#include "failure.h"

namespace Brix {
struct RemoteUrl;
}

//! What people are told when a server cannot be reached, does not let them in, or goes.
namespace Brix::ConnectionFailure {

//! Looks once more whether the host is known, which may block.
Failure noConnection(const RemoteUrl &url);
Failure loginRefused(const RemoteUrl &url);
Failure broken(const RemoteUrl &url);

} // namespace Brix::ConnectionFailure
