// SPDX-License-Identifier: MIT
#include <brixlib/protocol/socket/stcpsocket.h>
#include <brixlib/protocol/socket/stcpsocketspeedcontroller.h>

#include <shared/rawpeer.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace Talverine;

namespace {

constexpr qint64 kMebibyte = 1 << 20;
constexpr int kBufferBytes = 262144;

enum class Way { Out, In };

/*!
 * One connection in a thread of its own that moves bytes as fast as its socket lets it. The bytes
 * are counted where they arrive: at the peer, or where the socket's owner has read them.
 */
class Flow
{
public:
    Flow(Way way, qsizetype block, qint64 firstLimit, STcpSocketSpeedController *controller)
        : m_way(way)
        , m_block(block)
        , m_firstLimit(firstLimit)
        , m_thread([this, controller] { run(controller); })
    {
    }

    ~Flow()
    {
        m_stop = true;
        m_thread.join();
    }

    qint64 moved() const { return m_moved; }
    bool hasFailed() const { return m_failed; }

private:
    void run(STcpSocketSpeedController *controller)
    {
        STcpSocket socket;
        RawPeer peer;
        if (!peer.accept(&socket)) {
            m_failed = true;
            return;
        }
        socket.setSocketOption(QAbstractSocket::SendBufferSizeSocketOption, kBufferBytes);
        socket.setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, kBufferBytes);
        socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
        m_way == Way::Out ? socket.setOutcomingSpeed(m_firstLimit)
                          : socket.setIncomingSpeed(m_firstLimit);
        if (controller)
            controller->add(&socket);
        m_way == Way::Out ? send(&socket, &peer) : receive(&socket, &peer);
        if (controller)
            controller->remove(&socket);
    }

    void send(STcpSocket *socket, RawPeer *peer)
    {
        std::thread reader([&] {
            while (const qsizetype count = peer->receiveSome(kBufferBytes))
                m_moved += count;
        });
        const QByteArray block(m_block, 'x');
        while (!m_stop && !m_failed) {
            m_failed = socket->write(block) != block.size();
            while (socket->bytesToWrite() > 0 && !m_failed)
                m_failed = !socket->waitForBytesWritten(10000);
        }
        socket->abort();
        reader.join();
    }

    void receive(STcpSocket *socket, RawPeer *peer)
    {
        std::thread writer([&] {
            const QByteArray block(m_block, 'x');
            while (!m_stop && peer->send(block)) {
            }
        });
        QByteArray buffer(m_block, Qt::Uninitialized);
        while (!m_stop && !m_failed) {
            m_failed = socket->bytesAvailable() == 0 && !socket->waitForReadyRead(10000);
            m_moved += qMax(socket->read(buffer.data(), buffer.size()), qint64(0));
        }
        socket->abort();
        writer.join();
    }

    Way m_way;
    qsizetype m_block;
    qint64 m_firstLimit;
    std::atomic<qint64> m_moved = 0;
    std::atomic<bool> m_stop = false;
    std::atomic<bool> m_failed = false;
    std::thread m_thread;
};

} // namespace

/*!
 * Holds measured rates over ten seconds against their limits.
 *
 * The limiter looks at half a second and knows nothing before it. Whoever uses up the limit of a
 * whole second within a millisecond may thus do so twice a second: such rows expect up to twice the
 * limit. That is the case when one block, or what a peer has sent ahead into the system's buffers,
 * is as large as the socket's share.
 */
class tst_SpeedLimits : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rateOverTenSeconds_data()
    {
        QTest::addColumn<int>("way");
        QTest::addColumn<int>("sockets");
        QTest::addColumn<qint64>("limit");
        QTest::addColumn<qint64>("block");
        QTest::addColumn<double>("least");
        QTest::addColumn<double>("most");
        const int out = static_cast<int>(Way::Out);
        const int in = static_cast<int>(Way::In);
        const qint64 slow = kMebibyte;
        const qint64 fast = 100 * kMebibyte;
        const qint64 small = 4096;
        const qint64 medium = 65536;

        QTest::newRow("one sender, 100 MiB/s") << out << 1 << fast << medium << 0.95 << 1.05;
        QTest::newRow("one receiver, 100 MiB/s") << in << 1 << fast << medium << 0.95 << 1.05;
        QTest::newRow("one sender, 1 MiB/s") << out << 1 << slow << small << 0.95 << 1.05;
        QTest::newRow("one receiver, 1 MiB/s") << in << 1 << slow << small << 0.95 << 1.05;
        QTest::newRow("one sender, 1 MiB/s, blocks of 1 MiB")
            << out << 1 << slow << slow << 1.85 << 2.10;

        QTest::newRow("four senders, 100 MiB/s") << out << 4 << fast << medium << 0.95 << 1.05;
        QTest::newRow("four receivers, 100 MiB/s") << in << 4 << fast << medium << 0.95 << 1.05;
        QTest::newRow("four senders, 1 MiB/s") << out << 4 << slow << small << 0.95 << 1.05;
        QTest::newRow("four receivers, 1 MiB/s, buffers as large as a share")
            << in << 4 << slow << small << 0.95 << 2.10;
    }

    void rateOverTenSeconds()
    {
        QFETCH(int, way);
        QFETCH(int, sockets);
        QFETCH(qint64, limit);
        QFETCH(qint64, block);
        QFETCH(double, least);
        QFETCH(double, most);

        STcpSocketSpeedController controller;
        const bool shared = sockets > 1;
        controller.setIncomingSpeed(limit);
        controller.setOutcomingSpeed(limit);
        std::vector<std::unique_ptr<Flow>> flows;
        for (int i = 0; i < sockets; ++i)
            flows.push_back(std::make_unique<Flow>(static_cast<Way>(way), block, limit / sockets,
                                                   shared ? &controller : nullptr));
        const auto moved = [&] {
            qint64 bytes = 0;
            for (const auto &flow : flows)
                bytes += flow->moved();
            return bytes;
        };

        // The first burst, and what flows before a controller has its first reports, is no part of
        // it.
        QVERIFY(QTest::qWaitFor([&] { return moved() > 0; }, 10000));
        QTest::qWait(3000);
        const qint64 before = moved();
        QElapsedTimer clock;
        clock.start();
        QTest::qWait(10000);
        const qint64 bytes = moved() - before;
        const double rate =
            static_cast<double>(bytes) * 1000 / static_cast<double>(clock.elapsed());
        const double ratio = rate / static_cast<double>(limit);
        qInfo("%.3f of the limit", ratio);

        for (const auto &flow : flows)
            QVERIFY(!flow->hasFailed());
        QVERIFY2(ratio >= least && ratio <= most, qPrintable(QString::number(ratio)));
        // Nobody is held back while the connections end.
        controller.setIncomingSpeed(0);
        controller.setOutcomingSpeed(0);
    }
};

QTEST_GUILESS_MAIN(tst_SpeedLimits)
#include "tst_speedlimits.moc"
