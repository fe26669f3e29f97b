// SPDX-License-Identifier: MIT
#include "blockingio_p.h"

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
    QElapsedTimer waited;
    waited.start();
    while (!isStopOverdue()) {
        const qint64 left = m_timeout < 0 ? kWaitSliceMs : m_timeout - waited.elapsed();
        if (left <= 0)
            return false;
        if ((device->*wait)(static_cast<int>(std::min<qint64>(left, kWaitSliceMs))))
            return true;
        if (!isStillConnected(device))
            return false;
    }
    return false;
}

qint64 BlockingIo::readAll(QIODevice *device, char *buffer, qint64 size)
{
    qint64 done = 0;
    while (done < size) {
        // A peer that is faster than this end never lets a wait happen.
        if (isStopOverdue())
            return -1;
        if (m_timeout != 0 && device->bytesAvailable() == 0 &&
            !waitFor(device, &QIODevice::waitForReadyRead))
            return -1;
        if (device->atEnd())
            return done;
        const qint64 count = device->read(buffer + done, size - done);
        if (count < 0)
            return -1;
        if (count == 0)
            return done;
        done += count;
    }
    return done;
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
    const qint64 done = write(device, data, size);
    if (done < 0 || m_timeout == 0)
        return done;
    if (!handToSystem(device))
        return -1;
    while (device->bytesToWrite() != 0) {
        if (!waitFor(device, &QIODevice::waitForBytesWritten))
            return -1;
    }
    return done;
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
    body->clear();
    quint32 done = 0;
    quint32 piece = std::min(length, kFirstPieceBytes);
    while (done < length) {
        body->resize(static_cast<qsizetype>(done) + piece);
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
    const quint32_be length(static_cast<quint32>(body.size()));
    QByteArray frame(reinterpret_cast<const char *>(&length), sizeof length);
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
