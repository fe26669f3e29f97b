// SPDX-License-Identifier: MIT
#pragma once

#include <cli/failure.h>

#include <QtCore/QObject>

#include <atomic>
#include <chrono>
#include <memory>

namespace Brix {

/*!
 * Turns the first Ctrl-C or SIGTERM, or the end of a time limit, into a signal in the event loop,
 * so that work can end cleanly. A second Ctrl-C or SIGTERM ends the program at once.
 *
 * Thread: one instance at a time, in the main thread.
 */
class Interruption final : public QObject
{
    Q_OBJECT

public:
    Interruption();
    //! The signals do again what they did before.
    ~Interruption() override;

    //! Requests the interruption after \a limit.
    void limitTime(std::chrono::seconds limit);

    //! From any thread.
    bool isRequested() const { return m_requested; }
    //! What the work that was interrupted fails with. From any thread.
    Failure failure() const;
    //! Ends the program without waiting for the work.
    [[noreturn]] void endProgram() const;

Q_SIGNALS:
    void requested();

private:
    void request();

    std::chrono::seconds m_limit{0};
    std::atomic_bool m_isTimeOver = false;
    std::atomic_bool m_requested = false;
    std::unique_ptr<class InterruptionPrivate> d;
    friend class InterruptionPrivate;
};

} // namespace Brix
