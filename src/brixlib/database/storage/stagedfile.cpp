// SPDX-License-Identifier: MIT
#include "stagedfile_p.h"

#include "diskfile_p.h"

#include <brixrt/sfilehelper.h>

#include <QtCore/QFileInfo>

namespace Talverine {

namespace {

constexpr QLatin1String kSuffix(".brixnew");

// The file that a link leads to; the name itself where there is no file yet.
QString resolved(const QString &name)
{
    const QFileInfo file(name);
    const QString path = file.canonicalFilePath();
    return path.isEmpty() ? file.absoluteFilePath() : path;
}

} // namespace

StagedFile::StagedFile(const QString &target, const QString &stagedName)
    : m_target(stagedName.isEmpty() ? resolved(target) : target)
    , m_file(stagedName.isEmpty() ? m_target + kSuffix : stagedName)
{
}

StagedFile::~StagedFile()
{
    m_file.close();
    if (m_isOurs)
        m_file.remove();
}

bool StagedFile::open()
{
    // The remains of a killed program. NewOnly follows no link that somebody else puts there.
    QFile::remove(m_file.fileName());
    m_isOurs = m_file.open(QIODevice::WriteOnly | QIODevice::NewOnly,
                           QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    return m_isOurs;
}

bool StagedFile::sync(const QString &model)
{
    const QString accessModel = model.isEmpty() ? m_target : model;
    // Without a model, as for an open file that was removed, it stays a file for its owner alone.
    const bool hasModel = QFileInfo::exists(accessModel);
    // A program that has the target by another name, and so with another lock, would put its own
    // staged file there.
    const bool isDone =
        m_file.flush() && (!hasModel || DiskFile::copyAccess(&m_file, accessModel)) &&
        DiskFile::sync(&m_file) && SFileHelper::isSameFile(m_file, QFile(m_file.fileName()));
    m_file.close();
    return isDone;
}

bool StagedFile::putInPlace()
{
    if (!DiskFile::moveOver(m_file.fileName(), m_target))
        return false;
    m_isOurs = false;
    // The new content is in place. Should the disk forget that, it has the old one.
    static_cast<void>(DiskFile::syncEntry(m_target));
    return true;
}

void StagedFile::removeRemains(const QString &target)
{
    QFile::remove(resolved(target) + kSuffix);
}

} // namespace Talverine
