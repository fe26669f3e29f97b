// SPDX-License-Identifier: MIT
#include "descriptorlimit.h"

namespace Brix::DescriptorLimit {

// Sockets are no descriptors of the C library there, and only memory limits them.
std::optional<qint64> raise()
{
    return std::nullopt;
}

} // namespace Brix::DescriptorLimit
