// SPDX-License-Identifier: MIT
// The remote device on real servers, and what its constructors make of their arguments.
#include <brixlib/devices/sbuffereddevice.h>
#include <brixlib/fileservice/device/sclientdevice.h>
#include <brixlib/protocol/client/sclientbase.h>
#include <brixlib/protocol/socket/stcpsocket.h>
#include <brixlib/protocol/socket/stcpsocketspeedcontroller.h>
#include <brixsec/ssecurecredential.h>

#include <shared/filesizelimit.h>
#include <shared/hostthread.h>
#include <shared/processfacts.h>
#include <shared/rawbytes.h>
#include <shared/seededrandom.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QTemporaryFile>
#include <QtCore/QUrl>
#include <QtNetwork/QTcpSocket>

#include <array>

using namespace Talverine;
using namespace Qt::StringLiterals;
using Error = SClientDevice::Error;
using Security::SSecureCredential;
using Security::SSecureString;

namespace {

constexpr qint64 kServerBufferBytes = 1048576;

QByteArray pattern(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 31 + i / 251);
    return bytes;
}

bool writeFile(const QString &name, const QByteArray &bytes)
{
    QFile file(name);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray readFile(const QString &name)
{
    QFile file(name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("cannot be opened");
}

// A device reads at most what a reply holds.
QByteArray readToEnd(QIODevice &device)
{
    QByteArray bytes;
    while (!device.atEnd()) {
        const QByteArray piece = device.read(3 * kServerBufferBytes);
        if (piece.isEmpty())
            break;
        bytes += piece;
    }
    return bytes;
}

bool writeWhole(QIODevice &device, const QByteArray &bytes)
{
    qint64 done = 0;
    while (done < bytes.size()) {
        const qint64 count = device.write(bytes.constData() + done, bytes.size() - done);
        if (count < 1)
            return false;
        done += count;
    }
    return true;
}

} // namespace

class tst_SClientDevice : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<HostThread> m_host;

    QString path(const QString &name) const { return m_host->homeOf(u"alice"_s) + u'/' + name; }

    std::unique_ptr<SClientDevice> device(const QString &name,
                                          const QString &password = u"secret"_s) const
    {
        return std::make_unique<SClientDevice>(u"127.0.0.1"_s, name, m_host->port(), u"alice"_s,
                                               SSecureString(password));
    }

private Q_SLOTS:
    void init() { m_host = std::make_unique<HostThread>(); }
    void cleanup() { m_host.reset(); }

    // ---- Constructors

    void aHashIsKeptAsItIs()
    {
        const SClientDevice device(u"press"_s, u"/a file"_s, 7001, u"Ann"_s, "abc"_ba);
        QCOMPARE(device.host(), u"press"_s);
        QCOMPARE(device.fileName(), u"/a file"_s);
        QCOMPARE(device.port(), 7001);
        QCOMPARE(device.user(), u"Ann"_s);
        QCOMPARE(device.hashedPassword(), "abc"_ba);
        QCOMPARE(device.timeout(), 10000);
        QVERIFY(!device.isSequential());
        QVERIFY(!device.isOpen());
        QCOMPARE(device.error(), Error::None);
    }

    void aPasswordIsHashed()
    {
        const SClientDevice device(u"press"_s, u"file"_s, 7001, u"ann"_s,
                                   SSecureString(u"größe"_s));
        QCOMPARE(device.hashedPassword(), RawBytes::sha512Hex(u"größe"_s.toUtf8()));
        QCOMPARE(device.user(), u"ann"_s);
        QCOMPARE(device.port(), 7001);
    }

    void aCredentialGivesUserAndHash()
    {
        QObject parent;
        const auto *device =
            new SClientDevice(u"press"_s, u"file"_s, 7001,
                              SSecureCredential(u"ann"_s, SSecureString(u"secret"_s)), &parent);
        QCOMPARE(device->parent(), &parent);
        QCOMPARE(device->user(), u"ann"_s);
        QCOMPARE(device->hashedPassword(), RawBytes::sha512Hex("secret"));
    }

    void partsOfAUrl_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("password");
        QTest::addColumn<QString>("expectedUser");
        QTest::addColumn<QByteArray>("expectedHash");
        const QByteArray secret = RawBytes::sha512Hex("secret");
        const QString base = u"brix://%1press:7001/dir/a%20file"_s;
        QTest::newRow("arguments only")
            << base.arg(QString()) << u"ann"_s << u"secret"_s << u"ann"_s << secret;
        QTest::newRow("arguments before the URL")
            << base.arg(u"bob:other@"_s) << u"ann"_s << u"secret"_s << u"ann"_s << secret;
        QTest::newRow("URL only") << base.arg(u"ann:secret@"_s) << QString() << QString()
                                  << u"ann"_s << secret;
        QTest::newRow("user of the URL, password of the argument")
            << base.arg(u"ann@"_s) << QString() << u"secret"_s << u"ann"_s << secret;
        QTest::newRow("plain in its form")
            << base.arg(u"ann:(Plain,secret)@"_s) << QString() << QString() << u"ann"_s << secret;
        QTest::newRow("hash in its form") << base.arg(u"ann:(Hash,abcdef)@"_s) << QString()
                                          << QString() << u"ann"_s << "abcdef"_ba;
        QTest::newRow("no password at all")
            << base.arg(u"ann@"_s) << QString() << QString() << u"ann"_s << RawBytes::sha512Hex("");
    }

    void partsOfAUrl()
    {
        QFETCH(QString, url);
        QFETCH(QString, user);
        QFETCH(QString, password);
        const SClientDevice device(QUrl(url), user, SSecureString(password));
        QCOMPARE(device.host(), u"press"_s);
        QCOMPARE(device.fileName(), u"/dir/a file"_s);
        QCOMPARE(device.port(), 7001);
        QTEST(device.user(), "expectedUser");
        QTEST(device.hashedPassword(), "expectedHash");
    }

    void anEncipheredPasswordOfAUrlIsHashed()
    {
        QUrl url(u"brix://press:7001/file"_s);
        SClientBase::addCredential(url, SSecureCredential(u"ann"_s, SSecureString(u"secret"_s)),
                                   PasswordType::Aes);
        const SClientDevice device(url, QString(), SSecureString());
        QCOMPARE(device.user(), u"ann"_s);
        QCOMPARE(device.hashedPassword(), RawBytes::sha512Hex("secret"));
    }

    void portOfAUrl_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<int>("port");
        QTest::newRow("explicit") << u"brix://press:8123/file"_s << 8123;
        QTest::newRow("explicit 0") << u"brix://press:0/file"_s << 7000;
        QTest::newRow("none") << u"brix://press/file"_s << 65535;
        QTest::newRow("largest") << u"brix://press:65535/file"_s << 65535;
    }

    void portOfAUrl()
    {
        QFETCH(QString, url);
        const SClientDevice device(QUrl(url), u"ann"_s, SSecureString(u"secret"_s));
        QTEST(int(device.port()), "port");
    }

    // ---- Reading and writing

    void whatIsWrittenIsReadBack()
    {
        const QByteArray content = pattern(3 * kServerBufferBytes + 7);
        {
            const auto file = device(u"new/folder/file"_s);
            QVERIFY(file->open(QIODevice::WriteOnly));
            QCOMPARE(file->write(content), content.size());
            QCOMPARE(file->pos(), content.size());
            bool ok = false;
            file->close(&ok);
            QVERIFY(ok);
        }
        QVERIFY(readFile(path(u"new/folder/file"_s)) == content);
        const auto file = device(u"new/folder/file"_s);
        QVERIFY(file->open(QIODevice::ReadOnly));
        QCOMPARE(file->size(), content.size());
        QVERIFY(readToEnd(*file) == content);
        QVERIFY(file->atEnd());
        QCOMPARE(file->read(10), QByteArray());
    }

    void oneReadGivesAtMostAReply()
    {
        QVERIFY(writeFile(path(u"file"_s), pattern(kServerBufferBytes + 5)));
        const auto file = device(u"file"_s);
        QVERIFY(file->open(QIODevice::ReadOnly));
        QByteArray buffer(2 * kServerBufferBytes, '.');
        QCOMPARE(file->read(buffer.data(), buffer.size()), kServerBufferBytes);
        QCOMPARE(file->read(buffer.data(), buffer.size()), 5);
        QCOMPARE(file->read(buffer.data(), buffer.size()), 0);
    }

    void aReadBeyondTheEndGivesNothing()
    {
        QVERIFY(writeFile(path(u"file"_s), "content"));
        const auto file = device(u"file"_s);
        QVERIFY(file->open(QIODevice::ReadOnly));
        QVERIFY(file->seek(100));
        char byte = 0;
        QCOMPARE(file->read(&byte, 1), 0);
        QVERIFY(file->seek(6));
        QCOMPARE(file->read(10), "t"_ba);
    }

    void openModes_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("opens");
        QTest::addColumn<QByteArray>("content");
        const auto row = [](const char *name, QIODevice::OpenMode mode, bool opens,
                            const QByteArray &content) {
            QTest::newRow(name) << int(mode) << opens << content;
        };
        row("write", QIODevice::WriteOnly, true, "new");
        row("read and write", QIODevice::ReadWrite, true, "newtent");
        row("append", QIODevice::WriteOnly | QIODevice::Append, true, "contentnew");
        row("append alone", QIODevice::Append, true, "contentnew");
        row("truncate", QIODevice::ReadWrite | QIODevice::Truncate, true, "new");
        row("new only", QIODevice::WriteOnly | QIODevice::NewOnly, false, "content");
        row("existing only", QIODevice::ReadWrite | QIODevice::ExistingOnly, true, "newtent");
        row("nothing", QIODevice::NotOpen, false, "content");
    }

    void openModes()
    {
        QFETCH(int, mode);
        QFETCH(bool, opens);
        QVERIFY(writeFile(path(u"file"_s), "content"));
        const auto file = device(u"file"_s);
        QCOMPARE(file->open(QIODevice::OpenMode(mode)), opens);
        if (opens)
            QCOMPARE(file->write("new"), 3);
        else
            QCOMPARE(file->error(), Error::File);
        bool ok = false;
        file->close(&ok);
        QVERIFY(ok);
        QTEST(readFile(path(u"file"_s)), "content");
    }

    // Every operation on the remote file and on a local one, with the same result.
    void behavesLikeALocalFile()
    {
        SeededRandom random;
        QTemporaryFile local;
        QVERIFY(local.open());
        const QByteArray content = random.bytes(100'000);
        QCOMPARE(local.write(content), content.size());
        QVERIFY(local.flush());
        QVERIFY(writeFile(path(u"file"_s), content));
        const auto remote = device(u"file"_s);
        QVERIFY(remote->open(QIODevice::ReadWrite));
        QVERIFY(local.seek(0));

        for (int i = 0; i < 2000; ++i) {
            switch (random.between(0, 4)) {
            case 0: {
                const qint64 position = random.between(0, 150'000);
                QCOMPARE(remote->seek(position), local.seek(position));
                QCOMPARE(remote->size(), local.size());
                break;
            }
            case 1: {
                const QByteArray bytes = random.bytes(random.between(0, 5000));
                QCOMPARE(remote->write(bytes), local.write(bytes));
                QVERIFY(local.flush());
                break;
            }
            case 2: {
                const qint64 size = random.between(0, 50);
                QVERIFY(remote->peek(size) == local.peek(size));
                break;
            }
            case 3: {
                // Kept within what Qt's own sizes of buffers are, and above.
                const qint64 size = random.between(0, 40'000);
                QVERIFY(remote->read(size) == local.read(size));
                break;
            }
            default:
                QCOMPARE(remote->getChar(nullptr), local.getChar(nullptr));
            }
            QCOMPARE(remote->pos(), local.pos());
        }
        bool ok = false;
        remote->close(&ok);
        QVERIFY(ok);
        QVERIFY(local.seek(0));
        QVERIFY(readFile(path(u"file"_s)) == local.readAll());
    }

    void linesAreReadThroughABuffer()
    {
        QByteArray content;
        for (int i = 0; i < 20'000; ++i)
            content += "line " + QByteArray::number(i) + '\n';
        QVERIFY(writeFile(path(u"file"_s), content));
        const auto file = device(u"file"_s);
        SBufferedDevice buffered(file.get(), SBufferedDevice::networkFSBufferSize());
        QVERIFY(buffered.open(QIODevice::ReadOnly));
        for (int i = 0; i < 20'000; ++i)
            QCOMPARE(buffered.readLine(), "line " + QByteArray::number(i) + '\n');
        QVERIFY(buffered.atEnd());
    }

    void smallWritesGoThroughABuffer()
    {
        const auto file = device(u"file"_s);
        QByteArray content;
        {
            SBufferedDevice buffered(file.get(), SBufferedDevice::networkFSBufferSize());
            QVERIFY(buffered.open(QIODevice::WriteOnly));
            for (int i = 0; content.size() < 5 * kServerBufferBytes; ++i) {
                const QByteArray bytes = pattern(i % 1000);
                QVERIFY(writeWhole(buffered, bytes));
                content += bytes;
            }
        }
        QVERIFY(!file->isOpen());
        QVERIFY(readFile(path(u"file"_s)) == content);
    }

    // Closing the device lets the buffer in front of it send what it holds.
    void closingUnderABufferLosesNothing()
    {
        const auto file = device(u"file"_s);
        SBufferedDevice buffered(file.get(), SBufferedDevice::networkFSBufferSize());
        QVERIFY(buffered.open(QIODevice::WriteOnly));
        QCOMPARE(buffered.write("held back"), 9);
        bool ok = false;
        file->close(&ok);
        QVERIFY(ok);
        QVERIFY(!buffered.isOpen());
        QCOMPARE(readFile(path(u"file"_s)), "held back"_ba);
    }

    // ---- Refusals

    void aMissingFileDoesNotOpenForReading()
    {
        const auto file = device(u"missing"_s);
        QVERIFY(!file->open(QIODevice::ReadOnly));
        QCOMPARE(file->error(), Error::File);
        bool ok = false;
        file->close(&ok);
        QVERIFY(ok);
    }

    void aFolderDoesNotOpen()
    {
        QVERIFY(QDir(m_host->homeOf(u"alice"_s)).mkdir(u"folder"_s));
        const auto file = device(u"folder"_s);
        QVERIFY(!file->open(QIODevice::ReadOnly));
        QCOMPARE(file->error(), Error::File);
    }

    void aPathOutsideTheHomeFolderIsRefused_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("upwards") << u"../bob/file"_s;
        QTest::newRow("absolute") << u"/etc/hostname"_s;
        QTest::newRow("the home folder itself") << QString();
    }

    void aPathOutsideTheHomeFolderIsRefused()
    {
        QFETCH(QString, path);
        const auto file = device(path);
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!file->open(QIODevice::ReadOnly));
        QCOMPARE(file->error(), Error::File);
        file->close();
        QVERIFY(timer.elapsed() < 5000);
    }

    void aWrongPasswordIsRefused()
    {
        const auto file = device(u"file"_s, u"wrong"_s);
        QVERIFY(!file->open(QIODevice::ReadOnly));
        QCOMPARE(file->error(), Error::Login);
        const auto *socket = file->findChild<STcpSocket *>();
        QVERIFY(socket);
        QCOMPARE(socket->state(), QAbstractSocket::ConnectedState);
    }

    void aHostNameIsResolved()
    {
        QVERIFY(writeFile(path(u"file"_s), "content"));
        SClientDevice file(u"localhost"_s, u"file"_s, m_host->port(), u"alice"_s,
                           SSecureString(u"secret"_s));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.read(20), "content"_ba);
    }

    // The server answers no write, but its size tells what it has stored.
    void aFullDiskShowsInTheSize()
    {
        const auto file = device(u"file"_s);
        QVERIFY(file->open(QIODevice::WriteOnly));
        {
            const FileSizeLimit limit(8192);
            QCOMPARE(file->write(pattern(100'000)), 100'000);
            QVERIFY(file->seek(0));
            QCOMPARE(file->size(), 8192);
        }
        bool ok = false;
        file->close(&ok);
        QVERIFY(ok);
    }

    // ---- The connection

    void theSocketIsSetUp()
    {
        const auto file = device(u"file"_s);
        QVERIFY(file->open(QIODevice::ReadWrite));
        auto *socket = file->findChild<STcpSocket *>();
        QVERIFY(socket);
        // The system makes of a size what it likes, so another socket tells what that is.
        QTcpSocket plain;
        plain.connectToHost(u"127.0.0.1"_s, m_host->port());
        QVERIFY(plain.waitForConnected(10000));
        for (const auto option : {QAbstractSocket::SendBufferSizeSocketOption,
                                  QAbstractSocket::ReceiveBufferSizeSocketOption}) {
            plain.setSocketOption(option, 262144);
            QCOMPARE(socket->socketOption(option), plain.socketOption(option));
        }
        QCOMPARE(socket->socketOption(QAbstractSocket::KeepAliveOption).toInt(), 1);
        QCOMPARE(socket->socketOption(QAbstractSocket::LowDelayOption).toInt(), 1);
    }

    // With acknowledgements that are held back each would take 40 ms and more.
    void smallExchangesDoNotWaitForEachOther()
    {
        QVERIFY(writeFile(path(u"file"_s), pattern(1000)));
        const auto file = device(u"file"_s);
        QVERIFY(file->open(QIODevice::ReadWrite));
        QElapsedTimer timer;
        timer.start();
        for (int i = 0; i < 50; ++i) {
            QVERIFY(file->seek(i));
            QCOMPARE(file->write("x"), 1);
            QCOMPARE(file->read(10).size(), 10);
        }
        QVERIFY2(timer.elapsed() < 2000, qPrintable(QString::number(timer.elapsed())));
    }

    void theSpeedControllerTakesTheSocket()
    {
        STcpSocketSpeedController first;
        STcpSocketSpeedController second;
        QStringList log;
        const auto listen = [&](STcpSocketSpeedController &controller, const QString &name) {
            connect(&controller, &STcpSocketSpeedController::socketAdded, this,
                    [&log, name] { log += name + u" added"_s; });
            connect(&controller, &STcpSocketSpeedController::socketRemoved, this,
                    [&log, name] { log += name + u" removed"_s; });
        };
        const auto file = device(u"file"_s);
        file->setSpeedController(&first);
        listen(first, u"first"_s);
        listen(second, u"second"_s);
        QVERIFY(file->open(QIODevice::ReadWrite));
        QCOMPARE(log, (QStringList{u"first added"_s}));
        file->setSpeedController(&second);
        QCOMPARE(log, (QStringList{u"first added"_s, u"first removed"_s, u"second added"_s}));
        file->setSpeedController(nullptr);
        QCOMPARE(log.value(3), u"second removed"_s);
    }

    void aSpeedControllerMayDieFirst()
    {
        const auto file = device(u"file"_s);
        auto controller = std::make_unique<STcpSocketSpeedController>();
        file->setSpeedController(controller.get());
        controller = std::make_unique<STcpSocketSpeedController>();
        QVERIFY(file->open(QIODevice::ReadWrite));
        file->setSpeedController(controller.get());
        controller.reset();
        QCOMPARE(file->write("x"), 1);
        file->setSpeedController(nullptr);
        bool ok = false;
        file->close(&ok);
        QVERIFY(ok);
    }

    void aSpeedLimitHoldsTheWritesBack()
    {
        const auto file = device(u"file"_s);
        QVERIFY(file->open(QIODevice::WriteOnly));
        file->findChild<STcpSocket *>()->setOutcomingSpeed(100'000);
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(file->write(QByteArray(200'000, 'x')), 200'000);
        QVERIFY2(timer.elapsed() > 800, qPrintable(QString::number(timer.elapsed())));
    }

    void aStoppingServerEndsTheDevice()
    {
        const auto file = device(u"file"_s);
        QVERIFY(file->open(QIODevice::ReadWrite));
        m_host->interrupt();
        QTRY_VERIFY(!file->isOpen());
        bool ok = true;
        file->close(&ok);
        QVERIFY(!ok);
        QTRY_COMPARE(m_host->count(), 0);
    }

    void theServerIsFreeAfterClose()
    {
        const qsizetype before = ProcessFacts::descriptors();
        for (int i = 0; i < 10; ++i) {
            const auto file = device(u"file"_s);
            QVERIFY(file->open(QIODevice::ReadWrite));
            QCOMPARE(file->write("x"), 1);
        }
        QTRY_COMPARE(m_host->count(), 0);
        QTRY_COMPARE(ProcessFacts::descriptors(), before);
    }

    void severalThreadsHaveADeviceEach()
    {
        constexpr int kThreads = 4;
        const QByteArray content = pattern(2 * kServerBufferBytes);
        std::vector<std::unique_ptr<QThread>> threads;
        std::array<bool, kThreads> done = {};
        for (std::size_t i = 0; i < kThreads; ++i) {
            threads.emplace_back(QThread::create([&, i] {
                const auto name = u"file %1"_s.arg(i);
                {
                    const auto file = device(name);
                    if (!file->open(QIODevice::WriteOnly) || !writeWhole(*file, content))
                        return;
                }
                const auto file = device(name);
                done[i] = file->open(QIODevice::ReadOnly) && readToEnd(*file) == content;
            }));
            threads.back()->start();
        }
        for (std::size_t i = 0; i < kThreads; ++i) {
            QVERIFY(threads[i]->wait(60'000));
            QVERIFY(done[i]);
        }
    }
};

QTEST_GUILESS_MAIN(tst_SClientDevice)
#include "tst_sclientdevice.moc"
