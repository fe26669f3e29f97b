// SPDX-License-Identifier: MIT
#include <brixrt/sconvert.h>

#include <brixrt/slocale.h>
#include <brixrt/svariantconvert.h>
#include <brixrt/sversion.h>

#include <QtCore/QCborValue>
#include <QtCore/QJsonValue>
#include <QtCore/QUrl>
#include <QtCore/QUuid>

#include <cmath>
#include <concepts>
#include <limits>
#include <optional>
#include <utility>

namespace Talverine {

namespace {

// A letter in upper case and the number behind it, -1 for none. No letter: the plain text.
struct Format
{
    char16_t letter = 0;
    int digits = -1;
};

Format parsedFormat(QStringView text)
{
    if (text.isEmpty() || text.size() > 3)
        return {};
    Format format;
    for (const QChar digit : text.sliced(1)) {
        if (digit < u'0' || digit > u'9')
            return {};
        format.digits = std::max(format.digits, 0) * 10 + (digit.unicode() - u'0');
    }
    format.letter = text.front().toUpper().unicode();
    const bool isPlainAlone = format.letter == u'F' || format.letter == u'N';
    return format.digits < 0 && isPlainAlone ? Format{} : format;
}

struct Integer
{
    quint64 bits = 0; //!< two's complement
    bool isSigned = false;
    int bytes = 8;

    bool isNegative() const { return isSigned && static_cast<qint64>(bits) < 0; }
    quint64 magnitude() const { return isNegative() ? 0 - bits : bits; }
    QString toString(const QLocale &locale) const
    {
        return isSigned ? locale.toString(static_cast<qint64>(bits)) : locale.toString(bits);
    }
};

template<std::integral T>
Integer integerOf(const QVariant &value)
{
    return {static_cast<quint64>(value.value<T>()), std::is_signed_v<T>, sizeof(T)};
}

std::optional<Integer> integer(const QVariant &value)
{
    switch (value.userType()) {
    case QMetaType::Char:
        // A byte of a text: whether the compiler's char has a sign is no matter.
        return Integer{static_cast<quint8>(value.value<char>()), false, 1};
    case QMetaType::SChar:
        return integerOf<signed char>(value);
    case QMetaType::UChar:
        return integerOf<uchar>(value);
    case QMetaType::Short:
        return integerOf<short>(value);
    case QMetaType::UShort:
        return integerOf<ushort>(value);
    case QMetaType::Int:
        return integerOf<int>(value);
    case QMetaType::UInt:
        return integerOf<uint>(value);
    case QMetaType::Long:
        return integerOf<long>(value);
    case QMetaType::ULong:
        return integerOf<ulong>(value);
    case QMetaType::LongLong:
        return integerOf<qlonglong>(value);
    case QMetaType::ULongLong:
        return integerOf<qulonglong>(value);
    default:
        return std::nullopt;
    }
}

std::optional<double> floating(const QVariant &value)
{
    if (value.userType() == QMetaType::Double)
        return value.value<double>();
    if (value.userType() == QMetaType::Float)
        return double(value.value<float>());
    return std::nullopt;
}

QLocale grouping(const QLocale &locale, bool grouped)
{
    QLocale result = locale;
    result.setNumberOptions(locale.numberOptions().setFlag(QLocale::OmitGroupSeparator, !grouped));
    return result;
}

QString decimal(const Integer &number, int digits)
{
    const QString text = QString::number(number.magnitude()).rightJustified(digits, u'0');
    return number.isNegative() ? u'-' + text : text;
}

QString hexadecimal(const Integer &number, int digits)
{
    const quint64 mask = ~quint64{0} >> (64 - 8 * number.bytes);
    return QString::number(number.bits & mask, 16).toUpper().rightJustified(digits, u'0');
}

// Not by way of double, which holds 53 bits only.
QString fixed(const Integer &number, int digits, const QLocale &locale)
{
    const QString text = number.toString(locale);
    return digits == 0 ? text : text + locale.decimalPoint() + locale.zeroDigit().repeated(digits);
}

QString fixed(double number, int digits, const QLocale &locale)
{
    return locale.toString(number, 'f', digits);
}

// Null when the format is not for such a value.
QString formatted(const QVariant &value, Format format, const QLocale &locale)
{
    const auto whole = integer(value);
    const auto number = floating(value);
    switch (format.letter) {
    case u'D':
        return whole ? decimal(*whole, format.digits) : QString();
    case u'X':
        return whole ? hexadecimal(*whole, format.digits) : QString();
    case u'F':
    case u'N': {
        const QLocale rules = grouping(locale, format.letter == u'N');
        if (whole)
            return fixed(*whole, format.digits, rules);
        return number ? fixed(*number, format.digits, rules) : QString();
    }
    default:
        return QString();
    }
}

// As Qt::ISODateWithMs, in a tenth of the time; each record of a log has one.
QString dateTimeText(const QDateTime &dateTime)
{
    const QDateTime utc = dateTime.toUTC();
    const QDate date = utc.date();
    const QTime time = utc.time();
    if (!utc.isValid() || date.year() < 0 || date.year() > 9999)
        return QString();
    QString text = QStringLiteral("0000-00-00T00:00:00.000Z");
    QChar *characters = text.data();
    // Ends with the last digit at the given place.
    const auto write = [characters](int last, int number) {
        for (; number > 0; number /= 10)
            characters[last--] = QChar(u'0' + number % 10);
    };
    write(3, date.year());
    write(6, date.month());
    write(9, date.day());
    write(12, time.hour());
    write(15, time.minute());
    write(18, time.second());
    write(22, time.msec());
    return text;
}

QString timeText(QTime time)
{
    return time.toString(time.msec() != 0 ? Qt::ISODateWithMs : Qt::ISODate);
}

QString listText(const QList<QVariant> &list, const QString &format, const QLocale &locale)
{
    QStringList texts;
    texts.reserve(list.size());
    for (const QVariant &element : list)
        texts.append(SConvert::toString(element, format, locale));
    return texts.join(QLatin1String(", "));
}

// Of what is neither text nor list.
std::optional<QString> plainText(const QVariant &value, const QLocale &locale)
{
    if (const auto whole = integer(value))
        return whole->toString(locale);
    if (const auto number = floating(value))
        return locale.toString(*number, 'g', QLocale::FloatingPointShortest);
    switch (value.userType()) {
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    case QMetaType::QDateTime:
        return dateTimeText(value.toDateTime());
    case QMetaType::QDate:
        return value.toDate().toString(Qt::ISODate);
    case QMetaType::QTime:
        return timeText(value.toTime());
    case QMetaType::QUuid:
        return value.toUuid().toString();
    case QMetaType::QUrl:
        return QString::fromLatin1(value.toUrl().toEncoded());
    case QMetaType::QLocale:
        return SLocale::lcName(value.toLocale(), false);
    case QMetaType::QByteArray: // would convert to a list of its bytes
        return value.toString();
    default:
        break;
    }
    if (value.metaType() == QMetaType::fromType<SVersion>())
        return value.value<SVersion>().toString();
    return std::nullopt;
}

// What a value of a JSON or CBOR document holds; invalid for other types. QVariant offers all of
// them as lists, which only arrays are.
QVariant documentValue(const QVariant &value)
{
    switch (value.userType()) {
    case QMetaType::QJsonValue:
        return value.toJsonValue().toVariant();
    case QMetaType::QCborValue:
        return value.value<QCborValue>().toVariant();
    default:
        return QVariant();
    }
}

QLocale withoutGroups(const QLocale &locale)
{
    QLocale result = locale;
    result.setNumberOptions(locale.numberOptions() | QLocale::RejectGroupSeparator);
    return result;
}

std::optional<qint64> numberIn(const QString &text, const QLocale &locale, qint64)
{
    bool ok = false;
    const qint64 number = locale.toLongLong(text, &ok);
    return ok ? std::optional(number) : std::nullopt;
}

std::optional<quint64> numberIn(const QString &text, const QLocale &locale, quint64)
{
    bool ok = false;
    const quint64 number = locale.toULongLong(text, &ok);
    return ok ? std::optional(number) : std::nullopt;
}

std::optional<double> numberIn(const QString &text, const QLocale &locale, double)
{
    bool ok = false;
    const double number = locale.toDouble(text, &ok);
    return ok ? std::optional(number) : std::nullopt;
}

template<typename T>
std::optional<T> numberIn(const QString &text, const QLocale &locale)
{
    if (const auto number = numberIn(text, withoutGroups(QLocale::c()), T{}))
        return number;
    return numberIn(text, withoutGroups(locale), T{});
}

template<std::integral T>
std::optional<T> rounded(double number)
{
    // The limits themselves can't all be told as a double; what is behind them can.
    constexpr double kLowest = double(std::numeric_limits<T>::min());
    const double kBehind = std::ldexp(1.0, std::numeric_limits<T>::digits);
    const double nearest = std::round(number);
    if (!(nearest >= kLowest && nearest < kBehind))
        return std::nullopt;
    return static_cast<T>(nearest);
}

template<std::integral T>
std::optional<T> inRange(const Integer &number)
{
    const bool fits = number.isSigned ? std::in_range<T>(static_cast<qint64>(number.bits))
                                      : std::in_range<T>(number.bits);
    return fits ? std::optional(static_cast<T>(number.bits)) : std::nullopt;
}

// A bool or an enumeration is one as well.
std::optional<Integer> anyInteger(const QVariant &value)
{
    if (const auto whole = integer(value))
        return whole;
    const bool isEnumeration = value.metaType().flags().testFlag(QMetaType::IsEnumeration);
    if (value.userType() != QMetaType::Bool && !isEnumeration)
        return std::nullopt;
    bool ok = false;
    const qint64 number = value.toLongLong(&ok);
    return ok ? std::optional(Integer{static_cast<quint64>(number), true, 8}) : std::nullopt;
}

std::optional<QString> textOf(const QVariant &value)
{
    const bool isText =
        value.userType() == QMetaType::QString || value.userType() == QMetaType::QByteArray;
    return isText ? std::optional(value.toString()) : std::nullopt;
}

template<std::integral T>
std::optional<T> wholeNumber(const QVariant &value, const QLocale &locale)
{
    if (const auto text = textOf(value))
        return numberIn<T>(*text, locale);
    if (const auto number = floating(value))
        return rounded<T>(*number);
    const auto whole = anyInteger(value);
    return whole ? inRange<T>(*whole) : std::nullopt;
}

std::optional<double> anyNumber(const QVariant &value, const QLocale &locale)
{
    if (const auto text = textOf(value))
        return numberIn<double>(*text, locale);
    if (const auto number = floating(value))
        return number;
    const auto whole = anyInteger(value);
    if (!whole)
        return std::nullopt;
    return whole->isSigned ? double(static_cast<qint64>(whole->bits)) : double(whole->bits);
}

std::optional<bool> yesOrNo(const QString &text)
{
    const QString word = text.trimmed().toLower();
    for (const auto yes : {"true", "yes", "on", "1"}) {
        if (word == QLatin1String(yes))
            return true;
    }
    for (const auto no : {"false", "no", "off", "0"}) {
        if (word == QLatin1String(no))
            return false;
    }
    return std::nullopt;
}

QDateTime dateTime(const QVariant &value)
{
    if (value.userType() == QMetaType::QDate)
        return value.toDate().startOfDay();
    if (const auto text = textOf(value))
        return QDateTime::fromString(text->trimmed(), Qt::ISODateWithMs);
    return value.toDateTime();
}

template<typename T>
T result(const std::optional<T> &found, bool *ok)
{
    if (ok)
        *ok = found.has_value();
    return found.value_or(T{});
}

} // namespace

QString SConvert::toString(const QVariant &value, const QString &format, const QLocale &locale)
{
    // First, as nearly all that is read from files is text.
    if (value.userType() == QMetaType::QString)
        return value.toString();
    if (value.isNull())
        return QString();
    QString text;
    if (SVariantConvert::toString(value, locale, &text))
        return text;
    if (const QVariant held = documentValue(value); held.isValid())
        return toString(held, format, locale);
    if (const Format parsed = parsedFormat(format); parsed.letter != 0) {
        text = formatted(value, parsed, locale);
        if (!text.isNull())
            return text;
    }
    if (const auto plain = plainText(value, locale))
        return *plain;
    if (value.canConvert<QVariantList>())
        return listText(value.toList(), format, locale);
    return value.toString();
}

QString SConvert::toString(const QVariant &value, const QLocale &locale)
{
    return toString(value, QString(), locale);
}

QString SConvert::toString(const QVariant &value, const QString &format)
{
    return toString(value, format, QLocale());
}

QVariant SConvert::toVariant(const QString &text, const QString &, const QLocale &)
{
    return text.isNull() ? QStringLiteral("") : text;
}

bool SConvert::toBool(const QVariant &value, const QLocale &, bool *ok)
{
    std::optional<bool> found;
    if (const auto text = textOf(value))
        found = yesOrNo(*text);
    else if (const auto number = floating(value))
        found = *number != 0;
    else if (const auto whole = anyInteger(value))
        found = whole->bits != 0;
    return result(found, ok);
}

int SConvert::toInt(const QVariant &value, const QLocale &locale, bool *ok)
{
    const auto number = wholeNumber<qint64>(value, locale);
    const bool fits = number && std::in_range<int>(*number);
    return result(fits ? std::optional(static_cast<int>(*number)) : std::nullopt, ok);
}

qint64 SConvert::toInt64(const QVariant &value, const QLocale &locale, bool *ok)
{
    return result(wholeNumber<qint64>(value, locale), ok);
}

quint64 SConvert::toUInt64(const QVariant &value, const QLocale &locale, bool *ok)
{
    return result(wholeNumber<quint64>(value, locale), ok);
}

double SConvert::toDouble(const QVariant &value, const QLocale &locale, bool *ok)
{
    return result(anyNumber(value, locale), ok);
}

QDateTime SConvert::toDateTime(const QVariant &value, const QLocale &, bool *ok)
{
    const QDateTime found = dateTime(value);
    if (ok)
        *ok = found.isValid();
    return found;
}

} // namespace Talverine
