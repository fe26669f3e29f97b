// SPDX-License-Identifier: MIT
#include <brixlib/database/temporarydatabase_p.h>

#include <brixrt/senvironment.h>
#include <brixrt/sfilehelper.h>

#include <QtCore/QFile>

namespace Talverine {

namespace {

constexpr QLatin1String kSuffixes[] = {QLatin1String(), QLatin1String(".srec"),
                                       QLatin1String(".idx"), QLatin1String(".lck")};

} // namespace

TemporaryDatabase::TemporaryDatabase()
    : m_path(SEnvironment::tempUniqueFileName(SEnvironment::tempFolder(true)))
{
    for (const QString &file : files())
        SFileHelper::deleteFileOnExit(file);
}

TemporaryDatabase::~TemporaryDatabase()
{
    for (const QString &file : files())
        QFile::remove(file);
}

QStringList TemporaryDatabase::files() const
{
    QStringList names;
    // Without a path these would be files of the current folder.
    if (m_path.isEmpty())
        return names;
    for (const QLatin1String suffix : kSuffixes)
        names.append(m_path + suffix);
    return names;
}

} // namespace Talverine
