// SPDX-License-Identifier: MIT
#pragma once

#include "systempath_p.h"

#include <QtCore/QDirIterator>
#include <QtCore/QFileInfo>
#include <QtCore/QSet>
#include <QtCore/QString>

#include <algorithm>

namespace Talverine {

/*!
 * Whether a directory in which Qt has found nothing has something in it or cannot be read. Qt takes
 * a directory that cannot be opened for an empty one. Returns false for what is missing and for
 * what is no directory.
 */
inline bool isUnreadDirectory(const QString &directory)
{
    std::error_code error;
    const std::filesystem::directory_iterator entries(systemPath(directory), error);
    if (error)
        return error != std::errc::no_such_file_or_directory && error != std::errc::not_a_directory;
    return entries != std::filesystem::directory_iterator();
}

/*!
 * Notes the entries of a walk by QDirIterator with the same root and flags, to find the directories
 * that the walk could not read.
 *
 * Thread: a value; one thread at a time.
 */
class DirectoryWalk
{
public:
    DirectoryWalk(const QString &root, QDirIterator::IteratorFlags flags)
        : m_seeminglyEmpty({root})
        , m_isRecursive(flags.testFlag(QDirIterator::Subdirectories))
    {
    }

    void add(const QFileInfo &entry)
    {
        // Each directory that is opened lists itself, which keeps the set small.
        m_seeminglyEmpty.remove(entry.path());
        if (entry.fileName() == QLatin1String(".") || entry.fileName() == QLatin1String(".."))
            return;
        if (m_isRecursive && entry.isDir() && !entry.isSymLink())
            m_seeminglyEmpty.insert(entry.filePath());
    }

    //! Whether something was left out of the walk, which has ended.
    bool hasUnread() const
    {
        return std::any_of(m_seeminglyEmpty.begin(), m_seeminglyEmpty.end(), isUnreadDirectory);
    }

private:
    QSet<QString> m_seeminglyEmpty;
    bool m_isRecursive;
};

} // namespace Talverine
