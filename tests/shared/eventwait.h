// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QCoreApplication>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

#include <chrono>

/*!
 * Runs the calling thread's events until \a condition holds; false when \a patience is over before.
 * It looks again after each event at once, and every millisecond for what tells by no event.
 * For waits that come by the thousand, where QTest::qWaitFor() would sleep 10 ms in each.
 */
template<typename Condition>
[[nodiscard]] bool waitWithEvents(Condition condition,
                                  std::chrono::milliseconds patience = std::chrono::seconds(15))
{
    using namespace std::chrono_literals;
    const QDeadlineTimer deadline(patience);
    QTimer tick;
    tick.setTimerType(Qt::PreciseTimer);
    tick.start(1ms);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return true;
}
