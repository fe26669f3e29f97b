// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QMutex>

namespace Talverine {

/*!
 * Whether a worker still takes calls, for those who call it from other threads. It outlives the
 * worker, shared with whoever may call.
 *
 * To queue a call takes more than one step: Qt looks at the object, queues the call, and then wakes
 * the thread, all but the second without a lock. A worker or a thread that ended in between would
 * take away what is being looked at, and a call that is queued for an object in its destructor is
 * never taken out again. So a call is queued under the lock here, under which the end is noted too.
 *
 * Thread: fully shared.
 */
class WorkerEnd
{
public:
    //! Runs \a post, which queues a call, and holds the end up meanwhile. Does nothing after it.
    template<typename Post>
    void holdUp(const Post &post)
    {
        const QMutexLocker lock(&m_mutex);
        if (!m_noted)
            post();
    }

    //! In the worker's thread, before the worker and the thread's event loop go.
    void note()
    {
        const QMutexLocker lock(&m_mutex);
        m_noted = true;
    }

private:
    QMutex m_mutex;
    bool m_noted = false;
};

} // namespace Talverine
