// SPDX-License-Identifier: MIT
#include <brixlib/protocol/pluggables/spluggablestring.h>

#include <shared/goldenbytes.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_SPluggableString : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshValueIsEmpty()
    {
        QObject parent;
        const SPluggableString pluggable(&parent);
        QVERIFY(pluggable.value().isEmpty());
        QCOMPARE(pluggable.parent(), &parent);
    }

    void valueIsReadBack()
    {
        SPluggableString pluggable(u"one"_s);
        QCOMPARE(pluggable.value(), u"one"_s);
        pluggable.setValue(u"two"_s);
        QCOMPARE(pluggable.value(), u"two"_s);
    }

    void executeGivesTheTaggedValueWhateverTheParameters()
    {
        SPluggableString pluggable(u"größer"_s);
        QByteArray output = "old"_ba;
        QVERIFY(pluggable.execute("params"_ba, output, {}));
        QCOMPARE(output, GoldenBytes::pluggableText());
        pluggable.setValue(QString());
        QVERIFY(pluggable.execute({}, output, {}));
        QVERIFY(output.isEmpty());
    }

    void emptyStringIsAnEmptyArray()
    {
        QVERIFY(SPluggableString::stringToByteArray(u""_s).isEmpty());
        QVERIFY(SPluggableString::stringToByteArray(QString()).isEmpty());
        QVERIFY(SPluggableString::byteArrayToString(SPluggableString::stringToByteArray(u""_s))
                    .isEmpty());
    }

    void textIsReadBack_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("one letter") << u"a"_s;
        QTest::newRow("the tag itself") << u"STRG"_s;
        QTest::newRow("beyond 16 bits") << u"\U0001F5A8 printer"_s;
        QTest::newRow("a zero inside") << QString(u"a\0b"_s);
        QTest::newRow("long") << QString(1'000'000, u'é');
    }

    void textIsReadBack()
    {
        QFETCH(QString, text);
        QCOMPARE(SPluggableString::byteArrayToString(SPluggableString::stringToByteArray(text)),
                 text);
    }

    void otherBytesGiveAnEmptyText_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("nothing") << ""_ba;
        QTest::newRow("one byte") << "S"_ba;
        QTest::newRow("three bytes") << "STR"_ba;
        QTest::newRow("only the tag") << "STRG"_ba;
        QTest::newRow("a list") << QByteArray("STRL\0\0\0\1\0\0\0\1a", 13);
        QTest::newRow("JSON") << "JSON{}"_ba;
        QTest::newRow("lower case") << "strgtext"_ba;
        QTest::newRow("reversed") << "GRTStext"_ba;
        QTest::newRow("no tag") << "text without a tag"_ba;
    }

    void otherBytesGiveAnEmptyText()
    {
        QFETCH(QByteArray, bytes);
        QVERIFY(SPluggableString::byteArrayToString(bytes).isEmpty());
    }

    void bytesThatAreNotUtf8AreReplaced()
    {
        QCOMPARE(SPluggableString::byteArrayToString("STRGa\xff"
                                                     "b"_ba),
                 u"a\uFFFDb"_s);
    }
};

QTEST_APPLESS_MAIN(tst_SPluggableString)
#include "tst_spluggablestring.moc"
