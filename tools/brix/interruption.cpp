// SPDX-License-Identifier: MIT
#include "interruption.h"

// How the signals are caught stands in interruption_unix.cpp and interruption_win.cpp.
namespace Brix {

void Interruption::request()
{
    m_requested = true;
    Q_EMIT requested();
}

} // namespace Brix

#include "moc_interruption.cpp"
