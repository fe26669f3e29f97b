// SPDX-License-Identifier: MIT
#include <brixlib/foundation/scontexthelper.h>

#include <atomic>

namespace Talverine {

// Ids are never given back, so the largest one stands for the list of all.
quint32 SContextHelper::newContextId()
{
    static std::atomic<quint32> largest = 0;
    return ++largest;
}

} // namespace Talverine
