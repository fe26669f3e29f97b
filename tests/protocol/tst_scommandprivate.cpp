// SPDX-License-Identifier: MIT
#include <brixlib/protocol/scommand_p.h>

using namespace Talverine;

namespace {

const QByteArray kHeader = QByteArray::fromHex("73636D64 00050000 73636D69 00010000 77616D69");

} // namespace

class tst_SCommandPrivate : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void takesAnyIdAndKeepsItsVersion()
    {
        SCommandPrivate header;
        QVERIFY(header.isNull());
        QVERIFY(header.deserializeArray(kHeader));
        QCOMPARE(header.id(), CommandIds::kWhoAmI);
        QCOMPARE(header.version(), 0x00010000);
        QVERIFY(header.deserializeArray(QByteArray(kHeader).replace("wami", "nope")));
        QCOMPARE(header.id(), SCommandId(Wire::word("nope")));
    }

    void writesTheFirstVersionWhateverItHas()
    {
        SCommandPrivate header;
        QVERIFY(header.deserializeArray(kHeader));
        header.setVersion(7);
        QByteArray bytes;
        QVERIFY(header.serializeArray(bytes));
        QCOMPARE(bytes.toHex(' '), QByteArray(kHeader).replace(5, 1, "\1", 1).toHex(' '));
    }

    void damagedIdRecordIsANullId()
    {
        SCommandPrivate header;
        QVERIFY(header.deserializeArray(kHeader));
        QVERIFY(header.deserializeArray(QByteArray(kHeader).replace("scmi", "scmx")));
        QVERIFY(header.isNull());
    }

    void badHeaderLeavesTheId_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("wrong first magic") << QByteArray(kHeader).replace("scmd", "scmx");
        for (qsizetype size = 0; size < kHeader.size(); ++size)
            QTest::addRow("cut to %d bytes", static_cast<int>(size)) << kHeader.first(size);
    }
    void badHeaderLeavesTheId()
    {
        QFETCH(const QByteArray, bytes);
        SCommandPrivate header;
        QVERIFY(!header.deserializeArray(bytes));
        QVERIFY(header.isNull());
        QVERIFY(header.deserializeArray(kHeader));
        QVERIFY(!header.deserializeArray(bytes));
        QCOMPARE(header.id(), CommandIds::kWhoAmI);
    }

    void copiesCompareEqual()
    {
        SCommandPrivate header;
        QVERIFY(header.deserializeArray(kHeader));
        const std::unique_ptr<SCommandPrivate> copy(header.clone());
        QVERIFY(copy->equalsTo(&header));
        QVERIFY(!SCommandPrivate().equalsTo(&header));
        QVERIFY(!header.equalsTo(nullptr));
    }
};

QTEST_APPLESS_MAIN(tst_SCommandPrivate)
#include "tst_scommandprivate.moc"
