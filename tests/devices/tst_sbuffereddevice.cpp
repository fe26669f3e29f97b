// SPDX-License-Identifier: MIT
#include <brixlib/devices/sbandwidthdevice.h>
#include <brixlib/devices/sbuffereddevice.h>

#include <shared/recordingdevice.h>
#include <shared/refusedallocation.h>
#include <shared/seededrandom.h>

#include <limits>

#ifdef Q_OS_LINUX
#include <shared/processfacts.h>

#include <sys/resource.h>
#endif

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr int kSmallest = 1024;

//! Opens what is protected.
class Device : public SBufferedDevice
{
public:
    using SBufferedDevice::_setOpenMode;
    using SBufferedDevice::bufferResize;
    using SBufferedDevice::discart;
    using SBufferedDevice::readData;
    using SBufferedDevice::SBufferedDevice;
    using SBufferedDevice::writeData;
};

//! Gives no byte and says that there will be more.
class EndlessDevice : public RecordingDevice
{
public:
    bool atEnd() const override { return false; }
};

#ifdef Q_OS_LINUX
//! While one lives, the program gets no more than so many bytes of address space.
class AddressSpaceLimit
{
public:
    explicit AddressSpaceLimit(qint64 bytes)
    {
        const qint64 taken = ProcessFacts::kibibytes("VmSize") * 1024;
        rlimit limit = {};
        m_valid = taken > 0 && getrlimit(RLIMIT_AS, &limit) == 0;
        m_before = limit;
        limit.rlim_cur = static_cast<rlim_t>(taken + bytes);
        m_valid = m_valid && setrlimit(RLIMIT_AS, &limit) == 0;
    }
    ~AddressSpaceLimit()
    {
        if (m_valid)
            setrlimit(RLIMIT_AS, &m_before);
    }
    Q_DISABLE_COPY_MOVE(AddressSpaceLimit)

    bool isValid() const { return m_valid; }

private:
    rlimit m_before = {};
    bool m_valid = false;
};
#endif

//! Bytes of which each four tell where they stand.
QByteArray numbered(qsizetype size)
{
    QByteArray bytes;
    for (int i = 0; bytes.size() < size; ++i)
        bytes += QByteArray::number(i).rightJustified(4, '0');
    bytes.truncate(size);
    return bytes;
}

QByteArray readFully(QIODevice *device)
{
    QByteArray bytes;
    for (;;) {
        const QByteArray piece = device->read(5000);
        if (piece.isEmpty())
            return bytes;
        bytes += piece;
    }
}

bool writeFully(QIODevice *device, const QByteArray &bytes)
{
    for (qsizetype done = 0; done < bytes.size();) {
        const qint64 count = device->write(bytes.constData() + done, bytes.size() - done);
        if (count < 1)
            return false;
        done += count;
    }
    return true;
}

} // namespace

class tst_SBufferedDevice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshDeviceIsClosed()
    {
        QBuffer buffer;
        SBufferedDevice device(&buffer);
        QVERIFY(!device.isOpen());
        QCOMPARE(device.bufferSize(), 32768);
        QVERIFY(device.flush());
        QVERIFY(device.atEnd());
        QCOMPARE(device.bytesAvailable(), 0);
        QCOMPARE(device.bytesToWrite(), 0);
        QVERIFY(!device.canReadLine());
    }

    void standardSizes()
    {
        QCOMPARE(SBufferedDevice::defaultBufferSize(), 32768);
        QCOMPARE(SBufferedDevice::networkFSBufferSize(), 2097152);
    }

    void parentOwnsTheDevice()
    {
        QObject parent;
        QBuffer buffer;
        QCOMPARE((new SBufferedDevice(&buffer, &parent))->parent(), &parent);
        QCOMPARE((new SBufferedDevice(&buffer, 4096, &parent))->parent(), &parent);
    }

    void firstSizeBelow1024IsTheDefault_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<int>("result");
        QTest::newRow("1024") << 1024 << 1024;
        QTest::newRow("1023") << 1023 << 32768;
        QTest::newRow("100") << 100 << 32768;
        QTest::newRow("0") << 0 << 32768;
        QTest::newRow("negative") << -1 << 32768;
        QTest::newRow("2 MiB") << 2097152 << 2097152;
    }

    void firstSizeBelow1024IsTheDefault()
    {
        QFETCH(int, size);
        QBuffer buffer;
        QTEST(SBufferedDevice(&buffer, size).bufferSize(), "result");
    }

    void laterSizeHasNoLowerLimit()
    {
        QBuffer buffer;
        SBufferedDevice device(&buffer, 100);
        QCOMPARE(device.bufferSize(), 32768);
        device.setBufferSize(100);
        QCOMPARE(device.bufferSize(), 100);
    }

    void isBufferable()
    {
        QBuffer buffer;
        SBufferedDevice device(&buffer);
        auto *bufferable = qobject_cast<Interfaces::IBufferable *>(static_cast<QObject *>(&device));
        QVERIFY(bufferable);
        bufferable->setBufferSize(77);
        QCOMPARE(device.bufferSize(), 77);
    }

    // Opening

    void opensTheUnderlyingDevice()
    {
        const QTemporaryDir folder;
        QFile file(folder.filePath(u"file"_s));
        SBufferedDevice device(&file);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QCOMPARE(file.openMode(), QIODevice::WriteOnly);
        QVERIFY(device.isWritable());
        QVERIFY(!device.isReadable());
    }

    void ownModeIsAlwaysUnbuffered()
    {
        RecordingDevice source(numbered(kSmallest * 4));
        SBufferedDevice device(&source, kSmallest);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.openMode(), QIODevice::ReadOnly | QIODevice::Unbuffered);
        // QIODevice's own read-ahead would be one of 16 KiB.
        QCOMPARE(device.read(1).size(), 1);
        QCOMPARE(source.reads, QList<qint64>{kSmallest});
    }

    void failsWhenTheUnderlyingDeviceDoesNotOpen()
    {
        QFile file(u"/nonexistent/file"_s);
        SBufferedDevice device(&file);
        QVERIFY(!device.open(QIODevice::ReadOnly));
        QVERIFY(!device.isOpen());
    }

    void failsWithoutAnUnderlyingDevice()
    {
        SBufferedDevice device(nullptr);
        QVERIFY(!device.open(QIODevice::ReadOnly));
        QVERIFY(!device.isSequential());
        QCOMPARE(device.size(), 0);
        QCOMPARE(device.bytesAvailable(), 0);
        QVERIFY(device.atEnd());
        QVERIFY(!device.seek(0));
    }

    void openDeviceMustHaveTheSameMode_data()
    {
        using Mode = QIODevice::OpenMode;
        QTest::addColumn<Mode>("open");
        QTest::addColumn<Mode>("mode");
        QTest::addColumn<bool>("opens");
        const Mode read = QIODevice::ReadOnly;
        const Mode write = QIODevice::WriteOnly;
        const Mode both = QIODevice::ReadWrite;
        const Mode unbuffered = QIODevice::Unbuffered;
        QTest::newRow("read, read") << read << read << true;
        QTest::newRow("write, write") << write << write << true;
        QTest::newRow("both, both") << both << both << true;
        QTest::newRow("both, read") << both << read << false;
        QTest::newRow("read, both") << read << both << false;
        QTest::newRow("read, write") << read << write << false;
        QTest::newRow("read as text, read") << (read | QIODevice::Text) << read << false;
        QTest::newRow("unbuffered makes no difference") << (read | unbuffered) << read << true;
        QTest::newRow("nor does it here") << read << (read | unbuffered) << true;
    }

    void openDeviceMustHaveTheSameMode()
    {
        QFETCH(QIODevice::OpenMode, open);
        QFETCH(QIODevice::OpenMode, mode);
        QFETCH(bool, opens);
        const QTemporaryDir folder;
        QFile file(folder.filePath(u"file"_s));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.close();
        QVERIFY(file.open(open));
        SBufferedDevice device(&file);
        QCOMPARE(device.open(mode), opens);
        QCOMPARE(device.isOpen(), opens);
        QVERIFY(file.isOpen());
    }

    void startsWhereAnOpenDeviceStands()
    {
        RecordingDevice source("abcdef");
        QVERIFY(source.open(QIODevice::ReadOnly));
        QVERIFY(source.seek(3));
        SBufferedDevice device(&source);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.pos(), 3);
        QCOMPARE(device.read(10), "def"_ba);
        QVERIFY(device.seek(4));
        QCOMPARE(device.read(10), "ef"_ba);
    }

    void appends()
    {
        const QTemporaryDir folder;
        QFile file(folder.filePath(u"file"_s));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write("abc"), 3);
        file.close();
        SBufferedDevice device(&file);
        QVERIFY(device.open(QIODevice::Append));
        QVERIFY(device.isWritable());
        QCOMPARE(device.pos(), 3);
        QCOMPARE(device.write("def"), 3);
        device.close();
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), "abcdef"_ba);
    }

    void opensAgainAtTheStart()
    {
        QByteArray bytes("abcdef");
        QBuffer buffer(&bytes);
        SBufferedDevice device(&buffer);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.read(3), "abc"_ba);
        device.close();
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.pos(), 0);
        QCOMPARE(device.read(3), "abc"_ba);
        QVERIFY(device.seek(1));
        QCOMPARE(device.read(2), "bc"_ba);
    }

    void openingAnOpenDeviceLosesNothing()
    {
        RecordingDevice target;
        SBufferedDevice device(&target);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QCOMPARE(device.write("abc"), 3);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QCOMPARE(device.write("def"), 3);
        device.close();
        QCOMPARE(target.bytes, "abcdef"_ba);
    }

    // Reading

    void manySmallReadsAreFewLargeOnes()
    {
        const QByteArray bytes = numbered(kSmallest * 3 + 10);
        RecordingDevice source(bytes);
        SBufferedDevice device(&source, kSmallest);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QByteArray read;
        char byte;
        while (device.getChar(&byte))
            read += byte;
        QCOMPARE(read, bytes);
        QCOMPARE(source.reads, QList<qint64>(5, kSmallest));
        QVERIFY(device.atEnd());
    }

    void singleReadGivesAtMostWhatTheBufferHolds()
    {
        RecordingDevice source(numbered(kSmallest * 3));
        SBufferedDevice device(&source, kSmallest);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.read(100).size(), 100);
        QCOMPARE(device.read(kSmallest * 2).size(), kSmallest - 100);
        QCOMPARE(device.read(kSmallest * 2).size(), kSmallest);
        QCOMPARE(device.readAll().size(), kSmallest);
        QCOMPARE(device.read(1).size(), 0);
    }

    // Nothing is kept of them, and what follows begins behind them.
    void readsThatFillTheBufferLeaveItEmpty()
    {
        RecordingDevice source(numbered(5 * kSmallest));
        SBufferedDevice device(&source, kSmallest);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QByteArray bytes = device.read(kSmallest);
        QCOMPARE(source.pos(), kSmallest);
        bytes += device.read(2 * kSmallest);
        QCOMPARE(source.pos(), 2 * kSmallest);
        bytes += device.read(1);
        QCOMPARE(source.pos(), 3 * kSmallest);
        QCOMPARE(bytes, numbered(2 * kSmallest + 1));
        QVERIFY(device.seek(kSmallest - 1));
        QCOMPARE(device.read(3), numbered(kSmallest + 2).last(3));
    }

    void readsAheadOnlyWhenTheBufferIsEmpty()
    {
        RecordingDevice source(numbered(kSmallest * 2));
        SBufferedDevice device(&source, kSmallest);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.read(kSmallest - 1).size(), kSmallest - 1);
        QCOMPARE(device.read(10).size(), 1);
        QCOMPARE(source.reads.size(), 1);
        QCOMPARE(device.read(10).size(), 10);
        QCOMPARE(source.reads.size(), 2);
    }

    void givesWhatAShortReadBrought()
    {
        RecordingDevice source("abcdefgh");
        source.pieceBytes = 3;
        SBufferedDevice device(&source);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.read(8), "abc"_ba);
        QCOMPARE(device.read(2), "de"_ba);
        QCOMPARE(device.read(8), "f"_ba);
        QCOMPARE(readFully(&device), "gh"_ba);
    }

    void failedUnderlyingReadGivesNoBytesAndNoFailure()
    {
        RecordingDevice source("abc");
        source.failsToRead = true;
        SBufferedDevice device(&source);
        QVERIFY(device.open(QIODevice::ReadOnly));
        char byte;
        QCOMPARE(device.read(&byte, 1), 0);
        source.failsToRead = false;
        QCOMPARE(device.read(3), "abc"_ba);
    }

    void readsLines()
    {
        RecordingDevice source("first\nsecond\nthird");
        SBufferedDevice device(&source);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.readLine(), "first\n"_ba);
        QVERIFY(device.canReadLine());
        QCOMPARE(device.readLine(), "second\n"_ba);
        QVERIFY(!device.canReadLine());
        QCOMPARE(device.readLine(), "third"_ba);
    }

    void peekTakesNothing()
    {
        RecordingDevice source(numbered(3000));
        SBufferedDevice device(&source, kSmallest);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.peek(8), "00000001"_ba);
        QCOMPARE(device.pos(), 0);
        QCOMPARE(readFully(&device), numbered(3000));
    }

    // Writing

    void manySmallWritesAreFewLargeOnes()
    {
        const QByteArray bytes = numbered(kSmallest * 2 + 10);
        RecordingDevice target;
        SBufferedDevice device(&target, kSmallest);
        QVERIFY(device.open(QIODevice::WriteOnly));
        for (const char byte : bytes)
            QVERIFY(device.putChar(byte));
        QCOMPARE(target.writes, (QList{bytes.left(kSmallest), bytes.mid(kSmallest, kSmallest)}));
        QCOMPARE(device.bytesToWrite(), 10);
        QVERIFY(device.flush());
        QCOMPARE(target.bytes, bytes);
        QCOMPARE(device.bytesToWrite(), 0);
    }

    void writeLargerThanTheFreeSpaceReturnsTheShorterCount()
    {
        RecordingDevice target;
        SBufferedDevice device(&target, kSmallest);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QCOMPARE(device.write(QByteArray(1000, 'a')), 1000);
        QCOMPARE(device.write(QByteArray(100, 'b')), 24);
        QVERIFY(target.writes.isEmpty());
        // The full buffer goes out before the next byte.
        QCOMPARE(device.write(QByteArray(2000, 'c')), kSmallest);
        QCOMPARE(target.writes, QList{QByteArray(1000, 'a') + QByteArray(24, 'b')});
        QCOMPARE(device.pos(), kSmallest * 2);
    }

    void eachFlushIsOneWrite()
    {
        RecordingDevice target;
        SBufferedDevice device(&target, kSmallest);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QList<QByteArray> expected;
        for (int i = 0; i < 10; ++i) {
            expected.append(QByteArray(300 + i, static_cast<char>('a' + i)));
            QCOMPARE(device.write(expected.last()), 300 + i);
            QVERIFY(device.flush());
        }
        QCOMPARE(target.writes, expected);
        QVERIFY(device.flush());
        QCOMPARE(target.writes.size(), 10);
    }

    void flushGoesOnAfterShortWrites()
    {
        RecordingDevice target;
        target.pieceBytes = 7;
        SBufferedDevice device(&target);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QVERIFY(writeFully(&device, numbered(100)));
        QVERIFY(device.flush());
        QCOMPARE(target.bytes, numbered(100));
    }

    void flushFailsWithTheUnderlyingWrite()
    {
        RecordingDevice target;
        target.failsToWrite = true;
        SBufferedDevice device(&target);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QCOMPARE(device.write("abc"), 3);
        QVERIFY(!device.flush());
        // What could not be written is gone; nothing of it comes out later.
        QCOMPARE(device.bytesToWrite(), 0);
        QVERIFY(device.flush());
        target.failsToWrite = false;
        QCOMPARE(device.write("def"), 3);
        QVERIFY(device.flush());
        QCOMPARE(target.bytes, "def"_ba);
    }

    void flushFailsWhenTheDeviceTakesNoMore()
    {
        RecordingDevice target;
        target.room = 2;
        SBufferedDevice device(&target);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QCOMPARE(device.write("abc"), 3);
        QVERIFY(!device.flush());
        QCOMPARE(target.bytes, "ab"_ba);
        QCOMPARE(device.bytesToWrite(), 0);
    }

    void writeFailsWhenTheFullBufferCannotGoOut()
    {
        RecordingDevice target;
        target.failsToWrite = true;
        SBufferedDevice device(&target, kSmallest);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QCOMPARE(device.write(numbered(kSmallest)), kSmallest);
        QCOMPARE(device.write("x"), -1);
    }

    void readFailsWhenWrittenBytesCannotGoOut()
    {
        RecordingDevice target("abc");
        target.failsToWrite = true;
        SBufferedDevice device(&target);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QCOMPARE(device.write("x"), 1);
        char byte;
        QCOMPARE(device.read(&byte, 1), -1);
    }

    void flushFailsWhenTheUnderlyingDeviceIsClosed()
    {
        RecordingDevice target;
        SBufferedDevice device(&target);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QCOMPARE(device.write("abc"), 3);
        // Closed without a word.
        target.blockSignals(true);
        target.close();
        target.blockSignals(false);
        QVERIFY(!device.flush());
        QCOMPARE(device.bytesToWrite(), 3);
        QVERIFY(target.open(QIODevice::WriteOnly));
        QVERIFY(device.flush());
        QCOMPARE(target.bytes, "abc"_ba);
    }

#ifdef Q_OS_LINUX
    void fullDiskIsReportedByFlush()
    {
        QFile file(u"/dev/full"_s);
        SBufferedDevice device(&file);
        QVERIFY(device.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        QCOMPARE(device.write("abc"), 3);
        QVERIFY(!device.flush());
    }
#endif

    // Reading and writing in turns

    void readAfterAWriteFlushesFirst()
    {
        RecordingDevice device("abcdef");
        SBufferedDevice buffered(&device);
        QVERIFY(buffered.open(QIODevice::ReadWrite));
        QCOMPARE(buffered.write("AB"), 2);
        QCOMPARE(buffered.read(2), "cd"_ba);
        QCOMPARE(device.bytes, "ABcdef"_ba);
        QCOMPARE(buffered.bytesToWrite(), 0);
    }

    void writeAfterAReadGoesToTheEndOfTheReadAhead()
    {
        RecordingDevice device("abcdef");
        SBufferedDevice buffered(&device);
        QVERIFY(buffered.open(QIODevice::ReadWrite));
        QCOMPARE(buffered.read(2), "ab"_ba);
        QCOMPARE(buffered.bytesAvailable(), 4 + 4);
        QCOMPARE(buffered.write("X"), 1);
        // No byte is left of what was read ahead.
        QCOMPARE(buffered.bytesAvailable(), 3);
        QCOMPARE(device.pos(), 6);
        QVERIFY(buffered.flush());
        QCOMPARE(device.bytes, "abcdefX"_ba);
    }

    void seekIntoTheReadAheadDoesNotMoveTheNextWrite()
    {
        RecordingDevice device("abcdef");
        SBufferedDevice buffered(&device);
        QVERIFY(buffered.open(QIODevice::ReadWrite));
        QCOMPARE(buffered.read(2), "ab"_ba);
        QVERIFY(buffered.seek(3));
        QCOMPARE(buffered.write("X"), 1);
        QVERIFY(buffered.flush());
        QCOMPARE(device.bytes, "abcdefX"_ba);
    }

    void writeGoesWhereASeekSaysOnceTheReadAheadIsDropped()
    {
        RecordingDevice device("abcdef");
        SBufferedDevice buffered(&device);
        QVERIFY(buffered.open(QIODevice::ReadWrite));
        QCOMPARE(buffered.read(2), "ab"_ba);
        buffered.setBufferSize(buffered.bufferSize());
        QVERIFY(buffered.seek(2));
        QCOMPARE(buffered.write("XY"), 2);
        QVERIFY(buffered.flush());
        QCOMPARE(device.bytes, "abXYef"_ba);
    }

    // Seeking

    void seekInsideTheReadBufferKeepsTheRest()
    {
        const QByteArray bytes = numbered(5000);
        RecordingDevice source(bytes);
        SBufferedDevice device(&source, kSmallest);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.read(10), bytes.left(10));
        QVERIFY(device.seek(500));
        QCOMPARE(device.pos(), 500);
        QCOMPARE(device.read(100), bytes.mid(500, 100));
        QVERIFY(device.seek(kSmallest - 1));
        QCOMPARE(device.read(100), bytes.mid(kSmallest - 1, 1));
        QCOMPARE(source.reads.size(), 1);
        QCOMPARE(device.read(100), bytes.mid(kSmallest, 100));
        QCOMPARE(source.reads.size(), 2);
    }

    void underlyingDeviceStaysAheadByWhatTheBufferHolds()
    {
        RecordingDevice source(numbered(5000));
        SBufferedDevice device(&source, kSmallest);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.read(10).size(), 10);
        QCOMPARE(source.pos(), kSmallest);
        QVERIFY(device.seek(500));
        QCOMPARE(source.seeks, QList<qint64>{kSmallest});
        QVERIFY(device.seek(4000));
        QCOMPARE(source.pos(), 4000);
    }

    // A remote file is as long as its server says.
    void aClaimOfTheLargestSizeStaysInRange()
    {
        RecordingDevice source("abcdef");
        source.claimedSize = std::numeric_limits<qint64>::max();
        SBufferedDevice device(&source, kSmallest);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.bytesAvailable(), std::numeric_limits<qint64>::max());
        QCOMPARE(device.read(6), "abcdef"_ba);
        QVERIFY(!device.atEnd());
    }

    void seekToPositionPlusSizeClearsTheReadBuffer()
    {
        const QByteArray bytes = numbered(5000);
        RecordingDevice source(bytes);
        SBufferedDevice device(&source, kSmallest);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.read(10).size(), 10);
        // The oldest byte in the buffer is the one at 10.
        QVERIFY(device.seek(10 + kSmallest));
        QCOMPARE(source.pos(), 10 + kSmallest);
        QCOMPARE(device.bytesAvailable(), 2 * (5000 - 10 - kSmallest));
        QCOMPARE(device.read(100), bytes.mid(10 + kSmallest, 100));
        QCOMPARE(source.reads.size(), 2);
    }

    void seekBehindTheBytesButWithinTheSizeDropsThemAll()
    {
        const QByteArray bytes = numbered(5000);
        RecordingDevice source(bytes);
        SBufferedDevice device(&source, kSmallest);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.read(1000).size(), 1000);
        QVERIFY(device.seek(1500));
        QCOMPARE(source.pos(), 1500);
        QCOMPARE(device.read(100), bytes.mid(1500, 100));
    }

    void seekBackClearsTheReadBuffer()
    {
        const QByteArray bytes = numbered(5000);
        RecordingDevice source(bytes);
        SBufferedDevice device(&source, kSmallest);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.read(100).size(), 100);
        QVERIFY(device.seek(99));
        QCOMPARE(source.pos(), 99);
        QCOMPARE(device.read(100), bytes.mid(99, 100));
        QCOMPARE(source.reads.size(), 2);
    }

    void seekFlushesWhereTheBytesBelong()
    {
        RecordingDevice target("abcdef");
        SBufferedDevice device(&target);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QCOMPARE(device.write("AB"), 2);
        QVERIFY(device.seek(4));
        QCOMPARE(device.write("E"), 1);
        QVERIFY(device.seek(0));
        QCOMPARE(target.bytes, "ABcdEf"_ba);
        QCOMPARE(device.read(6), "ABcdEf"_ba);
    }

    void seekFails_data()
    {
        QTest::addColumn<bool>("writable");
        QTest::addColumn<bool>("seekable");
        QTest::newRow("flush fails") << false << true;
        QTest::newRow("underlying seek fails") << true << false;
    }

    void seekFails()
    {
        QFETCH(bool, writable);
        QFETCH(bool, seekable);
        RecordingDevice target("abcdef");
        target.failsToWrite = !writable;
        SBufferedDevice device(&target);
        QVERIFY(device.open(QIODevice::ReadWrite));
        target.seekable = seekable;
        QCOMPARE(device.write("AB"), 2);
        QVERIFY(!device.seek(4));
    }

    void positionThatIsNoneIsRefused()
    {
        RecordingDevice source("abc");
        SBufferedDevice device(&source);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QTest::ignoreMessage(QtWarningMsg, "QIODevice::seek: Invalid pos: -1");
        QVERIFY(!device.seek(-1));
        QCOMPARE(source.seeks, QList<qint64>());
    }

    void sequentialDeviceCannotSeek()
    {
        RecordingDevice source("abc");
        source.sequential = true;
        SBufferedDevice device(&source);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QTest::ignoreMessage(QtWarningMsg, "QIODevice::seek (Talverine::SBufferedDevice): Cannot "
                                           "call seek on a sequential device");
        QVERIFY(!device.seek(1));
    }

    // Against a plain array of bytes.
    void behavesAsAFile()
    {
        SeededRandom random;
        QByteArray model = random.bytes(20000);
        RecordingDevice inner(model);
        SBufferedDevice device(&inner, kSmallest);
        QVERIFY(device.open(QIODevice::ReadWrite));
        qsizetype pos = 0;
        bool reading = true;
        for (int i = 0; i < 20000; ++i) {
            const bool reads = random.chance(50);
            if (reads != reading || random.chance(20)) {
                pos = random.between(0, model.size());
                if (!reads)
                    device.setBufferSize(kSmallest);
                QVERIFY(device.seek(pos));
            }
            reading = reads;
            const qint64 size = random.between(1, random.chance(90) ? 64 : 3000);
            if (reading) {
                const QByteArray bytes = device.read(size);
                QCOMPARE(bytes, model.mid(pos, bytes.size()));
                QVERIFY(!bytes.isEmpty() || pos == model.size());
                pos += bytes.size();
            } else {
                const QByteArray bytes = random.bytes(size);
                const qint64 count = device.write(bytes);
                QVERIFY(count > 0);
                model.replace(pos, count, bytes.left(count));
                pos += count;
            }
            QCOMPARE(device.pos(), pos);
        }
        device.close();
        QCOMPARE(inner.bytes, model);
    }

    // What it says of itself

    void countsAddThreeSources()
    {
        RecordingDevice inner(numbered(5000));
        SBufferedDevice device(&inner, kSmallest);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QCOMPARE(device.bytesAvailable(), 5000 + 5000);
        QCOMPARE(device.read(24).size(), 24);
        QCOMPARE(device.bytesAvailable(), (5000 - 24) + (5000 - kSmallest) + (kSmallest - 24));
        inner.waiting = 22;
        QCOMPARE(device.bytesToWrite(), 22);
        QCOMPARE(device.write("abc"), 3);
        QCOMPARE(device.bytesToWrite(), 22 + 3);
    }

    void sizeIsTheUnderlyingOne()
    {
        RecordingDevice inner(numbered(5000));
        SBufferedDevice device(&inner, kSmallest);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QVERIFY(!device.isSequential());
        QCOMPARE(device.size(), 5000);
    }

    void sizeOfASequentialDeviceIsWhatCanBeRead()
    {
        RecordingDevice inner(numbered(5000));
        inner.sequential = true;
        SBufferedDevice device(&inner, kSmallest);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QVERIFY(device.isSequential());
        QCOMPARE(device.size(), 5000);
        QCOMPARE(device.read(24).size(), 24);
        QCOMPARE(device.bytesAvailable(), (5000 - kSmallest) + (kSmallest - 24));
        QCOMPARE(device.size(), 5000 - 24);
    }

    void isNotAtEndBeforeBothAre()
    {
        RecordingDevice inner("abc");
        SBufferedDevice device(&inner);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QVERIFY(!device.atEnd());
        QCOMPARE(device.read(1), "a"_ba);
        QVERIFY(inner.atEnd());
        QVERIFY(!device.atEnd());
        QCOMPARE(device.read(2), "bc"_ba);
        QVERIFY(device.atEnd());
    }

    void isNotAtEndBeforeTheUnderlyingDeviceSaysSo()
    {
        EndlessDevice inner;
        SBufferedDevice device(&inner);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.bytesAvailable(), 0);
        QVERIFY(!device.atEnd());
    }

    void byteThatWasPutBackCounts()
    {
        RecordingDevice inner("abc");
        SBufferedDevice device(&inner);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.read(3), "abc"_ba);
        QVERIFY(device.atEnd());
        QVERIFY(!device.canReadLine());
        device.ungetChar('\n');
        QVERIFY(!device.atEnd());
        QVERIFY(device.canReadLine());
        QCOMPARE(device.readLine(), "\n"_ba);
        QVERIFY(device.atEnd());
    }

    void lineOfTheUnderlyingDeviceCounts()
    {
        RecordingDevice inner("abc");
        SBufferedDevice device(&inner);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QVERIFY(!device.canReadLine());
        inner.line = true;
        QVERIFY(device.canReadLine());
    }

    void passesOnReadyRead()
    {
        QBuffer buffer;
        SBufferedDevice device(&buffer);
        QSignalSpy ready(&device, &QIODevice::readyRead);
        Q_EMIT buffer.readyRead();
        QCOMPARE(ready.count(), 1);
    }

    // Closing

    void closeFlushesAndClosesBoth()
    {
        RecordingDevice target;
        SBufferedDevice device(&target);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QCOMPARE(device.write("abc"), 3);
        QSignalSpy closing(&device, &QIODevice::aboutToClose);
        connect(&device, &QIODevice::aboutToClose, &target, [&] {
            QVERIFY(device.isOpen());
            QVERIFY(target.isOpen());
            QCOMPARE(target.bytes, "abc"_ba);
        });
        device.close();
        QVERIFY(!device.isOpen());
        QVERIFY(!target.isOpen());
        QCOMPARE(target.bytes, "abc"_ba);
        QCOMPARE(closing.count(), 1);
        device.close();
        QCOMPARE(closing.count(), 1);
    }

    void destructorCloses()
    {
        RecordingDevice target;
        {
            SBufferedDevice device(&target);
            QVERIFY(device.open(QIODevice::WriteOnly));
            QCOMPARE(device.write("abc"), 3);
        }
        QVERIFY(!target.isOpen());
        QCOMPARE(target.bytes, "abc"_ba);
    }

    void closesWithTheUnderlyingDevice()
    {
        RecordingDevice target;
        SBufferedDevice device(&target);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QCOMPARE(device.write("abc"), 3);
        QSignalSpy closing(&device, &QIODevice::aboutToClose);
        target.close();
        QVERIFY(!device.isOpen());
        QCOMPARE(target.bytes, "abc"_ba);
        QCOMPARE(closing.count(), 1);
    }

    // A file empties its own buffer before it tells that it closes.
    void fileThatIsClosedGetsWhatWasWritten()
    {
        const QTemporaryDir folder;
        QFile file(folder.filePath(u"file"_s));
        SBufferedDevice device(&file);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QCOMPARE(device.write("abc"), 3);
        file.close();
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), "abc"_ba);
    }

    // A text stream hands on what it holds when the device tells that it closes.
    void bytesWrittenAtAboutToCloseGoOut_data()
    {
        QTest::addColumn<bool>("byItself");
        QTest::newRow("closed by itself") << true;
        QTest::newRow("closed with the underlying device") << false;
    }

    void bytesWrittenAtAboutToCloseGoOut()
    {
        QFETCH(bool, byItself);
        RecordingDevice target;
        SBufferedDevice device(&target);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QSignalSpy closing(&device, &QIODevice::aboutToClose);
        QTextStream stream(&device);
        stream << u"abc"_s;
        if (byItself)
            device.close();
        else
            target.close();
        QVERIFY(!device.isOpen());
        QCOMPARE(target.bytes, "abc"_ba);
        QCOMPARE(closing.count(), 1);
    }

    void closingTheUnderlyingDeviceOfAClosedOneDoesNothing()
    {
        RecordingDevice target;
        QVERIFY(target.open(QIODevice::WriteOnly));
        SBufferedDevice device(&target);
        QSignalSpy closing(&device, &QIODevice::aboutToClose);
        target.close();
        QCOMPARE(closing.count(), 0);
    }

    void readAheadIsGoneAfterClose()
    {
        RecordingDevice source(numbered(5000));
        SBufferedDevice device(&source, kSmallest);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.read(10).size(), 10);
        device.close();
        QCOMPARE(device.bytesAvailable(), 5000 + 5000);
    }

    // A larger request than twice the limit would wait forever.
    void requestsStayWithinTheSpeedLimitOfTheUnderlyingDevice()
    {
        RecordingDevice slow;
        slow.sequential = true;
        slow.setProperty("readBandwidth", 50);
        slow.setProperty("writeBandwidth", 70);
        SBufferedDevice device(&slow);
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
        RecordingDevice target;
        target.failsToWrite = true;
        SBufferedDevice device(&target);
        QVERIFY(device.open(QIODevice::WriteOnly));
        target.setReason(u"the disk is full"_s);
        QCOMPARE(device.write("abc"), 3);
        QVERIFY(!device.flush());
        QCOMPARE(device.errorString(), u"the disk is full"_s);
    }

    void flushThatFailsWithinCloseIsNotReported()
    {
        RecordingDevice target;
        target.failsToWrite = true;
        SBufferedDevice device(&target);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QCOMPARE(device.write("abc"), 3);
        device.close();
        QVERIFY(!device.isOpen());
        QVERIFY(!target.isOpen());
        QCOMPARE(device.bytesToWrite(), 0);
    }

    void closeDropsWhatAClosedDeviceDidNotTake()
    {
        RecordingDevice target;
        SBufferedDevice device(&target);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QCOMPARE(device.write("abc"), 3);
        // Closed without a word.
        target.blockSignals(true);
        target.close();
        target.blockSignals(false);
        device.close();
        QCOMPARE(device.bytesToWrite(), 0);
        QVERIFY(device.open(QIODevice::WriteOnly));
        device.close();
        QCOMPARE(target.bytes, QByteArray());
    }

    void closedDeviceHasNoBuffers()
    {
        RecordingDevice target;
        auto source = std::make_unique<RecordingDevice>("abc");
        Device device(source.get());
        QVERIFY(device.open(QIODevice::ReadWrite));
        device.close();
        source.reset();
        QVERIFY(device.flush());
        QVERIFY(device.atEnd());
        QCOMPARE(device.bytesAvailable(), 0);
        QCOMPARE(device.bytesToWrite(), 0);
        device.discart(1);
        device.setBufferSize(5000);
        QVERIFY(!device.open(QIODevice::ReadOnly));
    }

    void fileThatIsDestroyedGetsWhatWasWritten()
    {
        const QTemporaryDir folder;
        auto file = std::make_unique<QFile>(folder.filePath(u"file"_s));
        SBufferedDevice device(file.get());
        QVERIFY(device.open(QIODevice::WriteOnly));
        QCOMPARE(device.write("abc"), 3);
        file.reset();
        QVERIFY(!device.isOpen());
        QFile written(folder.filePath(u"file"_s));
        QVERIFY(written.open(QIODevice::ReadOnly));
        QCOMPARE(written.readAll(), "abc"_ba);
    }

    // One that does not close itself first, as most do.
    void outlivesTheUnderlyingDevice()
    {
        auto inner = std::make_unique<RecordingDevice>(numbered(5000));
        SBufferedDevice device(inner.get(), kSmallest);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QCOMPARE(device.read(10).size(), 10);
        inner.reset();
        QVERIFY(device.isOpen());
        // What was read ahead is there still.
        QCOMPARE(device.read(5000).size(), kSmallest - 10);
        QCOMPARE(device.read(1), QByteArray());
        QVERIFY(device.atEnd());
        QCOMPARE(device.write("abc"), -1);
        QVERIFY(!device.seek(0));
        device.close();
        QVERIFY(!device.isOpen());
    }

    void writtenBytesOfADestroyedDeviceAreAFailure()
    {
        auto inner = std::make_unique<RecordingDevice>();
        SBufferedDevice device(inner.get());
        QVERIFY(device.open(QIODevice::ReadWrite));
        QCOMPARE(device.write("abc"), 3);
        inner.reset();
        QVERIFY(!device.flush());
        char byte;
        QCOMPARE(device.read(&byte, 1), -1);
        device.close();
        QVERIFY(!device.isOpen());
    }

    // The size of the buffers

    void newSizeFlushesAndDropsTheReadAhead()
    {
        RecordingDevice inner(numbered(5000));
        SBufferedDevice device(&inner, kSmallest);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QCOMPARE(device.write("abcd"), 4);
        device.setBufferSize(100);
        QCOMPARE(inner.bytes.left(8), "abcd0001"_ba);
        QCOMPARE(device.read(200).size(), 100);
        QVERIFY(device.seek(10));
        QCOMPARE(device.read(10).size(), 10);
        device.setBufferSize(200);
        QCOMPARE(device.bytesAvailable(), (5000 - 20) + (5000 - 110));
        QVERIFY(device.seek(20));
        QCOMPARE(device.read(300), inner.bytes.mid(20, 200));
        QCOMPARE(inner.reads, (QList<qint64>{100, 100, 200}));
    }

    void newSizeOfNoneMovesNothing_data()
    {
        QTest::addColumn<int>("size");
        QTest::newRow("0") << 0;
        QTest::newRow("negative") << -1;
        QTest::newRow("smallest") << std::numeric_limits<int>::min();
    }

    void newSizeOfNoneMovesNothing()
    {
        QFETCH(int, size);
        RecordingDevice inner("abc");
        SBufferedDevice device(&inner);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QCOMPARE(device.write("X"), 1);
        device.setBufferSize(size);
        QCOMPARE(device.bufferSize(), 0);
        QCOMPARE(inner.bytes, "Xbc"_ba);
        char byte;
        QCOMPARE(device.read(&byte, 1), 0);
        QCOMPARE(device.write("Y"), 0);
        QVERIFY(device.flush());
        QVERIFY(device.seek(1));
        device.setBufferSize(2);
        QCOMPARE(device.read(2), "bc"_ba);
    }

#ifdef Q_OS_LINUX
    void buffersThatCannotBeHadKeepTheirSize()
    {
        const QByteArray bytes = numbered(5000);
        RecordingDevice inner(bytes);
        SBufferedDevice device(&inner, kSmallest);
        QVERIFY(device.open(QIODevice::ReadWrite));
        {
            const AddressSpaceLimit limit(1 << 30);
            QVERIFY(limit.isValid());
            device.setBufferSize(std::numeric_limits<int>::max());
        }
        QCOMPARE(device.bufferSize(), std::numeric_limits<int>::max());
        QCOMPARE(device.read(5000), bytes.left(kSmallest));
        QVERIFY(device.seek(0));
        QCOMPARE(device.write(QByteArray(5000, 'x')), kSmallest);
        QVERIFY(device.flush());
        QCOMPARE(inner.bytes, QByteArray(kSmallest, 'x') + bytes.mid(kSmallest));
    }
#endif

    void sizeOfOneByteWorks()
    {
        const QByteArray bytes = numbered(100);
        RecordingDevice inner;
        SBufferedDevice device(&inner);
        device.setBufferSize(1);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QVERIFY(writeFully(&device, bytes));
        QVERIFY(device.seek(0));
        QCOMPARE(readFully(&device), bytes);
    }

    void buffersExistForOpenDirectionsOnly()
    {
        RecordingDevice inner(numbered(100));
        Device device(&inner);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QCOMPARE(device.write("abcd"), 4);
        device._setOpenMode(QIODevice::ReadOnly);
        QCOMPARE(device.openMode(), QIODevice::ReadOnly | QIODevice::Unbuffered);
        // The buffer went, and what was in it.
        QCOMPARE(device.bytesToWrite(), 0);
        QCOMPARE(device.writeData("abcd", 4), 0);
        QCOMPARE(device.read(4), "0000"_ba);
        device._setOpenMode(QIODevice::WriteOnly);
        QCOMPARE(device.bytesAvailable(), 92);
        QVERIFY(inner.seek(0));
        char bytes[4];
        QCOMPARE(device.readData(bytes, 4), 0);
        QCOMPARE(device.write("abcd"), 4);
        device._setOpenMode(QIODevice::NotOpen);
        QVERIFY(!device.isOpen());
        QCOMPARE(device.bytesToWrite(), 0);
    }

    void resizeEmptiesTheBuffers()
    {
        RecordingDevice inner(numbered(5000));
        Device device(&inner, kSmallest);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QCOMPARE(device.read(4), "0000"_ba);
        device.bufferResize();
        QCOMPARE(device.bytesAvailable(), (5000 - 4) + (5000 - kSmallest));
    }

    void dropsReadAheadBytes_data()
    {
        QTest::addColumn<qint64>("count");
        QTest::addColumn<qint64>("next");
        QTest::newRow("none") << qint64(0) << qint64(4);
        QTest::newRow("some") << qint64(96) << qint64(100);
        QTest::newRow("one less than the size") << qint64(kSmallest - 1) << qint64(kSmallest);
        QTest::newRow("the size") << qint64(kSmallest) << qint64(kSmallest);
        QTest::newRow("negative") << qint64(-1) << qint64(kSmallest);
        QTest::newRow("largest") << std::numeric_limits<qint64>::max() << qint64(kSmallest);
    }

    void dropsReadAheadBytes()
    {
        QFETCH(qint64, count);
        QFETCH(qint64, next);
        const QByteArray bytes = numbered(5000);
        RecordingDevice inner(bytes);
        Device device(&inner, kSmallest);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.read(4), "0000"_ba);
        device.discart(count);
        QCOMPARE(device.read(4), bytes.mid(next, 4));
    }

    // Over other devices

    void readsThroughALimitBelowItsBuffer()
    {
        RecordingDevice source(numbered(100));
        SBandwidthDevice slow(&source);
        slow.setReadBandwidth(50000);
        SBufferedDevice device(&slow);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(readFully(&device), numbered(100));
    }

    void limitAboveItReadsNoMoreThanTheCaller()
    {
        RecordingDevice source(numbered(5000));
        SBufferedDevice buffered(&source);
        SBandwidthDevice slow(&buffered);
        slow.setReadBandwidth(16);
        QVERIFY(slow.open(QIODevice::ReadOnly));
        char byte;
        QVERIFY(slow.getChar(&byte));
        QCOMPARE(byte, '0');
    }

    void socketBytesArriveThroughTheDevice()
    {
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress::LocalHost));
        QTcpSocket client;
        client.connectToHost(server.serverAddress(), server.serverPort());
        QVERIFY(server.waitForNewConnection(10000));
        const std::unique_ptr<QTcpSocket> peer(server.nextPendingConnection());
        QVERIFY(client.waitForConnected(10000));

        SBufferedDevice device(&client);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QVERIFY(device.isSequential());
        QSignalSpy ready(&device, &QIODevice::readyRead);
        peer->write("hello\nrest");
        QTRY_COMPARE(device.bytesAvailable(), 10);
        QVERIFY(ready.count() > 0);
        QCOMPARE(device.size(), 10);
        QCOMPARE(device.readLine(), "hello\n"_ba);
        QCOMPARE(device.readAll(), "rest"_ba);
        QVERIFY(device.write("bye") == 3);
        QCOMPARE(peer->bytesAvailable(), 0);
        QVERIFY(device.flush());
        QTRY_COMPARE(peer->bytesAvailable(), 3);
        peer->close();
        QTRY_VERIFY(!client.isOpen() || client.state() == QAbstractSocket::UnconnectedState);
        QCOMPARE(device.read(1), QByteArray());
    }
};

QTEST_GUILESS_MAIN(tst_SBufferedDevice)
#include "tst_sbuffereddevice.moc"
