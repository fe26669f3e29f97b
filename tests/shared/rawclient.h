// SPDX-License-Identifier: MIT
#pragma once

#include <shared/rawbytes.h>

#include <QtCore/QByteArray>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QEventLoop>
#include <QtCore/QString>
#include <QtCore/QTimer>
#include <QtNetwork/QHostAddress>
#include <QtNetwork/QTcpSocket>

/*!
 * A scripted client of the command protocol that knows nothing of the library: a QTcpSocket and
 * the bytes above. All waits run the event loop, so a server accepting in the same thread goes on,
 * and all end by a deadline.
 */
class RawClient final
{
public:
    static constexpr int kWaitMs = 10000;

    //! Connects to 127.0.0.1; false when that fails. The server may have hung up again by then.
    [[nodiscard]] bool open(quint16 port)
    {
        bool connected = false;
        const auto watch = QObject::connect(&m_socket, &QTcpSocket::connected, &m_socket,
                                            [&connected] { connected = true; });
        m_socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port);
        wait([&connected] { return connected; }, kWaitMs);
        QObject::disconnect(watch);
        m_socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
        return connected;
    }

    QTcpSocket &socket() { return m_socket; }

    //! Queues the bytes and gives them to the system.
    void send(const QByteArray &bytes)
    {
        m_socket.write(bytes);
        m_socket.flush();
    }

    //! The next \a size bytes, or the fewer that came before the end or the deadline.
    QByteArray read(qint64 size, int msec = kWaitMs)
    {
        wait(
            [this, size] {
                return m_socket.bytesAvailable() >= size ||
                       m_socket.state() == QAbstractSocket::UnconnectedState;
            },
            msec);
        return m_socket.read(size);
    }

    //! As many bytes as \a expected has.
    QByteArray readLike(const QByteArray &expected) { return read(expected.size()); }

    //! The next 32-bit word; 0 when it does not come.
    quint32 readWord(int msec = kWaitMs) { return static_cast<quint32>(number(read(4, msec))); }

    //! The next 64-bit word; 0 when it does not come.
    quint64 readWord64() { return number(read(8)); }

    //! The body of the next reply frame.
    QByteArray readFrame()
    {
        const quint32 size = readWord();
        return read(size);
    }

    //! Whether the server ends the connection and has sent nothing more than what was read.
    [[nodiscard]] bool endsHere(int msec = kWaitMs)
    {
        return waitForEnd(msec) && m_socket.bytesAvailable() == 0;
    }

    //! Whether the server ends the connection.
    [[nodiscard]] bool waitForEnd(int msec = kWaitMs)
    {
        return wait([this] { return m_socket.state() == QAbstractSocket::UnconnectedState; }, msec);
    }

    //! Whether nothing comes and the connection stands for the given time.
    [[nodiscard]] bool staysQuiet(int msec)
    {
        return !wait(
            [this] {
                return m_socket.bytesAvailable() > 0 ||
                       m_socket.state() == QAbstractSocket::UnconnectedState;
            },
            msec);
    }

    //! Reads the 16 bytes that the server sends first, and keeps them as the salt.
    [[nodiscard]] bool readGreeting()
    {
        m_uuid = read(16);
        return m_uuid.size() == 16 && m_uuid != QByteArray(16, '\0');
    }

    const QByteArray &uuid() const { return m_uuid; }

    //! Sends a login; the reply is the caller's to read.
    void sendLogin(const QString &username, const QString &password)
    {
        send(RawBytes::authentication(username, RawBytes::challengeAnswer(password, m_uuid)));
    }

    //! Connects, reads the greeting and logs in.
    [[nodiscard]] bool openAndLogin(quint16 port, const QString &username, const QString &password)
    {
        if (!open(port) || !readGreeting())
            return false;
        sendLogin(username, password);
        return read(12) == RawBytes::ack() + RawBytes::u32(1) + RawBytes::ack();
    }

    //! Goes away without a word, as a peer does whose process was killed with bytes unread.
    void vanish() { m_socket.abort(); }

private:
    static quint64 number(const QByteArray &bytes)
    {
        quint64 value = 0;
        for (const char byte : bytes)
            value = value << 8 | static_cast<unsigned char>(byte);
        return value;
    }

    template<typename Condition>
    bool wait(Condition condition, int msec)
    {
        const QDeadlineTimer deadline(msec);
        while (!condition()) {
            if (deadline.hasExpired())
                return false;
            QEventLoop loop;
            QObject::connect(&m_socket, &QTcpSocket::readyRead, &loop, &QEventLoop::quit);
            QObject::connect(&m_socket, &QTcpSocket::stateChanged, &loop, &QEventLoop::quit);
            QTimer::singleShot(static_cast<int>(deadline.remainingTime()), &loop,
                               &QEventLoop::quit);
            loop.exec();
        }
        return true;
    }

    QTcpSocket m_socket;
    QByteArray m_uuid;
};
