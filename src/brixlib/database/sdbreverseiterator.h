// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/database/sdbiterator.h>

namespace Talverine {

//! As SDBIterator, from the highest key to the lowest.
class BRIXLIB_EXPORT SDBReverseIterator : private SDBIterator
{
public:
    SDBReverseIterator() = default;
    SDBReverseIterator(Interfaces::ISDatabase &database, const SDBRecord &record);

    friend bool operator==(const SDBReverseIterator &a, const SDBReverseIterator &b)
    {
        return a.forward() == b.forward();
    }
    friend bool operator!=(const SDBReverseIterator &a, const SDBReverseIterator &b)
    {
        return !(a == b);
    }

    using SDBIterator::operator*;
    using SDBIterator::operator->;

    SDBReverseIterator &operator++();
    SDBReverseIterator operator++(int);
    SDBReverseIterator &operator--();
    SDBReverseIterator operator--(int);
    SDBReverseIterator &operator+=(int count);
    SDBReverseIterator &operator-=(int count);
    SDBReverseIterator operator+(int count) const;
    SDBReverseIterator operator-(int count) const;

protected:
    using SDBIterator::next;
    using SDBIterator::previous;

private:
    const SDBIterator &forward() const { return *this; }
};

} // namespace Talverine
