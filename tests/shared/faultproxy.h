// SPDX-License-Identifier: MIT
#pragma once

#include <shared/descriptor.h>
#include <shared/faultplan.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

class FaultConnection;
struct pollfd;

/*!
 * Stands between the clients and a server on 127.0.0.1 and does to their connections what a plan
 * says: it delays, throttles, splits and joins packets, flips a byte, cuts, stalls.
 *
 *     FaultProxy proxy(server.port());
 *     proxy.setPlan({.toServer = {.faultAt = 100}});
 *     client.connectTo(proxy.port());          // 100 bytes reach the server, then the end
 *     QVERIFY(proxy.waitForIdle(10s));
 *     QVERIFY(proxy.record(0).hadFault);
 *
 * It runs in a thread of its own. Every member may be called from any thread. Its end breaks off
 * the connections that are left.
 */
class FaultProxy final
{
public:
    //! The plan of the connection with the number \a index, from 0; called in the proxy's thread.
    using Planner = std::function<ConnectionPlan(size_t index)>;

    //! What came of a connection. What an open one tells may lag behind what its ends see.
    struct Record
    {
        bool isOpen = false;
        //! Whether the fault of a plan has happened.
        bool hadFault = false;
        //! Bytes given to the server and to the client. A reset may overtake the last of them on
        //! the way to an end that reads slowly.
        qint64 toServer = 0;
        qint64 toClient = 0;
    };

    //! Lets all pass until a plan is set.
    explicit FaultProxy(quint16 serverPort);
    ~FaultProxy();
    Q_DISABLE_COPY_MOVE(FaultProxy)

    //! Where the clients connect to; 0 when the system did not let it listen.
    quint16 port() const { return m_port; }

    //! The plan of each connection from now on.
    void setPlan(const ConnectionPlan &plan);
    void setPlanner(Planner planner);

    //! Connections so far.
    size_t count() const;
    //! The connection with the number \a index, which is below count().
    Record record(size_t index) const;
    //! Waits until no connection is open; false when the time is over before.
    [[nodiscard]] bool waitForIdle(std::chrono::milliseconds patience) const;
    //! Waits until there have been \a count connections.
    [[nodiscard]] bool waitForCount(size_t count, std::chrono::milliseconds patience) const;

    //! Breaks off all connections that are open.
    void resetAll();

private:
    // A connection and the number it is known by.
    struct Entry;

    void run();
    void wake();
    bool obeyOrders();
    void acceptAll();
    void open(Descriptor client);
    void note(const Entry &entry);

    const quint16 m_serverPort;
    quint16 m_port = 0;
    Descriptor m_listener;
    Descriptor m_wakeUp;

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    Planner m_planner; // under the mutex, as all that follows
    std::vector<Record> m_records;
    size_t m_openCount = 0;
    bool m_resetAll = false;
    bool m_stop = false;

    std::vector<Entry> m_entries; // of the proxy's thread
    std::thread m_thread;         // last, since it uses the others
};
