// SPDX-License-Identifier: MIT
// What the tool reports when no session begins, as a process.
#include <shared/toolprocess.h>

#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <functional>
#include <memory>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// A listening socket whose queue is full, so that the system drops further connections.
class FullQueue final
{
public:
    FullQueue()
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto *const name = reinterpret_cast<sockaddr *>(&address);
        m_isListening = ::bind(m_descriptor, name, size) == 0 && ::listen(m_descriptor, 0) == 0 &&
                        ::getsockname(m_descriptor, name, &size) == 0;
        m_port = ntohs(address.sin_port);
    }
    ~FullQueue() { ::close(m_descriptor); }
    Q_DISABLE_COPY_MOVE(FullQueue)

    //! Connects until a connection is not made any more.
    bool fill()
    {
        while (m_isListening && m_clients.size() < 20) {
            m_clients.push_back(std::make_unique<QTcpSocket>());
            m_clients.back()->connectToHost(QHostAddress(QHostAddress::LocalHost), m_port);
            if (!m_clients.back()->waitForConnected(500))
                return true;
        }
        return false;
    }
    quint16 port() const { return m_port; }

private:
    const int m_descriptor = ::socket(AF_INET, SOCK_STREAM, 0);
    bool m_isListening = false;
    quint16 m_port = 0;
    std::vector<std::unique_ptr<QTcpSocket>> m_clients;
};

} // namespace

class tst_ConnectionFailure : public QObject
{
    Q_OBJECT

private:
    static ToolResult run(const QString &command, quint16 port)
    {
        ToolProcess tool;
        tool.password = u"secret"_s;
        return tool.run(
            {command, u"--timeout"_s, u"1"_s, u"brix://ann@127.0.0.1:%1/file"_s.arg(port)});
    }

    static void addCommands()
    {
        QTest::addColumn<QString>("command");
        QTest::newRow("ls") << u"ls"_s;
        QTest::newRow("cat") << u"cat"_s;
    }

private Q_SLOTS:
    void closedPortIsReported_data() { addCommands(); }
    void closedPortIsReported()
    {
        QFETCH(const QString, command);
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress(QHostAddress::LocalHost)));
        const quint16 port = server.serverPort();
        server.close();
        const auto result = run(command, port);
        QCOMPARE(result.exitCode, 3);
        QCOMPARE(
            result.err,
            u"brix: cannot connect to 127.0.0.1:%1: no program listens on this port\n"_s.arg(port)
                .toUtf8());
    }

    void hostThatDoesNotRespondIsReported_data() { addCommands(); }
    void hostThatDoesNotRespondIsReported()
    {
        QFETCH(const QString, command);
        FullQueue server;
        QVERIFY(server.fill());
        const auto result = run(command, server.port());
        QCOMPARE(result.exitCode, 3);
        QVERIFY2(result.err.contains(": it does not respond within 1 s\n"), result.err.constData());
    }

    void serverThatIsNoBrixServerIsReported_data()
    {
        using Talk = std::function<void(QTcpSocket *)>;
        QTest::addColumn<QString>("command");
        QTest::addColumn<Talk>("talk");
        QTest::addColumn<QByteArray>("message");
        for (const auto &command : {u"ls"_s, u"cat"_s}) {
            QTest::addRow("%s, closes", qPrintable(command))
                << command << Talk([](QTcpSocket *peer) { peer->disconnectFromHost(); })
                << "it closes the connection at once; it is no brix server"_ba;
            QTest::addRow("%s, is silent", qPrintable(command))
                << command << Talk([](QTcpSocket *) {})
                << "it sends no greeting within 1 s; it is no brix server"_ba;
        }
        QTest::newRow("ls, speaks another protocol") << u"ls"_s << Talk([](QTcpSocket *peer) {
            QObject::connect(peer, &QTcpSocket::readyRead, peer,
                             [peer] { peer->disconnectFromHost(); });
            peer->write("SSH-2.0-OpenSSH_9.2p1\r\n");
        }) << "does not respond to the login: it is no brix server"_ba;
    }

    void serverThatIsNoBrixServerIsReported()
    {
        QFETCH(const QString, command);
        QFETCH(const std::function<void(QTcpSocket *)>, talk);
        QFETCH(const QByteArray, message);
        QTcpServer server;
        connect(&server, &QTcpServer::newConnection, &server,
                [&] { talk(server.nextPendingConnection()); });
        QVERIFY(server.listen(QHostAddress(QHostAddress::LocalHost)));
        const auto result = run(command, server.serverPort());
        QCOMPARE(result.exitCode, 3);
        QVERIFY2(result.err.contains(message), result.err.constData());
        QCOMPARE(result.err.count('\n'), 1);
    }
};

QTEST_GUILESS_MAIN(tst_ConnectionFailure)
#include "tst_connectionfailure.moc"
