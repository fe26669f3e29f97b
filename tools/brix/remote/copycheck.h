// SPDX-License-Identifier: MIT
#pragma once

#include "session.h"

#include <QtCore/QList>
#include <QtCore/QString>

#include <optional>

namespace Brix {

/*!
 * Compares a copy that a server has made with its source, by the names and sizes in the server's
 * own listings: a server that has no descriptors left says that it has copied what it could not
 * open.
 *
 *     CopyCheck check(session, from, to);
 *     check.noteFile();
 *     … let the server copy …
 *     check.compareFile();
 *
 * Thread: lives in the thread of the session.
 */
class CopyCheck final
{
public:
    //! Both are paths on the server.
    CopyCheck(Session &session, const QString &from, const QString &to);

    //! Reads the size of the source file; throws Failure.
    void noteFile();
    //! Throws Failure unless the copy is there with the size that the source has or had.
    void compareFile();

    //! Reads the sizes of all files below the source directory; throws Failure.
    void noteTree();
    //! Throws Failure unless each of these files is below the target directory.
    void compareTree();

private:
    struct File
    {
        QString name;
        qint64 size = 0;
    };
    struct Directory
    {
        QString path; // from the source directory
        QList<File> files;
    };

    void noteDirectory(const QString &path, int depth);
    void compareDirectory(const Directory &directory);
    std::optional<File> listed(const QString &path);
    void compare(const QString &source, qint64 sizeBefore, const std::optional<File> &copy);

    Session &m_session;
    const QString m_from;
    const QString m_to;
    qint64 m_size = 0;
    QList<Directory> m_directories;
};

} // namespace Brix
