// SPDX-License-Identifier: MIT
#include <brixlib/protocol/server/stcpserver.h>

#include <QtNetwork/QTcpSocket>

using namespace Talverine;

class tst_STcpServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void passesTheDescriptorOn()
    {
        STcpServer server;
        QSignalSpy accepted(&server, &STcpServer::newConnection);
        QVERIFY(server.listen(QHostAddress(QHostAddress::LocalHost)));
        QTcpSocket client;
        client.connectToHost(QHostAddress(QHostAddress::LocalHost), server.serverPort());
        QTRY_COMPARE(accepted.size(), 1);
        QVERIFY(!server.hasPendingConnections());

        QTcpSocket socket;
        const auto descriptor = accepted.at(0).at(0).toLongLong();
        QVERIFY(socket.setSocketDescriptor(static_cast<qintptr>(descriptor)));
        QTRY_COMPARE(client.state(), QAbstractSocket::ConnectedState);
        QCOMPARE(socket.peerPort(), client.localPort());
        socket.write("x");
        QTRY_COMPARE(client.bytesAvailable(), 1);
    }
};

QTEST_GUILESS_MAIN(tst_STcpServer)
#include "tst_stcpserver.moc"
