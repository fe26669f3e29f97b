// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/database/databasespecialrecordfield.h>
#include <brixlib/database/dbauthgrants.h>
#include <brixlib/database/records/sdbrecord.h>

#include <QtCore/QLocale>
#include <QtCore/QString>

class QIODevice;

namespace Talverine {

//! What the special record at the beginning of a database says of it.
struct DatabaseHead
{
    QString key; //!< name of the records' key field
    QString owner;
    QString passwd; //!< hash of the owner's password; empty when nobody owns the database
    DBAuthGrants grants = DBAuthGrants::All;
    QString version;
    QLocale culture;

    bool operator==(const DatabaseHead &other) const = default;

    //! Unsigned.
    SDBRecord toRecord() const;
    //! What is missing gets its default; the grants that nobody knows are none.
    static DatabaseHead fromRecord(const SDBRecord &record);

    //! Whether readSpecialRecord() would read all of it again: it has a limit.
    [[nodiscard]] bool isReadable() const;
    //! Writes all that stands before the records.
    [[nodiscard]] bool write(QIODevice *device) const;
};

//! The special record of a file, read from its beginning; empty when there is none. \a hasEnd
//! tells whether a line ends it, and not the file.
SDBRecord readSpecialRecord(QIODevice *device, bool *hasEnd = nullptr);

//! What stands between the special record and the records.
QByteArray headEnd();

//! The name in the file of a field of the special record.
QString specialFieldName(DatabaseSpecialRecordField field);

} // namespace Talverine
