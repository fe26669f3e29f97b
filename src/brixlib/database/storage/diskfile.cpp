// SPDX-License-Identifier: MIT
// What is the same on every system.
#include "diskfile_p.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <filesystem>
#include <system_error>

namespace Talverine {

namespace {

// By Qt: the standard library throws at text that is no valid UTF-16.
std::filesystem::path encoded(const QString &name)
{
    const QByteArray bytes = QFile::encodeName(name);
    return reinterpret_cast<const char8_t *>(bytes.constData());
}

} // namespace

bool DiskFile::sync(const QString &fileName)
{
    if (!QFileInfo(fileName).isFile())
        return true;
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) && sync(&file);
}

// QFile::rename() never replaces a file.
bool DiskFile::moveOver(const QString &from, const QString &to)
{
    std::error_code error;
    std::filesystem::rename(encoded(from), encoded(to), error);
    return !error;
}

} // namespace Talverine
