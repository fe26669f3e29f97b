// SPDX-License-Identifier: MIT
#include <output.h>

using namespace Brix;
using namespace Qt::StringLiterals;

class tst_Output : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void controlCharactersAreNotShown_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("shown");
        QTest::newRow("ordinary") << u"größe 漢字 🖨"_s << u"größe 漢字 🖨"_s;
        QTest::newRow("escape sequence") << u"a\x1b[2Jb"_s << u"a?[2Jb"_s;
        QTest::newRow("bell, tab, carriage return") << u"a\a\t\rb"_s << u"a???b"_s;
        QTest::newRow("delete") << u"a\x7f"_s << u"a?"_s;
        QTest::newRow("the upper control characters") << QString(u"a\u009b31m"_s) << u"a?31m"_s;
        QTest::newRow("zero") << u"a\0b"_s << u"a?b"_s;
    }

    void controlCharactersAreNotShown()
    {
        QFETCH(QString, text);
        QFETCH(QString, shown);
        QCOMPARE(Output::printable(text), shown);
    }

    void countsAreShownInBinaryUnits()
    {
        QCOMPARE(Output::bytes(0), u"0 bytes"_s);
        QCOMPARE(Output::bytes(1023), u"1023 bytes"_s);
        QCOMPARE(Output::bytes(1536), u"1.5 KiB"_s);
        QCOMPARE(Output::bytes(512LL << 20), u"512.0 MiB"_s);
        QCOMPARE(Output::bytes(5LL << 30), u"5.0 GiB"_s);
    }
};

QTEST_APPLESS_MAIN(tst_Output)
#include "tst_output.moc"
