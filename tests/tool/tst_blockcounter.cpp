// SPDX-License-Identifier: MIT
#include <compress/blockcounter.h>

#include <shared/rawbytes.h>

using namespace Brix;

class tst_BlockCounter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void counts_data()
    {
        QTest::addColumn<QByteArray>("stream");
        QTest::addColumn<qint64>("blocks");
        const QByteArray block = RawBytes::array("block");
        QTest::newRow("nothing") << QByteArray() << qint64(0);
        QTest::newRow("a part of a length") << block.first(3) << qint64(0);
        QTest::newRow("a length") << block.first(4) << qint64(1);
        QTest::newRow("a part of a block") << block.chopped(1) << qint64(1);
        QTest::newRow("a block") << block << qint64(1);
        QTest::newRow("three blocks") << block + block + block << qint64(3);
        QTest::newRow("a length of 0 between") << block + RawBytes::u32(0) + block << qint64(2);
        QTest::newRow("4 GiB") << RawBytes::u32(0xFFFFFFFF) + block + block << qint64(1);
    }

    void counts()
    {
        QFETCH(QByteArray, stream);
        QFETCH(qint64, blocks);
        for (qsizetype piece = 1; piece <= stream.size() + 1; ++piece) {
            BlockCounter counter;
            for (qsizetype at = 0; at < stream.size(); at += piece)
                counter.add(QByteArrayView(stream).sliced(at, qMin(piece, stream.size() - at)));
            QCOMPARE(counter.blocks(), blocks);
        }
    }
};

QTEST_APPLESS_MAIN(tst_BlockCounter)
#include "tst_blockcounter.moc"
