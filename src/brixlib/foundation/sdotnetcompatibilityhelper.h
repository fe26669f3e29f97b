// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QString>

namespace Talverine {

//! Reads and writes values bit for bit as programs on .NET do. Calls may come from any thread.
class BRIXLIB_EXPORT SDotNetCompatibilityHelper
{
public:
    SDotNetCompatibilityHelper() = default;

    /*!
     * The binary form of a DateTime: ticks of 100 ns since the year 1 in the low 62 bits, the kind
     * (1 for UTC, 2 for local time, 0 for anything else) above them. A local time is therefore
     * negative. An invalid date gives 0.
     */
    static qint64 toBinary(const QDateTime &dateTime);
    //! The date of a binary form, to the millisecond: UTC for the kind 1, else local; 0 is invalid.
    static QDateTime fromBinary(qint64 value);

    //! The hash code of a string on the 32-bit .NET Framework.
    static qint32 stringHash(const QString &text);
    //! One byte for each UTF-16 unit; "?" where it is no ASCII character.
    static QByteArray textToASCII(const QString &text);
    //! Lower case, with an upper-case letter at the start and behind each separator.
    static QString toTitleCase(const QString &text);
};

} // namespace Talverine
