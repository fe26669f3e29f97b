// SPDX-License-Identifier: MIT
#include "unixsignals.h"

#include <QtCore/QSocketNotifier>

#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Brix {

namespace {

// For each signal the socket that its handler writes to; 0 for none.
std::array<volatile std::sig_atomic_t, NSIG> writeEnds = {};

// A handler may do little more than write: the byte wakes the event loop at the other end.
extern "C" void wakeEventLoop(int signal)
{
    const int before = errno;
    const char byte = 0;
    [[maybe_unused]] const auto written = write(int(writeEnds[size_t(signal)]), &byte, 1);
    errno = before;
}

} // namespace

class UnixSignalsPrivate final
{
public:
    UnixSignalsPrivate(const std::vector<int> &signals, UnixSignals::Catch how,
                       const std::function<void()> &arrived)
    {
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, m_ends) != 0)
            return;
        for (const int end : m_ends) {
            fcntl(end, F_SETFD, FD_CLOEXEC);
            fcntl(end, F_SETFL, O_NONBLOCK);
        }
        m_notifier = std::make_unique<QSocketNotifier>(m_ends[0], QSocketNotifier::Read);
        QObject::connect(m_notifier.get(), &QSocketNotifier::activated, m_notifier.get(),
                         [this, arrived] {
                             char byte = 0;
                             if (read(m_ends[0], &byte, 1) == 1)
                                 arrived();
                         });
        for (const int signal : signals)
            catchSignal(signal, how);
    }
    ~UnixSignalsPrivate()
    {
        for (const Caught &caught : m_caught) {
            sigaction(caught.signal, &caught.before, nullptr);
            writeEnds[size_t(caught.signal)] = 0;
        }
        if (!m_notifier)
            return;
        m_notifier.reset();
        close(m_ends[0]);
        close(m_ends[1]);
    }
    Q_DISABLE_COPY_MOVE(UnixSignalsPrivate)

private:
    struct Caught
    {
        int signal;
        struct sigaction before;
    };

    void catchSignal(int signal, UnixSignals::Catch how)
    {
        writeEnds[size_t(signal)] = m_ends[1];
        struct sigaction action = {};
        action.sa_handler = wakeEventLoop;
        action.sa_flags = SA_RESTART;
        if (how == UnixSignals::Catch::Once)
            action.sa_flags |= int(SA_RESETHAND);
        Caught caught{signal, {}};
        sigaction(signal, &action, &caught.before);
        m_caught.push_back(caught);
    }

    int m_ends[2] = {-1, -1};
    std::unique_ptr<QSocketNotifier> m_notifier;
    std::vector<Caught> m_caught;
};

UnixSignals::UnixSignals(const std::vector<int> &signals, Catch how,
                         const std::function<void()> &arrived)
    : d(std::make_unique<UnixSignalsPrivate>(signals, how, arrived))
{
}

UnixSignals::~UnixSignals() = default;

} // namespace Brix
