// SPDX-License-Identifier: MIT
#include "connectionfailure.h"

#include "remoteurl.h"

#include <brixlib/protocol/sclientbase.h>

namespace Brix::ConnectionFailure {

using namespace Qt::StringLiterals;
using namespace Talverine;

Failure noConnection(const RemoteUrl &url)
{
    if (SClientBase::resolve(url.host, true).isNull())
        return {ExitCode::Connection, u"the host %1 is unknown"_s.arg(url.host)};
    return {ExitCode::Connection,
            u"cannot connect to %1: nobody listens there, it is no brix server, or it did "
            "not answer in time"_s.arg(url.authority())};
}

Failure loginRefused(const RemoteUrl &url)
{
    return {ExitCode::Refused, u"%1 refuses the login of %2: wrong password, or no such "
                               "user with a home folder"_s.arg(url.authority(), url.user)};
}

Failure broken(const RemoteUrl &url)
{
    return {ExitCode::Connection,
            u"%1 ended the connection: it refuses the command as a whole, or the line broke"_s.arg(
                url.authority())};
}

} // namespace Brix::ConnectionFailure
