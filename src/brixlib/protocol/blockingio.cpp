// SPDX-License-Identifier: MIT
#include "blockingio_p.h"

#include <brixlib/protocol/socket/directsocket_p.h>

#include <brixlib/foundation/outofmemory_p.h>
#include <brixlib/protocol/wire.h>

#include <QtCore/QThread>
#include <QtCore/QtEndian>
#include <QtNetwork/QAbstractSocket>

namespace Talverine {

namespace {

// An interruption is seen within a slice of a wait.
constexpr int kWaitSliceMs = 100;
// How long a stop may wait for the peer when the waits themselves have no limit.
constexpr int kUnlimitedStopMs = 10000;
constexpr quint32 kFirstPieceBytes = 64 * 1024;

bool isStillConnected(QIODevice *device)
{
    const auto *socket = qobject_cast<QAbstractSocket *>(device);
    return socket && socket->state() == QAbstractSocket::ConnectedState;
}

// The system mostly takes all at once, and asking it before whether it would costs a call more.
// False when the connection was lost with what was still to be written.
bool handToSystem(QIODevice *device)
{
    auto *const socket = qobject_cast<QAbstractSocket *>(device);
    if (!socket)
        return true;
    socket->flush();
    return socket->state() != QAbstractSocket::UnconnectedState;
}

} // namespace

class BlockingIo::Pace
{
public:
    explicit Pace(BlockingIo *io)
        : m_io(*io)
    {
        if (m_io.m_minimumRate <= 0 || m_io.m_pace)
            return;
        m_io.m_pace = this;
        m_since.start();
    }
    ~Pace()
    {
        if (m_io.m_pace == this)
            m_io.m_pace = nullptr;
    }
    Q_DISABLE_COPY_MOVE(Pace)

    bool isKept(qint64 moved)
    {
        m_moved += moved;
        const qint64 grace = m_io.m_timeout < 0 ? kUnlimitedStopMs : m_io.m_timeout;
        return m_since.elapsed() <= grace + m_moved * 1000 / m_io.m_minimumRate;
    }

private:
    BlockingIo &m_io;
    QElapsedTimer m_since;
    qint64 m_moved = 0;
};

// Whether the peer is fast enough, after \a moved further bytes.
bool BlockingIo::mayGoOn(qint64 moved)
{
    return !m_deadline.hasExpired() && (!m_pace || m_pace->isKept(moved));
}

// A peer that sends or takes a byte now and then would otherwise hold a stop up for ever.
bool BlockingIo::isStopOverdue()
{
    if (!QThread::currentThread()->isInterruptionRequested())
        return false;
    if (!m_sinceInterruption.isValid())
        m_sinceInterruption.start();
    return m_sinceInterruption.hasExpired(m_timeout < 0 ? kUnlimitedStopMs : m_timeout);
}

bool BlockingIo::waitFor(QIODevice *device, bool (QIODevice::*wait)(int))
{
    return waitInSlices(device, [&](int msec) { return (device->*wait)(msec); });
}

// Waits by the given function up to the time-out. False also when the connection is lost.
template<class Wait>
bool BlockingIo::waitInSlices(QIODevice *device, Wait wait)
{
    QElapsedTimer waited;
    waited.start();
    while (!isStopOverdue()) {
        const qint64 left = m_timeout < 0 ? kWaitSliceMs : m_timeout - waited.elapsed();
        if (left <= 0 || m_deadline.hasExpired())
            return false;
        if (wait(static_cast<int>(std::min<qint64>(left, kWaitSliceMs))))
            return true;
        if (!isStillConnected(device))
            return false;
    }
    return false;
}

bool BlockingIo::waitForBytes(QIODevice *device, int msec)
{
    const DirectSocket socket(device);
    if (socket.canReceive()) {
        if (!socket.waitToReceive(msec))
            return false;
        if (socket.hasBytes())
            return true;
        msec = 0; // the connection has ended, which the socket finds out itself
    }
    return device->bytesAvailable() != 0 || device->waitForReadyRead(msec);
}

qint64 BlockingIo::readAll(QIODevice *device, char *buffer, qint64 size)
{
    qint64 done = 0;
    while (done < size) {
        // A peer that is faster than this end never lets a wait happen.
        if (isStopOverdue())
            return -1;
        const qint64 count = readSome(device, buffer + done, size - done);
        if (count < 0)
            return -1;
        if (count == 0)
            return done;
        done += count;
        if (!mayGoOn(count) && done < size)
            return -1;
    }
    return done;
}

// What comes next, after a wait if need be; 0 at the end, -1 on an error or a wait that failed.
qint64 BlockingIo::readSome(QIODevice *device, char *buffer, qint64 size)
{
    const bool mayWait = m_timeout != 0;
    const bool mayPassBy = size >= kLargeBytes || !m_isReadyReadWanted;
    DirectSocket socket(device);
    if (mayWait && mayPassBy && socket.canReceive()) {
        const auto wait = [&](int msec) { return socket.waitToReceive(msec); };
        qint64 count = socket.receive(buffer, size);
        if (count == 0 && !waitInSlices(device, wait))
            return -1;
        if (count == 0)
            count = socket.receive(buffer, size);
        if (count > 0)
            return count;
        // The connection has ended, which the socket finds out itself.
    }
    if (mayWait && device->bytesAvailable() == 0 && !waitFor(device, &QIODevice::waitForReadyRead))
        return -1;
    return device->atEnd() ? 0 : device->read(buffer, size);
}

qint64 BlockingIo::write(QIODevice *device, const char *data, qint64 size)
{
    qint64 done = 0;
    while (done < size) {
        // The peer has closed the connection; Qt would complain about a write.
        if (!device->isWritable())
            return -1;
        const qint64 count = device->write(data + done, size - done);
        if (count < 0)
            return -1;
        if (count == 0)
            break;
        done += count;
    }
    return done;
}

qint64 BlockingIo::writeAll(QIODevice *device, const char *data, qint64 size)
{
    qint64 done = 0;
    while (done < size) {
        if (isStopOverdue())
            return -1;
        const qint64 count = sendSome(device, data + done, size - done);
        if (count < 0)
            return -1;
        if (count == 0)
            break;
        done += count;
        if (!mayGoOn(count) && done < size)
            return -1;
    }
    if (done == size)
        return done;
    const qint64 rest = write(device, data + done, size - done);
    return rest >= 0 && waitUntilWritten(device) ? done + rest : -1;
}

// What the system takes next, after a wait if need be; -1 on a wait that failed. With 0 the rest
// has to go through the device, which finds out then that a connection has ended.
qint64 BlockingIo::sendSome(QIODevice *device, const char *data, qint64 size)
{
    DirectSocket socket(device);
    if (m_timeout == 0 || !socket.canSend())
        return 0;
    const qint64 count = socket.send(data, size);
    if (count > 0)
        return count;
    const auto wait = [&](int msec) { return socket.waitToSend(msec); };
    return waitInSlices(device, wait) ? socket.send(data, size) : -1;
}

bool BlockingIo::waitUntilWritten(QIODevice *device)
{
    if (m_timeout == 0)
        return true;
    if (!handToSystem(device))
        return false;
    while (device->bytesToWrite() != 0) {
        if (!waitFor(device, &QIODevice::waitForBytesWritten))
            return false;
    }
    return true;
}

quint32 BlockingIo::readWord(QIODevice *device)
{
    quint32_be word;
    if (readAll(device, reinterpret_cast<char *>(&word), sizeof word) != sizeof word)
        return 0;
    return word;
}

bool BlockingIo::readWord64(QIODevice *device, quint64 *value)
{
    quint64_be word;
    if (readAll(device, reinterpret_cast<char *>(&word), sizeof word) != sizeof word)
        return false;
    *value = word;
    return true;
}

bool BlockingIo::writeWord(QIODevice *device, quint32 word)
{
    const quint32_be bytes(word);
    return writeAll(device, reinterpret_cast<const char *>(&bytes), sizeof bytes) == sizeof bytes;
}

bool BlockingIo::writeWord64(QIODevice *device, quint64 word)
{
    const quint64_be bytes(word);
    return writeAll(device, reinterpret_cast<const char *>(&bytes), sizeof bytes) == sizeof bytes;
}

bool BlockingIo::readBody(QIODevice *device, quint32 length, QByteArray *body)
{
    Pace pace(this);
    body->clear();
    quint32 done = 0;
    quint32 piece = std::min(length, kFirstPieceBytes);
    while (done < length) {
        const bool hasRoom = orOutOfMemory(false, [&] {
            body->resize(static_cast<qsizetype>(done) + piece);
            return true;
        });
        if (!hasRoom) {
            body->clear();
            return false;
        }
        if (readAll(device, body->data() + done, piece) != piece)
            return false;
        done += piece;
        piece = std::min(length - done, done);
    }
    return true;
}

bool BlockingIo::readReplyFrame(QIODevice *device, QByteArray *body)
{
    const quint32 length = readWord(device);
    return length != 0 && readBody(device, length, body);
}

bool BlockingIo::writeFrame(QIODevice *device, const QByteArray &body)
{
    Pace pace(this);
    const auto length = static_cast<quint32>(body.size());
    // A copy of a large body would cost more than a packet of its own for the length.
    if (body.size() >= kLargeBytes)
        return writeWord(device, length) &&
               writeAll(device, body.constData(), body.size()) == body.size();
    const quint32_be word(length);
    QByteArray frame(reinterpret_cast<const char *>(&word), sizeof word);
    frame.append(body);
    return writeAll(device, frame.constData(), frame.size()) == frame.size();
}

QUuid BlockingIo::readGreeting(QIODevice *device)
{
    QByteArray bytes(Wire::kGreetingBytes, Qt::Uninitialized);
    if (readAll(device, bytes.data(), bytes.size()) != bytes.size())
        return {};
    return QUuid::fromRfc4122(bytes);
}

} // namespace Talverine
