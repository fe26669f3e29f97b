// SPDX-License-Identifier: MIT
// What clients that nobody knows, and users who take too much, can do to "brix serve" that has few
// descriptors and little memory.
#include <shared/processfacts.h>
#include <shared/rawclient.h>
#include <tool/toolserver.h>

#include <QtCore/QElapsedTimer>
#include <QtTest/QTest>

#include <memory>
#include <vector>

#include <sys/resource.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int kPatienceMs = 60'000;
constexpr int kDescriptors = 256;
constexpr rlim_t kAddressSpace = rlim_t(1) << 30;

const QStringList kCountsOff = {
    u"--max-connections"_s,    u"0"_s, u"--max-per-address"_s,        u"0"_s,
    u"--max-logins-pending"_s, u"0"_s, u"--max-logins-per-address"_s, u"0"_s};

// The process cannot raise what it is given here.
void limitProcess(QProcess *process, int resource, rlim_t value)
{
    process->setChildProcessModifier([resource, value] {
        const rlimit limit{value, value};
        setrlimit(static_cast<__rlimit_resource>(resource), &limit);
    });
}

// Connections that say nothing.
class SilentCrowd
{
public:
    SilentCrowd(int size, quint16 port)
    {
        for (int i = 0; i < size; ++i) {
            auto &socket = m_sockets.emplace_back(std::make_unique<QTcpSocket>());
            socket->connectToHost(QHostAddress(QHostAddress::LocalHost), port);
        }
    }

    int greeted() const
    {
        return count([](const QTcpSocket &socket) { return socket.bytesAvailable() >= 16; });
    }
    int refused() const
    {
        return count([](const QTcpSocket &socket) {
            return socket.state() == QAbstractSocket::UnconnectedState &&
                   socket.bytesAvailable() == 0;
        });
    }
    //! Whether each connection has been greeted or refused.
    bool isSettled() const { return greeted() + refused() == static_cast<int>(m_sockets.size()); }

private:
    template<typename Test>
    int count(Test test) const
    {
        int number = 0;
        for (const auto &socket : m_sockets)
            number += test(*socket) ? 1 : 0;
        return number;
    }

    std::vector<std::unique_ptr<QTcpSocket>> m_sockets;
};

} // namespace

class tst_Strangers : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ToolServer> m_server;

    qint64 pid() { return m_server->process().processId(); }
    bool serves() { return m_server->run({u"whoami"_s, m_server->url()}).out == "ann\n"; }

private Q_SLOTS:
    void init() { m_server = std::make_unique<ToolServer>(); }
    void cleanup() { m_server.reset(); }

    void idleConnectionsEndNothing_data()
    {
        QTest::addColumn<int>("resource");
        QTest::addColumn<qint64>("limit");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("least");
        QTest::addColumn<int>("most");
        const int descriptors = RLIMIT_NOFILE;
        QTest::newRow("few descriptors, defaults")
            << descriptors << qint64(kDescriptors) << QStringList() << 20 << 50;
        QTest::newRow("few descriptors, 50 connections")
            << descriptors << qint64(kDescriptors)
            << QStringList{u"--max-connections"_s,        u"50"_s,
                           u"--max-logins-pending"_s,     u"0"_s,
                           u"--max-logins-per-address"_s, u"0"_s}
            << 20 << 50;
        QTest::newRow("few descriptors and nothing else")
            << descriptors << qint64(kDescriptors) << kCountsOff << 20 << kDescriptors / 2;
        QTest::newRow("little address space and nothing else")
            << int(RLIMIT_AS) << qint64(kAddressSpace) << kCountsOff << 10 << 120;
    }

    // Qt ends a process whose threads cannot get their descriptors.
    void idleConnectionsEndNothing()
    {
        QFETCH(int, resource);
        QFETCH(qint64, limit);
        QFETCH(QStringList, arguments);
        QFETCH(int, least);
        QFETCH(int, most);
        limitProcess(&m_server->process(), resource, static_cast<rlim_t>(limit));
        QVERIFY(m_server->start(arguments));
        QVERIFY(serves());
        const qsizetype threads = ProcessFacts::threads(pid());
        const qsizetype descriptors = ProcessFacts::descriptors(pid());
        {
            SilentCrowd crowd(400, m_server->port());
            QTRY_VERIFY_WITH_TIMEOUT(crowd.isSettled(), kPatienceMs);
            QVERIFY2(crowd.greeted() >= least && crowd.greeted() <= most,
                     qPrintable(QString::number(crowd.greeted())));
        }
        QTRY_COMPARE_WITH_TIMEOUT(ProcessFacts::threads(pid()), threads, kPatienceMs);
        QTRY_COMPARE_WITH_TIMEOUT(ProcessFacts::descriptors(pid()), descriptors, kPatienceMs);
        QVERIFY(serves());
        QCOMPARE(m_server->process().state(), QProcess::Running);
    }

    // Those who are logged in keep their session.
    void crowdDoesNotDisturbAUser()
    {
        limitProcess(&m_server->process(), RLIMIT_NOFILE, kDescriptors);
        QVERIFY(writeFile(m_server->homePath(u"file"_s), QByteArray(8 << 20, 'x')));
        QVERIFY(m_server->start(kCountsOff + QStringList{u"--limit-out"_s, u"4194304"_s}));
        QProcess client;
        m_server->client().prepare(
            &client, {u"get"_s, m_server->url(u"file"_s), m_server->path(u"target"_s)});
        client.start();
        QTRY_VERIFY_WITH_TIMEOUT(!namesIn(m_server->path(QString())).filter(u".part"_s).isEmpty(),
                                 kPatienceMs);
        SilentCrowd crowd(400, m_server->port());
        QTRY_VERIFY_WITH_TIMEOUT(client.state() == QProcess::NotRunning, kPatienceMs);
        QCOMPARE(client.exitCode(), 0);
        QCOMPARE(QFileInfo(m_server->path(u"target"_s)).size(), 8 << 20);
    }

    void silentConnectionIsDropped()
    {
        QVERIFY(m_server->start({u"--login-timeout"_s, u"1"_s}));
        RawClient silent;
        QVERIFY(silent.open(m_server->port()) && silent.readGreeting());
        QVERIFY(silent.endsHere());
        RawClient large;
        QVERIFY(large.open(m_server->port()) && large.readGreeting());
        large.send(RawBytes::u32(5000));
        QCOMPARE(large.read(4), RawBytes::nack());
        QVERIFY(large.endsHere());
    }

    // A program that drops the connection at the status word does not wait for the second after it.
    void guesserIsSlowedDown_data()
    {
        QTest::addColumn<bool>("withGlib");
        QTest::newRow("with GLib") << true;
        QTest::newRow("without GLib") << false;
    }

    void guesserIsSlowedDown()
    {
        QFETCH(bool, withGlib);
        if (!withGlib)
            qputenv("QT_NO_GLIB", "1");
        limitProcess(&m_server->process(), RLIMIT_NOFILE, kDescriptors);
        const bool started = m_server->start();
        qunsetenv("QT_NO_GLIB");
        QVERIFY(started);
        int guesses = 0;
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < 6'000) {
            RawClient guesser;
            if (!guesser.open(m_server->port()) || !guesser.readGreeting())
                continue;
            guesser.sendLogin(u"ann"_s, u"guess %1"_s.arg(guesses));
            if (guesser.read(8) == RawBytes::ack() + RawBytes::u32(0))
                ++guesses;
            guesser.vanish();
        }
        // At 0, 1 and 3 s; the next would come at 7 s.
        QVERIFY2(guesses >= 1 && guesses <= 4, qPrintable(QString::number(guesses)));
        // The tool waits for a greeting as long as this.
        QTest::qWait(1000);
        QTRY_VERIFY_WITH_TIMEOUT(serves(), kPatienceMs);
    }

    // Eight sessions that do not read.
    void memoryOfUnreadListingsGoesBack()
    {
        constexpr int kFiles = 20'000;
        const QString stem = QString(120, u'n');
        for (int i = 0; i < kFiles; ++i)
            QVERIFY(writeFile(m_server->homePath(stem + QString::number(i)), QByteArray()));
        constexpr qint64 kBoundKiB = 32 * 1024;
        QVERIFY(m_server->start({u"--max-listing-memory"_s, QString::number(kBoundKiB * 1024)}));
        // Each takes some 6 MiB on the wire, and up to twice that while it is made.
        QCOMPARE(m_server->run({u"ls"_s, m_server->url()}).lines().size(), kFiles);
        const qint64 rest = ProcessFacts::kibibytes("VmRSS", pid());
        {
            std::vector<std::unique_ptr<RawClient>> clients;
            for (int i = 0; i < 8; ++i) {
                auto &client = *clients.emplace_back(std::make_unique<RawClient>());
                QVERIFY(client.openAndLogin(m_server->port(), u"ann"_s, u"secret"_s));
                client.socket().setReadBufferSize(16);
                client.send(RawBytes::command("lstd", RawBytes::text(u"")));
            }
            for (const auto &client : clients)
                QCOMPARE(client->read(4, kPatienceMs), RawBytes::ack());
            // Each gets the reply's length, or is refused when there is no memory.
            for (const auto &client : clients)
                QVERIFY(client->read(4, kPatienceMs).size() == 4 || client->waitForEnd());
            const qint64 held = ProcessFacts::kibibytes("VmRSS", pid()) - rest;
            QVERIFY2(held < kBoundKiB + 16 * 1024, qPrintable(QString::number(held)));
        }
        const auto isBack = [&] { return ProcessFacts::kibibytes("VmRSS", pid()) < rest + 8192; };
        QTRY_VERIFY2_WITH_TIMEOUT(
            isBack(), qPrintable(QString::number(ProcessFacts::kibibytes("VmRSS", pid()) - rest)),
            kPatienceMs);
        QVERIFY(serves());
    }

    void guardsAreOptions()
    {
        const QByteArray help = ToolProcess().run({u"serve"_s, u"--help"_s}).out;
        for (const char *option :
             {"--max-connections", "--max-per-address", "--max-logins-pending",
              "--max-logins-per-address", "--reserve-descriptors", "--max-listing-memory",
              "--login-timeout", "--idle-timeout", "--min-rate", "--keep-alive", "--login-body",
              "--login-failures", "--login-delay", "--login-delay-max", "--max-logins-delayed"})
            QVERIFY2(help.contains(option), option);
    }
};

QTEST_GUILESS_MAIN(tst_Strangers)
#include "tst_strangers.moc"
