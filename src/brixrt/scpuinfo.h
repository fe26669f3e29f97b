// SPDX-License-Identifier: MIT
#pragma once

#include <brixrt/brixrt_export.h>

#include <QtCore/QtGlobal>

namespace Talverine {

//! Features of a processor as a set; <brixlib/enums/cpufeatureflags.h> declares the flags.
enum class CpuFeatureFlags : quint64;

/*!
 * The processors of this machine. The answers are found once and then kept; every operation may be
 * called from any thread.
 */
class BRIXRT_EXPORT SCpuInfo
{
public:
    SCpuInfo() = default;

    //! Number of threads that run at a time on this machine; at least 1.
    static int idealThreadCount();
    //! True when one core runs several threads at a time.
    static bool isMultiThreadingEnabled();
    //! Threads that one core runs at a time, the largest number of any core; at least 1.
    static int threadsPerCore();
    //! What the processor and the operating system together offer to a program.
    static CpuFeatureFlags features();
};

} // namespace Talverine
