// SPDX-License-Identifier: MIT
#include "interruption.h"

#include <QtCore/QSocketNotifier>

#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Brix {

namespace {

constexpr std::array endingSignals = {SIGINT, SIGTERM};

// A handler may do little more than write: the byte wakes the event loop at the other end.
volatile std::sig_atomic_t writeEnd = -1;

extern "C" void wakeEventLoop(int)
{
    const int before = errno;
    const char byte = 0;
    [[maybe_unused]] const auto written = write(int(writeEnd), &byte, 1);
    errno = before;
}

} // namespace

class InterruptionPrivate final
{
public:
    explicit InterruptionPrivate(Interruption *q)
    {
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, m_ends) != 0)
            return;
        for (const int end : m_ends) {
            fcntl(end, F_SETFD, FD_CLOEXEC);
            fcntl(end, F_SETFL, O_NONBLOCK);
        }
        writeEnd = m_ends[1];
        m_notifier = std::make_unique<QSocketNotifier>(m_ends[0], QSocketNotifier::Read);
        QObject::connect(m_notifier.get(), &QSocketNotifier::activated, q, [this, q] {
            char byte = 0;
            if (read(m_ends[0], &byte, 1) == 1)
                q->request();
        });
        for (size_t i = 0; i < endingSignals.size(); ++i) {
            struct sigaction action = {};
            action.sa_handler = wakeEventLoop;
            // The second signal finds the default action and ends the program.
            action.sa_flags = int(SA_RESTART | SA_RESETHAND);
            sigaction(endingSignals[i], &action, &m_before[i]);
        }
    }
    ~InterruptionPrivate()
    {
        if (!m_notifier)
            return;
        for (size_t i = 0; i < endingSignals.size(); ++i)
            sigaction(endingSignals[i], &m_before[i], nullptr);
        m_notifier.reset();
        writeEnd = -1;
        close(m_ends[0]);
        close(m_ends[1]);
    }
    Q_DISABLE_COPY_MOVE(InterruptionPrivate)

private:
    int m_ends[2] = {-1, -1};
    std::unique_ptr<QSocketNotifier> m_notifier;
    std::array<struct sigaction, endingSignals.size()> m_before = {};
};

Interruption::Interruption()
    : d(std::make_unique<InterruptionPrivate>(this))
{
}

Interruption::~Interruption() = default;

} // namespace Brix
