// SPDX-License-Identifier: MIT
// What replaces the content of a database or a log, each as a piece of work that can be stopped at
// any system call, and what must be there afterwards.
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <functional>

//! The files of a piece of work, by their names in its directory.
using Files = QMap<QString, QByteArray>;

struct DatabaseWork
{
    QString name;
    //! Makes the files for a work on so many records.
    std::function<Files(int records)> prepare;
    /*!
     * Does the work in a directory with these files. Calls \a begin when all is open that is to be
     * open before, and \a end as soon as it is done. Returns whether it says that it succeeded.
     */
    std::function<bool(const QString &directory, const std::function<void()> &begin,
                       const std::function<void()> &end)>
        run;
    /*!
     * Opens what is left, as the next program does, and uses it. Returns what is wrong with it, or
     * nothing; sets \a isNew if the work was done.
     */
    std::function<QString(const QString &directory, const Files &before, bool *isNew)> check;
};

const QList<DatabaseWork> &databaseWorks();
const DatabaseWork *databaseWork(const QString &name);

//! A template for temporary directories, in memory where there is such a place: kills and failures
//! are the same there, and flushing takes no time.
QString scratchTemplate();

bool writeFiles(const QString &directory, const Files &files);
