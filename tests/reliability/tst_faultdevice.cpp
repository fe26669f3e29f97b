// SPDX-License-Identifier: MIT
#include <shared/faultdevice.h>

#include <QtCore/QBuffer>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

#include <thread>

using namespace std::chrono_literals;

namespace {

//! Ten letters to read from, or an empty place to write to, under a plan.
struct Fixture
{
    explicit Fixture(const DevicePlan &plan, QIODevice::OpenMode mode)
        : device(&under, plan)
    {
        if (mode & QIODevice::ReadOnly)
            under.setData("abcdefghij");
        opened = device.open(mode);
    }

    QBuffer under;
    FaultDevice device;
    bool opened = false;
};

struct Reader : Fixture
{
    explicit Reader(const DevicePlan &plan = {})
        : Fixture(plan, QIODevice::ReadOnly)
    {
    }
};

struct Writer : Fixture
{
    explicit Writer(const DevicePlan &plan = {})
        : Fixture(plan, QIODevice::WriteOnly)
    {
    }
};

} // namespace

class tst_FaultDevice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void withoutAPlanItIsTheOtherDevice()
    {
        Reader reader;
        QVERIFY(reader.opened);
        QVERIFY(!reader.device.isSequential());
        QCOMPARE(reader.device.size(), 10);
        QCOMPARE(reader.device.bytesAvailable(), 10);
        QCOMPARE(reader.device.read(4), "abcd");
        QCOMPARE(reader.device.pos(), 4);
        QCOMPARE(reader.under.pos(), 4);
        QVERIFY(reader.device.seek(8));
        QCOMPARE(reader.device.read(5), "ij");
        QVERIFY(reader.device.atEnd());
        QCOMPARE(reader.device.bytesRead(), 6);

        Writer writer;
        QVERIFY(writer.opened);
        QCOMPARE(writer.device.write("hello"), 5);
        QCOMPARE(writer.under.data(), "hello");
        QCOMPARE(writer.device.bytesTaken(), 5);
        writer.device.close();
        QVERIFY(!writer.device.closeFailed());
    }

    void opensAndClosesTheOtherWithItself()
    {
        QBuffer under;
        FaultDevice device(&under);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QVERIFY(under.isOpen());
        device.close();
        QVERIFY(!under.isOpen());
    }

    void leavesOpenWhatWasOpen()
    {
        QByteArray bytes("abcdef");
        QBuffer under(&bytes);
        QVERIFY(under.open(QIODevice::ReadOnly));
        QVERIFY(under.seek(2));
        FaultDevice device(&under);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.pos(), 2);
        QCOMPARE(device.read(2), "cd");
        device.close();
        QVERIFY(under.isOpen());
    }

    void failsToOpen()
    {
        const Reader reader({.failsToOpen = true});
        QVERIFY(!reader.opened);
        QVERIFY(!reader.under.isOpen());
        QCOMPARE(reader.device.errorString(), QStringLiteral("Permission denied"));
    }

    void failureOfTheOtherToOpenIsPassedOn()
    {
        QFile missing(QStringLiteral("/nowhere/file"));
        FaultDevice device(&missing);
        QVERIFY(!device.open(QIODevice::ReadOnly));
        QCOMPARE(device.errorString(), missing.errorString());
        QVERIFY(!device.isOpen());
    }

    void readsAreShort()
    {
        Reader reader({.read = {.pieceBytes = 3}});
        QCOMPARE(reader.device.read(10), "abc");
        QCOMPARE(reader.device.read(2), "de");
        QCOMPARE(reader.device.read(10), "fgh");
        QCOMPARE(reader.device.read(10), "ij");
    }

    void writesAreShort()
    {
        Writer writer({.write = {.pieceBytes = 3}});
        QCOMPARE(writer.device.write("hello"), 3);
        QCOMPARE(writer.device.write("lo"), 2);
        QCOMPARE(writer.under.data(), "hello");
    }

    void readsFailAfterSoManyBytes()
    {
        Reader reader({.read = {.errorAt = 4}});
        QByteArray bytes(10, 0);
        QCOMPARE(reader.device.read(bytes.data(), 10), 4);
        QCOMPARE(bytes.first(4), "abcd");
        QCOMPARE(reader.device.read(bytes.data(), 10), -1);
        QCOMPARE(reader.device.errorString(), QStringLiteral("Input/output error"));
        QVERIFY(!reader.device.atEnd());
        QCOMPARE(reader.device.read(bytes.data(), 10), -1);
    }

    void readsFailAtOnce()
    {
        Reader reader({.read = {.errorAt = 0}});
        char byte = 0;
        QCOMPARE(reader.device.read(&byte, 1), -1);
    }

    void writesFailAfterSoManyBytes()
    {
        Writer writer({.write = {.errorAt = 4}});
        QCOMPARE(writer.device.write("hello"), 4);
        QCOMPARE(writer.device.write("o"), -1);
        QCOMPARE(writer.device.errorString(), QStringLiteral("Input/output error"));
        QCOMPARE(writer.under.data(), "hell");
    }

    void readingIsNotConcernedByWhatIsPlannedForWriting()
    {
        Reader reader({.write = {.pieceBytes = 1, .errorAt = 0}, .capacity = 0});
        QCOMPARE(reader.device.read(10), "abcdefghij");
    }

    void runsFull()
    {
        Writer writer({.capacity = 7});
        QCOMPARE(writer.device.write("hello"), 5);
        QCOMPARE(writer.device.write("hello"), 2);
        QCOMPARE(writer.device.write("hello"), -1);
        QCOMPARE(writer.device.errorString(), QStringLiteral("No space left on device"));
        QCOMPARE(writer.under.data(), "hellohe");
    }

    void closeFailsAndLosesTheLastBytes()
    {
        Writer writer({.lostOnClose = 3});
        QCOMPARE(writer.device.write("hello"), 5);
        QCOMPARE(writer.device.write("w"), 1);
        QCOMPARE(writer.device.bytesTaken(), 6);
        QCOMPARE(writer.device.size(), 6);
        QVERIFY(!writer.device.closeFailed());
        writer.device.close();
        QVERIFY(writer.device.closeFailed());
        QCOMPARE(writer.device.errorString(), QStringLiteral("Input/output error"));
        QVERIFY(!writer.device.isOpen());
        QVERIFY(!writer.under.isOpen());
        QCOMPARE(writer.under.data(), "hel");
    }

    void closeMayFailWithoutALoss()
    {
        Writer writer({.lostOnClose = 0});
        QCOMPARE(writer.device.write("hello"), 5);
        writer.device.close();
        QVERIFY(writer.device.closeFailed());
        QCOMPARE(writer.under.data(), "hello");
    }

    void seekBringsDownWhatIsHeldBack()
    {
        Writer writer({.lostOnClose = 3});
        QCOMPARE(writer.device.write("hello"), 5);
        QVERIFY(writer.device.seek(0));
        QCOMPARE(writer.under.data(), "hello");
        QCOMPARE(writer.device.write("J"), 1);
        writer.device.close();
        QCOMPARE(writer.under.data(), "hello");
    }

    void stallEndsByItself()
    {
        Reader reader({.read = {.stallAt = 4}, .stallTime = 50ms});
        QCOMPARE(reader.device.read(10), "abcd");
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(reader.device.read(10), "efghij");
        QVERIFY(timer.elapsed() >= 50);
    }

    void stallEndsWhenReleased()
    {
        Writer writer({.write = {.stallAt = 2}, .stallTime = 60s});
        QElapsedTimer timer;
        timer.start();
        bool stalled = false;
        std::thread other([&] {
            stalled = writer.device.waitForStall(10s);
            writer.device.release();
        });
        QCOMPARE(writer.device.write("hello"), 2);
        QCOMPARE(writer.device.write("llo"), 3);
        other.join();
        QVERIFY(stalled);
        QVERIFY(timer.elapsed() < 30'000);
        QCOMPARE(writer.under.data(), "hello");
    }

    void stallHappensOnce()
    {
        Reader reader({.read = {.stallAt = 0}, .stallTime = 30ms});
        QCOMPARE(reader.device.read(5), "abcde");
        QVERIFY(reader.device.seek(0));
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(reader.device.read(5), "abcde");
        QVERIFY(timer.elapsed() < 30);
    }

    void nobodyStallsWithoutAPlan()
    {
        Reader reader;
        QCOMPARE(reader.device.read(10), "abcdefghij");
        QVERIFY(!reader.device.waitForStall(0ms));
    }

    void signalsOfTheOtherArePassedOn()
    {
        Writer writer;
        QSignalSpy written(&writer.device, &QIODevice::bytesWritten);
        QCOMPARE(writer.device.write("hello"), 5);
        QTRY_VERIFY(!written.isEmpty());
    }

    void endOfTheOtherIsSurvived()
    {
        auto under = std::make_unique<QBuffer>();
        FaultDevice device(under.get());
        QVERIFY(device.open(QIODevice::ReadWrite));
        under.reset();
        char byte = 0;
        QCOMPARE(device.read(&byte, 1), -1);
        QCOMPARE(device.write("x"), -1);
        QCOMPARE(device.size(), 0);
        QVERIFY(device.atEnd());
        device.close();
    }
};

QTEST_GUILESS_MAIN(tst_FaultDevice)
#include "tst_faultdevice.moc"
