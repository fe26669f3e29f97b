// SPDX-License-Identifier: MIT
#include "framedcompressortest.h"

#include <brixlib/compression/slz4.h>

#include <QtConcurrent/QtConcurrentRun>
#include <QtCore/QSemaphore>

#include <lz4.h>
#include <lz4hc.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <utility>

#ifdef Q_OS_UNIX
#include <sys/mman.h>
#endif

using namespace Talverine::Compression;
using namespace Qt::StringLiterals;
using RawBytes::u32;

namespace {

//! The plain bytes of a block by the library alone, the first four bytes looked at by hand.
QByteArray decodedByTheLibrary(const QByteArray &block)
{
    const auto size = static_cast<int>(block.first(4).toHex().toUInt(nullptr, 16));
    QByteArray data(size, Qt::Uninitialized);
    const int count = LZ4_decompress_safe(block.constData() + 4, data.data(),
                                          static_cast<int>(block.size()) - 4, size);
    return count == size ? data : QByteArray("not decoded");
}

//! The block that the library alone makes, at its fastest or by a level of its second encoder.
QByteArray encodedByTheLibrary(const QByteArray &data, int level)
{
    const int size = static_cast<int>(data.size());
    QByteArray block(LZ4_compressBound(size), Qt::Uninitialized);
    const int count = level < 1 ? LZ4_compress_default(data.constData(), block.data(), size,
                                                       static_cast<int>(block.size()))
                                : LZ4_compress_HC(data.constData(), block.data(), size,
                                                  static_cast<int>(block.size()), level);
    return u32(static_cast<quint32>(size)) + block.first(count);
}

//! Keeps the global thread pool from working, until finish() or the end.
class BusyPool
{
public:
    BusyPool()
    {
        m_pool->setMaxThreadCount(1);
        m_pool->start([this] { m_end.acquire(); });
    }
    ~BusyPool()
    {
        finish();
        m_pool->setMaxThreadCount(m_threads);
    }
    Q_DISABLE_COPY_MOVE(BusyPool)

    //! Lets the pool work off what it was given; false when that does not end.
    bool finish()
    {
        m_end.release();
        return m_pool->waitForDone(30'000);
    }

private:
    QThreadPool *m_pool = QThreadPool::globalInstance();
    int m_threads = m_pool->maxThreadCount();
    QSemaphore m_end;
};

//! Does something else before it takes its first bytes.
class FirstWrite : public RecordingDevice
{
public:
    explicit FirstWrite(std::function<void()> action)
        : m_action(std::move(action))
    {
    }

protected:
    qint64 writeData(const char *data, qint64 size) override
    {
        if (const auto action = std::exchange(m_action, nullptr))
            action();
        return RecordingDevice::writeData(data, size);
    }

private:
    std::function<void()> m_action;
};

} // namespace

class tst_SLz4 : public FramedCompressorTest
{
    Q_OBJECT

protected:
    std::unique_ptr<ICompressor> compressor(int mode, int level) const override
    {
        return std::make_unique<SLz4>(level, static_cast<Lz4Mode>(mode));
    }
    std::unique_ptr<SCompressorDevice> device(QIODevice *file, bool leaveOpen,
                                              int level) const override
    {
        return std::make_unique<SLz4Device>(file, leaveOpen, level);
    }
    QByteArray block(const QByteArray &data, int level) const override
    {
        return SLz4::compress(data, level);
    }
    QByteArray damagedBlock() const override
    {
        QByteArray damaged = SLz4::compress("bad"_ba);
        damaged[3] = 4; // a plain size larger than the data
        return damaged;
    }
    bool storesAtLevel0() const override { return false; }
    bool warnsOfDamage() const override { return false; }

private Q_SLOTS:
    void freshState()
    {
        SLz4 compressor;
        QCOMPARE(compressor.mode(), Lz4Mode::Lz4Framed);
        QCOMPARE(static_cast<int>(compressor.mode()), 0);
        QCOMPARE(static_cast<int>(Lz4Mode::Lz4Raw), 1);
        QCOMPARE(compressor.compressionLevel(), 1);
        QCOMPARE(compressor.concurrence(), 1);
        QCOMPARE(compressor.bytesAvailable(), 0);
        QCOMPARE(compressor.name(), u"lz4"_s);
        QVERIFY(compressor.finalize());
    }

    void constructorsSetModeAndLevel()
    {
        QCOMPARE(SLz4(Lz4Mode::Lz4Raw).mode(), Lz4Mode::Lz4Raw);
        QCOMPARE(SLz4(Lz4Mode::Lz4Raw).compressionLevel(), 1);
        QCOMPARE(SLz4(7, Lz4Mode::Lz4Raw).mode(), Lz4Mode::Lz4Raw);
        QCOMPARE(SLz4(7, Lz4Mode::Lz4Raw).compressionLevel(), 7);
    }

    void levelCanBeSet()
    {
        SLz4 compressor;
        for (const int level : {-5, 0, 12, 1000}) {
            compressor.setCompressionLevel(level);
            QCOMPARE(compressor.compressionLevel(), level);
        }
    }

    void cloneTakesModeAndLevelOnly()
    {
        const Processors machine(8);
        SLz4 compressor(7, Lz4Mode::Lz4Framed);
        compressor.setConcurrence(4);
        const QByteArray stream = streamOf("some bytes"_ba, 100);
        QBuffer source;
        source.setData(stream);
        QVERIFY(source.open(QIODevice::ReadOnly));
        char byte = 0;
        QCOMPARE(compressor.decompress(&source, &byte, 1, 0), 1);
        QCOMPARE(compressor.bytesAvailable(), 9);

        const std::unique_ptr<SLz4> copy(compressor.clone());
        QCOMPARE(copy->compressionLevel(), 7);
        QCOMPARE(copy->mode(), Lz4Mode::Lz4Framed);
        QCOMPARE(copy->concurrence(), 1);
        QCOMPARE(copy->bytesAvailable(), 0);
        const std::unique_ptr<SLz4> raw(SLz4(Lz4Mode::Lz4Raw).clone());
        QCOMPARE(raw->mode(), Lz4Mode::Lz4Raw);
    }

    void rawHasNoConcurrence()
    {
        const Processors machine(8);
        SLz4 compressor(Lz4Mode::Lz4Raw);
        compressor.setConcurrence(4);
        QCOMPARE(compressor.concurrence(), 1);
        SLz4 framedCompressor;
        framedCompressor.setConcurrence(4);
        QCOMPARE(framedCompressor.concurrence(), 4);
    }

    // The block

    void blockIsTheSizeAndTheLibrarysBytes_data()
    {
        QTest::addColumn<int>("level");
        for (const int level : {-100, -1, 0, 1, 2, 3, 8, 9, 10, 12, 13, 1000})
            QTest::addRow("level %d", level) << level;
    }

    void blockIsTheSizeAndTheLibrarysBytes()
    {
        QFETCH(int, level);
        SeededRandom random;
        const QList<QByteArray> kinds{QByteArray(""), QByteArray("x"), QByteArray(70'000, 'x'),
                                      Streams::text(70'000), random.bytes(70'000)};
        for (const QByteArray &data : kinds) {
            const QByteArray block = SLz4::compress(data, level);
            QCOMPARE(block, encodedByTheLibrary(data, level));
            QCOMPARE(decodedByTheLibrary(block), data);
            QCOMPARE(SLz4::decompress(block), data);
        }
    }

    void levelAbove12Is12()
    {
        const QByteArray data = Streams::text(30'000);
        QCOMPARE(SLz4::compress(data, 13), SLz4::compress(data, 12));
        QVERIFY(SLz4::compress(data, 12).size() < SLz4::compress(data, 0).size());
    }

    void levelIsOneUnlessGiven()
    {
        const QByteArray data = Streams::text(30'000);
        QCOMPARE(SLz4::compress(data), encodedByTheLibrary(data, 1));
        SLz4 compressor;
        QCOMPARE(Streams::encode(&compressor, data), Streams::framed(encodedByTheLibrary(data, 1)));
        compressor.setCompressionLevel(0);
        QCOMPARE(Streams::encode(&compressor, data), Streams::framed(encodedByTheLibrary(data, 0)));
    }

    void blockOfNothing()
    {
        QCOMPARE(SLz4::compress(QByteArray()).toHex(), "0000000000"_ba);
        QCOMPARE(SLz4::compress(QByteArray(), 0).toHex(), "0000000000"_ba);
        QCOMPARE(SLz4::decompress(QByteArray::fromHex("0000000000")), QByteArray());
    }

    void blockMadeByHand_data()
    {
        QTest::addColumn<QByteArray>("block");
        QTest::addColumn<QByteArray>("data");
        QTest::newRow("literals") << QByteArray::fromHex("00000003"
                                                         "30616263")
                                  << "abc"_ba;
        QTest::newRow("a match and the last literals") << QByteArray::fromHex("00000015"
                                                                              "1b610100"
                                                                              "506263646566")
                                                       << QByteArray(16, 'a') + "bcdef";
    }

    void blockMadeByHand()
    {
        QFETCH(QByteArray, block);
        QTEST(SLz4::decompress(block), "data");
    }

    void damagedBlockIsEmpty_data()
    {
        QTest::addColumn<QByteArray>("block");
        const QByteArray whole = SLz4::compress(Streams::text(1000));
        const QByteArray body = whole.sliced(4);
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("three bytes") << QByteArray::fromHex("000000");
        QTest::newRow("a size of 0 alone") << u32(0);
        QTest::newRow("a size of 1 alone") << u32(1);
        QTest::newRow("a size of 0") << u32(0) + body;
        QTest::newRow("a size of 1") << u32(1) + body;
        QTest::newRow("a size one too small") << u32(999) + body;
        QTest::newRow("a size larger than the data") << u32(1001) + body;
        QTest::newRow("the largest size that the block can claim")
            << u32(static_cast<quint32>(255 * body.size())) + body;
        QTest::newRow("a size above that")
            << u32(static_cast<quint32>(255 * body.size()) + 1) + body;
        QTest::newRow("the largest size that the library takes") << u32(0x7E000000) + body;
        QTest::newRow("2^31 - 1") << u32(0x7FFFFFFF) + body;
        QTest::newRow("2^32 - 1") << u32(0xFFFFFFFF) + body;
        QTest::newRow("a byte missing") << whole.chopped(1);
        QTest::newRow("a byte too many") << whole + '\0';
    }

    void damagedBlockIsEmpty()
    {
        QFETCH(QByteArray, block);
        QVERIFY(SLz4::decompress(block).isEmpty());
    }

    void matchWithItselfTellsNothingOfTheMemory_data()
    {
        QTest::addColumn<int>("size");
        for (const int size : {25, 300, 5000})
            QTest::addRow("%d bytes", size) << size;
    }

    void matchWithItselfTellsNothingOfTheMemory()
    {
        // "x", a match at the distance 0 of all that is left but five, and five literals.
        QFETCH(int, size);
        const int more = size - 6 - 19;
        const QByteArray block = u32(static_cast<quint32>(size)) + QByteArray::fromHex("1f780000") +
                                 QByteArray(more / 255, '\xFF') + static_cast<char>(more % 255) +
                                 QByteArray::fromHex("507979797979");
        QByteArray data = SLz4::decompress(block);
        data.replace('\0', "").replace('x', "").replace('y', "");
        QCOMPARE(data, QByteArray());
    }

    void blockYields255TimesItsLengthAtMost()
    {
        // Nothing is denser than one long run.
        const QByteArray data(4 * kMiB, 'x');
        const QByteArray block = SLz4::compress(data, 12);
        QCOMPARE(SLz4::decompress(block), data);
        QVERIFY(data.size() <= 255 * (block.size() - 4));
        QVERIFY(data.size() > 254 * (block.size() - 4));
    }

    void falseSizeTakesNoMemory()
    {
        const QByteArray body = SLz4::compress("some bytes"_ba).sliced(4);
        const TestShared::MemoryPeak addresses;
        const TestShared::HeldMemoryPeak held;
        for (const QByteArray &size : Streams::falseWords())
            QVERIFY(SLz4::decompress(size + body).isEmpty());
        QVERIFY(held.growth() < kMiB);
        QVERIFY(addresses.isValid());
        QVERIFY(addresses.growth() < kMiB);
    }

#ifdef Q_OS_UNIX
    void inputThatTheLibraryDoesNotTakeGivesNothing()
    {
        constexpr qsizetype size = LZ4_MAX_INPUT_SIZE + qsizetype(1);
        // Zeros that are nowhere: the pages are never touched.
        void *zeros =
            ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        QVERIFY(zeros != MAP_FAILED);
        const auto *data = static_cast<const char *>(zeros);
        QVERIFY(SLz4::compress(QByteArray::fromRawData(data, size)).isEmpty());
        QVERIFY(SLz4::compress(QByteArray::fromRawData(data, size), 0).isEmpty());

        RecordingDevice target;
        QVERIFY(target.open(QIODevice::WriteOnly));
        QCOMPARE(SLz4().compress(data, size, &target), -1);
        QCOMPARE(SLz4(Lz4Mode::Lz4Raw).compress(data, size, &target), -1);
        QVERIFY(target.bytes.isEmpty());
        ::munmap(zeros, size);
    }
#endif

    // The framed stream

    void framedStreamIsTheLengthAndTheBlock()
    {
        SLz4 compressor;
        QCOMPARE(Streams::encode(&compressor, "x"_ba).toHex(), "00000006"
                                                               "00000001"
                                                               "1078"_ba);
    }

    void rawStreamIsTheBlock()
    {
        SLz4 compressor(Lz4Mode::Lz4Raw);
        QCOMPARE(Streams::encode(&compressor, "x"_ba).toHex(), "00000001"
                                                               "1078"_ba);
    }

    void size0MakesABlock_data()
    {
        QTest::addColumn<int>("concurrence");
        QTest::newRow("one thread") << 1;
        QTest::newRow("four threads") << 4;
    }

    void size0MakesABlock()
    {
        const Processors machine(8);
        QFETCH(int, concurrence);
        SLz4 compressor;
        compressor.setConcurrence(concurrence);
        QCOMPARE(Streams::encode(&compressor, ""_ba).toHex(), "00000005"
                                                              "0000000000"_ba);
        SLz4 raw(Lz4Mode::Lz4Raw);
        QCOMPARE(Streams::encode(&raw, ""_ba).toHex(), "0000000000"_ba);
    }

    void eachCallIsABlock()
    {
        SLz4 compressor;
        QBuffer target;
        QVERIFY(target.open(QIODevice::WriteOnly));
        for (const QByteArray &data : {"one"_ba, "two"_ba, "three"_ba})
            QCOMPARE(compressor.compress(data.constData(), data.size(), &target), data.size());
        const QList<QByteArray> blocks = Streams::blocks(target.data());
        QCOMPARE(blocks.size(), 3);
        QCOMPARE(decodedByTheLibrary(blocks.at(0)), "one"_ba);
        QCOMPARE(decodedByTheLibrary(blocks.at(1)), "two"_ba);
        QCOMPARE(decodedByTheLibrary(blocks.at(2)), "three"_ba);
    }

    void streamComesBack_data()
    {
        QTest::addColumn<int>("maxSize");
        for (const int maxSize : {1, 2, 7, 999, 1000, 1001, 5000, 100'000})
            QTest::addRow("%d bytes a call", maxSize) << maxSize;
    }

    // What a buffer in memory holds is decoded in place, but not behind a derived class's back.
    void derivedBufferIsAskedForItsBytes()
    {
        class InvertedBuffer : public QBuffer
        {
        protected:
            qint64 readData(char *data, qint64 maxSize) override
            {
                const qint64 count = QBuffer::readData(data, maxSize);
                std::transform(data, data + count, data, std::bit_not<char>());
                return count;
            }
        } source;
        const QByteArray data = Streams::text(2000);
        QByteArray inverted = streamOf(data, 1000);
        std::transform(inverted.begin(), inverted.end(), inverted.begin(), std::bit_not<char>());
        source.setData(inverted);
        QVERIFY(source.open(QIODevice::ReadOnly));
        SLz4 compressor;
        QCOMPARE(Streams::decode(&compressor, &source).bytes, data);
    }

    void bufferStandsBehindTheBlockThatWasRead()
    {
        const QByteArray stream = streamOf("onetwo"_ba, 3);
        QBuffer source;
        source.setData(stream);
        QVERIFY(source.open(QIODevice::ReadOnly));
        SLz4 compressor;
        char data[3];
        QCOMPARE(compressor.decompress(&source, data, 3, 0), 3);
        QCOMPARE(source.pos(), stream.size() / 2);
        QCOMPARE(compressor.decompress(&source, data, 3, 0), 3);
        QVERIFY(source.atEnd());
    }

    void heldBytesAreCounted()
    {
        QBuffer source;
        source.setData(streamOf(Streams::text(2000), 1000));
        QVERIFY(source.open(QIODevice::ReadOnly));
        SLz4 compressor;
        QByteArray data(2000, Qt::Uninitialized);
        QCOMPARE(compressor.decompress(&source, data.data(), 400, 0), 400);
        QCOMPARE(compressor.bytesAvailable(), 600);
        QCOMPARE(compressor.decompress(&source, data.data(), 2000, 0), 600);
        QCOMPARE(compressor.bytesAvailable(), 0);
        QCOMPARE(compressor.decompress(&source, data.data(), 2000, 0), 1000);
        QCOMPARE(compressor.decompress(&source, data.data(), 2000, 0), 0);
    }

    void finalizeForgetsWhatIsHeld()
    {
        QBuffer source;
        source.setData(streamOf("onetwo"_ba, 3));
        QVERIFY(source.open(QIODevice::ReadOnly));
        SLz4 compressor;
        char data[3];
        QCOMPARE(compressor.decompress(&source, data, 1, 0), 1);
        QVERIFY(compressor.finalize());
        QCOMPARE(compressor.bytesAvailable(), 0);
        QCOMPARE(compressor.decompress(&source, data, 3, 0), 3);
        QCOMPARE(QByteArray(data, 3), "two"_ba);
    }

    void noRoomGivesNothing()
    {
        QBuffer source;
        source.setData(streamOf("bytes"_ba, 5));
        QVERIFY(source.open(QIODevice::ReadOnly));
        SLz4 compressor;
        char byte = 'x';
        QCOMPARE(compressor.decompress(&source, &byte, 0, 0), 0);
        QCOMPARE(source.pos(), 0);
        QCOMPARE(compressor.bytesAvailable(), 0);
    }

    void compressedSizeTakesTheBlocks_data()
    {
        QTest::addColumn<int>("blocks");
        QTest::addColumn<int>("more");
        QTest::addColumn<bool>("whole");
        QTest::newRow("one block") << 1 << 0 << true;
        QTest::newRow("two blocks") << 2 << 0 << true;
        QTest::newRow("all blocks") << 3 << 0 << true;
        QTest::newRow("a byte less than a block") << 1 << -1 << false;
        QTest::newRow("a byte more than a block") << 1 << 1 << false;
        QTest::newRow("more than there is") << 3 << 12 << false;
        QTest::newRow("one byte") << 0 << 1 << false;
        QTest::newRow("negative") << 0 << -1 << false;
    }

    void heldBlocksGoOutAcrossTheirBorders()
    {
        const QByteArray stream = streamOf("onetwosix"_ba, 3);
        QBuffer source;
        source.setData(stream + "more");
        QVERIFY(source.open(QIODevice::ReadOnly));
        SLz4 compressor;
        char data[9];
        QCOMPARE(compressor.decompress(&source, data, 4, stream.size()), 4);
        QCOMPARE(compressor.bytesAvailable(), 5);
        // What is held goes first, whatever is asked of the source.
        QCOMPARE(compressor.decompress(&source, data + 4, 4, 1), 4);
        QCOMPARE(compressor.decompress(&source, data + 8, 4, 1), 1);
        QCOMPARE(QByteArray(data, 9), "onetwosix"_ba);
        QCOMPARE(source.readAll(), "more"_ba);
    }

    void damagedBlockBetweenOthersLeavesTheirs()
    {
        const QByteArray stream =
            streamOf("one"_ba, 3) + Streams::framed(damagedBlock()) + streamOf("two"_ba, 3);
        SLz4 compressor;
        QBuffer source;
        source.setData(stream);
        QVERIFY(source.open(QIODevice::ReadOnly));
        char data[10];
        QCOMPARE(compressor.decompress(&source, data, 10, stream.size()), 6);
        QCOMPARE(QByteArray(data, 6), "onetwo"_ba);
    }

    void rawBlockOfAnotherSizeYieldsNothing()
    {
        SLz4 compressor(Lz4Mode::Lz4Raw);
        const QByteArray stream = Streams::encode(&compressor, Streams::text(1000));
        for (const qint64 size : {stream.size() - 1, qsizetype(3), qsizetype(1)})
            QCOMPARE(Streams::decode(&compressor, stream.first(size), 4096, size).bytes,
                     QByteArray());
        QCOMPARE(Streams::decode(&compressor, stream, 4096, stream.size() + 1).bytes.size(), 1000);
    }

    void rawBlockOfANegativeSizeTakesNothing()
    {
        QBuffer source;
        source.setData(SLz4::compress("bytes"_ba));
        QVERIFY(source.open(QIODevice::ReadOnly));
        SLz4 compressor(Lz4Mode::Lz4Raw);
        char data[10];
        QCOMPARE(compressor.decompress(&source, data, 10, -1), 0);
        QCOMPARE(source.pos(), 0);
    }

    // Damage

    void truncatedStreamGivesFewerBytes_data()
    {
        QTest::addColumn<int>("level");
        QTest::newRow("fastest") << 0;
        QTest::newRow("best") << 12;
    }

    void truncatedRawBlockGivesNothing()
    {
        SLz4 compressor(Lz4Mode::Lz4Raw);
        const QByteArray stream = Streams::encode(&compressor, Streams::text(700));
        for (qsizetype size = 0; size < stream.size(); ++size)
            QCOMPARE(Streams::decode(&compressor, stream.first(size)).bytes, QByteArray());
    }

    void flippedBitGivesNoMoreThanABlockCan_data()
    {
        QTest::addColumn<Lz4Mode>("mode");
        QTest::newRow("framed") << Lz4Mode::Lz4Framed;
        QTest::newRow("raw") << Lz4Mode::Lz4Raw;
    }

    void flippedBitGivesNoMoreThanABlockCan()
    {
        QFETCH(Lz4Mode, mode);
        const QByteArray data = Streams::text(200);
        const QByteArray stream =
            mode == Lz4Mode::Lz4Framed ? streamOf(data, 100) : SLz4::compress(data);
        const TestShared::HeldMemoryPeak held;
        for (const QByteArray &damaged : Streams::withOneBitFlipped(stream)) {
            SLz4 compressor(mode);
            const Streams::Decoded decoded = Streams::decode(&compressor, damaged);
            QCOMPARE(decoded.last, 0);
            QVERIFY(decoded.bytes.size() <= 255 * damaged.size());
        }
        QVERIFY(held.growth() < 8 * kMiB);
    }

    void sourceThatFailsIsAtItsEnd()
    {
        RecordingDevice source(streamOf("bytes"_ba, 5));
        source.failsToRead = true;
        QVERIFY(source.open(QIODevice::ReadOnly));
        SLz4 compressor;
        char data[10];
        QCOMPARE(compressor.decompress(&source, data, 10, 0), 0);
        QCOMPARE(compressor.decompress(&source, data, 10, 14), -1);
    }

    // Failing targets

    void failedWriteIsAFailure_data()
    {
        constexpr int framed = static_cast<int>(Lz4Mode::Lz4Framed);
        constexpr int raw = static_cast<int>(Lz4Mode::Lz4Raw);
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("concurrence");
        QTest::addColumn<int>("room");
        QTest::newRow("one thread, at the block") << framed << 1 << 4;
        QTest::newRow("one thread, in the block") << framed << 1 << 20;
        QTest::newRow("raw") << raw << 1 << 0;
        QTest::newRow("raw, in the block") << raw << 1 << 20;
        QTest::newRow("four threads, first block") << framed << 4 << 20;
        QTest::newRow("four threads, last block") << framed << 4 << 65'000;
    }

    void nothingIsWrittenBehindAFailedBlock()
    {
        //! Fails once, and takes all that comes after.
        class Hiccup : public RecordingDevice
        {
        public:
            int calls = 0;

        protected:
            qint64 writeData(const char *data, qint64 size) override
            {
                return ++calls == 4 ? -1 : RecordingDevice::writeData(data, size);
            }
        } target;
        QVERIFY(target.open(QIODevice::WriteOnly));
        const Processors machine(8);
        const QByteArray data = Streams::text(65'536);
        SLz4 compressor;
        compressor.setConcurrence(4);
        QCOMPARE(compressor.compress(data.constData(), data.size(), &target), -1);
        QCOMPARE(target.calls, 4);
        QVERIFY(streamOf(data, 16'384).startsWith(target.bytes));
    }

    // Threads

    void piecesOfSeveralThreads_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<int>("concurrence");
        QTest::addColumn<QList<int>>("pieces");
        QTest::newRow("20,000 bytes on 4") << 20'000 << 4 << QList<int>{16'384, 3'616};
        QTest::newRow("one byte on 4") << 1 << 4 << QList<int>{1};
        QTest::newRow("16 KiB on 4") << 16'384 << 4 << QList<int>{16'384};
        QTest::newRow("one byte more") << 16'385 << 4 << QList<int>{16'384, 1};
        QTest::newRow("64 KiB on 4") << 65'536 << 4 << QList<int>{16'384, 16'384, 16'384, 16'384};
        QTest::newRow("100,000 bytes on 4")
            << 100'000 << 4 << QList<int>{25'000, 25'000, 25'000, 25'000};
        QTest::newRow("one that does not divide")
            << 100'003 << 4 << QList<int>{25'000, 25'000, 25'000, 25'000, 3};
        QTest::newRow("100,000 bytes on 2") << 100'000 << 2 << QList<int>{50'000, 50'000};
        QTest::newRow("100,000 bytes on 1") << 100'000 << 1 << QList<int>{100'000};
        QTest::newRow("as a container feeds 2") << 262'144 << 2 << QList<int>{131'072, 131'072};
    }

    void piecesOfSeveralThreads()
    {
        const Processors machine(8);
        QFETCH(int, size);
        QFETCH(int, concurrence);
        QFETCH(QList<int>, pieces);
        const QByteArray data = Streams::text(size);
        SLz4 compressor;
        compressor.setConcurrence(concurrence);
        const QByteArray stream = Streams::encode(&compressor, data);
        QList<int> sizes;
        for (const QByteArray &block : Streams::blocks(stream))
            sizes.append(static_cast<int>(decodedByTheLibrary(block).size()));
        QCOMPARE(sizes, pieces);
        QCOMPARE(stream, streamOf(data, pieces.first()));
        SLz4 reader;
        QCOMPARE(Streams::decode(&reader, stream).bytes, data);
    }

    void levelHoldsInEachThread()
    {
        const Processors machine(8);
        const QByteArray data = Streams::text(100'000);
        SLz4 compressor(9);
        compressor.setConcurrence(4);
        QCOMPARE(Streams::encode(&compressor, data), streamOf(data, 25'000, 9));
        compressor.setCompressionLevel(0);
        QCOMPARE(Streams::encode(&compressor, data), streamOf(data, 25'000, 0));
    }

    void manyCallsOnSeveralThreads()
    {
        const Processors machine(8);
        SeededRandom random;
        SLz4 compressor(0);
        compressor.setConcurrence(8);
        QByteArray data;
        QBuffer target;
        QVERIFY(target.open(QIODevice::WriteOnly));
        for (int call = 0; call < 100; ++call) {
            const QByteArray piece = random.bytes(random.between(1, 300'000));
            data += piece;
            QCOMPARE(compressor.compress(piece.constData(), piece.size(), &target), piece.size());
        }
        SLz4 reader;
        QCOMPARE(Streams::decode(&reader, target.data(), 65'536).bytes, data);
    }

    void worksInsideABusyPool()
    {
        // The only thread of the pool waits for work of that pool.
        const Processors machine(8);
        QThreadPool *pool = QThreadPool::globalInstance();
        const int before = pool->maxThreadCount();
        pool->setMaxThreadCount(1);
        const QByteArray data = Streams::text(100'000);
        QFuture<QByteArray> stream = QtConcurrent::run(pool, [&data] {
            SLz4 compressor;
            compressor.setConcurrence(4);
            return Streams::encode(&compressor, data);
        });
        QTRY_VERIFY_WITH_TIMEOUT(stream.isFinished(), 30'000);
        QCOMPARE(stream.result(), streamOf(data, 25'000));
        pool->setMaxThreadCount(before);
    }

    void piecesAreViewsOfTheData()
    {
        // The pool has no time, so that the last piece is encoded after the first is written.
        const Processors machine(8);
        const BusyPool pool;
        QByteArray data = Streams::text(65'536);
        FirstWrite target([&data] { data.replace(49'152, 16'384, QByteArray(16'384, 'x')); });
        QVERIFY(target.open(QIODevice::WriteOnly));
        SLz4 compressor;
        compressor.setConcurrence(4);
        QCOMPARE(compressor.compress(data.constData(), data.size(), &target), data.size());
        QVERIFY(data.endsWith("xxx"));
        QCOMPARE(target.bytes, streamOf(data, 16'384));
    }

    void allPiecesStartBeforeAResultIsRead()
    {
        // The pool gets time when the first block is written, and has no work left afterwards.
        const Processors machine(8);
        BusyPool pool;
        QByteArray data = Streams::text(65'536);
        const QByteArray expected = streamOf(data, 16'384);
        FirstWrite target([&] {
            QVERIFY(pool.finish());
            data.fill('x');
        });
        QVERIFY(target.open(QIODevice::WriteOnly));
        SLz4 compressor;
        compressor.setConcurrence(4);
        QCOMPARE(compressor.compress(data.constData(), data.size(), &target), data.size());
        QCOMPARE(target.bytes, expected);
    }

#ifdef Q_OS_UNIX
    void noPieceIsReadAfterAFailedCall()
    {
        constexpr qsizetype size = 65'536;
        const Processors machine(8);
        void *zeros = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        QVERIFY(zeros != MAP_FAILED);
        BusyPool pool;
        RecordingDevice target;
        target.failsToWrite = true;
        QVERIFY(target.open(QIODevice::WriteOnly));
        SLz4 compressor;
        compressor.setConcurrence(4);
        QCOMPARE(compressor.compress(static_cast<const char *>(zeros), size, &target), -1);
        // A piece that waited in the pool would now be read where there is nothing.
        ::munmap(zeros, size);
        QVERIFY(pool.finish());
    }
#endif

    void severalCompressorsAtOnce()
    {
        const Processors machine(8);
        const QByteArray data = Streams::text(200'000);
        const QByteArray expected = streamOf(data, 50'000);
        QList<QThread *> threads;
        std::atomic<int> equal = 0;
        for (int i = 0; i < 4; ++i) {
            threads.append(QThread::create([&] {
                SLz4 compressor;
                compressor.setConcurrence(4);
                for (int round = 0; round < 10; ++round)
                    equal += Streams::encode(&compressor, data) == expected;
            }));
            threads.last()->start();
        }
        for (QThread *thread : std::as_const(threads))
            thread->wait();
        qDeleteAll(threads);
        QCOMPARE(equal.load(), 40);
    }

    // The device

    void deviceHasLevel1()
    {
        QObject parent;
        QBuffer file;
        auto *device = new SLz4Device(&file, false, &parent);
        QCOMPARE(device->parent(), &parent);
        QVERIFY(!device->leaveOpen());
        QVERIFY(!device->calculateCrc());
        auto *compressor = dynamic_cast<SLz4 *>(device->compressor());
        QVERIFY(compressor);
        QCOMPARE(compressor->compressionLevel(), 1);
        QCOMPARE(compressor->mode(), Lz4Mode::Lz4Framed);
        auto *other = new SLz4Device(&file, true, 7, &parent);
        QCOMPARE(other->parent(), &parent);
        QVERIFY(other->leaveOpen());
        QCOMPARE(dynamic_cast<SLz4 *>(other->compressor())->compressionLevel(), 7);
    }

    void emptyWriteReachesTheStream()
    {
        QBuffer file;
        SLz4Device writer(&file, false);
        QVERIFY(writer.open(QIODevice::WriteOnly));
        QCOMPARE(writer.write("", 0), 0);
        writer.close();
        QCOMPARE(file.data().toHex(), "000000050000000000"_ba);
    }
};

QTEST_GUILESS_MAIN(tst_SLz4)
#include "moc_framedcompressortest.cpp"
#include "tst_slz4.moc"
