// SPDX-License-Identifier: MIT
#include <brixlib/foundation/sdotnetcompatibilityhelper.h>

#include <QtCore/QTimeZone>

namespace Talverine {

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kTicksPerMSec = 10000;
constexpr qint64 kEpochMSecs = 62135596800000; // from the year 1 to 1970
constexpr int kKindShift = 62;
constexpr quint64 kTicksMask = (quint64(1) << kKindShift) - 1;

enum Kind : quint64 { KindUnspecified = 0, KindUtc = 1, KindLocal = 2 };

Kind kindOf(const QDateTime &dateTime)
{
    switch (dateTime.timeSpec()) {
    case Qt::UTC:
        return KindUtc;
    case Qt::LocalTime:
        return KindLocal;
    default:
        return KindUnspecified;
    }
}

// The form by Qt::TimeSpec is deprecated where QTimeZone has light-weight representations.
QDateTime fromMSecs(qint64 msecs, bool utc)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
    return QDateTime::fromMSecsSinceEpoch(msecs, utc ? QTimeZone::UTC : QTimeZone::LocalTime);
#else
    return QDateTime::fromMSecsSinceEpoch(msecs, utc ? Qt::UTC : Qt::LocalTime);
#endif
}

//! Two UTF-16 units as a little-endian word; the terminating zero follows the last unit.
quint32 wordAt(const QString &text, qsizetype index)
{
    const quint32 low = text.at(index).unicode();
    const quint32 high = index + 1 < text.size() ? text.at(index + 1).unicode() : 0;
    return low | high << 16;
}

//! One step of the hash. Everything wraps, only the shift keeps the sign.
quint32 mixed(quint32 hash, quint32 word)
{
    const auto shifted = static_cast<quint32>(static_cast<qint32>(hash) >> 27);
    return (hash * 33 + shifted) ^ word;
}

} // namespace

// Unsigned throughout: dates far outside of what .NET knows wrap instead of overflowing.
qint64 SDotNetCompatibilityHelper::toBinary(const QDateTime &dateTime)
{
    if (!dateTime.isValid())
        return 0;
    const auto msecs = static_cast<quint64>(dateTime.toMSecsSinceEpoch()) + kEpochMSecs;
    return static_cast<qint64>(msecs * kTicksPerMSec | quint64(kindOf(dateTime)) << kKindShift);
}

QDateTime SDotNetCompatibilityHelper::fromBinary(qint64 value)
{
    if (value == 0)
        return QDateTime();
    const auto bits = static_cast<quint64>(value);
    const auto ticks = static_cast<qint64>(bits & kTicksMask);
    const qint64 msecs = (ticks - kEpochMSecs * kTicksPerMSec) / kTicksPerMSec;
    return fromMSecs(msecs, bits >> kKindShift == KindUtc);
}

qint32 SDotNetCompatibilityHelper::stringHash(const QString &text)
{
    constexpr quint32 start = 0x15051505;
    constexpr quint32 factor = 1566083941;
    quint32 first = start;
    quint32 second = start;
    const qsizetype size = text.size();
    qsizetype index = 0;
    for (; size - index > 2; index += 4) {
        first = mixed(first, wordAt(text, index));
        second = mixed(second, wordAt(text, index + 2));
    }
    if (size - index > 0)
        first = mixed(first, wordAt(text, index));
    return static_cast<qint32>(first + second * factor);
}

QByteArray SDotNetCompatibilityHelper::textToASCII(const QString &text)
{
    QByteArray bytes;
    bytes.reserve(text.size());
    for (const QChar unit : text)
        bytes += unit.unicode() < 128 ? unit.toLatin1() : '?';
    return bytes;
}

QString SDotNetCompatibilityHelper::toTitleCase(const QString &text)
{
    constexpr auto separators = " ,.;:()!?'\""_L1;
    QString result = text.toLower();
    bool upperNext = true;
    for (QChar &unit : result) {
        if (separators.contains(unit)) {
            upperNext = true;
        } else if (upperNext) {
            unit = unit.toUpper();
            upperNext = false;
        }
    }
    return result;
}

} // namespace Talverine
