// SPDX-License-Identifier: MIT
// The client's half of the link test, under a scripted server.
#include <protocol/clientsession.h>

#include <shared/failingallocation.h>

#include <QtCore/QElapsedTimer>

#include <limits>
#include <optional>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kBlockBytes = 1048576;
constexpr int kShortMs = 200;
// The scripted server keeps all that it reads.
constexpr qint64 kBytesPerSecond = 32 * kBlockBytes;

// Greets the client, accepts its command, and plays on.
RawServer::Script accepting(std::function<void(RawConnection &)> play)
{
    return [play = std::move(play)](RawConnection &peer) {
        peer.send(RawServer::uuid());
        peer.readCommand();
        peer.send(RawBytes::ack());
        play(peer);
    };
}

// Takes the client's blocks up to its end word; their bytes, or -1 when one was cut off.
qint64 takeBlocks(RawConnection &peer)
{
    qint64 taken = 0;
    for (;;) {
        const QByteArray word = peer.read(8);
        if (word.size() < 8)
            return -1;
        const qint64 size = word.toHex().toLongLong(nullptr, 16);
        if (size == 0)
            return taken;
        taken += peer.read(size).size();
    }
}

QByteArray block(qint64 size)
{
    return RawBytes::i64(size) + QByteArray(size, 'b');
}

QByteArray theEnd()
{
    return RawBytes::u64(0) + RawBytes::ack();
}

} // namespace

class tst_SClientBase_linktest : public QObject
{
    Q_OBJECT

private:
    // One link test on a server.
    struct Run
    {
        explicit Run(RawServer::Script script)
            : server(std::move(script))
            , session(server.port())
            , started(session.client, &SClientBase::linkTestStarted)
            , tested(session.client, &SClientBase::linkTestFinished)
            , moved(session.client, &SClientBase::transferredBytes)
            , progress(session.client, &SClientBase::progress)
        {
        }

        [[nodiscard]] bool start(int up, int down, int timeout = 10000)
        {
            if (!session.open())
                return false;
            session.inThread([&] {
                session.client->setTimeout(timeout);
                session.client->socket()->setOutcomingSpeed(kBytesPerSecond);
            });
            session.client->linkTest(up, down);
            return true;
        }
        [[nodiscard]] bool succeeds()
        {
            return session.waitForExchanges(1) &&
                   session.exchanges() == QList<QByteArray>({"lnkt+"});
        }
        [[nodiscard]] bool endsTheSession()
        {
            return session.ends() && session.exchanges() == QList<QByteArray>({"lnkt-"});
        }

        RawServer server;
        ClientSession session;
        SignalLog<int, int> started;
        SignalLog<double, double> tested;
        SignalLog<qint64, qint64> moved;
        SignalLog<int> progress;
    };

private Q_SLOTS:
    void noSecondsExchangeTheEndWords()
    {
        Run run(accepting([](RawConnection &peer) {
            peer.send(theEnd());
            peer.readToEnd();
        }));
        QVERIFY(run.start(0, 0));
        QVERIFY(run.succeeds());
        QCOMPARE(run.started.count(), 1);
        QCOMPARE(run.started.value<0>(), 0);
        QCOMPARE(run.started.value<1>(), 0);
        QCOMPARE(run.tested.count(), 1);
        QCOMPARE(run.tested.value<0>(), 0.0);
        QCOMPARE(run.tested.value<1>(), 0.0);
        QCOMPARE(run.progress.value(), 100);
        run.session.inThread([&] { run.session.client->disconnect(); });
        QCOMPARE(run.server.received().toHex(),
                 (RawBytes::command("lnkt", RawBytes::i32(0) + RawBytes::i32(0)) + RawBytes::u64(0))
                     .toHex());
    }

    void negativeSecondsSendNothing()
    {
        Run run(accepting([](RawConnection &peer) {
            peer.send(theEnd());
            peer.readToEnd();
        }));
        QVERIFY(run.start(-1, std::numeric_limits<int>::min()));
        QVERIFY(run.succeeds());
        run.session.inThread([&] { run.session.client->disconnect(); });
        QVERIFY(run.server.received().endsWith(RawBytes::u64(0)));
    }

    void onlyTheUploadCarriesData()
    {
        qint64 taken = 0;
        qint64 duration = 0;
        Run run(accepting([&](RawConnection &peer) {
            QElapsedTimer timer;
            timer.start();
            taken = takeBlocks(peer);
            duration = timer.elapsed();
            peer.send(theEnd());
            peer.readToEnd();
        }));
        QVERIFY(run.start(2, 0));
        QVERIFY(run.succeeds());
        run.session.inThread([&] { run.session.client->disconnect(); });
        // Whole blocks of zeros, the end word, and no byte behind it.
        const QByteArray sent = run.server.received();
        QVERIFY(taken > 0);
        QCOMPARE(taken % kBlockBytes, 0);
        const qsizetype frame = RawBytes::command("lnkt", QByteArray(8, '\0')).size();
        QCOMPARE(sent.size(), frame + taken / kBlockBytes * (kBlockBytes + 8) + 8);
        QVERIFY(
            sent.mid(frame).startsWith(RawBytes::i64(kBlockBytes) + QByteArray(kBlockBytes, '\0')));
        QVERIFY(duration >= 1900);

        const double rate = run.tested.value<0>();
        QVERIFY(rate > static_cast<double>(taken) / 20);
        QVERIFY(rate <= static_cast<double>(taken) / 2);
        QCOMPARE(run.tested.value<1>(), 0.0);
        // Of two phases that are taken to move as much.
        QVERIFY(!run.moved.isEmpty());
        for (const auto &[bytes, total] : run.moved.entries())
            QVERIFY(bytes <= taken && total > bytes);
    }

    void onlyTheDownloadCarriesData()
    {
        Run run(accepting([](RawConnection &peer) {
            peer.read(8);
            peer.send(block(1000));
            QThread::msleep(1500); // past the half second in which nothing is reported
            peer.send(block(1000) + theEnd());
            peer.readToEnd();
        }));
        QVERIFY(run.start(0, 3));
        QVERIFY(run.succeeds());
        QCOMPARE(run.tested.value<0>(), 0.0);
        QVERIFY(run.tested.value<1>() > 2000 / 20.0);
        QVERIFY(run.tested.value<1>() <= 2000 / 0.5);
        QCOMPARE(run.moved.count(), 1);
        QCOMPARE(run.moved.value<0>(), 2000);
        QVERIFY(run.moved.value<1>() > 2000);
        QVERIFY(run.moved.value<1>() <= 2000 * 3 / 0.5);
    }

    void theSignalsComeInOrderFromTheWorkersThread()
    {
        Run run(accepting([](RawConnection &peer) {
            peer.read(8);
            QThread::msleep(700); // past the half second in which nothing is reported
            peer.send(block(1) + theEnd());
            peer.readToEnd();
        }));
        QList<QByteArray> signalled; // by the worker, until the result is here
        bool isWorkers = true;
        const auto *client = run.session.client.data();
        const auto note = [&signalled, &isWorkers, client](const QByteArray &text) {
            signalled.append(text);
            isWorkers = isWorkers && QThread::currentThread() == client->thread();
        };
        connect(
            client, &SClientBase::linkTestStarted, client,
            [note](int up, int down) {
                note("started " + QByteArray::number(up) + ' ' + QByteArray::number(down));
            },
            Qt::DirectConnection);
        connect(
            client, &SClientBase::transferredBytes, client,
            [note](qint64 bytes) { note("moved " + QByteArray::number(bytes)); },
            Qt::DirectConnection);
        connect(
            client, &SClientBase::progress, client,
            [note](int percent) { note("progress " + QByteArray::number(percent)); },
            Qt::DirectConnection);
        connect(
            client, &SClientBase::linkTestFinished, client, [note] { note("finished"); },
            Qt::DirectConnection);
        QVERIFY(run.start(0, 1000));
        QVERIFY(run.succeeds());
        QCOMPARE(signalled, (QList<QByteArray>{"started 0 1000", "progress 0", "moved 1",
                                               "progress 100", "finished"}));
        QVERIFY(isWorkers);
    }

    // ---- Wrong servers

    void aBlockAboveTheBufferEndsTheSession_data()
    {
        QTest::addColumn<quint64>("size");
        QTest::newRow("one byte above") << quint64(kBlockBytes + 1);
        QTest::newRow("2 GiB") << (quint64(1) << 31);
        QTest::newRow("negative") << ~quint64(0);
        QTest::newRow("smallest") << (quint64(1) << 63);
    }

    void aBlockAboveTheBufferEndsTheSession()
    {
        QFETCH(quint64, size);
        Run run(accepting([size](RawConnection &peer) {
            peer.send(RawBytes::u64(size) + "x");
            peer.readToEnd();
        }));
        QVERIFY(run.start(0, 1));
        QVERIFY(run.endsTheSession());
        QVERIFY(run.tested.isEmpty());
    }

    void theLargestBlockIsTaken()
    {
        Run run(accepting([](RawConnection &peer) {
            peer.send(block(kBlockBytes) + block(1) + theEnd());
            peer.readToEnd();
        }));
        QVERIFY(run.start(0, 1));
        QVERIFY(run.succeeds());
    }

    void noBlockWithinTheTimeOutEndsTheSession()
    {
        Run run(accepting([](RawConnection &peer) {
            // The time counts from block to block.
            for (int i = 0; i < 4; ++i) {
                QThread::msleep(kShortMs / 2);
                peer.send(block(1));
            }
            peer.readToEnd();
        }));
        QElapsedTimer timer;
        timer.start();
        QVERIFY(run.start(0, 1, kShortMs));
        QVERIFY(run.endsTheSession());
        QVERIFY(timer.elapsed() >= 3 * kShortMs);
        QVERIFY(run.tested.isEmpty());
    }

    void aNegativeTimeOutWaits_data()
    {
        QTest::addColumn<int>("timeout");
        QTest::newRow("-1 ms") << -1;
        QTest::newRow("-2 ms") << -2;
        QTest::newRow("least") << std::numeric_limits<int>::min();
    }

    void aNegativeTimeOutWaits()
    {
        QFETCH(int, timeout);
        Run run(accepting([](RawConnection &peer) {
            QThread::msleep(500);
            peer.send(theEnd());
            peer.readToEnd();
        }));
        QVERIFY(run.start(0, 0, timeout));
        QVERIFY(run.succeeds());
    }

    void aBlockCutOffEndsTheSession_data()
    {
        QTest::addColumn<bool>("goes");
        QTest::newRow("the server goes") << true;
        QTest::newRow("the server stays") << false;
    }

    void aBlockCutOffEndsTheSession()
    {
        QFETCH(bool, goes);
        Run run(accepting([goes](RawConnection &peer) {
            peer.send(block(1000).chopped(1));
            if (!goes)
                peer.readToEnd();
        }));
        QVERIFY(run.start(0, 1, kShortMs));
        QVERIFY(run.endsTheSession());
        QVERIFY(run.tested.isEmpty());
    }

    // It is told as such, but the completion word is missing then.
    void aSizeThatIsCutOffCountsAsTheEnd()
    {
        Run run(accepting([](RawConnection &peer) {
            peer.send(block(10) + RawBytes::i64(10).left(3));
            peer.readToEnd();
        }));
        QVERIFY(run.start(0, 1, kShortMs));
        QVERIFY(run.endsTheSession());
        QCOMPARE(run.tested.count(), 1);
    }

    void aServerThatGoesEndsTheSession_data()
    {
        QTest::addColumn<int>("up");
        QTest::addColumn<int>("down");
        QTest::newRow("during the upload") << 60 << 0;
        QTest::newRow("during the download") << 0 << 60;
    }

    void aServerThatGoesEndsTheSession()
    {
        QFETCH(int, up);
        QFETCH(int, down);
        Run run(accepting([up](RawConnection &peer) {
            if (up == 0)
                peer.send(block(1000));
            peer.read(8);
            peer.vanish();
        }));
        QVERIFY(run.start(up, down));
        QVERIFY(run.endsTheSession());
        QVERIFY(run.tested.isEmpty());
    }

    void aServerThatTakesNothingEndsTheSession()
    {
        QSemaphore end;
        Run run(accepting([&](RawConnection &peer) {
            peer.socket().setReadBufferSize(1);
            end.acquire();
        }));
        QVERIFY(run.start(60, 0, kShortMs));
        QVERIFY(run.endsTheSession());
        end.release();
    }

    // ---- Interruptions

    void anInterruptionDuringTheUploadEndsTheSession()
    {
        Run run(accepting([](RawConnection &peer) {
            while (!peer.read(0x10000).isEmpty()) {
            }
        }));
        QVERIFY(run.start(60, 0));
        QVERIFY(run.started.waitForCount(1));
        run.session.controller.interruptWorkers();
        QVERIFY(run.endsTheSession());
        QVERIFY(run.tested.isEmpty());
    }

    void anInterruptionDuringTheDownloadEndsTheSession()
    {
        Run run(accepting([](RawConnection &peer) {
            while (peer.send(block(10)))
                QThread::msleep(5);
        }));
        QVERIFY(run.start(0, 60));
        QVERIFY(run.started.waitForCount(1));
        run.session.controller.interruptWorkers();
        QVERIFY(run.endsTheSession());
        QVERIFY(run.tested.isEmpty());
    }

    // The largest number of seconds must not overflow into none.
    void aVeryLongTestCanBeInterrupted()
    {
        Run run(accepting([](RawConnection &peer) {
            while (!peer.read(0x10000).isEmpty()) {
            }
        }));
        const int longest = std::numeric_limits<int>::max();
        QVERIFY(run.start(longest, longest));
        QVERIFY(run.moved.waitForCount(1));
        run.session.controller.interruptWorkers();
        QVERIFY(run.endsTheSession());
        for (const auto &[bytes, total] : run.moved.entries())
            QVERIFY(total >= bytes);
    }

    // ---- Memory

    void withoutMemoryTheSessionEnds()
    {
        const FailingAllocation noBlocks(kBlockBytes);
        Run run(accepting([](RawConnection &peer) { peer.readToEnd(); }));
        QVERIFY(run.start(0, 0));
        QVERIFY(run.endsTheSession());
        QVERIFY(run.tested.isEmpty());
    }

    // What a test needs it has from its start; it does not fail half way.
    void memoryIsTakenOnce()
    {
        Run run(accepting([](RawConnection &peer) {
            peer.send(theEnd());
            peer.readToEnd();
        }));
        std::optional<FailingAllocation> noBlocks;
        connect(
            run.session.client, &SClientBase::linkTestStarted, run.session.client,
            [&noBlocks] { noBlocks.emplace(kBlockBytes); }, Qt::DirectConnection);
        QVERIFY(run.start(0, 0));
        QVERIFY(run.succeeds());
    }
};

QTEST_GUILESS_MAIN(tst_SClientBase_linktest)
#include "tst_sclientbase_linktest.moc"
