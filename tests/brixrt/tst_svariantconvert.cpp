// SPDX-License-Identifier: MIT
#include <brixrt/svariantconvert.h>

#include <brixlib/foundation/senum.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

// clang-format off
S_ENUM(Taste,
    Sweet = 0,
    Sour = 1,
    Bitter = 2
)
// clang-format on

struct Point
{
    int x = 0;
    int y = 0;
};

struct Outer
{
    Point inner;
};

template<typename T>
QString textOf(const T &value, const QLocale &locale = QLocale::c())
{
    QString text;
    if (!SVariantConvert::toString(QVariant::fromValue(value), locale, &text))
        return u"no converter"_s;
    return text;
}

QString pointText(const QVariant &value, const QLocale &)
{
    const auto point = value.value<Point>();
    return u"(%1,%2)"_s.arg(QString::number(point.x), QString::number(point.y));
}

} // namespace

Q_DECLARE_METATYPE(Taste)
Q_DECLARE_METATYPE(Point)
Q_DECLARE_METATYPE(Outer)

namespace {

// Registered before main(), as libraries do.
const bool registeredAtLoad = [] {
    SVariantConvert::sVariantToStringRegister(qMetaTypeId<Point>(), pointText);
    SVariantConvert::sVariantToStringRegister<Taste, Taste_T>();
    return true;
}();

} // namespace

class tst_SVariantConvert : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void unknownTypeLeavesTheTextAsItWas_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::newRow("invalid") << QVariant();
        QTest::newRow("number") << QVariant(7);
        QTest::newRow("text") << QVariant(u"seven"_s);
    }
    void unknownTypeLeavesTheTextAsItWas()
    {
        QFETCH(QVariant, value);
        QString text = u"before"_s;
        QVERIFY(!SVariantConvert::toString(value, QLocale::c(), &text));
        QCOMPARE(text, u"before"_s);
        QVERIFY(!SVariantConvert::toString(value, QLocale::c(), nullptr));
    }

    void registeredTypeTurnsToText()
    {
        QVERIFY(registeredAtLoad);
        QCOMPARE(textOf(Point{1, -2}), u"(1,-2)"_s);
        QVERIFY(SVariantConvert::toString(QVariant::fromValue(Point{}), QLocale::c(), nullptr));
    }

    void converterGetsTheLocale()
    {
        SVariantConvert::sVariantToStringRegister(
            qMetaTypeId<Outer>(), [](const QVariant &value, const QLocale &locale) {
                return locale.toString(value.value<Outer>().inner.x);
            });
        const Outer value{{1234567, 0}};
        QCOMPARE(textOf(value, QLocale(QLocale::English, QLocale::UnitedStates)), u"1,234,567"_s);
        QCOMPARE(textOf(value, QLocale(QLocale::German, QLocale::Germany)), u"1.234.567"_s);
    }

    void secondRegistrationReplacesTheFirst()
    {
        SVariantConvert::sVariantToStringRegister(
            qMetaTypeId<Outer>(), [](const QVariant &, const QLocale &) { return u"first"_s; });
        SVariantConvert::sVariantToStringRegister(
            qMetaTypeId<Outer>(), [](const QVariant &, const QLocale &) { return u"second"_s; });
        QCOMPARE(textOf(Outer{}), u"second"_s);
    }

    void emptyConverterTakesTheTypeAway()
    {
        SVariantConvert::sVariantToStringRegister(qMetaTypeId<Outer>(), {});
        QCOMPARE(textOf(Outer{}), u"no converter"_s);
    }

    void converterMayConvertAndRegister()
    {
        SVariantConvert::sVariantToStringRegister(
            qMetaTypeId<Outer>(), [](const QVariant &value, const QLocale &locale) {
                SVariantConvert::sVariantToStringRegister(qMetaTypeId<Point>(), pointText);
                QString text;
                SVariantConvert::toString(QVariant::fromValue(value.value<Outer>().inner), locale,
                                          &text);
                return u"outer "_s + text;
            });
        QCOMPARE(textOf(Outer{{3, 4}}), u"outer (3,4)"_s);
    }

    void enumerationTurnsToTheNameOfItsValue()
    {
        QCOMPARE(textOf(Taste::Bitter), u"Bitter"_s);
        QCOMPARE(textOf(static_cast<Taste>(9)), u"9"_s);
    }

    void plainVariantsAgree() { QCOMPARE(QVariant::fromValue(Taste::Sour).toString(), u"Sour"_s); }

    void enumerationMayBeRegisteredTwice()
    {
        SVariantConvert::sVariantToStringRegister<Taste, Taste_T>();
        SVariantConvert::sVariantToStringRegister<Taste, Taste_T>();
        QCOMPARE(textOf(Taste::Sweet), u"Sweet"_s);
        QCOMPARE(QVariant::fromValue(Taste::Sweet).toString(), u"Sweet"_s);
    }

    void threadsConvertWhileAnotherRegisters()
    {
        std::atomic_bool stop = false;
        std::atomic_int wrong = 0;
        std::vector<std::thread> readers;
        for (int i = 0; i < 3; ++i) {
            readers.emplace_back([&] {
                while (!stop)
                    wrong += textOf(Point{5, 6}) != u"(5,6)"_s;
            });
        }
        for (int round = 0; round < 2000; ++round)
            SVariantConvert::sVariantToStringRegister(qMetaTypeId<Point>(), pointText);
        stop = true;
        for (std::thread &reader : readers)
            reader.join();
        QCOMPARE(wrong.load(), 0);
    }
};

QTEST_APPLESS_MAIN(tst_SVariantConvert)
#include "tst_svariantconvert.moc"
