// SPDX-License-Identifier: MIT
#include "filetransfer_p.h"

#include <brixlib/protocol/socket/directsocket_p.h>
#include <brixlib/protocol/wire.h>

#include <brixrt/sfilehelper.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QThread>
#include <QtCore/QtEndian>
#include <QtNetwork/QAbstractSocket>

#include <algorithm>
#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace Talverine {

namespace {

constexpr qint64 kBufferBytes = 262144;
constexpr qint64 kProgressIntervalMs = 100;
// A request to stop is seen within a slice of a wait.
constexpr int kWaitSliceMs = 100;

//! Counts bytes and reports at most every 100 ms.
class Meter
{
public:
    Meter(const FileTransfer::Progress &report, qint64 size)
        : m_report(report)
        , m_size(size)
    {
        m_sinceReport.start();
    }

    qint64 done() const { return m_done; }

    void add(qint64 count)
    {
        m_done += count;
        if (!m_sinceReport.hasExpired(kProgressIntervalMs))
            return;
        m_sinceReport.start();
        m_report(m_done, m_size);
    }

private:
    const FileTransfer::Progress &m_report;
    qint64 m_size;
    qint64 m_done = 0;
    QElapsedTimer m_sinceReport;
};

// A file may hold its last bytes back, and a full disk would go unnoticed when it is closed.
bool isFlushed(QIODevice *device)
{
    auto *const file = qobject_cast<QFileDevice *>(device);
    return !file || file->flush();
}

bool isInterrupted()
{
    return QThread::currentThread()->isInterruptionRequested();
}

} // namespace

FileTransfer::FileTransfer(QAbstractSocket *socket, int timeout, Progress progress)
    : m_socket(socket)
    , m_timeout(timeout)
    , m_progress(std::move(progress))
{
}

bool FileTransfer::receive(QIODevice *target, qint64 size)
{
    const auto buffer = std::make_unique_for_overwrite<char[]>(kBufferBytes);
    Meter meter(m_progress, size);
    QElapsedTimer idle;
    idle.start();
    while (meter.done() < size) {
        if (!mayGoOn(idle))
            return false;
        const qint64 count = receiveSome(buffer.get(), std::min(size - meter.done(), kBufferBytes));
        if (count < 0)
            return false;
        if (count == 0)
            continue;
        if (!SFileHelper::writeAll(target, {buffer.get(), count}))
            return failAt(target);
        // After the write: what a slow disk takes is no silence of the peer.
        idle.start();
        meter.add(count);
    }
    return isFlushed(target) || failAt(target);
}

// What is there within a slice of a wait; 0 when nothing came.
qint64 FileTransfer::receiveSome(char *buffer, qint64 size)
{
    DirectSocket direct(m_socket);
    if (direct.canReceive()) {
        if (!direct.waitToReceive(kWaitSliceMs))
            return 0;
        // At the end of the connection there is nothing either, which the socket finds out itself.
        const qint64 count = direct.receive(buffer, size);
        if (count > 0)
            return count;
    }
    if (m_socket->bytesAvailable() == 0 && !m_socket->waitForReadyRead(kWaitSliceMs))
        return 0;
    return m_socket->read(buffer, std::min(size, m_socket->bytesAvailable()));
}

bool FileTransfer::send(QIODevice *source, qint64 size)
{
    const auto buffer = std::make_unique_for_overwrite<char[]>(kBufferBytes);
    Meter meter(m_progress, size);
    while (!source->atEnd()) {
        // Qt would complain about a write after the peer has gone.
        if (isInterrupted() || !isConnected())
            return false;
        const qint64 count = source->read(buffer.get(), kBufferBytes);
        // Files in /sys claim more than they give and are never at their end.
        if (count == 0)
            break;
        if (count < 0)
            return failAt(source);
        if (!sendBlock(buffer.get(), count))
            return false;
        meter.add(count);
    }
    // A file that grew or shrank meanwhile has put the peer out of step; it must not be removed.
    if (meter.done() != size)
        m_deviceError = u"the content changed while it was sent"_s;
    return meter.done() == size;
}

bool FileTransfer::sendBlock(const char *data, qint64 size)
{
    DirectSocket direct(m_socket);
    QElapsedTimer idle;
    idle.start();
    while (size > 0 && direct.canSend()) {
        if (!mayGoOn(idle))
            return false;
        if (!direct.waitToSend(kWaitSliceMs))
            continue;
        const qint64 count = direct.send(data, size);
        if (count == 0) {
            readRefusal();
            break; // the connection has ended, which the socket finds out itself
        }
        data += count;
        size -= count;
        idle.start();
    }
    return size == 0 || (SFileHelper::writeAll(m_socket, {data, size}) && drain());
}

// A receiver that gives up in the middle writes the nack word and closes the connection. Its word
// can still be read then, but not after the socket has found out that it cannot write.
void FileTransfer::readRefusal()
{
    DirectSocket direct(m_socket);
    quint32_be word;
    m_isRefused = direct.canReceive() &&
                  direct.receive(reinterpret_cast<char *>(&word), sizeof word) == sizeof word &&
                  word == Wire::kNackWord;
}

bool FileTransfer::drain()
{
    QElapsedTimer idle;
    idle.start();
    m_socket->flush();
    while (m_socket->bytesToWrite() > 0) {
        if (!mayGoOn(idle))
            return false;
        if (m_socket->waitForBytesWritten(kWaitSliceMs))
            idle.start();
    }
    // What was still to be written is gone with a connection that is lost.
    return isConnected();
}

bool FileTransfer::failAt(const QIODevice *device)
{
    m_deviceError = device->errorString();
    return false;
}

bool FileTransfer::isConnected() const
{
    return m_socket->state() == QAbstractSocket::ConnectedState;
}

bool FileTransfer::mayGoOn(const QElapsedTimer &idle) const
{
    return isConnected() && !isInterrupted() && !(m_timeout >= 0 && idle.hasExpired(m_timeout));
}

bool openForReading(QFile *file)
{
    return QFileInfo(file->fileName()).isFile() &&
           file->open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

} // namespace Talverine
