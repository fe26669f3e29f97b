// SPDX-License-Identifier: MIT
#include <brixrt/slocale.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_SLocale : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshStateIsTheDefaultLocale() { QCOMPARE(QLocale(SLocale()), QLocale()); }

    void bothSeparatorsAreRead_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("plain");
        QTest::newRow("hyphen") << u"en-US"_s << u"en_US"_s;
        QTest::newRow("underscore") << u"en_US"_s << u"en_US"_s;
        QTest::newRow("with a script") << u"sr-Latn-RS"_s << u"sr_Latn_RS"_s;
        QTest::newRow("language alone") << u"de"_s << u"de_DE"_s;
        QTest::newRow("C") << u"C"_s << u"C"_s;
    }

    void bothSeparatorsAreRead()
    {
        QFETCH(QString, name);
        QFETCH(QString, plain);
        QCOMPARE(QLocale(SLocale(name)), QLocale(plain));
    }

    void unknownNamesGiveTheCLocale_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("null") << QString();
        QTest::newRow("empty") << u""_s;
        QTest::newRow("no language") << u"xx-YY"_s;
        QTest::newRow("words") << u"not a locale at all"_s;
        QTest::newRow("hyphens") << u"---"_s;
        QTest::newRow("a million letters") << QString(1'000'000, u'x');
        QTest::newRow("zero byte") << QString(QLatin1String("e\0n", 3));
        QTest::newRow("beyond ASCII") << u"日本"_s;
    }

    void unknownNamesGiveTheCLocale()
    {
        QFETCH(QString, name);
        const SLocale locale(name);
        QCOMPARE(locale.language(), QLocale::C);
        QCOMPARE(SLocale::lcName(locale, false), u"C"_s);
    }

    void optionsAreKept()
    {
        const SLocale locale(u"en-US"_s, QLocale::OmitGroupSeparator);
        QCOMPARE(locale.toString(1234567), u"1234567"_s);
        // What makes cultures differ from plain locales of the same name.
        QVERIFY(QLocale(locale) != QLocale(u"en_US"_s));
        QCOMPARE(SLocale(u"en-US"_s).toString(1234567), u"1,234,567"_s);
    }

    void namesAreWritten_data()
    {
        QTest::addColumn<QLocale>("locale");
        QTest::addColumn<QString>("hyphens");
        QTest::addColumn<QString>("underscores");
        QTest::newRow("en_US") << QLocale(u"en_US"_s) << u"en-US"_s << u"en_US"_s;
        QTest::newRow("pt_BR") << QLocale(u"pt_BR"_s) << u"pt-BR"_s << u"pt_BR"_s;
        QTest::newRow("C") << QLocale::c() << u"C"_s << u"C"_s;
        QTest::newRow("its usual script") << QLocale(u"sr_Cyrl_RS"_s) << u"sr-RS"_s << u"sr_RS"_s;
        QTest::newRow("another script")
            << QLocale(u"sr_Latn_RS"_s) << u"sr-Latn-RS"_s << u"sr_Latn_RS"_s;
    }

    void namesAreWritten()
    {
        QFETCH(QLocale, locale);
        QTEST(SLocale::lcName(locale, false), "hyphens");
        QTEST(SLocale::lcName(locale, true), "underscores");
    }

    void everyLocaleIsFoundByItsName()
    {
        const QList<QLocale> all = QLocale::matchingLocales(
            QLocale::AnyLanguage, QLocale::AnyScript, QLocale::AnyTerritory);
        QVERIFY(all.size() > 300);
        for (const QLocale &locale : all) {
            QCOMPARE(QLocale(SLocale(SLocale::lcName(locale, false))), locale);
            QCOMPARE(QLocale(SLocale(SLocale::lcName(locale, true))), locale);
        }
    }

    void languageAndRegionAreNamed()
    {
        QCOMPARE(SLocale::name(QLocale(u"pt_BR"_s), false), u"pt"_s);
        QCOMPARE(SLocale::name(QLocale(u"pt_BR"_s), true), u"pt_BR"_s);
        QCOMPARE(SLocale::name(QLocale(u"sr_Latn_RS"_s), false), u"sr"_s);
        QCOMPARE(SLocale::name(QLocale::c(), false), u"C"_s);
        QCOMPARE(SLocale(u"pt-BR"_s).name(), u"pt_BR"_s);
    }
};

QTEST_APPLESS_MAIN(tst_SLocale)
#include "tst_slocale.moc"
