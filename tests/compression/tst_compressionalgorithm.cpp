// SPDX-License-Identifier: MIT
#include <brixlib/compression/compressionalgorithm.h>
#include <brixlib/compression/snullcompressor.h>

#include <brixrt/svariantconvert.h>

using namespace Talverine::Compression;
using namespace Qt::StringLiterals;

class tst_CompressionAlgorithm : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void storedValuesAreFixed_data()
    {
        QTest::addColumn<CompressionAlgorithm>("algorithm");
        QTest::addColumn<int>("value");
        QTest::addColumn<QString>("key");
        using enum CompressionAlgorithm;
        QTest::newRow("Uncompressed") << Uncompressed << 0 << u"Uncompressed"_s;
        QTest::newRow("Packbits") << Packbits << 1 << u"Packbits"_s;
        QTest::newRow("Lzw") << Lzw << 2 << u"Lzw"_s;
        QTest::newRow("Deflate") << Deflate << 3 << u"Deflate"_s;
        QTest::newRow("Zip") << Zip << 4 << u"Zip"_s;
        QTest::newRow("Lzma") << Lzma << 5 << u"Lzma"_s;
        QTest::newRow("BZip2") << BZip2 << 6 << u"BZip2"_s;
        QTest::newRow("Lzss") << Lzss << 7 << u"Lzss"_s;
        QTest::newRow("Lz4") << Lz4 << 8 << u"Lz4"_s;
        QTest::newRow("UnicodeText") << UnicodeText << 9 << u"UnicodeText"_s;
        QTest::newRow("Jpeg") << Jpeg << 10 << u"Jpeg"_s;
        QTest::newRow("Jpeg2000") << Jpeg2000 << 11 << u"Jpeg2000"_s;
        QTest::newRow("Unknown") << Unknown << 32000 << u"Unknown"_s;
    }

    void storedValuesAreFixed()
    {
        QFETCH(CompressionAlgorithm, algorithm);
        QTEST(static_cast<int>(algorithm), "value");
        QTEST(CompressionAlgorithm_T::instance().toString(algorithm), "key");
    }

    void variantsTurnToText()
    {
        // Keeps the linker from leaving out the library, which registers it at load.
        const SNullCompressor library;
        const QVariant variant = QVariant::fromValue(CompressionAlgorithm::Lz4);
        QCOMPARE(variant.toString(), u"Lz4"_s);
        QString text;
        QVERIFY(Talverine::SVariantConvert::toString(variant, QLocale::c(), &text));
        QCOMPARE(text, u"Lz4"_s);
        QCOMPARE(QMetaType::fromName("CompressionAlgorithm"),
                 QMetaType::fromType<CompressionAlgorithm>());
    }

    void listIsComplete() { QCOMPARE(CompressionAlgorithm_T::instance().values().size(), 13); }
};

QTEST_APPLESS_MAIN(tst_CompressionAlgorithm)
#include "tst_compressionalgorithm.moc"
