// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Talverine {

/*!
 * A place for a database file that lasts as long as this object does, or till the program's end if
 * that comes before. Close the database first.
 *
 * A program that is killed leaves the file. So that it can be found, a note names it meanwhile.
 */
class TemporaryDatabase
{
public:
    //! \a note is a file name that only one such object uses at a time. None is
    //! written without one.
    explicit TemporaryDatabase(const QString &note);
    //! Removes the file, what a database puts beside it, and the note.
    ~TemporaryDatabase();
    Q_DISABLE_COPY_MOVE(TemporaryDatabase)

    //! A path in the process's temporary directory where nothing is at first; empty when that
    //! directory can't be made.
    QString path() const { return m_path; }

    //! Removes the database that a killed program has left and that \a note names, and the note.
    //! Leaves what this program has in use.
    static void removeRemains(const QString &note);

private:
    void writeNote();

    const QString m_note;
    QString m_path;
    const QString m_usedPath;
    bool m_hasNote = false;
};

} // namespace Talverine
