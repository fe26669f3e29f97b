// SPDX-License-Identifier: MIT
#include <brixlib/database/records/sdbfield.h>
#include <brixlib/enums/bool.h>

#include <shared/seededrandom.h>

#include <QtCore/QBitArray>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

template<typename Format>
concept CanFormat = requires(const SDBField &field, Format format)
{
    field.toString(format);
};

// A literal would turn into the bool that means the value alone.
static_assert(!CanFormat<const char *>);
static_assert(!CanFormat<const char16_t *>);
static_assert(CanFormat<QString>);
static_assert(CanFormat<bool>);
static_assert(CanFormat<QLocale>);

const QList<QLocale> &locales()
{
    static const QList<QLocale> list{QLocale::c(), QLocale(u"it_IT"_s), QLocale(u"sv_SE"_s),
                                     QLocale(u"ar_EG"_s)};
    return list;
}

} // namespace

class tst_SDBField : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshFieldHasNothing()
    {
        const SDBField field;
        QVERIFY(field.isNull());
        QVERIFY(field.isEmpty());
        QVERIFY(!field.isArray());
        QVERIFY(!field.value().isValid());
        QCOMPARE(field.type(), QMetaType::UnknownType);
        QCOMPARE(field.toString(), QString());
        QCOMPARE(field, SDBField::empty);
        QVERIFY(SDBField::empty.key().isEmpty());
        QVERIFY(!SDBField::empty.value().isValid());
    }

    void keyAndValueAreKept()
    {
        SDBField field(u"a"_s, 1);
        field.setKey(u"b"_s);
        field.setValue(u"text"_s);
        QCOMPARE(field.key(), u"b"_s);
        QCOMPARE(field.value(), QVariant(u"text"_s));
        QCOMPARE(field.type(), QMetaType::QString);
        const SDBField copy = field;
        field.setValue(5);
        QCOMPARE(copy.value(), QVariant(u"text"_s));
        QCOMPARE(field.type(), QMetaType::Int);
    }

    void fieldsAreComparedByKeyAndValue_data()
    {
        QTest::addColumn<SDBField>("other");
        QTest::addColumn<bool>("equal");
        QTest::newRow("the same") << SDBField(u"key"_s, 5) << true;
        QTest::newRow("number as text") << SDBField(u"key"_s, u"5"_s) << true;
        QTest::newRow("key in other case") << SDBField(u"Key"_s, 5) << false;
        QTest::newRow("another value") << SDBField(u"key"_s, 6) << false;
        QTest::newRow("without a value") << SDBField(u"key"_s, QVariant()) << false;
        QTest::newRow("nothing") << SDBField() << false;
    }

    void fieldsAreComparedByKeyAndValue()
    {
        QFETCH(SDBField, other);
        QFETCH(bool, equal);
        const SDBField field(u"key"_s, 5);
        QCOMPARE(field == other, equal);
        QCOMPARE(other == field, equal);
        QCOMPARE(field != other, !equal);
    }

    void nullAndEmptyDiffer_data()
    {
        QTest::addColumn<SDBField>("field");
        QTest::addColumn<bool>("null");
        QTest::addColumn<bool>("empty");
        QTest::newRow("key and value") << SDBField(u"k"_s, 5) << false << false;
        QTest::newRow("empty text") << SDBField(u"k"_s, u""_s) << false << false;
        // Since Qt 6 only a variant without a value is null.
        QTest::newRow("null text") << SDBField(u"k"_s, QString()) << false << false;
        QTest::newRow("no value") << SDBField(u"k"_s, QVariant()) << false << true;
        QTest::newRow("no key") << SDBField(QString(), 5) << true << true;
    }

    void nullAndEmptyDiffer()
    {
        QFETCH(SDBField, field);
        QTEST(field.isNull(), "null");
        QTEST(field.isEmpty(), "empty");
    }

    void valuesAreListed_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<bool>("array");
        QTest::addColumn<QVariantList>("list");
        const auto charOf = [](char c) { return QVariant::fromValue(c); };
        QTest::newRow("scalar") << QVariant(5) << false << QVariantList{5};
        QTest::newRow("list") << QVariant(QVariantList{1, u"a"_s}) << true
                              << QVariantList{1, u"a"_s};
        QTest::newRow("empty list") << QVariant(QVariantList()) << true << QVariantList();
        QTest::newRow("texts") << QVariant(QStringList{u"a"_s, u"b"_s}) << true
                               << QVariantList{u"a"_s, u"b"_s};
        // A QByteArray-typed value counts as an array and is listed byte by byte.
        QTest::newRow("bytes") << QVariant(QByteArray("\n\xC8")) << true
                               << QVariantList{charOf('\n'), charOf('\xC8')};
        QTest::newRow("bits") << QVariant(QBitArray(3, true)) << true << QVariantList();
        QTest::newRow("map") << QVariant(QVariantMap{{u"a"_s, 1}}) << false
                             << QVariantList{QVariantMap{{u"a"_s, 1}}};
        QTest::newRow("no value") << QVariant() << false << QVariantList();
        QTest::newRow("null list")
            << QVariant(QMetaType(QMetaType::QVariantList)) << false << QVariantList();
    }

    void valuesAreListed()
    {
        QFETCH(QVariant, value);
        QFETCH(bool, array);
        QFETCH(QVariantList, list);
        const SDBField field(u"key"_s, value);
        QCOMPARE(field.isArray(), array);
        QCOMPARE(field.valueList(), list);
    }

    void withoutKeyNothingIsAnArray()
    {
        const QVariant list(QVariantList{1, 2});
        const SDBField field(QString(), list);
        QVERIFY(!field.isArray());
        QCOMPARE(field.valueList().size(), 1);
        QCOMPARE(field.valueList().first(), list);
        QCOMPARE(field.toString(true), u"1, 2"_s);
        QCOMPARE(field.toString(), u" = 1, 2"_s);
    }

    void fieldsHaveTheirLines_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("lines");
        QTest::addColumn<QString>("values");
        QTest::newRow("text") << QVariant(u"a b"_s) << u"key = a b"_s << u"a b"_s;
        QTest::newRow("number") << QVariant(-5) << u"key = -5"_s << u"-5"_s;
        QTest::newRow("empty text") << QVariant(u""_s) << u"key = "_s << u""_s;
        QTest::newRow("no value") << QVariant() << u""_s << u""_s;
        QTest::newRow("markers of a template")
            << QVariant(u"100%1 %2 %3"_s) << u"key = 100%1 %2 %3"_s << u"100%1 %2 %3"_s;
        QTest::newRow("several") << QVariant(QVariantList{1, u"b"_s}) << u"key.0 = 1\r\nkey.1 = b"_s
                                 << u"1\r\nb"_s;
        // The form without an index.
        QTest::newRow("one-element array") << QVariant(QVariantList{1}) << u"key = 1"_s << u"1"_s;
        QTest::newRow("one text in a list")
            << QVariant(QStringList{u"a"_s}) << u"key = a"_s << u"a"_s;
        QTest::newRow("empty list") << QVariant(QVariantList()) << u""_s << u""_s;
        QTest::newRow("bytes") << QVariant(QByteArray("\n\xC8")) << u"key.0 = 10\r\nkey.1 = 200"_s
                               << u"10\r\n200"_s;
        QTest::newRow("one byte") << QVariant(QByteArray("A")) << u"key = 65"_s << u"65"_s;
        QTest::newRow("bits") << QVariant(QBitArray(3)) << u""_s << u""_s;
        QTest::newRow("null in a list")
            << QVariant(QVariantList{QVariant(), 2}) << u"key.0 = \r\nkey.1 = 2"_s << u"\r\n2"_s;
        QTest::newRow("list in a list") << QVariant(QVariantList{QVariantList{1, 2}, 3})
                                        << u"key.0 = 1, 2\r\nkey.1 = 3"_s << u"1, 2\r\n3"_s;
    }

    void fieldsHaveTheirLines()
    {
        QFETCH(QVariant, value);
        QFETCH(QString, lines);
        QFETCH(QString, values);
        const SDBField field(u"key"_s, value);
        QCOMPARE(field.toString(), lines);
        QCOMPARE(field.toString(false, QLocale::c()), lines);
        QCOMPARE(field.toString(QString(), QLocale::c()), lines);
        QCOMPARE(field.toString(u"F"_s), values);
        QCOMPARE(field.toString(u"f"_s, QLocale::c()), values);
        QCOMPARE(field.toString(true), values);
    }

    void indexHasAllItsDigits()
    {
        const SDBField field(u"k"_s, QVariantList(12, u"x"_s));
        QVERIFY(field.toString().endsWith(u"\r\nk.9 = x\r\nk.10 = x\r\nk.11 = x"_s));
    }

    void textIsThatOfFormatAndLocale()
    {
        const SDBField field(u"k"_s, QVariantList{1.5, 7});
        QCOMPARE(field.toString(QLocale(u"it_IT"_s)), u"k.0 = 1,5\r\nk.1 = 7"_s);
        QCOMPARE(field.toString(u"D2"_s, QLocale(u"it_IT"_s)), u"k.0 = 1,5\r\nk.1 = 07"_s);
        QCOMPARE(field.toString(true, QLocale(u"it_IT"_s)), u"1,5\r\n7"_s);
        // The index is no value.
        QCOMPARE(field.toString(QLocale(u"ar_EG"_s)),
                 u"k.0 = \u0661\u066B\u0665\r\nk.1 = \u0667"_s);
    }

    void textIsReachedByTheInterface()
    {
        const SDBField field(u"k"_s, 1.5);
        const Interfaces::IFormattable &formattable = field;
        QCOMPARE(formattable.toString(), u"k = 1.5"_s);
        QCOMPARE(formattable.toString(u"F"_s), u"1.5"_s);
        QCOMPARE(formattable.toString(QLocale(u"it_IT"_s)), u"k = 1,5"_s);
        QLocale::setDefault(QLocale(u"it_IT"_s));
        const QStringList texts{formattable.toString(), formattable.toString(u"F"_s),
                                field.toString(true)};
        QLocale::setDefault(QLocale::c());
        QCOMPARE(texts, QStringList({u"k = 1,5"_s, u"1,5"_s, u"1,5"_s}));
    }

    void enumerationsAreWrittenByName()
    {
        QCOMPARE(SDBField(u"k"_s, QVariant::fromValue(Bool::True)).toString(), u"k = True"_s);
    }

    void linesAreRead_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("value");
        const auto row = [](const char *name, const QString &text, const QString &key,
                            const QVariant &value) { QTest::newRow(name) << text << key << value; };
        row("a line", u"key = value"_s, u"key"_s, u"value"_s);
        row("with its end", u"key = value\r\n"_s, u"key"_s, u"value"_s);
        row("without blanks", u"key=value"_s, u"key"_s, u"value"_s);
        row("with many blanks", u" \t key \t= \t a  b \t"_s, u"key"_s, u"a  b"_s);
        row("equals in the value", u"key = a = b"_s, u"key"_s, u"a = b"_s);
        row("empty value", u"dbpasswd = "_s, u"dbpasswd"_s, u""_s);
        row("equals at the end", u"key ="_s, u"key"_s, u""_s);
        row("no name", u" = 5"_s, QString(), u"5"_s);
        row("dot for a name", u".0 = 5"_s, QString(), u"5"_s);
        row("equals alone", u"="_s, QString(), u""_s);
        row("an index", u"key.7 = a"_s, u"key"_s, u"a"_s);
        row("blanks before the dot", u"key .7 = a"_s, u"key"_s, u"a"_s);
        row("two dots", u"key.a.b = c"_s, u"key"_s, u"c"_s);
        row("dot in the value", u"key = a.b"_s, u"key"_s, u"a.b"_s);
        row("several", u"k.0 = a\r\nk.1 = b\r\nk.2 = c"_s, u"k"_s,
            QVariantList{u"a"_s, u"b"_s, u"c"_s});
        row("ends of other systems", u"k.0 = a\nk.1 = b\n"_s, u"k"_s, QVariantList{u"a"_s, u"b"_s});
        row("indexes out of order", u"k.9 = a\nk.x = b\nk = c"_s, u"k"_s,
            QVariantList{u"a"_s, u"b"_s, u"c"_s});
        row("other lines between", u"k = a\n\n# comment\nk = b"_s, u"k"_s,
            QVariantList{u"a"_s, u"b"_s});
        row("the last name counts", u"a = 1\nb = 2"_s, u"b"_s, QVariantList{u"1"_s, u"2"_s});
        row("empty", QString(), QString(), QVariant());
        row("line ends alone", u"\r\n\r\n\n"_s, QString(), QVariant());
        row("no equals", u"a line of words"_s, QString(), QVariant());
        row("carriage returns do not end a line", u"k = a\rb = c"_s, u"k"_s, u"a\rb = c"_s);
        row("zero byte", QString(QLatin1String("k = a\0b", 7)), u"k"_s,
            QString(QLatin1String("a\0b", 3)));
        row("a number stays text", u"k = 007"_s, u"k"_s, u"007"_s);
        row("no-break spaces are blanks", u"\u00A0k\u00A0=\u00A0v\u00A0"_s, u"k"_s, u"v"_s);
    }

    void linesAreRead()
    {
        QFETCH(QString, text);
        QFETCH(QString, key);
        QFETCH(QVariant, value);
        for (const QLocale &locale : locales()) {
            const SDBField field = SDBField::fromString(text, u"F"_s, locale);
            QCOMPARE(field.key(), key);
            QCOMPARE(field.value(), value);
            QCOMPARE(field.value().userType(), value.userType());
        }
    }

    void oneElementArrayIsReadBackAsScalar()
    {
        const SDBField field(u"k"_s, QStringList{u"a"_s});
        const SDBField read = SDBField::fromString(field.toString());
        QVERIFY(!read.isArray());
        QCOMPARE(read.value(), QVariant(u"a"_s));
    }

    void listOfTextsIsReadBackAsList()
    {
        const SDBField field(u"k"_s, QStringList{u"a"_s, u"b"_s});
        const SDBField read = SDBField::fromString(field.toString());
        QCOMPARE(read.type(), QMetaType::QVariantList);
        QCOMPARE(read.valueList(), field.valueList());
    }

    void emptyValueIsReadAsText()
    {
        const SDBField read = SDBField::fromString(u"dbpasswd = "_s);
        QVERIFY(!read.isEmpty());
        QVERIFY(!read.value().isNull());
        QVERIFY(!read.value().toString().isNull());
    }

    // What has no line feed and no blanks at its ends comes back as it was, in every locale.
    void anyTextIsReadBack()
    {
        SeededRandom random;
        for (int i = 0; i < 2000; ++i) {
            QString text;
            for (qint64 length = random.between(0, 19); length > 0; --length)
                text += QChar(static_cast<char16_t>(random.between(0, i % 2 ? 0x7F : 0xFFFF)));
            text = text.remove(u'\n').trimmed();
            const QLocale &locale = locales().at(i % locales().size());
            const SDBField read =
                SDBField::fromString(SDBField(u"k"_s, text).toString(locale), QString(), locale);
            QCOMPARE(read.value(), QVariant(text));
            QCOMPARE(read.toString(true, locale), text);
        }
    }

    void manyLinesAreRead()
    {
        QString text;
        for (int i = 0; i < 200'000; ++i)
            text += u"k = a\n\n"_s;
        QCOMPARE(SDBField::fromString(text).valueList().size(), 200'000);
        QCOMPARE(SDBField::fromString(QString(10'000'000, u'x')), SDBField());
        QCOMPARE(SDBField::fromString(QString(10'000'000, u'=')).value().toString().size(),
                 9'999'999);
    }

    void valuesAreAppended_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QVariantList>("list");
        QTest::newRow("to nothing") << QVariant() << QVariantList{u"new"_s};
        QTest::newRow("to a text") << QVariant(u"a"_s) << QVariantList{u"a"_s, u"new"_s};
        QTest::newRow("to a list") << QVariant(QVariantList{1}) << QVariantList{1, u"new"_s};
        QTest::newRow("to texts") << QVariant(QStringList{u"a"_s})
                                  << QVariantList{u"a"_s, u"new"_s};
    }

    void valuesAreAppended()
    {
        QFETCH(QVariant, value);
        QFETCH(QVariantList, list);
        SDBField field(u"k"_s, value);
        const SDBField copy = field;
        field.append(u"new"_s);
        QCOMPARE(field.type(), QMetaType::QVariantList);
        QCOMPARE(field.valueList(), list);
        QCOMPARE(copy.value(), value);
    }

    void listIsAppendedAsOneValue()
    {
        SDBField field(u"k"_s, 1);
        field.append(QVariantList{2, 3});
        QCOMPARE(field.valueList(), QVariantList({1, QVariantList{2, 3}}));
    }

    // Copying the list for each would be ten thousand million steps.
    void manyValuesAreAppended()
    {
        SDBField field(u"k"_s, u"a"_s);
        for (int i = 0; i < 100'000; ++i)
            field.append(u"a"_s);
        QCOMPARE(field.valueList().size(), 100'001);
    }
};

QTEST_APPLESS_MAIN(tst_SDBField)
#include "tst_sdbfield.moc"
