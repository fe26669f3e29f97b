// SPDX-License-Identifier: MIT
// PackBits and LZW against the library that other programs read and write TIFF files with.
#include "samples.h"

#include <brixlib/compression/spackbits.h>
#include <brixlib/compression/stifflzw.h>

#include <shared/memorytiff.h>
#include <shared/seededrandom.h>

#include <QtCore/QBuffer>
#include <QtTest/QTest>

#include <algorithm>
#include <memory>

using namespace Talverine::Compression;

namespace {

std::unique_ptr<Interfaces::ICompressor> compressorFor(int compression)
{
    if (compression == COMPRESSION_LZW)
        return std::make_unique<STiffLZW>();
    return std::make_unique<SPackBits>(PackBitsMode::PackBitsRaw);
}

//! A strip as we store it: each row by itself where packets must not cross rows.
QByteArray ourStrip(int compression, const QByteArray &pixels, int width)
{
    const auto compressor = compressorFor(compression);
    QBuffer stored;
    if (!stored.open(QIODevice::WriteOnly))
        return {};
    for (qsizetype pos = 0; pos < pixels.size(); pos += width)
        compressor->compress(pixels.constData() + pos, width, &stored);
    return compressor->finalize() ? stored.data() : QByteArray();
}

QByteArray ourPixels(int compression, const QByteArray &stored, qsizetype size, bool isSizeKnown)
{
    const auto compressor = compressorFor(compression);
    QBuffer source;
    source.setData(stored);
    source.open(QIODevice::ReadOnly);
    QByteArray pixels(size, '\0');
    const qint64 count =
        compressor->decompress(&source, pixels.data(), size, isSizeKnown ? stored.size() : 0);
    return pixels.left(std::max(count, qint64(0)));
}

//! One image of one strip both ways; an empty text, or what went wrong.
QByteArray exchange(int compression, const QByteArray &pixels, int width)
{
    const int height = static_cast<int>(pixels.size()) / width;
    const QByteArray size = QByteArray::number(pixels.size());
    MemoryTiff theirs(compression, width, height, height);
    if (!theirs.writeStrip(0, pixels.constData(), pixels.size()) || !theirs.startReading())
        return "they can't write " + size;
    const QByteArray stored = theirs.rawStrip(0);
    for (const bool isSizeKnown : {false, true}) {
        if (ourPixels(compression, stored, pixels.size(), isSizeKnown) != pixels)
            return "we read otherwise " + size;
    }

    MemoryTiff ours(compression, width, height, height);
    if (!ours.writeRawStrip(0, ourStrip(compression, pixels, width)) || !ours.startReading())
        return "can't store ours " + size;
    QByteArray read(pixels.size(), '\0');
    if (!ours.readStrip(0, read.data(), read.size()) || read != pixels)
        return "they read otherwise " + size;
    return theirs.complaints() + ours.complaints();
}

} // namespace

class tst_TiffStrips : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothing_data() { addCompressions(); }
    void nothing();
    void allSizes_data();
    void allSizes();
    void allValues_data() { addCompressions(); }
    void allValues();
    void longRuns_data() { addCompressions(); }
    void longRuns();
    void widthsAndResets_data();
    void widthsAndResets();
    void manyRows_data();
    void manyRows();
    void severalStrips_data() { addCompressions(); }
    void severalStrips();

private:
    static void addCompressions();
};

void tst_TiffStrips::addCompressions()
{
    QTest::addColumn<int>("compression");
    QTest::newRow("PackBits") << COMPRESSION_PACKBITS;
    QTest::newRow("LZW") << COMPRESSION_LZW;
}

// No image has no pixels, so that nothing is what a strip of none is stored as.
void tst_TiffStrips::nothing()
{
    QFETCH(int, compression);
    QCOMPARE(ourStrip(compression, {}, 1), QByteArray());
    QCOMPARE(ourPixels(compression, {}, 100, false), QByteArray());
}

void tst_TiffStrips::allSizes_data()
{
    QTest::addColumn<int>("compression");
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<int>("step");
    SeededRandom random;
    const QByteArray noise = random.bytes(5000);
    const QByteArray runs = Samples::runs(&random, 5000);
    const QByteArray text = Samples::text(&random, 5000);
    for (const int compression : {COMPRESSION_PACKBITS, COMPRESSION_LZW}) {
        const char *const name = compression == COMPRESSION_LZW ? "LZW" : "PackBits";
        QTest::addRow("%s, runs", name) << compression << runs << 1;
        QTest::addRow("%s, random", name) << compression << noise << 1;
        QTest::addRow("%s, one value", name) << compression << QByteArray(5000, 'x') << 3;
        QTest::addRow("%s, no two pairs alike", name)
            << compression << Samples::differentPairs(5000) << 3;
        QTest::addRow("%s, text", name) << compression << text << 3;
    }
}

void tst_TiffStrips::allSizes()
{
    QFETCH(int, compression);
    QFETCH(QByteArray, data);
    QFETCH(int, step);
    for (int size = 1; size <= data.size(); size += step) {
        QCOMPARE(exchange(compression, data.left(size), size), QByteArray());
    }
}

void tst_TiffStrips::allValues()
{
    QFETCH(int, compression);
    for (int value = 0; value < 256; ++value) {
        for (const int count : {1, 2, 3, 127, 128, 129, 1000}) {
            QCOMPARE(exchange(compression, QByteArray(count, static_cast<char>(value)), count),
                     QByteArray());
        }
    }
}

void tst_TiffStrips::longRuns()
{
    QFETCH(int, compression);
    for (const int size : {65536, 1000000, 9000000}) {
        QCOMPARE(exchange(compression, QByteArray(size, 'A'), size), QByteArray());
    }
}

void tst_TiffStrips::widthsAndResets_data()
{
    QTest::addColumn<int>("strings");
    QTest::newRow("from 9 to 10 bits") << 512 - 258;
    QTest::newRow("from 10 to 11 bits") << 1024 - 258;
    QTest::newRow("from 11 to 12 bits") << 2048 - 258;
    QTest::newRow("the table is cleared") << 4093 - 258;
    QTest::newRow("others clear theirs") << 4094 - 258;
    QTest::newRow("the next table is wider") << 4093 - 258 + 512 - 258;
    QTest::newRow("the table is cleared again") << 2 * (4093 - 258);
}

void tst_TiffStrips::widthsAndResets()
{
    QFETCH(int, strings);
    SeededRandom random;
    const QByteArray noise = random.bytes(10000);
    for (int size = strings - 20; size <= strings + 20; ++size) {
        for (const QByteArray &data : {Samples::differentPairs(size), noise.left(size)}) {
            QCOMPARE(exchange(COMPRESSION_LZW, data, size), QByteArray());
        }
    }
}

void tst_TiffStrips::manyRows_data()
{
    QTest::addColumn<int>("compression");
    QTest::addColumn<int>("width");
    for (const int compression : {COMPRESSION_PACKBITS, COMPRESSION_LZW}) {
        for (const int width : {1, 2, 127, 128, 129, 1000, 4096}) {
            QTest::addRow("%s, rows of %d", compression == COMPRESSION_LZW ? "LZW" : "PackBits",
                          width)
                << compression << width;
        }
    }
}

void tst_TiffStrips::manyRows()
{
    QFETCH(int, compression);
    QFETCH(int, width);
    SeededRandom random;
    const int height = 100000 / width;
    const QByteArray pixels = Samples::runs(&random, qsizetype(width) * height);
    QCOMPARE(exchange(compression, pixels, width), QByteArray());
}

void tst_TiffStrips::severalStrips()
{
    QFETCH(int, compression);
    constexpr int kWidth = 500;
    constexpr int kRows = 40;
    constexpr int kStrips = 20;
    constexpr qsizetype kStripBytes = kWidth * kRows;
    SeededRandom random;
    const QByteArray pixels = Samples::runs(&random, kStripBytes * kStrips);
    MemoryTiff theirs(compression, kWidth, kRows * kStrips, kRows);
    MemoryTiff ours(compression, kWidth, kRows * kStrips, kRows);
    for (quint32 strip = 0; strip < kStrips; ++strip) {
        const QByteArray plain = pixels.mid(strip * kStripBytes, kStripBytes);
        QVERIFY(theirs.writeStrip(strip, plain.constData(), plain.size()));
        QVERIFY(ours.writeRawStrip(strip, ourStrip(compression, plain, kWidth)));
    }
    QVERIFY(theirs.startReading());
    QVERIFY(ours.startReading());
    for (quint32 strip = 0; strip < kStrips; ++strip) {
        const QByteArray plain = pixels.mid(strip * kStripBytes, kStripBytes);
        QByteArray read(kStripBytes, '\0');
        QVERIFY(ours.readStrip(strip, read.data(), read.size()));
        QCOMPARE(read, plain);
        QCOMPARE(ourPixels(compression, theirs.rawStrip(strip), kStripBytes, true), plain);
    }
    QCOMPARE(theirs.complaints() + ours.complaints(), QByteArray());
}

QTEST_APPLESS_MAIN(tst_TiffStrips)
#include "tst_tiffstrips.moc"
