// SPDX-License-Identifier: MIT
#include <brixlib/enums/passwordtype.h>

#include <brixrt/sconvert.h>
#include <brixrt/svariantconvert.h>
#include <brixrt/sversion.h>

#include <shared/utctime.h>

#include <QtCore/QBitArray>
#include <QtCore/QCborArray>
#include <QtCore/QCborMap>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtCore/QSize>
#include <QtCore/QTimeZone>
#include <QtCore/QUrl>
#include <QtCore/QUuid>

#include <cmath>
#include <limits>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

//! Locales that write numbers each in its own way.
const QList<QLocale> &locales()
{
    static const QList<QLocale> list = [] {
        QList<QLocale> found;
        for (const auto name : {"C", "en_US", "it_IT", "sv_SE", "ar_EG", "fa_IR", "hi_IN", "de_CH"})
            found.append(QLocale(QString::fromLatin1(name)));
        QLocale plain(u"en_US"_s);
        plain.setNumberOptions(QLocale::OmitGroupSeparator);
        found.append(plain);
        return found;
    }();
    return list;
}

QLocale englishUngrouped()
{
    QLocale locale(u"en_US"_s);
    locale.setNumberOptions(QLocale::OmitGroupSeparator);
    return locale;
}

} // namespace

class tst_SConvert : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The library that does it at load may be left out by the linker, as nothing here calls it.
    void initTestCase()
    {
        SVariantConvert::sVariantToStringRegister<PasswordType, PasswordType_T>();
    }

    void readTextStaysItself_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("leading zeros") << u"007"_s;
        QTest::newRow("plus sign") << u"+5"_s;
        QTest::newRow("trailing zero") << u"1.50"_s;
        QTest::newRow("decimal comma") << u"1,5"_s;
        QTest::newRow("comma and three digits") << u"1,500"_s;
        QTest::newRow("exponent") << u"1e5"_s;
        QTest::newRow("thirty digits") << u"123456789012345678901234567890"_s;
        QTest::newRow("hexadecimal") << u"0x10"_s;
        QTest::newRow("minus sign") << u"-5"_s;
        QTest::newRow("a digit") << u"5"_s;
        QTest::newRow("True") << u"True"_s;
        QTest::newRow("true with blanks") << u" true "_s;
        QTest::newRow("short date") << u"6/5/24"_s;
        QTest::newRow("ISO date") << u"2024-05-06"_s;
        QTest::newRow("nan") << u"nan"_s;
        QTest::newRow("zero byte") << QString(QLatin1String("a\0b", 3));
        QTest::newRow("surrogates") << u"\U0001F600"_s;
        QTest::newRow("lone surrogate") << QString(QChar(0xD800));
    }

    void readTextStaysItself()
    {
        QFETCH(QString, text);
        for (const QLocale &locale : locales()) {
            for (const QString &format : {QString(), u"F"_s, u"D2"_s, u"N2"_s, u"X4"_s}) {
                const QVariant read = SConvert::toVariant(text, format, locale);
                QCOMPARE(read.userType(), int(QMetaType::QString));
                QCOMPARE(SConvert::toString(read, format, locale), text);
                QCOMPARE(SConvert::toString(read, u"F"_s, QLocale::c()), text);
            }
        }
    }

    void emptyTextIsReadAsText()
    {
        for (const QString &text : {QString(), u""_s}) {
            const QVariant read = SConvert::toVariant(text);
            QCOMPARE(read.userType(), int(QMetaType::QString));
            QVERIFY(!read.isNull());
            QVERIFY(!read.toString().isNull());
            QVERIFY(read.toString().isEmpty());
        }
    }

    void numbersAndBoolsEqualTheirTexts_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::newRow("int") << QVariant(-5);
        QTest::newRow("large") << QVariant(qlonglong(5250000000000000001));
        QTest::newRow("double") << QVariant(0.1);
        QTest::newRow("bool") << QVariant(true);
    }

    void numbersAndBoolsEqualTheirTexts()
    {
        QFETCH(QVariant, value);
        const QVariant read = SConvert::toVariant(SConvert::toString(value, QLocale::c()));
        QCOMPARE(value, read);
        QCOMPARE(read, value);
    }

    void valuesHaveTheirText_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("text");
        const QDateTime utc = utcTime(QDate(2024, 5, 6), QTime(7, 8, 9, 10));
        const auto row = [](const char *name, const QVariant &value, const QString &text) {
            QTest::newRow(name) << value << text;
        };
        row("invalid", QVariant(), QString());
        row("null pointer", QVariant::fromValue(nullptr), QString());
        row("typed but null", QVariant(QMetaType::fromType<int>()), QString());
        row("null text", QVariant(QString()), QString());
        row("true", true, u"true"_s);
        row("false", false, u"false"_s);
        row("char", QVariant::fromValue('A'), u"65"_s);
        row("char with the high bit", QVariant::fromValue(static_cast<char>(200)), u"200"_s);
        row("line feed as char", QVariant::fromValue('\n'), u"10"_s);
        row("signed char", QVariant::fromValue(static_cast<signed char>(-3)), u"-3"_s);
        row("unsigned char", QVariant::fromValue(uchar(200)), u"200"_s);
        row("short", QVariant::fromValue(short(-300)), u"-300"_s);
        row("unsigned short", QVariant::fromValue(ushort(65535)), u"65535"_s);
        row("int", -1234567, u"-1234567"_s);
        row("unsigned int", 4294967295u, u"4294967295"_s);
        row("long", QVariant::fromValue(-7L), u"-7"_s);
        row("unsigned long", QVariant::fromValue(7UL), u"7"_s);
        row("lowest 64 bits", std::numeric_limits<qlonglong>::min(), u"-9223372036854775808"_s);
        row("highest 64 bits", std::numeric_limits<qulonglong>::max(), u"18446744073709551615"_s);
        row("double of many digits", 0.1 + 0.2, u"0.30000000000000004"_s);
        row("whole double", 12345.0, u"12345"_s);
        row("negative zero", -0.0, u"0"_s);
        row("float", 0.5f, u"0.5"_s);
        row("infinite", std::numeric_limits<double>::infinity(), u"inf"_s);
        row("date and time", utc, u"2024-05-06T07:08:09.010Z"_s);
        row("date and time elsewhere", utc.toOffsetFromUtc(7200), u"2024-05-06T07:08:09.010Z"_s);
        row("no date and time", QDateTime(), QString());
        row("date", QDate(2024, 5, 6), u"2024-05-06"_s);
        row("no date", QDate(), QString());
        row("time", QTime(7, 8, 9), u"07:08:09"_s);
        row("time with milliseconds", QTime(7, 8, 9, 10), u"07:08:09.010"_s);
        row("uuid", QUuid(u"{67c8770b-44f1-410a-ab9a-f9b5446f13ee}"_s),
            u"{67c8770b-44f1-410a-ab9a-f9b5446f13ee}"_s);
        row("url", QUrl(u"http://a/b c?ü"_s), u"http://a/b%20c?%C3%BC"_s);
        row("locale", QLocale(u"pt_BR"_s), u"pt-BR"_s);
        row("version", QVariant::fromValue(SVersion(1, 2, 3)), u"1.2.3"_s);
        row("bytes", QByteArray("a\xC3\xA4"), u"aä"_s);
        row("list", QVariantList{1, u"a"_s, true}, u"1, a, true"_s);
        row("empty list", QVariantList(), QString());
        row("list of texts", QStringList{u"a"_s, u"b"_s}, u"a, b"_s);
        row("list of numbers", QVariant::fromValue(QList<int>{1, 2}), u"1, 2"_s);
        row("list in a list", QVariantList{QVariantList{1, 2}, 3}, u"1, 2, 3"_s);
        row("JSON array", QJsonArray{1, u"a"_s}, u"1, a"_s);
        row("JSON text", QJsonValue(u"a"_s), u"a"_s);
        row("JSON number", QJsonValue(1234567.5), u"1234567.5"_s);
        row("JSON bool", QJsonValue(true), u"true"_s);
        row("JSON value of an array", QJsonValue(QJsonArray{1, u"a"_s}), u"1, a"_s);
        row("JSON value of an object", QJsonValue(QJsonObject{{u"a"_s, 1}}), QString());
        row("JSON null", QJsonValue(), QString());
        row("JSON undefined", QJsonValue(QJsonValue::Undefined), QString());
        row("list of JSON values", QVariantList{QJsonValue(1), QJsonValue(u"a"_s)}, u"1, a"_s);
        row("CBOR text", QVariant::fromValue(QCborValue(u"a"_s)), u"a"_s);
        row("CBOR number", QVariant::fromValue(QCborValue(-5)), u"-5"_s);
        row("CBOR value of an array", QVariant::fromValue(QCborValue(QCborArray{1, u"a"_s})),
            u"1, a"_s);
        row("CBOR value of a map", QVariant::fromValue(QCborValue(QCborMap{{u"a"_s, 1}})),
            QString());
        row("CBOR undefined", QVariant::fromValue(QCborValue()), QString());
        row("bits", QBitArray(3, true), QString());
        row("enumeration", QVariant::fromValue(PasswordType::Hash), u"Hash"_s);
        row("without a text", QSize(1, 2), QString());
    }

    void valuesHaveTheirText()
    {
        QFETCH(QVariant, value);
        QFETCH(QString, text);
        QCOMPARE(SConvert::toString(value, englishUngrouped()), text);
        QCOMPARE(SConvert::toString(value, u"F"_s, englishUngrouped()), text);
        QCOMPARE(SConvert::toString(value, u"f"_s, englishUngrouped()), text);
        QCOMPARE(SConvert::toString(value, u"no format"_s, englishUngrouped()), text);
    }

    void numbersAreWrittenAsTheLocaleDoes_data()
    {
        QTest::addColumn<QString>("locale");
        QTest::addColumn<QString>("whole");
        QTest::addColumn<QString>("fraction");
        QTest::newRow("Italian") << u"it_IT"_s << u"-1.234.567"_s << u"0,25"_s;
        QTest::newRow("Swedish") << u"sv_SE"_s << u"\u22121\u00A0234\u00A0567"_s << u"0,25"_s;
        QTest::newRow("American") << u"en_US"_s << u"-1,234,567"_s << u"0.25"_s;
        QTest::newRow("C") << u"C"_s << u"-1234567"_s << u"0.25"_s;
    }

    void numbersAreWrittenAsTheLocaleDoes()
    {
        QFETCH(QString, locale);
        QTEST(SConvert::toString(-1234567, QLocale(locale)), "whole");
        QTEST(SConvert::toString(0.25, QLocale(locale)), "fraction");
    }

    void doublesKeepAllDigits()
    {
        for (const double number : {0.1, 1.0 / 3, 1e300, 5e-324, 123456789.123456789, -2.5e-7}) {
            const QString text = SConvert::toString(number, QLocale::c());
            QCOMPARE(text.toDouble(), number);
        }
    }

    // The hand-made text against Qt's own.
    void dateTimesAreWrittenAsQtDoes()
    {
        const QDateTime start = utcTime(QDate(1, 1, 1), QTime(0, 0));
        for (int i = 0; i < 3000; ++i) {
            const QDateTime moment = start.addDays(i * 1217).addMSecs(i * qint64(28'801'337));
            QCOMPARE(SConvert::toString(moment), moment.toString(Qt::ISODateWithMs));
        }
        for (const int year : {-1, 9999, 10000}) {
            const QDateTime moment = utcTime(QDate(year, 12, 31), QTime(23, 59, 59, 999));
            QVERIFY(moment.isValid());
            QCOMPARE(SConvert::toString(moment), moment.toString(Qt::ISODateWithMs));
        }
    }

    void registeredTypesComeFirst()
    {
        SVariantConvert::sVariantToStringRegister(
            qMetaTypeId<QSize>(), [](const QVariant &value, const QLocale &locale) {
                return locale.toString(value.toSize().width() * 1000);
            });
        QCOMPARE(SConvert::toString(QSize(2, 3), QLocale(u"it_IT"_s)), u"2.000"_s);
        QCOMPARE(SConvert::toString(QSize(2, 3), u"D9"_s, QLocale::c()), u"2000"_s);
        SVariantConvert::sVariantToStringRegister(qMetaTypeId<QSize>(), {});
        QCOMPARE(SConvert::toString(QSize(2, 3)), QString());
    }

    void formatsHaveTheirText_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("format");
        QTest::addColumn<QString>("locale");
        QTest::addColumn<QString>("text");
        const auto row = [](const QVariant &value, const char *format, const char *locale,
                            const QString &text) {
            QTest::addRow("%s of %s in %s", format, qPrintable(value.toString()), locale)
                << value << QString::fromLatin1(format) << QString::fromLatin1(locale) << text;
        };
        for (const auto locale : {"C", "it_IT", "sv_SE", "ar_EG", "en_US"}) {
            row(7, "D2", locale, u"07"_s);
            row(-7, "d2", locale, u"-07"_s);
            row(123, "D2", locale, u"123"_s);
            row(1234567, "D", locale, u"1234567"_s);
            row(qulonglong(42), "D16", locale, u"0000000000000042"_s);
            row(std::numeric_limits<qlonglong>::min(), "D1", locale, u"-9223372036854775808"_s);
            row(255, "X", locale, u"FF"_s);
            row(255, "x4", locale, u"00FF"_s);
            row(-1, "X", locale, u"FFFFFFFF"_s);
            row(qlonglong(-1), "X2", locale, u"FFFFFFFFFFFFFFFF"_s);
        }
        row(QVariant::fromValue(static_cast<signed char>(-1)), "X2", "C", u"FF"_s);
        row(1234.5, "F2", "en_US", u"1234.50"_s);
        row(1234.25, "f0", "en_US", u"1234"_s);
        row(1234.5, "F1", "it_IT", u"1234,5"_s);
        row(1234, "F2", "en_US", u"1234.00"_s);
        row(1234567, "N2", "en_US", u"1,234,567.00"_s);
        row(1234567.125, "n3", "it_IT", u"1.234.567,125"_s);
        row(qulonglong(18446744073709551615u), "F1", "C", u"18446744073709551615.0"_s);
        row(5, "N0", "C", u"5"_s);
        row(5, "D99", "C", QString(98, u'0') + u'5');
        row(5, "D100", "C", u"5"_s);
        row(5, "N", "C", u"5"_s);
        row(5, "Q2", "C", u"5"_s);
        row(5, "D-2", "C", u"5"_s);
        row(5, "2D", "C", u"5"_s);
        row(1.5, "D2", "C", u"1.5"_s);
        row(1.5, "X2", "C", u"1.5"_s);
        row(true, "D2", "C", u"true"_s);
        row(QDate(2024, 5, 6), "F2", "C", u"2024-05-06"_s);
        row(QVariantList{1, 2}, "D2", "C", u"01, 02"_s);
        row(QJsonValue(0.5), "F2", "it_IT", u"0,50"_s);
    }

    void formatsHaveTheirText()
    {
        QFETCH(QVariant, value);
        QFETCH(QString, format);
        QFETCH(QString, locale);
        QTEST(SConvert::toString(value, format, QLocale(locale)), "text");
    }

    void groupingIsTheFormatsNotTheLocales()
    {
        QCOMPARE(SConvert::toString(1234567, u"N0"_s, englishUngrouped()), u"1,234,567"_s);
        QCOMPARE(SConvert::toString(1234567, u"F0"_s, QLocale(u"en_US"_s)), u"1234567"_s);
    }

    void shortFormsUseWhatIsDefault()
    {
        QLocale::setDefault(QLocale(u"it_IT"_s));
        QCOMPARE(SConvert::toString(1.5), u"1,5"_s);
        QCOMPARE(SConvert::toString(1.5, u"F2"_s), u"1,50"_s);
        QLocale::setDefault(QLocale::c());
    }

    void boolsAreRead_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<bool>("yes");
        QTest::addColumn<bool>("known");
        for (const auto text : {"true", "TRUE", "Yes", "on", "1", " true "})
            QTest::newRow(text) << QVariant(QString::fromLatin1(text)) << true << true;
        for (const auto text : {"false", "No", "OFF", "0"})
            QTest::newRow(text) << QVariant(QString::fromLatin1(text)) << false << true;
        for (const auto text : {"", "2", "-1", "1.0", "t", "truely"})
            QTest::addRow("text %s", text) << QVariant(QString::fromLatin1(text)) << false << false;
        QTest::newRow("true itself") << QVariant(true) << true << true;
        QTest::newRow("false itself") << QVariant(false) << false << true;
        QTest::newRow("a number") << QVariant(-2) << true << true;
        QTest::newRow("zero") << QVariant(0) << false << true;
        QTest::newRow("a fraction") << QVariant(0.25) << true << true;
        QTest::newRow("zero as double") << QVariant(-0.0) << false << true;
        QTest::newRow("zero as char") << QVariant::fromValue('\0') << false << true;
        QTest::newRow("invalid") << QVariant() << false << false;
        QTest::newRow("a date") << QVariant(QDate(2024, 5, 6)) << false << false;
        QTest::newRow("a list") << QVariant(QVariantList{true}) << false << false;
    }

    void boolsAreRead()
    {
        QFETCH(QVariant, value);
        bool ok = false;
        QTEST(SConvert::toBool(value, QLocale(), &ok), "yes");
        QTEST(ok, "known");
        QTEST(SConvert::toBool(value), "yes");
    }

    void integersAreRead_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("signedNumber");
        QTest::addColumn<QString>("unsignedNumber");
        QTest::addColumn<QString>("shortNumber");
        const auto row = [](const char *name, const QVariant &value, const char *signedNumber,
                            const char *unsignedNumber, const char *shortNumber) {
            QTest::newRow(name) << value << QString::fromLatin1(signedNumber)
                                << QString::fromLatin1(unsignedNumber)
                                << QString::fromLatin1(shortNumber);
        };
        row("text", u"12"_s, "12", "12", "12");
        row("text with zeros and blanks", u" 007 "_s, "7", "7", "7");
        row("negative text", u"-5"_s, "-5", "", "-5");
        row("nineteen digits", u"5250000000000000001"_s, "5250000000000000001",
            "5250000000000000001", "");
        row("highest", u"9223372036854775807"_s, "9223372036854775807", "9223372036854775807", "");
        row("one above", u"9223372036854775808"_s, "", "9223372036854775808", "");
        row("beyond all", u"18446744073709551616"_s, "", "", "");
        row("bytes", QByteArray("12"), "12", "12", "12");
        row("a fraction as text", u"1.5"_s, "", "", "");
        row("hexadecimal", u"0x10"_s, "", "", "");
        row("grouped", u"1,234"_s, "", "", "");
        row("empty", u""_s, "", "", "");
        row("word", u"abc"_s, "", "", "");
        row("double", 2.5, "3", "3", "3");
        row("negative double", -2.5, "-3", "", "-3");
        row("huge double", 1e19, "", "10000000000000000000", "");
        row("two to the 63", 9223372036854775808.0, "", "9223372036854775808", "");
        row("two to the 64", 18446744073709551616.0, "", "", "");
        row("lowest as double", -9223372036854775808.0, "-9223372036854775808", "", "");
        row("nan", std::nan(""), "", "", "");
        row("infinite", std::numeric_limits<double>::infinity(), "", "", "");
        row("unsigned", std::numeric_limits<qulonglong>::max(), "", "18446744073709551615", "");
        row("lowest", std::numeric_limits<qlonglong>::min(), "-9223372036854775808", "", "");
        row("bool", true, "1", "1", "1");
        row("enumeration", QVariant::fromValue(PasswordType::Hash), "2", "2", "2");
        row("invalid", QVariant(), "", "", "");
        row("date", QDate(2024, 5, 6), "", "", "");
        row("list", QVariantList{1}, "", "", "");
    }

    // An empty text in a row stands for no number.
    void integersAreRead()
    {
        QFETCH(QVariant, value);
        QFETCH(QString, signedNumber);
        QFETCH(QString, unsignedNumber);
        QFETCH(QString, shortNumber);
        bool ok = false;
        QCOMPARE(SConvert::toInt64(value, QLocale::c(), &ok), signedNumber.toLongLong());
        QCOMPARE(ok, !signedNumber.isEmpty());
        QCOMPARE(SConvert::toUInt64(value, QLocale::c(), &ok), unsignedNumber.toULongLong());
        QCOMPARE(ok, !unsignedNumber.isEmpty());
        QCOMPARE(SConvert::toInt(value, QLocale::c(), &ok), shortNumber.toInt());
        QCOMPARE(ok, !shortNumber.isEmpty());
        QCOMPARE(SConvert::toInt64(value, QLocale::c()), signedNumber.toLongLong());
    }

    void numbersAreReadInTheCLocaleFirst()
    {
        const QLocale italian(u"it_IT"_s);
        QCOMPARE(SConvert::toDouble(u"1.5"_s, italian), 1.5);
        QCOMPARE(SConvert::toDouble(u"1,5"_s, italian), 1.5);
        bool ok = true;
        // Grouped in one locale, a fraction in another: nobody guesses.
        QCOMPARE(SConvert::toDouble(u"1,500"_s, QLocale(u"en_US"_s), &ok), 0.0);
        QVERIFY(!ok);
        QCOMPARE(SConvert::toInt64(u"1.500"_s, italian, &ok), 0);
        QVERIFY(!ok);
        QCOMPARE(SConvert::toInt64(u"\u22125"_s, QLocale(u"sv_SE"_s)), -5);
        QCOMPARE(SConvert::toUInt64(u"\u0665"_s, QLocale(u"ar_EG"_s)), 5u);
    }

    void doublesAreRead()
    {
        bool ok = false;
        QCOMPARE(SConvert::toDouble(u"1e3"_s, QLocale::c(), &ok), 1000.0);
        QVERIFY(ok);
        QCOMPARE(SConvert::toDouble(std::numeric_limits<qulonglong>::max()),
                 18446744073709551616.0);
        QCOMPARE(SConvert::toDouble(-3), -3.0);
        QCOMPARE(SConvert::toDouble(0.1f), double(0.1f));
        QCOMPARE(SConvert::toDouble(QVariant(), QLocale::c(), &ok), 0.0);
        QVERIFY(!ok);
    }

    void dateTimesAreRead_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QDateTime>("expected");
        const QDateTime utc = utcTime(QDate(2024, 5, 6), QTime(7, 8, 9, 10));
        QTest::newRow("itself") << QVariant(utc) << utc;
        QTest::newRow("its text") << QVariant(SConvert::toString(utc)) << utc;
        QTest::newRow("text with blanks") << QVariant(u" 2024-05-06T07:08:09.010Z "_s) << utc;
        QTest::newRow("text with an offset") << QVariant(u"2024-05-06T09:08:09.010+02:00"_s) << utc;
        QTest::newRow("local text")
            << QVariant(u"2024-05-06T07:08:09"_s) << QDateTime(QDate(2024, 5, 6), QTime(7, 8, 9));
        QTest::newRow("a date") << QVariant(QDate(2024, 5, 6)) << QDate(2024, 5, 6).startOfDay();
        QTest::newRow("a word") << QVariant(u"today"_s) << QDateTime();
        QTest::newRow("a number") << QVariant(5) << QDateTime();
        QTest::newRow("invalid") << QVariant() << QDateTime();
    }

    void dateTimesAreRead()
    {
        QFETCH(QVariant, value);
        QFETCH(QDateTime, expected);
        bool ok = false;
        QCOMPARE(SConvert::toDateTime(value, QLocale(), &ok), expected);
        QCOMPARE(ok, expected.isValid());
        QCOMPARE(SConvert::toDateTime(value), expected);
    }
};

QTEST_APPLESS_MAIN(tst_SConvert)
#include "tst_sconvert.moc"
