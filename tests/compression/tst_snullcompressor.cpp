// SPDX-License-Identifier: MIT
#include "streams.h"

#include <brixlib/compression/snullcompressor.h>

#include <shared/recordingdevice.h>

using namespace Talverine::Compression;
using namespace Qt::StringLiterals;

class tst_SNullCompressor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshState()
    {
        SNullCompressor compressor;
        QCOMPARE(compressor.name(), u"uncompressed"_s);
        QCOMPARE(compressor.concurrence(), 1);
        QCOMPARE(compressor.bytesAvailable(), 0);
        QVERIFY(compressor.finalize());
    }

    void concurrenceIsAlways1()
    {
        SNullCompressor compressor;
        compressor.setConcurrence(2);
        QCOMPARE(compressor.concurrence(), 1);
    }

    void cloneIsAnotherObject()
    {
        const SNullCompressor compressor;
        const std::unique_ptr<SNullCompressor> copy(compressor.clone());
        QVERIFY(copy);
        QVERIFY(copy.get() != &compressor);
    }

    void writesUnchanged_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("a zero") << QByteArray(1, '\0');
        QTest::newRow("a text") << Streams::text(10'000);
    }

    void writesUnchanged()
    {
        QFETCH(QByteArray, data);
        SNullCompressor compressor;
        RecordingDevice target;
        target.pieceBytes = 999;
        QVERIFY(target.open(QIODevice::WriteOnly));
        QCOMPARE(compressor.compress(data.constData(), data.size(), &target), data.size());
        QCOMPARE(target.bytes, data);
    }

    void failedWriteIsAFailure()
    {
        SNullCompressor compressor;
        RecordingDevice target;
        target.room = 3;
        QVERIFY(target.open(QIODevice::WriteOnly));
        QCOMPARE(compressor.compress("abcd", 4, &target), -1);
        target.failsToWrite = true;
        QCOMPARE(compressor.compress("abcd", 4, &target), -1);
    }

    void readsUntilTheSizeOrTheEnd()
    {
        SNullCompressor compressor;
        RecordingDevice source("some bytes"_ba);
        source.pieceBytes = 2;
        QVERIFY(source.open(QIODevice::ReadOnly));
        char data[20] = {};
        QCOMPARE(compressor.decompress(&source, data, 0, 0), 0);
        QCOMPARE(compressor.decompress(&source, data, 7, 0), 7);
        QCOMPARE(QByteArray(data), "some by"_ba);
        QCOMPARE(compressor.decompress(&source, data, 20, 0), 3);
        QCOMPARE(QByteArray(data, 3), "tes"_ba);
        QCOMPARE(compressor.decompress(&source, data, 20, 0), 0);
    }

    void compressedSizeMakesNoDifference()
    {
        SNullCompressor compressor;
        RecordingDevice source("some bytes"_ba);
        QVERIFY(source.open(QIODevice::ReadOnly));
        char data[20] = {};
        QCOMPARE(compressor.decompress(&source, data, 4, 2), 4);
        QCOMPARE(compressor.decompress(&source, data, 20, 1000), 6);
    }

    void failedReadIsAFailure()
    {
        SNullCompressor compressor;
        RecordingDevice source("some bytes"_ba);
        source.failsToRead = true;
        QVERIFY(source.open(QIODevice::ReadOnly));
        char data[20];
        QCOMPARE(compressor.decompress(&source, data, 20, 0), -1);
    }
};

QTEST_APPLESS_MAIN(tst_SNullCompressor)
#include "tst_snullcompressor.moc"
