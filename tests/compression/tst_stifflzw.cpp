// SPDX-License-Identifier: MIT
#include "plainlzw.h"
#include "samples.h"

#include <brixlib/compression/stifflzw.h>

#include <shared/faultdevice.h>
#include <shared/memorypeak.h>
#include <shared/seededrandom.h>

#include <QtCore/QBuffer>
#include <QtCore/QCryptographicHash>
#include <QtCore/QTemporaryFile>

#include <algorithm>
#include <stdexcept>
#include <utility>

using namespace Talverine::Compression;
using namespace Qt::StringLiterals;

namespace {

const char kCorrupted[] = "STiffLZW::incrementalDecompress: LZW corrupted!";

QByteArray fromHex(const char *hex)
{
    return QByteArray::fromHex(hex);
}

QByteArray encoded(const QByteArray &data)
{
    STiffLZW lzw;
    QBuffer target;
    if (!target.open(QIODevice::WriteOnly) ||
        lzw.compress(data.constData(), data.size(), &target) != data.size() || !lzw.finalize())
        return "failed";
    return target.data();
}

//! One call with room for \a maxSize bytes.
QByteArray decodedOnce(STiffLZW *lzw, QIODevice *source, qint64 maxSize, qint64 compressedSize = 0)
{
    // The guard shows a byte written beyond.
    QByteArray data(maxSize + 1, '\x5A');
    const qint64 count = lzw->decompress(source, data.data(), maxSize, compressedSize);
    if (count < 0 || count > maxSize || data.back() != '\x5A')
        return "failed";
    return data.left(count);
}

//! The bytes of a stream, as far as there is room for \a maxSize.
QByteArray decoded(const QByteArray &stream, qint64 maxSize)
{
    STiffLZW lzw;
    QBuffer source;
    source.setData(stream);
    source.open(QIODevice::ReadOnly);
    return decodedOnce(&lzw, &source, maxSize);
}

//! Counts the lines of damaged streams, and lets others pass.
class CorruptionLog
{
public:
    CorruptionLog()
    {
        s_lines = 0;
        s_before = qInstallMessageHandler(&handle);
    }
    ~CorruptionLog() { qInstallMessageHandler(s_before); }
    Q_DISABLE_COPY_MOVE(CorruptionLog)

    int lines() const { return s_lines; }

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &text)
    {
        if (type == QtDebugMsg && text == QLatin1StringView(kCorrupted))
            ++s_lines;
        else
            s_before(type, context, text);
    }

    static inline int s_lines = 0;
    static inline QtMessageHandler s_before = nullptr;
};

//! Reads any bytes in calls of the sizes in turn, and tells whether each gives what the plain way
//! gives, and takes what it takes.
bool readsLikeThePlainWay(const QByteArray &stream, const QList<qint64> &sizes, int calls,
                          qint64 compressedSize = 0)
{
    const CorruptionLog log;
    PlainLzw::Decoder plain(stream);
    STiffLZW lzw;
    QBuffer source;
    source.setData(stream);
    source.open(QIODevice::ReadOnly);
    for (int call = 0; call < calls; ++call) {
        const qint64 size = sizes.at(call % sizes.size());
        if (decodedOnce(&lzw, &source, size, compressedSize) != plain.decoded(size, compressedSize))
            return false;
        if (lzw.bytesAvailable() != plain.held() || log.lines() != plain.overflows())
            return false;
        if (source.pos() != plain.position())
            return false;
    }
    return true;
}

QList<PlainLzw::Code> literals(int count, int width = 9)
{
    QList<PlainLzw::Code> codes;
    for (int i = 0; i < count; ++i)
        codes.append({i % 256, width});
    return codes;
}

//! Codes that fill the table: as many as make the decoder's width go above 12.
QList<PlainLzw::Code> fillingCodes()
{
    QList<PlainLzw::Code> codes{{256, 9}, {0, 9}};
    int width = 9;
    for (int nextCode = 258; nextCode < 4095; ++nextCode) {
        codes.append({nextCode % 256, width});
        if (nextCode + 1 == (1 << width) - 1)
            ++width;
    }
    return codes;
}

} // namespace

class tst_STiffLZW : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshState();
    void cloneIsFresh();
    void oneByte();
    void stringThatIsNamedAsItIsAdded();
    void beginsWithClearAndEndsWithEnd();
    void widensWhereTheDecoderDoes_data();
    void widensWhereTheDecoderDoes();
    void clearsTheTableBeforeItIsFull();
    void longRun();
    void smallBufferForALongString();
    void longestString();
    void twoHalvesAreTheWhole();
    void anyPiecesAreTheWhole();
    void writesLikeThePlainWay_data();
    void writesLikeThePlainWay();
    void roundTripsOfManySizes_data();
    void roundTripsOfManySizes();
    void allValues();
    void readsInPiecesOfAnySize();

    void incrementalForms();
    void beginsAnew();
    void firstTargetStays();
    void firstSourceStays();
    void decompressBeginsAnewAfterItsEnd();
    void failedEndDoesNotEndTheReading();
    void endWithoutABeginning();
    void endWithoutAByteThrows();
    void noDataBeginsNoStream();
    void finalizeWithoutAStream();
    void oneObjectWritesAndReads();
    void severalStreamsOneAfterTheOther();
    void goesOnBehindTheEndCode();

    void takesNoByteBehindTheEnd();
    void takesTheCompressedSize();
    void goesOnInTheNextCompressedPart();
    void takesNothingWhileItHoldsEnough();
    void liveDevice();
    void piecesOfOneByte();
    void fileAsSource();
    void bufferThatHasShrunk();

    void writesInPieces();
    void losesOnlyThePieceThatFails();
    void failsWhenTheTargetIsFull();
    void failsWhenTheTargetIsGone();
    void failsWhenTheSourceIsGone();
    void failsWhenReadingFails();
    void truncationAtEveryByte();
    void everyFlippedBit();
    void randomBytes();
    void codesOfEmptySlots();
    void codesOfEmptySlotsFollowingEachOther();
    void entryThatWouldBeItsOwnPrefix();
    void clearCodesFollowingEachOther();
    void streamWithoutAClearCode();
    void fullTable();
    void clearCodeAfterAFullTable();
    void lyingCompressedSize();

    void deviceRoundTrip();
    void deviceWithoutData();
    void container();
    void containerOfNothing();
};

void tst_STiffLZW::freshState()
{
    STiffLZW lzw;
    QCOMPARE(lzw.name(), u"lzw"_s);
    QCOMPARE(lzw.bytesAvailable(), 0);
    QCOMPARE(lzw.id(), STiffLZW::uniqueId());
    lzw.setConcurrence(1000);
    QCOMPARE(lzw.concurrence(), 1);
}

void tst_STiffLZW::cloneIsFresh()
{
    STiffLZW lzw;
    QBuffer target;
    QVERIFY(target.open(QIODevice::WriteOnly));
    QCOMPARE(lzw.compress("A", 1, &target), 1);
    const std::unique_ptr<STiffLZW> clone(lzw.clone());
    QVERIFY(!clone->endCompress());
    QVERIFY(lzw.finalize());
    QCOMPARE(target.data(), fromHex("80106020"));
}

void tst_STiffLZW::oneByte()
{
    QCOMPARE(encoded("A"), fromHex("80106020"));
    QCOMPARE(PlainLzw::packed({{256, 9}, {'A', 9}, {257, 9}}), fromHex("80106020"));
    QCOMPARE(decoded(fromHex("80106020"), 10), "A"_ba);
}

// The example of docs/formats/tiff-lzw.md: code 260 comes before the reader knows it.
void tst_STiffLZW::stringThatIsNamedAsItIsAdded()
{
    const QByteArray stream = fromHex("80104850 28210A02");
    QCOMPARE(encoded("ABABABAB"), stream);
    QCOMPARE(
        PlainLzw::packed({{256, 9}, {'A', 9}, {'B', 9}, {258, 9}, {260, 9}, {'B', 9}, {257, 9}}),
        stream);
    QCOMPARE(decoded(stream, 10), "ABABABAB"_ba);
}

void tst_STiffLZW::beginsWithClearAndEndsWithEnd()
{
    SeededRandom random;
    for (const int size : {1, 2, 500, 5000}) {
        const QByteArray data = random.bytes(size);
        const QList<PlainLzw::Code> codes = PlainLzw::encodedCodes(data);
        QCOMPARE(codes.first(), (PlainLzw::Code{256, 9}));
        QCOMPARE(codes.last().value, 257);
        QCOMPARE(encoded(data), PlainLzw::packed(codes));
    }
}

void tst_STiffLZW::widensWhereTheDecoderDoes_data()
{
    QTest::addColumn<int>("nextCode");
    QTest::newRow("from 9 to 10 bits") << 512;
    QTest::newRow("from 10 to 11 bits") << 1024;
    QTest::newRow("from 11 to 12 bits") << 2048;
}

// The encoder adds a string a code earlier than the decoder: the one is at 512 when the other is at
// 511, and with the last code of a stream the decoder catches up.
void tst_STiffLZW::widensWhereTheDecoderDoes()
{
    QFETCH(int, nextCode);
    for (int added = nextCode - 258 - 3; added <= nextCode - 258 + 3; ++added) {
        const QByteArray data = Samples::differentPairs(added + 1);
        const QList<PlainLzw::Code> codes = PlainLzw::encodedCodes(data);
        QCOMPARE(codes.size(), added + 3);
        QCOMPARE(encoded(data), PlainLzw::packed(codes));
        QCOMPARE(decoded(encoded(data), data.size()), data);
    }
}

void tst_STiffLZW::clearsTheTableBeforeItIsFull()
{
    const int inOneTable = 4093 - 258;
    for (int size = inOneTable - 3; size <= inOneTable + 5; ++size) {
        const QByteArray data = Samples::differentPairs(size);
        const QList<PlainLzw::Code> codes = PlainLzw::encodedCodes(data);
        QCOMPARE(codes.count({256, 12}), size > inOneTable ? 1 : 0);
        QCOMPARE(encoded(data), PlainLzw::packed(codes));
        QCOMPARE(decoded(encoded(data), size), data);
    }
    const QByteArray twice = Samples::differentPairs(3 * inOneTable);
    QCOMPARE(encoded(twice), PlainLzw::encoded(twice));
    QCOMPARE(decoded(encoded(twice), twice.size()), twice);
}

// Each code but the first names the slot that it is about to fill.
void tst_STiffLZW::longRun()
{
    const QByteArray run(1000000, 'A');
    const QByteArray stream = encoded(run);
    QVERIFY(stream.size() < 2500);
    QCOMPARE(stream.left(5),
             PlainLzw::packed({{256, 9}, {'A', 9}, {258, 9}, {259, 9}}).left(4) + stream.mid(4, 1));
    QCOMPARE(decoded(stream, run.size()), run);
    QVERIFY(readsLikeThePlainWay(encoded(run.left(20000)), {1, 2, 3, 500, 7}, 2000));
}

void tst_STiffLZW::smallBufferForALongString()
{
    // "A", "AA", "AAA", "AAAA", "AAAAA" in one code each.
    const QByteArray stream =
        PlainLzw::packed({{256, 9}, {'A', 9}, {258, 9}, {259, 9}, {260, 9}, {261, 9}, {257, 9}});
    STiffLZW lzw;
    QBuffer source;
    source.setData(stream);
    QVERIFY(source.open(QIODevice::ReadOnly));
    QCOMPARE(decodedOnce(&lzw, &source, 10), "AAAAAAAAAA"_ba);
    QCOMPARE(lzw.bytesAvailable(), 5);
    for (int left = 4; left >= 0; --left) {
        QCOMPARE(decodedOnce(&lzw, &source, 1), "A"_ba);
        QCOMPARE(lzw.bytesAvailable(), left);
    }
    QCOMPARE(decodedOnce(&lzw, &source, 1), QByteArray());
    QCOMPARE(decoded(stream, 14), QByteArray(10, 'A'));
    QCOMPARE(decoded(stream, 15), QByteArray(15, 'A'));

    // Room for one byte from the beginning: as soon as one string is out, the next one is held.
    QVERIFY(lzw.finalize());
    source.seek(0);
    for (const int held : {2, 1, 3, 2, 1, 4, 3, 2, 1, 5, 4, 3, 2, 1, 0}) {
        QCOMPARE(decodedOnce(&lzw, &source, 1), "A"_ba);
        QCOMPARE(lzw.bytesAvailable(), held);
    }
    QCOMPARE(decodedOnce(&lzw, &source, 1), QByteArray());
}

// Each code names the string that it adds, until the table is full.
void tst_STiffLZW::longestString()
{
    QList<PlainLzw::Code> codes = fillingCodes();
    for (qsizetype i = 2; i < codes.size(); ++i)
        codes[i].value = static_cast<int>(258 + i - 2);
    STiffLZW lzw;
    QBuffer source;
    source.setData(PlainLzw::packed(codes));
    QVERIFY(source.open(QIODevice::ReadOnly));
    qint64 longest = 0;
    QTest::ignoreMessage(QtDebugMsg, kCorrupted);
    while (!decodedOnce(&lzw, &source, std::max(lzw.bytesAvailable(), qint64(1))).isEmpty())
        longest = std::max(longest, lzw.bytesAvailable());
    QCOMPARE(longest, 3837);
}

void tst_STiffLZW::twoHalvesAreTheWhole()
{
    SeededRandom random;
    const QByteArray data = Samples::text(&random, 20000);
    STiffLZW lzw;
    QBuffer target;
    QVERIFY(target.open(QIODevice::WriteOnly));
    QCOMPARE(lzw.compress(data.constData(), 10000, &target), 10000);
    QCOMPARE(lzw.compress(data.constData() + 10000, 10000, &target), 10000);
    QVERIFY(lzw.finalize());
    QCOMPARE(target.data(), encoded(data));
}

void tst_STiffLZW::anyPiecesAreTheWhole()
{
    SeededRandom random;
    for (int round = 0; round < 50; ++round) {
        const QByteArray data = Samples::runs(&random, 9000);
        STiffLZW lzw;
        QBuffer target;
        QVERIFY(target.open(QIODevice::WriteOnly));
        for (qint64 pos = 0; pos < data.size();) {
            const qint64 size = std::min<qint64>(random.between(0, 300), data.size() - pos);
            QCOMPARE(lzw.compress(data.constData() + pos, size, &target), size);
            pos += size;
        }
        QVERIFY(lzw.finalize());
        QCOMPARE(target.data(), encoded(data));
    }
}

void tst_STiffLZW::writesLikeThePlainWay_data()
{
    QTest::addColumn<QByteArray>("data");
    SeededRandom random;
    QTest::newRow("one value") << QByteArray(60000, '\0');
    QTest::newRow("no two pairs alike") << Samples::differentPairs(30000);
    QTest::newRow("random") << random.bytes(60000);
    QTest::newRow("text") << Samples::text(&random, 60000);
    QTest::newRow("runs") << Samples::runs(&random, 60000);
    QTest::newRow("two values") << QByteArray("ABBABAABBAABABBA").repeated(4000);
}

void tst_STiffLZW::writesLikeThePlainWay()
{
    QFETCH(QByteArray, data);
    QCOMPARE(encoded(data), PlainLzw::encoded(data));
    for (qsizetype size = 1; size <= 5000; size += 211)
        QCOMPARE(encoded(data.left(size)), PlainLzw::encoded(data.left(size)));
}

void tst_STiffLZW::roundTripsOfManySizes_data()
{
    QTest::addColumn<QByteArray>("data");
    SeededRandom random;
    QTest::newRow("one value") << QByteArray(5000, '\0');
    QTest::newRow("no two pairs alike") << Samples::differentPairs(5000);
    QTest::newRow("random") << random.bytes(5000);
    QTest::newRow("text") << Samples::text(&random, 5000);
    QTest::newRow("runs") << Samples::runs(&random, 5000);
}

void tst_STiffLZW::roundTripsOfManySizes()
{
    QFETCH(QByteArray, data);
    STiffLZW writer;
    STiffLZW reader;
    // Every size as far as the second change of width.
    for (qsizetype size = 1; size <= data.size(); size += size < 1300 ? 1 : 37) {
        QBuffer stream;
        QVERIFY(stream.open(QIODevice::ReadWrite));
        QCOMPARE(writer.compress(data.constData(), size, &stream), size);
        QVERIFY(writer.finalize());
        stream.seek(0);
        // More room than bytes, and exactly as much.
        QCOMPARE(decodedOnce(&reader, &stream, size + 100), data.left(size));
        QVERIFY(stream.atEnd());
        QVERIFY(reader.finalize());
        stream.seek(0);
        QCOMPARE(decodedOnce(&reader, &stream, size), data.left(size));
        QVERIFY(reader.finalize());
    }
}

void tst_STiffLZW::allValues()
{
    for (int value = 0; value < 256; ++value) {
        for (const int count : {1, 2, 300}) {
            const QByteArray data(count, static_cast<char>(value));
            QCOMPARE(encoded(data), PlainLzw::encoded(data));
            QCOMPARE(decoded(encoded(data), count), data);
        }
    }
}

void tst_STiffLZW::readsInPiecesOfAnySize()
{
    SeededRandom random;
    const QList<QByteArray> kinds{QByteArray(30000, 'A'), Samples::text(&random, 30000),
                                  Samples::runs(&random, 30000), random.bytes(30000)};
    for (const QByteArray &data : kinds) {
        for (const qint64 size : {1, 2, 5, 31, 32, 33, 100, 1000, 4096, 29999}) {
            STiffLZW lzw;
            QBuffer source;
            source.setData(encoded(data));
            QVERIFY(source.open(QIODevice::ReadOnly));
            QByteArray got;
            while (got.size() < data.size()) {
                const QByteArray piece = decodedOnce(&lzw, &source, size);
                QVERIFY(!piece.isEmpty());
                got += piece;
            }
            QCOMPARE(got, data);
        }
    }
}

void tst_STiffLZW::incrementalForms()
{
    STiffLZW lzw;
    QBuffer stream;
    QVERIFY(stream.open(QIODevice::ReadWrite));
    lzw.beginCompress(&stream);
    QCOMPARE(lzw.incrementalCompress("AB", 2), 2);
    QCOMPARE(lzw.incrementalCompress("", 0), 0);
    QCOMPARE(lzw.incrementalCompress("", -1), 0);
    QCOMPARE(lzw.incrementalCompress("ABAB", 4), 4);
    QVERIFY(lzw.endCompress());
    QCOMPARE(stream.data(), PlainLzw::encoded("ABABAB"));

    stream.seek(0);
    lzw.beginDecompress(&stream);
    char data[10] = {};
    QCOMPARE(lzw.incrementalDecompress(data, 0, 0), 0);
    QCOMPARE(stream.pos(), 0);
    QCOMPARE(lzw.incrementalDecompress(data, sizeof data, 0), 6);
    QCOMPARE(QByteArray(data, 6), "ABABAB"_ba);
    QVERIFY(lzw.endDecompress());
}

void tst_STiffLZW::beginsAnew()
{
    STiffLZW lzw;
    QBuffer first;
    QBuffer second;
    QVERIFY(first.open(QIODevice::WriteOnly));
    QVERIFY(second.open(QIODevice::WriteOnly));
    QCOMPARE(lzw.compress("xyz", 3, &first), 3);
    lzw.beginCompress(&second);
    QCOMPARE(lzw.compress("A", 1, &first), 1);
    QVERIFY(lzw.endCompress());
    QCOMPARE(first.data(), QByteArray());
    QCOMPARE(second.data(), fromHex("80106020"));

    // What was read of another stream is forgotten, down to the bits and what is held.
    QBuffer other;
    other.setData(encoded("ABABABAB"));
    QVERIFY(other.open(QIODevice::ReadOnly));
    QBuffer source;
    source.setData(fromHex("80106020"));
    QVERIFY(source.open(QIODevice::ReadOnly));
    QCOMPARE(decodedOnce(&lzw, &other, 3), "AB"_ba);
    QCOMPARE(decodedOnce(&lzw, &other, 1), "A"_ba);
    QCOMPARE(lzw.bytesAvailable(), 1);
    lzw.beginDecompress(&source);
    QCOMPARE(lzw.bytesAvailable(), 0);
    QCOMPARE(decodedOnce(&lzw, &other, 10), "A"_ba);
}

void tst_STiffLZW::firstTargetStays()
{
    STiffLZW lzw;
    QBuffer first;
    QBuffer second;
    QVERIFY(first.open(QIODevice::WriteOnly));
    QVERIFY(second.open(QIODevice::WriteOnly));
    QCOMPARE(lzw.compress("A", 1, &first), 1);
    QCOMPARE(lzw.compress("B", 1, &second), 1);
    QVERIFY(lzw.finalize());
    QCOMPARE(first.data(), PlainLzw::encoded("AB"));
    QCOMPARE(second.data(), QByteArray());
}

void tst_STiffLZW::firstSourceStays()
{
    QBuffer first;
    first.setData(encoded("ABC"));
    QVERIFY(first.open(QIODevice::ReadOnly));
    QBuffer second;
    second.setData(encoded("xyz"));
    QVERIFY(second.open(QIODevice::ReadOnly));
    STiffLZW lzw;
    QCOMPARE(decodedOnce(&lzw, &first, 1), "A"_ba);
    QCOMPARE(decodedOnce(&lzw, &second, 10), "BC"_ba);
    QCOMPARE(second.pos(), 0);
}

void tst_STiffLZW::decompressBeginsAnewAfterItsEnd()
{
    QBuffer first;
    first.setData(encoded("ABC"));
    QVERIFY(first.open(QIODevice::ReadOnly));
    QBuffer second;
    second.setData(encoded("xyz"));
    QVERIFY(second.open(QIODevice::ReadOnly));
    STiffLZW lzw;
    QCOMPARE(decodedOnce(&lzw, &first, 1), "A"_ba);
    QVERIFY(lzw.endDecompress());
    QCOMPARE(decodedOnce(&lzw, &second, 10), "xyz"_ba);
}

void tst_STiffLZW::failedEndDoesNotEndTheReading()
{
    QBuffer source;
    source.setData(encoded("ABC"));
    QVERIFY(source.open(QIODevice::ReadOnly));
    QBuffer file;
    FaultDevice full(&file, {.capacity = 0});
    QVERIFY(full.open(QIODevice::WriteOnly));
    STiffLZW lzw;
    QCOMPARE(decodedOnce(&lzw, &source, 1), "A"_ba);
    QCOMPARE(lzw.compress("x", 1, &full), 1);
    QVERIFY(!lzw.finalize());
    QCOMPARE(decodedOnce(&lzw, &source, 10), "BC"_ba);

    QVERIFY(lzw.finalize());
    source.seek(0);
    QCOMPARE(decodedOnce(&lzw, &source, 10), "ABC"_ba);
}

void tst_STiffLZW::endWithoutABeginning()
{
    STiffLZW lzw;
    QVERIFY(!lzw.endCompress());
    QCOMPARE(lzw.incrementalCompress("A", 1), -1);
    char data = 0;
    QCOMPARE(lzw.incrementalDecompress(&data, 1, 0), -1);
    QCOMPARE(lzw.incrementalDecompress(&data, 0, 0), 0);
    QVERIFY(lzw.endDecompress());
}

void tst_STiffLZW::endWithoutAByteThrows()
{
    STiffLZW lzw;
    QBuffer target;
    QVERIFY(target.open(QIODevice::WriteOnly));
    lzw.beginCompress(&target);
    QVERIFY_THROWS_EXCEPTION(std::out_of_range, lzw.endCompress());
    // The stream is over all the same.
    QVERIFY(lzw.finalize());
    QCOMPARE(target.data(), QByteArray());
}

void tst_STiffLZW::noDataBeginsNoStream()
{
    STiffLZW lzw;
    QBuffer target;
    QVERIFY(target.open(QIODevice::WriteOnly));
    QCOMPARE(lzw.compress("", 0, &target), 0);
    QVERIFY(lzw.finalize());
    QCOMPARE(target.data(), QByteArray());
    QVERIFY(!lzw.endCompress());
}

void tst_STiffLZW::finalizeWithoutAStream()
{
    STiffLZW lzw;
    QVERIFY(lzw.finalize());
}

void tst_STiffLZW::oneObjectWritesAndReads()
{
    SeededRandom random;
    const QByteArray data = Samples::text(&random, 10000);
    const QByteArray expected = encoded(data);
    STiffLZW lzw;
    QBuffer target;
    QBuffer source;
    source.setData(expected);
    QVERIFY(target.open(QIODevice::WriteOnly));
    QVERIFY(source.open(QIODevice::ReadOnly));
    QByteArray got;
    for (int pos = 0; pos < 10000; pos += 100) {
        QCOMPARE(lzw.compress(data.constData() + pos, 100, &target), 100);
        got += decodedOnce(&lzw, &source, 100);
    }
    got += decodedOnce(&lzw, &source, 1000);
    QVERIFY(lzw.finalize());
    QCOMPARE(target.data(), expected);
    QCOMPARE(got, data);
}

void tst_STiffLZW::severalStreamsOneAfterTheOther()
{
    SeededRandom random;
    STiffLZW lzw;
    QBuffer file;
    QVERIFY(file.open(QIODevice::ReadWrite));
    QList<QByteArray> strips;
    for (int i = 0; i < 20; ++i) {
        strips.append(Samples::runs(&random, random.between(1, 9000)));
        QCOMPARE(lzw.compress(strips.last().constData(), strips.last().size(), &file),
                 strips.last().size());
        QVERIFY(lzw.finalize());
    }
    file.seek(0);
    for (const QByteArray &strip : strips) {
        QCOMPARE(decodedOnce(&lzw, &file, 10000), strip);
        QVERIFY(lzw.finalize());
    }
    QVERIFY(file.atEnd());
}

// Whoever does not finalize gets what follows in the bits as they lie.
void tst_STiffLZW::goesOnBehindTheEndCode()
{
    const QByteArray stream = PlainLzw::packed(
        {{256, 9}, {'A', 9}, {257, 9}, {'B', 9}, {258, 9}, {257, 9}, {256, 9}, {'C', 9}, {257, 9}});
    STiffLZW lzw;
    QBuffer source;
    source.setData(stream);
    QVERIFY(source.open(QIODevice::ReadOnly));
    QCOMPARE(decodedOnce(&lzw, &source, 10), "A"_ba);
    QCOMPARE(decodedOnce(&lzw, &source, 10), "BAB"_ba);
    QCOMPARE(decodedOnce(&lzw, &source, 10), "C"_ba);
    QCOMPARE(decodedOnce(&lzw, &source, 10), QByteArray());
    QVERIFY(readsLikeThePlainWay(stream, {10}, 5));
}

void tst_STiffLZW::takesNoByteBehindTheEnd()
{
    SeededRandom random;
    for (const int size : {1, 100, 10000, 100000}) {
        const QByteArray data = Samples::text(&random, size);
        for (const qint64 room : {qint64(size), qint64(size) + 1000}) {
            QBuffer source;
            source.setData(encoded(data) + "what follows");
            QVERIFY(source.open(QIODevice::ReadOnly));
            STiffLZW lzw;
            QCOMPARE(decodedOnce(&lzw, &source, room), data);
            QCOMPARE(source.readAll(), "what follows"_ba);
        }
    }
}

void tst_STiffLZW::takesTheCompressedSize()
{
    SeededRandom random;
    const QByteArray data = Samples::text(&random, 50000);
    const QByteArray stream = encoded(data);
    QBuffer source;
    source.setData(stream + "padding" + "what follows");
    QVERIFY(source.open(QIODevice::ReadOnly));
    STiffLZW lzw;
    QCOMPARE(decodedOnce(&lzw, &source, data.size(), stream.size() + 7), data);
    QCOMPARE(source.readAll(), "what follows"_ba);

    // The bytes that a call does not get to are lost.
    source.seek(0);
    QVERIFY(lzw.finalize());
    QCOMPARE(decodedOnce(&lzw, &source, 1, stream.size()), data.left(1));
    QCOMPARE(source.pos(), stream.size());

    // What is cut ends there, though the device has more.
    source.seek(0);
    QVERIFY(lzw.finalize());
    const QByteArray part = decodedOnce(&lzw, &source, data.size(), 1000);
    QCOMPARE(part, PlainLzw::Decoder(stream.left(1000)).decoded(data.size()));
    QCOMPARE(source.pos(), 1000);
}

// A code may lie across two parts, as long as one of its bits has been taken with a code before.
// One that begins with the last byte of a part is lost with that byte.
void tst_STiffLZW::goesOnInTheNextCompressedPart()
{
    SeededRandom random;
    const QByteArray data = Samples::text(&random, 5000);
    const QByteArray stream = encoded(data);
    QBuffer source;
    source.setData(stream);
    QVERIFY(source.open(QIODevice::ReadOnly));
    STiffLZW lzw;
    // Eight codes of 9 bits are nine bytes, of which no part but the last ends with a code. The
    // first has the code behind the one that clears the table, too.
    QByteArray got;
    for (int codes = 0; codes < 160; codes += 8) {
        for (const int part : {3, 1, 2, 2, 1})
            got += decodedOnce(&lzw, &source, data.size(), part);
    }
    QCOMPARE(source.pos(), 180);
    QCOMPARE(got, PlainLzw::Decoder(stream.left(180)).decoded(data.size()));
    QVERIFY(got.size() > 160);

    for (int part = 1; part <= 20; ++part) {
        QVERIFY(readsLikeThePlainWay(stream, {5000}, 3000 / part, part));
        QVERIFY(readsLikeThePlainWay(stream, {1, 7, 2}, 3000 / part, part));
    }
}

void tst_STiffLZW::takesNothingWhileItHoldsEnough()
{
    STiffLZW lzw;
    QBuffer source;
    source.setData(PlainLzw::packed({{256, 9}, {'A', 9}, {258, 9}, {259, 9}, {257, 9}}) +
                   "what follows");
    QVERIFY(source.open(QIODevice::ReadOnly));
    QCOMPARE(decodedOnce(&lzw, &source, 5), "AAA"_ba);
    QCOMPARE(lzw.bytesAvailable(), 3);
    const qint64 pos = source.pos();
    QCOMPARE(decodedOnce(&lzw, &source, 2, 4), "AA"_ba);
    QCOMPARE(lzw.bytesAvailable(), 1);
    QCOMPARE(source.pos(), pos);
}

void tst_STiffLZW::liveDevice()
{
    class LiveDevice final : public QIODevice
    {
    public:
        LiveDevice() { QIODevice::open(ReadOnly); }
        bool isSequential() const override { return true; }
        qint64 bytesAvailable() const override
        {
            return QIODevice::bytesAvailable() + bytes.size();
        }
        QByteArray bytes;

    protected:
        qint64 readData(char *data, qint64 maxSize) override
        {
            const qint64 count = std::min<qint64>(maxSize, bytes.size());
            std::copy_n(bytes.constData(), count, data);
            bytes.remove(0, count);
            return count;
        }
        qint64 writeData(const char *, qint64) override { return -1; }
    };
    // Eight codes of 9 bits are nine bytes: what has come yet ends with a whole code.
    const QByteArray stream = PlainLzw::packed({{256, 9},
                                                {'A', 9},
                                                {258, 9},
                                                {'B', 9},
                                                {'C', 9},
                                                {259, 9},
                                                {'D', 9},
                                                {'E', 9},
                                                {'F', 9},
                                                {257, 9}});
    LiveDevice source;
    source.bytes = stream.first(9);
    STiffLZW lzw;
    QCOMPARE(decodedOnce(&lzw, &source, 3), "AAA"_ba);
    QCOMPARE(decodedOnce(&lzw, &source, 100), "BCAABDE"_ba);
    QCOMPARE(decodedOnce(&lzw, &source, 100), QByteArray());
    source.bytes = stream.sliced(9);
    QCOMPARE(decodedOnce(&lzw, &source, 100), "F"_ba);
}

void tst_STiffLZW::piecesOfOneByte()
{
    SeededRandom random;
    const QByteArray data = Samples::text(&random, 5000);
    QBuffer file;
    file.setData(encoded(data));
    FaultDevice source(&file, {.read = {.pieceBytes = 2}});
    QVERIFY(source.open(QIODevice::ReadOnly));
    STiffLZW lzw;
    QCOMPARE(decodedOnce(&lzw, &source, data.size()), data);
}

void tst_STiffLZW::fileAsSource()
{
    SeededRandom random;
    const QByteArray data = Samples::text(&random, 100000);
    QTemporaryFile file;
    QVERIFY(file.open());
    QVERIFY(file.write(encoded(data) + "what follows") > 0);
    for (const qint64 piece : {100000, 1000}) {
        file.seek(0);
        STiffLZW lzw;
        QByteArray got;
        while (got.size() < data.size()) {
            const QByteArray part =
                decodedOnce(&lzw, &file, std::min<qint64>(piece, data.size() - got.size()));
            QVERIFY(!part.isEmpty());
            got += part;
        }
        QCOMPARE(got, data);
        QCOMPARE(file.readAll(), "what follows"_ba);
    }
}

void tst_STiffLZW::bufferThatHasShrunk()
{
    QByteArray stream = encoded("ABCDEFGH");
    QBuffer source(&stream);
    QVERIFY(source.open(QIODevice::ReadOnly));
    STiffLZW lzw;
    QCOMPARE(decodedOnce(&lzw, &source, 3), "ABC"_ba);
    stream.truncate(2);
    QCOMPARE(decodedOnce(&lzw, &source, 10), "D"_ba);
    QCOMPARE(decodedOnce(&lzw, &source, 10), QByteArray());
}

void tst_STiffLZW::writesInPieces()
{
    SeededRandom random;
    const QByteArray data = random.bytes(20000);
    STiffLZW lzw;
    QBuffer target;
    QVERIFY(target.open(QIODevice::WriteOnly));
    int pieces = 0;
    for (const char byte : data) {
        const qint64 before = target.size();
        QCOMPARE(lzw.compress(&byte, 1, &target), 1);
        const qint64 piece = target.size() - before;
        QVERIFY(piece == 0 || piece == 4093 || piece == 4094);
        if (piece > 0)
            ++pieces;
    }
    QCOMPARE(pieces, (encoded(data).size() - 1) / 4094);
}

// The code that finds no room because of the failure is not lost, so that a device that takes bytes
// again gets all that follows.
void tst_STiffLZW::losesOnlyThePieceThatFails()
{
    class RefusesOnce final : public QBuffer
    {
    protected:
        qint64 writeData(const char *data, qint64 size) override
        {
            return std::exchange(m_hasRefused, true) ? QBuffer::writeData(data, size) : -1;
        }

    private:
        bool m_hasRefused = false;
    };
    SeededRandom random;
    const QByteArray data = random.bytes(20000);
    STiffLZW lzw;
    RefusesOnce target;
    QVERIFY(target.open(QIODevice::WriteOnly));
    int failures = 0;
    for (const char byte : data) {
        if (lzw.compress(&byte, 1, &target) == -1)
            ++failures;
    }
    QVERIFY(lzw.finalize());
    QCOMPARE(failures, 1);
    const qsizetype lost = encoded(data).size() - target.size();
    QVERIFY(lost == 4093 || lost == 4094);
    QCOMPARE(target.data(), encoded(data).sliced(lost));
}

void tst_STiffLZW::failsWhenTheTargetIsFull()
{
    SeededRandom random;
    const QByteArray data = random.bytes(50000);
    const QByteArray stream = encoded(data);
    for (const qint64 capacity : {qint64(0), qint64(1), qint64(4096), qint64(20000)}) {
        QBuffer file;
        FaultDevice target(&file, {.capacity = capacity});
        QVERIFY(target.open(QIODevice::WriteOnly));
        STiffLZW lzw;
        QCOMPARE(lzw.compress(data.constData(), data.size(), &target), -1);
        QVERIFY(!lzw.finalize());
        QVERIFY(stream.startsWith(file.data()));
    }
    // What is short until the end shows there.
    for (const qint64 capacity : {qint64(0), qint64(3)}) {
        QBuffer file;
        FaultDevice target(&file, {.capacity = capacity});
        QVERIFY(target.open(QIODevice::WriteOnly));
        STiffLZW lzw;
        QCOMPARE(lzw.compress("A", 1, &target), 1);
        QVERIFY(!lzw.finalize());
        QVERIFY(lzw.finalize());
    }
}

void tst_STiffLZW::failsWhenTheTargetIsGone()
{
    SeededRandom random;
    const QByteArray data = random.bytes(50000);
    STiffLZW lzw;
    {
        QBuffer target;
        QVERIFY(target.open(QIODevice::WriteOnly));
        QCOMPARE(lzw.compress("A", 1, &target), 1);
    }
    QCOMPARE(lzw.compress(data.constData(), data.size(), nullptr), -1);
    QVERIFY(!lzw.finalize());
}

void tst_STiffLZW::failsWhenTheSourceIsGone()
{
    STiffLZW lzw;
    char data[10] = {};
    {
        QBuffer source;
        source.setData(encoded("ABABABAB"));
        QVERIFY(source.open(QIODevice::ReadOnly));
        QCOMPARE(lzw.decompress(&source, data, 1, 0), 1);
    }
    // What is held is given all the same.
    QCOMPARE(lzw.decompress(nullptr, data, sizeof data, 0), 1);
    QCOMPARE(data[0], 'B');
    QCOMPARE(lzw.decompress(nullptr, data, sizeof data, 0), -1);
}

void tst_STiffLZW::failsWhenReadingFails()
{
    QBuffer file;
    file.setData(encoded("ABABABAB"));
    char data[100] = {};
    {
        FaultDevice source(&file, {.read = {.errorAt = 0}});
        QVERIFY(source.open(QIODevice::ReadOnly));
        STiffLZW lzw;
        QCOMPARE(lzw.decompress(&source, data, sizeof data, 5), -1);
    }
    // Also behind the first bytes, even if what came before is enough for the caller.
    for (const qint64 room : {100, 1}) {
        FaultDevice source(&file, {.read = {.pieceBytes = 2, .errorAt = 6}});
        QVERIFY(source.open(QIODevice::ReadOnly));
        STiffLZW lzw;
        QCOMPARE(lzw.decompress(&source, data, room, file.size()), -1);
    }
    {
        // Where the codes alone tell how far to read, a failure is an end.
        FaultDevice source(&file, {.read = {.errorAt = 0}});
        QVERIFY(source.open(QIODevice::ReadOnly));
        STiffLZW lzw;
        QCOMPARE(lzw.decompress(&source, data, sizeof data, 0), 0);
    }
}

void tst_STiffLZW::truncationAtEveryByte()
{
    SeededRandom random;
    const QByteArray data = Samples::text(&random, 2000);
    const QByteArray stream = encoded(data);
    // Codes of 9, 10 and 11 bits.
    QVERIFY(stream.size() > (255 * 9 + 512 * 10) / 8);
    for (qsizetype size = 0; size <= stream.size(); ++size) {
        QVERIFY(data.startsWith(decoded(stream.left(size), data.size())));
        QVERIFY(readsLikeThePlainWay(stream.left(size), {3000}, 3));
        QVERIFY(readsLikeThePlainWay(stream.left(size), {100, 1, 7}, 30));
    }
}

void tst_STiffLZW::everyFlippedBit()
{
    SeededRandom random;
    const QByteArray stream =
        encoded(Samples::text(&random, 200) + QByteArray(100, 'x') + random.bytes(150));
    for (qsizetype bit = 0; bit < stream.size() * 8; ++bit) {
        QByteArray damaged = stream;
        damaged[bit / 8] = static_cast<char>(damaged.at(bit / 8) ^ 1 << bit % 8);
        QVERIFY(readsLikeThePlainWay(damaged, {5000}, 3));
        QVERIFY(readsLikeThePlainWay(damaged, {50, 1, 33, 200}, 24));
    }
}

void tst_STiffLZW::randomBytes()
{
    SeededRandom random;
    for (int round = 0; round < 100; ++round) {
        const QByteArray bytes = random.bytes(random.between(0, 12000));
        QVERIFY(readsLikeThePlainWay(bytes, {50000}, 10));
        QVERIFY(readsLikeThePlainWay(bytes, {random.between(1, 3000), random.between(1, 40)}, 200));
    }
}

void tst_STiffLZW::codesOfEmptySlots()
{
    // Each is taken for the string that its slot would get if it were the next one.
    for (int code = 258; code < 512; ++code) {
        const QByteArray stream =
            PlainLzw::packed({{256, 9}, {'A', 9}, {code, 9}, {'B', 9}, {258, 9}, {257, 9}});
        const QByteArray expected = "AAA"_ba + 'B' + "AA";
        QCOMPARE(decoded(stream, 100), expected);
        QVERIFY(readsLikeThePlainWay(stream, {100}, 3));
        QVERIFY(readsLikeThePlainWay(stream, {1}, 10));
    }
}

void tst_STiffLZW::codesOfEmptySlotsFollowingEachOther()
{
    SeededRandom random;
    for (int round = 0; round < 200; ++round) {
        QList<PlainLzw::Code> codes{{256, 9}, {'A', 9}};
        for (int i = 0; i < 200; ++i)
            codes.append({static_cast<int>(random.between(250, 511)), 9});
        const QByteArray stream = PlainLzw::packed(codes);
        QVERIFY(readsLikeThePlainWay(stream, {100000}, 5));
        QVERIFY(readsLikeThePlainWay(stream, {10, 3}, 100));
    }
}

// The previous code names an empty slot, which is the next one to be filled.
void tst_STiffLZW::entryThatWouldBeItsOwnPrefix()
{
    const QByteArray stream = PlainLzw::packed(
        {{256, 9}, {'A', 9}, {259, 9}, {'B', 9}, {259, 9}, {259, 9}, {260, 9}, {261, 9}, {257, 9}});
    QVERIFY(readsLikeThePlainWay(stream, {100}, 3));
    QVERIFY(readsLikeThePlainWay(stream, {1}, 30));
    // Right behind a code that clears the table, the previous string is none at all.
    for (int code = 256; code < 300; ++code) {
        const QByteArray behindClear = PlainLzw::packed(
            {{256, 9}, {code, 9}, {258, 9}, {258, 9}, {259, 9}, {260, 9}, {300, 9}, {257, 9}});
        QVERIFY(readsLikeThePlainWay(behindClear, {100}, 3));
        QVERIFY(readsLikeThePlainWay(behindClear, {1}, 30));
    }
}

void tst_STiffLZW::clearCodesFollowingEachOther()
{
    const QByteArray stream =
        PlainLzw::packed({{256, 9}, {256, 9}, {256, 9}, {'A', 9}, {256, 9}, {'B', 9}, {257, 9}});
    QCOMPARE(decoded(stream, 100), PlainLzw::Decoder(stream).decoded(100));
    QVERIFY(readsLikeThePlainWay(stream, {1}, 10));
}

void tst_STiffLZW::streamWithoutAClearCode()
{
    // The string before the first one is that of code 0.
    const QByteArray stream = PlainLzw::packed({{'A', 9}, {258, 9}, {'B', 9}, {257, 9}});
    QCOMPARE(decoded(stream, 100), QByteArray("A\0AB", 4));
    QVERIFY(readsLikeThePlainWay(stream, {100}, 3));
    QVERIFY(readsLikeThePlainWay(fromHex("FFFFFFFFFFFFFFFF"), {1, 100}, 10));
}

void tst_STiffLZW::fullTable()
{
    const QByteArray stream = PlainLzw::packed(fillingCodes() + literals(9000, 13));
    STiffLZW lzw;
    QBuffer source;
    source.setData(stream);
    QVERIFY(source.open(QIODevice::ReadOnly));
    QTest::ignoreMessage(QtDebugMsg, kCorrupted);
    // All but the string of the code that fills the table.
    QCOMPARE(decodedOnce(&lzw, &source, 100000).size(), 4095 - 258);
    for (int call = 0; call < 20; ++call) {
        QTest::ignoreMessage(QtDebugMsg, kCorrupted);
        QCOMPARE(decodedOnce(&lzw, &source, 100000), QByteArray());
    }
    QVERIFY(readsLikeThePlainWay(stream, {100000}, 9100));
}

void tst_STiffLZW::clearCodeAfterAFullTable()
{
    const QByteArray stream = PlainLzw::packed(
        fillingCodes() +
        QList<PlainLzw::Code>{{8191, 13}, {4096, 13}, {256, 13}, {'A', 9}, {258, 9}, {257, 9}});
    QVERIFY(readsLikeThePlainWay(stream, {100000}, 6));
    QVERIFY(readsLikeThePlainWay(stream, {1000, 1}, 30));
}

void tst_STiffLZW::lyingCompressedSize()
{
    SeededRandom random;
    const QByteArray data = Samples::text(&random, 1000);
    const QByteArray stream = encoded(data);
    for (const qint64 claimed : {qint64(0x7FFFFFFF), qint64(0xFFFFFFFF), qint64(1) << 60}) {
        const TestShared::HeldMemoryPeak memory;
        QBuffer source;
        source.setData(stream);
        QVERIFY(source.open(QIODevice::ReadOnly));
        STiffLZW lzw;
        QCOMPARE(decodedOnce(&lzw, &source, data.size(), claimed), data);
        QVERIFY2(memory.growth() < 32 * 1024 * 1024, qPrintable(QString::number(memory.growth())));
    }
}

void tst_STiffLZW::deviceRoundTrip()
{
    SeededRandom random;
    const QByteArray data = Samples::text(&random, 300000);
    QBuffer file;
    STiffLZWDevice writer(&file, false);
    QVERIFY(!writer.calculateCrc());
    QVERIFY(writer.open(QIODevice::WriteOnly));
    QCOMPARE(writer.write(data.left(1000)), 1000);
    QCOMPARE(writer.write(data.mid(1000)), data.size() - 1000);
    writer.close();
    QVERIFY(!file.isOpen());
    QCOMPARE(file.data(), encoded(data));

    QObject parent;
    STiffLZWDevice reader(&file, true, &parent);
    QCOMPARE(reader.parent(), &parent);
    QVERIFY(reader.open(QIODevice::ReadOnly));
    QCOMPARE(reader.read(5), data.left(5));
    QCOMPARE(reader.readAll(), data.mid(5));
    QVERIFY(reader.atEnd());
    reader.close();
    QVERIFY(file.isOpen());
}

void tst_STiffLZW::deviceWithoutData()
{
    QBuffer file;
    STiffLZWDevice writer(&file, false);
    QVERIFY(writer.open(QIODevice::WriteOnly));
    QCOMPARE(writer.write(QByteArray()), 0);
    writer.close();
    QCOMPARE(file.data(), QByteArray());
}

void tst_STiffLZW::container()
{
    SeededRandom random;
    const QByteArray data = Samples::text(&random, 300000);
    QBuffer plain;
    plain.setData(data);
    QBuffer file;
    QVERIFY(SCompressorDevice::compress(&plain, &file, new STiffLZW));
    QCOMPARE(file.data().left(20), QCryptographicHash::hash("lzw", QCryptographicHash::Sha1));
    QCOMPARE(file.data().mid(24), encoded(data));
    QBuffer back;
    QVERIFY(SCompressorDevice::decompress(&file, &back, new STiffLZW));
    QCOMPARE(back.data(), data);
}

void tst_STiffLZW::containerOfNothing()
{
    QBuffer plain;
    QBuffer file;
    QVERIFY(SCompressorDevice::compress(&plain, &file, new STiffLZW));
    QCOMPARE(file.size(), 24);
    QBuffer back;
    QVERIFY(SCompressorDevice::decompress(&file, &back, new STiffLZW));
    QCOMPARE(back.data(), QByteArray());
}

QTEST_GUILESS_MAIN(tst_STiffLZW)
#include "tst_stifflzw.moc"
