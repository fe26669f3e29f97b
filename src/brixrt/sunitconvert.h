// SPDX-License-Identifier: MIT
#pragma once

#include <brixrt/brixrt_export.h>

#include <QtCore/QtGlobal>

namespace Talverine {

enum class BinaryUnit : int;
enum class SCSLengthUnit : int;
enum class SILengthUnit : int;
enum class SIPrefix : int;

/*!
 * Conversions between units. A unit's value is all that counts: the power of two of a BinaryUnit,
 * the power of ten of an SIPrefix or SILengthUnit, the inches of an SCSLengthUnit, which is not 0.
 *
 * All calls may come from any thread.
 */
class BRIXRT_EXPORT SUnitConvert
{
public:
    SUnitConvert() = default;

    //! \a count of \a unit in bytes; the nearest qint64 where there are more.
    static qint64 toBytes(int count, BinaryUnit unit);
    //! \a bytes in \a unit.
    static double binaryUnits(quint64 bytes, BinaryUnit unit);

    //! \a value, counted in \a from, counted in \a to. An inch is 0.0254 m.
    static double convert(double value, SIPrefix from, SIPrefix to);
    static double convert(double value, SILengthUnit from, SILengthUnit to);
    static double convert(double value, SCSLengthUnit from, SCSLengthUnit to);
    static double convert(double value, SCSLengthUnit from, SILengthUnit to);
    static double convert(double value, SILengthUnit from, SCSLengthUnit to);
};

} // namespace Talverine
