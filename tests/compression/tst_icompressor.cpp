// SPDX-License-Identifier: MIT
#include "processors.h"

#include <brixlib/compression/slz4.h>
#include <brixlib/compression/snullcompressor.h>
#include <brixlib/compression/spackbits.h>
#include <brixlib/compression/stifflzw.h>
#include <brixlib/compression/szip.h>

using namespace Talverine::Compression;
using namespace Qt::StringLiterals;
using Interfaces::ICompressor;

class tst_ICompressor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void concurrenceIsKeptInRange_data()
    {
        QTest::addColumn<int>("processors");
        QTest::addColumn<int>("threads");
        QTest::addColumn<int>("concurrence");
        QTest::newRow("0 of 8 processors") << 8 << 0 << 4;
        QTest::newRow("0 of 7 processors") << 7 << 0 << 3;
        QTest::newRow("0 of one processor") << 1 << 0 << 1;
        QTest::newRow("negative") << 8 << -1 << 1;
        QTest::newRow("1") << 8 << 1 << 1;
        QTest::newRow("2") << 8 << 2 << 2;
        QTest::newRow("all") << 8 << 8 << 8;
        QTest::newRow("one more than all") << 8 << 9 << 8;
        QTest::newRow("1000") << 8 << 1000 << 8;
        QTest::newRow("processors unknown") << -1 << 4 << 1;
    }

    void concurrenceIsKeptInRange()
    {
        QFETCH(int, processors);
        QFETCH(int, threads);
        const Processors machine(processors);
        SLz4 compressor;
        QCOMPARE(compressor.concurrence(), 1);
        compressor.setConcurrence(threads);
        QTEST(compressor.concurrence(), "concurrence");
    }

    void idTellsTheClass()
    {
        const QList<quint64> ids{SNullCompressor::uniqueId(), SLz4::uniqueId(), SZip::uniqueId(),
                                 SPackBits::uniqueId(), STiffLZW::uniqueId()};
        QCOMPARE(QSet<quint64>(ids.begin(), ids.end()).size(), ids.size());
        QCOMPARE(SNullCompressor().id(), SNullCompressor::uniqueId());
        QCOMPARE(SLz4().id(), SLz4::uniqueId());
        QCOMPARE(SZip().id(), SZip::uniqueId());
        QCOMPARE(SPackBits().id(), SPackBits::uniqueId());
        QCOMPARE(STiffLZW().id(), STiffLZW::uniqueId());
        QCOMPARE(SLz4(9, Lz4Mode::Lz4Raw).id(), SLz4::uniqueId());
    }

    void isNeverNull()
    {
        QVERIFY(!SNullCompressor().isNull());
        QVERIFY(!SLz4().isNull());
        QVERIFY(!SZip().isNull());
        QVERIFY(!SPackBits().isNull());
        QVERIFY(!STiffLZW().isNull());
    }

    void basesAreUsable()
    {
        SLz4 compressor;
        Talverine::Interfaces::ICloneable &cloneable = compressor;
        Talverine::Interfaces::IIdentifiable &identifiable = compressor;
        Talverine::Interfaces::IConcurrency &concurrency = compressor;
        QCOMPARE(identifiable.id(), SLz4::uniqueId());
        concurrency.setConcurrence(2);
        QCOMPARE(compressor.concurrence(), 2);
        const std::unique_ptr<Talverine::Interfaces::ICloneable> copy(cloneable.clone());
        QVERIFY(dynamic_cast<SLz4 *>(copy.get()));
    }
};

QTEST_APPLESS_MAIN(tst_ICompressor)
#include "tst_icompressor.moc"
