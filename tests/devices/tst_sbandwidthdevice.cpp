// SPDX-License-Identifier: MIT
#include <brixlib/devices/sbandwidthdevice.h>

#include <shared/recordingdevice.h>

#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <limits>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

//! Counts what is asked of it, and gives as much as is asked.
class Source : public QIODevice
{
public:
    // Unbuffered, so that each request is seen as it was made.
    bool open(OpenMode mode) override { return QIODevice::open(mode | Unbuffered); }
    bool isSequential() const override { return sequential; }
    qint64 size() const override { return sequential ? 0 : 1 << 20; }
    qint64 bytesAvailable() const override { return 11; }
    qint64 bytesToWrite() const override { return 22; }
    bool canReadLine() const override { return line; }

    bool sequential = true;
    bool line = false;
    bool broken = false;
    QList<qint64> reads;
    QList<qint64> writes;

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        reads.append(maxSize);
        if (broken)
            return -1;
        std::fill_n(data, maxSize, 'x');
        return maxSize;
    }

    qint64 writeData(const char *, qint64 size) override
    {
        writes.append(size);
        return broken ? -1 : size;
    }
};

//! Opens what is protected.
class Device : public SBandwidthDevice
{
public:
    using SBandwidthDevice::flush;
    using SBandwidthDevice::SBandwidthDevice;
};

void addDirections()
{
    QTest::addColumn<bool>("reading");
    QTest::newRow("reading") << true;
    QTest::newRow("writing") << false;
}

void limitBothTo(SBandwidthDevice *device, qint64 bytesPerSecond)
{
    device->setReadBandwidth(bytesPerSecond);
    device->setWriteBandwidth(bytesPerSecond);
}

qint64 transfer(SBandwidthDevice *device, bool reading, qsizetype size)
{
    QByteArray block(size, 'x');
    return reading ? device->read(block.data(), size) : device->write(block);
}

} // namespace

class tst_SBandwidthDevice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshDeviceIsClosedAndUnlimited()
    {
        QBuffer buffer;
        SBandwidthDevice device(&buffer);
        QVERIFY(!device.isOpen());
        QCOMPARE(device.readBandwidth(), 0);
        QCOMPARE(device.writeBandwidth(), 0);
        device.setReadBandwidth(1000);
        device.setWriteBandwidth(2000);
        QCOMPARE(device.readBandwidth(), 1000);
        QCOMPARE(device.writeBandwidth(), 2000);
    }

    void parentOwnsTheDevice()
    {
        QObject parent;
        QBuffer buffer;
        QPointer<SBandwidthDevice> first(new SBandwidthDevice(&buffer, &parent));
        QPointer<SBandwidthDevice> second(new SBandwidthDevice(&buffer, true, &parent));
        QCOMPARE(first->parent(), &parent);
        QCOMPARE(second->parent(), &parent);
    }

    void opensTheUnderlyingDevice()
    {
        QBuffer buffer;
        SBandwidthDevice device(&buffer);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QCOMPARE(buffer.openMode() & QIODevice::ReadWrite, QIODevice::ReadWrite);
        QVERIFY(device.isReadable());
        QVERIFY(device.isWritable());
    }

    void ownModeIsAlwaysUnbuffered()
    {
        const QTemporaryDir folder;
        QFile file(folder.filePath(u"file"_s));
        SBandwidthDevice device(&file);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QCOMPARE(device.openMode(), QIODevice::WriteOnly | QIODevice::Unbuffered);
        QCOMPARE(file.openMode(), QIODevice::WriteOnly);
    }

    void failsWhenTheUnderlyingDeviceDoesNotOpen()
    {
        QFile file(u"/nonexistent/file"_s);
        SBandwidthDevice device(&file);
        QVERIFY(!device.open(QIODevice::ReadOnly));
        QVERIFY(!device.isOpen());
    }

    void failsWithoutAnUnderlyingDevice()
    {
        SBandwidthDevice device(nullptr);
        QVERIFY(!device.open(QIODevice::ReadOnly));
        QCOMPARE(device.size(), 0);
        QCOMPARE(device.bytesAvailable(), 0);
        QVERIFY(!device.canReadLine());
        QVERIFY(!device.seek(0));
    }

    void openDeviceThatCannotBeWritten_data()
    {
        QTest::addColumn<QIODevice::OpenMode>("mode");
        QTest::addColumn<bool>("opens");
        using Mode = QIODevice::OpenMode;
        QTest::newRow("read") << Mode(QIODevice::ReadOnly) << true;
        QTest::newRow("read, unbuffered")
            << Mode(QIODevice::ReadOnly | QIODevice::Unbuffered) << true;
        QTest::newRow("write") << Mode(QIODevice::WriteOnly) << false;
        QTest::newRow("read and write") << Mode(QIODevice::ReadWrite) << false;
    }

    void openDeviceThatCannotBeWritten()
    {
        QFETCH(QIODevice::OpenMode, mode);
        QFETCH(bool, opens);
        QByteArray bytes("abc");
        QBuffer buffer(&bytes);
        QVERIFY(buffer.open(QIODevice::ReadOnly));
        SBandwidthDevice device(&buffer);
        QCOMPARE(device.open(mode), opens);
        QCOMPARE(device.isOpen(), opens);
    }

    void openDeviceThatCanBeWrittenMayHaveAnotherMode()
    {
        const QTemporaryDir folder;
        QFile file(folder.filePath(u"file"_s));
        QVERIFY(file.open(QIODevice::ReadWrite));
        for (const auto mode : {QIODevice::ReadOnly, QIODevice::WriteOnly}) {
            SBandwidthDevice device(&file, true);
            QVERIFY(device.open(mode));
            QCOMPARE(device.openMode(), mode | QIODevice::Unbuffered);
            QCOMPARE(file.openMode(), QIODevice::ReadWrite);
        }
    }

    void startsWhereAnOpenDeviceStands()
    {
        QByteArray bytes("abcdef");
        QBuffer buffer(&bytes);
        QVERIFY(buffer.open(QIODevice::ReadOnly));
        QVERIFY(buffer.seek(3));
        SBandwidthDevice device(&buffer);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.pos(), 3);
        QCOMPARE(device.read(10), "def"_ba);
    }

    void closeClosesTheUnderlyingDeviceOnce()
    {
        QBuffer buffer;
        SBandwidthDevice device(&buffer);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QSignalSpy closing(&device, &QIODevice::aboutToClose);
        device.close();
        QVERIFY(!device.isOpen());
        QVERIFY(!buffer.isOpen());
        QCOMPARE(closing.count(), 1);
        device.close();
        QCOMPARE(closing.count(), 1);
    }

    void closeTellsThenClosesItselfThenTheUnderlyingDevice()
    {
        QBuffer buffer;
        QIODevice *wrapper = nullptr;
        QList<bool> open;
        // Connected first, to see the wrapper before it hears of this.
        connect(&buffer, &QIODevice::aboutToClose, this, [&] { open << wrapper->isOpen(); });
        SBandwidthDevice device(&buffer);
        wrapper = &device;
        connect(&device, &QIODevice::aboutToClose, this,
                [&] { open << device.isOpen() << buffer.isOpen(); });
        QVERIFY(device.open(QIODevice::ReadOnly));
        device.close();
        QCOMPARE(open, (QList<bool>{true, true, false}));
    }

    void closeLeavesTheUnderlyingDeviceOpen()
    {
        QBuffer buffer;
        SBandwidthDevice device(&buffer, true);
        QVERIFY(device.open(QIODevice::ReadOnly));
        device.close();
        QVERIFY(!device.isOpen());
        QVERIFY(buffer.isOpen());
    }

    void destructorCloses()
    {
        QBuffer buffer;
        {
            SBandwidthDevice device(&buffer);
            QVERIFY(device.open(QIODevice::ReadOnly));
        }
        QVERIFY(!buffer.isOpen());
    }

    void destructorLeavesTheUnderlyingDeviceOpen()
    {
        QBuffer buffer;
        {
            SBandwidthDevice device(&buffer, true);
            QVERIFY(device.open(QIODevice::ReadOnly));
        }
        QVERIFY(buffer.isOpen());
    }

    void opensAgainAtTheStart()
    {
        QByteArray bytes("abcdef");
        QBuffer buffer(&bytes);
        SBandwidthDevice device(&buffer);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.read(3), "abc"_ba);
        device.close();
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.pos(), 0);
        QCOMPARE(device.read(3), "abc"_ba);
    }

    void closesWithTheUnderlyingDevice()
    {
        QBuffer buffer;
        SBandwidthDevice device(&buffer);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QSignalSpy closing(&device, &QIODevice::aboutToClose);
        buffer.close();
        QVERIFY(!device.isOpen());
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
        SBandwidthDevice device(&file);
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

    void writesInModesThatImplyWriting_data()
    {
        QTest::addColumn<QIODevice::OpenMode>("mode");
        QTest::addColumn<bool>("openBefore");
        QTest::addColumn<QByteArray>("content");
        using Mode = QIODevice::OpenMode;
        QTest::newRow("append") << Mode(QIODevice::Append) << false << "older bytes"_ba;
        QTest::newRow("append to an open one")
            << Mode(QIODevice::Append) << true << "older bytes"_ba;
        QTest::newRow("truncate") << Mode(QIODevice::Truncate) << false << "bytes"_ba;
        QTest::newRow("truncate an open one") << Mode(QIODevice::Truncate) << true << "bytes"_ba;
    }

    void writesInModesThatImplyWriting()
    {
        QFETCH(QIODevice::OpenMode, mode);
        QFETCH(bool, openBefore);
        QFETCH(QByteArray, content);
        QByteArray bytes("older ");
        QBuffer buffer(&bytes);
        if (openBefore)
            QVERIFY(buffer.open(mode));
        SBandwidthDevice device(&buffer);
        QVERIFY(device.open(mode));
        QCOMPARE(device.openMode(), mode | QIODevice::WriteOnly | QIODevice::Unbuffered);
        QCOMPARE(device.write("bytes"), 5);
        device.close();
        QCOMPARE(bytes, content);
    }

    void rejectsModeThatNeitherReadsNorWrites_data()
    {
        QTest::addColumn<QIODevice::OpenMode>("mode");
        using Mode = QIODevice::OpenMode;
        QTest::newRow("nothing") << Mode(QIODevice::NotOpen);
        QTest::newRow("text") << Mode(QIODevice::Text);
    }

    void rejectsModeThatNeitherReadsNorWrites()
    {
        QFETCH(QIODevice::OpenMode, mode);
        QBuffer buffer;
        QVERIFY(buffer.open(QIODevice::ReadWrite));
        SBandwidthDevice device(&buffer);
        QVERIFY(!device.open(mode));
        QVERIFY(!device.isOpen());
    }

    // A larger request than twice the limit would wait forever.
    void requestsStayWithinTheSpeedLimitOfTheUnderlyingDevice()
    {
        RecordingDevice slow;
        slow.sequential = true;
        slow.setProperty("readBandwidth", 50);
        slow.setProperty("writeBandwidth", 70);
        SBandwidthDevice device(&slow);
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
        SBandwidthDevice device(&inner);
        QVERIFY(device.open(QIODevice::ReadWrite));
        char byte = 0;
        inner.setReason(u"the disk is gone"_s);
        QCOMPARE(device.read(&byte, 1), -1);
        QCOMPARE(device.errorString(), u"the disk is gone"_s);
        inner.setReason(u"the disk is full"_s);
        QCOMPARE(device.write("x"), -1);
        QCOMPARE(device.errorString(), u"the disk is full"_s);
    }

    void outlivesTheUnderlyingDevice()
    {
        auto source = std::make_unique<Source>();
        SBandwidthDevice device(source.get());
        QVERIFY(device.open(QIODevice::ReadWrite));
        source.reset();
        QCOMPARE(device.read(1), QByteArray());
        QCOMPARE(device.write("a"), -1);
        QCOMPARE(device.bytesToWrite(), 0);
        device.close();
        QVERIFY(!device.isOpen());
        QVERIFY(!device.open(QIODevice::ReadOnly));
    }

    void passesOnReadyRead()
    {
        QBuffer buffer;
        SBandwidthDevice device(&buffer);
        QSignalSpy ready(&device, &QIODevice::readyRead);
        Q_EMIT buffer.readyRead();
        QCOMPARE(ready.count(), 1);
    }

    void forwardsWhatTheUnderlyingDeviceIs()
    {
        Source source;
        SBandwidthDevice device(&source);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QVERIFY(device.isSequential());
        QCOMPARE(device.bytesAvailable(), 11);
        QCOMPARE(device.bytesToWrite(), 22);
        QVERIFY(!device.canReadLine());
        source.line = true;
        QVERIFY(device.canReadLine());
    }

    // A remote file is as long as its server says.
    void aClaimOfTheLargestSizeStaysInRange()
    {
        RecordingDevice source("abcdef");
        source.claimedSize = std::numeric_limits<qint64>::max();
        SBandwidthDevice device(&source);
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
        SBandwidthDevice device(&inner);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QVERIFY(!device.canReadLine());
        QCOMPARE(device.peek(3), "a\nb"_ba);
        QCOMPARE(device.bytesAvailable(), 3 + 4);
        QVERIFY(device.canReadLine());
    }

    void countsOfARandomAccessDeviceAdd()
    {
        Source source;
        source.sequential = false;
        SBandwidthDevice device(&source);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QVERIFY(!device.isSequential());
        QCOMPARE(device.size(), 1 << 20);
        QCOMPARE(device.bytesAvailable(), (1 << 20) + 11);
    }

    void seeksBothDevices()
    {
        QByteArray bytes("abcdef");
        QBuffer buffer(&bytes);
        SBandwidthDevice device(&buffer);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QVERIFY(device.seek(4));
        QCOMPARE(device.pos(), 4);
        QCOMPARE(buffer.pos(), 4);
        QCOMPARE(device.read(1), "e"_ba);
        QCOMPARE(device.write("F"), 1);
        QCOMPARE(bytes, "abcdeF"_ba);
        QTest::ignoreMessage(QtWarningMsg, "QIODevice::seek: Invalid pos: -1");
        QVERIFY(!device.seek(-1));
    }

    void failedSeekLeavesTheUnderlyingDeviceWhereItStands()
    {
        RecordingDevice inner("abcdef");
        SBandwidthDevice device(&inner);
        QVERIFY(device.open(QIODevice::ReadOnly));
        inner.seeks.clear();
        QTest::ignoreMessage(QtWarningMsg, "QIODevice::seek: Invalid pos: -1");
        QVERIFY(!device.seek(-1));
        QVERIFY(inner.seeks.isEmpty());
        inner.seekable = false;
        QVERIFY(!device.seek(1));
    }

    void asksForNoMoreThanTheCaller()
    {
        Source source;
        SBandwidthDevice device(&source);
        device.setReadBandwidth(16);
        QVERIFY(device.open(QIODevice::ReadOnly));
        char byte;
        QVERIFY(device.getChar(&byte));
        QCOMPARE(source.reads, QList<qint64>{1});
    }

    void unlimitedDeviceDoesNotSleep()
    {
        Source source;
        SBandwidthDevice device(&source);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QByteArray block(1000, 'x');
        QElapsedTimer clock;
        clock.start();
        for (int i = 0; i < 1000; ++i) {
            QCOMPARE(device.read(block.data(), block.size()), block.size());
            QCOMPARE(device.write(block), block.size());
        }
        // 2000 sleeps of a millisecond would take two seconds at the least.
        QVERIFY2(clock.elapsed() < 1500, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(source.reads.size(), 1000);
    }

    void emptyRequestsNeverWait()
    {
        Source source;
        SBandwidthDevice device(&source);
        device.setReadBandwidth(-1);
        device.setWriteBandwidth(-1);
        QVERIFY(device.open(QIODevice::ReadWrite));
        char byte;
        QCOMPARE(device.read(&byte, 0), 0);
        QCOMPARE(device.write(&byte, 0), 0);
        QVERIFY(source.reads.isEmpty());
    }

    void requestOfTwiceTheLimitGoesInPieces_data() { addDirections(); }

    void requestOfTwiceTheLimitGoesInPieces()
    {
        QFETCH(bool, reading);
        Source source;
        SBandwidthDevice device(&source);
        limitBothTo(&device, 1000);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QCOMPARE(transfer(&device, reading, 2000), 1000);
        QCOMPARE(reading ? source.reads : source.writes, QList<qint64>{1000});
    }

    void pieceIsHalfOfTheRequestAtTheLeast_data() { addDirections(); }

    // 400 of 1000 bytes have gone: half of the next 1000 may go after 800 ms, a first byte after
    // 401.
    void pieceIsHalfOfTheRequestAtTheLeast()
    {
        QFETCH(bool, reading);
        Source source;
        SBandwidthDevice device(&source);
        limitBothTo(&device, 1000);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QCOMPARE(transfer(&device, reading, 400), 400);
        // Within the same millisecond the rest of the limit would be free.
        QThread::msleep(1);
        const qint64 piece = transfer(&device, reading, 1000);
        QVERIFY2(piece >= 500, qPrintable(QString::number(piece)));
    }

    void limitHoldsTheCallerBack_data() { addDirections(); }

    // The first kilobyte goes at once; the second waits until the first has aged out.
    void limitHoldsTheCallerBack()
    {
        QFETCH(bool, reading);
        Source source;
        SBandwidthDevice device(&source);
        limitBothTo(&device, 1000);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(transfer(&device, reading, 1000), 1000);
        QCOMPARE(transfer(&device, reading, 1000), 1000);
        QVERIFY2(clock.elapsed() >= 999, qPrintable(QString::number(clock.elapsed())));
    }

    void directionsDoNotShareALimit()
    {
        Source source;
        SBandwidthDevice device(&source);
        device.setReadBandwidth(1000);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QByteArray block(1000, 'x');
        QCOMPARE(device.read(block.data(), block.size()), 1000);
        QElapsedTimer clock;
        clock.start();
        for (int i = 0; i < 10; ++i)
            QCOMPARE(device.write(block), 1000);
        QVERIFY2(clock.elapsed() < 900, qPrintable(QString::number(clock.elapsed())));
    }

    void failureOfTheUnderlyingDeviceIsTheResult()
    {
        Source source;
        source.broken = true;
        SBandwidthDevice device(&source);
        device.setReadBandwidth(1000);
        device.setWriteBandwidth(1000);
        QVERIFY(device.open(QIODevice::ReadWrite));
        char byte = 0;
        // A failed transfer counts nothing, so neither of many waits.
        for (int i = 0; i < 100; ++i) {
            QCOMPARE(device.read(&byte, 1), -1);
            QCOMPARE(device.write(&byte, 1), -1);
        }
        // Nor does it make room for more than the limit.
        source.broken = false;
        QCOMPARE(transfer(&device, true, 2000), 1000);
        QCOMPARE(transfer(&device, false, 2000), 1000);
    }

    void endOfTheUnderlyingDeviceIsTheEnd()
    {
        QByteArray bytes("abc");
        QBuffer buffer(&bytes);
        SBandwidthDevice device(&buffer);
        device.setReadBandwidth(1000);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.readAll(), "abc"_ba);
        QVERIFY(device.atEnd());
        QCOMPARE(device.read(1), QByteArray());
    }

#ifdef Q_OS_LINUX
    void fullDiskIsReportedByFlush()
    {
        QFile file(u"/dev/full"_s);
        Device device(&file);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QCOMPARE(device.write("abc"), 3);
        QVERIFY(!device.flush());
    }
#endif

    void flushOfADeviceWithoutABufferIsTrue()
    {
        QBuffer buffer;
        Device device(&buffer);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QVERIFY(device.flush());
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

        SBandwidthDevice device(&client);
        device.setReadBandwidth(100000);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QVERIFY(device.isSequential());
        QSignalSpy ready(&device, &QIODevice::readyRead);
        peer->write("hello");
        QTRY_COMPARE(device.bytesAvailable(), 5);
        QVERIFY(ready.count() > 0);
        QCOMPARE(device.readAll(), "hello"_ba);
        device.write("bye");
        QTRY_COMPARE(peer->bytesAvailable(), 3);
    }
};

QTEST_GUILESS_MAIN(tst_SBandwidthDevice)
#include "tst_sbandwidthdevice.moc"
