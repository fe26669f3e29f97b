// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>

namespace Brix {

/*!
 * Calls a function in the event loop at each SIGHUP, by which an operator asks a server to read its
 * files again. Without such a signal on the platform, it never does.
 *
 * Thread: one instance at a time, in the main thread.
 */
class HangupSignal final
{
public:
    explicit HangupSignal(const std::function<void()> &arrived);
    ~HangupSignal();

private:
    std::unique_ptr<class HangupSignalPrivate> d;
};

} // namespace Brix
