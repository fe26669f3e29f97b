// SPDX-License-Identifier: MIT
#include "scpuinfo_p.h"

#include <QtCore/qprocessordetection.h>

namespace Talverine::CpuPlatform {

// A processor that is no relative of x86 is not asked. What its programs are built for is there.
quint64 features()
{
#ifdef Q_PROCESSOR_ARM_64
    return CpuFeatureBits::NEON;
#else
    return 0;
#endif
}

} // namespace Talverine::CpuPlatform
