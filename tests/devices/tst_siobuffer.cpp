// SPDX-License-Identifier: MIT
#include <brixlib/devices/siobuffer.h>

#include <shared/goldenbytes.h>
#include <shared/memorypeak.h>
#include <shared/rawbytes.h>
#include <shared/refusedallocation.h>
#include <shared/seededrandom.h>

#include <limits>

using namespace Talverine;
using namespace Qt::StringLiterals;
using RawBytes::i64;
using RawBytes::u32;

namespace {

//! The indexes, as serialize() writes them.
QByteArray head(qint64 start, qint64 end, bool full)
{
    return QByteArrayLiteral("siob") + u32(0x00010000) + i64(start) + i64(end) + char(full ? 1 : 0);
}

//! The storage, as serialize() writes it.
QByteArray array(qint64 count, qint64 bytes, const QByteArray &data)
{
    return QByteArrayLiteral("sarr") + u32(0x00010000) + i64(count) + i64(bytes) + data;
}

QByteArray array(const QByteArray &data)
{
    return array(data.size(), data.size(), data);
}

QByteArray serialized(const SIOBuffer &buffer)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    return buffer.serialize(stream) ? bytes : QByteArray();
}

bool deserialize(SIOBuffer *buffer, const QByteArray &bytes)
{
    QDataStream stream(bytes);
    return buffer->deserialize(stream);
}

//! Eight bytes of storage in which "cdef" can be read, then "gh" and "AB" from the edge on.
SIOBuffer wrappedAround()
{
    SIOBuffer buffer(8);
    buffer.write("abcdefgh");
    buffer.discart(2);
    buffer.write("AB");
    return buffer;
}

//! Moves bytes in and out, as someone would who was handed the buffer: nothing may go wrong.
void use(SIOBuffer *buffer)
{
    QVERIFY(buffer->bytesAvailable() <= buffer->size());
    QCOMPARE(buffer->bytesAvailable() + buffer->bytesFree(), buffer->size());
    static_cast<void>(buffer->contains('x'));
    buffer->discart(1);
    buffer->write("12345");
    for (int i = 0; i < 3; ++i) {
        const quint64 available = buffer->bytesAvailable();
        QCOMPARE(buffer->read(3).size(), qMin<quint64>(3, available));
        QCOMPARE(buffer->write("1234567"),
                 qMin<quint64>(7, buffer->size() - available + qMin<quint64>(3, available)));
    }
    static_cast<void>(buffer->read(quint64(-1)));
}

} // namespace

class tst_SIOBuffer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshBufferIsEmpty()
    {
        SIOBuffer buffer(8);
        QCOMPARE(buffer.size(), 8u);
        QCOMPARE(buffer.start(), 0u);
        QCOMPARE(buffer.end(), 0u);
        QVERIFY(buffer.data());
        QVERIFY(!buffer.isNull());
        QVERIFY(buffer.isEmpty());
        QVERIFY(!buffer.isFull());
        QCOMPARE(buffer.bytesAvailable(), 0u);
        QCOMPARE(buffer.bytesFree(), 8u);
    }

    void bufferOfSizeZeroIsNullAndTakesAndGivesNothing()
    {
        SIOBuffer buffer(0);
        QVERIFY(buffer.isNull());
        QVERIFY(buffer.isEmpty());
        QVERIFY(!buffer.isFull());
        QVERIFY(!buffer.data());
        char byte = 'x';
        QCOMPARE(buffer.write(&byte, 1), 0u);
        QCOMPARE(buffer.write("abc"), 0u);
        QCOMPARE(buffer.read(&byte, 1), 0u);
        QCOMPARE(byte, 'x');
        QCOMPARE(buffer.read(1), QByteArray());
        QCOMPARE(buffer.discart(1), 0u);
        QCOMPARE(buffer.bytesAvailable(), 0u);
        QCOMPARE(buffer.bytesFree(), 0u);
        QVERIFY(!buffer.contains('\0'));
    }

    void nullBufferIsNeverFull()
    {
        SIOBuffer buffer(0);
        buffer.setFull(true);
        QVERIFY(!buffer.isFull());
        QVERIFY(buffer.isEmpty());
        use(&buffer);
    }

    void sizeThatCannotBeHadGivesANullBuffer() { QVERIFY(SIOBuffer(kBytesNobodyHas).isNull()); }

    void readsWhatWasWritten()
    {
        SIOBuffer buffer(8);
        QCOMPARE(buffer.write("abcde", 5), 5u);
        QCOMPARE(buffer.bytesAvailable(), 5u);
        QCOMPARE(buffer.bytesFree(), 3u);
        QCOMPARE(buffer.end(), 5u);
        char bytes[3] = {};
        QCOMPARE(buffer.read(bytes, 3), 3u);
        QCOMPARE(QByteArray(bytes, 3), "abc"_ba);
        QCOMPARE(buffer.start(), 3u);
        QCOMPARE(buffer.read(quint64(-1)), "de"_ba);
        QVERIFY(buffer.isEmpty());
    }

    void exactFillSetsFullThoughStartEqualsEnd()
    {
        SIOBuffer buffer(8);
        QCOMPARE(buffer.write("abcdefgh"), 8u);
        QCOMPARE(buffer.start(), buffer.end());
        QVERIFY(buffer.isFull());
        QVERIFY(!buffer.isEmpty());
        QCOMPARE(buffer.bytesAvailable(), 8u);
        QCOMPARE(buffer.bytesFree(), 0u);
        QCOMPARE(buffer.write("i"), 0u);
        QCOMPARE(buffer.read(quint64(-1)), "abcdefgh"_ba);
        QVERIFY(buffer.isEmpty());
        QVERIFY(!buffer.isFull());
    }

    void writeTakesWhatIsFree()
    {
        SIOBuffer buffer(8);
        QCOMPARE(buffer.write("abcdef"), 6u);
        QCOMPARE(buffer.write("ghijk"), 2u);
        QCOMPARE(buffer.write("l"), 0u);
        QCOMPARE(buffer.read(quint64(-1)), "abcdefgh"_ba);
    }

    void goesAroundInTwoPieces()
    {
        SIOBuffer buffer = wrappedAround();
        QVERIFY(buffer.isFull());
        QCOMPARE(buffer.start(), 2u);
        QCOMPARE(buffer.end(), 2u);
        QCOMPARE(QByteArray(buffer.data(), 8), "ABcdefgh"_ba);
        QCOMPARE(buffer.read(quint64(-1)), "cdefghAB"_ba);
        QCOMPARE(buffer.start(), 2u);
    }

    void availableBytesAcrossTheEdge()
    {
        SIOBuffer buffer = wrappedAround();
        QCOMPARE(buffer.discart(3), 3u);
        QVERIFY(buffer.start() > buffer.end());
        QCOMPARE(buffer.bytesAvailable(), 5u);
        QCOMPARE(buffer.bytesFree(), 3u);
    }

    void takesAndGivesArrays()
    {
        SArray<char> source(4);
        std::memcpy(source.data(), "abcd", 4);
        SIOBuffer buffer(8);
        QCOMPARE(buffer.write(source, 3), 3u);
        // Never beyond the array.
        QCOMPARE(buffer.write(source, 100), 4u);
        SArray<char> target(5);
        QCOMPARE(buffer.read(target, 100), 5u);
        QCOMPARE(QByteArray(target.data(), 5), "abcab"_ba);
        QCOMPARE(buffer.read(target, 1), 1u);
        QCOMPARE(target[0], 'c');
        SArray<char> none;
        QCOMPARE(buffer.read(none, 1), 0u);
        QCOMPARE(buffer.write(none, 1), 0u);
        QCOMPARE(buffer.bytesAvailable(), 1u);
    }

    void readGivesNoMoreThanThereIs()
    {
        SIOBuffer buffer(8);
        buffer.write("abc");
        QCOMPARE(buffer.read(2), "ab"_ba);
        QCOMPARE(buffer.read(100), "c"_ba);
        QCOMPARE(buffer.read(1), QByteArray());
        char bytes[10];
        QCOMPARE(buffer.read(bytes, 10), 0u);
    }

    void dropsUpToWhatThereIs()
    {
        SIOBuffer buffer(8);
        buffer.write("abcdefgh");
        QCOMPARE(buffer.discart(0), 0u);
        QVERIFY(buffer.isFull());
        QCOMPARE(buffer.discart(3), 3u);
        QVERIFY(!buffer.isFull());
        QCOMPARE(buffer.read(1), "d"_ba);
        QCOMPARE(buffer.discart(quint64(-1)), 4u);
        QVERIFY(buffer.isEmpty());
    }

    void containsLooksAtAvailableBytesOnly()
    {
        SIOBuffer buffer = wrappedAround();
        QVERIFY(buffer.contains('c'));
        QVERIFY(buffer.contains('h'));
        QVERIFY(buffer.contains('B'));
        QVERIFY(!buffer.contains('a'));
        buffer.discart(3);
        QVERIFY(!buffer.contains('c'));
        QVERIFY(buffer.contains('A'));
        buffer.clear();
        QVERIFY(!buffer.contains('A'));
    }

    void containsTakesAnyByte()
    {
        SIOBuffer buffer(4);
        buffer.write(QByteArray::fromHex("00ff80"));
        QVERIFY(buffer.contains('\0'));
        QVERIFY(buffer.contains('\xff'));
        QVERIFY(buffer.contains('\x80'));
        QVERIFY(!buffer.contains('\x7f'));
    }

    void clearKeepsTheStorage()
    {
        SIOBuffer buffer = wrappedAround();
        const char *storage = buffer.data();
        buffer.clear();
        QCOMPARE(buffer.start(), 0u);
        QCOMPARE(buffer.end(), 0u);
        QVERIFY(!buffer.isFull());
        QVERIFY(buffer.isEmpty());
        QVERIFY(buffer.data() == storage);
        QCOMPARE(QByteArray(buffer.data(), 8), "ABcdefgh"_ba);
    }

    void newSizeEmptiesAndKeepsTheBytes_data()
    {
        QTest::addColumn<quint64>("size");
        QTest::addColumn<QByteArray>("storage");
        QTest::newRow("same") << quint64(8) << "ABcdefgh"_ba;
        QTest::newRow("smaller") << quint64(3) << "ABc"_ba;
        QTest::newRow("larger") << quint64(10) << QByteArray("ABcdefgh\0\0", 10);
        QTest::newRow("none") << quint64(0) << QByteArray();
    }

    void newSizeEmptiesAndKeepsTheBytes()
    {
        QFETCH(quint64, size);
        QFETCH(QByteArray, storage);
        SIOBuffer buffer = wrappedAround();
        QVERIFY(buffer.setSize(size));
        QCOMPARE(buffer.size(), size);
        QCOMPARE(buffer.start(), 0u);
        QCOMPARE(buffer.end(), 0u);
        QVERIFY(buffer.isEmpty());
        QCOMPARE(QByteArray(buffer.data(), static_cast<qsizetype>(size)), storage);
    }

    void newSizeThatCannotBeHadEmptiesAndKeepsTheStorage()
    {
        SIOBuffer buffer = wrappedAround();
        QVERIFY(!buffer.setSize(kBytesNobodyHas));
        QCOMPARE(buffer.size(), 8u);
        QVERIFY(buffer.isEmpty());
        QCOMPARE(buffer.start(), 0u);
        QCOMPARE(QByteArray(buffer.data(), 8), "ABcdefgh"_ba);
    }

    void copyTakesStorageAndIndexes()
    {
        SIOBuffer buffer = wrappedAround();
        SIOBuffer copy(buffer);
        SIOBuffer assigned(1);
        assigned = buffer;
        buffer.clear();
        buffer.write("########");
        for (SIOBuffer *each : {&copy, &assigned}) {
            QCOMPARE(each->start(), 2u);
            QCOMPARE(each->end(), 2u);
            QVERIFY(each->isFull());
            QCOMPARE(each->read(quint64(-1)), "cdefghAB"_ba);
        }
    }

    void rawIndexesAreTakenAsTheyAre()
    {
        SIOBuffer buffer(8);
        std::memcpy(buffer.data(), "abcdefgh", 8);
        buffer.setStart(6);
        buffer.setEnd(1);
        QCOMPARE(buffer.bytesAvailable(), 3u);
        QCOMPARE(buffer.read(quint64(-1)), "gha"_ba);
        buffer.setStart(4);
        buffer.setEnd(4);
        buffer.setFull(true);
        QCOMPARE(buffer.read(quint64(-1)), "efghabcd"_ba);
    }

    void rawIndexesBeyondTheStorageCountModuloItsSize()
    {
        SIOBuffer buffer(8);
        std::memcpy(buffer.data(), "abcdefgh", 8);
        buffer.setStart(8 * 1000 + 6);
        buffer.setEnd(quint64(-8) + 1);
        QCOMPARE(buffer.start(), 8006u);
        QCOMPARE(buffer.bytesAvailable(), 3u);
        QVERIFY(buffer.contains('a'));
        QVERIFY(!buffer.contains('b'));
        QCOMPARE(buffer.read(quint64(-1)), "gha"_ba);
        buffer.setEnd(quint64(-1));
        use(&buffer);
    }

    // The ring against a plain list of bytes.
    void fullRingThatEndsElsewhereGivesItsBytesOnce_data()
    {
        QTest::addColumn<quint64>("start");
        QTest::addColumn<quint64>("end");
        QTest::newRow("end behind the start") << quint64(1) << quint64(3);
        QTest::newRow("end before the start") << quint64(3) << quint64(1);
    }
    void fullRingThatEndsElsewhereGivesItsBytesOnce()
    {
        QFETCH(quint64, start);
        QFETCH(quint64, end);
        SIOBuffer buffer(4);
        QCOMPARE(buffer.write("abcd"), quint64(4));
        const QByteArray all = QByteArray("abcdabcd").mid(static_cast<qsizetype>(start), 4);
        buffer.setStart(start);
        buffer.setEnd(end);
        buffer.setFull(true);
        SIOBuffer dropping = buffer;

        QCOMPARE(buffer.read(1), all.first(1));
        QCOMPARE(buffer.bytesAvailable(), quint64(3));
        QCOMPARE(buffer.read(quint64(-1)), all.sliced(1));
        QVERIFY(buffer.isEmpty());

        QCOMPARE(dropping.discart(3), quint64(3));
        QCOMPARE(dropping.bytesAvailable(), quint64(1));
        QCOMPARE(dropping.read(quint64(-1)), all.sliced(3));
    }

    void behavesAsAQueue()
    {
        SeededRandom random;
        SIOBuffer buffer(61);
        QByteArray model;
        for (int i = 0; i < 20000; ++i) {
            if (random.chance(50)) {
                const QByteArray bytes = random.bytes(random.between(0, 80));
                const auto count = static_cast<qsizetype>(buffer.write(bytes));
                QCOMPARE(count, qMin(bytes.size(), 61 - model.size()));
                model += bytes.left(count);
            } else if (random.chance(80)) {
                const qsizetype count = random.between(0, 80);
                QCOMPARE(buffer.read(static_cast<quint64>(count)), model.left(count));
                model.remove(0, count);
            } else {
                const qsizetype count = random.between(0, 20);
                buffer.discart(static_cast<quint64>(count));
                model.remove(0, count);
            }
            QCOMPARE(buffer.bytesAvailable(), static_cast<quint64>(model.size()));
            QCOMPARE(buffer.isEmpty(), model.isEmpty());
            QCOMPARE(buffer.isFull(), model.size() == 61);
            QCOMPARE(buffer.contains('x'), model.contains('x'));
        }
    }

    void serializedFormByteByByte()
    {
        SIOBuffer buffer = wrappedAround();
        buffer.discart(3);
        QCOMPARE(serialized(buffer), GoldenBytes::ring());
        QCOMPARE(serialized(wrappedAround()), head(2, 2, true) + array("ABcdefgh"_ba));
    }

    void serializedNullBufferIsNotFull()
    {
        SIOBuffer buffer(0);
        buffer.setFull(true);
        QCOMPARE(serialized(buffer), head(0, 0, false) + array(QByteArray()));
    }

    void serializedFormDoesNotDependOnTheStreamVersion()
    {
        for (const int version : {QDataStream::Qt_5_6, QDataStream::Qt_6_0}) {
            QByteArray bytes;
            QDataStream stream(&bytes, QIODevice::WriteOnly);
            stream.setVersion(version);
            QVERIFY(wrappedAround().serialize(stream));
            QCOMPARE(bytes, head(2, 2, true) + array("ABcdefgh"_ba));
        }
    }

    void comesBackAsItWas_data()
    {
        QTest::addColumn<quint64>("size");
        QTest::newRow("null") << quint64(0);
        QTest::newRow("one byte") << quint64(1);
        QTest::newRow("one piece") << quint64(65536);
        QTest::newRow("one byte more than a piece") << quint64(65537);
        QTest::newRow("many pieces") << quint64(1000001);
    }

    void comesBackAsItWas()
    {
        QFETCH(quint64, size);
        SeededRandom random;
        const QByteArray bytes = random.bytes(static_cast<qint64>(size));
        SIOBuffer buffer(size);
        buffer.write(bytes);
        buffer.discart(size / 2);
        SIOBuffer copy(3);
        QVERIFY(deserialize(&copy, serialized(buffer)));
        QCOMPARE(copy.size(), size);
        QCOMPARE(copy.start(), buffer.start());
        QCOMPARE(copy.end(), buffer.end());
        QCOMPARE(copy.isFull(), buffer.isFull());
        QCOMPARE(copy.read(quint64(-1)), buffer.read(quint64(-1)));
    }

    void takesNoMoreFromTheStreamThanItsOwn()
    {
        const QByteArray bytes = serialized(wrappedAround()) + "rest"_ba;
        QDataStream stream(bytes);
        SIOBuffer buffer;
        QVERIFY(buffer.deserialize(stream));
        char rest[4];
        QCOMPARE(stream.readRawData(rest, 4), 4);
        QCOMPARE(QByteArray(rest, 4), "rest"_ba);
    }

    void formCutAtAnyByteChangesNothing()
    {
        const QByteArray whole = serialized(wrappedAround());
        for (qsizetype size = 0; size < whole.size(); ++size) {
            SIOBuffer buffer(4);
            buffer.write("xyz");
            buffer.discart(1);
            QVERIFY2(!deserialize(&buffer, whole.left(size)), qPrintable(QString::number(size)));
            QCOMPARE(buffer.size(), 4u);
            QCOMPARE(buffer.start(), 1u);
            QCOMPARE(buffer.read(quint64(-1)), "yz"_ba);
        }
    }

    void otherFirstWordIsRefused()
    {
        SIOBuffer buffer(4);
        buffer.write("xy");
        QByteArray bytes = serialized(wrappedAround());
        bytes[3] = 'B';
        QVERIFY(!deserialize(&buffer, bytes));
        QCOMPARE(buffer.size(), 4u);
        QCOMPARE(buffer.read(quint64(-1)), "xy"_ba);
    }

    void badStreamIsRefused()
    {
        const QByteArray bytes = serialized(wrappedAround());
        QDataStream stream(bytes);
        stream.setStatus(QDataStream::ReadCorruptData);
        SIOBuffer buffer;
        QVERIFY(!buffer.deserialize(stream));
        QVERIFY(buffer.isNull());
    }

    void streamThatCannotBeWrittenIsReported()
    {
        QBuffer device;
        QVERIFY(device.open(QIODevice::WriteOnly));
        QDataStream stream(&device);
        stream.setStatus(QDataStream::WriteFailed);
        QVERIFY(!wrappedAround().serialize(stream));
    }

#ifdef Q_OS_LINUX
    void fullDiskIsReported()
    {
        QFile file(u"/dev/full"_s);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        QDataStream stream(&file);
        QVERIFY(!wrappedAround().serialize(stream));
    }
#endif

    void versionsAreNotLookedAt()
    {
        QByteArray bytes = head(1, 3, false) + array("abcd"_ba);
        bytes[4] = '\x7f';
        bytes[29] = '\x7f';
        SIOBuffer buffer;
        QVERIFY(deserialize(&buffer, bytes));
        QCOMPARE(buffer.read(quint64(-1)), "bc"_ba);
    }

    void storageThatIsNoneKeepsTheOldOne_data()
    {
        constexpr qint64 largest = std::numeric_limits<qint64>::max();
        constexpr qint64 smallest = std::numeric_limits<qint64>::min();
        QTest::addColumn<QByteArray>("storage");
        QTest::newRow("other word")
            << QByteArrayLiteral("sArr") + u32(0x00010000) + i64(8) + i64(8);
        QTest::newRow("bytes twice the count") << array(8, 16, QByteArray(16, 'x'));
        QTest::newRow("fewer bytes than the count") << array(8, 7, QByteArray(8, 'x'));
        QTest::newRow("no bytes for a count") << array(8, 0, QByteArray(8, 'x'));
        QTest::newRow("negative bytes") << array(8, -8, QByteArray(8, 'x'));
        QTest::newRow("negative count and bytes") << array(-8, -8, QByteArray(8, 'x'));
        QTest::newRow("quotient that does not fit") << array(-1, smallest, QByteArray(8, 'x'));
        QTest::newRow("smallest count and bytes") << array(smallest, smallest, QByteArray(8, 'x'));
        QTest::newRow("largest count of few bytes") << array(largest, 8, QByteArray(8, 'x'));
        QTest::newRow("largest bytes of few") << array(8, largest, QByteArray(8, 'x'));
    }

    void storageThatIsNoneKeepsTheOldOne()
    {
        QFETCH(QByteArray, storage);
        SIOBuffer buffer(4);
        buffer.write("abcd");
        QVERIFY(deserialize(&buffer, head(1, 3, false) + storage));
        QCOMPARE(buffer.size(), 4u);
        QCOMPARE(QByteArray(buffer.data(), 4), "abcd"_ba);
        QCOMPARE(buffer.start(), 1u);
        QCOMPARE(buffer.end(), 3u);
        QCOMPARE(buffer.read(quint64(-1)), "bc"_ba);
    }

    void countOfTenWithNineteenBytesReadsTen()
    {
        SIOBuffer buffer;
        QVERIFY(deserialize(&buffer, head(0, 0, true) + array(10, 19, "0123456789abcdefghi"_ba)));
        QCOMPARE(buffer.size(), 10u);
        QCOMPARE(buffer.read(quint64(-1)), "0123456789"_ba);
    }

    void countOfNoneWithAnyBytesIsNull()
    {
        SIOBuffer buffer(4);
        QVERIFY(deserialize(&buffer, head(1, 3, true) + array(0, 19, QByteArray())));
        QVERIFY(buffer.isNull());
        QCOMPARE(buffer.start(), 0u);
        QCOMPARE(buffer.end(), 0u);
        use(&buffer);
        QCOMPARE(serialized(buffer), head(0, 0, false) + array(QByteArray()));
    }

    void lyingCountTakesNoMoreMemoryThanComes_data()
    {
        QTest::addColumn<qint64>("count");
        QTest::newRow("4 GiB") << (qint64(1) << 32);
        QTest::newRow("more than any machine has") << qint64(kBytesNobodyHas);
        QTest::newRow("largest") << std::numeric_limits<qint64>::max();
    }

    void lyingCountTakesNoMoreMemoryThanComes()
    {
        QFETCH(qint64, count);
        const QByteArray bytes = head(1, 3, false) + array(count, count, QByteArray(100000, 'x'));
        SIOBuffer buffer(4);
        buffer.write("ab");
        const TestShared::MemoryPeak peak;
        QVERIFY(peak.isValid());
        QVERIFY(!deserialize(&buffer, bytes));
        QVERIFY2(peak.growth() < 4 << 20, qPrintable(QString::number(peak.growth())));
        QCOMPARE(buffer.size(), 4u);
        QCOMPARE(buffer.read(quint64(-1)), "ab"_ba);
    }

    void indexesThatDoNotFitAreReduced_data()
    {
        constexpr qint64 largest = std::numeric_limits<qint64>::max();
        constexpr qint64 smallest = std::numeric_limits<qint64>::min();
        QTest::addColumn<qint64>("start");
        QTest::addColumn<qint64>("end");
        QTest::addColumn<bool>("full");
        QTest::addColumn<quint64>("startAfter");
        QTest::addColumn<quint64>("endAfter");
        QTest::addColumn<quint64>("available");
        QTest::newRow("end at the edge")
            << qint64(3) << qint64(8) << false << quint64(3) << quint64(0) << quint64(5);
        QTest::newRow("beyond the edge")
            << qint64(9) << qint64(23) << false << quint64(1) << quint64(7) << quint64(6);
        QTest::newRow("negative") << qint64(-1) << qint64(-3) << false << quint64(7) << quint64(5)
                                  << quint64(6);
        QTest::newRow("largest") << largest << smallest << false << quint64(7) << quint64(0)
                                 << quint64(1);
        QTest::newRow("full with both beyond")
            << largest << largest << true << quint64(7) << quint64(7) << quint64(8);
        QTest::newRow("full with two indexes")
            << qint64(2) << qint64(5) << true << quint64(2) << quint64(5) << quint64(8);
    }

    void indexesThatDoNotFitAreReduced()
    {
        QFETCH(qint64, start);
        QFETCH(qint64, end);
        QFETCH(bool, full);
        for (const bool keepsStorage : {true, false}) {
            SIOBuffer buffer(keepsStorage ? 8 : 0);
            const QByteArray storage = keepsStorage ? "none"_ba : array("abcdefgh"_ba);
            QVERIFY(deserialize(&buffer, head(start, end, full) + storage));
            QCOMPARE(buffer.size(), 8u);
            QTEST(buffer.start(), "startAfter");
            QTEST(buffer.end(), "endAfter");
            QTEST(buffer.bytesAvailable(), "available");
            QCOMPARE(buffer.isFull(), full);
            use(&buffer);
        }
    }

    void indexesForANullStorageAreCleared()
    {
        SIOBuffer buffer(0);
        QVERIFY(deserialize(&buffer, head(5, 7, true) + "none"_ba));
        QCOMPARE(buffer.start(), 0u);
        QCOMPARE(buffer.end(), 0u);
        QVERIFY(!buffer.isFull());
        // The indexes of before do not come back with a storage.
        QVERIFY(buffer.setSize(8));
        QVERIFY(buffer.isEmpty());
    }

    void anyBytesGiveABufferThatCanBeUsed()
    {
        SeededRandom random;
        const QByteArray whole = serialized(wrappedAround());
        for (int i = 0; i < 20000; ++i) {
            QByteArray bytes = whole;
            for (qint64 flips = random.between(1, 4); flips > 0; --flips)
                bytes[random.between(0, bytes.size() - 1)] =
                    static_cast<char>(random.between(0, 255));
            SIOBuffer buffer(static_cast<quint64>(random.between(0, 9)));
            static_cast<void>(deserialize(&buffer, bytes));
            use(&buffer);
            if (QTest::currentTestFailed())
                return;
        }
    }
};

QTEST_APPLESS_MAIN(tst_SIOBuffer)
#include "tst_siobuffer.moc"
