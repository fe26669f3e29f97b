// SPDX-License-Identifier: MIT
#include "plainpackbits.h"
#include "samples.h"

#include <brixlib/compression/packbitscodec_p.h>

#include <shared/seededrandom.h>

using namespace Talverine::Compression;

namespace {

constexpr char kGuard = 0x5A;

// Encodes with the given room a step, or with all of it if that is 0, and checks each step's
// bounds.
QByteArray encodeBySteps(const QByteArray &data, qint64 room)
{
    QByteArray packets;
    qint64 done = 0;
    while (done < data.size()) {
        const qint64 given = room > 0 ? room : packBitsBound(data.size() - done);
        QByteArray target(given + 1, kGuard);
        const PackBitsStep step =
            packBitsEncode(data.constData() + done, data.size() - done, target.data(), given);
        if (target.back() != kGuard || step.produced > given || step.consumed < 1)
            return "out of bounds";
        packets += target.left(step.produced);
        done += step.consumed;
    }
    return packets;
}

// A copy of exactly its size on the heap, so that a sanitizer sees any byte read beyond.
std::unique_ptr<char[]> exactCopy(const QByteArray &bytes)
{
    std::unique_ptr<char[]> copy(new char[static_cast<std::size_t>(bytes.size())]);
    std::copy(bytes.begin(), bytes.end(), copy.get());
    return copy;
}

} // namespace

class tst_PackBitsCodec : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void encodesAllShortTexts();
    void encodesLikeThePlainWay_data();
    void encodesLikeThePlainWay();
    void encodesRunsOfEachLengthAtEachPlace();
    void givesTheSameInSteps();
    void needsNoMoreThanTheBound();
    void takesNoPacketWithoutRoom();
    void decodesLikeThePlainWay();
    void decodesEachPacket();
    void skipsTheIdleByte();
    void stopsBeforeAPacketThatDoesNotFit();
    void stopsBeforeACutPacket();
    void tellsTheDecodedSize();
    void readsAndWritesWithinBounds();
};

// All of up to 11 bytes of two kinds: every way that runs can begin, end and follow each other.
void tst_PackBitsCodec::encodesAllShortTexts()
{
    for (int size = 1; size <= 11; ++size) {
        for (int bits = 0; bits < 1 << size; ++bits) {
            QByteArray data;
            for (int i = 0; i < size; ++i)
                data += (bits >> i & 1) != 0 ? 'A' : 'B';
            QCOMPARE(encodeBySteps(data, 0), PlainPackBits::encoded(data));
        }
    }
}

void tst_PackBitsCodec::encodesLikeThePlainWay_data()
{
    QTest::addColumn<QByteArray>("data");
    SeededRandom random;
    QTest::newRow("one value") << QByteArray(5000, '\0');
    QTest::newRow("no two alike") << Samples::differentPairs(5000);
    QTest::newRow("random") << random.bytes(5000);
    QTest::newRow("text") << Samples::text(&random, 5000);
    QTest::newRow("runs") << Samples::runs(&random, 5000);
    QTest::newRow("pairs") << QByteArray("AABB").repeated(1250);
    QTest::newRow("triples") << QByteArray("AAABBB").repeated(800);
    // Neighbours that differ in the lowest bit alone are what a search by words could mistake.
    QTest::newRow("lowest bits") << QByteArray::fromHex("000100010000010101000101").repeated(400);
    QTest::newRow("highest bits") << QByteArray::fromHex("008000808080000000800080").repeated(400);
}

void tst_PackBitsCodec::encodesLikeThePlainWay()
{
    QFETCH(QByteArray, data);
    for (qsizetype size = 1; size <= data.size(); size += size < 600 ? 1 : 61) {
        const QByteArray part = data.left(size);
        QCOMPARE(encodeBySteps(part, 0), PlainPackBits::encoded(part));
        const QByteArray end = data.right(size);
        QCOMPARE(encodeBySteps(end, 0), PlainPackBits::encoded(end));
    }
}

void tst_PackBitsCodec::encodesRunsOfEachLengthAtEachPlace()
{
    for (int before = 0; before < 20; ++before) {
        for (int length = 1; length < 270; ++length) {
            for (int after = 0; after < 4; ++after) {
                const QByteArray data = Samples::differentPairs(before) + QByteArray(length, 'x') +
                                        Samples::differentPairs(after);
                QCOMPARE(encodeBySteps(data, 0), PlainPackBits::encoded(data));
            }
        }
    }
}

void tst_PackBitsCodec::givesTheSameInSteps()
{
    SeededRandom random;
    const QByteArray data = Samples::runs(&random, 3000);
    const QByteArray expected = PlainPackBits::encoded(data);
    for (int room = 128; room < 400; ++room)
        QCOMPARE(encodeBySteps(data, room), expected);
}

void tst_PackBitsCodec::needsNoMoreThanTheBound()
{
    SeededRandom random;
    for (int size = 1; size < 1000; ++size) {
        const QList<QByteArray> kinds{Samples::differentPairs(size), Samples::runs(&random, size),
                                      QByteArray("AAAB").repeated(size).left(size)};
        for (const QByteArray &data : kinds)
            QVERIFY(PlainPackBits::encoded(data).size() <= packBitsBound(size));
    }
    QCOMPARE(PlainPackBits::encoded(Samples::differentPairs(126)).size(), packBitsBound(126));
}

void tst_PackBitsCodec::takesNoPacketWithoutRoom()
{
    char target[4] = {};
    QCOMPARE(packBitsEncode("AAAAAA", 6, target, 1).consumed, 0);
    QCOMPARE(packBitsEncode("AAAAAA", 6, target, 1).produced, 0);
    QCOMPARE(packBitsEncode("ABC", 3, target, 3).consumed, 0);
    QCOMPARE(packBitsEncode("ABC", 3, target, 4).consumed, 3);
    QCOMPARE(packBitsEncode("ABC", 3, target, 4).produced, 4);
}

void tst_PackBitsCodec::decodesLikeThePlainWay()
{
    SeededRandom random;
    for (int round = 0; round < 3000; ++round) {
        const QByteArray packets = random.bytes(random.between(1, 300));
        const QByteArray expected = PlainPackBits::decoded(packets);
        const qint64 size = packBitsDecodedSize(packets.constData(), packets.size());
        QCOMPARE(std::max(size, qint64(0)), expected.size());
        QByteArray data(expected.size(), '\0');
        packBitsDecode(packets.constData(), packets.size(), data.data(), data.size());
        QCOMPARE(data, expected);
    }
}

void tst_PackBitsCodec::decodesEachPacket()
{
    for (int n = -127; n <= 127; ++n) {
        const qsizetype length = n < 0 ? 1 - n : n + 1;
        const QByteArray plain = n < 0 ? QByteArray(length, 'r') : Samples::differentPairs(length);
        const QByteArray packet = static_cast<char>(n) + (n < 0 ? QByteArray("r") : plain);
        // Alone, and where the longest packet could be moved too.
        for (const int others : {0, 1, 200}) {
            const QByteArray packets = packet + QByteArray("\0z", 2).repeated(others);
            QByteArray data(length + others, '\0');
            const PackBitsDecoded decoded =
                packBitsDecode(packets.constData(), packets.size(), data.data(), data.size());
            QCOMPARE(data, plain + QByteArray(others, 'z'));
            QCOMPARE(decoded.consumed, packets.size());
            QCOMPARE(decoded.produced, data.size());
            QVERIFY(decoded.end == PackBitsEnd::SourceUsedUp);
        }
    }
}

void tst_PackBitsCodec::skipsTheIdleByte()
{
    const QByteArray packets = QByteArray::fromHex("8080004180800042");
    QByteArray data(2, '\0');
    QCOMPARE(packBitsDecodedSize(packets.constData(), packets.size()), 2);
    QCOMPARE(packBitsDecode(packets.constData(), packets.size(), data.data(), 2).consumed, 8);
    QCOMPARE(data, "AB");
}

void tst_PackBitsCodec::stopsBeforeAPacketThatDoesNotFit()
{
    const QByteArray packets = QByteArray::fromHex("0041FE4202434445");
    for (int room = 0; room <= 7; ++room) {
        QByteArray data(room, '\0');
        const PackBitsDecoded decoded =
            packBitsDecode(packets.constData(), packets.size(), data.data(), room);
        QCOMPARE(decoded.produced, room < 1 ? 0 : room < 4 ? 1 : room < 7 ? 4 : 7);
        QCOMPARE(decoded.consumed, room < 1 ? 0 : room < 4 ? 2 : room < 7 ? 4 : 8);
        QVERIFY(decoded.end == (room < 7 ? PackBitsEnd::TargetFull : PackBitsEnd::SourceUsedUp));
        QCOMPARE(data.left(decoded.produced), QByteArray("ABBBCDE").left(decoded.produced));
    }
}

void tst_PackBitsCodec::stopsBeforeACutPacket()
{
    const QByteArray literal = QByteArray::fromHex("0041024344");
    const QByteArray run = QByteArray::fromHex("0041FE");
    char data[300];
    const PackBitsDecoded cutLiteral =
        packBitsDecode(literal.constData(), literal.size(), data, sizeof data);
    QVERIFY(cutLiteral.end == PackBitsEnd::LiteralCut);
    QCOMPARE(cutLiteral.consumed, 2);
    QCOMPARE(cutLiteral.produced, 1);
    const PackBitsDecoded cutRun = packBitsDecode(run.constData(), run.size(), data, sizeof data);
    QVERIFY(cutRun.end == PackBitsEnd::RunCut);
    QCOMPARE(cutRun.consumed, 2);
    QCOMPARE(cutRun.produced, 1);
}

void tst_PackBitsCodec::tellsTheDecodedSize()
{
    QCOMPARE(packBitsDecodedSize("", 0), 0);
    QCOMPARE(packBitsDecodedSize("\x80", 1), 0);
    QCOMPARE(packBitsDecodedSize("\x81x", 2), 128);
    QCOMPARE(packBitsDecodedSize("\x81", 1), -1);
    QCOMPARE(packBitsDecodedSize("\x01x", 2), -1);
    QCOMPARE(packBitsDecodedSize("\x01xy", 3), 2);
}

void tst_PackBitsCodec::readsAndWritesWithinBounds()
{
    SeededRandom random;
    for (int round = 0; round < 2000; ++round) {
        const QByteArray bytes = round % 2 == 0 ? random.bytes(random.between(1, 400))
                                                : Samples::runs(&random, random.between(1, 400));
        const std::unique_ptr<char[]> source = exactCopy(bytes);
        const QByteArray room(random.between(0, 600), kGuard);
        const std::unique_ptr<char[]> target = exactCopy(room);
        const PackBitsStep encoded =
            packBitsEncode(source.get(), bytes.size(), target.get(), room.size());
        QVERIFY(encoded.consumed <= bytes.size() && encoded.produced <= room.size());
        const PackBitsDecoded decoded =
            packBitsDecode(source.get(), bytes.size(), target.get(), room.size());
        QVERIFY(decoded.consumed <= bytes.size() && decoded.produced <= room.size());
    }
}

QTEST_APPLESS_MAIN(tst_PackBitsCodec)
#include "tst_packbitscodec.moc"
