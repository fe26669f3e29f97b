// SPDX-License-Identifier: MIT
#include <brixlib/protocol/socket/stcpsocket.h>

#include <shared/rawpeer.h>

#include <chrono>
#include <limits>
#include <thread>

using namespace Talverine;
using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr qint64 kLargest = std::numeric_limits<qint64>::max();
constexpr qint64 kSmallest = std::numeric_limits<qint64>::min();
constexpr qint64 kNothing = -1; // a limit that lets nothing through

//! Opens what is protected.
class Socket : public STcpSocket
{
public:
    using STcpSocket::STcpSocket;
    using STcpSocket::writeToSocket;

    //! What Qt's own buffer holds.
    qint64 handedOver() const { return QTcpSocket::bytesToWrite(); }
};

QByteArray pattern(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = static_cast<char>((i * 2654435761U) >> 13);
    return bytes;
}

using Ending = void (RawPeer::*)();

} // namespace

Q_DECLARE_METATYPE(Ending)

class tst_STcpSocket : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshSocketHasNoLimits()
    {
        const STcpSocket socket;
        QCOMPARE(socket.incomingSpeed(), 0);
        QCOMPARE(socket.outcomingSpeed(), 0);
        QCOMPARE(socket.bytesToWrite(), 0);
        QCOMPARE(socket.bytesAvailable(), 0);
    }

    void limitsAreKept_data()
    {
        QTest::addColumn<qint64>("limit");
        QTest::addColumn<qint64>("kept");
        QTest::newRow("0 removes it") << qint64(0) << qint64(0);
        QTest::newRow("1 is raised") << qint64(1) << qint64(256);
        QTest::newRow("100 is raised") << qint64(100) << qint64(256);
        QTest::newRow("255 is raised") << qint64(255) << qint64(256);
        QTest::newRow("256") << qint64(256) << qint64(256);
        QTest::newRow("257") << qint64(257) << qint64(257);
        QTest::newRow("largest") << kLargest << kLargest;
        QTest::newRow("negative stays") << qint64(-1) << qint64(-1);
        QTest::newRow("smallest stays") << kSmallest << kSmallest;
    }

    void limitsAreKept()
    {
        QFETCH(qint64, limit);
        QFETCH(qint64, kept);
        STcpSocket socket;
        socket.setOutcomingSpeed(1000);
        socket.setOutcomingSpeed(limit);
        QCOMPARE(socket.outcomingSpeed(), kept);
        QCOMPARE(socket.incomingSpeed(), 0);
        socket.setIncomingSpeed(limit);
        QCOMPARE(socket.incomingSpeed(), kept);
    }

    void unlimitedSocketWritesStraightThrough()
    {
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        const QByteArray bytes = pattern(10000);
        QCOMPARE(socket.write(bytes), bytes.size());
        QCOMPARE(socket.bytesToWrite(), socket.handedOver());
        QCOMPARE(socket.writeToSocket(), 0);
        QVERIFY(socket.waitForBytesWritten(10000));
        QCOMPARE(peer.receive(bytes.size()), bytes);
    }

    void limitedSocketSendsTheSameBytes_data()
    {
        QTest::addColumn<qint64>("limit");
        QTest::addColumn<int>("size");
        QTest::addColumn<int>("piece");
        QTest::newRow("one byte") << qint64(256) << 1 << 1;
        QTest::newRow("single bytes") << qint64(1000) << 700 << 1;
        QTest::newRow("in one go") << qint64(1 << 20) << 300000 << 300000;
        QTest::newRow("in many pieces") << qint64(16 << 20) << (4 << 20) << 65536;
        QTest::newRow("block above the limit") << qint64(1 << 20) << (3 << 19) << (3 << 19);
        QTest::newRow("largest limit") << kLargest << (1 << 20) << 100000;
    }

    void limitedSocketSendsTheSameBytes()
    {
        QFETCH(qint64, limit);
        QFETCH(int, size);
        QFETCH(int, piece);
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        socket.setOutcomingSpeed(limit);
        const QByteArray bytes = pattern(size);
        QByteArray received;
        std::thread receiver([&] { received = peer.receive(size); });
        for (int sent = 0; sent < size; sent += piece) {
            const int count = qMin(piece, size - sent);
            QCOMPARE(socket.write(bytes.constData() + sent, count), count);
        }
        while (socket.bytesToWrite() > 0)
            QVERIFY(socket.waitForBytesWritten(10000));
        receiver.join();
        QCOMPARE(received, bytes);
    }

    // A kilobyte may go at once; each further one waits until the one before has aged out.
    void limitedSocketBlocksUntilTheDataHasLeft()
    {
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        socket.setOutcomingSpeed(1000);
        const QByteArray bytes = pattern(3000);
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(socket.write(bytes), bytes.size());
        QVERIFY2(clock.elapsed() >= 1000, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(socket.bytesToWrite(), 0);
        QCOMPARE(peer.receive(bytes.size()), bytes);
    }

    void bytesToWriteCountsWhatIsHeldBack()
    {
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        socket.setOutcomingSpeed(1000);
        QList<qint64> counts;
        QList<qint64> handedOver;
        connect(&socket, &STcpSocket::connectionOutcomingSpeed, this, [&] {
            counts.append(socket.bytesToWrite());
            handedOver.append(socket.handedOver());
        });
        socket.write(pattern(2500));
        QCOMPARE(counts, (QList<qint64>{1500, 500, 0}));
        QCOMPARE(handedOver, (QList<qint64>{0, 0, 0}));
    }

    void oneStepSendsAtMostWhatItIsTold()
    {
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        socket.setOutcomingSpeed(1000);
        QList<qint64> results;
        connect(&socket, &STcpSocket::connectionOutcomingSpeed, this, [&] {
            if (!results.isEmpty())
                return;
            socket.setOutcomingSpeed(0);
            results.append(socket.writeToSocket(0));
            results.append(socket.writeToSocket(7));
            results.append(socket.bytesToWrite() - socket.handedOver());
            results.append(socket.writeToSocket(-1));
            results.append(socket.writeToSocket(7));
            results.append(socket.writeToSocket());
        });
        const QByteArray bytes = pattern(3000);
        socket.write(bytes);
        QCOMPARE(results, (QList<qint64>{0, 7, 1993, 1993, 0, 0}));
        QCOMPARE(peer.receive(bytes.size()), bytes);
    }

    void limitRemovedByAnotherThreadLetsAWriterGo()
    {
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        socket.setOutcomingSpeed(kNothing);
        std::thread other([&] {
            QThread::msleep(20);
            socket.setOutcomingSpeed(0);
        });
        const QByteArray bytes = pattern(5000);
        QCOMPARE(socket.write(bytes), bytes.size());
        other.join();
        QCOMPARE(socket.outcomingSpeed(), 0);
        QCOMPARE(peer.receive(bytes.size()), bytes);
    }

    void writesFromSignalsKeepTheOrder()
    {
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        socket.setOutcomingSpeed(20000);
        bool again = true;
        connect(&socket, &QIODevice::bytesWritten, this, [&] {
            if (std::exchange(again, false))
                socket.write("second");
        });
        const QByteArray first = pattern(30000);
        QCOMPARE(socket.write(first), first.size());
        QCOMPARE(peer.receive(first.size() + 6), first + "second");
    }

    void closeSendsWhatIsHeldBack()
    {
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        socket.setOutcomingSpeed(20000);
        connect(&socket, &STcpSocket::connectionOutcomingSpeed, &socket, [&] { socket.close(); });
        const QByteArray bytes = pattern(40000);
        QByteArray received;
        std::thread receiver([&] { received = peer.receive(bytes.size() + 1); });
        QCOMPARE(socket.write(bytes), bytes.size());
        receiver.join();
        QCOMPARE(received, bytes);
        QVERIFY(!socket.isOpen());
    }

    void peerThatGoesLetsAThrottledWriterGo_data()
    {
        QTest::addColumn<Ending>("ending");
        QTest::newRow("in good order") << Ending(&RawPeer::close);
        QTest::newRow("by a reset") << Ending(&RawPeer::reset);
        QTest::newRow("by finishing to send") << Ending(&RawPeer::finishSending);
    }

    // No events run while the writer is held, so the socket itself does not know.
    void peerThatGoesLetsAThrottledWriterGo()
    {
        QFETCH(Ending, ending);
        using Clock = std::chrono::steady_clock;
        auto fastest = Clock::duration::max();
        for (int round = 0; round < 20; ++round) {
            Socket socket;
            RawPeer peer;
            QVERIFY(peer.accept(&socket));
            socket.setOutcomingSpeed(kNothing);
            Clock::time_point ended;
            std::thread other([&] {
                QThread::msleep(3); // so that the writer is being held in most rounds
                ended = Clock::now();
                (peer.*ending)();
            });
            QCOMPARE(socket.write("held back"), 9);
            const Clock::time_point released = Clock::now();
            other.join();
            fastest = qMin(fastest, released - ended);

            QCOMPARE(socket.writeToSocket(), -1);
            QCOMPARE(socket.bytesToWrite(), 9);
            QCOMPARE(socket.state(), QAbstractSocket::UnconnectedState);
        }
        // About a millisecond; the rest is for a machine that does other things too.
        QVERIFY2(fastest < 3ms, qPrintable(QString::number(fastest / 1us)));
    }

    void peerThatGoesEndsATransferUnderWay_data() { peerThatGoesLetsAThrottledWriterGo_data(); }

    void peerThatGoesEndsATransferUnderWay()
    {
        QFETCH(Ending, ending);
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        socket.setOutcomingSpeed(1 << 20);
        std::thread other([&] {
            peer.receive(100000);
            (peer.*ending)();
        });
        const QByteArray bytes = pattern(8 << 20);
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(socket.write(bytes), bytes.size());
        other.join();
        QVERIFY2(clock.elapsed() < 2500, qPrintable(QString::number(clock.elapsed())));
        QVERIFY(socket.bytesToWrite() > 0);
        QCOMPARE(socket.writeToSocket(), -1);
    }

    void writesAfterThePeerHasGoneAreRefusedAndFillNoMemory()
    {
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        socket.setOutcomingSpeed(kNothing);
        peer.close();
        const QByteArray bytes = pattern(100000);
        QCOMPARE(socket.write(bytes), bytes.size());
        for (int i = 0; i < 10; ++i)
            QCOMPARE(socket.write(bytes), -1);
        QCOMPARE(socket.bytesToWrite(), bytes.size());
        // Loops over bytesToWrite() end by the state.
        QCOMPARE(socket.state(), QAbstractSocket::UnconnectedState);
    }

    void bytesOfAPeerThatHasGoneStayReadable_data()
    {
        QTest::addColumn<qint64>("readAhead");
        QTest::newRow("read ahead without a bound") << qint64(0);
        QTest::newRow("more than is read ahead") << qint64(1000);
    }

    // What came before the end is not lost with the connection.
    void bytesOfAPeerThatHasGoneStayReadable()
    {
        QFETCH(qint64, readAhead);
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        socket.setReadBufferSize(readAhead);
        socket.setOutcomingSpeed(kNothing);
        socket.setIncomingSpeed(kNothing);
        const QByteArray bytes = pattern(100000);
        QVERIFY(peer.send(bytes));
        peer.finishSending();
        QSignalSpy disconnected(&socket, &QAbstractSocket::disconnected);
        QCOMPARE(socket.write("held back"), 9);
        QCOMPARE(disconnected.count(), 1);
        QCOMPARE(socket.readAll(), bytes);
        QCOMPARE(socket.readBufferSize(), readAhead);
    }

    void replyOutOfReadyReadIsLetGoWhenThePeerGoes_data()
    {
        peerThatGoesLetsAThrottledWriterGo_data();
    }

    // A session answers in the slot that a request wakes; no second notification is handled there.
    void replyOutOfReadyReadIsLetGoWhenThePeerGoes()
    {
        QFETCH(Ending, ending);
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        socket.setReadBufferSize(1000);
        socket.setOutcomingSpeed(kNothing);
        QSignalSpy disconnected(&socket, &QAbstractSocket::disconnected);
        std::thread other;
        QList<qint64> results;
        connect(&socket, &QIODevice::readyRead, this, [&] {
            if (!results.isEmpty())
                return;
            results.append(0);
            other = std::thread([&] {
                QThread::msleep(20);
                (peer.*ending)();
            });
            socket.read(3);
            results.append(socket.write("reply"));
        });
        QVERIFY(peer.send(pattern(5000)));
        QTRY_COMPARE(results.size(), 2);
        other.join();
        QCOMPARE(results.last(), 5);
        QCOMPARE(socket.state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(disconnected.count(), 1);
    }

    void slotsThatWriteWhenThePeerHasGoneDoNoHarm()
    {
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        socket.setOutcomingSpeed(kNothing);
        QList<qint64> results;
        connect(&socket, &QIODevice::readyRead, this,
                [&] { results.append(socket.write("reply")); });
        QVERIFY(peer.send("hello"));
        peer.finishSending();
        QCOMPARE(socket.write("held back"), 9);
        QCOMPARE(results, QList<qint64>{-1});
        QCOMPARE(socket.state(), QAbstractSocket::UnconnectedState);
    }

    void interruptedThreadIsNotHeldBack()
    {
        const QByteArray bytes = pattern(100000);
        QByteArray sent;
        QByteArray received;
        bool arrived = false;
        const std::unique_ptr<QThread> thread(QThread::create([&] {
            Socket socket;
            RawPeer peer;
            if (!peer.accept(&socket))
                return;
            socket.setOutcomingSpeed(256);
            socket.setIncomingSpeed(256);
            socket.write(bytes.constData(), bytes.size());
            sent = peer.receive(bytes.size());
            peer.send(bytes);
            while (socket.bytesAvailable() < bytes.size() && socket.waitForReadyRead(10000)) {
            }
            received = socket.readAll();
            arrived = true;
        }));
        thread->start();
        QThread::msleep(20); // so that the writer is being held
        thread->requestInterruption();
        QVERIFY(thread->wait(10000));
        QVERIFY(arrived);
        QCOMPARE(sent, bytes);
        QCOMPARE(received, bytes);
    }

    void closeAfterThePeerHasGoneDoesNotHang_data() { peerThatGoesLetsAThrottledWriterGo_data(); }

    void closeAfterThePeerHasGoneDoesNotHang()
    {
        QFETCH(Ending, ending);
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        socket.setOutcomingSpeed(kNothing);
        (peer.*ending)();
        socket.write(pattern(1000));
        socket.close();
        QVERIFY(!socket.isOpen());
        // Without a limit the flush meets the broken connection itself.
        QVERIFY(peer.accept(&socket));
        socket.setOutcomingSpeed(kNothing);
        (peer.*ending)();
        socket.write(pattern(1000));
        socket.setOutcomingSpeed(0);
        socket.close();
        QVERIFY(!socket.isOpen());
    }

    void heldBackBytesDoNotReachTheNextConnection()
    {
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        socket.setOutcomingSpeed(kNothing);
        peer.reset();
        socket.write("for the first");
        socket.abort();
        socket.setOutcomingSpeed(0);
        QVERIFY(peer.accept(&socket));
        QCOMPARE(socket.bytesToWrite(), 0);
        socket.write("second");
        QVERIFY(socket.waitForBytesWritten(10000));
        socket.disconnectFromHost();
        QCOMPARE(peer.receive(100), "second"_ba);
    }

    void socketMayDieWithBytesHeldBack()
    {
        auto socket = std::make_unique<Socket>();
        RawPeer peer;
        QVERIFY(peer.accept(socket.get()));
        socket->setOutcomingSpeed(kNothing);
        socket->setIncomingSpeed(kNothing);
        QVERIFY(peer.send("unread"));
        peer.finishSending();
        socket->write("held back");
        socket.reset();
        QCOMPARE(peer.receive(1), QByteArray());
    }

    void writeToAClosedSocketFails()
    {
        Socket socket;
        socket.setOutcomingSpeed(1000);
        QTest::ignoreMessage(QtWarningMsg,
                             "QIODevice::write (Talverine::STcpSocket): device not open");
        QCOMPARE(socket.write("a"), -1);
    }

    void unreadBytesAreAvailable()
    {
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        QVERIFY(peer.send("hello"));
        QTRY_COMPARE(socket.bytesAvailable(), 5);
        QCOMPARE(socket.read(2), "he"_ba);
        QCOMPARE(socket.bytesAvailable(), 3);
    }

    // A kilobyte counts at once and every half second after.
    void incomingLimitHoldsTheThreadAfterReadyRead()
    {
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        socket.setIncomingSpeed(1000);
        QElapsedTimer sinceReadyRead;
        connect(&socket, &QIODevice::readyRead, this, [&] {
            if (!sinceReadyRead.isValid())
                sinceReadyRead.start();
        });
        const QByteArray bytes = pattern(3000);
        QVERIFY(peer.send(bytes));
        QTRY_COMPARE(socket.bytesAvailable(), bytes.size());
        const qint64 held = sinceReadyRead.elapsed();
        QVERIFY2(held >= 1000, qPrintable(QString::number(held)));
        QCOMPARE(socket.readAll(), bytes);
    }

    void bytesTakenInReadyReadAreNotCounted()
    {
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        socket.setIncomingSpeed(kNothing);
        QSignalSpy speeds(&socket, &STcpSocket::connectionIncomingSpeed);
        QByteArray received;
        connect(&socket, &QIODevice::readyRead, this, [&] { received += socket.readAll(); });
        const QByteArray bytes = pattern(100000);
        QVERIFY(peer.send(bytes));
        QTRY_COMPARE(received.size(), bytes.size());
        QCOMPARE(received, bytes);
        QCOMPARE(speeds.count(), 0);
    }

    void resetLetsAThrottledReaderGo()
    {
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        socket.setIncomingSpeed(kNothing);
        QVERIFY(peer.send("hello"));
        std::thread other([&] {
            QThread::msleep(20);
            peer.reset();
        });
        QVERIFY(socket.waitForReadyRead(10000));
        other.join();
        QCOMPARE(socket.readAll(), "hello"_ba);
    }

    void peerThatHasOnlyFinishedSendingIsStillHeldToTheLimit()
    {
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        socket.setIncomingSpeed(1000);
        QVERIFY(peer.send(pattern(1500)));
        peer.finishSending();
        QElapsedTimer clock;
        clock.start();
        QTRY_COMPARE(socket.bytesAvailable(), 1500);
        QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
        QVERIFY2(clock.elapsed() >= 500, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(socket.readAll(), pattern(1500));
    }

    void limitRemovedByAnotherThreadLetsAReaderGo()
    {
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        socket.setIncomingSpeed(kNothing);
        QVERIFY(peer.send("hello"));
        std::thread other([&] {
            QThread::msleep(20);
            socket.setIncomingSpeed(0);
        });
        QVERIFY(socket.waitForReadyRead(10000));
        other.join();
        QCOMPARE(socket.readAll(), "hello"_ba);
    }

    void speedIsReportedWithoutALimit()
    {
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        QSignalSpy out(&socket, &STcpSocket::connectionOutcomingSpeed);
        QSignalSpy in(&socket, &STcpSocket::connectionIncomingSpeed);
        socket.write(pattern(1000));
        QCOMPARE(out.count(), 1);
        QVERIFY(out.first().first().toLongLong() >= 1000);
        QVERIFY(peer.send(pattern(500)));
        QTRY_COMPARE(in.count(), 1);
        QVERIFY(in.first().first().toLongLong() >= 500);
        QCOMPARE(out.count(), 1);
    }

    void speedIsReportedAtMostEveryTenthOfASecond()
    {
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        QSignalSpy out(&socket, &STcpSocket::connectionOutcomingSpeed);
        QSignalSpy in(&socket, &STcpSocket::connectionIncomingSpeed);
        connect(&socket, &STcpSocket::readyWrite, this, [] { QFAIL("nobody emits it"); });
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < 1000) {
            socket.write("abc");
            QVERIFY(peer.send("def"));
            QTest::qWait(2);
        }
        const qint64 most = clock.elapsed() / 100 + 1;
        QVERIFY2(out.count() <= most, qPrintable(QString::number(out.count())));
        QVERIFY2(in.count() <= most, qPrintable(QString::number(in.count())));
        // Samples are 50 ms apart, so a report comes after 150 ms at the latest on an idle machine.
        QVERIFY2(out.count() >= 4, qPrintable(QString::number(out.count())));
        QVERIFY2(in.count() >= 4, qPrintable(QString::number(in.count())));
    }

    void limitsMayChangeWhileAnotherThreadTransfers()
    {
        Socket socket;
        RawPeer peer;
        QVERIFY(peer.accept(&socket));
        QAtomicInt stop = 0;
        std::thread other([&] {
            for (qint64 limit = 1; !stop.loadAcquire(); limit = limit * 3 % (64 << 20) + 1) {
                socket.setOutcomingSpeed(limit % 5 == 0 ? 0 : limit << 10);
                socket.setIncomingSpeed(limit % 7 == 0 ? 0 : limit << 10);
                QVERIFY(socket.outcomingSpeed() >= 0);
            }
        });
        const QByteArray bytes = pattern(1 << 20);
        QByteArray received;
        std::thread receiver([&] { received = peer.receive(bytes.size()); });
        for (qsizetype sent = 0; sent < bytes.size(); sent += 4096)
            QCOMPARE(socket.write(bytes.constData() + sent, 4096), 4096);
        while (socket.bytesToWrite() > 0)
            QVERIFY(socket.waitForBytesWritten(10000));
        receiver.join();
        stop.storeRelease(1);
        other.join();
        QCOMPARE(received, bytes);
    }
};

QTEST_GUILESS_MAIN(tst_STcpSocket)
#include "tst_stcpsocket.moc"
