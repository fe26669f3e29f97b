// SPDX-License-Identifier: MIT
#include <brixlib/protocol/pluggables/spluggablestringlist.h>

#include <shared/goldenbytes.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

QByteArray fromHex(const char *hex)
{
    return QByteArray::fromHex(hex);
}

const auto golden = GoldenBytes::pluggableTexts();
const auto goldenValues = QList<QString>{u"a"_s, QString(u""_s), u"né"_s};

} // namespace

class tst_SPluggableStringList : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshListIsEmpty()
    {
        QObject parent;
        const SPluggableStringList pluggable(&parent);
        QVERIFY(pluggable.values().isEmpty());
        QCOMPARE(pluggable.parent(), &parent);
    }

    void valuesAreReadBack()
    {
        SPluggableStringList pluggable(goldenValues);
        QCOMPARE(pluggable.values(), goldenValues);
        pluggable.setValues({u"x"_s});
        QCOMPARE(pluggable.values(), QList<QString>{u"x"_s});
    }

    void executeGivesTheTaggedListWhateverTheParameters()
    {
        SPluggableStringList pluggable(goldenValues);
        QByteArray output = "old"_ba;
        QVERIFY(pluggable.execute("params"_ba, output, {}));
        QCOMPARE(output, golden);
        pluggable.setValues({});
        QVERIFY(pluggable.execute({}, output, {}));
        QVERIFY(output.isEmpty());
    }

    void listIsWrittenByteByByte()
    {
        QCOMPARE(SPluggableStringList::stringListToByteArray(goldenValues), golden);
        QCOMPARE(SPluggableStringList::byteArrayToStringList(golden), goldenValues);
    }

    void emptyListIsAnEmptyArray()
    {
        QVERIFY(SPluggableStringList::stringListToByteArray({}).isEmpty());
        QVERIFY(SPluggableStringList::byteArrayToStringList({}).isEmpty());
    }

    void listOfOneEmptyTextHasATag()
    {
        const auto bytes = fromHex("5354524c 00000001 00000000");
        QCOMPARE(SPluggableStringList::stringListToByteArray({QString()}), bytes);
        QCOMPARE(SPluggableStringList::byteArrayToStringList(bytes).size(), 1);
    }

    void manyTextsAreReadBack()
    {
        QList<QString> values;
        for (int i = 0; i < 20'000; ++i)
            values.append(u"text %1"_s.arg(i));
        QCOMPARE(SPluggableStringList::byteArrayToStringList(
                     SPluggableStringList::stringListToByteArray(values)),
                 values);
    }

    void lyingBytesEndTheList_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QList<QString>>("values");
        const QList<QString> none;
        const QList<QString> one{u"a"_s};
        QTest::newRow("a STRG block") << "STRGtext"_ba << none;
        QTest::newRow("only the tag") << "STRL"_ba << none;
        QTest::newRow("half a count") << fromHex("5354524c 0000") << none;
        QTest::newRow("count 0") << fromHex("5354524c 00000000 00000001 61") << none;
        QTest::newRow("count -1") << fromHex("5354524c ffffffff 00000001 61") << none;
        QTest::newRow("lowest count") << fromHex("5354524c 80000000 00000001 61") << none;
        QTest::newRow("count too large") << fromHex("5354524c 7fffffff 00000001 61") << one;
        QTest::newRow("count without texts") << fromHex("5354524c 7fffffff") << none;
        QTest::newRow("length -1")
            << fromHex("5354524c 00000003 00000001 61 ffffffff 00000001 62") << one;
        QTest::newRow("lowest length") << fromHex("5354524c 00000002 00000001 61 80000000") << one;
        QTest::newRow("length one too large")
            << fromHex("5354524c 00000002 00000001 61 00000002 62") << one;
        QTest::newRow("length of 2 GiB")
            << fromHex("5354524c 00000002 00000001 61 7fffffff 62") << one;
        QTest::newRow("half a length") << fromHex("5354524c 00000002 00000001 61 0000") << one;
        QTest::newRow("more behind the list")
            << fromHex("5354524c 00000001 00000001 61 00000001 62") << one;
    }

    void lyingBytesEndTheList()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QList<QString>, values);
        QCOMPARE(SPluggableStringList::byteArrayToStringList(bytes), values);
    }

    void bytesCutAnywhereGiveTheWholeTextsBefore()
    {
        for (qsizetype size = 0; size < golden.size(); ++size) {
            const auto values = SPluggableStringList::byteArrayToStringList(golden.first(size));
            const int whole = size < 13 ? 0 : size < 17 ? 1 : 2;
            QCOMPARE(values, goldenValues.first(whole));
        }
    }
};

QTEST_APPLESS_MAIN(tst_SPluggableStringList)
#include "tst_spluggablestringlist.moc"
