// SPDX-License-Identifier: MIT
// The client's end of a device session on the wire.
#include "sclientdevice_p.h"

#include <brixlib/protocol/commands/scommandauthentication.h>
#include <brixlib/protocol/commands/scommandclientdevice.h>
#include <brixlib/protocol/users/passwordhash_p.h>
#include <brixlib/protocol/wire.h>

#include <QtCore/QtEndian>

namespace Talverine {

namespace {

constexpr int kTimeoutMs = 10000;
// What a server answers to the first request when it takes the command back after all, as for a
// path that leads out of the user's folder: the beginning of the nack word.
constexpr char kTakenBack = 0x55;

template<class Word>
QByteArray bigEndian(Word word)
{
    QByteArray bytes(sizeof word, Qt::Uninitialized);
    qToBigEndian(word, bytes.data());
    return bytes;
}

} // namespace

SClientDevice::Session::Session()
{
    io.setTimeout(kTimeoutMs);
    io.setReadyReadWanted(true); // the device passes it on
}

bool SClientDevice::Session::begin(STcpSocket *newSocket)
{
    m_uuid = io.readGreeting(newSocket);
    if (m_uuid.isNull())
        return fail(Error::NoConnection);
    socket = newSocket;
    if (m_speedController)
        m_speedController->add(socket);
    return true;
}

bool SClientDevice::Session::authenticate(const QString &user, const QByteArray &hashedPassword)
{
    if (!sendCommand(SCommandAuthentication(user, saltedHash(hashedPassword, m_uuid))))
        return fail(Error::Connection);
    const quint32 status = io.readWord(socket);
    if (io.readWord(socket) != Wire::kAckWord)
        return fail(Error::Connection);
    m_authenticationStatus = static_cast<AuthenticationStatus>(status);
    return m_authenticationStatus == AuthenticationStatus::Authenticated || fail(Error::Login);
}

bool SClientDevice::Session::clientDevice(const QString &fileName)
{
    m_isStarted = sendCommand(SCommandClientDevice(fileName));
    return m_isStarted || fail(Error::Connection);
}

bool SClientDevice::Session::openFile(OpenMode mode)
{
    const auto word = static_cast<quint32>(mode.toInt());
    return ask(ClientDeviceCommands::Open, bigEndian(word));
}

bool SClientDevice::Session::seek(qint64 position)
{
    return ask(ClientDeviceCommands::Seek, bigEndian(position));
}

// A request that is answered with one byte: 0 for no, any other for yes.
bool SClientDevice::Session::ask(ClientDeviceCommands request, const QByteArray &argument)
{
    char result = 0;
    const bool isAnswered = exchange([&] {
        return command(request, argument) && io.readAll(socket, &result, 1) == 1 &&
               result != kTakenBack;
    });
    if (isAnswered ? result == 0 : result == kTakenBack)
        return fail(Error::File);
    return isAnswered;
}

qint64 SClientDevice::Session::read(char *data, qint64 size)
{
    qint64 count = -1;
    const bool isAnswered = exchange([&] {
        quint64 word = 0;
        if (!command(ClientDeviceCommands::Read, bigEndian(size)) || !readCount(size, &word))
            return false;
        // The peer's word: more than was asked for would not fit. A refused read has no bytes.
        count = static_cast<qint64>(word);
        return count <= size && (count <= 0 || io.readAll(socket, data, count) == count);
    });
    if (!isAnswered)
        return -1;
    if (count < 0)
        fail(Error::File);
    return std::max<qint64>(count, -1);
}

// With the count in front of a large block the socket would take in the beginning of the block too,
// which then had to be copied once more.
bool SClientDevice::Session::readCount(qint64 wanted, quint64 *count)
{
    const bool isLarge = wanted >= BlockingIo::kLargeBytes;
    io.setReadyReadWanted(!isLarge);
    const bool isRead = io.readWord64(socket, count);
    io.setReadyReadWanted(true);
    if (isRead && isLarge)
        Q_EMIT socket->readyRead();
    return isRead;
}

qint64 SClientDevice::Session::write(const char *data, qint64 size, bool wait)
{
    const bool isSent = exchange([&] {
        if (!command(ClientDeviceCommands::Write, bigEndian(size), 0))
            return false;
        return (wait ? io.writeAll(socket, data, size) : io.write(socket, data, size)) == size;
    });
    return isSent ? size : -1;
}

qint64 SClientDevice::Session::askSize()
{
    quint64 word = 0;
    const bool isAnswered = exchange(
        [&] { return command(ClientDeviceCommands::Size) && io.readWord64(socket, &word); });
    if (!isAnswered)
        return kUnknownSize;
    const auto size = static_cast<qint64>(word);
    if (size < 0)
        fail(Error::File);
    return std::max(size, kUnknownSize);
}

bool SClientDevice::Session::finish()
{
    const bool isConfirmed = exchange([this] {
        return command(ClientDeviceCommands::Close) && io.readWord(socket) == Wire::kAckWord;
    });
    m_isStarted = false;
    return isConfirmed;
}

void SClientDevice::Session::hangUp()
{
    if (m_isInStep)
        socket->disconnectFromHost();
    else
        socket->abort(); // what is still to be written nobody waits for
}

void SClientDevice::Session::setSpeedController(STcpSocketSpeedController *newController)
{
    if (m_speedController)
        m_speedController->remove(socket);
    if (newController)
        newController->add(socket);
    m_speedController = newController;
}

// Runs one exchange; false at once when it cannot begin.
template<class Steps>
bool SClientDevice::Session::exchange(Steps steps)
{
    if (m_isExchanging || !m_isStarted || !m_isInStep)
        return false;
    const QScopedValueRollback running(m_isExchanging, true);
    m_isInStep = steps();
    return m_isInStep || fail(Error::Connection);
}

bool SClientDevice::Session::fail(Error why)
{
    error = why;
    return false;
}

bool SClientDevice::Session::sendCommand(const SCommand &command)
{
    QByteArray body;
    return command.serializeArray(body) && io.writeFrame(socket, body) &&
           io.readWord(socket) == Wire::kAckWord;
}

// Writes a request with what belongs to it. A time-out of 0 does not wait until it has left, -1
// stands for the usual one.
bool SClientDevice::Session::command(ClientDeviceCommands request, const QByteArray &argument,
                                     int timeout)
{
    if (!socket || socket->state() != QAbstractSocket::ConnectedState)
        return false;
    const QByteArray bytes = bigEndian(static_cast<quint32>(request)) + argument;
    const auto send = timeout == 0 ? &BlockingIo::write : &BlockingIo::writeAll;
    return (io.*send)(socket, bytes.constData(), bytes.size()) == bytes.size();
}

} // namespace Talverine
