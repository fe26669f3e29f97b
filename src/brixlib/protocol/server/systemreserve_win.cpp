// SPDX-License-Identifier: MIT
#include "systemreserve_p.h"

#include <QtCore/QScopeGuard>

#include <cstdlib>

namespace Talverine::SystemReserve {

bool hasDescriptors(qint64, int)
{
    return true;
}

bool hasMemory(qint64 bytes)
{
    void *volatile block = std::malloc(static_cast<std::size_t>(bytes));
    const auto release = qScopeGuard([block] { std::free(block); });
    return block != nullptr;
}

void releaseFreeMemory() {}

} // namespace Talverine::SystemReserve
