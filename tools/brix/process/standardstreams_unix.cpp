// SPDX-License-Identifier: MIT
#include "standardstreams.h"

#include <cli/failure.h>

#include <QtCore/QThread>

#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace Brix::StandardStreams {

using namespace Qt::StringLiterals;

namespace {

constexpr int kWaitSliceMs = 100;

QString reason()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

// Waits in slices, so that a wish to stop is seen while whoever is at the other end does nothing.
void waitFor(int descriptor, short events)
{
    pollfd ready{descriptor, events, 0};
    int count = 0;
    do {
        if (QThread::currentThread()->isInterruptionRequested())
            throw Failure{ExitCode::Interrupted, u"interrupted"_s};
        count = poll(&ready, 1, kWaitSliceMs);
    } while (count == 0 || (count < 0 && errno == EINTR));
}

} // namespace

void keepPlaces()
{
    // What is opened gets the lowest free number. Stdin can only be written to, and stdout and
    // stderr only read, so that whoever uses one learns that it is none.
    for (int place = STDIN_FILENO; place <= STDERR_FILENO; ++place) {
        if (fcntl(place, F_GETFD) < 0)
            static_cast<void>(::open("/dev/null", place == STDIN_FILENO ? O_WRONLY : O_RDONLY));
    }
}

qint64 readInput(char *data, qint64 size)
{
    for (;;) {
        waitFor(STDIN_FILENO, POLLIN);
        const ssize_t count = ::read(STDIN_FILENO, data, static_cast<size_t>(size));
        if (count >= 0)
            return count;
        if (errno != EINTR && errno != EAGAIN)
            throw Failure{ExitCode::LocalIo, u"cannot read stdin: %1"_s.arg(reason())};
    }
}

void writeOutput(const char *data, qint64 size)
{
    std::signal(SIGPIPE, SIG_IGN);
    while (size > 0) {
        waitFor(STDOUT_FILENO, POLLOUT);
        const ssize_t count = ::write(STDOUT_FILENO, data, static_cast<size_t>(size));
        if (count < 0 && errno != EINTR && errno != EAGAIN)
            throw Failure{ExitCode::LocalIo, u"cannot write to stdout: %1"_s.arg(reason())};
        data += qMax<ssize_t>(count, 0);
        size -= qMax<ssize_t>(count, 0);
    }
}

bool hasReader()
{
    // Errors are told without being asked for.
    pollfd output{STDOUT_FILENO, 0, 0};
    return poll(&output, 1, 0) <= 0 || (output.revents & (POLLERR | POLLHUP)) == 0;
}

} // namespace Brix::StandardStreams
