// SPDX-License-Identifier: MIT
#include <brixlib/protocol/socket/directsocket_p.h>

#include <shared/rawpeer.h>

#include <QtCore/QBuffer>
#include <QtCore/QElapsedTimer>
#include <QtTest/QSignalSpy>
#include <QtTest/QTest>

using namespace Talverine;

namespace {

constexpr int kWaitMs = 10000;

} // namespace

class tst_DirectSocket : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_socket = std::make_unique<STcpSocket>();
        QVERIFY(m_peer.accept(m_socket.get()));
    }

    void cleanup()
    {
        m_socket.reset();
        m_peer.close();
    }

    void isClosedForWhatIsNoSocketOfTheLibrary_data()
    {
        QTest::addColumn<QSharedPointer<QIODevice>>("device");
        QTest::newRow("nothing") << QSharedPointer<QIODevice>();
        QTest::newRow("a buffer") << QSharedPointer<QIODevice>(new QBuffer);
        QTest::newRow("a plain socket") << QSharedPointer<QIODevice>(new QTcpSocket);
        QTest::newRow("a socket without a connection") << QSharedPointer<QIODevice>(new STcpSocket);
    }
    void isClosedForWhatIsNoSocketOfTheLibrary()
    {
        QFETCH(const QSharedPointer<QIODevice>, device);
        DirectSocket direct(device.data());
        QVERIFY(!direct.canSend());
        QVERIFY(!direct.canReceive());
    }

    void isOpenOnAConnection()
    {
        DirectSocket direct(m_socket.get());
        QVERIFY(direct.canSend());
        QVERIFY(direct.canReceive());
    }

    void aLimitClosesItsDirection_data()
    {
        QTest::addColumn<qint64>("limit");
        QTest::newRow("some speed") << qint64(1024);
        QTest::newRow("a stop") << qint64(-1);
    }
    void aLimitClosesItsDirection()
    {
        QFETCH(const qint64, limit);
        DirectSocket direct(m_socket.get());
        m_socket->setOutcomingSpeed(limit);
        QVERIFY(!direct.canSend());
        QVERIFY(direct.canReceive());
        m_socket->setOutcomingSpeed(0);
        m_socket->setIncomingSpeed(limit);
        QVERIFY(direct.canSend());
        QVERIFY(!direct.canReceive());
    }

    void sendsBehindWhatTheSocketHolds()
    {
        QCOMPARE(m_socket->write("123"), 3);
        QVERIFY(m_socket->bytesToWrite() > 0);
        DirectSocket direct(m_socket.get());
        QVERIFY(direct.canSend());
        QCOMPARE(direct.send("4567", 4), 4);
        QCOMPARE(m_socket->bytesToWrite(), 0);
        QCOMPARE(m_peer.receive(7), "1234567");
    }

    void isClosedWhileTheSocketCannotSendWhatItHolds()
    {
        const QByteArray block(64 << 20, 'x');
        QCOMPARE(m_socket->write(block), block.size());
        QVERIFY(!DirectSocket(m_socket.get()).canSend());
    }

    void receivesBehindWhatTheSocketHolds()
    {
        QVERIFY(m_peer.send("123"));
        QTRY_COMPARE(m_socket->bytesAvailable(), 3);
        DirectSocket direct(m_socket.get());
        QVERIFY(!direct.canReceive());
        QCOMPARE(m_socket->readAll(), "123");
        QVERIFY(direct.canReceive());
        QVERIFY(m_peer.send("4567"));
        QVERIFY(direct.waitToReceive(kWaitMs));
        QVERIFY(direct.hasBytes());
        char bytes[10];
        QCOMPARE(direct.receive(bytes, sizeof bytes), 4);
        QCOMPARE(QByteArray(bytes, 4), "4567");
        QCOMPARE(m_socket->bytesAvailable(), 0);
    }

    void whatItLeavesComesThroughTheSocket()
    {
        QVERIFY(m_peer.send("1234567"));
        DirectSocket direct(m_socket.get());
        QVERIFY(direct.waitToReceive(kWaitMs));
        char bytes[3];
        QCOMPARE(direct.receive(bytes, sizeof bytes), 3);
        QVERIFY(m_socket->waitForReadyRead(kWaitMs));
        QCOMPARE(m_socket->readAll(), "4567");
    }

    void nothingIsThereBeforeThePeerSends()
    {
        DirectSocket direct(m_socket.get());
        char byte = 0;
        QCOMPARE(direct.receive(&byte, 1), 0);
        QVERIFY(!direct.hasBytes());
        QElapsedTimer waiting;
        waiting.start();
        QVERIFY(!direct.waitToReceive(50));
        QVERIFY(waiting.elapsed() >= 45);
    }

    void aPeerThatStopsReadingIsWaitedFor()
    {
        DirectSocket direct(m_socket.get());
        QVERIFY(direct.waitToSend(kWaitMs));
        const QByteArray block(1 << 20, 'x');
        qint64 sent = 0;
        for (qint64 count = 1; count > 0; sent += count)
            count = direct.send(block.constData(), block.size());
        QVERIFY(!direct.waitToSend(50));
        QCOMPARE(m_peer.receive(sent).size(), sent);
        QVERIFY(direct.waitToSend(kWaitMs));
    }

    // The socket itself then finds out, and tells.
    void theEndOfTheConnectionEndsAWait_data()
    {
        QTest::addColumn<bool>("resets");
        QTest::newRow("in good order") << false;
        QTest::newRow("broken off") << true;
    }
    void theEndOfTheConnectionEndsAWait()
    {
        QFETCH(const bool, resets);
        resets ? m_peer.reset() : m_peer.close();
        DirectSocket direct(m_socket.get());
        QVERIFY(direct.waitToReceive(kWaitMs));
        QVERIFY(!direct.hasBytes());
        char byte = 0;
        QCOMPARE(direct.receive(&byte, 1), 0);
        QVERIFY(!m_socket->waitForReadyRead(0));
        QTRY_COMPARE(m_socket->state(), QAbstractSocket::UnconnectedState);
    }

    // Without a signal that ends the program either.
    void nothingGoesToAPeerThatHasGone()
    {
        m_peer.reset();
        DirectSocket direct(m_socket.get());
        QVERIFY(direct.waitToReceive(kWaitMs));
        QCOMPARE(direct.send("1", 1), 0);
        QCOMPARE(direct.send("1", 1), 0);
    }

    void theSpeedIsMeasured()
    {
        QSignalSpy in(m_socket.get(), &STcpSocket::connectionIncomingSpeed);
        QSignalSpy out(m_socket.get(), &STcpSocket::connectionOutcomingSpeed);
        DirectSocket direct(m_socket.get());
        QCOMPARE(direct.send("1234567", 7), 7);
        QVERIFY(m_peer.send("1234567"));
        QVERIFY(direct.waitToReceive(kWaitMs));
        char bytes[7];
        QCOMPARE(direct.receive(bytes, sizeof bytes), 7);
        QCOMPARE(in.count(), 1);
        QCOMPARE(out.count(), 1);
    }

private:
    std::unique_ptr<STcpSocket> m_socket;
    RawPeer m_peer;
};

QTEST_GUILESS_MAIN(tst_DirectSocket)
#include "tst_directsocket.moc"
