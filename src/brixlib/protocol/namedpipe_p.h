// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QFile>
#include <QtCore/QString>

#include <filesystem>

namespace Talverine {

/*!
 * Whether \a path leads to a named pipe. Who opens one waits until somebody opens its other end,
 * which may be never, and nothing but that ends the wait.
 */
inline bool isNamedPipe(const QString &path)
{
    // Encoded by Qt: the standard library throws at text that is no valid UTF-16, which a peer may
    // well send.
    const QByteArray name = QFile::encodeName(path);
    std::error_code error;
    return std::filesystem::is_fifo(reinterpret_cast<const char8_t *>(name.constData()), error);
}

} // namespace Talverine
