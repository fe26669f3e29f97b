// SPDX-License-Identifier: MIT
#include <brixrt/sversion.h>

#include <QtCore/QJsonValue>
#include <QtCore/QSet>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_SVersion : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshVersionIsZero()
    {
        QCOMPARE(SVersion().value(), 0u);
        QCOMPARE(SVersion().toString(), u"0.0.0"_s);
    }

    void numbersArePackedIntoOneInteger()
    {
        constexpr SVersion version(2, 0, 12);
        static_assert(version.value() == 0x0002000C);
        static_assert(SVersion(0x00010200).minor() == 2);
        QCOMPARE(version.major(), quint16(2));
        QCOMPARE(version.minor(), quint8(0));
        QCOMPARE(version.patch(), quint8(12));
        QCOMPARE(SVersion(0xFFFF, 0xFF, 0xFF).value(), 0xFFFFFFFFu);
        QCOMPARE(SVersion(0xFFFFFFFF).major(), quint16(0xFFFF));
    }

    void textHasThreeDecimalNumbers_data()
    {
        QTest::addColumn<quint32>("value");
        QTest::addColumn<QString>("text");
        QTest::newRow("1.2.0") << 0x00010200u << u"1.2.0"_s;
        QTest::newRow("the library's own") << 0x0002000Cu << u"2.0.12"_s;
        QTest::newRow("largest") << 0xFFFFFFFFu << u"65535.255.255"_s;
    }
    void textHasThreeDecimalNumbers()
    {
        QFETCH(quint32, value);
        QFETCH(QString, text);
        QCOMPARE(SVersion(value).toString(), text);
        bool ok = false;
        QCOMPARE(SVersion::fromString(text, &ok), SVersion(value));
        QVERIFY(ok);
    }

    void shortTextIsFilledWithZeros_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<quint32>("value");
        QTest::newRow("one number") << u"7"_s << 0x00070000u;
        QTest::newRow("two numbers") << u"7.1"_s << 0x00070100u;
        QTest::newRow("blanks around") << u"  1.2.3\n"_s << 0x00010203u;
        QTest::newRow("leading zeros") << u"01.002.0003"_s << 0x00010203u;
    }
    void shortTextIsFilledWithZeros()
    {
        QFETCH(QString, text);
        QFETCH(quint32, value);
        bool ok = false;
        QCOMPARE(SVersion::fromString(text, &ok).value(), value);
        QVERIFY(ok);
    }

    void badTextIsRefused_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("null") << QString();
        QTest::newRow("empty") << u""_s;
        QTest::newRow("blank") << u" "_s;
        QTest::newRow("no number") << u"abc"_s;
        QTest::newRow("four numbers") << u"1.2.3.4"_s;
        QTest::newRow("empty part") << u"1..3"_s;
        QTest::newRow("dot at the end") << u"1.2."_s;
        QTest::newRow("sign") << u"+1.2.3"_s;
        QTest::newRow("negative") << u"-1"_s;
        QTest::newRow("blank inside") << u"1. 2.3"_s;
        QTest::newRow("major too large") << u"65536.0.0"_s;
        QTest::newRow("minor too large") << u"1.256.0"_s;
        QTest::newRow("patch too large") << u"1.0.256"_s;
        QTest::newRow("number of 40 digits") << u"1"_s.repeated(40);
        QTest::newRow("digits of another script") << QString(QChar(0x0661));
    }
    void badTextIsRefused()
    {
        QFETCH(QString, text);
        bool ok = true;
        QCOMPARE(SVersion::fromString(text, &ok), SVersion());
        QVERIFY(!ok);
        QCOMPARE(SVersion::fromString(text), SVersion());
    }

    void comparesAsInteger()
    {
        const SVersion older(1, 2, 255);
        const SVersion newer(1, 3, 0);
        QVERIFY(older < newer);
        QVERIFY(older <= newer);
        QVERIFY(newer > older);
        QVERIFY(newer >= SVersion(0x00010300));
        QVERIFY(older != newer);
        QVERIFY(SVersion(0x80000000) > SVersion(0x7FFFFFFF));
        QVERIFY(newer == 0x00010300u);
    }

    void servesAsKeyOfHash()
    {
        const QSet<SVersion> versions{SVersion(1, 0, 0), SVersion(0x00010000), SVersion(2, 0, 0)};
        QCOMPARE(versions.size(), 2);
        QVERIFY(versions.contains(SVersion(2, 0, 0)));
    }

    void streamHoldsOneBigEndianWord()
    {
        QByteArray bytes;
        QDataStream out(&bytes, QIODevice::WriteOnly);
        out << SVersion(0xFE01, 2, 3);
        QCOMPARE(bytes.toHex(), "fe010203"_ba);

        QDataStream in(bytes);
        SVersion read;
        in >> read;
        QCOMPARE(read, SVersion(0xFE010203));
        QCOMPARE(in.status(), QDataStream::Ok);
    }

    void truncatedStreamLeavesVersionAsItWas_data()
    {
        QTest::addColumn<qsizetype>("size");
        for (qsizetype size = 0; size < 4; ++size)
            QTest::addRow("%d bytes", int(size)) << size;
    }
    void truncatedStreamLeavesVersionAsItWas()
    {
        QFETCH(qsizetype, size);
        QDataStream in(QByteArray(size, '\x7F'));
        SVersion version(1, 2, 3);
        in >> version;
        QCOMPARE(version, SVersion(1, 2, 3));
        QCOMPARE(in.status(), QDataStream::ReadPastEnd);
    }

    void jsonKeepsVersionsOfTheUpperHalf()
    {
        const SVersion version(0xFFFFFFFF);
        const QJsonValue value(qint64{version.value()});
        QCOMPARE(SVersion(static_cast<quint32>(value.toInteger())), version);
    }

    void travelsInVariantsUnderBothNames()
    {
        const QVariant variant = QVariant::fromValue(SVersion(1, 2, 3));
        QCOMPARE(variant.value<SVersion>(), SVersion(1, 2, 3));
        QCOMPARE(QMetaType::fromName("SVersion"), QMetaType::fromType<SVersion>());
        QCOMPARE(QMetaType::fromName("Talverine::SVersion"), QMetaType::fromType<SVersion>());
    }

    void debugShowsText()
    {
        QString text;
        QDebug(&text) << SVersion(1, 2, 3);
        QCOMPARE(text.trimmed(), u"1.2.3"_s);
    }
};

QTEST_APPLESS_MAIN(tst_SVersion)
#include "tst_sversion.moc"
