// SPDX-License-Identifier: MIT
#include "serveguards.h"

#include <brixlib/protocol/server/sservercontroller.h>
#include <cli/command.h>
#include <process/descriptorlimit.h>
#include <process/heaptuning.h>

#include <memory>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace Talverine;

namespace {

// A day and more of seconds, so that milliseconds still fit.
constexpr int kLongestSeconds = 1'000'000;
// What the system takes.
constexpr int kLongestKeepAlive = 32'767;

void declareCounts(Command *command, ServeGuards *guards)
{
    command->addNumber("--max-connections", &guards->maximumConnections,
                       "Connections at a time; 0 for no limit");
    command->addNumber("--max-per-address", &guards->maximumPerAddress,
                       "Connections of one address at a time; 0 for no limit");
    command->addNumber("--max-logins-pending", &guards->maximumLoginsPending,
                       "Connections at a time that have not logged in; 0 for no limit");
    command->addNumber(
        "--max-logins-per-address", &guards->maximumLoginsPerAddress,
        "Connections of one address at a time that have not logged in; 0 for no limit");
    command->addNumber("--reserve-descriptors", &guards->reservedDescriptors,
                       "Descriptors that connections leave free for files");
    command->addSize("--max-listing-memory", &guards->listingMemory,
                     "Bytes that the replies to all listings may take together; 0 for no limit");
}

void declareTimes(Command *command, ServeGuards *guards)
{
    command->addNumber("--login-timeout", &guards->loginTimeout,
                       "Seconds from the greeting to a login; 0 for no limit", 0, kLongestSeconds);
    command->addNumber("--idle-timeout", &guards->idleTimeout,
                       "Seconds that a client may be silent after its login; 0 for no limit", 0,
                       kLongestSeconds);
    command->addSize("--min-rate", &guards->minimumRate,
                     "Bytes a second at which a command must arrive and a list must be taken; 0 "
                     "for no limit");
    command->addNumber("--keep-alive", &guards->keepAlive,
                       "Seconds of silence after which the system probes a client, which is given "
                       "up after as long again; 0 for the times of the system",
                       0, kLongestKeepAlive);
}

void declareLogins(Command *command, ServeGuards *guards)
{
    command->addSize("--login-body", &guards->loginBody,
                     "Bytes of a command before the login; 0 for no limit");
    command->addNumber("--login-failures", &guards->loginFailures,
                       "Failed logins that end a session; 0 for no limit");
    command->addNumber("--login-delay", &guards->loginDelay,
                       "Seconds from a failed login to the next greeting of its address, doubled "
                       "with each further failure; 0 for no delay",
                       0, kLongestSeconds);
    command->addNumber("--login-delay-max", &guards->longestLoginDelay,
                       "The longest such delay in seconds", 1, kLongestSeconds);
    command->addNumber("--max-logins-delayed", &guards->loginsDelayed,
                       "Connections of one address that may wait for such a greeting, and that "
                       "may log in at a time after a failure; 0 for no limit");
}

} // namespace

void ServeGuards::declare(Command *command, ServeGuards *guards)
{
    declareCounts(command, guards);
    declareTimes(command, guards);
    declareLogins(command, guards);
}

SServerLimits ServeGuards::sessionLimits() const
{
    SServerLimits limits;
    limits.loginTimeout = std::chrono::seconds(loginTimeout);
    limits.idleTimeout = std::chrono::seconds(idleTimeout);
    limits.keepAlive = std::chrono::seconds(keepAlive);
    limits.minimumRate = minimumRate;
    limits.loginBodyBytes = loginBody;
    limits.failedLogins = loginFailures;
    return limits;
}

void ServeGuards::apply(SServerController *controller) const
{
    SConnectionGuard::Limits limits;
    limits.perAddress = maximumPerAddress;
    limits.pendingLogins = maximumLoginsPending;
    limits.pendingLoginsPerAddress = maximumLoginsPerAddress;
    limits.firstDelay = std::chrono::seconds(loginDelay);
    limits.longestDelay = std::chrono::seconds(longestLoginDelay);
    limits.delayedPerAddress = loginsDelayed;
    limits.listingBytes = listingMemory;
    controller->setMaximumConnections(maximumConnections);
    controller->setReservedDescriptors(reservedDescriptors);
    controller->setConnectionGuard(std::make_shared<SConnectionGuard>(limits));
}

QString ServeGuards::prepareProcess()
{
    HeapTuning::returnLargeBlocks();
    const std::optional<qint64> limit = DescriptorLimit::raise();
    return limit ? u"at most %1 open files and connections"_s.arg(*limit) : QString();
}

} // namespace Brix
