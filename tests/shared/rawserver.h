// SPDX-License-Identifier: MIT
#pragma once

#include <shared/rawbytes.h>

#include <QtCore/QByteArray>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QList>
#include <QtCore/QSemaphore>
#include <QtCore/QThread>
#include <QtNetwork/QHostAddress>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>

/*!
 * The server's end of one connection in the hands of a script: blocking reads and writes, each of
 * which ends by a deadline, when the client goes, or when the test is over.
 */
class RawConnection final
{
public:
    static constexpr int kWaitMs = 10000;

    RawConnection(QTcpSocket &socket, const std::atomic_bool &stop)
        : m_socket(socket)
        , m_stop(stop)
    {
    }

    QTcpSocket &socket() { return m_socket; }
    //! Every byte read so far.
    const QByteArray &received() const { return m_received; }

    //! Writes the bytes and waits until the system has them; false when the client is gone.
    bool send(const QByteArray &bytes)
    {
        if (m_stop || m_socket.write(bytes) != bytes.size())
            return false;
        return wait([this] { return m_socket.bytesToWrite() == 0; },
                    [this] { m_socket.waitForBytesWritten(kSliceMs); });
    }

    //! Writes byte for byte with a pause behind each.
    bool drip(const QByteArray &bytes, int pauseMs)
    {
        for (const char byte : bytes) {
            if (!send(QByteArray(1, byte)))
                return false;
            QThread::msleep(static_cast<unsigned long>(pauseMs));
        }
        return true;
    }

    //! The next \a size bytes, or the fewer that came before the end.
    QByteArray read(qint64 size)
    {
        wait([this, size] { return m_socket.bytesAvailable() >= size; },
             [this] { m_socket.waitForReadyRead(kSliceMs); });
        const QByteArray bytes = m_socket.read(size);
        m_received += bytes;
        return bytes;
    }

    //! The body of the next command; empty when none comes.
    QByteArray readCommand()
    {
        const QByteArray length = read(4);
        if (length.size() < 4)
            return {};
        return read(static_cast<qint64>(length.toHex().toUInt(nullptr, 16)));
    }

    //! Reads a command, accepts it, sends \a reply and completes it; false when none came.
    bool answer(const QByteArray &reply = {})
    {
        if (readCommand().isEmpty())
            return false;
        return send(RawBytes::ack() + reply + RawBytes::ack());
    }

    //! Reads until the client closes the connection; false when it does not.
    bool readToEnd()
    {
        const bool ended =
            waitAlways([this] { return m_socket.state() == QAbstractSocket::UnconnectedState; },
                       [this] { m_socket.waitForReadyRead(kSliceMs); });
        m_received += m_socket.readAll();
        return ended;
    }

    //! Goes away without a word, as a machine does that loses its power.
    void vanish() { m_socket.abort(); }

private:
    static constexpr int kSliceMs = 20;

    // Ends early when the client goes.
    template<typename Condition, typename Step>
    bool wait(Condition condition, Step step)
    {
        return waitAlways(
                   [this, condition] {
                       return condition() || m_socket.state() != QAbstractSocket::ConnectedState;
                   },
                   step) &&
               condition();
    }

    template<typename Condition, typename Step>
    bool waitAlways(Condition condition, Step step)
    {
        const QDeadlineTimer deadline(kWaitMs);
        while (!condition()) {
            if (m_stop || deadline.hasExpired())
                return false;
            step();
        }
        return true;
    }

    QTcpSocket &m_socket;
    const std::atomic_bool &m_stop;
    QByteArray m_received;
};

/*!
 * A scripted server of the command protocol that knows nothing of the library: it takes one
 * connection on 127.0.0.1 in a thread of its own, hands it to the script, and closes it when the
 * script returns.
 *
 *     RawServer server([](RawConnection &peer) {
 *         peer.send(RawServer::uuid());
 *         peer.answer(RawBytes::frame(RawBytes::text(u"alice")));
 *         peer.readToEnd();
 *     });
 *     client.connectTo(server.port());
 *     QCOMPARE(server.received(), expected);
 */
class RawServer final
{
public:
    using Script = std::function<void(RawConnection &)>;

    explicit RawServer(Script script)
        : m_thread(QThread::create([this, script = std::move(script)] { serve(script); }))
    {
        m_thread->start();
        m_listening.acquire();
    }
    ~RawServer()
    {
        m_stop = true;
        m_thread->wait();
    }
    Q_DISABLE_COPY_MOVE(RawServer)

    //! 0 when it could not listen.
    quint16 port() const { return m_port; }

    //! Whether the script came to its end in time.
    bool finishes(int msec = RawConnection::kWaitMs)
    {
        return m_thread->wait(QDeadlineTimer(msec));
    }

    //! Waits for the end of the script and gives every byte that it has read.
    QByteArray received()
    {
        return finishes() ? m_received : QByteArrayLiteral("the script has not ended");
    }

    //! A greeting.
    static QByteArray uuid() { return QByteArray::fromHex("00112233445566778899aabbccddeeff"); }

private:
    void serve(const Script &script)
    {
        QTcpServer server;
        if (server.listen(QHostAddress(QHostAddress::LocalHost)))
            m_port = server.serverPort();
        m_listening.release();
        const QDeadlineTimer deadline(3 * RawConnection::kWaitMs);
        while (!m_stop && !deadline.hasExpired() && !server.hasPendingConnections())
            server.waitForNewConnection(20);
        const std::unique_ptr<QTcpSocket> socket(server.nextPendingConnection());
        if (!socket)
            return;
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        RawConnection peer(*socket, m_stop);
        script(peer);
        m_received = peer.received();
        socket->disconnectFromHost();
        if (socket->state() != QAbstractSocket::UnconnectedState)
            socket->waitForDisconnected(1000);
    }

    QSemaphore m_listening;
    std::atomic_bool m_stop = false;
    quint16 m_port = 0;
    QByteArray m_received;
    std::unique_ptr<QThread> m_thread; // last, since it uses the others
};

/*!
 * What a well-behaved server says up to the point where the client is logged in and both ends have
 * agreed on a stream version. The fields make it an old server, or one that refuses.
 */
struct RawHandshake
{
    struct Command
    {
        QByteArray letters;
        quint32 version = 0x00010000;
    };

    //! The commands of the base protocol, as a server of today offers them.
    static QList<Command> baseCommands()
    {
        return {{"cmdl", 0x00020000},
                {"auth"},
                {"srvn"},
                {"wami"},
                {"strv"},
                {"plgb"},
                {"plgl"},
                {"cldv"},
                {"lnkt"}};
    }

    //! The body of a command list.
    static QByteArray listBody(const QList<Command> &commands, bool withVersions = true)
    {
        const auto count = RawBytes::i32(static_cast<qint32>(commands.size()));
        QByteArray body = count;
        for (const Command &command : commands)
            body += RawBytes::idRecord(command.letters);
        if (!withVersions)
            return body;
        body += count;
        for (const Command &command : commands)
            body += RawBytes::u32(command.version);
        return body;
    }

    QByteArray greeting = RawServer::uuid();
    quint32 status = 1;
    QList<Command> commands = baseCommands();
    bool withVersions = true;
    quint32 streamVersion = 20;

    //! False when the client goes away before the end. After a refused login it ends there.
    bool operator()(RawConnection &peer) const
    {
        if (!peer.send(greeting) || !peer.answer(RawBytes::u32(status)))
            return false;
        if (status != 1)
            return true;
        return peer.answer(RawBytes::frame(listBody(commands, withVersions))) &&
               peer.answer(RawBytes::u32(streamVersion));
    }
};
