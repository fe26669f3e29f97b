// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QCryptographicHash>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QEventLoop>
#include <QtCore/QString>
#include <QtCore/QTimer>
#include <QtNetwork/QHostAddress>
#include <QtNetwork/QTcpSocket>

#include <initializer_list>
#include <limits>

/*!
 * Bytes of the command protocol made by hand, so that a test compares the library with what is
 * written down and not with itself.
 */
namespace RawBytes {

inline QByteArray bigEndian(quint64 value, int size)
{
    QByteArray bytes;
    for (int shift = 8 * (size - 1); shift >= 0; shift -= 8)
        bytes.append(static_cast<char>(value >> shift));
    return bytes;
}

inline QByteArray u32(quint32 value)
{
    return bigEndian(value, 4);
}

inline QByteArray i32(qint32 value)
{
    return bigEndian(static_cast<quint32>(value), 4);
}

inline QByteArray u64(quint64 value)
{
    return bigEndian(value, 8);
}

inline QByteArray i64(qint64 value)
{
    return bigEndian(static_cast<quint64>(value), 8);
}

//! A text: its size in bytes and its UTF-16 units.
inline QByteArray text(QStringView value)
{
    QByteArray bytes = u32(static_cast<quint32>(2 * value.size()));
    for (const QChar unit : value)
        bytes += bigEndian(unit.unicode(), 2);
    return bytes;
}

//! An array of bytes: its size and the bytes.
inline QByteArray array(const QByteArray &value)
{
    return u32(static_cast<quint32>(value.size())) + value;
}

inline QByteArray ack()
{
    return QByteArray::fromHex("A5A5A5A5");
}

inline QByteArray nack()
{
    return QByteArray::fromHex("55AA55AA");
}

//! A length word and the body.
inline QByteArray frame(const QByteArray &body)
{
    return u32(static_cast<quint32>(body.size())) + body;
}

//! The id record of four letters.
inline QByteArray idRecord(const QByteArray &letters)
{
    return QByteArrayLiteral("scmi") + u32(0x00010000) + letters;
}

//! The body of the command with the four letters \a id.
inline QByteArray body(const QByteArray &id, const QByteArray &fields = {},
                       quint32 version = 0x00010000)
{
    return QByteArrayLiteral("scmd") + u32(version) + idRecord(id) + fields;
}

//! The whole frame of a command.
inline QByteArray command(const QByteArray &id, const QByteArray &fields = {},
                          quint32 version = 0x00010000)
{
    return frame(body(id, fields, version));
}

inline QByteArray sha512Hex(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha512).toHex();
}

//! The braces form of the 16 bytes of a uuid.
inline QByteArray uuidText(const QByteArray &uuid)
{
    const QByteArray hex = uuid.toHex();
    return '{' + hex.mid(0, 8) + '-' + hex.mid(8, 4) + '-' + hex.mid(12, 4) + '-' + hex.mid(16, 4) +
           '-' + hex.mid(20) + '}';
}

//! What proves the knowledge of \a password on the connection greeted with \a uuid.
inline QByteArray challengeAnswer(const QString &password, const QByteArray &uuid)
{
    return sha512Hex(sha512Hex(password.toUtf8()) + uuidText(uuid));
}

inline QByteArray authentication(QStringView username, const QByteArray &answer)
{
    return command("auth", text(username) + text(QString::fromLatin1(answer)));
}

} // namespace RawBytes

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
