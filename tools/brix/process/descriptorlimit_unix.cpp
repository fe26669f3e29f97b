// SPDX-License-Identifier: MIT
#include "descriptorlimit.h"

#include <sys/resource.h>

namespace Brix::DescriptorLimit {

std::optional<qint64> raise()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return std::nullopt;
    const rlimit raised{limit.rlim_max, limit.rlim_max};
    if (limit.rlim_cur != limit.rlim_max && setrlimit(RLIMIT_NOFILE, &raised) == 0)
        limit = raised;
    if (limit.rlim_cur == RLIM_INFINITY)
        return std::nullopt;
    return static_cast<qint64>(limit.rlim_cur);
}

} // namespace Brix::DescriptorLimit
