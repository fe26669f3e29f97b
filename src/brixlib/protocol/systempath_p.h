// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QFile>
#include <QtCore/QString>

#include <filesystem>

namespace Talverine {

/*!
 * \a path for the standard library. Encoded by Qt: the library itself throws at text that is no
 * valid UTF-16, which a peer may well send.
 */
inline std::filesystem::path systemPath(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    return reinterpret_cast<const char8_t *>(name.constData());
}

} // namespace Talverine
