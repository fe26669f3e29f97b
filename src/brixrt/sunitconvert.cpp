// SPDX-License-Identifier: MIT
#include <brixrt/sunitconvert.h>

#include <cmath>
#include <limits>

namespace Talverine {

namespace {

// An inch is 254 units of 10^-4 m: whole numbers up to the one division keep results exact.
constexpr double kInch = 254;
constexpr int kInchExponent = -4;

// Powers of ten are exact up to 10^22, their inverses never are: hence the division.
double scaled(double value, int exponent)
{
    return exponent < 0 ? value / std::pow(10, -exponent) : value * std::pow(10, exponent);
}

} // namespace

qint64 SUnitConvert::toBytes(int count, BinaryUnit unit)
{
    // The largest qint64 itself is no double, the power of two behind it is. A shift of 64 or more
    // does not fit an integer.
    const double limit = std::ldexp(1, 63);
    const double bytes = std::ldexp(count, static_cast<int>(unit));
    if (bytes >= limit)
        return std::numeric_limits<qint64>::max();
    if (bytes <= -limit)
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(bytes);
}

double SUnitConvert::binaryUnits(quint64 bytes, BinaryUnit unit)
{
    return std::ldexp(static_cast<double>(bytes), -static_cast<int>(unit));
}

double SUnitConvert::convert(double value, SIPrefix from, SIPrefix to)
{
    return scaled(value, static_cast<int>(from) - static_cast<int>(to));
}

double SUnitConvert::convert(double value, SILengthUnit from, SILengthUnit to)
{
    return scaled(value, static_cast<int>(from) - static_cast<int>(to));
}

double SUnitConvert::convert(double value, SCSLengthUnit from, SCSLengthUnit to)
{
    return value * static_cast<int>(from) / static_cast<int>(to);
}

double SUnitConvert::convert(double value, SCSLengthUnit from, SILengthUnit to)
{
    return scaled(value * static_cast<int>(from) * kInch, kInchExponent - static_cast<int>(to));
}

double SUnitConvert::convert(double value, SILengthUnit from, SCSLengthUnit to)
{
    return scaled(value, static_cast<int>(from) - kInchExponent) / (static_cast<int>(to) * kInch);
}

} // namespace Talverine
