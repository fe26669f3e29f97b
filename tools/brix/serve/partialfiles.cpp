// SPDX-License-Identifier: MIT
#include "partialfiles.h"

#include <QtCore/QDirIterator>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>

namespace Brix::PartialFiles {

using namespace Qt::StringLiterals;

bool isName(const QString &name)
{
    static const QRegularExpression form(
        u"\\A[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}\\.part\\z"_s);
    return form.match(name).hasMatch();
}

Removal removeOlderThan(const QDateTime &time, const QString &directory)
{
    Removal removal;
    QDirIterator it(directory, QDir::Files | QDir::Hidden | QDir::System | QDir::NoSymLinks,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QFileInfo file(path);
        if (!isName(file.fileName()) || !file.isFile() || file.isSymLink() ||
            !(file.lastModified() < time))
            continue;
        const qint64 bytes = file.size();
        if (!QFile::remove(path)) {
            removal.kept.append(path);
            continue;
        }
        ++removal.files;
        removal.bytes += bytes;
    }
    return removal;
}

} // namespace Brix::PartialFiles
