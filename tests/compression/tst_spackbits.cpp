// SPDX-License-Identifier: MIT
#include "plainpackbits.h"
#include "samples.h"

#include <brixlib/compression/spackbits.h>

#include <shared/faultdevice.h>
#include <shared/memorypeak.h>
#include <shared/rawbytes.h>
#include <shared/seededrandom.h>

#include <QtCore/QBuffer>
#include <QtCore/QCryptographicHash>
#include <QtCore/QTemporaryFile>
#include <QtCore/QThread>

#include <array>

using namespace Talverine::Compression;
using namespace Qt::StringLiterals;

namespace {

QByteArray fromHex(const char *hex)
{
    return QByteArray::fromHex(hex);
}

QByteArray compressed(SPackBits *compressor, const QByteArray &data)
{
    QBuffer target;
    if (!target.open(QIODevice::WriteOnly) ||
        compressor->compress(data.constData(), data.size(), &target) != data.size())
        return "failed";
    return target.data();
}

//! All that a compressor reads in calls of \a maxSize bytes.
QByteArray decompressed(SPackBits *compressor, QIODevice *source, qint64 maxSize,
                        qint64 compressedSize = 0)
{
    QByteArray data;
    for (;;) {
        QByteArray piece(maxSize, '\0');
        const qint64 count = compressor->decompress(source, piece.data(), maxSize, compressedSize);
        if (count < 0)
            return "failed";
        if (count == 0)
            return data;
        data += piece.left(count);
    }
}

QByteArray decompressed(PackBitsMode mode, const QByteArray &stream, qint64 maxSize)
{
    SPackBits compressor(mode);
    QBuffer source;
    source.setData(stream);
    source.open(QIODevice::ReadOnly);
    return decompressed(&compressor, &source, maxSize);
}

QByteArray framed(const QByteArray &block)
{
    return RawBytes::u32(static_cast<quint32>(block.size())) + block;
}

//! Gives out the bytes as they come, and has no end of its own.
class LiveDevice final : public QIODevice
{
public:
    LiveDevice() { QIODevice::open(ReadOnly); }

    void arrive(const QByteArray &bytes) { m_bytes += bytes; }
    void failAtEnd() { m_failsAtEnd = true; }
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override { return QIODevice::bytesAvailable() + m_bytes.size(); }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        if (m_failsAtEnd && m_bytes.isEmpty())
            return -1;
        const qint64 count = std::min<qint64>(maxSize, m_bytes.size());
        std::copy_n(m_bytes.constData(), count, data);
        m_bytes.remove(0, count);
        return count;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QByteArray m_bytes;
    bool m_failsAtEnd = false;
};

//! A file that others write to: the first byte is another when it is read again.
class ChangingFile final : public QIODevice
{
public:
    ChangingFile(char first, char then)
        : m_codes{first, then}
    {
        QIODevice::open(ReadOnly | Unbuffered);
    }

    qint64 size() const override { return 1000; }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        const bool isAtStart = pos() == 0;
        const qint64 count = isAtStart ? 1 : maxSize;
        std::fill_n(data, count, isAtStart ? m_codes.at(m_reads++) : 'x');
        return count;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    std::array<char, 2> m_codes;
    std::size_t m_reads = 0;
};

} // namespace

class tst_SPackBits : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshState();
    void cloneIsRawWithOneThread();
    void runLeavesTheLastByte();
    void runOfFiveAndAnotherByte();
    void threeEqualBytesStayLiterals();
    void twoHundredDifferentBytes();
    void threeHundredEqualBytes();
    void runsAndOtherBytes();
    void emptyInputIsOneZeroByte();
    void noDataWritesNothing();
    void idleByteIsSkipped();
    void cutLiteralGivesNothing();
    void cutRunGivesNothing();
    void emptyBlockGivesNothing();
    void roundTripsOfAllSizes_data();
    void roundTripsOfAllSizes();
    void allValues();

    void rawStreamIsTheBlock();
    void framedStreamHasALengthWord();
    void piecesOfSeveralThreads();
    void blocksStandAlone();
    void concurrenceCountsFramedOnly();
    void handsOutInPieces();
    void framedBlocksOfACompressedSize();
    void wrongCompressedSizeFails();
    void rawBlockOfACompressedSize();
    void streamLeavesWhatDoesNotFit();
    void streamLeavesWhatIsNotAsked();
    void streamSkipsIdleBytesAtAnyPlace();
    void streamEndsInsideALiteral();
    void streamEndsInsideARun();
    void streamFromALiveDevice();
    void streamFromPiecesOfOneByte();
    void streamFromAFile();
    void streamOfAFileEndsInsideAPacket();
    void streamFromABufferThatHasShrunk();
    void streamFromAFileThatChanges_data();
    void streamFromAFileThatChanges();
    void finalizeForgetsWhatIsHeld();

    void failsWhenTheTargetIsFull();
    void failsWhenReadingFails();
    void failsInsideALiteral();
    void failsInsideARun();
    void lengthWordFailureGoesUnnoticed();
    void truncationAtEveryByte_data();
    void truncationAtEveryByte();
    void everyFlippedBit();
    void lyingLengthWords_data();
    void lyingLengthWords();
    void lyingCompressedSize();
    void randomBytes();

    void deviceRoundTrip_data();
    void deviceRoundTrip();
    void container();
    void containerOfNothing();
};

void tst_SPackBits::freshState()
{
    SPackBits compressor;
    QVERIFY(compressor.mode() == PackBitsMode::PackBitsRaw);
    QCOMPARE(static_cast<int>(PackBitsMode::PackBitsFramed), 0);
    QCOMPARE(static_cast<int>(PackBitsMode::PackBitsRaw), 1);
    QCOMPARE(compressor.name(), u"packbits"_s);
    QCOMPARE(compressor.bytesAvailable(), 0);
    QCOMPARE(compressor.concurrence(), 1);
    QCOMPARE(compressor.id(), SPackBits::uniqueId());
    QVERIFY(compressor.finalize());
}

void tst_SPackBits::cloneIsRawWithOneThread()
{
    SPackBits compressor(PackBitsMode::PackBitsFramed);
    compressor.setConcurrence(QThread::idealThreadCount());
    const std::unique_ptr<SPackBits> clone(compressor.clone());
    QVERIFY(clone->mode() == PackBitsMode::PackBitsRaw);
    QCOMPARE(clone->concurrence(), 1);
}

void tst_SPackBits::runLeavesTheLastByte()
{
    QCOMPARE(SPackBits::compress("AAAAAA"), fromHex("FC410041"));
}

void tst_SPackBits::runOfFiveAndAnotherByte()
{
    QCOMPARE(SPackBits::compress("AAAAAB"), fromHex("FC410042"));
}

void tst_SPackBits::threeEqualBytesStayLiterals()
{
    QCOMPARE(SPackBits::compress("AAA"), fromHex("02414141"));
    QCOMPARE(SPackBits::compress("xAAA"), fromHex("0378414141"));
}

void tst_SPackBits::twoHundredDifferentBytes()
{
    const QByteArray data = Samples::differentPairs(200);
    QCOMPARE(SPackBits::compress(data),
             fromHex("7E") + data.left(127) + fromHex("48") + data.mid(127));
}

void tst_SPackBits::threeHundredEqualBytes()
{
    QCOMPARE(SPackBits::compress(QByteArray(300, 'A')), fromHex("81418141D6410041"));
}

// The example of docs/formats/packbits.md.
void tst_SPackBits::runsAndOtherBytes()
{
    QCOMPARE(SPackBits::compress("AAAAAAAABCDDDDD"), fromHex("F941014243FD440044"));
    QCOMPARE(SPackBits::decompress(fromHex("F941014243FD440044")), "AAAAAAAABCDDDDD"_ba);
}

void tst_SPackBits::emptyInputIsOneZeroByte()
{
    QCOMPARE(SPackBits::compress(QByteArray()), fromHex("0000"));
    QCOMPARE(SPackBits::compress(""), fromHex("0000"));
    // What stands behind no byte of foreign memory is not looked at.
    QCOMPARE(SPackBits::compress(QByteArray::fromRawData("x", 0)), fromHex("0000"));
}

void tst_SPackBits::noDataWritesNothing()
{
    for (const auto mode : {PackBitsMode::PackBitsFramed, PackBitsMode::PackBitsRaw}) {
        SPackBits compressor(mode);
        QCOMPARE(compressed(&compressor, QByteArray()), QByteArray());
    }
}

void tst_SPackBits::idleByteIsSkipped()
{
    QCOMPARE(SPackBits::decompress(fromHex("800041")), "A"_ba);
    QCOMPARE(SPackBits::decompress(fromHex("80")), QByteArray());
}

void tst_SPackBits::cutLiteralGivesNothing()
{
    QCOMPARE(SPackBits::decompress(fromHex("0041024243")), QByteArray());
}

void tst_SPackBits::cutRunGivesNothing()
{
    QCOMPARE(SPackBits::decompress(fromHex("0041FE")), QByteArray());
}

void tst_SPackBits::emptyBlockGivesNothing()
{
    QCOMPARE(SPackBits::decompress(QByteArray()), QByteArray());
}

void tst_SPackBits::roundTripsOfAllSizes_data()
{
    QTest::addColumn<QByteArray>("data");
    SeededRandom random;
    QTest::newRow("one value") << QByteArray(5000, 'A');
    QTest::newRow("no two alike") << Samples::differentPairs(5000);
    QTest::newRow("random") << random.bytes(5000);
    QTest::newRow("runs") << Samples::runs(&random, 5000);
}

void tst_SPackBits::roundTripsOfAllSizes()
{
    QFETCH(QByteArray, data);
    for (qsizetype size = 1; size <= data.size(); ++size) {
        const QByteArray part = data.left(size);
        QCOMPARE(SPackBits::decompress(SPackBits::compress(part)), part);
    }
}

void tst_SPackBits::allValues()
{
    for (int value = 0; value < 256; ++value) {
        const auto byte = static_cast<char>(value);
        for (const int count : {1, 4, 129}) {
            const QByteArray data(count, byte);
            QCOMPARE(SPackBits::decompress(SPackBits::compress(data)), data);
        }
    }
}

void tst_SPackBits::rawStreamIsTheBlock()
{
    SeededRandom random;
    // Above what one step of the stream encodes.
    for (const int size : {1, 100, 8192, 8193, 100000}) {
        SPackBits compressor;
        const QByteArray data = Samples::runs(&random, size);
        QCOMPARE(compressed(&compressor, data), SPackBits::compress(data));
    }
}

void tst_SPackBits::framedStreamHasALengthWord()
{
    SPackBits compressor(PackBitsMode::PackBitsFramed);
    QCOMPARE(compressed(&compressor, "AAAAAB"), fromHex("00000004FC410042"));
}

void tst_SPackBits::piecesOfSeveralThreads()
{
    SeededRandom random;
    SPackBits compressor(PackBitsMode::PackBitsFramed);
    compressor.setConcurrence(2);
    // One processor alone works on all in one piece.
    const int threads = compressor.concurrence();
    for (const int size : {1, 16384, 20000, 32769, 100001}) {
        const QByteArray data = Samples::runs(&random, size);
        const qsizetype piece = threads < 2 ? size : std::max(size / threads, 16384);
        QByteArray expected;
        for (qsizetype pos = 0; pos < size; pos += piece)
            expected += framed(SPackBits::compress(data.mid(pos, piece)));
        QCOMPARE(compressed(&compressor, data), expected);
    }
}

void tst_SPackBits::blocksStandAlone()
{
    SPackBits compressor(PackBitsMode::PackBitsFramed);
    QBuffer target;
    QVERIFY(target.open(QIODevice::WriteOnly));
    QCOMPARE(compressor.compress("AAAA", 4, &target), 4);
    QCOMPARE(compressor.compress("AAAA", 4, &target), 4);
    QCOMPARE(target.data(), fromHex("00000004FE41004100000004FE410041"));
}

void tst_SPackBits::concurrenceCountsFramedOnly()
{
    const int ideal = QThread::idealThreadCount();
    SPackBits raw;
    raw.setConcurrence(1000);
    QCOMPARE(raw.concurrence(), 1);
    SPackBits framedOne(PackBitsMode::PackBitsFramed);
    framedOne.setConcurrence(1000);
    QCOMPARE(framedOne.concurrence(), ideal);
}

void tst_SPackBits::handsOutInPieces()
{
    SPackBits compressor(PackBitsMode::PackBitsFramed);
    QBuffer source;
    source.setData(fromHex("00000004FC410042") + fromHex("000000020043"));
    QVERIFY(source.open(QIODevice::ReadOnly));
    char data[4] = {};
    QCOMPARE(compressor.decompress(&source, data, 0, 0), 0);
    QCOMPARE(source.pos(), 0);
    QCOMPARE(compressor.decompress(&source, data, 4, 0), 4);
    QCOMPARE(compressor.bytesAvailable(), 2);
    QCOMPARE(source.pos(), 8);
    // The rest of a block comes alone, even where there is room for more.
    QCOMPARE(compressor.decompress(&source, data, 4, 0), 2);
    QCOMPARE(QByteArray(data, 2), "AB"_ba);
    QCOMPARE(compressor.decompress(&source, data, 4, 0), 1);
    QCOMPARE(data[0], 'C');
    QCOMPARE(compressor.decompress(&source, data, 4, 0), 0);
}

void tst_SPackBits::framedBlocksOfACompressedSize()
{
    SPackBits compressor(PackBitsMode::PackBitsFramed);
    const QByteArray stream = fromHex("00000004FC410042") + fromHex("000000020043");
    QBuffer source;
    source.setData(stream + framed("\x01YZ"));
    QVERIFY(source.open(QIODevice::ReadOnly));
    char data[20] = {};
    QCOMPARE(compressor.decompress(&source, data, sizeof data, stream.size()), 7);
    QCOMPARE(QByteArray(data, 7), "AAAAABC"_ba);
    QCOMPARE(source.pos(), stream.size());
}

void tst_SPackBits::wrongCompressedSizeFails()
{
    const QByteArray stream = fromHex("00000004FC410042") + fromHex("000000020043");
    for (qint64 size = 1; size < 20; ++size) {
        SPackBits compressor(PackBitsMode::PackBitsFramed);
        QBuffer source;
        source.setData(stream);
        QVERIFY(source.open(QIODevice::ReadOnly));
        char data[20] = {};
        const qint64 expected = size == 8 ? 6 : size == 14 ? 7 : -1;
        QCOMPARE(compressor.decompress(&source, data, sizeof data, size), expected);
        QCOMPARE(compressor.bytesAvailable(), 0);
    }
}

void tst_SPackBits::rawBlockOfACompressedSize()
{
    SPackBits compressor;
    QBuffer source;
    source.setData(fromHex("FC4100420043"));
    QVERIFY(source.open(QIODevice::ReadOnly));
    char data[10] = {};
    QCOMPARE(compressor.decompress(&source, data, 2, 4), 2);
    QCOMPARE(source.pos(), 4);
    QCOMPARE(compressor.bytesAvailable(), 4);
    QCOMPARE(compressor.decompress(&source, data, 10, 4), 4);
    QCOMPARE(QByteArray(data, 4), "AAAB"_ba);
    // A cut block yields nothing, though its first packet is whole.
    source.seek(0);
    QCOMPARE(compressor.decompress(&source, data, 10, 3), 0);
    QCOMPARE(source.pos(), 3);
}

void tst_SPackBits::streamLeavesWhatDoesNotFit()
{
    SPackBits compressor;
    QBuffer source;
    source.setData(fromHex("0041FC42024344450046"));
    QVERIFY(source.open(QIODevice::ReadOnly));
    char data[20] = {};
    QCOMPARE(compressor.decompress(&source, data, 5, 0), 1);
    QCOMPARE(source.pos(), 2);
    QCOMPARE(compressor.decompress(&source, data, 4, 0), 0);
    QCOMPARE(source.pos(), 2);
    QCOMPARE(compressor.decompress(&source, data, 6, 0), 5);
    QCOMPARE(source.pos(), 4);
    QCOMPARE(compressor.decompress(&source, data, 3, 0), 3);
    QCOMPARE(source.pos(), 8);
    QCOMPARE(compressor.decompress(&source, data, 20, 0), 1);
    QVERIFY(source.atEnd());
    QCOMPARE(compressor.decompress(&source, data, 20, 0), 0);
}

void tst_SPackBits::streamLeavesWhatIsNotAsked()
{
    SeededRandom random;
    const QByteArray row = Samples::runs(&random, 20000);
    const QByteArray packets = SPackBits::compress(row);
    for (const bool sequential : {false, true}) {
        QBuffer file;
        file.setData(packets + "what follows");
        QVERIFY(file.open(QIODevice::ReadOnly));
        LiveDevice live;
        live.arrive(file.data());
        QIODevice *source = sequential ? static_cast<QIODevice *>(&live) : &file;
        SPackBits compressor;
        QByteArray data(row.size(), '\0');
        QCOMPARE(compressor.decompress(source, data.data(), data.size(), 0), row.size());
        QCOMPARE(data, row);
        QCOMPARE(source->readAll(), "what follows"_ba);
    }
}

void tst_SPackBits::streamSkipsIdleBytesAtAnyPlace()
{
    const QByteArray idle(300, '\x80');
    QCOMPARE(decompressed(PackBitsMode::PackBitsRaw,
                          idle + fromHex("0041") + idle + fromHex("FE42") + idle, 10),
             "ABBB"_ba);
}

void tst_SPackBits::streamEndsInsideALiteral()
{
    QCOMPARE(decompressed(PackBitsMode::PackBitsRaw, fromHex("004104424344"), 100), "ABCD"_ba);
}

void tst_SPackBits::streamEndsInsideARun()
{
    QCOMPARE(decompressed(PackBitsMode::PackBitsRaw, fromHex("0041FE"), 100), "A"_ba);
}

void tst_SPackBits::streamFromALiveDevice()
{
    LiveDevice live;
    SPackBits compressor;
    char data[300] = {};
    QCOMPARE(compressor.decompress(&live, data, sizeof data, 0), 0);
    live.arrive(fromHex("0041FC"));
    QCOMPARE(compressor.decompress(&live, data, 1, 0), 1);
    live.arrive(fromHex("42"));
    QCOMPARE(compressor.decompress(&live, data, sizeof data, 0), 5);
    QCOMPARE(QByteArray(data, 5), "BBBBB"_ba);
    live.arrive(fromHex("0243444500"));
    QCOMPARE(compressor.decompress(&live, data, 3, 0), 3);
    live.arrive(fromHex("46"));
    QCOMPARE(compressor.decompress(&live, data, sizeof data, 0), 1);
    QCOMPARE(data[0], 'F');
}

void tst_SPackBits::streamFromPiecesOfOneByte()
{
    SeededRandom random;
    const QByteArray row = Samples::runs(&random, 5000);
    QBuffer file;
    file.setData(SPackBits::compress(row));
    FaultDevice source(&file, {.read = {.pieceBytes = 1}});
    QVERIFY(source.open(QIODevice::ReadOnly));
    SPackBits compressor;
    QCOMPARE(decompressed(&compressor, &source, 200), row);
}

void tst_SPackBits::streamFromAFile()
{
    SeededRandom random;
    const QByteArray row = Samples::runs(&random, 100000);
    QTemporaryFile file;
    QVERIFY(file.open());
    QVERIFY(file.write(SPackBits::compress(row) + "what follows") > 0);
    file.seek(0);
    SPackBits compressor;
    QByteArray data(row.size(), '\0');
    QCOMPARE(compressor.decompress(&file, data.data(), data.size(), 0), row.size());
    QCOMPARE(data, row);
    QCOMPARE(file.readAll(), "what follows"_ba);
}

// The end of a file is no failure.
void tst_SPackBits::streamOfAFileEndsInsideAPacket()
{
    for (const auto &[packets, plain] :
         {std::pair(fromHex("004104424344"), "ABCD"_ba), std::pair(fromHex("004104"), "A"_ba),
          std::pair(fromHex("0041FE"), "A"_ba)}) {
        QTemporaryFile file;
        QVERIFY(file.open());
        QCOMPARE(file.write(packets), packets.size());
        file.seek(0);
        SPackBits compressor;
        QCOMPARE(decompressed(&compressor, &file, 100), plain);
    }
}

void tst_SPackBits::streamFromABufferThatHasShrunk()
{
    QByteArray bytes = fromHex("00410042");
    QBuffer source(&bytes);
    QVERIFY(source.open(QIODevice::ReadOnly));
    SPackBits compressor;
    char data[10] = {};
    QCOMPARE(compressor.decompress(&source, data, 1, 0), 1);
    bytes.truncate(1);
    QCOMPARE(compressor.decompress(&source, data, sizeof data, 0), 0);
}

void tst_SPackBits::streamFromAFileThatChanges_data()
{
    QTest::addColumn<char>("then");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("the same") << '\x01' << "xx"_ba;
    QTest::newRow("a longer literal") << '\x7F' << QByteArray();
    QTest::newRow("a longer run") << '\x81' << QByteArray();
    QTest::newRow("a shorter literal") << '\0' << "x"_ba;
    QTest::newRow("an idle byte") << '\x80' << QByteArray();
}

// The room was measured for another packet.
void tst_SPackBits::streamFromAFileThatChanges()
{
    QFETCH(char, then);
    QFETCH(QByteArray, expected);
    constexpr int kRoom = 2;
    ChangingFile source('\x01', then);
    SPackBits compressor;
    QByteArray data(200, 'g');
    const qint64 count = compressor.decompress(&source, data.data(), kRoom, 0);
    QCOMPARE(data.left(count), expected);
    QCOMPARE(data.mid(kRoom), QByteArray(200 - kRoom, 'g'));
}

void tst_SPackBits::finalizeForgetsWhatIsHeld()
{
    SPackBits compressor(PackBitsMode::PackBitsFramed);
    QBuffer source;
    source.setData(fromHex("00000002F141"));
    QVERIFY(source.open(QIODevice::ReadOnly));
    char data[2] = {};
    QCOMPARE(compressor.decompress(&source, data, 2, 0), 2);
    QCOMPARE(compressor.bytesAvailable(), 14);
    QVERIFY(compressor.finalize());
    QCOMPARE(compressor.bytesAvailable(), 0);
    QCOMPARE(compressor.decompress(&source, data, 2, 0), 0);
}

void tst_SPackBits::failsWhenTheTargetIsFull()
{
    SeededRandom random;
    const QByteArray data = random.bytes(50000);
    for (const auto mode : {PackBitsMode::PackBitsFramed, PackBitsMode::PackBitsRaw}) {
        for (const int concurrence : {1, 2}) {
            for (const qint64 capacity : {4, 5, 8000, 16390, 50000}) {
                QBuffer file;
                FaultDevice target(&file, {.capacity = capacity});
                QVERIFY(target.open(QIODevice::WriteOnly));
                SPackBits compressor(mode);
                compressor.setConcurrence(concurrence);
                QCOMPARE(compressor.compress(data.constData(), data.size(), &target), -1);
            }
        }
    }
}

void tst_SPackBits::failsWhenReadingFails()
{
    LiveDevice source;
    source.arrive(fromHex("004104"));
    source.failAtEnd();
    SPackBits compressor;
    char data[300] = {};
    QCOMPARE(compressor.decompress(&source, data, 1, 0), 1);
    // Only a packet that has begun has something to miss.
    QCOMPARE(compressor.decompress(&source, data, sizeof data, 0), -1);
    QCOMPARE(compressor.decompress(&source, data, sizeof data, 0), 0);
}

// What came of the packet before does not hide it.
void tst_SPackBits::failsInsideALiteral()
{
    LiveDevice source;
    source.arrive(fromHex("0041044243"));
    source.failAtEnd();
    SPackBits compressor;
    char data[300] = {};
    QCOMPARE(compressor.decompress(&source, data, sizeof data, 0), -1);
}

void tst_SPackBits::failsInsideARun()
{
    LiveDevice source;
    source.arrive(fromHex("0041FE"));
    source.failAtEnd();
    SPackBits compressor;
    char data[300] = {};
    QCOMPARE(compressor.decompress(&source, data, sizeof data, 0), -1);
}

// The block alone tells of success.
void tst_SPackBits::lengthWordFailureGoesUnnoticed()
{
    class WordRefuser final : public QIODevice
    {
    public:
        WordRefuser() { QIODevice::open(WriteOnly | Unbuffered); }
        QByteArray taken;

    protected:
        qint64 readData(char *, qint64) override { return -1; }
        qint64 writeData(const char *data, qint64 size) override
        {
            if (size == 4 && data[0] == '\0')
                return -1;
            taken += QByteArray(data, size);
            return size;
        }
    };
    WordRefuser target;
    SPackBits compressor(PackBitsMode::PackBitsFramed);
    QCOMPARE(compressor.compress("AAAAAB", 6, &target), 6);
    QCOMPARE(target.taken, fromHex("FC410042"));
}

void tst_SPackBits::truncationAtEveryByte_data()
{
    QTest::addColumn<bool>("isRaw");
    QTest::newRow("framed") << false;
    QTest::newRow("raw") << true;
}

// What comes is a beginning of the data: the whole blocks, and of the last the whole packets, if it
// has none that is cut; raw also what a cut literal packet has.
void tst_SPackBits::truncationAtEveryByte()
{
    QFETCH(bool, isRaw);
    SeededRandom random;
    const auto mode = isRaw ? PackBitsMode::PackBitsRaw : PackBitsMode::PackBitsFramed;
    const QByteArray data = Samples::runs(&random, 3000);
    QByteArray stream;
    QList<qsizetype> ends{0};
    SPackBits compressor(mode);
    for (qsizetype pos = 0; pos < data.size(); pos += 300) {
        stream += compressed(&compressor, data.mid(pos, 300));
        ends += stream.size();
    }
    for (qsizetype size = 0; size <= stream.size(); ++size) {
        const QByteArray got = decompressed(mode, stream.left(size), 500);
        QVERIFY(data.startsWith(got));
        const auto whole = std::upper_bound(ends.begin(), ends.end(), size) - ends.begin() - 1;
        QVERIFY(got.size() >= whole * 300);
        if (!isRaw) {
            const QByteArray cutBlock = stream.mid(ends.at(whole), size - ends.at(whole)).mid(4);
            QCOMPARE(got.size(), whole * 300 + PlainPackBits::decoded(cutBlock).size());
        }
    }
}

// A block gives what its packets stand for when they are whole, and nothing otherwise.
void tst_SPackBits::everyFlippedBit()
{
    SeededRandom random;
    const QByteArray block = SPackBits::compress(Samples::runs(&random, 300));
    for (qsizetype bit = 0; bit < block.size() * 8; ++bit) {
        QByteArray damaged = block;
        damaged[bit / 8] = static_cast<char>(damaged.at(bit / 8) ^ 1 << bit % 8);
        QCOMPARE(SPackBits::decompress(damaged), PlainPackBits::decoded(damaged));
        QCOMPARE(decompressed(PackBitsMode::PackBitsFramed, framed(damaged), 77),
                 PlainPackBits::decoded(damaged));
        const QByteArray streamed = decompressed(PackBitsMode::PackBitsRaw, damaged, 500);
        QVERIFY(streamed.startsWith(PlainPackBits::decoded(damaged)));
    }
}

void tst_SPackBits::lyingLengthWords_data()
{
    QTest::addColumn<quint32>("length");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("0 ends the stream") << 0U << QByteArray();
    QTest::newRow("1") << 1U << QByteArray();
    QTest::newRow("the right one") << 4U << "AAAAAB"_ba;
    QTest::newRow("one more") << 5U << "AAAAAB"_ba;
    QTest::newRow("2 GiB less one") << 0x7FFFFFFFU << "AAAAAB"_ba;
    QTest::newRow("4 GiB less one") << 0xFFFFFFFFU << "AAAAAB"_ba;
}

void tst_SPackBits::lyingLengthWords()
{
    QFETCH(quint32, length);
    QFETCH(QByteArray, expected);
    const TestShared::HeldMemoryPeak memory;
    QCOMPARE(decompressed(PackBitsMode::PackBitsFramed, RawBytes::u32(length) + fromHex("FC410042"),
                          100),
             expected);
    QVERIFY2(memory.growth() < 32 * 1024 * 1024, qPrintable(QString::number(memory.growth())));
}

void tst_SPackBits::lyingCompressedSize()
{
    const TestShared::HeldMemoryPeak memory;
    QBuffer source;
    source.setData(fromHex("FC410042"));
    QVERIFY(source.open(QIODevice::ReadOnly));
    SPackBits compressor;
    char data[10] = {};
    QCOMPARE(compressor.decompress(&source, data, sizeof data, qint64(1) << 60), 6);
    QVERIFY2(memory.growth() < 32 * 1024 * 1024, qPrintable(QString::number(memory.growth())));
}

void tst_SPackBits::randomBytes()
{
    SeededRandom random;
    for (int round = 0; round < 2000; ++round) {
        const QByteArray bytes = random.bytes(random.between(0, 500));
        QCOMPARE(SPackBits::decompress(bytes), PlainPackBits::decoded(bytes));
        QVERIFY(decompressed(PackBitsMode::PackBitsRaw, bytes, 128)
                    .startsWith(PlainPackBits::decoded(bytes)));
        QVERIFY(decompressed(PackBitsMode::PackBitsFramed, bytes, 128) != "failed");
    }
}

void tst_SPackBits::deviceRoundTrip_data()
{
    QTest::addColumn<bool>("isRaw");
    QTest::newRow("framed") << false;
    QTest::newRow("raw") << true;
}

void tst_SPackBits::deviceRoundTrip()
{
    QFETCH(bool, isRaw);
    SeededRandom random;
    const QByteArray data = Samples::runs(&random, 200000);
    QBuffer file;
    SPackBitsDevice writer(&file, false, isRaw);
    QVERIFY(writer.open(QIODevice::WriteOnly));
    QCOMPARE(writer.write(data), data.size());
    writer.close();
    QVERIFY(!file.isOpen());
    const QByteArray block = SPackBits::compress(data);
    QCOMPARE(file.data(), isRaw ? block : framed(block));

    SPackBitsDevice reader(&file, true, isRaw);
    QVERIFY(!reader.calculateCrc());
    QVERIFY(reader.open(QIODevice::ReadOnly));
    QCOMPARE(reader.readAll(), data);
    reader.close();
    QVERIFY(file.isOpen());

    const SPackBitsDevice byDefault(&file, true);
    QVERIFY(static_cast<SPackBits *>(byDefault.compressor())->mode() ==
            PackBitsMode::PackBitsFramed);
}

void tst_SPackBits::container()
{
    SeededRandom random;
    const QByteArray data = Samples::runs(&random, 300000);
    for (const auto mode : {PackBitsMode::PackBitsFramed, PackBitsMode::PackBitsRaw}) {
        QBuffer plain;
        plain.setData(data);
        QBuffer file;
        QVERIFY(SCompressorDevice::compress(&plain, &file, new SPackBits(mode)));
        QCOMPARE(file.data().left(20),
                 QCryptographicHash::hash("packbits", QCryptographicHash::Sha1));
        QBuffer back;
        QVERIFY(SCompressorDevice::decompress(&file, &back, new SPackBits(mode)));
        QCOMPARE(back.data(), data);
    }
}

void tst_SPackBits::containerOfNothing()
{
    QBuffer plain;
    QBuffer file;
    QVERIFY(SCompressorDevice::compress(&plain, &file, new SPackBits));
    QCOMPARE(file.size(), 24);
    QBuffer back;
    QVERIFY(SCompressorDevice::decompress(&file, &back, new SPackBits));
    QCOMPARE(back.data(), QByteArray());
}

QTEST_GUILESS_MAIN(tst_SPackBits)
#include "tst_spackbits.moc"
