// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

/*!
 * A place where one thread is held up until another lets it go, or its patience is over. Every
 * member may be called from any thread.
 */
class StallGate final
{
public:
    //! Waits for release(), which may have come before; no longer than \a patience.
    void hold(std::chrono::milliseconds patience)
    {
        std::unique_lock lock(m_mutex);
        m_isHolding = true;
        m_changed.notify_all();
        m_changed.wait_for(lock, patience, [this] { return m_isReleased; });
        m_isHolding = false;
    }

    void release()
    {
        const std::lock_guard lock(m_mutex);
        m_isReleased = true;
        m_changed.notify_all();
    }

    //! Waits until a thread is held up; false when that does not come in time.
    [[nodiscard]] bool waitForHold(std::chrono::milliseconds patience)
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, patience, [this] { return m_isHolding; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isHolding = false;
    bool m_isReleased = false;
};
