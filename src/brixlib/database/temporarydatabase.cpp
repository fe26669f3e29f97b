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
    for (const QLatin1String suffix : kSuffixes)
        SFileHelper::deleteFileOnExit(m_path + suffix);
}

TemporaryDatabase::~TemporaryDatabase()
{
    for (const QLatin1String suffix : kSuffixes)
        QFile::remove(m_path + suffix);
}

} // namespace Talverine
