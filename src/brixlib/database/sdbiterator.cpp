// SPDX-License-Identifier: MIT
#include <brixlib/database/sdbiterator.h>

#include <brixlib/database/isdatabase.h>

namespace Talverine {

SDBIterator::SDBIterator(Interfaces::ISDatabase &database, const SDBRecord &record)
    : m_database(&database)
    , m_record(record)
    , m_keyName(database.key())
{
}

SDBIterator &SDBIterator::operator++()
{
    next(m_record);
    return *this;
}

SDBIterator SDBIterator::operator++(int)
{
    SDBIterator before(*this);
    ++*this;
    return before;
}

SDBIterator &SDBIterator::operator--()
{
    previous(m_record);
    return *this;
}

SDBIterator SDBIterator::operator--(int)
{
    SDBIterator before(*this);
    --*this;
    return before;
}

SDBIterator &SDBIterator::operator+=(int count)
{
    for (; count > 0; --count)
        ++*this;
    return *this;
}

SDBIterator &SDBIterator::operator-=(int count)
{
    for (; count > 0; --count)
        --*this;
    return *this;
}

SDBIterator SDBIterator::operator+(int count) const
{
    SDBIterator result(*this);
    result += count;
    return result;
}

SDBIterator SDBIterator::operator-(int count) const
{
    SDBIterator result(*this);
    result -= count;
    return result;
}

// A database that refuses to be read leaves the record alone. A loop that stayed on it would have
// no end.
bool SDBIterator::next(SDBRecord &record)
{
    if (m_database && m_database->next(recordKey(), record))
        return true;
    record.clear();
    return false;
}

bool SDBIterator::previous(SDBRecord &record)
{
    if (m_database && m_database->previous(recordKey(), record))
        return true;
    record.clear();
    return false;
}

QString SDBIterator::recordKey() const
{
    return m_record.field(m_keyName).toString(true, m_database->culture());
}

} // namespace Talverine
