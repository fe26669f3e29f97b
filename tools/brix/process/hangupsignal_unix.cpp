// SPDX-License-Identifier: MIT
#include "hangupsignal.h"
#include "unixsignals.h"

#include <csignal>

namespace Brix {

class HangupSignalPrivate final
{
public:
    explicit HangupSignalPrivate(const std::function<void()> &arrived)
        : m_signals({SIGHUP}, UnixSignals::Catch::Always, arrived)
    {
    }

private:
    const UnixSignals m_signals;
};

HangupSignal::HangupSignal(const std::function<void()> &arrived)
    : d(std::make_unique<HangupSignalPrivate>(arrived))
{
}

HangupSignal::~HangupSignal() = default;

} // namespace Brix
