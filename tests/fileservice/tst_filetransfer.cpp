// SPDX-License-Identifier: MIT
#include "filetree.h"

#include <brixlib/fileservice/filetransfer_p.h>
#include <brixlib/protocol/socket/stcpsocket.h>

#include <shared/rawpeer.h>

#include <QtCore/QBuffer>
#include <QtCore/QElapsedTimer>
#include <QtCore/QRegularExpression>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr int kTimeoutMs = 400;

//! A device that takes at most so many bytes a time, 0 for none and -1 for an error, and pauses.
class Taker : public QIODevice
{
public:
    explicit Taker(qint64 step, int pauseMs = 0)
        : m_step(step)
        , m_pauseMs(pauseMs)
    {
        open(WriteOnly | Unbuffered);
    }
    bool isSequential() const override { return true; }

    QByteArray taken;

protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *data, qint64 size) override
    {
        QThread::msleep(static_cast<unsigned long>(m_pauseMs));
        const qint64 count = qMin(size, m_step);
        if (count > 0)
            taken.append(data, count);
        return count;
    }

private:
    const qint64 m_step;
    const int m_pauseMs;
};

//! A device that gives its content in pieces of at most so many bytes, or an error after half.
class Giver : public QIODevice
{
public:
    Giver(const QByteArray &content, qint64 step, bool breaks = false)
        : m_content(content)
        , m_step(step)
        , m_breaks(breaks)
    {
        open(ReadOnly | Unbuffered);
    }
    bool isSequential() const override { return true; }
    bool atEnd() const override { return m_given == m_content.size(); }

protected:
    qint64 readData(char *data, qint64 size) override
    {
        if (m_breaks && m_given >= m_content.size() / 2)
            return -1;
        const qint64 count = qMin(qMin(size, m_step), m_content.size() - m_given);
        memcpy(data, m_content.constData() + m_given, static_cast<size_t>(count));
        m_given += count;
        return count;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    const QByteArray m_content;
    const qint64 m_step;
    const bool m_breaks;
    qint64 m_given = 0;
};

} // namespace

class tst_FileTransfer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Each test runs on both: bytes go past a socket of the library, and through any other.
    void initTestCase_data()
    {
        QTest::addColumn<bool>("isPlain");
        QTest::newRow("a socket of the library") << false;
        QTest::newRow("a plain socket") << true;
    }

    void init()
    {
        QTest::failOnWarning(QRegularExpression(u"."_s));
        QFETCH_GLOBAL(const bool, isPlain);
        if (isPlain)
            m_socket = std::make_unique<QTcpSocket>();
        else
            m_socket = std::make_unique<STcpSocket>();
        QVERIFY(m_peer.accept(m_socket.get()));
    }

    void cleanup()
    {
        m_socket.reset();
        m_peer.close();
    }

    void receivesNoMoreThanTheSize()
    {
        QVERIFY(m_peer.send("1234567"));
        QBuffer target;
        QVERIFY(target.open(QIODevice::WriteOnly));
        QVERIFY(transfer().receive(&target, 5));
        QCOMPARE(target.data(), "12345");
        QTRY_COMPARE(m_socket->bytesAvailable(), 2);
        QCOMPARE(m_socket->readAll(), "67");
    }

    void sizeBelowOneReceivesNothing_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::newRow("0") << qint64(0);
        QTest::newRow("-1") << qint64(-1);
        QTest::newRow("the lowest") << std::numeric_limits<qint64>::min();
    }
    void sizeBelowOneReceivesNothing()
    {
        QFETCH(const qint64, size);
        m_socket->abort();
        Taker target(-1);
        QVERIFY(transfer().receive(&target, size));
    }

    // Before the first byte too: what goes before the content may have met the loss.
    void sendsNothingOnAConnectionThatIsLost()
    {
        m_socket->abort();
        QBuffer source;
        source.setData("1234567");
        QVERIFY(source.open(QIODevice::ReadOnly));
        QVERIFY(!transfer().send(&source, 7));
        QCOMPARE(source.pos(), 0);
    }

    void targetMayTakeByteByByte()
    {
        QVERIFY(m_peer.send("1234567"));
        Taker target(1);
        QVERIFY(transfer().receive(&target, 7));
        QCOMPARE(target.taken, "1234567");
    }

    void targetThatTakesNoMoreIsAFailure_data()
    {
        QTest::addColumn<qint64>("step");
        QTest::newRow("it takes nothing") << qint64(0);
        QTest::newRow("it reports an error") << qint64(-1);
    }
    void targetThatTakesNoMoreIsAFailure()
    {
        QFETCH(const qint64, step);
        QVERIFY(m_peer.send("1234567"));
        Taker target(step);
        QVERIFY(!transfer().receive(&target, 7));
    }

    void lastBytesOfAFileCountOnlyOnceTheyAreWritten()
    {
        QVERIFY(m_peer.send("1234567"));
        QFile target(u"/dev/full"_s);
        QVERIFY(target.open(QIODevice::WriteOnly));
        QVERIFY(!transfer().receive(&target, 7));
        target.close();
    }

    void silenceLongerThanTheTimeoutIsAFailure()
    {
        QVERIFY(m_peer.send("123"));
        Taker target(100);
        QElapsedTimer waiting;
        waiting.start();
        QVERIFY(!transfer().receive(&target, 7));
        QVERIFY(waiting.elapsed() > kTimeoutMs);
        QVERIFY(waiting.elapsed() < kTimeoutMs + 1000);
        QCOMPARE(target.taken, "123");
    }

    void timeThatTheTargetTakesIsNoIdleTime()
    {
        QVERIFY(m_peer.send(QByteArray(300000, 'x')));
        Taker target(300000, kTimeoutMs + 100);
        QVERIFY(transfer().receive(&target, 300000));
    }

    void timeoutOfZeroFailsInTheFirstIdleMoment()
    {
        Taker target(100);
        QElapsedTimer waiting;
        waiting.start();
        QVERIFY(!transfer(0).receive(&target, 7));
        QVERIFY(waiting.elapsed() < 1000);
    }

    void lostConnectionIsAFailure_data()
    {
        QTest::addColumn<bool>("resets");
        QTest::newRow("reset") << true;
        QTest::newRow("closed") << false;
    }
    void lostConnectionIsAFailure()
    {
        QFETCH(const bool, resets);
        QVERIFY(m_peer.send("123"));
        if (resets)
            m_peer.reset();
        else
            m_peer.close();
        Taker target(100);
        QElapsedTimer waiting;
        waiting.start();
        QVERIFY(!transfer(10000).receive(&target, 7));
        QVERIFY(waiting.elapsed() < 5000);
    }

    void sendsUpToTheEndOfTheSource_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::addColumn<qint64>("step");
        for (const qint64 size : {0, 1, 262143, 262144, 262145}) {
            for (const qint64 step : {qint64(1000), qint64(262144), qint64(1) << 40})
                QTest::addRow("%lld bytes by %lld", size, step) << size << step;
        }
    }
    void sendsUpToTheEndOfTheSource()
    {
        QFETCH(const qint64, size);
        QFETCH(const qint64, step);
        const QByteArray content = FileTree::content(size);
        QByteArray arrived;
        const std::unique_ptr<QThread> reader(
            QThread::create([&] { arrived = m_peer.receive(size); }));
        reader->start();
        Giver source(content, step);
        const bool sent = transfer().send(&source, size);
        QVERIFY(reader->wait(20000));
        QVERIFY(sent);
        QVERIFY(arrived == content);
        QCOMPARE(m_socket->bytesToWrite(), 0);
    }

    void sourceThatCannotBeReadIsAFailure()
    {
        Giver source("1234567", 3, true);
        QVERIFY(!transfer().send(&source, 7));
    }

    // The files of some systems claim more than they give, and are never at their end.
    void sourceThatGivesNoMoreIsNotWaitedFor_data()
    {
        QTest::addColumn<qint64>("claimed");
        QTest::addColumn<bool>("succeeds");
        QTest::newRow("all that was claimed has come") << qint64(7) << true;
        QTest::newRow("more was claimed") << qint64(4096) << false;
    }
    void sourceThatGivesNoMoreIsNotWaitedFor()
    {
        class NeverAtEnd : public Giver
        {
        public:
            using Giver::Giver;
            bool atEnd() const override { return false; }
        };
        QFETCH(const qint64, claimed);
        QFETCH(const bool, succeeds);
        NeverAtEnd source("1234567", 100);
        QCOMPARE(transfer().send(&source, claimed), succeeds);
        QCOMPARE(m_peer.receive(7), "1234567");
    }

    void connectionThatIsLostWithTheLastBlockIsAFailure_data() { lostConnectionIsAFailure_data(); }
    void connectionThatIsLostWithTheLastBlockIsAFailure()
    {
        QFETCH(const bool, resets);
        // So small that a part of the block waits in the socket until the peer reads.
        m_socket->setSocketOption(QAbstractSocket::SendBufferSizeSocketOption, 4096);
        const qint64 size = 262144;
        Giver source(FileTree::content(size), size);
        const std::unique_ptr<QThread> leaver(QThread::create([&] {
            m_peer.receive(10);
            resets ? m_peer.reset() : m_peer.close();
        }));
        leaver->start();
        const bool sent = transfer(10000).send(&source, size);
        QVERIFY(leaver->wait(20000));
        QVERIFY(!sent);
    }

    void sourceOfAnotherSizeIsAFailure_data()
    {
        QTest::addColumn<qint64>("claimed");
        QTest::newRow("larger") << qint64(8);
        QTest::newRow("smaller") << qint64(6);
    }
    void sourceOfAnotherSizeIsAFailure()
    {
        QFETCH(const qint64, claimed);
        Giver source("1234567", 100);
        FileTransfer run = transfer();
        QVERIFY(!run.send(&source, claimed));
        QCOMPARE(run.deviceError(), u"the content changed while it was sent"_s);
    }

    void peerThatStopsReadingIsAFailure_data()
    {
        QTest::addColumn<int>("timeout");
        QTest::newRow("after the time-out") << kTimeoutMs;
        QTest::newRow("at once without one") << 0;
    }
    void peerThatStopsReadingIsAFailure()
    {
        QFETCH(const int, timeout);
        Giver source(QByteArray(64 << 20, 'x'), 1 << 20);
        QElapsedTimer waiting;
        waiting.start();
        QVERIFY(!transfer(timeout).send(&source, 64 << 20));
        QVERIFY(waiting.elapsed() < timeout + 2000);
        QVERIFY(m_socket->bytesToWrite() <= 262144);
    }

    void stopIsSeenInEitherDirection_data()
    {
        QTest::addColumn<bool>("sends");
        QTest::newRow("sending") << true;
        QTest::newRow("receiving") << false;
    }
    void stopIsSeenInEitherDirection()
    {
        QFETCH(const bool, sends);
        m_socket->moveToThread(nullptr);
        bool succeeded = true;
        const std::unique_ptr<QThread> worker(QThread::create([&] {
            m_socket->moveToThread(QThread::currentThread());
            Giver source(QByteArray(64 << 20, 'x'), 1 << 20);
            Taker target(100);
            FileTransfer run = transfer(-1);
            succeeded = sends ? run.send(&source, 64 << 20) : run.receive(&target, 7);
            m_socket.reset();
        }));
        worker->start();
        QTest::qWait(100);
        worker->requestInterruption();
        QVERIFY(worker->wait(2000));
        QVERIFY(!succeeded);
    }

    void progressIsReportedNowAndThen()
    {
        QList<std::pair<qint64, qint64>> reports;
        FileTransfer run(m_socket.get(), kTimeoutMs, [&](qint64 done, qint64 size) {
            reports.append({done, size});
        });
        const std::unique_ptr<QThread> writer(QThread::create([&] {
            for (int i = 0; i < 10; ++i) {
                m_peer.send("x");
                QThread::msleep(60);
            }
        }));
        writer->start();
        Taker target(100);
        QElapsedTimer taken;
        taken.start();
        const bool received = run.receive(&target, 10);
        QVERIFY(writer->wait(20000));
        QVERIFY(received);
        QVERIFY(reports.size() >= 2);
        QVERIFY(reports.size() <= taken.elapsed() / 100);
        for (qsizetype i = 1; i < reports.size(); ++i)
            QVERIFY(reports.at(i).first > reports.at(i - 1).first);
        QCOMPARE(reports.first().second, 10);
    }

    void progressIsNotReportedWhileNothingArrives()
    {
        QList<qint64> reports;
        FileTransfer run(m_socket.get(), 10000, [&](qint64 done, qint64) { reports.append(done); });
        QVERIFY(m_peer.send("123"));
        const std::unique_ptr<QThread> writer(QThread::create([&] {
            QThread::msleep(500);
            m_peer.send("4567");
        }));
        writer->start();
        Taker target(100);
        const bool received = run.receive(&target, 7);
        QVERIFY(writer->wait(20000));
        QVERIFY(received);
        QCOMPARE(reports, QList<qint64>{7});
    }

    void onlyRegularFilesAreOpened_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("opens");
        QTest::newRow("a folder") << QDir::tempPath() << false;
        QTest::newRow("a device") << u"/dev/null"_s << false;
        QTest::newRow("a missing file") << u"/missing"_s << false;
        QTest::newRow("no name") << QString() << false;
        QTest::newRow("this program") << QCoreApplication::applicationFilePath() << true;
        QTest::newRow("a file without a size") << u"/proc/self/status"_s << true;
    }
    void onlyRegularFilesAreOpened()
    {
        QFETCH(const QString, path);
        QFETCH(const bool, opens);
        QFile file(path);
        QCOMPARE(openForReading(&file), opens);
    }

private:
    FileTransfer transfer(int timeout = kTimeoutMs)
    {
        return FileTransfer(m_socket.get(), timeout, [](qint64, qint64) {});
    }

    std::unique_ptr<QTcpSocket> m_socket;
    RawPeer m_peer;
};

QTEST_GUILESS_MAIN(tst_FileTransfer)
#include "tst_filetransfer.moc"
