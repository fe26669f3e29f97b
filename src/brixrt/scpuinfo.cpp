// SPDX-License-Identifier: MIT
#include <brixrt/scpuinfo.h>

#include "scpuinfo_p.h"

#include <QtCore/QThread>

#include <algorithm>

namespace Talverine {

int SCpuInfo::idealThreadCount()
{
    return std::max(1, QThread::idealThreadCount());
}

bool SCpuInfo::isMultiThreadingEnabled()
{
    return threadsPerCore() > 1;
}

int SCpuInfo::threadsPerCore()
{
    static const int threads = std::max(1, CpuPlatform::threadsPerCore());
    return threads;
}

CpuFeatureFlags SCpuInfo::features()
{
    static const quint64 bits = CpuPlatform::features();
    return static_cast<CpuFeatureFlags>(bits);
}

} // namespace Talverine
