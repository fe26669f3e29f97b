// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/database/records/sdbrecord.h>

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>

#include <limits>

namespace Fuzz {

//! A record of a database file, and where its key line begins.
struct PlainRecord
{
    qint64 position = 0;
    QString key;
    Talverine::SDBRecord record;

    bool operator==(const PlainRecord &other) const = default;
};

/*!
 * The records of a database \a file that are not deleted, read with care for neither time nor
 * memory: what the reader at work is compared with. The lines behind the key line that give fields
 * values have at most \a recordLimit bytes together; the record ends before a line that has more.
 */
QList<PlainRecord> plainRecords(const QByteArray &file, const QString &keyName,
                                qint64 recordLimit = std::numeric_limits<qint64>::max());

/*!
 * Whether \a name begins with a byte order mark. Lines lose theirs when they are read, so that such
 * a name has one mark less each time it is written and read.
 */
bool isMarked(const QString &name);
bool hasMarkedName(const Talverine::SDBRecord &record);

} // namespace Fuzz
