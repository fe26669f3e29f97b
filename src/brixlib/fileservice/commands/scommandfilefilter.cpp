// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandfilefilter.h>

namespace Talverine {

void SCommandFileFilter::init(const SCommandId &id, const QString &path, const QString &filters,
                              const QString &targetPath, const FileFilterFlags &flags, int version)
{
    setId(id);
    setVersion(version);
    m_path = path;
    m_filters = filters;
    m_targetPath = targetPath;
    m_flags = flags;
}

void SCommandFileFilter::clear()
{
    m_path.clear();
    m_filters.clear();
    m_targetPath.clear();
    m_flags = FileFilterFlags::None;
}

void SCommandFileFilter::readFields(QDataStream &stream)
{
    quint32 flags = 0;
    stream >> m_path >> m_filters >> m_targetPath >> flags;
    m_flags = static_cast<FileFilterFlags>(flags);
}

void SCommandFileFilter::writeFields(QDataStream &stream) const
{
    stream << m_path << m_filters << m_targetPath << static_cast<quint32>(m_flags);
}

} // namespace Talverine
