// SPDX-License-Identifier: MIT
#include "hangupsignal.h"

namespace Brix {

class HangupSignalPrivate final
{
};

HangupSignal::HangupSignal(const std::function<void()> &) {}

HangupSignal::~HangupSignal() = default;

} // namespace Brix
