// SPDX-License-Identifier: MIT
// Small logs in a folder of their own, and what is in them and their backups.
#pragma once

#include "sampledatabase.h"

#include <brixlib/database/log/slogger.h>

#include <QtCore/QDir>

namespace Talverine::Sample {

//! Limits under which a rotation is about keepLogs and maxLogs alone.
inline constexpr RotateParameters kSmall{.maxLogs = 10, .keepLogs = 5, .maxBytes = 1 << 30};
//! Limits that no test comes to.
inline constexpr RotateParameters kLarge{.maxLogs = 100000, .keepLogs = 300, .maxBytes = 1 << 30};

//! A folder with the path of a log that is not made yet.
struct LogPlace
{
    QTemporaryDir folder;
    QString file = folder.filePath(u"machine.log"_s);

    QString backup(int number) const { return folder.filePath(u"machine.B0%1"_s.arg(number)); }
    //! The numbers of the backups that are there.
    QList<int> backups() const
    {
        QList<int> numbers;
        for (int number = 0; number < 10; ++number) {
            if (QFile::exists(backup(number)))
                numbers.append(number);
        }
        return numbers;
    }
};

//! Identifiers "e1", "e2" …
inline QStringList numbered(int first, int last)
{
    QStringList ids;
    for (int number = first; number <= last; ++number)
        ids.append(u"e%1"_s.arg(number));
    return ids;
}

//! A date of the year 2024, later for a greater number.
inline qint64 dateOf(int minute)
{
    constexpr qint64 kTicksPerMinute = 600'000'000;
    constexpr qint64 kYear2024 = 0x48DC0A5C9900C000; // UTC
    return kYear2024 + minute * kTicksPerMinute;
}

inline SDBRecord dated(int minute)
{
    SDBRecord record;
    record.insert(SLogger::logDate(), dateOf(minute));
    return record;
}

//! Appends entries "e1" … with dates of their own, which are in the same order.
inline bool appendNumbered(SLogger &log, int first, int last)
{
    for (int number = first; number <= last; ++number) {
        if (!log.append(u"e%1"_s.arg(number), dated(number)))
            return false;
    }
    return true;
}

//! The identifiers in the order of the log.
inline QStringList idsOf(SLogger &log)
{
    QStringList ids;
    for (SDBIterator entry = log.begin(); !entry->isEmpty(); ++entry)
        ids.append(entry->value(SLogger::logId()).toString());
    return ids;
}

//! The identifiers in a database file, read without a logger; null when it can't be opened.
inline QStringList idsIn(const QString &fileName)
{
    SDBText database;
    if (!database.open(fileName))
        return {u"(not a database)"_s};
    QStringList ids;
    SDBRecord record;
    for (bool more = database.first(record); more;) {
        ids.append(record.value(SLogger::logId()).toString());
        more = database.next(record.value(database.key()).toString(), record);
    }
    return ids;
}

} // namespace Talverine::Sample
