// SPDX-License-Identifier: MIT
#include <brixlib/protocol/pluggables/spluggablejson.h>

#include <shared/goldenbytes.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

const auto golden = GoldenBytes::pluggableDocument();

QJsonDocument goldenDocument()
{
    return QJsonDocument(QJsonObject{{u"name"_s, u"Größe"_s}, {u"heads"_s, 8}});
}

} // namespace

class tst_SPluggableJson : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshDocumentIsNull()
    {
        QObject parent;
        const SPluggableJson pluggable(&parent);
        QVERIFY(pluggable.value().isNull());
        QCOMPARE(pluggable.parent(), &parent);
    }

    void valueIsReadBack()
    {
        SPluggableJson pluggable(goldenDocument());
        QCOMPARE(pluggable.value(), goldenDocument());
        pluggable.setValue(QJsonDocument(QJsonArray{1, 2}));
        QCOMPARE(pluggable.value(), QJsonDocument(QJsonArray{1, 2}));
    }

    void valueIsParsedFromAText()
    {
        SPluggableJson pluggable;
        pluggable.setValue(u"{\"name\":\"Größe\",\"heads\":8}"_s);
        QCOMPARE(pluggable.value(), goldenDocument());
        pluggable.setValue(u"no JSON"_s);
        QVERIFY(pluggable.value().isNull());
    }

    void executeGivesTheTaggedDocumentWhateverTheParameters()
    {
        SPluggableJson pluggable(goldenDocument());
        QByteArray output = "old"_ba;
        QVERIFY(pluggable.execute("params"_ba, output, {}));
        QCOMPARE(output, golden);
        pluggable.setValue(QJsonDocument());
        QVERIFY(pluggable.execute({}, output, {}));
        QVERIFY(output.isEmpty());
    }

    void documentIsWrittenIndentedBehindTheTag()
    {
        QCOMPARE(SPluggableJson::documentToByteArray(goldenDocument()), golden);
        QCOMPARE(SPluggableJson::byteArrayToDocument(golden), goldenDocument());
    }

    void compactTextIsReadToo()
    {
        QCOMPARE(SPluggableJson::byteArrayToDocument("JSON{\"heads\":8,\"name\":\"Größe\"}"_ba),
                 goldenDocument());
    }

    void nullDocumentIsAnEmptyArray()
    {
        QVERIFY(SPluggableJson::documentToByteArray(QJsonDocument()).isEmpty());
        QVERIFY(SPluggableJson::byteArrayToDocument({}).isNull());
    }

    void emptyObjectIsNotANullDocument()
    {
        const auto bytes = SPluggableJson::documentToByteArray(QJsonDocument(QJsonObject()));
        QCOMPARE(bytes, "JSON{\n}\n"_ba);
        QVERIFY(!SPluggableJson::byteArrayToDocument(bytes).isNull());
    }

    void otherBytesGiveANullDocument_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("three bytes") << "JSO"_ba;
        QTest::newRow("only the tag") << "JSON"_ba;
        QTest::newRow("a text") << "STRG{}"_ba;
        QTest::newRow("no tag") << "{}"_ba;
        QTest::newRow("lower case") << "json{}"_ba;
        QTest::newRow("no JSON") << "JSON{heads: 8}"_ba;
        QTest::newRow("nested without end") << "JSON" + QByteArray(100'000, '[');
        QTest::newRow("bytes that are not UTF-8") << "JSON{\"a\":\"\xff\"}"_ba;
    }

    void otherBytesGiveANullDocument()
    {
        QFETCH(QByteArray, bytes);
        QVERIFY(SPluggableJson::byteArrayToDocument(bytes).isNull());
    }

    void bytesCutAnywhereGiveANullDocument()
    {
        for (qsizetype size = 0; size < golden.size() - 1; ++size)
            QVERIFY(SPluggableJson::byteArrayToDocument(golden.first(size)).isNull());
    }
};

QTEST_APPLESS_MAIN(tst_SPluggableJson)
#include "tst_spluggablejson.moc"
