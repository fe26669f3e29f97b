// SPDX-License-Identifier: MIT
#include <brixlib/enums/binaryunit.h>
#include <brixlib/enums/scslengthunit.h>
#include <brixlib/enums/silengthunit.h>
#include <brixlib/enums/siprefix.h>

#include <brixrt/sunitconvert.h>

#include <cmath>
#include <limits>

using namespace Talverine;

namespace {

constexpr qint64 kLargest = std::numeric_limits<qint64>::max();
constexpr qint64 kSmallest = std::numeric_limits<qint64>::min();

} // namespace

class tst_SUnitConvert : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void unitsInBytes_data()
    {
        QTest::addColumn<int>("count");
        QTest::addColumn<BinaryUnit>("unit");
        QTest::addColumn<qint64>("bytes");
        QTest::newRow("bytes") << 17 << BinaryUnit::Byte << qint64(17);
        QTest::newRow("32 KiB") << 32 << BinaryUnit::KiB << qint64(32768);
        QTest::newRow("2 MiB") << 2 << BinaryUnit::MiB << qint64(2097152);
        QTest::newRow("largest count of GiB")
            << std::numeric_limits<int>::max() << BinaryUnit::GiB
            << qint64(std::numeric_limits<int>::max()) * (qint64(1) << 30);
        QTest::newRow("largest count of bytes")
            << std::numeric_limits<int>::max() << BinaryUnit::Byte << qint64(2147483647);
        QTest::newRow("nothing") << 0 << BinaryUnit::YiB << qint64(0);
        QTest::newRow("negative") << -3 << BinaryUnit::KiB << qint64(-3072);
        QTest::newRow("7 EiB") << 7 << BinaryUnit::EiB << (qint64(7) << 60);
        QTest::newRow("8 EiB do not fit") << 8 << BinaryUnit::EiB << kLargest;
        QTest::newRow("-8 EiB just fit") << -8 << BinaryUnit::EiB << kSmallest;
        QTest::newRow("-9 EiB do not fit") << -9 << BinaryUnit::EiB << kSmallest;
        QTest::newRow("shift of 70") << 1 << BinaryUnit::ZiB << kLargest;
        QTest::newRow("shift of 80, negative") << -1 << BinaryUnit::YiB << kSmallest;
    }

    void unitsInBytes()
    {
        QFETCH(int, count);
        QFETCH(BinaryUnit, unit);
        QTEST(SUnitConvert::toBytes(count, unit), "bytes");
    }

    void bytesInUnits_data()
    {
        QTest::addColumn<quint64>("bytes");
        QTest::addColumn<BinaryUnit>("unit");
        QTest::addColumn<double>("value");
        QTest::newRow("bytes") << quint64(17) << BinaryUnit::Byte << 17.0;
        QTest::newRow("KiB") << quint64(1536) << BinaryUnit::KiB << 1.5;
        QTest::newRow("GiB") << (quint64(3) << 29) << BinaryUnit::GiB << 1.5;
        QTest::newRow("largest, EiB")
            << std::numeric_limits<quint64>::max() << BinaryUnit::EiB << 16.0;
        QTest::newRow("shift of 70") << (quint64(1) << 60) << BinaryUnit::ZiB << 1.0 / 1024;
        QTest::newRow("shift of 80") << (quint64(1) << 63) << BinaryUnit::YiB << 8.0 / (1 << 20);
        QTest::newRow("nothing") << quint64(0) << BinaryUnit::MiB << 0.0;
    }

    void bytesInUnits()
    {
        QFETCH(quint64, bytes);
        QFETCH(BinaryUnit, unit);
        QFETCH(double, value);
        // Not QCOMPARE, which lets doubles differ a little: powers of two are exact.
        QVERIFY(SUnitConvert::binaryUnits(bytes, unit) == value);
    }

    void prefixes_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<SIPrefix>("from");
        QTest::addColumn<SIPrefix>("to");
        QTest::addColumn<double>("result");
        QTest::newRow("same") << 1.25 << SIPrefix::Milli << SIPrefix::Milli << 1.25;
        QTest::newRow("kilo to base") << 1.25 << SIPrefix::Kilo << SIPrefix::Base << 1250.0;
        QTest::newRow("base to kilo") << 3.0 << SIPrefix::Base << SIPrefix::Kilo << 0.003;
        QTest::newRow("centi to micro") << 2.5 << SIPrefix::Centi << SIPrefix::Micro << 25000.0;
        QTest::newRow("yotta to yocto") << 1.0 << SIPrefix::Yotta << SIPrefix::Yocto << 1e48;
        QTest::newRow("yocto to yotta") << 1.0 << SIPrefix::Yocto << SIPrefix::Yotta << 1e-48;
        QTest::newRow("negative") << -7.0 << SIPrefix::Deci << SIPrefix::Milli << -700.0;
    }

    void prefixes()
    {
        QFETCH(double, value);
        QFETCH(SIPrefix, from);
        QFETCH(SIPrefix, to);
        QTEST(SUnitConvert::convert(value, from, to), "result");
    }

    void metricLengths()
    {
        QCOMPARE(SUnitConvert::convert(3, SILengthUnit::Meter, SILengthUnit::MilliMeter), 3000.0);
        QCOMPARE(SUnitConvert::convert(600, SILengthUnit::MicroMeter, SILengthUnit::MilliMeter),
                 0.6);
    }

    void customaryLengths()
    {
        QCOMPARE(SUnitConvert::convert(3, SCSLengthUnit::Yard, SCSLengthUnit::Foot), 9.0);
        QCOMPARE(SUnitConvert::convert(6, SCSLengthUnit::Inch, SCSLengthUnit::Foot), 0.5);
        QCOMPARE(SUnitConvert::convert(1, SCSLengthUnit::Mile, SCSLengthUnit::Furlong), 8.0);
    }

    // Inches and millimetres come out as they are written, without a last digit of noise.
    void inchesAreExact_data()
    {
        QTest::addColumn<double>("customary");
        QTest::addColumn<SCSLengthUnit>("customaryUnit");
        QTest::addColumn<double>("metric");
        QTest::addColumn<SILengthUnit>("metricUnit");
        QTest::newRow("inch") << 1.0 << SCSLengthUnit::Inch << 0.0254 << SILengthUnit::Meter;
        QTest::newRow("inch in millimetres")
            << 1.0 << SCSLengthUnit::Inch << 25.4 << SILengthUnit::MilliMeter;
        QTest::newRow("inch in micrometres")
            << 1.0 << SCSLengthUnit::Inch << 25400.0 << SILengthUnit::MicroMeter;
        QTest::newRow("foot") << 1.0 << SCSLengthUnit::Foot << 30.48 << SILengthUnit::CentiMeter;
        QTest::newRow("mile") << 1.0 << SCSLengthUnit::Mile << 1609.344 << SILengthUnit::Meter;
        QTest::newRow("half a yard")
            << 0.5 << SCSLengthUnit::Yard << 457.2 << SILengthUnit::MilliMeter;
    }

    void inchesAreExact()
    {
        QFETCH(double, customary);
        QFETCH(SCSLengthUnit, customaryUnit);
        QFETCH(double, metric);
        QFETCH(SILengthUnit, metricUnit);
        QVERIFY(SUnitConvert::convert(customary, customaryUnit, metricUnit) == metric);
        QCOMPARE(SUnitConvert::convert(metric, metricUnit, customaryUnit), customary);
    }
};

QTEST_APPLESS_MAIN(tst_SUnitConvert)
#include "tst_sunitconvert.moc"
