// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtNumeric>

#include <limits>

//! Arithmetic that stops at the ends of the range, for numbers that callers choose freely.
namespace Talverine::Saturated {

inline qint64 end(bool negative)
{
    return negative ? std::numeric_limits<qint64>::min() : std::numeric_limits<qint64>::max();
}

inline qint64 sum(qint64 a, qint64 b)
{
    qint64 result;
    return qAddOverflow(a, b, &result) ? end(a < 0) : result;
}

inline qint64 difference(qint64 a, qint64 b)
{
    qint64 result;
    return qSubOverflow(a, b, &result) ? end(a < 0) : result;
}

inline qint64 product(qint64 a, qint64 b)
{
    qint64 result;
    return qMulOverflow(a, b, &result) ? end((a < 0) != (b < 0)) : result;
}

} // namespace Talverine::Saturated
