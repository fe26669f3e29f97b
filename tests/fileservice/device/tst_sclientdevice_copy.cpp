// SPDX-License-Identifier: MIT
// Copying between devices of any kind, and to and from a remote one.
#include <fileservice/devicepeer.h>

#include <brixlib/devices/sbuffereddevice.h>
#include <brixrt/sprogress.h>

#include <shared/faultdevice.h>
#include <shared/hostthread.h>

#include <QtCore/QBuffer>
#include <QtCore/QTemporaryDir>

#include <limits>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

QByteArray pattern(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 31 + i / 251);
    return bytes;
}

// Keeps each percentage that it is told, and asks for the end at one of them.
class Watcher : public Interfaces::IProgress
{
public:
    explicit Watcher(int abortAt = -1)
        : m_abortAt(abortAt)
    {
    }

    void setProgress(int percent) override
    {
        told += percent;
        if (percent == m_abortAt)
            abort();
    }

    QList<int> told;

private:
    const int m_abortAt;
};

// A source that claims a size and is never at its end, as files in /sys.
class Claimer : public QIODevice
{
public:
    Claimer(qint64 size, const QByteArray &bytes)
        : m_size(size)
        , m_bytes(bytes)
    {
        open(ReadOnly | Unbuffered);
    }
    qint64 size() const override { return m_size; }
    bool atEnd() const override { return false; }

protected:
    qint64 readData(char *data, qint64 size) override
    {
        const QByteArray piece = m_bytes.mid(pos(), size);
        std::copy(piece.begin(), piece.end(), data);
        return piece.size();
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    const qint64 m_size;
    const QByteArray m_bytes;
};

// Takes nothing, and says so without an error.
class Refuser : public QIODevice
{
protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *, qint64) override { return 0; }
};

// Takes all, and closes a device at that, as the end of a connection does that it has noticed.
class Closer : public QIODevice
{
public:
    QIODevice *closed = nullptr;

protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *, qint64 size) override
    {
        closed->close();
        return size;
    }
};

} // namespace

class tst_SClientDevice_copy : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sizes_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<int>("bufferSize");
        for (const int size : {0, 1, 9, 10, 11, 1000})
            QTest::addRow("%d bytes", size) << size << 10;
        QTest::newRow("buffer of one") << 100 << 1;
        QTest::newRow("buffer larger than all") << 100 << (1 << 20);
    }

    void sizes()
    {
        QFETCH(int, size);
        QFETCH(int, bufferSize);
        QBuffer source;
        source.setData(pattern(size));
        QBuffer target;
        QVERIFY(SClientDevice::copy(&target, &source, bufferSize));
        QCOMPARE(target.data(), source.data());
        QVERIFY(!source.isOpen());
        QVERIFY(!target.isOpen());
    }

    void whatWasOpenStaysOpen()
    {
        QBuffer source;
        source.setData("0123456789");
        QVERIFY(source.open(QIODevice::ReadOnly));
        QVERIFY(source.seek(4));
        QBuffer target;
        QVERIFY(target.open(QIODevice::WriteOnly));
        QCOMPARE(target.write("before "), 7);
        QVERIFY(SClientDevice::copy(&target, &source));
        QCOMPARE(target.data(), "before 456789"_ba);
        QVERIFY(source.isOpen());
        QVERIFY(target.isOpen());
    }

    void theProgressIsToldBeforeEachPiece()
    {
        QBuffer source;
        source.setData(pattern(10));
        QBuffer target;
        Watcher watcher;
        QVERIFY(SClientDevice::copy(&target, &source, &watcher, 3));
        QCOMPARE(watcher.told, (QList<int>{0, 30, 60, 90}));
    }

    void aSourceWithoutASizeIsComplete()
    {
        Claimer source(0, "bytes");
        QBuffer target;
        Watcher watcher;
        QVERIFY(SClientDevice::copy(&target, &source, &watcher, 3));
        QCOMPARE(target.data(), "bytes"_ba);
        QCOMPARE(watcher.told, (QList<int>{100, 100, 100}));
    }

    void aSourceThatClaimsMoreThanItGivesComesToAnEnd()
    {
        Claimer source(std::numeric_limits<qint64>::max(), "bytes");
        QBuffer target;
        Watcher watcher;
        QVERIFY(SClientDevice::copy(&target, &source, &watcher, 3));
        QCOMPARE(target.data(), "bytes"_ba);
        QCOMPARE(watcher.told, (QList<int>{0, 0, 0}));
    }

    void anInterruptedCopyFails()
    {
        QBuffer source;
        source.setData(pattern(100));
        QBuffer target;
        Watcher watcher(50);
        QVERIFY(!SClientDevice::copy(&target, &source, &watcher, 10));
        QCOMPARE(target.data(), pattern(50));
        QVERIFY(!source.isOpen());
        QVERIFY(!target.isOpen());
    }

    void anInterruptionBeforehandCopiesNothing()
    {
        QBuffer source;
        source.setData(pattern(100));
        QBuffer target;
        SProgress progress;
        progress.abort();
        QVERIFY(!SClientDevice::copy(&target, &source, &progress));
        QVERIFY(target.data().isEmpty());
    }

    void aBufferOfNoSizeFails_data()
    {
        QTest::addColumn<int>("size");
        QTest::newRow("0") << 0;
        QTest::newRow("-1") << -1;
        QTest::newRow("smallest") << std::numeric_limits<int>::min();
    }

    void aBufferOfNoSizeFails()
    {
        QFETCH(int, size);
        QBuffer source;
        source.setData("abc");
        QBuffer target;
        target.setData("kept");
        QVERIFY(!SClientDevice::copy(&target, &source, size));
        QCOMPARE(target.data(), "kept"_ba);
    }

    void shortReadsAndWritesAreGoneOnWith()
    {
        QBuffer from;
        from.setData(pattern(1000));
        FaultDevice source(&from, {.read = {.pieceBytes = 7}});
        QBuffer to;
        FaultDevice target(&to, {.write = {.pieceBytes = 3}});
        QVERIFY(SClientDevice::copy(&target, &source, 64));
        QCOMPARE(to.data(), from.data());
    }

    void aReadThatFailsFailsTheCopy()
    {
        QBuffer from;
        from.setData(pattern(1000));
        FaultDevice source(&from, {.read = {.errorAt = 500}});
        QBuffer target;
        QVERIFY(!SClientDevice::copy(&target, &source, 100));
        QCOMPARE(target.data(), pattern(500));
    }

    void aWriteThatFailsFailsTheCopy()
    {
        QBuffer source;
        source.setData(pattern(1000));
        QBuffer to;
        FaultDevice target(&to, {.write = {.errorAt = 500}});
        QVERIFY(!SClientDevice::copy(&target, &source, 100));
    }

    void aTargetThatTakesNothingFailsTheCopy()
    {
        QBuffer source;
        source.setData(pattern(1000));
        Refuser target;
        QVERIFY(!SClientDevice::copy(&target, &source, 100));
    }

    // A device that is closed says that it is at its end.
    void aSourceThatIsClosedOnTheWayFailsTheCopy_data()
    {
        QTest::addColumn<bool>("isBuffered");
        QTest::newRow("itself") << false;
        QTest::newRow("a buffer over it") << true;
    }

    void aSourceThatIsClosedOnTheWayFailsTheCopy()
    {
        QFETCH(bool, isBuffered);
        QBuffer from;
        from.setData(pattern(5000));
        SBufferedDevice buffered(&from, 1024);
        Closer target;
        target.closed = &from;
        QIODevice *source = isBuffered ? static_cast<QIODevice *>(&buffered) : &from;
        QVERIFY(!SClientDevice::copy(&target, source, 1024));
    }

    void aTargetThatIsClosedByItsLastWriteFailsTheCopy()
    {
        QBuffer source;
        source.setData("abc");
        Closer target;
        target.closed = &target;
        QVERIFY(!SClientDevice::copy(&target, &source));
    }

    // A buffer gives nothing there, as at the end.
    void aReadThatFailsBehindABufferFailsTheCopy()
    {
        QBuffer from;
        from.setData(pattern(5000));
        FaultDevice failing(&from, {.read = {.errorAt = 2048}});
        SBufferedDevice source(&failing, 1024);
        QBuffer target;
        QVERIFY(!SClientDevice::copy(&target, &source, 100));
        QCOMPARE(target.data(), pattern(2048));
    }

    // They hold a small file back until they are closed, which tells nobody.
    void aFullDiskFailsTheCopy_data()
    {
        QTest::addColumn<bool>("isBuffered");
        QTest::addColumn<bool>("isFileBuffered");
        QTest::newRow("a file") << false << true;
        QTest::newRow("a buffer over a file") << true << false;
        QTest::newRow("a buffer over a file with one of its own") << true << true;
    }

    void aFullDiskFailsTheCopy()
    {
        QFETCH(bool, isBuffered);
        QFETCH(bool, isFileBuffered);
        QBuffer source;
        source.setData("small");
        QFile file(u"/dev/full"_s);
        SBufferedDevice buffered(&file);
        if (!isFileBuffered)
            QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        QIODevice *target = isBuffered ? static_cast<QIODevice *>(&buffered) : &file;
        QVERIFY(!SClientDevice::copy(target, &source));
        QVERIFY(!target->isOpen());
    }

    void aMissingSourceLeavesTheTarget()
    {
        QTemporaryDir folder;
        QFile target(folder.filePath(u"target"_s));
        QVERIFY(target.open(QIODevice::WriteOnly));
        QCOMPARE(target.write("kept"), 4);
        target.close();
        QFile source(folder.filePath(u"missing"_s));
        QVERIFY(!SClientDevice::copy(&target, &source));
        QCOMPARE(target.size(), 4);
        QVERIFY(!target.isOpen());
    }

    void aTargetThatDoesNotOpenFailsTheCopy()
    {
        QBuffer source;
        source.setData("abc");
        QFile target(u"/no/such/folder/file"_s);
        QVERIFY(!SClientDevice::copy(&target, &source));
        QVERIFY(!source.isOpen());
    }

    // ---- With a remote device at one end or both

    void fromAFileToARemoteOneAndBack()
    {
        HostThread host;
        const QByteArray content = pattern(3'000'000);
        const auto remote = [&](const QString &name) {
            return std::make_unique<SClientDevice>(u"127.0.0.1"_s, name, host.port(), u"alice"_s,
                                                   RawBytes::sha512Hex("secret"));
        };
        QBuffer source;
        source.setData(content);
        {
            const auto target = remote(u"file"_s);
            QVERIFY(SClientDevice::copy(target.get(), &source));
            QVERIFY(!target->isOpen());
        }
        {
            const auto first = remote(u"file"_s);
            const auto second = remote(u"second"_s);
            QVERIFY(SClientDevice::copy(second.get(), first.get()));
        }
        const auto back = remote(u"second"_s);
        QBuffer target;
        Watcher watcher;
        QVERIFY(SClientDevice::copy(&target, back.get(), &watcher));
        QVERIFY(target.data() == content);
        QCOMPARE(watcher.told, (QList<int>{0, 34, 69}));
    }

    void theServersLastWordIsTheResult_data()
    {
        QTest::addColumn<QByteArray>("word");
        QTest::addColumn<bool>("result");
        QTest::newRow("ack") << RawBytes::ack() << true;
        QTest::newRow("nack") << RawBytes::nack() << false;
        QTest::newRow("none") << QByteArray() << false;
    }

    void theServersLastWordIsTheResult()
    {
        QFETCH(QByteArray, word);
        QFETCH(bool, result);
        RawServer server([word](RawConnection &peer) {
            openDevice(peer);
            peer.read(DeviceRequest::write("abc").size());
            answerRequest(peer, DeviceRequest::close(), word);
        });
        QBuffer source;
        source.setData("abc");
        RawDevice target(server);
        QCOMPARE(SClientDevice::copy(&target, &source), result);
        QCOMPARE(server.received().toHex(), (deviceHandshake() + DeviceRequest::open(2) +
                                             DeviceRequest::write("abc") + DeviceRequest::close())
                                                .toHex());
    }

    // The size is asked for once; what is read beyond the end of a file that shrank is its end.
    void aRemoteFileThatShrinksComesToAnEnd()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::size(), RawBytes::i64(1000));
            answerRequest(peer, DeviceRequest::read(100), DeviceReply::got("short"));
            answerRequest(peer, DeviceRequest::read(100), DeviceReply::got(""));
            answerRequest(peer, DeviceRequest::close(), RawBytes::ack());
        });
        RawDevice source(server);
        QBuffer target;
        QVERIFY(SClientDevice::copy(&target, &source, 100));
        QCOMPARE(target.data(), "short"_ba);
    }

    void aServerThatGoesFailsTheCopy()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::size(), RawBytes::i64(1000));
            answerRequest(peer, DeviceRequest::read(100), DeviceReply::got(pattern(100)));
            peer.vanish();
        });
        RawDevice source(server);
        QBuffer target;
        QVERIFY(!SClientDevice::copy(&target, &source, 100));
        QCOMPARE(target.data(), pattern(100));
    }

    void aRefusedReadBehindABufferFailsTheCopy()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::size(), RawBytes::i64(1000));
            answerRequest(peer, DeviceRequest::read(1024), DeviceReply::got(pattern(100)));
            for (int i = 0; i < 2; ++i)
                answerRequest(peer, DeviceRequest::read(1024), RawBytes::i64(-1));
            answerRequest(peer, DeviceRequest::close(), RawBytes::ack());
        });
        RawDevice device(server);
        SBufferedDevice source(&device, 1024);
        QBuffer target;
        QVERIFY(!SClientDevice::copy(&target, &source, 1024));
        QCOMPARE(target.data(), pattern(100));
        QVERIFY(!device.isOpen());
    }

    void aRemoteDeviceThatWasOpenStaysOpen()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            peer.read(DeviceRequest::write("abc").size());
            peer.read(DeviceRequest::write("def").size());
            answerRequest(peer, DeviceRequest::close(), RawBytes::ack());
        });
        RawDevice target(server);
        QVERIFY(target.open(QIODevice::WriteOnly));
        for (const char *bytes : {"abc", "def"}) {
            QBuffer source;
            source.setData(bytes);
            QVERIFY(SClientDevice::copy(&target, &source));
            QVERIFY(target.isOpen());
        }
        bool ok = false;
        target.close(&ok);
        QVERIFY(ok);
    }
};

QTEST_GUILESS_MAIN(tst_SClientDevice_copy)
#include "tst_sclientdevice_copy.moc"
