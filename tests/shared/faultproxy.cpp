// SPDX-License-Identifier: MIT
#include <shared/faultproxy.h>

#include <shared/faultconnection.h>

#include <algorithm>
#include <optional>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>

using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kBacklog = 512;

sockaddr_in loopback(quint16 port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

Descriptor newSocket()
{
    return Descriptor(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

// A packet that leaves here is to leave as it is.
void sendAtOnce(const Descriptor &socket)
{
    const int on = 1;
    setsockopt(socket.value(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

Descriptor listenOn(quint16 *port)
{
    Descriptor listener = newSocket();
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto *const where = reinterpret_cast<sockaddr *>(&address);
    if (bind(listener.value(), where, size) != 0 || listen(listener.value(), kBacklog) != 0 ||
        getsockname(listener.value(), where, &size) != 0)
        return Descriptor();
    *port = ntohs(address.sin_port);
    return listener;
}

// A wait of poll() that ends not before \a next; -1 for one without an end.
int pollTime(std::optional<Clock::time_point> next, Clock::time_point now)
{
    if (!next)
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - now);
    return static_cast<int>(std::clamp<qint64>(left.count(), 0, 60'000));
}

} // namespace

struct FaultProxy::Entry
{
    size_t index;
    std::unique_ptr<FaultConnection> connection;
};

FaultProxy::FaultProxy(quint16 serverPort)
    : m_serverPort(serverPort)
    , m_listener(listenOn(&m_port))
    , m_wakeUp(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
    , m_thread([this] { run(); })
{
}

FaultProxy::~FaultProxy()
{
    {
        const std::lock_guard lock(m_mutex);
        m_stop = true;
    }
    wake();
    m_thread.join();
}

void FaultProxy::setPlan(const ConnectionPlan &plan)
{
    setPlanner([plan](size_t) { return plan; });
}

void FaultProxy::setPlanner(Planner planner)
{
    const std::lock_guard lock(m_mutex);
    m_planner = std::move(planner);
}

size_t FaultProxy::count() const
{
    const std::lock_guard lock(m_mutex);
    return m_records.size();
}

FaultProxy::Record FaultProxy::record(size_t index) const
{
    const std::lock_guard lock(m_mutex);
    return m_records.at(index);
}

bool FaultProxy::waitForIdle(std::chrono::milliseconds patience) const
{
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, patience, [this] { return m_openCount == 0; });
}

bool FaultProxy::waitForCount(size_t count, std::chrono::milliseconds patience) const
{
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, patience, [&] { return m_records.size() >= count; });
}

void FaultProxy::resetAll()
{
    {
        const std::lock_guard lock(m_mutex);
        m_resetAll = true;
    }
    wake();
}

void FaultProxy::wake()
{
    const quint64 one = 1;
    [[maybe_unused]] const ssize_t written = write(m_wakeUp.value(), &one, sizeof one);
}

void FaultProxy::run()
{
    std::vector<pollfd> polled;
    for (;;) {
        auto now = Clock::now();
        polled.assign({{m_listener.value(), POLLIN, 0}, {m_wakeUp.value(), POLLIN, 0}});
        std::optional<Clock::time_point> next;
        for (const Entry &entry : m_entries) {
            pollfd ends[2];
            entry.connection->prepare(ends, now);
            polled.insert(polled.end(), ends, ends + 2);
            const auto time = entry.connection->nextTime(now);
            if (time && (!next || *time < *next))
                next = time;
        }
        poll(polled.data(), polled.size(), pollTime(next, now));

        now = Clock::now();
        for (size_t i = 0; i < m_entries.size(); ++i) {
            m_entries[i].connection->advance(&polled[2 + 2 * i], now);
            note(m_entries[i]);
        }
        std::erase_if(m_entries, [](const Entry &entry) { return entry.connection->isOver(); });
        if (polled[1].revents != 0 && !obeyOrders())
            return;
        if (polled[0].revents != 0)
            acceptAll();
    }
}

// False when the proxy is to end.
bool FaultProxy::obeyOrders()
{
    quint64 count = 0;
    [[maybe_unused]] const ssize_t taken = read(m_wakeUp.value(), &count, sizeof count);
    bool resets = false;
    bool stops = false;
    {
        const std::lock_guard lock(m_mutex);
        resets = std::exchange(m_resetAll, false);
        stops = m_stop;
    }
    if (resets || stops) {
        for (Entry &entry : m_entries) {
            entry.connection->reset();
            note(entry);
        }
        m_entries.clear();
    }
    return !stops;
}

void FaultProxy::acceptAll()
{
    for (;;) {
        Descriptor client(
            accept4(m_listener.value(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!client.isOpen())
            return;
        open(std::move(client));
    }
}

void FaultProxy::open(Descriptor client)
{
    Planner planner;
    const size_t index = count();
    {
        const std::lock_guard lock(m_mutex);
        planner = m_planner;
    }
    const ConnectionPlan plan = planner ? planner(index) : ConnectionPlan();

    Descriptor server = newSocket();
    sendAtOnce(client);
    sendAtOnce(server);
    const sockaddr_in address = loopback(m_serverPort);
    // How that ends is found out by the poll.
    [[maybe_unused]] const int begun =
        connect(server.value(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
    m_entries.push_back({index, std::make_unique<FaultConnection>(
                                    std::move(client), std::move(server), plan, Clock::now())});

    const std::lock_guard lock(m_mutex);
    m_records.push_back({.isOpen = true});
    ++m_openCount;
    m_changed.notify_all();
}

void FaultProxy::note(const Entry &entry)
{
    const FaultConnection &connection = *entry.connection;
    const std::lock_guard lock(m_mutex);
    m_records[entry.index] = {!connection.isOver(), connection.hadFault(), connection.toServer(),
                              connection.toClient()};
    if (connection.isOver()) {
        --m_openCount;
        m_changed.notify_all();
    }
}
