// SPDX-License-Identifier: MIT
// The server's half of the link test, under a scripted client.
#include <brixlib/protocol/wire.h>

#include <shared/failingallocation.h>
#include <shared/rawclient.h>
#include <shared/sessionhost.h>

#include <functional>
#include <limits>
#include <optional>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kBlockBytes = 1048576;

} // namespace

class tst_SServerBase_linktest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_started.clear();
        m_finished.clear();
        m_transferred.clear();
        m_progress = -1;
        m_result = false;
        m_watch = {};
    }

    void noSecondsExchangeTheEndWords()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(start(client, host, 0, 0));
        QVERIFY(client.staysQuiet(50));
        client.send(RawBytes::u64(0));
        QCOMPARE(client.read(12), RawBytes::u64(0) + RawBytes::ack());
        QTRY_VERIFY(m_result);
        QCOMPARE(m_started, (QList<QVariantList>{{0, 0}}));
        QCOMPARE(m_finished, (QList<QVariantList>{{0.0, 0.0}}));
        QCOMPARE(m_progress, 100);
        sessionGoesOn(client);
    }

    void theUploadIsMeasured()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(start(client, host, 2, 0));
        for (int i = 0; i < 8; ++i)
            client.send(RawBytes::u64(kBlockBytes) + QByteArray(kBlockBytes, 'x'));
        QVERIFY(client.staysQuiet(500));
        client.send(RawBytes::u64(1) + "x" + RawBytes::u64(0));
        QCOMPARE(client.read(12), RawBytes::u64(0) + RawBytes::ack());
        QTRY_COMPARE(m_finished.size(), 1);
        const double rate = m_finished.at(0).at(0).toDouble();
        QVERIFY(rate > 8.0 * kBlockBytes / 60);
        QVERIFY(rate < (8.0 * kBlockBytes + 1) / 0.25); // half a second, or little less
        QCOMPARE(m_finished.at(0).at(1).toDouble(), 0.0);
        sessionGoesOn(client);
    }

    void theDownloadLastsAsLongAsAsked()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(start(client, host, 0, 1));
        QElapsedTimer timer;
        timer.start();
        client.send(RawBytes::u64(0));
        qint64 received = 0;
        for (quint64 size = client.readWord64(); size != 0; size = client.readWord64()) {
            QCOMPARE(size, static_cast<quint64>(kBlockBytes));
            QCOMPARE(client.read(kBlockBytes).size(), kBlockBytes);
            received += kBlockBytes;
        }
        QVERIFY(timer.elapsed() >= 1000);
        QVERIFY2(timer.elapsed() < 5000, qPrintable(u"took %1 ms"_s.arg(timer.elapsed())));
        QCOMPARE(client.read(4), RawBytes::ack());
        QTRY_COMPARE(m_finished.size(), 1);
        QCOMPARE(m_finished.at(0).at(0).toDouble(), 0.0);
        const double rate = m_finished.at(0).at(1).toDouble();
        QVERIFY(rate > static_cast<double>(received) / 10);
        QVERIFY(rate <= static_cast<double>(received));
        // Reports begin after half a second.
        QVERIFY(!m_transferred.isEmpty());
        QVERIFY(m_transferred.first().first < received);
        for (const auto &report : std::as_const(m_transferred))
            QVERIFY(report.first <= received && report.second > 0);
        sessionGoesOn(client);
    }

    void reportsOfTheUploadCountBothPhases()
    {
        constexpr qint64 kPlannedMs = 1000;
        constexpr qint64 kReportAfterMs = 500;
        constexpr qint64 kPieceBytes = 1000;
        SessionHost host;
        RawClient client;
        // The server begins to count the time after this, however late that is.
        QElapsedTimer sinceBefore;
        sinceBefore.start();
        QVERIFY(start(client, host, 1, 0));
        qint64 sent = 0;
        while (m_transferred.isEmpty() && sinceBefore.elapsed() < 10000) {
            client.send(RawBytes::u64(kPieceBytes) + QByteArray(kPieceBytes, 'x'));
            sent += kPieceBytes;
            QVERIFY(client.staysQuiet(200));
        }
        const qint64 latest = sinceBefore.elapsed();
        QVERIFY(!m_transferred.isEmpty());
        const auto [bytes, whole] = m_transferred.first();
        QVERIFY(bytes > 0 && bytes <= sent && bytes % kPieceBytes == 0);
        // As much in the whole time as in the time until the report, and as much once more to come.
        // That time is between the earliest for a report and the one measured here; the server
        // drops the fraction of each half.
        QVERIFY(whole <= 2 * bytes * kPlannedMs / kReportAfterMs);
        QVERIFY(whole >= 2 * (bytes * kPlannedMs / latest));
    }

    void theDownloadIsReportedOnTopOfTheUpload()
    {
        constexpr qint64 kPlannedMs = 1000;
        constexpr qint64 kReportAfterMs = 500;
        constexpr qint64 kUploadBytes = 1000;
        const QByteArray zeros(kBlockBytes, '\0');
        SessionHost host;
        RawClient client;
        QVERIFY(start(client, host, 0, 1));
        QElapsedTimer timer;
        timer.start();
        client.send(RawBytes::u64(kUploadBytes) + QByteArray(kUploadBytes, 'x') + RawBytes::u64(0));
        while (client.readWord64() != 0)
            QVERIFY(client.read(kBlockBytes) == zeros); // nothing of what was sent here
        QTRY_COMPARE(m_finished.size(), 1);
        QVERIFY(!m_transferred.isEmpty());
        for (const auto &[bytes, whole] : std::as_const(m_transferred)) {
            const qint64 sent = bytes - kUploadBytes;
            QVERIFY(sent > 0);
            QCOMPARE(sent % kBlockBytes, 0);
            // The time until a report is between the earliest and all that it took.
            const qint64 estimate = whole - kUploadBytes;
            QVERIFY(estimate <= sent * kPlannedMs / kReportAfterMs);
            QVERIFY(estimate >= sent * kPlannedMs / timer.elapsed());
        }
    }

    // A client may send although it said that it would not.
    void anUploadThatWasNotPlannedHasNoTotal_data()
    {
        QTest::addColumn<qint32>("seconds");
        QTest::newRow("none") << qint32(0);
        QTest::newRow("less than none") << qint32(-1);
        QTest::newRow("least") << std::numeric_limits<qint32>::min();
    }

    void anUploadThatWasNotPlannedHasNoTotal()
    {
        QFETCH(qint32, seconds);
        SessionHost host;
        RawClient client;
        QVERIFY(start(client, host, seconds, 0));
        QVERIFY(client.staysQuiet(700));
        client.send(RawBytes::u64(1) + "x" + RawBytes::u64(0));
        QCOMPARE(client.read(12), RawBytes::u64(0) + RawBytes::ack());
        QTRY_COMPARE(m_finished.size(), 1);
        QCOMPARE(m_transferred, (QList<std::pair<qint64, qint64>>{{1, 0}}));
    }

    void theSignalsComeInOrderFromTheWorkersThread()
    {
        SessionHost host;
        RawClient client;
        QList<QByteArray> signalled; // by the worker, until the result is here
        bool isWorkers = true;
        m_watch = [&](SServerBase *server) {
            const auto note = [&signalled, &isWorkers, server](const QByteArray &text) {
                signalled.append(text);
                isWorkers = isWorkers && QThread::currentThread() == server->thread();
            };
            connect(
                server, &SServerBase::linkTestStarted, server,
                [note](int up, int down) {
                    note("started " + QByteArray::number(up) + ' ' + QByteArray::number(down));
                },
                Qt::DirectConnection);
            connect(
                server, &SServerBase::transferredBytes, server,
                [note](qint64 bytes) { note("moved " + QByteArray::number(bytes)); },
                Qt::DirectConnection);
            connect(
                server, &SServerBase::progress, server,
                [note](int percent) { note("progress " + QByteArray::number(percent)); },
                Qt::DirectConnection);
            connect(
                server, &SServerBase::linkTestFinished, server, [note] { note("finished"); },
                Qt::DirectConnection);
        };
        QVERIFY(start(client, host, 1000, 0));
        QVERIFY(client.staysQuiet(700));
        client.send(RawBytes::u64(1) + "x" + RawBytes::u64(0));
        QCOMPARE(client.read(12), RawBytes::u64(0) + RawBytes::ack());
        QTRY_VERIFY(m_result);
        QCOMPARE(signalled, (QList<QByteArray>{"started 1000 0", "progress 0", "moved 1",
                                               "progress 100", "finished"}));
        QVERIFY(isWorkers);
    }

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
        SessionHost host;
        RawClient client;
        QVERIFY(start(client, host, 1, 1));
        client.send(RawBytes::u64(size) + "x");
        QCOMPARE(client.read(4), RawBytes::nack());
        QVERIFY(client.endsHere());
        QTRY_COMPARE(host.controller.count(), 0);
        QVERIFY(m_finished.isEmpty());
    }

    void noBlockWithinTheTimeOutEndsTheSession()
    {
        SessionHost host;
        host.timeoutMs = 300;
        RawClient client;
        QVERIFY(start(client, host, 1, 1));
        // The time counts from block to block.
        for (int i = 0; i < 4; ++i) {
            QVERIFY(client.staysQuiet(150));
            client.send(RawBytes::u64(1) + "x");
        }
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(client.read(4), RawBytes::nack());
        QVERIFY(timer.elapsed() >= 250);
        QVERIFY(client.endsHere());
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
        SessionHost host;
        host.timeoutMs = timeout;
        RawClient client;
        QVERIFY(start(client, host, 1, 0));
        QVERIFY(client.staysQuiet(500));
        client.send(RawBytes::u64(0));
        QCOMPARE(client.read(12), RawBytes::u64(0) + RawBytes::ack());
    }

    // Nothing is waited for then, and what the client does not read would pile up here.
    void withATimeOutOfNoneAnUnreadDownloadEndsTheSession()
    {
        SessionHost host;
        host.timeoutMs = 0;
        RawClient client;
        QVERIFY(start(client, host, 0, 0, RawBytes::u64(0)));
        QTRY_VERIFY(m_result);
        client.socket().setReadBufferSize(16);
        client.send(RawBytes::command("lnkt", RawBytes::i32(0) + RawBytes::i32(1)) +
                    RawBytes::u64(0));
        QTRY_COMPARE(host.controller.count(), 0);
        QVERIFY(!m_result);
        QCOMPARE(m_finished.size(), 1); // that of the test before
    }

    void aBlockCutOffEndsTheSession()
    {
        SessionHost host;
        host.timeoutMs = 100;
        RawClient client;
        QVERIFY(start(client, host, 1, 1));
        client.send(RawBytes::u64(1000) + QByteArray(999, 'x'));
        QCOMPARE(client.read(4), RawBytes::nack());
        QVERIFY(client.endsHere());
    }

    void negativeSecondsSendNothing()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(start(client, host, -1, std::numeric_limits<qint32>::min()));
        client.send(RawBytes::u64(0));
        QCOMPARE(client.read(12), RawBytes::u64(0) + RawBytes::ack());
    }

    void anInterruptionEndsTheUpload()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(start(client, host, 60, 60));
        client.send(RawBytes::u64(1) + "x");
        QVERIFY(client.staysQuiet(50));
        m_result = true;
        host.controller.interruptWorkers();
        QCOMPARE(client.read(4), RawBytes::nack());
        QVERIFY(client.endsHere(1500));
        QTRY_VERIFY(!m_result);
    }

    // The largest number of seconds must not overflow into none.
    void aVeryLongTestCanBeInterrupted()
    {
        SessionHost host;
        RawClient client;
        const qint32 longest = std::numeric_limits<qint32>::max();
        QVERIFY(start(client, host, longest, longest));
        client.send(RawBytes::u64(0));
        QCOMPARE(client.readWord64(), static_cast<quint64>(kBlockBytes));
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < 700)
            QVERIFY(client.read(kBlockBytes).size() == kBlockBytes);
        host.controller.interruptWorkers();
        while (client.socket().state() == QAbstractSocket::ConnectedState)
            client.read(kBlockBytes, 100);
        QTRY_COMPARE_WITH_TIMEOUT(host.controller.count(), 0, 2000);
        QVERIFY(!m_result);
        QVERIFY(m_finished.isEmpty());
        for (const auto &report : std::as_const(m_transferred))
            QVERIFY(report.second >= report.first);
    }

    void withoutMemoryTheSessionEnds()
    {
        SessionHost host;
        RawClient client;
        const FailingAllocation noBlocks(kBlockBytes);
        QVERIFY(start(client, host, 0, 0));
        QCOMPARE(client.read(4), RawBytes::nack());
        QVERIFY(client.endsHere());
        QTRY_COMPARE(host.controller.count(), 0);
        QVERIFY(m_finished.isEmpty());
    }

    // What a test needs it has from its start; it does not fail half way.
    void memoryIsTakenOnce()
    {
        SessionHost host;
        RawClient client;
        std::optional<FailingAllocation> noBlocks;
        m_watch = [&](SServerBase *server) {
            connect(
                server, &SServerBase::linkTestStarted, server,
                [&noBlocks] { noBlocks.emplace(kBlockBytes); }, Qt::DirectConnection);
        };
        QVERIFY(start(client, host, 0, 0));
        client.send(RawBytes::u64(0));
        QCOMPARE(client.read(12), RawBytes::u64(0) + RawBytes::ack());
    }

private:
    // Logs in and has the test accepted; what else is sent goes out together with the command.
    [[nodiscard]] bool start(RawClient &client, SessionHost &host, qint32 up, qint32 down,
                             const QByteArray &more = {})
    {
        host.prepare = [this](SServerBase *server) {
            if (m_watch)
                m_watch(server);
            connect(server, &SServerBase::linkTestStarted, this, [this](int first, int second) {
                m_started.append({first, second});
            });
            connect(server, &SServerBase::linkTestFinished, this,
                    [this](double first, double second) {
                        m_finished.append({first, second});
                    });
            connect(server, &SServerBase::transferredBytes, this,
                    [this](qint64 bytes, qint64 total) {
                        m_transferred.append({bytes, total});
                    });
            connect(server, &SServerBase::progress, this,
                    [this](int value) { m_progress = value; });
            connect(server, &SServerBase::commandResult, this, [this](SCommandId id, bool result) {
                if (id == CommandIds::kLinkTest)
                    m_result = result;
            });
        };
        if (!client.openAndLogin(host.port(), u"alice"_s, u"secret"_s))
            return false;
        client.send(RawBytes::command("lnkt", RawBytes::i32(up) + RawBytes::i32(down)) + more);
        return client.read(4) == RawBytes::ack();
    }

    static void sessionGoesOn(RawClient &client)
    {
        client.send(RawBytes::command("wami"));
        QCOMPARE(client.read(4), RawBytes::ack());
        QCOMPARE(client.readFrame(), RawBytes::text(u"alice"));
        QCOMPARE(client.read(4), RawBytes::ack());
    }

    std::function<void(SServerBase *)> m_watch; // called for each session before its thread starts
    QList<QVariantList> m_started;
    QList<QVariantList> m_finished;
    QList<std::pair<qint64, qint64>> m_transferred;
    int m_progress = -1;
    bool m_result = false;
};

QTEST_GUILESS_MAIN(tst_SServerBase_linktest)
#include "tst_sserverbase_linktest.moc"
