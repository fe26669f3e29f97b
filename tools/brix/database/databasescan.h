// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/database/records/sdbrecord.h>

#include <QtCore/QFile>
#include <QtCore/QString>

namespace Brix {

//! A record as it lies in the file.
struct ScannedRecord
{
    QString key;
    qint64 line = 0;     //!< of its key, counted from 1
    qint64 position = 0; //!< of its key line in the file
    qint64 bytes = 0;    //!< from its key line up to the next one, or to the end
    bool isDeleted = false;
    Talverine::SDBRecord record; //!< empty when it is deleted
};

/*!
 * Reads the records of a database file in their order, deleted ones and those of the same key too,
 * and knows where each stands. Holds one record.
 *
 * Lives in one thread.
 */
class DatabaseScan final
{
public:
    //! Begins at \a position, where a line begins; lines are counted from there. Throws Failure
    //! when the file cannot be read.
    DatabaseScan(const QString &file, const QString &keyName, qint64 position = 0);

    //! The next record; false at the end. Throws Failure.
    bool next(ScannedRecord *record);

    //! Of what has been read: the whole file, at the end.
    qint64 bytes() const { return m_end; }
    //! Behind the last line that has its end.
    qint64 wholeBytes() const { return m_wholeEnd; }
    qint64 line() const { return m_line; }
    //! The field of the last line that is not blank; empty when that is of none.
    QString lastName() const { return m_lastName; }
    //! Whether the last line had its end.
    bool isLineWhole() const { return m_isLineWhole; }

private:
    bool readLine();
    bool readKeyLine();

    QFile m_file;
    QString m_keyName;
    Talverine::SDBField m_field; // of the last line
    bool m_isKeyLine = false;    // the last line begins the next record
    bool m_isLineWhole = true;
    QString m_lastName;
    qint64 m_line = 0;
    qint64 m_begin = 0;
    qint64 m_end = 0;
    qint64 m_wholeEnd = 0;
};

} // namespace Brix
