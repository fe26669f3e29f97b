// SPDX-License-Identifier: MIT
#include "framedcompressortest.h"

#include <brixlib/compression/szip.h>

#include <zlib.h>

#include <limits>

#ifdef Q_OS_UNIX
#include <sys/mman.h>
#endif

using namespace Talverine::Compression;
using namespace Qt::StringLiterals;
using RawBytes::u32;

namespace {

//! The plain bytes of a zlib stream that has to end with its last byte, by zlib alone.
QByteArray inflated(const QByteArray &stream)
{
    z_stream state{};
    QByteArray in = stream;
    state.next_in = reinterpret_cast<Bytef *>(in.data());
    state.avail_in = static_cast<uInt>(in.size());
    if (inflateInit(&state) != Z_OK)
        return "no stream";
    QByteArray data;
    int result = Z_OK;
    while (result == Z_OK) {
        QByteArray piece(1000, Qt::Uninitialized);
        state.next_out = reinterpret_cast<Bytef *>(piece.data());
        state.avail_out = static_cast<uInt>(piece.size());
        result = inflate(&state, Z_NO_FLUSH);
        data += piece.chopped(state.avail_out);
    }
    const uInt rest = state.avail_in;
    inflateEnd(&state);
    return result == Z_STREAM_END && rest == 0 ? data : QByteArray("not decoded");
}

//! A zlib stream by zlib alone.
QByteArray deflated(const QByteArray &data, int level)
{
    uLongf size = compressBound(static_cast<uLong>(data.size()));
    QByteArray stream(static_cast<qsizetype>(size), Qt::Uninitialized);
    compress2(reinterpret_cast<Bytef *>(stream.data()), &size,
              reinterpret_cast<const Bytef *>(data.constData()), static_cast<uLong>(data.size()),
              level);
    stream.truncate(static_cast<qsizetype>(size));
    return stream;
}

} // namespace

class tst_SZip : public FramedCompressorTest
{
    Q_OBJECT

protected:
    std::unique_ptr<ICompressor> compressor(int mode, int level) const override
    {
        return std::make_unique<SZip>(level, static_cast<ZipMode>(mode));
    }
    std::unique_ptr<SCompressorDevice> device(QIODevice *file, bool leaveOpen,
                                              int level) const override
    {
        return std::make_unique<SZipDevice>(file, leaveOpen, level);
    }
    QByteArray block(const QByteArray &data, int level) const override
    {
        return u32(static_cast<quint32>(data.size())) + deflated(data, level);
    }
    QByteArray damagedBlock() const override { return u32(3) + "no stream"; }
    bool storesAtLevel0() const override { return true; }
    bool warnsOfDamage() const override { return true; }

private Q_SLOTS:
    void freshState()
    {
        SZip compressor;
        QCOMPARE(compressor.mode(), ZipMode::ZipFramed);
        QCOMPARE(static_cast<int>(ZipMode::ZipFramed), 0);
        QCOMPARE(static_cast<int>(ZipMode::ZipQtBlock), 1);
        QCOMPARE(static_cast<int>(ZipMode::ZipRawStream), 2);
        QCOMPARE(compressor.compressionLevel(), 1);
        QCOMPARE(compressor.concurrence(), 1);
        QCOMPARE(compressor.bytesAvailable(), 0);
        QCOMPARE(compressor.name(), u"zip"_s);
        QVERIFY(compressor.finalize());
    }

    void constructorsSetModeAndLevel()
    {
        QCOMPARE(SZip(ZipMode::ZipQtBlock).mode(), ZipMode::ZipQtBlock);
        QCOMPARE(SZip(ZipMode::ZipQtBlock).compressionLevel(), 1);
        QCOMPARE(SZip(7, ZipMode::ZipRawStream).mode(), ZipMode::ZipRawStream);
        QCOMPARE(SZip(7, ZipMode::ZipRawStream).compressionLevel(), 7);
        SZip compressor;
        compressor.setCompressionLevel(9);
        QCOMPARE(compressor.compressionLevel(), 9);
    }

    void cloneTakesModeAndLevelOnly()
    {
        const Processors machine(8);
        SZip compressor(7, ZipMode::ZipFramed);
        compressor.setConcurrence(4);
        QBuffer source;
        source.setData(streamOf("some bytes"_ba, 100));
        QVERIFY(source.open(QIODevice::ReadOnly));
        char byte = 0;
        QCOMPARE(compressor.decompress(&source, &byte, 1, 0), 1);

        const std::unique_ptr<SZip> copy(compressor.clone());
        QCOMPARE(copy->compressionLevel(), 7);
        QCOMPARE(copy->mode(), ZipMode::ZipFramed);
        QCOMPARE(copy->concurrence(), 1);
        QCOMPARE(copy->bytesAvailable(), 0);
        const std::unique_ptr<SZip> raw(SZip(ZipMode::ZipRawStream).clone());
        QCOMPARE(raw->mode(), ZipMode::ZipRawStream);
    }

    void concurrenceIsOfFramedStreamsOnly()
    {
        const Processors machine(8);
        for (const ZipMode mode :
             {ZipMode::ZipFramed, ZipMode::ZipQtBlock, ZipMode::ZipRawStream}) {
            SZip compressor(mode);
            compressor.setConcurrence(4);
            QCOMPARE(compressor.concurrence(), mode == ZipMode::ZipFramed ? 4 : 1);
        }
    }

    // The block

    void blockIsThatOfQtAndZlib_data()
    {
        QTest::addColumn<int>("level");
        for (const int level : {-1, 0, 1, 6, 9})
            QTest::addRow("level %d", level) << level;
    }

    void blockIsThatOfQtAndZlib()
    {
        QFETCH(int, level);
        const QList<QByteArray> kinds{QByteArray("x"), QByteArray(70'000, 'x'),
                                      Streams::text(70'000), SeededRandom().bytes(70'000)};
        for (const QByteArray &data : kinds) {
            const QByteArray packed = SZip::compress(data, level);
            QCOMPARE(packed, qCompress(data, level));
            QCOMPARE(packed, block(data, level));
            QCOMPARE(packed.first(4), u32(static_cast<quint32>(data.size())));
            QCOMPARE(inflated(packed.sliced(4)), data);
            QCOMPARE(SZip::decompress(packed), data);
        }
    }

    void otherLevelIsZlibsChoice()
    {
        const QByteArray data = Streams::text(30'000);
        for (const int level : {-1000, -2, 10, 1000})
            QCOMPARE(SZip::compress(data, level), block(data, -1));
    }

    void blockOfNothing()
    {
        QCOMPARE(SZip::compress(QByteArray()).toHex(), "00000000"_ba);
        QCOMPARE(SZip::decompress(QByteArray::fromHex("00000000")), QByteArray());
    }

    void damagedBlockIsEmptyWithAWarning_data()
    {
        QTest::addColumn<QByteArray>("packed");
        const QByteArray whole = block(Streams::text(1000), 1);
        QTest::newRow("three bytes") << whole.first(3);
        QTest::newRow("a size alone") << whole.first(4);
        QTest::newRow("a byte missing") << whole.chopped(1);
        QTest::newRow("half") << whole.first(whole.size() / 2);
        QTest::newRow("a wrong first byte") << whole.first(4) + 'y' + whole.sliced(5);
        QTest::newRow("a wrong checksum") << whole.chopped(1) + 'x';
    }

    void damagedBlockIsEmptyWithAWarning()
    {
        QFETCH(QByteArray, packed);
        expectDamage();
        QCOMPARE(SZip::decompress(packed), QByteArray());
    }

    void sizeAboveWhatTheStreamCanYieldIsDamage_data()
    {
        QTest::addColumn<quint32>("factor");
        QTest::addColumn<bool>("whole");
        QTest::newRow("1032 times the stream") << 1032U << true;
        QTest::newRow("1033 times the stream") << 1033U << false;
    }

    void sizeAboveWhatTheStreamCanYieldIsDamage()
    {
        QFETCH(quint32, factor);
        QFETCH(bool, whole);
        const QByteArray data = Streams::text(1000);
        const QByteArray stream = deflated(data, 1);
        const QByteArray packed = u32(factor * static_cast<quint32>(stream.size())) + stream;
        QCOMPARE(SZip::decompress(packed), whole ? data : QByteArray());
    }

    void streamYields1032TimesItsLengthAtMost()
    {
        // Nothing is denser than one long run.
        const QByteArray data(16 * kMiB, 'x');
        const QByteArray packed = SZip::compress(data, 9);
        QCOMPARE(SZip::decompress(packed), data);
        QVERIFY(data.size() <= 1032 * (packed.size() - 4));
        QVERIFY(data.size() > 1000 * (packed.size() - 4));
    }

    void falseSizeTakesNoMemory()
    {
        const QByteArray data = "some bytes"_ba;
        const QByteArray stream = deflated(data, 1);
        const TestShared::MemoryPeak addresses;
        const TestShared::HeldMemoryPeak held;
        // Qt takes a size that is too small for no more than a hint.
        for (const QByteArray &size : {u32(0), u32(1)})
            QCOMPARE(SZip::decompress(size + stream), data);
        for (const QByteArray &size : {u32(0x7FFFFFFF), u32(0xFFFFFFFF)})
            QCOMPARE(SZip::decompress(size + stream), QByteArray());
        QVERIFY(held.growth() < kMiB);
        QVERIFY(addresses.isValid());
        QVERIFY(addresses.growth() < kMiB);
    }

    // The streams

    void framedStreamOfOneByte()
    {
        SZip compressor;
        QCOMPARE(Streams::encode(&compressor, "x"_ba).toHex(), "0000000d"
                                                               "00000001"
                                                               "7801ab000000790079"_ba);
    }

    void blockStreamOfOneByte()
    {
        SZip compressor(ZipMode::ZipQtBlock);
        QCOMPARE(Streams::encode(&compressor, "x"_ba).toHex(), "00000001"
                                                               "7801ab000000790079"_ba);
    }

    void bareStreamOfOneByte()
    {
        SZip compressor(ZipMode::ZipRawStream);
        QCOMPARE(Streams::encode(&compressor, "x"_ba).toHex(), "7801ab000000790079"_ba);
        QCOMPARE(inflated(Streams::encode(&compressor, "x"_ba)), "x"_ba);
    }

    void size0WritesNothing_data()
    {
        QTest::addColumn<ZipMode>("mode");
        QTest::addColumn<int>("concurrence");
        QTest::newRow("framed") << ZipMode::ZipFramed << 1;
        QTest::newRow("framed, four threads") << ZipMode::ZipFramed << 4;
        QTest::newRow("block") << ZipMode::ZipQtBlock << 1;
        QTest::newRow("bare") << ZipMode::ZipRawStream << 1;
    }

    void size0WritesNothing()
    {
        const Processors machine(8);
        QFETCH(ZipMode, mode);
        QFETCH(int, concurrence);
        RecordingDevice target;
        QVERIFY(target.open(QIODevice::WriteOnly));
        SZip compressor(mode);
        compressor.setConcurrence(concurrence);
        QCOMPARE(compressor.compress("", 0, &target), 0);
        QVERIFY(target.writes.isEmpty());
    }

    void eachCallIsABlockOfTheLevelOfThen()
    {
        const QByteArray data = Streams::text(5000);
        SZip compressor(9);
        QBuffer target;
        QVERIFY(target.open(QIODevice::WriteOnly));
        QCOMPARE(compressor.compress(data.constData(), data.size(), &target), data.size());
        compressor.setCompressionLevel(0);
        QCOMPARE(compressor.compress(data.constData(), data.size(), &target), data.size());
        QCOMPARE(target.data(), Streams::framed(block(data, 9)) + Streams::framed(block(data, 0)));
        QVERIFY(Streams::framed(block(data, 0)).contains(data));
    }

    void streamComesBack_data()
    {
        QTest::addColumn<int>("maxSize");
        for (const int maxSize : {1, 999, 1000, 1001, 100'000})
            QTest::addRow("%d bytes a call", maxSize) << maxSize;
    }

    void heldBytesAreCountedUntilFinalize()
    {
        QBuffer source;
        source.setData(streamOf(Streams::text(2000), 1000));
        QVERIFY(source.open(QIODevice::ReadOnly));
        SZip compressor;
        char data[400];
        QCOMPARE(compressor.decompress(&source, data, 0, 0), 0);
        QCOMPARE(compressor.bytesAvailable(), 0);
        QCOMPARE(compressor.decompress(&source, data, 400, 0), 400);
        QCOMPARE(compressor.bytesAvailable(), 600);
        QVERIFY(compressor.finalize());
        QCOMPARE(compressor.bytesAvailable(), 0);
        QCOMPARE(compressor.decompress(&source, data, 400, 0), 400);
        QCOMPARE(QByteArray(data, 400), Streams::text(2000).mid(1000, 400));
    }

    void compressedSizeTakesTheBlocks_data()
    {
        QTest::addColumn<int>("blocks");
        QTest::addColumn<int>("more");
        QTest::addColumn<bool>("whole");
        QTest::newRow("two blocks") << 2 << 0 << true;
        QTest::newRow("a byte less") << 2 << -1 << false;
        QTest::newRow("a byte more") << 2 << 1 << false;
        QTest::newRow("more than there is") << 2 << 1000 << false;
    }

    void endOfAStreamIsNoDamage_data()
    {
        QTest::addColumn<ZipMode>("mode");
        QTest::newRow("framed") << ZipMode::ZipFramed;
        QTest::newRow("block") << ZipMode::ZipQtBlock;
        QTest::newRow("bare") << ZipMode::ZipRawStream;
    }

    void endOfAStreamIsNoDamage()
    {
        QFETCH(ZipMode, mode);
        SZip compressor(mode);
        QBuffer source;
        source.setData(Streams::encode(&compressor, "bytes"_ba));
        QVERIFY(source.open(QIODevice::ReadOnly));
        char data[5];
        const Streams::Hush hush;
        QCOMPARE(compressor.decompress(&source, data, 5, 0), 5);
        QCOMPARE(compressor.decompress(&source, data, 5, 0), 0);
        QCOMPARE(hush.count(), 0);
    }

    void bareStreamNeedsTheExactSize_data()
    {
        QTest::addColumn<qint64>("maxSize");
        QTest::addColumn<qint64>("count");
        QTest::newRow("exact") << qint64(20'000) << qint64(20'000);
        QTest::newRow("a byte less") << qint64(19'999) << qint64(0);
        QTest::newRow("half") << qint64(10'000) << qint64(0);
        QTest::newRow("one byte") << qint64(1) << qint64(0);
        QTest::newRow("a byte more") << qint64(20'001) << qint64(20'000);
        QTest::newRow("more than the stream can yield")
            << qint64(1) + std::numeric_limits<quint32>::max() << qint64(20'000);
    }

    void bareStreamNeedsTheExactSize()
    {
        QFETCH(qint64, maxSize);
        QFETCH(qint64, count);
        const QByteArray data = Streams::text(20'000);
        for (const bool sized : {false, true}) {
            QBuffer source;
            source.setData(deflated(data, 6));
            QVERIFY(source.open(QIODevice::ReadOnly));
            SZip compressor(ZipMode::ZipRawStream);
            QByteArray decoded(20'001, Qt::Uninitialized);
            const qint64 size = sized ? source.size() : 0;
            QCOMPARE(compressor.decompress(&source, decoded.data(), maxSize, size), count);
            QCOMPARE(decoded.first(count), data.first(count));
            QCOMPARE(compressor.bytesAvailable(), 0);
            QVERIFY(source.atEnd());
        }
    }

    void bareStreamOfAKnownSizeLeavesTheRest()
    {
        const QByteArray stream = deflated("some bytes"_ba, 1);
        QBuffer source;
        source.setData(stream + "more");
        QVERIFY(source.open(QIODevice::ReadOnly));
        SZip compressor(ZipMode::ZipRawStream);
        char data[10];
        QCOMPARE(compressor.decompress(&source, data, 10, stream.size()), 10);
        QCOMPARE(source.readAll(), "more"_ba);
    }

    // Damage

    void truncatedStreamGivesFewerBytes_data()
    {
        QTest::addColumn<int>("level");
        QTest::newRow("stored") << 0;
        QTest::newRow("best") << 9;
    }

    void truncatedStreamWithoutFramesGivesNothing_data()
    {
        QTest::addColumn<ZipMode>("mode");
        QTest::newRow("block") << ZipMode::ZipQtBlock;
        QTest::newRow("bare") << ZipMode::ZipRawStream;
    }

    void truncatedStreamWithoutFramesGivesNothing()
    {
        QFETCH(ZipMode, mode);
        SZip writer(6, mode);
        const QByteArray stream = Streams::encode(&writer, Streams::text(700));
        const Streams::Hush hush;
        for (qsizetype size = 0; size < stream.size(); ++size) {
            SZip compressor(mode);
            QCOMPARE(Streams::decode(&compressor, stream.first(size), 700).bytes, QByteArray());
        }
    }

    void flippedBitGivesNoMoreThanABlockCan_data()
    {
        QTest::addColumn<ZipMode>("mode");
        QTest::newRow("framed") << ZipMode::ZipFramed;
        QTest::newRow("block") << ZipMode::ZipQtBlock;
        QTest::newRow("bare") << ZipMode::ZipRawStream;
    }

    void flippedBitGivesNoMoreThanABlockCan()
    {
        QFETCH(ZipMode, mode);
        const QByteArray data = Streams::text(200);
        SZip writer(6, mode);
        const QByteArray stream = Streams::encode(&writer, data);
        const Streams::Hush hush;
        const TestShared::HeldMemoryPeak held;
        for (const QByteArray &damaged : Streams::withOneBitFlipped(stream)) {
            SZip compressor(mode);
            const Streams::Decoded decoded = Streams::decode(&compressor, damaged, 200);
            QCOMPARE(decoded.last, 0);
            // The checksum of the stream tells, so all that is left is whole.
            QVERIFY(decoded.bytes.isEmpty() || decoded.bytes == data);
        }
        QVERIFY(held.growth() < 8 * kMiB);
    }

    // Failing targets

    void failedWriteIsAFailure_data()
    {
        constexpr int framed = static_cast<int>(ZipMode::ZipFramed);
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("concurrence");
        QTest::addColumn<int>("room");
        QTest::newRow("framed, at the block") << framed << 1 << 4;
        QTest::newRow("framed, in the block") << framed << 1 << 20;
        QTest::newRow("framed, four threads") << framed << 4 << 40'000;
        QTest::newRow("block") << static_cast<int>(ZipMode::ZipQtBlock) << 1 << 20;
        QTest::newRow("bare") << static_cast<int>(ZipMode::ZipRawStream) << 1 << 20;
    }

#ifdef Q_OS_UNIX
    void blockOf2GiBIsRefused()
    {
        constexpr qsizetype size = qsizetype(1) << 31;
        // Zeros that are nowhere: the pages are never touched.
        void *zeros =
            ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        QVERIFY(zeros != MAP_FAILED);
        RecordingDevice target;
        QVERIFY(target.open(QIODevice::WriteOnly));
        QCOMPARE(SZip().compress(static_cast<const char *>(zeros), size, &target), -1);
        QVERIFY(target.bytes.isEmpty());
        ::munmap(zeros, size);
    }
#endif

    // Threads

    void piecesOfSeveralThreads_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<int>("concurrence");
        QTest::addColumn<int>("piece");
        QTest::newRow("20,000 bytes on 4") << 20'000 << 4 << 16'384;
        QTest::newRow("one byte on 4") << 1 << 4 << 16'384;
        QTest::newRow("100,000 bytes on 4") << 100'000 << 4 << 25'000;
        QTest::newRow("one that does not divide") << 100'003 << 4 << 25'000;
        QTest::newRow("as a container feeds 2") << 262'144 << 2 << 131'072;
    }

    void piecesOfSeveralThreads()
    {
        const Processors machine(8);
        QFETCH(int, size);
        QFETCH(int, concurrence);
        QFETCH(int, piece);
        const QByteArray data = Streams::text(size);
        SZip compressor(6);
        compressor.setConcurrence(concurrence);
        const QByteArray stream = Streams::encode(&compressor, data);
        QCOMPARE(stream, streamOf(data, piece, 6));
        SZip reader;
        QCOMPARE(Streams::decode(&reader, stream).bytes, data);
    }

    // The device

    void deviceHasLevel1()
    {
        QObject parent;
        QBuffer file;
        auto *device = new SZipDevice(&file, false, &parent);
        QCOMPARE(device->parent(), &parent);
        QVERIFY(!device->leaveOpen());
        QVERIFY(!device->calculateCrc());
        auto *compressor = dynamic_cast<SZip *>(device->compressor());
        QVERIFY(compressor);
        QCOMPARE(compressor->compressionLevel(), 1);
        QCOMPARE(compressor->mode(), ZipMode::ZipFramed);
        auto *other = new SZipDevice(&file, true, 7, &parent);
        QCOMPARE(other->parent(), &parent);
        QVERIFY(other->leaveOpen());
        QCOMPARE(dynamic_cast<SZip *>(other->compressor())->compressionLevel(), 7);
    }
};

QTEST_GUILESS_MAIN(tst_SZip)
#include "moc_framedcompressortest.cpp"
#include "tst_szip.moc"
