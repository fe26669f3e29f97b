// SPDX-License-Identifier: MIT
#pragma once

#include <brixrt/brixrt_export.h>

#include <QtCore/QDateTime>
#include <QtCore/QLocale>
#include <QtCore/QString>
#include <QtCore/QVariant>

namespace Talverine {

/*!
 * Values as text and back, as they stand in text files.
 *
 * What toVariant() reads is the text itself, whatever it looks like, so that under any locale the
 * text of what was read is the text that was read: "007", "+5" and "1,5" stay as they are. Who
 * wants a number, a bool or a date asks for one:
 *
 *     const QVariant read = SConvert::toVariant("007");
 *     SConvert::toString(read); // "007"
 *     SConvert::toInt(read);    // 7
 *
 * A list becomes one text, so a list within a list cannot be told from a text when it is read. A
 * record of a database that holds one loses its signature on that road: signed are the texts of the
 * inner elements, read is one text.
 *
 * Fully shared: all calls may come from any thread.
 */
class BRIXRT_EXPORT SConvert
{
public:
    SConvert() = default;

    /*!
     * The text of \a value:
     *
     * | value | text |
     * |---|---|
     * | invalid or null | empty |
     * | QString | itself, whatever format and locale are |
     * | a type that is registered with SVariantConvert | as it is registered |
     * | bool | "true", "false" |
     * | integer | by the locale |
     * | char | its number from 0 to 255, by the locale |
     * | double, float | by the locale, as many digits as tell it from all others |
     * | QDateTime | in UTC, ISO with milliseconds; empty when it is not valid |
     * | QDate, QTime | ISO; a time has milliseconds unless they are 0 |
     * | QUuid | with braces |
     * | QUrl | percent-encoded |
     * | QLocale | SLocale::lcName() |
     * | SVersion | "a.b.c" |
     * | QJsonValue, QCborValue | that of what it holds |
     * | list | the texts of its elements with ", " between them |
     * | else | QVariant::toString() |
     *
     * The \a format is a letter in either case and mostly a number n of at most two digits:
     *
     * | format | values | text |
     * |---|---|---|
     * | "D<n>" | integers | decimal, at least n digits, in ASCII and ungrouped in every locale |
     * | "X<n>" | integers | hexadecimal, at least n digits of 0 to 9, A to F, no sign |
     * | "F<n>" | numbers | n digits behind the locale's point, ungrouped |
     * | "N<n>" | numbers | the same, grouped |
     *
     * "D" and "X" alone mean one digit. Everything else, "F" alone above all, and values that a
     * format is not for, give the text as without a format. A negative number in "X" is its two's
     * complement in as many bytes as its type has.
     */
    static QString toString(const QVariant &value, const QString &format, const QLocale &locale);
    static QString toString(const QVariant &value, const QLocale &locale = QLocale());
    static QString toString(const QVariant &value, const QString &format);

    //! \a text as a QString that is never null; \a format and \a locale change nothing.
    static QVariant toVariant(const QString &text, const QString &format = QString(),
                              const QLocale &locale = QLocale());

    /*!
     * Whether \a value means yes: a bool itself; a number that is not 0; one of the texts "true",
     * "yes", "on" and "1", in any case. Everything else means no. \a ok (may be null) is false when
     * the value is not one that means yes or no.
     */
    static bool toBool(const QVariant &value, const QLocale &locale = QLocale(),
                       bool *ok = nullptr);
    /*!
     * \a value as a number: a text is read as in the C locale and, if it isn't a number there, by
     * \a locale, never with group separators. A number with a fraction is rounded. 0 with \a ok
     * (may be null) false when it is no number or out of range.
     */
    static int toInt(const QVariant &value, const QLocale &locale = QLocale(), bool *ok = nullptr);
    static qint64 toInt64(const QVariant &value, const QLocale &locale = QLocale(),
                          bool *ok = nullptr);
    static quint64 toUInt64(const QVariant &value, const QLocale &locale = QLocale(),
                            bool *ok = nullptr);
    static double toDouble(const QVariant &value, const QLocale &locale = QLocale(),
                           bool *ok = nullptr);
    /*!
     * \a value as a date and time: itself, the start of a QDate, or an ISO text, which is local
     * time unless it says otherwise. Not valid, with \a ok (may be null) false, when it is none.
     */
    static QDateTime toDateTime(const QVariant &value, const QLocale &locale = QLocale(),
                                bool *ok = nullptr);
};

} // namespace Talverine
