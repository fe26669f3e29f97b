// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandfile.h>

#include <QtCore/QFileInfo>

namespace Talverine {

namespace {

// No file has a zero in its name, and QFileInfo warns of such a one.
qint64 localSize(const QString &fileName)
{
    return fileName.isEmpty() || fileName.contains(QChar::Null) ? 0 : QFileInfo(fileName).size();
}

// Which fields a version of the form has, alike for reading and writing.
bool hasSize(int version)
{
    return version < Wire::kSinceRawSize;
}

bool hasTarget(int version)
{
    return version > Wire::version(1, 1, 0);
}

bool hasRemoveFile(int version)
{
    return version > Wire::version(1, 0, 0);
}

} // namespace

void SCommandFile::init(const SCommandId &id, const QString &fileName,
                        const QString &targetFileName, bool removeFile, int version)
{
    setId(id);
    setVersion(version);
    setFileName(fileName, true);
    m_targetFileName = targetFileName;
    m_removeFile = removeFile;
}

void SCommandFile::setFileName(const QString &fileName, bool updateSize)
{
    m_fileName = fileName;
    if (updateSize)
        m_fileSize = localSize(fileName);
}

QString SCommandFile::targetFileName() const
{
    return m_targetFileName.isEmpty() ? QFileInfo(m_fileName).fileName() : m_targetFileName;
}

void SCommandFile::clear()
{
    m_fileSize = 0;
    m_fileName.clear();
    m_targetFileName.clear();
    m_removeFile = false;
}

void SCommandFile::readFields(QDataStream &stream)
{
    if (hasSize(version()))
        stream >> m_fileSize;
    stream >> m_fileName;
    if (hasTarget(version()))
        stream >> m_targetFileName;
    if (hasRemoveFile(version()))
        stream >> m_removeFile;
}

void SCommandFile::writeFields(QDataStream &stream) const
{
    if (hasSize(version()))
        stream << m_fileSize;
    stream << m_fileName;
    if (hasTarget(version()))
        stream << targetFileName();
    if (hasRemoveFile(version()))
        stream << m_removeFile;
}

} // namespace Talverine
