// SPDX-License-Identifier: MIT
#include "scpuinfo_p.h"

#include <sys/sysctl.h>

namespace Talverine::CpuPlatform {

namespace {

int number(const char *name)
{
    int value = 0;
    std::size_t bytes = sizeof value;
    return ::sysctlbyname(name, &value, &bytes, nullptr, 0) == 0 ? value : 0;
}

} // namespace

int threadsPerCore()
{
    const int cores = number("hw.physicalcpu");
    return cores > 0 ? number("hw.logicalcpu") / cores : 1;
}

} // namespace Talverine::CpuPlatform
