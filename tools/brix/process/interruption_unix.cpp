// SPDX-License-Identifier: MIT
#include "interruption.h"
#include "unixsignals.h"

#include <csignal>

namespace Brix {

class InterruptionPrivate final
{
public:
    // The second signal ends the program.
    explicit InterruptionPrivate(Interruption *q)
        : m_signals({SIGINT, SIGTERM}, UnixSignals::Catch::Once, [q] { q->request(); })
    {
    }

private:
    const UnixSignals m_signals;
};

Interruption::Interruption()
    : d(std::make_unique<InterruptionPrivate>(this))
{
}

Interruption::~Interruption() = default;

} // namespace Brix
