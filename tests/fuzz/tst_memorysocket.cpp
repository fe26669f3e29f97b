// SPDX-License-Identifier: MIT
#include <memorysocket.h>

using namespace Qt::StringLiterals;
using Fuzz::MemorySocket;

class tst_MemorySocket : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isConnectedAndHasNothingYet()
    {
        const MemorySocket socket("abc"_ba, 0);
        QCOMPARE(socket.state(), QAbstractSocket::ConnectedState);
        QCOMPARE(socket.bytesAvailable(), 0);
        QVERIFY(socket.isWritable());
        QVERIFY(!socket.isReadToEnd());
    }

    void bytesArriveWithEachWait()
    {
        MemorySocket socket("abcde"_ba, 2);
        QVERIFY(socket.waitForReadyRead(0));
        QCOMPARE(socket.bytesAvailable(), 2);
        QCOMPARE(socket.peek(9), "ab"_ba);
        QCOMPARE(socket.read(9), "ab"_ba);
        QCOMPARE(socket.read(9), QByteArray());
        QVERIFY(socket.waitForReadyRead(0));
        QVERIFY(socket.waitForReadyRead(0));
        QCOMPARE(socket.bytesAvailable(), 3);
        QCOMPARE(socket.read(1), "c"_ba);
        QVERIFY(!socket.isReadToEnd());
        QCOMPARE(socket.read(9), "de"_ba);
        QVERIFY(socket.isReadToEnd());
    }

    void aPieceOfNoBytesIsAllOfThem()
    {
        MemorySocket socket("abcde"_ba, 0);
        QVERIFY(socket.waitForReadyRead(0));
        QCOMPARE(socket.readAll(), "abcde"_ba);
    }

    void behindTheLastByteThePeerHasGone()
    {
        MemorySocket socket("ab"_ba, 0);
        QVERIFY(socket.waitForReadyRead(0));
        QVERIFY(!socket.waitForReadyRead(0));
        QCOMPARE(socket.state(), QAbstractSocket::UnconnectedState);
        QVERIFY(!socket.isWritable());
        // What has arrived stays readable.
        QCOMPARE(socket.bytesAvailable(), 2);
        QCOMPARE(socket.readAll(), "ab"_ba);
        QVERIFY(socket.atEnd());
        QVERIFY(!socket.waitForReadyRead(0));
    }

    void whatIsWrittenHasLeftAtOnce()
    {
        MemorySocket socket({}, 0);
        QCOMPARE(socket.write("abc"), 3);
        QCOMPARE(socket.bytesToWrite(), 0);
        QCOMPARE(socket.state(), QAbstractSocket::ConnectedState);
    }

    void aPeerThatGotTooMuchGoes()
    {
        MemorySocket socket({}, 0);
        const QByteArray block(1024 * 1024, 'x');
        QCOMPARE(socket.write(block), block.size());
        QCOMPARE(socket.write(block), block.size());
        QCOMPARE(socket.state(), QAbstractSocket::UnconnectedState);
        QVERIFY(!socket.isWritable());
    }

    void disconnectingEndsIt()
    {
        MemorySocket socket("ab"_ba, 0);
        socket.disconnectFromHost();
        QCOMPARE(socket.state(), QAbstractSocket::UnconnectedState);
        QVERIFY(!socket.waitForReadyRead(0));
    }
};

QTEST_GUILESS_MAIN(tst_MemorySocket)
#include "tst_memorysocket.moc"
