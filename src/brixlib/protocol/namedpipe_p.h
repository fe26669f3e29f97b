// SPDX-License-Identifier: MIT
#pragma once

#include "systempath_p.h"

namespace Talverine {

/*!
 * Whether \a path leads to a named pipe. Who opens one waits until somebody opens its other end,
 * which may be never, and nothing but that ends the wait.
 */
inline bool isNamedPipe(const QString &path)
{
    std::error_code error;
    return std::filesystem::is_fifo(systemPath(path), error);
}

} // namespace Talverine
