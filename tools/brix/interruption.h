// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QObject>

#include <memory>

namespace Brix {

/*!
 * Turns the first Ctrl-C or SIGTERM into a signal in the event loop, so that work can end cleanly.
 * A second one ends the program at once.
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

    bool isRequested() const { return m_requested; }

Q_SIGNALS:
    void requested();

private:
    void request();

    bool m_requested = false;
    std::unique_ptr<class InterruptionPrivate> d;
    friend class InterruptionPrivate;
};

} // namespace Brix
