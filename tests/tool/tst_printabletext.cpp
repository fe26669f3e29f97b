// SPDX-License-Identifier: MIT
#include <cli/printabletext.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtTest/QTest>

using namespace Brix;
using namespace Qt::StringLiterals;

class tst_PrintableText : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void escapesWhatIsNotPrintable_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("printable");
        QTest::newRow("nothing") << QString() << QString();
        QTest::newRow("plain") << u"ann, 2 of 3"_s << u"ann, 2 of 3"_s;
        QTest::newRow("letters of any kind")
            << u"größe 漢字 🖨"_s << u"größe 漢字 🖨"_s;
        QTest::newRow("line ends") << u"a\nb\rc"_s << u"a\\nb\\rc"_s;
        QTest::newRow("tabulator") << u"a\tb"_s << u"a\\tb"_s;
        QTest::newRow("backslash") << u"a\\nb"_s << u"a\\\\nb"_s;
        QTest::newRow("zero") << QString(QChar()) << u"\\u{0}"_s;
        QTest::newRow("escape") << u"\x1b[31m"_s << u"\\u{1B}[31m"_s;
        QTest::newRow("delete") << u"\x7f"_s << u"\\u{7F}"_s;
        QTest::newRow("C1") << u"\u009b"_s << u"\\u{9B}"_s;
        QTest::newRow("right to left") << u"a\u202eb"_s << u"a\\u{202E}b"_s;
        QTest::newRow("isolate") << u"\u2066"_s << u"\\u{2066}"_s;
        QTest::newRow("zero width") << u"\u200b\ufeff"_s << u"\\u{200B}\\u{FEFF}"_s;
        QTest::newRow("line separator") << u"\u2028\u2029"_s << u"\\u{2028}\\u{2029}"_s;
        QTest::newRow("tag above the first plane")
            << QString::fromUcs4(U"\U000e0041") << u"\\u{E0041}"_s;
        QTest::newRow("half a pair") << QString(QChar(0xd83d)) << u"\\u{D83D}"_s;
        QTest::newRow("the other half first")
            << QString(QChar(0xdc00)) + QChar(0xd800) << u"\\u{DC00}\\u{D800}"_s;
    }

    void escapesWhatIsNotPrintable()
    {
        QFETCH(QString, text);
        QFETCH(QString, printable);
        QCOMPARE(printableText(text), printable);
    }

    void escapesBytesThatAreNoUtf8_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("printable");
        QTest::newRow("none") << QByteArray() << QString();
        QTest::newRow("valid") << "größe 🖨\n"_ba << u"größe 🖨\\n"_s;
        QTest::newRow("Latin-1") << "gr\xF6\xDFx"_ba << u"gr\\xF6\\xDFx"_s;
        QTest::newRow("cut character") << "a\xE6\xBC"_ba << u"a\\xE6\\xBC"_s;
        QTest::newRow("overlong slash") << "\xC0\xAF"_ba << u"\\xC0\\xAF"_s;
        QTest::newRow("surrogate") << "\xED\xA0\x80"_ba << u"\\xED\\xA0\\x80"_s;
        QTest::newRow("beyond Unicode") << "\xF5\x80\x80\x80"_ba << u"\\xF5\\x80\\x80\\x80"_s;
        QTest::newRow("bare CSI") << "\x9B[2J"_ba << u"\\x9B[2J"_s;
        QTest::newRow("valid around invalid") << "ä\xFFö\x1b"_ba << u"ä\\xFFö\\u{1B}"_s;
    }

    void escapesBytesThatAreNoUtf8()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, printable);
        QCOMPARE(printableUtf8(bytes), printable);
    }

    void jsonKeepsItsValues()
    {
        QString all;
        for (ushort unit = 0; unit < 0x2100; ++unit)
            all += QChar(unit);
        all += u"🖨"_s + QString::fromUcs4(U"\U000e0041");
        const QJsonDocument document(QJsonArray{all});
        const QByteArray json = printableJson(document.toJson(QJsonDocument::Compact));
        QCOMPARE(QJsonDocument::fromJson(json), document);
        QVERIFY(json.contains("~\\u007f\\u0080"));
        QVERIFY(json.contains("\\u202e"));
        QVERIFY(json.contains("\\udb40\\udc41"));
        QVERIFY(json.contains("\u00ff"));
        QVERIFY(json.contains("🖨"));
    }

    void jsonKeepsItsLayout()
    {
        const QByteArray indented = "{\n    \"name\": \"größe \\\\ \\n\"\n}\n";
        QCOMPARE(printableJson(indented), indented);
    }
};

QTEST_GUILESS_MAIN(tst_PrintableText)
#include "tst_printabletext.moc"
