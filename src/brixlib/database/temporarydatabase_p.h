// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace Talverine {

/*!
 * A place for a database file that lasts as long as this object does, or till the program's end if
 * that comes before. Close the database first.
 */
class TemporaryDatabase
{
public:
    TemporaryDatabase();
    //! Removes the file and what a database puts beside it.
    ~TemporaryDatabase();
    Q_DISABLE_COPY_MOVE(TemporaryDatabase)

    //! A path in the process's temporary folder where nothing is at first; empty when that folder
    //! can't be made.
    QString path() const { return m_path; }

private:
    QStringList files() const;

    const QString m_path;
};

} // namespace Talverine
