// SPDX-License-Identifier: MIT
#include "scpuinfo_p.h"

#include <algorithm>
#include <bit>
#include <memory>
#include <new>

#include <qt_windows.h>

namespace Talverine::CpuPlatform {

int threadsPerCore()
{
    DWORD bytes = 0;
    GetLogicalProcessorInformation(nullptr, &bytes);
    const std::size_t count = bytes / sizeof(SYSTEM_LOGICAL_PROCESSOR_INFORMATION);
    const std::unique_ptr<SYSTEM_LOGICAL_PROCESSOR_INFORMATION[]> entries(
        new (std::nothrow) SYSTEM_LOGICAL_PROCESSOR_INFORMATION[count]);
    if (count == 0 || !entries || !GetLogicalProcessorInformation(entries.get(), &bytes))
        return 1;
    int threads = 1;
    for (std::size_t i = 0; i < count; ++i) {
        if (entries[i].Relationship == RelationProcessorCore)
            threads = std::max(threads, std::popcount(quint64{entries[i].ProcessorMask}));
    }
    return threads;
}

} // namespace Talverine::CpuPlatform
