// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/spartialfilemanager.h>

#include <brixlib/protocol/systempath_p.h>

#include <QtCore/QDebug>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <algorithm>

namespace Talverine {

using namespace Qt::StringLiterals;

namespace {

// The characters that some file systems refuse in a name.
QString cleaned(QString fileName)
{
    constexpr QStringView refused = u"?<>*|\"";
    std::replace_if(
        fileName.begin(), fileName.end(), [&](QChar c) { return refused.contains(c); }, u'_');
    return fileName;
}

// Replaces an older file in one step: QFile::rename() replaces nothing, and a reader that comes
// after its removal finds no file.
bool moveOver(const QString &from, const QString &to)
{
    std::error_code error;
    std::filesystem::rename(systemPath(from), systemPath(to), error);
    // Qt copies what the system cannot rename. It leaves alone what has the name.
    return !error || QFile::rename(from, to);
}

} // namespace

SPartialFileManager::SPartialFileManager(const QString &fileName, bool deleteIncompleteFile)
    : m_fileName(cleaned(fileName))
    , m_uuid(QUuid::createUuid())
    , m_deleteIncompleteFile(deleteIncompleteFile)
{
    if (m_fileName != fileName) {
        qDebug() << "SPartialFileManager: Wrong file name detected! Trying to fix it!" << fileName;
    }
}

SPartialFileManager::SPartialFileManager(const SPartialFileManager &other) = default;
SPartialFileManager &SPartialFileManager::operator=(const SPartialFileManager &other) = default;

SPartialFileManager::~SPartialFileManager()
{
    if (m_deleteIncompleteFile && !m_completed)
        QFile::remove(fileName(false));
}

bool SPartialFileManager::operator==(const SPartialFileManager &other) const
{
    return m_fileName == other.m_fileName && m_uuid == other.m_uuid &&
           m_deleteIncompleteFile == other.m_deleteIncompleteFile &&
           m_completed == other.m_completed;
}

bool SPartialFileManager::operator!=(const SPartialFileManager &other) const
{
    return !(*this == other);
}

QString SPartialFileManager::fileName(bool final) const
{
    if (final || m_completed)
        return m_fileName;
    return u"%1/%2.part"_s.arg(QFileInfo(m_fileName).path(), m_uuid.toString(QUuid::WithoutBraces));
}

bool SPartialFileManager::deleteIncompleteFile() const
{
    return m_deleteIncompleteFile;
}

bool SPartialFileManager::complete()
{
    if (m_completed)
        return QFile::exists(m_fileName);
    m_completed = moveOver(fileName(false), m_fileName);
    return m_completed;
}

bool SPartialFileManager::isCompleted() const
{
    return m_completed;
}

} // namespace Talverine
