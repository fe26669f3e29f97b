// SPDX-License-Identifier: MIT
// What becomes of transfers when the peer vanishes, lies or stands still, when the disk is full,
// when the file changes, and when the server is told to stop.
#include "filesession.h"
#include "filetree.h"

#include <shared/memorypeak.h>
#include <shared/processfacts.h>
#include <shared/rawclient.h>

#include <QtCore/QRegularExpression>

#include <csignal>
#include <sys/resource.h>

using namespace Talverine;
using namespace Qt::StringLiterals;
using namespace RawBytes;

namespace {

constexpr int kShortTimeoutMs = 500;
// What a transfer may hold in memory, whatever sizes the peer tells.
constexpr qint64 kAllowedBytes = 16 * 1024 * 1024;

QByteArray oldSend(qint64 size, const QString &target)
{
    return command("sndf", i64(size) + text(u"x") + text(target) + '\0', 0x00010200);
}

//! A file of this size that takes no room.
bool makeLarge(const QString &path, qint64 size)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.resize(size);
}

//! A search for files everywhere below the home folder.
QByteArray search(const QString &filters)
{
    return command("gfls", text(u"") + text(filters) + text(u"") + u32(1), 0x00010100);
}

/*!
 * A disk that is full: no file of this process grows beyond the limit while it lives.
 */
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        m_handler = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit{bytes, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_handler);
    }
    Q_DISABLE_COPY_MOVE(FileSizeLimit)

private:
    rlimit m_before{};
    void (*m_handler)(int) = nullptr;
};

} // namespace

class tst_SServerFtpHostile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(u"."_s));
        m_server = std::make_unique<FileServer>();
        m_descriptors = ProcessFacts::descriptors();
        m_threads = ProcessFacts::threads();
        m_client = std::make_unique<RawClient>();
    }

    void cleanup()
    {
        m_client.reset();
        QVERIFY(m_server->waitForEnd());
        QTRY_COMPARE(ProcessFacts::descriptors(), m_descriptors);
        QTRY_COMPARE(ProcessFacts::threads(), m_threads);
        m_server.reset();
    }

    // A peer that goes or falls silent

    void brokenSendLeavesNothing_data()
    {
        QTest::addColumn<QByteArray>("sent");
        QTest::addColumn<QString>("end");
        const auto rows = [](const char *what, const QByteArray &sent) {
            for (const QString &end : {u"vanishes"_s, u"closes"_s, u"falls silent"_s})
                QTest::addRow("%s, the client %s", what, qPrintable(end)) << sent << end;
        };
        rows("before the size", command("siof", text(u"a.bin")));
        rows("within the size", command("siof", text(u"a.bin")) + u64(100).first(5));
        rows("before the bytes", command("siof", text(u"a.bin")) + u64(100));
        rows("within the bytes", command("siof", text(u"a.bin")) + u64(100) + "12345");
        rows("within many bytes",
             command("siof", text(u"a.bin")) + u64(3000000) + QByteArray(2000000, 'x'));
        rows("a claim of 4 EiB",
             command("siof", text(u"a.bin")) + u64(1ULL << 62) + QByteArray(300000, 'x'));
        rows("the largest claim",
             command("siof", text(u"a.bin")) + i64(std::numeric_limits<qint64>::max()) + "x");
        rows("too large a size of an old client", oldSend(100, u"a.bin"_s) + "12345");
    }
    void brokenSendLeavesNothing()
    {
        QFETCH(const QByteArray, sent);
        QFETCH(const QString, end);
        QVERIFY(FileTree::write(m_server->path(u"a.bin"_s), "older"));
        m_server->host().timeoutMs = kShortTimeoutMs;
        QVERIFY(login());
        const TestShared::HeldMemoryPeak peak;
        m_client->send(sent);
        QCOMPARE(m_client->read(4), ack());
        QTRY_COMPARE(m_server->log,
                     QStringList{u"sendFileStarted "_s + m_server->path(u"a.bin"_s)});
        if (end == u"vanishes")
            m_client->vanish();
        else if (end == u"closes")
            m_client->socket().disconnectFromHost();

        QElapsedTimer ending;
        ending.start();
        QVERIFY(m_server->waitForEnd());
        QVERIFY(ending.elapsed() < kShortTimeoutMs + 1500);
        QCOMPARE(m_server->log.size(), 1);
        QCOMPARE(FileTree::below(m_server->home()), QStringList{u"a.bin"_s});
        QCOMPARE(FileTree::read(m_server->path(u"a.bin"_s)), "older");
        QVERIFY(peak.growth() < kAllowedBytes);
        if (end == u"falls silent")
            QCOMPARE(m_client->read(8), nack());
    }

    void brokenGetEndsTheSession_data()
    {
        QTest::addColumn<QString>("end");
        for (const QString &end : {u"vanishes"_s, u"closes"_s, u"stops reading"_s, u"floods"_s})
            QTest::addRow("the client %s", qPrintable(end)) << end;
    }
    void brokenGetEndsTheSession()
    {
        QFETCH(const QString, end);
        QVERIFY(makeLarge(m_server->path(u"large.bin"_s), 256 << 20));
        m_server->host().timeoutMs = kShortTimeoutMs;
        QVERIFY(login());
        const TestShared::HeldMemoryPeak peak;
        m_client->socket().setReadBufferSize(65536);
        m_client->send(
            command("getf", i64(0) + text(u"large.bin") + text(u"x") + '\1', 0x00010200));
        QCOMPARE(m_client->read(12), ack() + u64(256 << 20));
        if (end == u"vanishes")
            m_client->vanish();
        else if (end == u"closes")
            m_client->socket().disconnectFromHost();
        else if (end == u"floods")
            flood(64 << 20);

        QVERIFY(m_server->waitForEnd());
        QCOMPARE(m_server->log, QStringList{u"getFileStarted "_s + m_server->path(u"large.bin"_s)});
        // What has not arrived is not removed.
        QCOMPARE(QFileInfo(m_server->path(u"large.bin"_s)).size(), 256 << 20);
        QVERIFY(peak.growth() < kAllowedBytes);
    }

    void peerThatVanishesFromAThrottledGetIsMissedAtOnce_data()
    {
        QTest::addColumn<bool>("resets");
        QTest::newRow("it vanishes") << true;
        QTest::newRow("it closes") << false;
    }
    void peerThatVanishesFromAThrottledGetIsMissedAtOnce()
    {
        QFETCH(const bool, resets);
        QVERIFY(makeLarge(m_server->path(u"large.bin"_s), 256 << 20));
        m_server->sendingLimit = 100000;
        QVERIFY(login());
        m_client->send(command("gfio", text(u"large.bin")));
        QCOMPARE(m_client->read(12), ack() + u64(256 << 20));
        QVERIFY(!m_client->read(50000).isEmpty());
        if (resets)
            m_client->vanish();
        else
            m_client->socket().close();
        QElapsedTimer ending;
        ending.start();
        QVERIFY(m_server->waitForEnd());
        QVERIFY(ending.elapsed() < 2000);
    }

    void tooSmallASizeOfAnOldClientLeavesBytesThatAreNoFrame()
    {
        QVERIFY(login());
        m_client->send(oldSend(3, u"a.bin"_s) + QByteArray(12, '\xFF'));
        QCOMPARE(m_client->read(12), ack() + ack() + nack());
        QVERIFY(m_client->waitForEnd());
        QCOMPARE(FileTree::read(m_server->path(u"a.bin"_s)), "\xFF\xFF\xFF");
    }

    void slowPeerIsNotAnIdleOne()
    {
        m_server->host().timeoutMs = kShortTimeoutMs;
        QVERIFY(login());
        m_client->send(command("siof", text(u"a.bin")) + u64(8));
        QCOMPARE(m_client->read(4), ack());
        for (int i = 0; i < 8; ++i) {
            QTest::qWait(150);
            m_client->send("x");
        }
        QCOMPARE(m_client->read(4), ack());
        QCOMPARE(FileTree::read(m_server->path(u"a.bin"_s)), "xxxxxxxx");
    }

    void stuckTransfersDoNotHoldOthersUp()
    {
        QVERIFY(makeLarge(m_server->path(u"large.bin"_s), 256 << 20));
        RawClient silent;
        QVERIFY(silent.openAndLogin(m_server->port(), u"alice"_s, u"secret"_s));
        silent.send(command("siof", text(u"a.bin")) + u64(100) + "x");
        RawClient deaf;
        QVERIFY(deaf.openAndLogin(m_server->port(), u"alice"_s, u"secret"_s));
        deaf.socket().setReadBufferSize(65536);
        deaf.send(command("gfio", text(u"large.bin")));
        QTRY_COMPARE(m_server->log.size(), 2);

        QVERIFY(login());
        QElapsedTimer working;
        working.start();
        for (int i = 0; i < 20; ++i) {
            m_client->send(command("siof", text(u"b.bin")) + u64(3) + "123");
            QCOMPARE(m_client->read(8), ack() + ack());
        }
        QVERIFY(working.elapsed() < 5000);
        QCOMPARE(FileTree::read(m_server->path(u"b.bin"_s)), "123");
        QCOMPARE(m_server->host().controller.count(), 3);
        silent.vanish();
        deaf.vanish();
    }

    // A server that is told to stop

    void stopDoesNotWaitForASlowPeer_data()
    {
        QTest::addColumn<bool>("sends");
        QTest::newRow("that sends") << true;
        QTest::newRow("that reads") << false;
    }
    void stopDoesNotWaitForASlowPeer()
    {
        QFETCH(const bool, sends);
        QVERIFY(makeLarge(m_server->path(u"large.bin"_s), 256 << 20));
        QVERIFY(login());
        if (sends)
            m_client->send(command("siof", text(u"b.bin")) + u64(1 << 20));
        else
            m_client->send(command("gfio", text(u"large.bin")));
        m_client->socket().setReadBufferSize(65536);
        QCOMPARE(m_client->read(4), ack());
        QTRY_COMPARE(m_server->log.size(), 1);

        QTimer trickle;
        QObject::connect(&trickle, &QTimer::timeout, &trickle, [&] {
            if (m_client->socket().state() == QAbstractSocket::ConnectedState) {
                m_client->socket().read(1000);
                m_client->send("x"); // which may find that the server has gone
            }
        });
        trickle.start(20);
        QTest::qWait(100);
        QElapsedTimer stopping;
        stopping.start();
        m_server->host().controller.interruptWorkers();
        QVERIFY(m_server->waitForEnd());
        QVERIFY(stopping.elapsed() < 2000);
        QCOMPARE(FileTree::below(m_server->home()), QStringList{u"large.bin"_s});
    }

    // Patterns that keep a search busy

    // Only the list of them takes room.
    void manyPatternsCostLittleMemory()
    {
        QVERIFY(FileTree::write(m_server->path(u"a.bin"_s), "12345"));
        QVERIFY(login());
        const TestShared::HeldMemoryPeak peak;
        m_client->send(search(u"xyz;"_s.repeated(100000) + u"*.bin"_s));
        QCOMPARE(m_client->read(4), ack());
        // A sanitizer takes ten seconds for them on a machine that has nothing else to do.
        constexpr int kLongPatienceMs = 120'000;
        QByteArray frame = m_client->read(4, kLongPatienceMs);
        while (frame == QByteArray::fromHex("50A050A0"))
            frame = m_client->read(4, kLongPatienceMs);
        QCOMPARE(m_client->read(frame.toHex().toInt(nullptr, 16)),
                 text(m_server->home()) + u32(1) + text(m_server->path(u"a.bin"_s)));
        QCOMPARE(m_client->read(4), ack());
        QVERIFY2(peak.growth() < 2 * kAllowedBytes, qPrintable(QString::number(peak.growth())));
    }

    void stopDoesNotWaitForPatterns()
    {
        QVERIFY(FileTree::write(m_server->path(QString(240, u'a') + u"bc"_s), ""));
        m_server->host().timeoutMs = kShortTimeoutMs;
        QVERIFY(login());
        m_client->send(search(u"*a*a*a*a*ab;"_s.repeated(40000)));
        QCOMPARE(m_client->read(4), ack());
        QTest::qWait(100);
        QElapsedTimer stopping;
        stopping.start();
        m_server->host().controller.interruptWorkers();
        QVERIFY(m_server->waitForEnd());
        QVERIFY(stopping.elapsed() < kShortTimeoutMs + 1000);
    }

    void clientThatVanishesEndsItsSearch_data()
    {
        QTest::addColumn<qint32>("version");
        QTest::newRow("with keep-alive words") << 0x00010100;
        QTest::newRow("without") << 0x00010000;
    }

    // The patterns would take many minutes for the one name.
    void clientThatVanishesEndsItsSearch()
    {
        QFETCH(qint32, version);
        QVERIFY(FileTree::write(m_server->path(QString(240, u'a') + u"bc"_s), ""));
        QVERIFY(login());
        m_client->send(command(
            "gfls", text(u"") + text(u"*a*a*a*a*ab;"_s.repeated(40000)) + text(u"") + u32(1),
            version));
        QCOMPARE(m_client->read(4), ack());
        m_client->vanish();
        QVERIFY(m_server->waitForEnd());
    }

    // Listings

    void listingAboveTheBoundEndsItsSessionOnly_data()
    {
        QTest::addColumn<QByteArray>("request");
        QTest::newRow("list") << command("lstd", text(u""));
        QTest::newRow("search") << search(QString());
        QTest::newRow("search of old clients")
            << command("getd", i64(0) + text(u"") + text(u"") + '\0', 0x00010200);
    }

    void listingAboveTheBoundEndsItsSessionOnly()
    {
        QFETCH(QByteArray, request);
        constexpr int kFiles = 3000;
        for (int i = 0; i < kFiles; ++i)
            QVERIFY(FileTree::write(m_server->path(u"a file with a long name %1"_s.arg(i)), ""));
        auto guard =
            std::make_shared<SConnectionGuard>(SConnectionGuard::Limits{.listingBytes = 100'000});
        m_server->host().controller.setConnectionGuard(guard);
        RawClient neighbour;
        QVERIFY(neighbour.openAndLogin(m_server->host().port(), u"alice"_s, u"secret"_s));
        QVERIFY(login());
        m_client->send(request);
        QCOMPARE(m_client->read(8), ack() + nack());
        QVERIFY(m_client->endsHere());
        QTRY_COMPARE(guard->connections(), 1);
        QCOMPARE(guard->listingBytes(), 0);
        neighbour.send(command("pwd_"));
        QCOMPARE(neighbour.read(4), ack());
        neighbour.vanish();
    }

    // Without a bound the same replies come.
    void listingBelowTheBoundIsSent()
    {
        constexpr int kFiles = 3000;
        for (int i = 0; i < kFiles; ++i)
            QVERIFY(FileTree::write(m_server->path(u"a file with a long name %1"_s.arg(i)), ""));
        QVERIFY(login());
        m_client->send(command("lstd", text(u"")));
        QCOMPARE(m_client->read(4), ack());
        const QByteArray unbounded = m_client->readFrame();
        QCOMPARE(m_client->read(4), ack());
        QCOMPARE(unbounded.first(4), u32(kFiles));
        m_client->vanish();

        auto guard =
            std::make_shared<SConnectionGuard>(SConnectionGuard::Limits{.listingBytes = 2 << 20});
        m_server->host().controller.setConnectionGuard(guard);
        RawClient client;
        QVERIFY(client.openAndLogin(m_server->host().port(), u"alice"_s, u"secret"_s));
        client.send(command("lstd", text(u"")));
        QCOMPARE(client.read(4), ack());
        QCOMPARE(client.readFrame(), unbounded);
        QCOMPARE(client.read(4), ack());
        QTRY_COMPARE(guard->listingBytes(), 0);
        client.vanish();
    }

    // A disk that takes no more

    void fullDiskEndsTheSessionAndKeepsTheOlderFile_data()
    {
        QTest::addColumn<int>("limit");
        QTest::addColumn<int>("size");
        QTest::newRow("not one byte") << 0 << 1;
        QTest::newRow("a small file") << 1000 << 5000;
        QTest::newRow("one byte short") << 4999 << 5000;
        QTest::newRow("a large file") << (1 << 20) << 3000000;
    }
    void fullDiskEndsTheSessionAndKeepsTheOlderFile()
    {
        QFETCH(const int, limit);
        QFETCH(const int, size);
        QVERIFY(FileTree::write(m_server->path(u"a.bin"_s), "older"));
        QVERIFY(login());
        {
            const FileSizeLimit full(static_cast<rlim_t>(limit));
            m_client->send(command("siof", text(u"a.bin")) + u64(static_cast<quint64>(size)) +
                           QByteArray(size, 'x'));
            QCOMPARE(m_client->read(8), ack() + nack());
        }
        QVERIFY(m_server->waitForEnd());
        QCOMPARE(m_server->log.size(), 1);
        QCOMPARE(FileTree::below(m_server->home()), QStringList{u"a.bin"_s});
        QCOMPARE(FileTree::read(m_server->path(u"a.bin"_s)), "older");
    }

    // A folder that takes nothing

    // Nobody can make a file in /proc, not even the administrator.
    void folderThatCannotBeWrittenGetsTheStatedResult_data()
    {
        QTest::addColumn<QByteArray>("sent");
        QTest::addColumn<QByteArray>("reply");
        const QByteArray no = QByteArray(1, '\0') + ack();
        const QByteArray source = text(u"/proc/self/exe");
        const QByteArray target = text(u"/proc/new");
        QTest::newRow("sendFile") << command("sndf", text(u"x") + target + '\0', 0x00020000) +
                                         u64(1) + "x"
                                  << nack();
        QTest::newRow("sendDevice") << command("siof", target) + u64(1) + "x" << nack();
        QTest::newRow("sendDevice, into a new folder")
            << command("siof", text(u"/proc/new/x")) + u64(1) + "x" << nack();
        QTest::newRow("makeDir") << command("mkd_", target) << no;
        QTest::newRow("copyFile") << command("cpyf", source + target) << no;
        QTest::newRow("copyDir") << command("cpyd", text(u"/proc/tty/ldisc") + target) << no;
        QTest::newRow("renameFile") << command("rnf_", text(u"/proc/version") + target) << no;
        QTest::newRow("removeFile") << command("rmf_", text(u"/proc/version")) << no;
    }
    void folderThatCannotBeWrittenGetsTheStatedResult()
    {
        QFETCH(const QByteArray, sent);
        QFETCH(const QByteArray, reply);
        m_server->host().users.insert(new SUserData(u"carol"_s, u"pencil"_s, u"/"_s));
        QVERIFY(m_client->openAndLogin(m_server->port(), u"carol"_s, u"pencil"_s));
        m_client->send(sent);
        QCOMPARE(m_client->read(4 + reply.size()).toHex(' '), (ack() + reply).toHex(' '));
        QVERIFY(!QFileInfo::exists(u"/proc/new"_s));
        if (reply == nack())
            QVERIFY(m_client->waitForEnd());
        else
            QCOMPARE(m_client->read(1, 0), QByteArray());
    }

    void fullDiskStopsAClientsFetch()
    {
        const QByteArray content = FileTree::content(3000000);
        QVERIFY(FileTree::write(m_server->path(u"a.bin"_s), content));
        FileClient client;
        QVERIFY(FileTree::write(client.path(u"a.bin"_s), "older"));
        QVERIFY(client.open(m_server->port()));
        {
            const FileSizeLimit full(1 << 20);
            QVERIFY(!client.run([](SClientFtp &ftp) { ftp.getFile(u"a.bin"_s, true); }));
        }
        QVERIFY(client.waitForEnd());
        QCOMPARE(client.log, QStringList{u"getFileStarted "_s + client.path(u"a.bin"_s)});
        QCOMPARE(FileTree::below(client.folder()), QStringList{u"a.bin"_s});
        QCOMPARE(FileTree::read(client.path(u"a.bin"_s)), "older");
    }

    void fullDiskShowsAlsoInTheLastBytesOfADevice_data()
    {
        QTest::addColumn<int>("size");
        QTest::newRow("one byte") << 1;
        QTest::newRow("less than a file holds back") << 5000;
        QTest::newRow("a large file") << 3000000;
    }
    void fullDiskShowsAlsoInTheLastBytesOfADevice()
    {
        QFETCH(const int, size);
        QVERIFY(FileTree::write(m_server->path(u"a.bin"_s), FileTree::content(size)));
        FileClient client;
        QVERIFY(client.open(m_server->port()));
        QFile device(u"/dev/full"_s);
        QVERIFY(!client.run([&](SClientFtp &ftp) { ftp.getDevice(u"a.bin"_s, &device); }));
        QCOMPARE(client.log, QStringList{u"getDeviceStarted"_s});
        QVERIFY(client.waitForEnd());
        QVERIFY(device.isOpen());
    }

    // Files that change under way

    void fileThatIsRemovedWhileItIsReadStillLeavesWhole()
    {
        const QByteArray content = FileTree::content(8 << 20);
        QVERIFY(FileTree::write(m_server->path(u"a.bin"_s), content));
        QVERIFY(login());
        m_client->socket().setReadBufferSize(65536);
        m_client->send(command("gfio", text(u"a.bin")));
        QCOMPARE(m_client->read(12), ack() + u64(8 << 20));
        QVERIFY(QFile::remove(m_server->path(u"a.bin"_s)));
        m_client->socket().setReadBufferSize(0);
        QVERIFY(m_client->read(8 << 20) == content);
        QCOMPARE(m_client->read(4), ack());
    }

    void fileThatChangesItsSizeWhileItIsReadEndsTheSession_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::newRow("it is emptied") << qint64(0);
        QTest::newRow("it shrinks") << qint64(100 << 20);
        QTest::newRow("it grows") << qint64((128 << 20) + 1);
    }
    void fileThatChangesItsSizeWhileItIsReadEndsTheSession()
    {
        QFETCH(const qint64, size);
        const QString path = m_server->path(u"a.bin"_s);
        QVERIFY(makeLarge(path, 128 << 20));
        QVERIFY(login());
        m_client->socket().setReadBufferSize(65536);
        m_client->send(command("getf", i64(0) + text(u"a.bin") + text(u"x") + '\1', 0x00010200));
        QCOMPARE(m_client->read(12), ack() + u64(128 << 20));
        QVERIFY(QFile::resize(path, size));
        m_client->socket().setReadBufferSize(0);
        QVERIFY(m_client->waitForEnd(30000));
        QVERIFY(m_server->waitForEnd());
        QCOMPARE(m_server->log.size(), 1);
        QCOMPARE(QFileInfo(path).size(), size);
    }

    void folderThatVanishesWhileAFileArrivesEndsTheSession()
    {
        QVERIFY(login());
        m_client->send(command("siof", text(u"new/a.bin")) + u64(6) + "123");
        QCOMPARE(m_client->read(4), ack());
        QTRY_COMPARE(m_server->log.size(), 1);
        QVERIFY(QDir(m_server->path(u"new"_s)).removeRecursively());
        m_client->send("456");
        QCOMPARE(m_client->read(4), nack());
        QVERIFY(m_server->waitForEnd());
        QVERIFY(FileTree::below(m_server->home()).isEmpty());
    }

    void manyBrokenTransfersLeaveNothing()
    {
        for (int i = 0; i < 40; ++i) {
            RawClient client;
            QVERIFY(client.openAndLogin(m_server->port(), u"alice"_s, u"secret"_s));
            client.send(command("siof", text(u"a.bin")) + u64(1000) + "x");
            QCOMPARE(client.read(4), ack());
            client.vanish();
        }
        QVERIFY(m_server->waitForEnd());
        QVERIFY(FileTree::below(m_server->home()).isEmpty());
    }

private:
    bool login() { return m_client->openAndLogin(m_server->port(), u"alice"_s, u"secret"_s); }

    // Sends while the server sends, until it takes no more.
    void flood(qint64 size)
    {
        const QByteArray block(65536, 'x');
        QTcpSocket &socket = m_client->socket();
        for (qint64 sent = 0; sent < size; sent += block.size()) {
            socket.write(block);
            if (!socket.waitForBytesWritten(kShortTimeoutMs))
                return;
        }
    }

    std::unique_ptr<FileServer> m_server;
    std::unique_ptr<RawClient> m_client;
    qsizetype m_descriptors = 0;
    qsizetype m_threads = 0;
};

QTEST_GUILESS_MAIN(tst_SServerFtpHostile)
#include "tst_sserverftp_hostile.moc"
