// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QList>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace Brix {

/*!
 * Passes items to a function in a separate thread, so that adding an item never waits for a slow
 * disk or reader. A batch contains the items of 50 ms, or of less time when the queue is half full.
 *
 * The queue is bounded: an item for which there is no room is dropped and counted.
 *
 * Thread: fully shared.
 */
template<typename Item>
class BatchThread final
{
public:
    /*!
     * Takes the items of a batch, and how many items were dropped after them. Returns how many
     * items remain unreported as lost; they are added to the count of the next batch.
     */
    using Work = std::function<qint64(const QList<Item> &items, qint64 dropped)>;

    //! At most \a limit is the sum of the sizes of the items that wait. The destructor lets \a work
    //! run for \a ending more at most.
    BatchThread(qsizetype limit, std::chrono::milliseconds ending, Work work)
        : m_state(std::make_shared<State>())
        , m_limit(limit)
        , m_ending(ending)
    {
        m_state->work = std::move(work);
        m_state->largeBatch = limit / 2;
        m_thread = std::thread([state = m_state] { state->run(); });
    }
    //! A thread that is stuck in its work is left to itself and ends with the program.
    ~BatchThread()
    {
        std::unique_lock lock(m_state->mutex);
        m_state->isEnding = true;
        m_state->changed.notify_all();
        const bool hasEnded =
            m_state->changed.wait_for(lock, m_ending, [this] { return m_state->hasEnded; });
        lock.unlock();
        if (hasEnded)
            m_thread.join();
        else
            m_thread.detach();
    }
    Q_DISABLE_COPY_MOVE(BatchThread)

    //! Queues \a item, which counts as \a size, and returns at once.
    void add(Item item, qsizetype size)
    {
        const std::lock_guard lock(m_state->mutex);
        if (m_state->queuedSize + size > m_limit) {
            ++m_state->dropped;
            return;
        }
        const qsizetype before = m_state->queuedSize;
        m_state->queue.append(std::move(item));
        m_state->queuedSize += size;
        // Only what ends one of the two waits of the thread wakes it.
        if (m_state->queue.size() == 1 || isLarge(before) != isLarge(before + size))
            m_state->changed.notify_all();
    }

private:
    // To wake a thread for each item costs more than most items do.
    static constexpr std::chrono::milliseconds kGatherTime{50};

    bool isLarge(qsizetype size) const { return size >= m_limit / 2; }

    // Outlives the object when the thread is stuck.
    struct State
    {
        Work work;
        std::mutex mutex;
        std::condition_variable changed;
        QList<Item> queue;
        qsizetype queuedSize = 0;
        qsizetype largeBatch = 0;
        qint64 dropped = 0;
        bool isEnding = false;
        bool hasEnded = false;

        // Items are dropped only while others wait, so the count belongs after these.
        void run()
        {
            std::unique_lock lock(mutex);
            while (true) {
                changed.wait(lock, [this] { return isEnding || !queue.isEmpty(); });
                if (queue.isEmpty())
                    break;
                changed.wait_for(lock, kGatherTime,
                                 [this] { return isEnding || queuedSize >= largeBatch; });
                const QList<Item> items = std::exchange(queue, {});
                const qint64 droppedAfter = std::exchange(dropped, 0);
                queuedSize = 0;
                lock.unlock();
                const qint64 lost = work(items, droppedAfter);
                lock.lock();
                dropped += lost;
            }
            lock.unlock();
            // What the function holds may have to be closed, which takes its time too.
            work = {};
            lock.lock();
            hasEnded = true;
            changed.notify_all();
        }
    };

    const std::shared_ptr<State> m_state;
    const qsizetype m_limit;
    const std::chrono::milliseconds m_ending;
    std::thread m_thread;
};

} // namespace Brix
