// SPDX-License-Identifier: MIT
#include <brixlib/devices/sbandwidthdevice.h>
#include <brixlib/devices/sendiannessdevice.h>

#include <shared/recordingdevice.h>
#include <shared/refusedallocation.h>
#include <shared/seededrandom.h>

#include <bit>
#include <limits>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

QByteArray fromHex(const char *hex)
{
    return QByteArray::fromHex(hex);
}

//! Each element of \a bytes reversed, the plain way.
QByteArray reversed(QByteArray bytes, qsizetype elementSize)
{
    for (qsizetype i = 0; i + elementSize <= bytes.size(); i += elementSize)
        std::reverse(bytes.begin() + i, bytes.begin() + i + elementSize);
    return bytes;
}

//! A number read by its name; every one fits a double of this test.
double readNumber(SEndiannessDevice *device, const QByteArray &type, bool *ok)
{
    if (type == "Int8")
        return device->readInt8(ok);
    if (type == "UInt8")
        return device->readUInt8(ok);
    if (type == "Int16")
        return device->readInt16(ok);
    if (type == "UInt16")
        return device->readUInt16(ok);
    if (type == "Int32")
        return device->readInt32(ok);
    if (type == "UInt32")
        return device->readUInt32(ok);
    if (type == "Int64")
        return static_cast<double>(device->readInt64(ok));
    if (type == "UInt64")
        return static_cast<double>(device->readUInt64(ok));
    if (type == "Float")
        return static_cast<double>(device->readFloat(ok));
    return device->readDouble(ok);
}

void addTypes()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<int>("width");
    QTest::newRow("Int8") << "Int8"_ba << 1;
    QTest::newRow("UInt8") << "UInt8"_ba << 1;
    QTest::newRow("Int16") << "Int16"_ba << 2;
    QTest::newRow("UInt16") << "UInt16"_ba << 2;
    QTest::newRow("Int32") << "Int32"_ba << 4;
    QTest::newRow("UInt32") << "UInt32"_ba << 4;
    QTest::newRow("Int64") << "Int64"_ba << 8;
    QTest::newRow("UInt64") << "UInt64"_ba << 8;
    QTest::newRow("Float") << "Float"_ba << 4;
    QTest::newRow("Double") << "Double"_ba << 8;
}

void addElementSizes()
{
    QTest::addColumn<int>("elementSize");
    for (const int size : {1, 2, 3, 4, 5, 8, 12, 16, 70000})
        QTest::addRow("%d bytes", size) << size;
}

} // namespace

class tst_SEndiannessDevice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Numbers

    void int32InEitherOrder()
    {
        QByteArray bytes = fromHex("0000010200000102");
        QBuffer buffer(&bytes);
        QVERIFY(buffer.open(QIODevice::ReadOnly));
        SEndiannessDevice device(&buffer, ByteOrder::BigEndian);
        bool ok = false;
        QCOMPARE(device.readInt32(&ok), 258);
        QVERIFY(ok);
        device.setByteOrder(ByteOrder::LittleEndian);
        QCOMPARE(device.byteOrder(), ByteOrder::LittleEndian);
        QCOMPARE(device.readInt32(&ok), 33619968);
        QVERIFY(ok);
    }

    void numbersOfEachType_data()
    {
        QTest::addColumn<QByteArray>("type");
        QTest::addColumn<QByteArray>("bigEndian");
        QTest::addColumn<double>("number");
        QTest::newRow("Int8") << "Int8"_ba << fromHex("fe") << -2.0;
        QTest::newRow("UInt8") << "UInt8"_ba << fromHex("fe") << 254.0;
        QTest::newRow("Int16") << "Int16"_ba << fromHex("fffe") << -2.0;
        QTest::newRow("UInt16") << "UInt16"_ba << fromHex("8001") << 32769.0;
        QTest::newRow("Int32") << "Int32"_ba << fromHex("80000000") << -2147483648.0;
        QTest::newRow("UInt32") << "UInt32"_ba << fromHex("80000001") << 2147483649.0;
        QTest::newRow("Int64") << "Int64"_ba << fromHex("fffffffffffffefe") << -258.0;
        QTest::newRow("UInt64") << "UInt64"_ba << fromHex("8000000000000000") << 0x1p63;
        QTest::newRow("Float") << "Float"_ba << fromHex("3fa00000") << 1.25;
        QTest::newRow("Double") << "Double"_ba << fromHex("c004000000000000") << -2.5;
    }

    void numbersOfEachType()
    {
        QFETCH(QByteArray, type);
        QFETCH(QByteArray, bigEndian);
        QFETCH(double, number);
        QByteArray bytes = bigEndian + reversed(bigEndian, bigEndian.size());
        QBuffer buffer(&bytes);
        QVERIFY(buffer.open(QIODevice::ReadOnly));
        SEndiannessDevice device(&buffer, ByteOrder::BigEndian);
        bool ok = false;
        QCOMPARE(readNumber(&device, type, &ok), number);
        QVERIFY(ok);
        device.setByteOrder(ByteOrder::LittleEndian);
        ok = false;
        QCOMPARE(readNumber(&device, type, &ok), number);
        QVERIFY(ok);
    }

    // What is turned is no number yet: a signalling NaN would become a quiet one in a register.
    void floatsKeepEachBit()
    {
        QByteArray bytes = fromHex("7f800001010000000000f07f");
        QBuffer buffer(&bytes);
        QVERIFY(buffer.open(QIODevice::ReadOnly));
        SEndiannessDevice device(&buffer, ByteOrder::BigEndian);
        QCOMPARE(std::bit_cast<quint32>(device.readFloat()), 0x7f800001u);
        device.setByteOrder(ByteOrder::LittleEndian);
        QCOMPARE(std::bit_cast<quint64>(device.readDouble()), 0x7ff0000000000001u);
    }

    void numberAtTheEndIsZeroAndNotOk_data() { addTypes(); }

    void numberAtTheEndIsZeroAndNotOk()
    {
        QFETCH(QByteArray, type);
        RecordingDevice source;
        QVERIFY(source.open(QIODevice::ReadOnly));
        SEndiannessDevice device(&source, ByteOrder::BigEndian);
        bool ok = true;
        QCOMPARE(readNumber(&device, type, &ok), 0.0);
        QVERIFY(!ok);
        QCOMPARE(readNumber(&device, type, nullptr), 0.0);
    }

    void uint16AtTheEndTakesANullOk()
    {
        QBuffer buffer;
        QVERIFY(buffer.open(QIODevice::ReadOnly));
        SEndiannessDevice device(&buffer, ByteOrder::LittleEndian);
        bool ok = true;
        QCOMPARE(device.readUInt16(&ok), quint16(0));
        QVERIFY(!ok);
        QCOMPARE(device.readUInt16(nullptr), quint16(0));
        QCOMPARE(device.readUInt16(), quint16(0));
    }

    void numberThatIsCutAtAnyByteIsZeroAndNotOk_data() { addTypes(); }

    void numberThatIsCutAtAnyByteIsZeroAndNotOk()
    {
        QFETCH(QByteArray, type);
        QFETCH(int, width);
        for (int size = 0; size < width; ++size) {
            RecordingDevice source(QByteArray(size, '\x7f'));
            QVERIFY(source.open(QIODevice::ReadOnly));
            SEndiannessDevice device(&source, ByteOrder::BigEndian);
            bool ok = true;
            QCOMPARE(readNumber(&device, type, &ok), 0.0);
            QVERIFY(!ok);
        }
    }

    void numberComesTogetherFromShortReads_data() { addTypes(); }

    void numberComesTogetherFromShortReads()
    {
        QFETCH(QByteArray, type);
        QFETCH(int, width);
        RecordingDevice source(QByteArray(2 * width, '\x11'));
        source.pieceBytes = 1;
        QVERIFY(source.open(QIODevice::ReadOnly));
        SEndiannessDevice device(&source, ByteOrder::BigEndian);
        bool ok = false;
        readNumber(&device, type, &ok);
        QVERIFY(ok);
        QCOMPARE(source.reads.size(), width);
        QCOMPARE(device.pos(), width);
    }

    void numberThatCannotBeReadIsZeroAndNotOk_data() { addTypes(); }

    void numberThatCannotBeReadIsZeroAndNotOk()
    {
        QFETCH(QByteArray, type);
        RecordingDevice source(QByteArray(16, '\x11'));
        source.failsToRead = true;
        QVERIFY(source.open(QIODevice::ReadOnly));
        SEndiannessDevice device(&source, ByteOrder::BigEndian);
        bool ok = true;
        QCOMPARE(readNumber(&device, type, &ok), 0.0);
        QVERIFY(!ok);
    }

    void onlyTheOneOrderSwaps()
    {
        QByteArray bytes = fromHex("0102");
        QBuffer buffer(&bytes);
        QVERIFY(buffer.open(QIODevice::ReadOnly));
        SEndiannessDevice device(&buffer, static_cast<ByteOrder>(2));
        QCOMPARE(device.readUInt16(), quint16(0x0201));
    }

    // Arrays

    void readsElementsInEitherOrder_data() { addElementSizes(); }

    void readsElementsInEitherOrder()
    {
        QFETCH(int, elementSize);
        SeededRandom random;
        const QByteArray bytes = random.bytes(elementSize * 7);
        RecordingDevice source(bytes + bytes);
        QVERIFY(source.open(QIODevice::ReadOnly));
        SEndiannessDevice device(&source, ByteOrder::BigEndian);
        QByteArray read(bytes.size(), '\0');
        QVERIFY(device.readEndianBytes(read.data(), static_cast<quint64>(elementSize), 7));
        QCOMPARE(read, reversed(bytes, elementSize));
        device.setByteOrder(ByteOrder::LittleEndian);
        QVERIFY(device.readEndianByteArray(read, static_cast<quint64>(elementSize)));
        QCOMPARE(read, bytes);
        QVERIFY(device.atEnd());
    }

    void writesElementsInEitherOrder_data() { addElementSizes(); }

    void writesElementsInEitherOrder()
    {
        QFETCH(int, elementSize);
        SeededRandom random;
        const QByteArray bytes = random.bytes(elementSize * 7);
        RecordingDevice target;
        QVERIFY(target.open(QIODevice::WriteOnly));
        SEndiannessDevice device(&target, ByteOrder::BigEndian);
        QVERIFY(device.writeEndianBytes(bytes.constData(), static_cast<quint64>(elementSize), 7));
        QCOMPARE(target.bytes, reversed(bytes, elementSize));
        device.setByteOrder(ByteOrder::LittleEndian);
        QVERIFY(device.writeEndianByteArray(bytes, static_cast<quint64>(elementSize)));
        QCOMPARE(target.bytes, reversed(bytes, elementSize) + bytes);
    }

    // More than is turned at once, and not a whole number of that.
    void largeArraysComeBackAsTheyWere_data() { addElementSizes(); }

    void largeArraysComeBackAsTheyWere()
    {
        QFETCH(int, elementSize);
        SeededRandom random;
        const QByteArray bytes = random.bytes(qint64(elementSize) * (2500001 / elementSize + 1));
        RecordingDevice inner;
        QVERIFY(inner.open(QIODevice::ReadWrite));
        SEndiannessDevice device(&inner, ByteOrder::BigEndian);
        QVERIFY(device.writeEndianByteArray(bytes, static_cast<quint64>(elementSize)));
        QVERIFY(inner.bytes == reversed(bytes, elementSize));
        QVERIFY(device.seek(0));
        QByteArray read(bytes.size(), '\0');
        QVERIFY(device.readEndianByteArray(read, static_cast<quint64>(elementSize)));
        QVERIFY(read == bytes);
    }

    void arraysNeedNoAlignment()
    {
        const QByteArray bytes = fromHex("000102030405060708");
        RecordingDevice inner;
        QVERIFY(inner.open(QIODevice::ReadWrite));
        SEndiannessDevice device(&inner, ByteOrder::BigEndian);
        QVERIFY(device.writeEndianBytes(bytes.constData() + 1, 8, 1));
        QCOMPARE(inner.bytes, fromHex("0807060504030201"));
        QVERIFY(device.seek(0));
        QByteArray read(9, '\0');
        QVERIFY(device.readEndianBytes(read.data() + 1, 4, 2));
        QCOMPARE(read, fromHex("000506070801020304"));
    }

    void writeOfSingleBytesTakesNoCopy()
    {
        const QByteArray bytes("abc");
        RecordingDevice target;
        QVERIFY(target.open(QIODevice::WriteOnly));
        SEndiannessDevice device(&target, ByteOrder::BigEndian);
        QVERIFY(device.writeEndianBytes(bytes.constData(), 1, 3));
        QCOMPARE(target.bytes, bytes);
        QCOMPARE(target.sources, QList<const char *>{bytes.constData()});
    }

    void writeInTheMachinesOrderTakesNoCopy()
    {
        const QByteArray bytes("abcd");
        RecordingDevice target;
        QVERIFY(target.open(QIODevice::WriteOnly));
        SEndiannessDevice device(&target, ByteOrder::LittleEndian);
        QVERIFY(device.writeEndianBytes(bytes.constData(), 4, 1));
        QCOMPARE(target.sources, QList<const char *>{bytes.constData()});
    }

    void writeLeavesTheCallersBytes()
    {
        const QByteArray bytes("abcd");
        RecordingDevice target;
        QVERIFY(target.open(QIODevice::WriteOnly));
        SEndiannessDevice device(&target, ByteOrder::BigEndian);
        QVERIFY(device.writeEndianByteArray(bytes, 2));
        QCOMPARE(target.bytes, "badc"_ba);
        QCOMPARE(bytes, "abcd"_ba);
    }

    void readLeavesOtherArraysOfTheSameBytes()
    {
        const QByteArray shared(4, 'x');
        QByteArray array = shared;
        RecordingDevice source("abcd");
        QVERIFY(source.open(QIODevice::ReadOnly));
        SEndiannessDevice device(&source, ByteOrder::BigEndian);
        QVERIFY(device.readEndianByteArray(array, 4));
        QCOMPARE(array, "dcba"_ba);
        QCOMPARE(shared, "xxxx"_ba);
    }

    void arrayThatTheElementsDoNotFillIsNotWritten_data()
    {
        QTest::addColumn<qsizetype>("size");
        QTest::addColumn<quint64>("elementSize");
        QTest::newRow("5 bytes, elements of 2") << qsizetype(5) << quint64(2);
        QTest::newRow("elements of 0") << qsizetype(5) << quint64(0);
        QTest::newRow("elements of 0, empty array") << qsizetype(0) << quint64(0);
        QTest::newRow("larger elements") << qsizetype(5) << quint64(8);
        QTest::newRow("largest elements") << qsizetype(5) << std::numeric_limits<quint64>::max();
    }

    void arrayThatTheElementsDoNotFillIsNotWritten()
    {
        QFETCH(qsizetype, size);
        QFETCH(quint64, elementSize);
        for (const ByteOrder order : {ByteOrder::BigEndian, ByteOrder::LittleEndian}) {
            RecordingDevice target;
            QVERIFY(target.open(QIODevice::WriteOnly));
            SEndiannessDevice device(&target, order);
            QVERIFY(!device.writeEndianByteArray(QByteArray(size, 'x'), elementSize));
            QVERIFY(target.writes.isEmpty());
        }
    }

    void arrayThatTheElementsDoNotFillIsNotRead_data()
    {
        arrayThatTheElementsDoNotFillIsNotWritten_data();
    }

    void arrayThatTheElementsDoNotFillIsNotRead()
    {
        QFETCH(qsizetype, size);
        QFETCH(quint64, elementSize);
        RecordingDevice source(QByteArray(100, 'a'));
        QVERIFY(source.open(QIODevice::ReadOnly));
        SEndiannessDevice device(&source, ByteOrder::BigEndian);
        QByteArray array(size, 'x');
        QVERIFY(!device.readEndianByteArray(array, elementSize));
        QCOMPARE(array, QByteArray(size, 'x'));
        QVERIFY(source.reads.isEmpty());
    }

    void noBytesAreNoFailure_data()
    {
        QTest::addColumn<quint64>("elementSize");
        QTest::addColumn<quint64>("count");
        QTest::newRow("no elements") << quint64(4) << quint64(0);
        QTest::newRow("elements of no bytes") << quint64(0) << quint64(4);
        QTest::newRow("no elements of any size")
            << std::numeric_limits<quint64>::max() << quint64(0);
    }

    void noBytesAreNoFailure()
    {
        QFETCH(quint64, elementSize);
        QFETCH(quint64, count);
        RecordingDevice inner;
        QVERIFY(inner.open(QIODevice::ReadWrite));
        SEndiannessDevice device(&inner, ByteOrder::BigEndian);
        QVERIFY(device.readEndianBytes(nullptr, elementSize, count));
        QVERIFY(device.writeEndianBytes(nullptr, elementSize, count));
        QVERIFY(inner.reads.isEmpty());
        QVERIFY(inner.writes.isEmpty());
    }

    void emptyArrayIsNoFailure()
    {
        RecordingDevice inner;
        QVERIFY(inner.open(QIODevice::ReadWrite));
        SEndiannessDevice device(&inner, ByteOrder::BigEndian);
        QByteArray array;
        QVERIFY(device.readEndianByteArray(array, 2));
        QVERIFY(device.writeEndianByteArray(array, 2));
    }

    void sizeThatDoesNotFitIsRefused_data()
    {
        constexpr quint64 largest = std::numeric_limits<quint64>::max();
        QTest::addColumn<quint64>("elementSize");
        QTest::addColumn<quint64>("count");
        QTest::newRow("bytes that come to 0 in 64 bits")
            << (quint64(1) << 32) << (quint64(1) << 32);
        QTest::newRow("bytes that come to 4 in 64 bits") << quint64(4) << (quint64(1) << 62) + 1;
        QTest::newRow("more than a signed count") << quint64(2) << (quint64(1) << 62);
        QTest::newRow("largest") << largest << largest;
    }

    void sizeThatDoesNotFitIsRefused()
    {
        QFETCH(quint64, elementSize);
        QFETCH(quint64, count);
        for (const ByteOrder order : {ByteOrder::BigEndian, ByteOrder::LittleEndian}) {
            RecordingDevice inner("abcd");
            QVERIFY(inner.open(QIODevice::ReadWrite));
            SEndiannessDevice device(&inner, order);
            char bytes[4] = {};
            QVERIFY(!device.readEndianBytes(bytes, elementSize, count));
            QVERIFY(!device.writeEndianBytes(bytes, elementSize, count));
            QVERIFY(inner.reads.isEmpty());
            QVERIFY(inner.writes.isEmpty());
        }
    }

    void elementThatCannotBeTurnedIsRefused()
    {
        RecordingDevice target;
        QVERIFY(target.open(QIODevice::WriteOnly));
        SEndiannessDevice device(&target, ByteOrder::BigEndian);
        const char bytes[4] = {};
        QVERIFY(!device.writeEndianBytes(bytes, kBytesNobodyHas, 1));
        QVERIFY(target.writes.isEmpty());
    }

    void shortReadAtTheEndIsNoFailureAndAllIsTurned()
    {
        RecordingDevice source(fromHex("010203040506"));
        QVERIFY(source.open(QIODevice::ReadOnly));
        SEndiannessDevice device(&source, ByteOrder::BigEndian);
        QByteArray array = fromHex("a1a2a3a4a5a6a7a8a9aaabac");
        QVERIFY(device.readEndianByteArray(array, 4));
        QCOMPARE(array, fromHex("04030201a8a70605acabaaa9"));
        QCOMPARE(device.pos(), 6);
        QVERIFY(device.readEndianByteArray(array, 4));
        QCOMPARE(array, fromHex("010203040506a7a8a9aaabac"));
    }

    void shortReadsAreNoEnd()
    {
        RecordingDevice source("abcdefgh");
        source.pieceBytes = 3;
        QVERIFY(source.open(QIODevice::ReadOnly));
        SEndiannessDevice device(&source, ByteOrder::BigEndian);
        QByteArray array(8, 'x');
        QVERIFY(device.readEndianByteArray(array, 2));
        QCOMPARE(array, "badcfehg"_ba);
    }

    // A device asked once more at its end may give nothing or a failure.
    void shortReadAtTheEndIsTheLast()
    {
        RecordingDevice source("abc");
        QVERIFY(source.open(QIODevice::ReadOnly));
        SEndiannessDevice device(&source, ByteOrder::BigEndian);
        bool ok = true;
        QCOMPARE(device.readUInt32(&ok), 0u);
        QVERIFY(!ok);
        QCOMPARE(source.reads, QList<qint64>{4});
        QVERIFY(device.seek(0));
        QByteArray array(4, 'x');
        QVERIFY(device.readEndianByteArray(array, 2));
        QCOMPARE(array, "baxc"_ba);
        QCOMPARE(source.reads, (QList<qint64>{4, 4}));
    }

    void failedReadIsAFailure()
    {
        RecordingDevice source("abcdefgh");
        source.failsToRead = true;
        QVERIFY(source.open(QIODevice::ReadOnly));
        SEndiannessDevice device(&source, ByteOrder::BigEndian);
        QByteArray array("1234");
        QVERIFY(!device.readEndianByteArray(array, 2));
        QVERIFY(!device.readEndianBytes(array.data(), 2, 2));
        QCOMPARE(array, "1234"_ba);
    }

    void readThatFailsOnTheWayIsAFailure()
    {
        RecordingDevice source("abcdefgh");
        source.pieceBytes = 3;
        source.readsUntilFailure = 1;
        QVERIFY(source.open(QIODevice::ReadOnly));
        SEndiannessDevice device(&source, ByteOrder::BigEndian);
        QByteArray array(8, 'x');
        QVERIFY(!device.readEndianByteArray(array, 2));
        QCOMPARE(source.reads, (QList<qint64>{8, 5}));
    }

    void failedWriteIsAFailure_data()
    {
        QTest::addColumn<ByteOrder>("order");
        QTest::newRow("swapping") << ByteOrder::BigEndian;
        QTest::newRow("as it is") << ByteOrder::LittleEndian;
    }

    void failedWriteIsAFailure()
    {
        QFETCH(ByteOrder, order);
        RecordingDevice target;
        target.failsToWrite = true;
        QVERIFY(target.open(QIODevice::WriteOnly));
        SEndiannessDevice device(&target, order);
        QVERIFY(!device.writeEndianByteArray("abcd", 2));
        QVERIFY(!device.writeEndianBytes("abcd", 2, 2));
    }

    void writeOfZeroEndsWithoutAFailure_data()
    {
        QTest::addColumn<ByteOrder>("order");
        QTest::addColumn<int>("room");
        for (const int room : {100001, 0}) {
            QTest::addRow("swapping, room for %d", room) << ByteOrder::BigEndian << room;
            QTest::addRow("as it is, room for %d", room) << ByteOrder::LittleEndian << room;
        }
    }

    void writeOfZeroEndsWithoutAFailure()
    {
        QFETCH(ByteOrder, order);
        QFETCH(int, room);
        RecordingDevice target;
        target.room = room;
        QVERIFY(target.open(QIODevice::WriteOnly));
        SEndiannessDevice device(&target, order);
        QVERIFY(device.writeEndianByteArray(QByteArray(300000, 'x'), 2));
        QCOMPARE(target.bytes, QByteArray(room, 'x'));
        QCOMPARE(target.writes.last(), QByteArray());
        QCOMPARE(target.writes.count(QByteArray()), 1);
    }

    void shortWritesAreGoneOnWith_data() { failedWriteIsAFailure_data(); }

    void shortWritesAreGoneOnWith()
    {
        QFETCH(ByteOrder, order);
        RecordingDevice target;
        target.pieceBytes = 3;
        QVERIFY(target.open(QIODevice::WriteOnly));
        SEndiannessDevice device(&target, order);
        QVERIFY(device.writeEndianByteArray("abcdefgh", 4));
        QCOMPARE(target.bytes, order == ByteOrder::BigEndian ? "dcbahgfe"_ba : "abcdefgh"_ba);
    }

#ifdef Q_OS_LINUX
    void fullDiskIsAFailure()
    {
        QFile file(u"/dev/full"_s);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        SEndiannessDevice device(&file, ByteOrder::BigEndian);
        QVERIFY(!device.writeEndianByteArray("abcd", 2));
    }
#endif

    // The device

    void overAClosedDeviceIsClosed()
    {
        RecordingDevice source("abc");
        SEndiannessDevice device(&source, ByteOrder::BigEndian);
        QVERIFY(!device.isOpen());
        QCOMPARE(device.byteOrder(), ByteOrder::BigEndian);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QVERIFY(source.isOpen());
        QCOMPARE(device.read(3), "abc"_ba);
    }

    void overAnOpenDeviceIsOpenInItsModeAndAtItsPosition()
    {
        RecordingDevice source("abcdef");
        QVERIFY(source.open(QIODevice::ReadOnly));
        QVERIFY(source.seek(3));
        SEndiannessDevice device(&source, ByteOrder::BigEndian);
        QCOMPARE(device.openMode(), source.openMode());
        QCOMPARE(device.pos(), 3);
        QCOMPARE(device.read(2), "de"_ba);
        QCOMPARE(source.pos(), 5);
    }

    void overAnOpenSequentialDeviceIsOpen()
    {
        RecordingDevice source("abcdef");
        source.sequential = true;
        QVERIFY(source.open(QIODevice::ReadOnly));
        SEndiannessDevice device(&source, ByteOrder::BigEndian);
        QVERIFY(device.isOpen());
        QVERIFY(source.seeks.isEmpty());
        QCOMPARE(device.readUInt16(), quint16(0x6162));
    }

    void parentOwnsTheDevice()
    {
        QObject parent;
        QBuffer buffer;
        QCOMPARE((new SEndiannessDevice(&buffer, ByteOrder::BigEndian, &parent))->parent(),
                 &parent);
    }

    void passesBytesThroughUnchanged()
    {
        RecordingDevice inner;
        SEndiannessDevice device(&inner, ByteOrder::BigEndian);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QCOMPARE(device.write("abcdef"), 6);
        QCOMPARE(inner.bytes, "abcdef"_ba);
        QVERIFY(device.seek(0));
        QCOMPARE(device.read(6), "abcdef"_ba);
    }

    void readsNothingAhead()
    {
        RecordingDevice source(QByteArray(100, 'x'));
        SEndiannessDevice device(&source, ByteOrder::BigEndian);
        QVERIFY(device.open(QIODevice::ReadOnly));
        device.readUInt16();
        QCOMPARE(source.reads, QList<qint64>{2});
        QCOMPARE(source.pos(), 2);
    }

    void readsThroughALimitBelowQtsBuffer()
    {
        RecordingDevice source(fromHex("01020304"));
        SBandwidthDevice slow(&source);
        slow.setReadBandwidth(1000);
        SEndiannessDevice device(&slow, ByteOrder::BigEndian);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.readUInt32(), 0x01020304u);
    }

    void openDeviceMustHaveTheSameMode()
    {
        RecordingDevice source;
        SEndiannessDevice device(&source, ByteOrder::BigEndian);
        QVERIFY(source.open(QIODevice::ReadOnly));
        QVERIFY(!device.open(QIODevice::ReadWrite));
        QVERIFY(!device.isOpen());
        QVERIFY(device.open(QIODevice::ReadOnly));
    }

    void onlyItsOwnModeIsUnbuffered()
    {
        const QTemporaryDir folder;
        QFile file(folder.filePath(u"file"_s));
        SEndiannessDevice device(&file, ByteOrder::BigEndian);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QCOMPARE(file.openMode(), QIODevice::ReadWrite);
        QCOMPARE(device.openMode(), QIODevice::ReadWrite | QIODevice::Unbuffered);
        QVERIFY(device.open(device.openMode()));
        QCOMPARE(file.openMode(), QIODevice::ReadWrite);
    }

    void failsWhenTheUnderlyingDeviceDoesNotOpen()
    {
        RecordingDevice source;
        source.opens = false;
        SEndiannessDevice device(&source, ByteOrder::BigEndian);
        QVERIFY(!device.open(QIODevice::ReadOnly));
        QVERIFY(!device.isOpen());
    }

    void failsWithoutAnUnderlyingDevice()
    {
        SEndiannessDevice device(nullptr, ByteOrder::BigEndian);
        QVERIFY(!device.open(QIODevice::ReadOnly));
        QVERIFY(!device.isSequential());
        QCOMPARE(device.size(), 0);
        QCOMPARE(device.bytesAvailable(), 0);
        QCOMPARE(device.bytesToWrite(), 0);
        QVERIFY(!device.canReadLine());
        QVERIFY(!device.seek(0));
        QVERIFY(!device.waitForReadyRead(0));
        QVERIFY(!device.waitForBytesWritten(0));
    }

    void opensAgainAtTheStart()
    {
        QByteArray bytes("abcdef");
        QBuffer buffer(&bytes);
        SEndiannessDevice device(&buffer, ByteOrder::BigEndian);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.read(3), "abc"_ba);
        device.close();
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.pos(), 0);
        QCOMPARE(device.read(3), "abc"_ba);
    }

    void seeksBothDevices()
    {
        RecordingDevice inner("abcdef");
        SEndiannessDevice device(&inner, ByteOrder::BigEndian);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QVERIFY(device.seek(4));
        QCOMPARE(device.pos(), 4);
        QCOMPARE(inner.pos(), 4);
        QCOMPARE(device.read(1), "e"_ba);
        QCOMPARE(device.write("F"), 1);
        QCOMPARE(inner.bytes, "abcdeF"_ba);
        inner.seeks.clear();
        QTest::ignoreMessage(QtWarningMsg, "QIODevice::seek: Invalid pos: -1");
        QVERIFY(!device.seek(-1));
        QVERIFY(inner.seeks.isEmpty());
        inner.seekable = false;
        QVERIFY(!device.seek(1));
    }

    void forwardsWhatTheUnderlyingDeviceIs()
    {
        RecordingDevice inner("abcdef");
        inner.waiting = 22;
        SEndiannessDevice device(&inner, ByteOrder::BigEndian);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QVERIFY(!device.isSequential());
        QCOMPARE(device.size(), 6);
        QCOMPARE(device.bytesAvailable(), 6 + 6);
        QCOMPARE(device.bytesToWrite(), 22);
        QVERIFY(!device.canReadLine());
        inner.line = true;
        QVERIFY(device.canReadLine());
        inner.sequential = true;
        QVERIFY(device.isSequential());
    }

    // A remote file is as long as its server says.
    void aClaimOfTheLargestSizeStaysInRange()
    {
        RecordingDevice source("abcdef");
        source.claimedSize = std::numeric_limits<qint64>::max();
        SEndiannessDevice device(&source, ByteOrder::BigEndian);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.bytesAvailable(), std::numeric_limits<qint64>::max());
        QCOMPARE(device.read(6), "abcdef"_ba);
        QVERIFY(!device.atEnd());
    }

    // A look ahead keeps what it saw in a device without positions.
    void countsWhatItHoldsItself()
    {
        RecordingDevice inner("a\nbcdef");
        inner.sequential = true;
        SEndiannessDevice device(&inner, ByteOrder::BigEndian);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QVERIFY(!device.canReadLine());
        QCOMPARE(device.peek(3), "a\nb"_ba);
        QCOMPARE(inner.bytesAvailable(), 4);
        QCOMPARE(device.bytesAvailable(), 3 + 4);
        QVERIFY(device.canReadLine());
        QCOMPARE(device.readUInt32(), 0x610a6263u);
    }

    void waitsOnTheUnderlyingDevice()
    {
        RecordingDevice inner;
        SEndiannessDevice device(&inner, ByteOrder::BigEndian);
        QVERIFY(!device.waitForReadyRead(12));
        QVERIFY(!device.waitForBytesWritten(-1));
        QCOMPARE(inner.readWaits, QList<int>{12});
        QCOMPARE(inner.writeWaits, QList<int>{-1});
        inner.waitsEndWell = true;
        QVERIFY(device.waitForReadyRead(0));
        QVERIFY(device.waitForBytesWritten(3));
        QCOMPARE(inner.readWaits, (QList<int>{12, 0}));
        QCOMPARE(inner.writeWaits, (QList<int>{-1, 3}));
    }

    void closeClosesBothOnce()
    {
        RecordingDevice inner;
        SEndiannessDevice device(&inner, ByteOrder::BigEndian);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QSignalSpy closing(&device, &QIODevice::aboutToClose);
        device.close();
        QVERIFY(!device.isOpen());
        QVERIFY(!inner.isOpen());
        QCOMPARE(closing.count(), 1);
        device.close();
        QCOMPARE(closing.count(), 1);
    }

    void closeTellsThenClosesItselfThenTheUnderlyingDevice()
    {
        RecordingDevice inner;
        QIODevice *wrapper = nullptr;
        QList<bool> open;
        // Connected first, to see the wrapper before it hears of this.
        connect(&inner, &QIODevice::aboutToClose, this, [&] { open << wrapper->isOpen(); });
        SEndiannessDevice device(&inner, ByteOrder::BigEndian);
        wrapper = &device;
        connect(&device, &QIODevice::aboutToClose, this,
                [&] { open << device.isOpen() << inner.isOpen(); });
        QVERIFY(device.open(QIODevice::ReadOnly));
        device.close();
        QCOMPARE(open, (QList<bool>{true, true, false}));
    }

    void closesWithTheUnderlyingDevice()
    {
        RecordingDevice inner;
        SEndiannessDevice device(&inner, ByteOrder::BigEndian);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QSignalSpy closing(&device, &QIODevice::aboutToClose);
        inner.close();
        QVERIFY(!device.isOpen());
        QCOMPARE(closing.count(), 1);
        QVERIFY(inner.open(QIODevice::ReadOnly));
        inner.close();
        QCOMPARE(closing.count(), 1);
    }

    void keepsWhatATextStreamWritesAtClose_data()
    {
        QTest::addColumn<bool>("byItself");
        QTest::newRow("closed by itself") << true;
        QTest::newRow("closed with the file") << false;
    }

    void keepsWhatATextStreamWritesAtClose()
    {
        QFETCH(bool, byItself);
        const QTemporaryDir folder;
        QFile file(folder.filePath(u"file"_s));
        SEndiannessDevice device(&file, ByteOrder::BigEndian);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QTextStream stream(&device);
        stream << u"abc"_s;
        if (byItself)
            device.close();
        else
            file.close();
        QVERIFY(!device.isOpen());
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), "abc"_ba);
    }

    // A larger request than twice the limit would wait forever.
    void requestsStayWithinTheSpeedLimitOfTheUnderlyingDevice()
    {
        RecordingDevice slow;
        slow.sequential = true;
        slow.setProperty("readBandwidth", 50);
        slow.setProperty("writeBandwidth", 70);
        SEndiannessDevice device(&slow, ByteOrder::BigEndian);
        const QByteArray data(20'000, 'x');
        QVERIFY(device.open(QIODevice::WriteOnly));
        qint64 done = 0;
        while (done < data.size()) {
            const qint64 count = device.write(data.constData() + done, data.size() - done);
            QVERIFY(count > 0);
            done += count;
        }
        device.close();
        QCOMPARE(slow.bytes, data);
        for (const QByteArray &piece : std::as_const(slow.writes))
            QVERIFY2(piece.size() <= 70, qPrintable(QString::number(piece.size())));

        slow.at = 0;
        QVERIFY(device.open(QIODevice::ReadOnly));
        QByteArray read;
        while (read.size() < data.size()) {
            const QByteArray piece = device.read(data.size());
            QVERIFY(!piece.isEmpty());
            read += piece;
        }
        QCOMPARE(read, data);
        for (const qint64 size : std::as_const(slow.reads))
            QVERIFY2(size <= 50, qPrintable(QString::number(size)));
    }

    void hasTheErrorStringOfTheUnderlyingDevice()
    {
        RecordingDevice inner("abc");
        inner.failsToRead = true;
        inner.failsToWrite = true;
        SEndiannessDevice device(&inner, ByteOrder::BigEndian);
        QVERIFY(device.open(QIODevice::ReadWrite));
        char byte = 0;
        inner.setReason(u"the disk is gone"_s);
        QCOMPARE(device.read(&byte, 1), -1);
        QCOMPARE(device.errorString(), u"the disk is gone"_s);
        inner.setReason(u"the disk is full"_s);
        QCOMPARE(device.write("x"), -1);
        QCOMPARE(device.errorString(), u"the disk is full"_s);
    }

    void writesWhenOpenedToAppend()
    {
        QByteArray bytes("older ");
        QBuffer buffer(&bytes);
        SEndiannessDevice device(&buffer, ByteOrder::BigEndian);
        QVERIFY(device.open(QIODevice::Append));
        QCOMPARE(device.write("bytes"), 5);
        device.close();
        QCOMPARE(bytes, "older bytes"_ba);
    }

    void destructorLeavesTheUnderlyingDeviceOpen()
    {
        RecordingDevice inner;
        QVERIFY(inner.open(QIODevice::ReadOnly));
        {
            const SEndiannessDevice device(&inner, ByteOrder::BigEndian);
            QVERIFY(device.isOpen());
        }
        QVERIFY(inner.isOpen());
    }

    void outlivesTheUnderlyingDevice()
    {
        auto inner = std::make_unique<RecordingDevice>("abc");
        SEndiannessDevice device(inner.get(), ByteOrder::BigEndian);
        QVERIFY(device.open(QIODevice::ReadWrite));
        inner.reset();
        bool ok = true;
        QCOMPARE(device.readUInt16(&ok), quint16(0));
        QVERIFY(!ok);
        QVERIFY(!device.writeEndianByteArray("abcd", 2));
        QVERIFY(!device.seek(0));
        device.close();
        QVERIFY(!device.isOpen());
        QVERIFY(!device.open(QIODevice::ReadOnly));
    }

    void passesOnSignals()
    {
        QBuffer buffer;
        SEndiannessDevice device(&buffer, ByteOrder::BigEndian);
        QSignalSpy ready(&device, &QIODevice::readyRead);
        QSignalSpy finished(&device, &QIODevice::readChannelFinished);
        Q_EMIT buffer.readyRead();
        QCOMPARE(ready.count(), 1);
        Q_EMIT buffer.readChannelFinished();
        QCOMPARE(finished.count(), 1);
    }

    void numbersOverASocket()
    {
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress::LocalHost));
        QTcpSocket client;
        client.connectToHost(server.serverAddress(), server.serverPort());
        QVERIFY(server.waitForNewConnection(10000));
        const std::unique_ptr<QTcpSocket> peer(server.nextPendingConnection());
        QVERIFY(client.waitForConnected(10000));

        SEndiannessDevice device(&client, ByteOrder::BigEndian);
        QVERIFY(device.isOpen());
        peer->write(fromHex("0001020304"));
        QVERIFY(peer->waitForBytesWritten(10000));
        while (device.bytesAvailable() < 5)
            QVERIFY(device.waitForReadyRead(10000));
        QCOMPARE(device.readUInt32(), 0x00010203u);
        bool ok = true;
        QCOMPARE(device.readUInt16(&ok), quint16(0));
        QVERIFY(!ok);
        QVERIFY(device.writeEndianByteArray("abcd", 4));
        QVERIFY(device.bytesToWrite() == 0 || device.waitForBytesWritten(10000));
        QTRY_COMPARE(peer->bytesAvailable(), 4);
        QCOMPARE(peer->readAll(), "dcba"_ba);
    }

    // What came before the end stays readable, and reading on fails.
    void shortReadOfAnEndedConnectionIsNoFailure()
    {
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress::LocalHost));
        QTcpSocket client;
        client.connectToHost(server.serverAddress(), server.serverPort());
        QVERIFY(server.waitForNewConnection(10000));
        const std::unique_ptr<QTcpSocket> peer(server.nextPendingConnection());
        peer->write("abcdef");
        peer->disconnectFromHost();
        QTRY_COMPARE(client.state(), QAbstractSocket::UnconnectedState);

        SEndiannessDevice device(&client, ByteOrder::BigEndian);
        QByteArray array("........");
        QVERIFY(device.readEndianByteArray(array, 4));
        QCOMPARE(array, "dcba..fe"_ba);
        QVERIFY(!device.readEndianByteArray(array, 4));
    }
};

QTEST_GUILESS_MAIN(tst_SEndiannessDevice)
#include "tst_sendiannessdevice.moc"
