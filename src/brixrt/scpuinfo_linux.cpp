// SPDX-License-Identifier: MIT
#include "scpuinfo_p.h"

#include "cputopology_linux_p.h"

namespace Talverine::CpuPlatform {

int threadsPerCore()
{
    return threadsPerCore(QStringLiteral("/sys/devices/system/cpu"));
}

} // namespace Talverine::CpuPlatform
