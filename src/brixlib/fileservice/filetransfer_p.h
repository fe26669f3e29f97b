// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QtGlobal>

#include <functional>

class QAbstractSocket;
class QElapsedTimer;
class QFile;
class QIODevice;

namespace Talverine {

/*!
 * One run of raw bytes between a socket and a device, the same at both ends of a connection. All of
 * it goes through one buffer of fixed size and the socket is drained after each block, so the
 * memory does not depend on the size of the file.
 *
 * A transfer fails when the connection is lost, when the peer stands still for longer than the
 * time-out, and when the thread is asked to stop.
 *
 * Thread: lives in the thread of the socket and blocks it.
 */
class FileTransfer
{
public:
    //! Called with the bytes done and the size, at most ten times a second, and not at the end.
    using Progress = std::function<void(qint64 done, qint64 size)>;

    //! \a timeout in milliseconds; with 0 the first wait in vain is a failure, negative is no
    //! limit.
    FileTransfer(QAbstractSocket *socket, int timeout, Progress progress);

    //! Copies exactly \a size bytes from the socket to \a target.
    [[nodiscard]] bool receive(QIODevice *target, qint64 size);
    //! Copies \a source to its end to the socket; false also if that was not \a size bytes. A
    //! source that gives nothing is at its end.
    [[nodiscard]] bool send(QIODevice *source, qint64 size);
    //! Why the device could not be read or written, or that it was not of the size to send; empty
    //! when the transfer did not fail there.
    QString deviceError() const { return m_deviceError; }
    //! Whether send() failed because the peer wrote the nack word and closed the connection.
    bool isRefused() const { return m_isRefused; }

private:
    bool failAt(const QIODevice *device);
    qint64 receiveSome(char *buffer, qint64 size);
    bool sendBlock(const char *data, qint64 size);
    void readRefusal();
    bool drain();
    bool isConnected() const;
    bool mayGoOn(const QElapsedTimer &idle) const;

    QAbstractSocket *m_socket;
    int m_timeout;
    Progress m_progress;
    QString m_deviceError;
    bool m_isRefused = false;
};

//! Opens a regular file; anything else fails, since a pipe without a writer would block for ever.
[[nodiscard]] bool openForReading(QFile *file);

} // namespace Talverine
