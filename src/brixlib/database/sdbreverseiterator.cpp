// SPDX-License-Identifier: MIT
#include <brixlib/database/sdbreverseiterator.h>

namespace Talverine {

SDBReverseIterator::SDBReverseIterator(Interfaces::ISDatabase &database, const SDBRecord &record)
    : SDBIterator(database, record)
{
}

SDBReverseIterator &SDBReverseIterator::operator++()
{
    SDBIterator::operator--();
    return *this;
}

SDBReverseIterator SDBReverseIterator::operator++(int)
{
    SDBReverseIterator before(*this);
    ++*this;
    return before;
}

SDBReverseIterator &SDBReverseIterator::operator--()
{
    SDBIterator::operator++();
    return *this;
}

SDBReverseIterator SDBReverseIterator::operator--(int)
{
    SDBReverseIterator before(*this);
    --*this;
    return before;
}

SDBReverseIterator &SDBReverseIterator::operator+=(int count)
{
    SDBIterator::operator-=(count);
    return *this;
}

SDBReverseIterator &SDBReverseIterator::operator-=(int count)
{
    SDBIterator::operator+=(count);
    return *this;
}

SDBReverseIterator SDBReverseIterator::operator+(int count) const
{
    SDBReverseIterator result(*this);
    result += count;
    return result;
}

SDBReverseIterator SDBReverseIterator::operator-(int count) const
{
    SDBReverseIterator result(*this);
    result -= count;
    return result;
}

} // namespace Talverine
