// SPDX-License-Identifier: MIT
#include <brixlib/foundation/sdotnetcompatibilityhelper.h>

#include <shared/utctime.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

using Helper = SDotNetCompatibilityHelper;

class tst_SDotNetCompatibilityHelper : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // Local times need a zone with summer time to be worth testing.
        qputenv("TZ", "Europe/Rome");
    }

    void invalidDateIsZero() { QCOMPARE(Helper::toBinary(QDateTime()), 0); }

    void zeroIsAnInvalidDate() { QVERIFY(!Helper::fromBinary(0).isValid()); }

    void utcDate_data()
    {
        QTest::addColumn<QDateTime>("date");
        QTest::addColumn<qint64>("binary");
        const auto utc = [](int year, int month, int day, int h, int m, int s, int ms) {
            return utcTime(QDate(year, month, day), QTime(h, m, s, ms));
        };
        QTest::newRow("epoch") << utc(1970, 1, 1, 0, 0, 0, 0) << Q_INT64_C(5233041986427387904);
        QTest::newRow("leap day") << utc(2024, 2, 29, 12, 34, 56, 789)
                                  << Q_INT64_C(5250134087395277904);
        QTest::newRow("first") << utc(1, 1, 1, 0, 0, 0, 0) << Q_INT64_C(4611686018427387904);
        QTest::newRow("last") << utc(9999, 12, 31, 23, 59, 59, 999)
                              << Q_INT64_C(7767064994427377904);
    }

    void utcDate()
    {
        QFETCH(QDateTime, date);
        QFETCH(qint64, binary);
        QCOMPARE(Helper::toBinary(date), binary);
        QCOMPARE(Helper::fromBinary(binary), date);
        QCOMPARE(Helper::fromBinary(binary).timeSpec(), Qt::UTC);
    }

    void localDateComesBackToTheMillisecond_data()
    {
        QTest::addColumn<qint64>("msecs");
        QTest::newRow("winter") << Q_INT64_C(1704110400123);
        QTest::newRow("summer") << Q_INT64_C(1720000000999);
        QTest::newRow("before the epoch") << Q_INT64_C(-1000000000001);
        QTest::newRow("epoch") << Q_INT64_C(0);
    }

    void localDateComesBackToTheMillisecond()
    {
        QFETCH(qint64, msecs);
        const QDateTime date = QDateTime::fromMSecsSinceEpoch(msecs);
        const qint64 binary = Helper::toBinary(date);
        QVERIFY2(binary < 0, "the kind of a local time is the sign bit");
        QCOMPARE(Helper::fromBinary(binary), date);
        QCOMPARE(Helper::fromBinary(binary).toMSecsSinceEpoch(), msecs);
        QCOMPARE(Helper::fromBinary(binary).timeSpec(), Qt::LocalTime);
    }

    void fixedOffsetIsWrittenWithKind0AndReadAsLocal()
    {
        const QDateTime date =
            QDateTime::fromString(u"2024-02-29T14:34:56.789+02:00"_s, Qt::ISODateWithMs);
        const qint64 binary = Helper::toBinary(date);
        QCOMPARE(binary, Q_INT64_C(638448068967890000));
        QCOMPARE(Helper::fromBinary(binary).timeSpec(), Qt::LocalTime);
        QCOMPARE(Helper::fromBinary(binary).toMSecsSinceEpoch(), date.toMSecsSinceEpoch());
    }

    void kind3IsReadAsLocal()
    {
        const qint64 binary = Q_INT64_C(621355968000000000) | Q_INT64_C(3) << 62;
        QCOMPARE(Helper::fromBinary(binary).timeSpec(), Qt::LocalTime);
        QCOMPARE(Helper::fromBinary(binary).toMSecsSinceEpoch(), 0);
    }

    void ticksAreCutTowardsTheEpoch()
    {
        const qint64 epoch = Q_INT64_C(5233041986427387904);
        QCOMPARE(Helper::fromBinary(epoch + 9999).toMSecsSinceEpoch(), 0);
        QCOMPARE(Helper::fromBinary(epoch + 10000).toMSecsSinceEpoch(), 1);
        QCOMPARE(Helper::fromBinary(epoch - 9999).toMSecsSinceEpoch(), 0);
        QCOMPARE(Helper::fromBinary(epoch - 10000).toMSecsSinceEpoch(), -1);
    }

    void extremesDoNoHarm()
    {
        for (const qint64 value : {std::numeric_limits<qint64>::min(),
                                   std::numeric_limits<qint64>::max(), qint64(-1), qint64(1)})
            Helper::toBinary(Helper::fromBinary(value));
        const auto farthest = utcTime(QDate(1970, 1, 1), QTime(0, 0))
                                  .addMSecs(std::numeric_limits<qint64>::max() / 2);
        QVERIFY(farthest.isValid());
        QCOMPARE(quint64(Helper::toBinary(farthest)) >> 62 & 1, 1u);
    }

    void stringHash_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<qint32>("hash");
        QTest::newRow("empty") << QString() << 757602046;
        QTest::newRow("one") << u"A"_s << -842352673;
        QTest::newRow("two") << u"Ab"_s << -840386593;
        QTest::newRow("three") << u"Abc"_s << 536991802;
        QTest::newRow("four") << u"Abcd"_s << 1594742842;
        QTest::newRow("five") << u"Abcde"_s << 398759245;
        QTest::newRow("six") << u"Abcdef"_s << 392336717;
        QTest::newRow("a greeting") << u"Hello, world"_s << -1548942430;
        QTest::newRow("beyond ASCII") << u"é中"_s << 330151751;
        QTest::newRow("surrogates") << u"\U0001F600"_s << -2083885165;
        QTest::newRow("zero inside") << QString::fromLatin1("a\0b", 3) << 2101109631;
        QTest::newRow("a sentence")
            << u"The quick brown fox jumps over the lazy dog"_s << 1766444897;
    }

    void stringHash()
    {
        QFETCH(QString, text);
        QFETCH(qint32, hash);
        QCOMPARE(Helper::stringHash(text), hash);
    }

    void emptyHashFollowsFromTheStartValues()
    {
        const quint32 start = 352654597;
        QCOMPARE(Helper::stringHash(u""_s), qint32(start + start * 1566083941u));
    }

    void hashOfOneCharacterReadsNothingBehindIt()
    {
        const char16_t raw[] = {u'A', u'x', u'y'};
        QCOMPARE(Helper::stringHash(QString::fromRawData(reinterpret_cast<const QChar *>(raw), 1)),
                 -842352673);
    }

    void textToASCII_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("empty") << QString() << QByteArray();
        QTest::newRow("ASCII") << u"Hello"_s << QByteArray("Hello");
        QTest::newRow("é") << u"é"_s << QByteArray("?");
        QTest::newRow("largest ASCII") << QString(QChar(127)) << QByteArray("\x7F");
        QTest::newRow("first beyond") << QString(QChar(128)) << QByteArray("?");
        QTest::newRow("surrogates are two units") << u"a\U0001F600b"_s << QByteArray("a??b");
        QTest::newRow("zero") << QString(QChar(0)) << QByteArray(1, '\0');
    }

    void textToASCII()
    {
        QFETCH(QString, text);
        QFETCH(QByteArray, bytes);
        QCOMPARE(Helper::textToASCII(text), bytes);
    }

    void toTitleCase_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("title");
        QTest::newRow("empty") << QString() << QString();
        QTest::newRow("mixed") << u"hello wORLD (it's)"_s << u"Hello World (It'S)"_s;
        QTest::newRow("every separator")
            << u"a b,c.d;e:f(g)h!i?j'k\"l"_s << u"A B,C.D;E:F(G)H!I?J'K\"L"_s;
        QTest::newRow("no separator") << u"a-b_c/d"_s << u"A-b_c/d"_s;
        QTest::newRow("digit clears the wish") << u"1abc"_s << u"1abc"_s;
        QTest::newRow("separators in a row") << u"a  ,b"_s << u"A  ,B"_s;
        QTest::newRow("separators only") << u" ,. "_s << u" ,. "_s;
        QTest::newRow("beyond ASCII") << u"ÉCLAIR été"_s << u"Éclair Été"_s;
    }

    void toTitleCase()
    {
        QFETCH(QString, text);
        QFETCH(QString, title);
        QCOMPARE(Helper::toTitleCase(text), title);
    }
};

QTEST_APPLESS_MAIN(tst_SDotNetCompatibilityHelper)
#include "tst_sdotnetcompatibilityhelper.moc"
