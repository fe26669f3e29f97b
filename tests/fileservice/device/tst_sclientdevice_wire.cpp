// SPDX-License-Identifier: MIT
// The remote device under a scripted server: every request byte for byte, and servers that are old,
// slow, wrong or gone.
#include <fileservice/devicepeer.h>

#include <shared/processfacts.h>
#include <shared/signallog.h>

#include <QtCore/QElapsedTimer>

#include <limits>

using namespace Talverine;
using namespace Qt::StringLiterals;
using Error = SClientDevice::Error;

namespace {

// Long enough for any machine to notice that it is not waited for.
constexpr int kShortTimeoutMs = 150;
constexpr qint64 kLargest = std::numeric_limits<qint64>::max();
constexpr qint64 kSmallest = std::numeric_limits<qint64>::min();

// Reads until the client goes, so that it finds a server that listens and says nothing.
void stayQuiet(RawConnection &peer)
{
    peer.readToEnd();
}

// Ends the device as a server does that has nothing against it.
void confirmClose(RawConnection &peer)
{
    answerRequest(peer, DeviceRequest::close(), RawBytes::ack());
    peer.readToEnd();
}

// One call of each kind that is an exchange.
struct Call
{
    QByteArray request;
    QByteArray reply;
    //! Whether it gave what \a reply says.
    bool (*succeeds)(RawDevice &device);
};

const QMap<QByteArray, Call> &calls()
{
    static const QMap<QByteArray, Call> list{
        {"read",
         {DeviceRequest::read(5), DeviceReply::got("abcde"),
          [](RawDevice &device) { return device.read(5) == "abcde"; }}},
        {"size",
         {DeviceRequest::size(), RawBytes::i64(7),
          [](RawDevice &device) { return device.size() == 7; }}},
        {"seek",
         {DeviceRequest::seek(3), DeviceReply::yes(),
          [](RawDevice &device) { return device.seek(3); }}},
        {"close",
         {DeviceRequest::close(), RawBytes::ack(),
          [](RawDevice &device) {
              bool ok = false;
              device.close(&ok);
              return ok;
          }}},
    };
    return list;
}

void addCalls()
{
    QTest::addColumn<QByteArray>("call");
    for (auto it = calls().cbegin(); it != calls().cend(); ++it)
        QTest::newRow(it.key().constData()) << it.key();
}

void addCuts()
{
    QTest::addColumn<QByteArray>("call");
    QTest::addColumn<int>("size");
    for (auto it = calls().cbegin(); it != calls().cend(); ++it) {
        for (int size = 0; size < it->reply.size(); ++size)
            QTest::addRow("%s, %d bytes", it.key().constData(), size) << it.key() << size;
    }
}

} // namespace

class tst_SClientDevice_wire : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // ---- Every request byte for byte

    void theHandshakeAndTheEnd()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            confirmClose(peer);
        });
        {
            RawDevice device(server);
            QVERIFY(device.open(QIODevice::ReadOnly));
            QVERIFY(device.isOpen());
            QCOMPARE(device.error(), Error::None);
            bool ok = false;
            device.close(&ok);
            QVERIFY(ok);
            QVERIFY(!device.isOpen());
            const auto *socket = device.findChild<QAbstractSocket *>();
            QVERIFY(socket);
            QCOMPARE(socket->state(), QAbstractSocket::UnconnectedState);
        }
        QCOMPARE(server.received().toHex(),
                 (deviceHandshake() + DeviceRequest::open(1) + DeviceRequest::close()).toHex());
    }

    void theModeGoesOutAsTheCallerGaveIt_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<quint32>("word");
        QTest::newRow("read") << int(QIODevice::ReadOnly) << 1u;
        QTest::newRow("write") << int(QIODevice::WriteOnly) << 2u;
        QTest::newRow("both") << int(QIODevice::ReadWrite) << 3u;
        QTest::newRow("truncate") << int(QIODevice::WriteOnly | QIODevice::Truncate) << 10u;
        QTest::newRow("text") << int(QIODevice::ReadOnly | QIODevice::Text) << 17u;
        QTest::newRow("new only") << int(QIODevice::WriteOnly | QIODevice::NewOnly) << 66u;
        QTest::newRow("unbuffered") << int(QIODevice::ReadOnly | QIODevice::Unbuffered) << 1u;
    }

    // The flag by which the device itself is unbuffered is no business of the server's.
    void theModeGoesOutAsTheCallerGaveIt()
    {
        QFETCH(int, mode);
        QFETCH(quint32, word);
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            confirmClose(peer);
        });
        {
            RawDevice device(server);
            const QIODevice::OpenMode wanted(mode);
            QVERIFY(device.open(wanted));
            QCOMPARE(device.openMode(), wanted | QIODevice::Unbuffered);
        }
        QCOMPARE(server.received().toHex(),
                 (deviceHandshake() + DeviceRequest::open(word) + DeviceRequest::close()).toHex());
    }

    // It begins at the end, where the first write goes without a seek of the caller's.
    void appendingBeginsAtTheEnd()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::size(), RawBytes::i64(7));
            answerRequest(peer, DeviceRequest::seek(7), DeviceReply::yes());
            peer.read(DeviceRequest::write("abc").size());
            confirmClose(peer);
        });
        {
            RawDevice device(server);
            QVERIFY(device.open(QIODevice::WriteOnly | QIODevice::Append));
            QCOMPARE(device.pos(), 7);
            QCOMPARE(device.write("abc"), 3);
            QCOMPARE(device.pos(), 10);
        }
        QCOMPARE(server.received().toHex(),
                 (deviceHandshake() + DeviceRequest::open(6) + DeviceRequest::size() +
                  DeviceRequest::seek(7) + DeviceRequest::write("abc") + DeviceRequest::close())
                     .toHex());
    }

    void appendingNeedsTheSize()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::size(), RawBytes::i64(-1));
            stayQuiet(peer);
        });
        RawDevice device(server, kShortTimeoutMs);
        QVERIFY(!device.open(QIODevice::WriteOnly | QIODevice::Append));
        QVERIFY(!device.isOpen());
        QCOMPARE(device.error(), Error::File);
    }

    void readsAndWritesAreOneRequestEach()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::read(10), DeviceReply::got("0123456789"));
            answerRequest(peer, DeviceRequest::read(10), DeviceReply::got("ab"));
            answerRequest(peer, DeviceRequest::seek(4), DeviceReply::yes());
            peer.read(DeviceRequest::write("xyz").size());
            answerRequest(peer, DeviceRequest::read(1), DeviceReply::got("7"));
            confirmClose(peer);
        });
        {
            RawDevice device(server);
            QVERIFY(device.open(QIODevice::ReadWrite));
            QCOMPARE(device.read(10), "0123456789"_ba);
            QCOMPARE(device.read(10), "ab"_ba);
            QCOMPARE(device.pos(), 12);
            QVERIFY(device.seek(4));
            QCOMPARE(device.write("xyz"), 3);
            QCOMPARE(device.bytesToWrite(), 0);
            QCOMPARE(device.pos(), 7);
            QCOMPARE(device.read(1), "7"_ba);
        }
        QCOMPARE(server.received().toHex(),
                 (deviceHandshake() + DeviceRequest::open(3) + DeviceRequest::read(10) +
                  DeviceRequest::read(10) + DeviceRequest::seek(4) + DeviceRequest::write("xyz") +
                  DeviceRequest::read(1) + DeviceRequest::close())
                     .toHex());
    }

    void nothingIsReadOrWrittenForNothing()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            confirmClose(peer);
        });
        {
            RawDevice device(server);
            char byte = 0;
            QCOMPARE(device.readData(&byte, 1), -1);
            QCOMPARE(device.writeData(&byte, 1), -1);
            QVERIFY(device.open(QIODevice::ReadWrite));
            QCOMPARE(device.readData(&byte, 0), 0);
            QCOMPARE(device.writeData(&byte, 0), 0);
        }
        QCOMPARE(server.received().size(), deviceHandshake().size() + 8 + 4);
    }

    // ---- The size

    void sizeAskedTwiceSendsOneRequest()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::size(), RawBytes::i64(100));
            answerRequest(peer, DeviceRequest::seek(5), DeviceReply::yes());
            answerRequest(peer, DeviceRequest::size(), RawBytes::i64(200));
            confirmClose(peer);
        });
        {
            RawDevice device(server);
            QVERIFY(device.open(QIODevice::ReadOnly));
            QCOMPARE(device.size(), 100);
            QCOMPARE(device.size(), 100);
            QCOMPARE(device.bytesAvailable(), 100);
            QVERIFY(device.seek(5));
            QCOMPARE(device.size(), 200);
            QCOMPARE(device.bytesAvailable(), 195);
            QVERIFY(!device.atEnd());
        }
        QCOMPARE(server.received().toHex(),
                 (deviceHandshake() + DeviceRequest::open(1) + DeviceRequest::size() +
                  DeviceRequest::seek(5) + DeviceRequest::size() + DeviceRequest::close())
                     .toHex());
    }

    void aWriteDoesNotChangeTheSize()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::size(), RawBytes::i64(0));
            peer.read(DeviceRequest::write("abc").size());
            confirmClose(peer);
        });
        {
            RawDevice device(server);
            QVERIFY(device.open(QIODevice::WriteOnly));
            QCOMPARE(device.size(), 0);
            QCOMPARE(device.write("abc"), 3);
            QCOMPARE(device.size(), 0);
        }
        QCOMPARE(server.received().size(), deviceHandshake().size() + 8 + 4 + 15 + 4);
    }

    void aNegativeSizeIsNone_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::newRow("-1") << qint64(-1);
        QTest::newRow("-5") << qint64(-5);
        QTest::newRow("smallest") << kSmallest;
    }

    void aNegativeSizeIsNone()
    {
        QFETCH(qint64, size);
        RawServer server([size](RawConnection &peer) {
            openDevice(peer);
            for (int i = 0; i < 3; ++i)
                answerRequest(peer, DeviceRequest::size(), RawBytes::i64(size));
            confirmClose(peer);
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.size(), -1);
        QCOMPARE(device.error(), Error::File);
        QCOMPARE(device.bytesAvailable(), 0);
        QVERIFY(device.atEnd());
        bool ok = false;
        device.close(&ok);
        QVERIFY(ok);
    }

    void theLargestSizeStaysInRange()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::size(), RawBytes::i64(kLargest));
            confirmClose(peer);
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.readBuffer().write("x", 1), 1u);
        QCOMPARE(device.size(), kLargest);
        QCOMPARE(device.bytesAvailable(), kLargest);
    }

    // ---- The count of a read is the server's word

    void aReadBeyondTheEndGivesNothing()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::read(10), RawBytes::i64(0));
            confirmClose(peer);
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadOnly));
        char buffer[10] = {};
        QCOMPARE(device.readData(buffer, 10), 0);
        QCOMPARE(device.error(), Error::None);
        bool ok = false;
        device.close(&ok);
        QVERIFY(ok);
    }

    void aNegativeCountIsAFailure_data()
    {
        QTest::addColumn<qint64>("count");
        QTest::newRow("-1") << qint64(-1);
        QTest::newRow("-2") << qint64(-2);
        QTest::newRow("smallest") << kSmallest;
    }

    // No bytes follow it, so the next exchange is in step.
    void aNegativeCountIsAFailure()
    {
        QFETCH(qint64, count);
        RawServer server([count](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::read(5), RawBytes::i64(count));
            answerRequest(peer, DeviceRequest::read(5), DeviceReply::got("abc"));
            confirmClose(peer);
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadOnly));
        char buffer[5] = {};
        QCOMPARE(device.read(buffer, 5), -1);
        QCOMPARE(device.error(), Error::File);
        QCOMPARE(device.pos(), 0);
        QCOMPARE(device.read(5), "abc"_ba);
    }

    void moreThanAskedForIsAFailure_data()
    {
        QTest::addColumn<qint64>("count");
        QTest::newRow("one more") << qint64(6);
        QTest::newRow("a buffer of the server's") << qint64(1048576);
        QTest::newRow("4 GiB and 5 bytes") << (qint64(1) << 32) + 5;
        QTest::newRow("largest") << kLargest;
    }

    // What follows could pass for another reply, so nothing more is asked.
    void moreThanAskedForIsAFailure()
    {
        QFETCH(qint64, count);
        RawServer server([count](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::read(5), RawBytes::i64(count) + QByteArray(64, 'x'));
            stayQuiet(peer);
        });
        RawDevice device(server, kShortTimeoutMs);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QByteArray buffer(16, '.');
        QCOMPARE(device.read(buffer.data(), 5), -1);
        QCOMPARE(buffer, QByteArray(16, '.'));
        QCOMPARE(device.error(), Error::Connection);
        QCOMPARE(device.pos(), 0);
        QCOMPARE(device.size(), -1);
        QVERIFY(!device.seek(1));
        QCOMPARE(device.read(buffer.data(), 5), -1);
        device.close();
        QCOMPARE(server.received().size(), deviceHandshake().size() + 8 + 12);
    }

    // ---- Servers that refuse

    void aFailedAuthenticateLeavesTheSocketConnected()
    {
        std::atomic_bool connected = false;
        QSemaphore looked;
        RawServer server([&](RawConnection &peer) {
            peer.send(RawServer::uuid());
            peer.answer(RawBytes::u32(0));
            looked.acquire();
            connected = peer.socket().state() == QAbstractSocket::ConnectedState;
            peer.readToEnd();
        });
        RawDevice device(server);
        QVERIFY(!device.open(QIODevice::ReadOnly));
        QCOMPARE(device.error(), Error::Login);
        QVERIFY(!device.isOpen());
        const auto *socket = device.findChild<QAbstractSocket *>();
        QVERIFY(socket);
        QCOMPARE(socket->state(), QAbstractSocket::ConnectedState);
        looked.release();
        // There is no device to end, so nothing is said or waited for.
        QElapsedTimer timer;
        timer.start();
        bool ok = true;
        device.close(&ok);
        QVERIFY(!ok);
        QVERIFY(timer.elapsed() < 5000);
        QVERIFY(!server.received().endsWith(DeviceRequest::close()));
        QVERIFY(connected);
    }

    void aStrangeStatusIsARefusal_data()
    {
        QTest::addColumn<quint32>("status");
        QTest::newRow("2") << 2u;
        QTest::newRow("-1") << 0xFFFFFFFFu;
        QTest::newRow("1 in the other byte order") << 0x01000000u;
    }

    void aStrangeStatusIsARefusal()
    {
        QFETCH(quint32, status);
        RawServer server([status](RawConnection &peer) {
            peer.send(RawServer::uuid());
            peer.answer(RawBytes::u32(status));
            peer.readToEnd();
        });
        RawDevice device(server);
        QVERIFY(!device.open(QIODevice::ReadOnly));
        QCOMPARE(device.error(), Error::Login);
    }

    void wrongWordsWhileOpening_data()
    {
        QTest::addColumn<QByteArray>("said");
        QTest::addColumn<int>("error");
        const QByteArray uuid = RawServer::uuid();
        const QByteArray ack = RawBytes::ack();
        const QByteArray nack = RawBytes::nack();
        const QByteArray login = ack + RawBytes::u32(1) + ack;
        const auto row = [](const char *name, const QByteArray &said, Error error) {
            QTest::newRow(name) << said << int(error);
        };
        row("null uuid", QByteArray(16, '\0'), Error::NoConnection);
        row("login not accepted", uuid + nack, Error::Connection);
        row("login accepted with a wrong word", uuid + "abcd" + RawBytes::u32(1) + ack,
            Error::Connection);
        row("login right but not completed", uuid + ack + RawBytes::u32(1) + nack,
            Error::Connection);
        row("login completed with a wrong word", uuid + ack + RawBytes::u32(1) + RawBytes::u32(1),
            Error::Connection);
        row("device not accepted", uuid + login + nack, Error::Connection);
        row("device accepted with a wrong word", uuid + login + RawBytes::u32(0),
            Error::Connection);
        row("device taken back", uuid + login + ack + nack, Error::File);
        row("file refused", uuid + login + ack + DeviceReply::no(), Error::File);
        row("first byte of a nack word", uuid + login + ack + "\x55", Error::File);
    }

    void wrongWordsWhileOpening()
    {
        QFETCH(QByteArray, said);
        QFETCH(int, error);
        RawServer server([said](RawConnection &peer) {
            peer.send(said);
            stayQuiet(peer);
        });
        RawDevice device(server, kShortTimeoutMs);
        QVERIFY(!device.open(QIODevice::ReadOnly));
        QVERIFY(!device.isOpen());
        QCOMPARE(int(device.error()), error);
    }

    void anyOtherByteIsAYes_data()
    {
        QTest::addColumn<QByteArray>("byte");
        for (const char byte : {'\1', '\2', '\x54', '\x56', '\x7F', '\x80', '\xA5', '\xFF'})
            QTest::addRow("%02x", static_cast<uchar>(byte)) << QByteArray(1, byte);
    }

    void anyOtherByteIsAYes()
    {
        QFETCH(QByteArray, byte);
        RawServer server([byte](RawConnection &peer) {
            openDevice(peer, byte);
            answerRequest(peer, DeviceRequest::seek(3), byte);
            answerRequest(peer, DeviceRequest::read(3), DeviceReply::got("def"));
            confirmClose(peer);
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.error(), Error::None);
        QVERIFY(device.seek(3));
        QCOMPARE(device.read(3), "def"_ba);
        bool ok = false;
        device.close(&ok);
        QVERIFY(ok);
    }

    void aSeekAnsweredWithANackIsRefused()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::seek(9), RawBytes::nack());
            peer.readToEnd();
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QVERIFY(!device.seek(9));
        QCOMPARE(device.error(), Error::File);
        QCOMPARE(device.pos(), 0);
    }

    void aRefusedFileIsStillEndedInOrder()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer, DeviceReply::no());
            confirmClose(peer);
        });
        RawDevice device(server);
        QVERIFY(!device.open(QIODevice::ReadOnly));
        bool ok = false;
        device.close(&ok);
        QVERIFY(ok);
        QVERIFY(server.received().endsWith(DeviceRequest::close()));
    }

    void aRefusedSeekLeavesThePosition()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::read(3), DeviceReply::got("abc"));
            answerRequest(peer, DeviceRequest::seek(9), DeviceReply::no());
            answerRequest(peer, DeviceRequest::read(3), DeviceReply::got("def"));
            confirmClose(peer);
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.read(3), "abc"_ba);
        QVERIFY(!device.seek(9));
        QCOMPARE(device.error(), Error::File);
        QCOMPARE(device.pos(), 3);
        QCOMPARE(device.read(3), "def"_ba);
        QCOMPARE(device.pos(), 6);
    }

    void closeWithAWrongFinalWord_data()
    {
        QTest::addColumn<QByteArray>("word");
        QTest::newRow("nack") << RawBytes::nack();
        QTest::newRow("zero") << RawBytes::u32(0);
        QTest::newRow("keep-alive") << QByteArray::fromHex("50A050A0");
        QTest::newRow("one bit off") << QByteArray::fromHex("A5A5A5A4");
        QTest::newRow("cut") << QByteArray::fromHex("A5A5A5");
        QTest::newRow("nothing") << QByteArray();
    }

    void closeWithAWrongFinalWord()
    {
        QFETCH(QByteArray, word);
        RawServer server([word](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::close(), word);
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadOnly));
        bool ok = true;
        device.close(&ok);
        QVERIFY(!ok);
        QVERIFY(!device.isOpen());
    }

    // ---- Servers that go, or stop talking

    void cutWhileOpening_data()
    {
        QTest::addColumn<int>("size");
        for (int size = 0; size < deviceWelcome().size(); ++size)
            QTest::addRow("%d bytes", size) << size;
    }

    void cutWhileOpening()
    {
        QFETCH(int, size);
        RawServer server([size](RawConnection &peer) { peer.send(deviceWelcome().left(size)); });
        RawDevice device(server);
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!device.open(QIODevice::ReadOnly));
        QVERIFY(timer.elapsed() < 5000);
        QCOMPARE(device.error(), size < 16 ? Error::NoConnection : Error::Connection);
        device.close();
        QVERIFY(timer.elapsed() < 5000);
    }

    void silenceWhileOpening_data() { cutWhileOpening_data(); }

    void silenceWhileOpening()
    {
        QFETCH(int, size);
        RawServer server([size](RawConnection &peer) {
            peer.send(deviceWelcome().left(size));
            stayQuiet(peer);
        });
        RawDevice device(server, kShortTimeoutMs);
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!device.open(QIODevice::ReadOnly));
        QVERIFY(timer.elapsed() >= kShortTimeoutMs);
        QCOMPARE(device.error(), size < 16 ? Error::NoConnection : Error::Connection);
        device.close();
        QVERIFY(timer.elapsed() < 5000);
    }

    void cutInAReply_data() { addCuts(); }

    void cutInAReply()
    {
        QFETCH(QByteArray, call);
        QFETCH(int, size);
        const Call &cut = calls()[call];
        RawServer server([&](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, cut.request, cut.reply.left(size));
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!cut.succeeds(device));
        QCOMPARE(device.error(), Error::Connection);
        QVERIFY(!device.isOpen());
        device.close();
        QVERIFY(timer.elapsed() < 5000);
    }

    void silenceInAReply_data() { addCuts(); }

    // The connection stays, but bytes that come late must not pass for those of another reply.
    void silenceInAReply()
    {
        QFETCH(QByteArray, call);
        QFETCH(int, size);
        const Call &cut = calls()[call];
        QSemaphore late;
        RawServer server([&](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, cut.request, cut.reply.left(size));
            late.acquire();
            peer.send(cut.reply.mid(size));
            stayQuiet(peer);
        });
        RawDevice device(server, kShortTimeoutMs);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!cut.succeeds(device));
        QVERIFY(timer.elapsed() >= kShortTimeoutMs);
        QCOMPARE(device.error(), Error::Connection);
        const bool isClosed = call == "close";
        QCOMPARE(device.isOpen(), !isClosed);
        late.release();
        if (!isClosed) {
            QCOMPARE(device.pos(), 0);
            QVERIFY(!calls()["read"].succeeds(device));
            QCOMPARE(device.size(), -1);
            QVERIFY(!device.seek(3));
            QCOMPARE(device.write("abc"), -1);
        }
        bool ok = true;
        device.close(&ok);
        QVERIFY(!ok);
        QVERIFY(timer.elapsed() < 5000);
        QCOMPARE(server.received().size(), deviceHandshake().size() + 8 + cut.request.size());
    }

    // Each wait is as long as the time-out, not all of them together.
    void aReplyThatDripsArrives_data() { addCalls(); }

    void aReplyThatDripsArrives()
    {
        QFETCH(QByteArray, call);
        const Call &dripped = calls()[call];
        RawServer server([&](RawConnection &peer) {
            openDevice(peer);
            peer.read(dripped.request.size());
            peer.drip(dripped.reply, 40);
            if (call != "close")
                confirmClose(peer);
        });
        RawDevice device(server, 10 * kShortTimeoutMs);
        QVERIFY(device.open(QIODevice::ReadWrite));
        QVERIFY(dripped.succeeds(device));
    }

    void serverGoneBetweenTwoReads()
    {
        QSemaphore gone;
        RawServer server([&](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::read(3), DeviceReply::got("abc"));
            peer.vanish();
            gone.release();
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.read(3), "abc"_ba);
        gone.acquire();
        QElapsedTimer timer;
        timer.start();
        char buffer[3];
        QCOMPARE(device.read(buffer, 3), -1);
        QCOMPARE(device.error(), Error::Connection);
        QVERIFY(!device.isOpen());
        bool ok = true;
        device.close(&ok);
        QVERIFY(!ok);
        QVERIFY(timer.elapsed() < 5000);
    }

    void serverGoneDuringAWrite()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            peer.read(100);
            peer.vanish();
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QElapsedTimer timer;
        timer.start();
        const QByteArray block(1 << 20, 'x');
        qint64 written = 0;
        for (int i = 0; i < 100 && written >= 0; ++i)
            written = device.isOpen() ? device.write(block) : -1;
        QCOMPARE(written, -1);
        QCOMPARE(device.error(), Error::Connection);
        device.close();
        QVERIFY(timer.elapsed() < 5000);
    }

    // The server takes nothing any more, and says so to nobody. What it did not take is not kept.
    void aServerThatTakesNothingEndsTheWrite()
    {
        QSemaphore end;
        RawServer server([&](RawConnection &peer) {
            openDevice(peer);
            peer.socket().setReadBufferSize(1);
            end.acquire();
        });
        RawDevice device(server, kShortTimeoutMs);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QCOMPARE(device.write(QByteArray(64 << 20, 'x')), -1);
        QCOMPARE(device.bytesToWrite(), 0);
        QElapsedTimer timer;
        timer.start();
        bool ok = true;
        device.close(&ok);
        QVERIFY(!ok);
        QVERIFY(timer.elapsed() < 5000);
        end.release();
    }

    void theEndOfTheConnectionClosesTheDevice()
    {
        QSemaphore end;
        RawServer server([&](RawConnection &peer) {
            openDevice(peer);
            end.acquire();
        });
        RawDevice device(server);
        SignalLog told(&device, &QIODevice::aboutToClose);
        QVERIFY(device.open(QIODevice::ReadOnly));
        end.release();
        QTRY_VERIFY(!device.isOpen());
        QCOMPARE(told.count(), 1);
        device.close();
        QCOMPARE(told.count(), 1);
    }

    void closingWhenTheEndIsToldTellsItOnce()
    {
        QSemaphore end;
        RawServer server([&](RawConnection &peer) {
            openDevice(peer);
            end.acquire();
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadOnly));
        SignalLog told(&device, &QIODevice::aboutToClose);
        connect(&device, &QIODevice::aboutToClose, &device, [&] { device.close(); });
        end.release();
        QTRY_VERIFY(!device.isOpen());
        QCOMPARE(told.count(), 1);
    }

    void aSocketThatDiesLeavesTheDeviceWithout()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            stayQuiet(peer);
        });
        RawDevice device(server, kShortTimeoutMs);
        QVERIFY(device.open(QIODevice::ReadOnly));
        delete device.findChild<QAbstractSocket *>();
        QVERIFY(!device.isOpen());
        char byte = 0;
        QCOMPARE(device.readData(&byte, 1), -1);
        QCOMPARE(device.writeData(&byte, 1), -1);
        QCOMPARE(device.size(), -1);
        QCOMPARE(device.bytesAvailable(), 0);
        QCOMPARE(device.bytesToWrite(), 0);
        QVERIFY(!device.waitForReadyRead(0));
        // It does not begin another session either: this fails at once, not in the handshake.
        const Error before = device.error();
        QVERIFY(!device.open(QIODevice::ReadOnly));
        QCOMPARE(device.error(), before);
        bool ok = true;
        device.close(&ok);
        QVERIFY(!ok);
    }

    // ---- Time-outs

    void aTimeoutOfZeroDoesNotWait()
    {
        QSemaphore go;
        RawServer server([&](RawConnection &peer) {
            openDevice(peer);
            go.acquire();
            stayQuiet(peer);
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadOnly));
        device.setTimeout(0);
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(device.size(), -1);
        QVERIFY(timer.elapsed() < 5000);
        go.release();
    }

    void aNegativeTimeoutWaits()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            peer.read(4);
            QThread::msleep(300);
            peer.send(RawBytes::i64(42));
            confirmClose(peer);
        });
        RawDevice device(server, -1);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.size(), 42);
    }

    // A thread that is asked to stop waits no longer than the time-out, even where there is none.
    void aRequestToStopEndsTheWaits()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            // Never silent for long, and never done.
            while (peer.send("x"))
                QThread::msleep(20);
        });
        bool isFailed = false;
        qint64 took = 0;
        const std::unique_ptr<QThread> thread(QThread::create([&] {
            RawDevice device(server, 500);
            if (!device.open(QIODevice::ReadOnly))
                return;
            QElapsedTimer timer;
            timer.start();
            QThread::currentThread()->requestInterruption();
            // The count is some 8 * 10^18.
            QByteArray buffer(1 << 20, Qt::Uninitialized);
            isFailed = device.read(buffer.data(), buffer.size()) == -1;
            took = timer.elapsed();
        }));
        thread->start();
        QVERIFY(thread->wait(20'000));
        QVERIFY(isFailed);
        QVERIFY(took < 5000);
    }

    // ---- Signals during an exchange

    void readyReadIsPassedOn()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::size(), RawBytes::i64(3));
            confirmClose(peer);
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadOnly));
        SignalLog told(&device, &QIODevice::readyRead);
        QCOMPARE(device.size(), 3);
        QVERIFY(!told.isEmpty());
        QVERIFY(device.waitForReadyRead(0));
    }

    // Large blocks go past the socket, which does not signal them itself.
    void readyReadTellsOfALargeBlock()
    {
        const QByteArray block(100'000, 'b');
        RawServer server([&](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::read(100'000), DeviceReply::got(block));
            confirmClose(peer);
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadOnly));
        SignalLog told(&device, &QIODevice::readyRead);
        QCOMPARE(device.read(100'000), block);
        QVERIFY(!told.isEmpty());
    }

    void closingWithinALargeExchangeEndsIt()
    {
        QSemaphore end;
        RawServer server([&](RawConnection &peer) {
            openDevice(peer);
            peer.read(12);
            peer.send(RawBytes::i64(100'000));
            end.acquire();
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadOnly));
        connect(&device, &QIODevice::readyRead, &device, [&] { device.close(); });
        QByteArray buffer(100'000, Qt::Uninitialized);
        QCOMPARE(device.read(buffer.data(), buffer.size()), -1);
        QVERIFY(!device.isOpen());
        end.release();
    }

    void waitingAtTheEndOfTheFileIsWaitingForTheConnection()
    {
        QSemaphore go;
        RawServer server([&](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::size(), RawBytes::i64(0));
            go.acquire();
            peer.send("x");
            confirmClose(peer);
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!device.waitForReadyRead(kShortTimeoutMs));
        QVERIFY(timer.elapsed() >= kShortTimeoutMs - 1);
        go.release();
        QVERIFY(device.waitForReadyRead(5000));
        QCOMPARE(device.bytesAvailable(), 1);
    }

    // Its request would go out in the middle of the other's reply.
    void noExchangeBeginsWithinAnother()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            peer.read(12);
            peer.drip(DeviceReply::got("abc"), 5);
            answerRequest(peer, DeviceRequest::read(3), DeviceReply::got("def"));
            confirmClose(peer);
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadWrite));
        int nested = 0;
        const auto connection = connect(&device, &QIODevice::readyRead, this, [&] {
            ++nested;
            char byte = 0;
            QCOMPARE(device.readData(&byte, 1), -1);
            QCOMPARE(device.writeData(&byte, 1), -1);
            QCOMPARE(device.size(), -1);
        });
        QCOMPARE(device.read(3), "abc"_ba);
        QVERIFY(nested > 0);
        disconnect(connection);
        QCOMPARE(device.read(3), "def"_ba);
    }

    void closingWithinAnExchangeEndsIt()
    {
        QSemaphore end;
        RawServer server([&](RawConnection &peer) {
            openDevice(peer);
            peer.read(12);
            peer.send(RawBytes::i64(3));
            end.acquire();
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadOnly));
        connect(&device, &QIODevice::readyRead, &device, [&] { device.close(); });
        char buffer[3];
        QCOMPARE(device.read(buffer, 3), -1);
        QVERIFY(!device.isOpen());
        end.release();
    }

    // A buffer in front of the device sends what it holds when it is told.
    void whatIsWrittenAtTheEndArrives()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            peer.read(DeviceRequest::write("last").size());
            confirmClose(peer);
        });
        {
            RawDevice device(server);
            QVERIFY(device.open(QIODevice::WriteOnly));
            connect(&device, &QIODevice::aboutToClose, &device, [&] {
                QCOMPARE(device.write("last"), 4);
                device.close(); // is under way already
            });
            bool ok = false;
            device.close(&ok);
            QVERIFY(ok);
        }
        QCOMPARE(server.received().toHex(), (deviceHandshake() + DeviceRequest::open(2) +
                                             DeviceRequest::write("last") + DeviceRequest::close())
                                                .toHex());
    }

    // ---- The life of the object

    void oneObjectServesOneOpen()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            confirmClose(peer);
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QVERIFY(!device.open(QIODevice::ReadOnly));
        QVERIFY(device.isOpen());
        device.close();
        QCOMPARE(device.pos(), 0);
        QVERIFY(!device.open(QIODevice::ReadOnly));
        bool ok = true;
        device.close(&ok);
        QVERIFY(!ok);
    }

    void theDestructorCloses()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            confirmClose(peer);
        });
        {
            RawDevice device(server);
            QVERIFY(device.open(QIODevice::ReadOnly));
        }
        QVERIFY(server.received().endsWith(DeviceRequest::close()));
    }

    void nobodyListens()
    {
        quint16 port = 0;
        {
            QTcpServer listener;
            QVERIFY(listener.listen(QHostAddress::LocalHost));
            port = listener.serverPort();
        }
        SClientDevice device(u"127.0.0.1"_s, u"file"_s, port, u"alice"_s, QByteArray());
        for (int i = 0; i < 2; ++i) {
            QVERIFY(!device.open(QIODevice::ReadOnly));
            QCOMPARE(device.error(), Error::NoConnection);
            QVERIFY(device.children().isEmpty());
        }
        bool ok = true;
        device.close(&ok);
        QVERIFY(!ok);
        device.close(nullptr);
    }

    void anUnknownHost()
    {
        SClientDevice device(u"no.such.host.invalid"_s, u"file"_s, 7000, u"alice"_s, QByteArray());
        QVERIFY(!device.open(QIODevice::ReadOnly));
        QCOMPARE(device.error(), Error::NoConnection);
    }

    void nothingIsLeftOpen()
    {
        const qsizetype before = ProcessFacts::descriptors();
        for (int i = 0; i < 20; ++i) {
            RawServer server([i](RawConnection &peer) {
                openDevice(peer, i % 2 ? DeviceReply::yes() : DeviceReply::no());
                confirmClose(peer);
            });
            RawDevice device(server);
            QCOMPARE(device.open(QIODevice::ReadOnly), i % 2 == 1);
        }
        QTRY_COMPARE(ProcessFacts::descriptors(), before);
    }

    // ---- The two buffers, which hold nothing unless a deriving class puts something there

    void whatTheWriteBufferHoldsIsSentByFlush()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            for (const char *bytes : {"a", "b", "c"})
                peer.read(DeviceRequest::write(bytes).size());
            confirmClose(peer);
        });
        {
            RawDevice device(server);
            QVERIFY(device.flush(true));
            QVERIFY(device.open(QIODevice::WriteOnly));
            QCOMPARE(device.writeBuffer().size(), 1u);
            QVERIFY(device.flush(true));

            QCOMPARE(device.writeBuffer().write("ab", 2), 1u);
            QCOMPARE(device.bytesToWrite(), 1);
            QVERIFY(device.flush(true));
            QCOMPARE(device.bytesToWrite(), 0);

            QCOMPARE(device.writeBuffer().write("b", 1), 1u);
            QVERIFY(device.waitForBytesWritten(5000));
            QCOMPARE(device.bytesToWrite(), 0);
            QVERIFY(device.waitForBytesWritten(0));

            QCOMPARE(device.writeBuffer().write("c", 1), 1u);
            bool ok = false;
            device.close(&ok);
            QVERIFY(ok);
        }
        QCOMPARE(server.received().toHex(),
                 (deviceHandshake() + DeviceRequest::open(2) + DeviceRequest::write("a") +
                  DeviceRequest::write("b") + DeviceRequest::write("c") + DeviceRequest::close())
                     .toHex());
    }

    void aFlushThatFailsMakesCloseFail()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            peer.vanish();
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::WriteOnly));
        QCOMPARE(device.writeBuffer().write("a", 1), 1u);
        QTRY_VERIFY(!device.isOpen());
        QVERIFY(!device.waitForBytesWritten(0));
        QCOMPARE(device.writeBuffer().write("a", 1), 1u);
        bool ok = true;
        device.close(&ok);
        QVERIFY(!ok);
    }

    void theReadBufferCountsUntilASeek()
    {
        RawServer server([](RawConnection &peer) {
            openDevice(peer);
            answerRequest(peer, DeviceRequest::size(), RawBytes::i64(10));
            answerRequest(peer, DeviceRequest::seek(2), DeviceReply::yes());
            answerRequest(peer, DeviceRequest::size(), RawBytes::i64(10));
            confirmClose(peer);
        });
        RawDevice device(server);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.readBuffer().size(), 1u);
        QCOMPARE(device.readBuffer().write("x", 1), 1u);
        QCOMPARE(device.bytesAvailable(), 11);
        QVERIFY(device.seek(2));
        QVERIFY(device.readBuffer().isEmpty());
        QCOMPARE(device.bytesAvailable(), 8);
    }
};

QTEST_GUILESS_MAIN(tst_SClientDevice_wire)
#include "tst_sclientdevice_wire.moc"
