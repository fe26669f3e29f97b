// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/database/records/sdbrecord.h>

#include <QtCore/QString>

namespace Talverine {

namespace Interfaces {
class ISDatabase;
}

/*!
 * Walks through a database in the order of its keys. It holds a copy of its record; the record at
 * an end is empty, and going on from there starts over at the other end.
 *
 *     for (SDBIterator it = database.begin(); it != database.end(); ++it)
 *         print(it->value("name"));
 *
 * The database must outlive it. When its record has been removed meanwhile, ++ comes to the end and
 * -- to the last record; when the user may no longer read, either comes to the end. Lives in one
 * thread.
 */
class BRIXLIB_EXPORT SDBIterator
{
public:
    //! Of no database: it stays where it is.
    SDBIterator() = default;
    SDBIterator(Interfaces::ISDatabase &database, const SDBRecord &record);

    //! Whether both are on equal records of the same database.
    friend bool operator==(const SDBIterator &a, const SDBIterator &b)
    {
        return &a == &b || (a.m_database == b.m_database && a.m_record == b.m_record);
    }
    friend bool operator!=(const SDBIterator &a, const SDBIterator &b) { return !(a == b); }

    const SDBRecord &operator*() const { return m_record; }
    const SDBRecord *operator->() const { return &m_record; }

    SDBIterator &operator++();
    SDBIterator operator++(int);
    SDBIterator &operator--();
    SDBIterator operator--(int);
    //! So many steps; none for a count below 1.
    SDBIterator &operator+=(int count);
    SDBIterator &operator-=(int count);
    SDBIterator operator+(int count) const;
    SDBIterator operator-(int count) const;

protected:
    //! Brings \a record to the neighbour of the current one; false at the end, where it becomes
    //! empty.
    bool next(SDBRecord &record);
    bool previous(SDBRecord &record);

private:
    QString recordKey() const;

    Interfaces::ISDatabase *m_database = nullptr;
    SDBRecord m_record;
    QString m_keyName;
};

} // namespace Talverine
