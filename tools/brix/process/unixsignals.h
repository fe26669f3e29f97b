// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <vector>

namespace Brix {

/*!
 * Turns signals of a Unix system into calls in the event loop of the thread that made the instance.
 *
 * Thread: in each program one instance at a time for each signal.
 */
class UnixSignals final
{
public:
    enum class Catch {
        Once, //!< the second signal of a kind finds the default action
        Always,
    };

    UnixSignals(const std::vector<int> &signals, Catch how, const std::function<void()> &arrived);
    //! The signals do again what they did before.
    ~UnixSignals();

private:
    std::unique_ptr<class UnixSignalsPrivate> d;
};

} // namespace Brix
