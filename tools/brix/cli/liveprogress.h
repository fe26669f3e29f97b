// SPDX-License-Identifier: MIT
#pragma once

#include "progressbar.h"

#include <QtCore/QTimer>

#include <atomic>

namespace Brix {

/*!
 * A progress bar for work in another thread, which counts here what it has done.
 *
 * Thread: made and destroyed in the main thread, whose events go on; the counts from any.
 */
class LiveProgress final
{
public:
    //! Shows nothing at all with \a hidden.
    explicit LiveProgress(bool hidden)
        : m_bar(hidden)
    {
        QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] {
            m_bar.setTotal(total);
            m_bar.show(done);
        });
        m_timer.start(kRedrawMilliseconds);
    }

    std::atomic<qint64> done = 0;  //!< bytes
    std::atomic<qint64> total = 0; //!< bytes; 0 when it is unknown

private:
    static constexpr int kRedrawMilliseconds = 100;

    ProgressBar m_bar;
    QTimer m_timer;
};

} // namespace Brix
