// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QElapsedTimer>
#include <QtCore/QUuid>

class QIODevice;

namespace Talverine {

/*!
 * Reading and writing on the socket of a connection in blocking calls: whole blocks, words and
 * frames. A call fails when the peer stands still for longer than the time-out. Once the calling
 * thread is asked to stop, all waits together last no longer than that.
 *
 * Thread: lives in the thread of the socket and blocks it.
 */
class BlockingIo
{
public:
    //! From this size on a block is large.
    static constexpr qint64 kLargeBytes = 16 * 1024;

    //! Milliseconds that a wait may last; 0, the default, does not wait, negative has no limit.
    int timeout() const { return m_timeout; }
    void setTimeout(int milliseconds) { m_timeout = milliseconds; }

    //! No wait lasts beyond \a deadline; by default there is none.
    void setDeadline(const QDeadlineTimer &deadline) { m_deadline = deadline; }
    //! Bytes per second at which the bodies of frames must move, counted from one timeout() after
    //! the begin of each; 0, the default, for no minimum.
    void setMinimumRate(qint64 bytesPerSecond) { m_minimumRate = bytesPerSecond; }

    //! Whether readyRead() of the socket has to tell of what a read waits for, large blocks aside;
    //! false by default.
    void setReadyReadWanted(bool isWanted) { m_isReadyReadWanted = isWanted; }

    /*!
     * Reads \a size bytes, waiting for each piece. Gives the number read, which is short when the
     * device has come to its end, or -1 on an error or a wait that failed.
     */
    qint64 readAll(QIODevice *device, char *buffer, qint64 size);
    //! Writes \a size bytes without waiting. Gives the number written, or -1.
    qint64 write(QIODevice *device, const char *data, qint64 size);
    //! Writes \a size bytes and waits until they have left. Gives the number written, or -1.
    qint64 writeAll(QIODevice *device, const char *data, qint64 size);
    //! Waits by waitForReadyRead() or waitForBytesWritten(), in slices, so that a request to stop
    //! is seen.
    bool waitFor(QIODevice *device, bool (QIODevice::*wait)(int));
    //! Waits once for something to read, up to \a msec milliseconds and without heed of the
    //! time-out. False also at the end of the connection.
    static bool waitForBytes(QIODevice *device, int msec);

    //! Reads one big-endian word; 0 on any failure.
    quint32 readWord(QIODevice *device);
    bool readWord64(QIODevice *device, quint64 *value);
    //! Writes one big-endian word and waits until it has left.
    bool writeWord(QIODevice *device, quint32 word);
    bool writeWord64(QIODevice *device, quint64 word);

    //! Reads exactly \a length bytes into \a body, which grows only as bytes arrive. After a
    //! failure \a body is empty only if the memory has run out.
    bool readBody(QIODevice *device, quint32 length, QByteArray *body);
    //! Reads a length word and the body behind it; false also for the length 0.
    bool readReplyFrame(QIODevice *device, QByteArray *body);
    //! Writes a length word and \a body, a small one in one packet.
    bool writeFrame(QIODevice *device, const QByteArray &body);

    //! Reads what a server sends first, the session's uuid; null when none comes.
    QUuid readGreeting(QIODevice *device);

    //! Whether the calling thread was asked to stop longer ago than the time-out.
    bool isStopOverdue();

private:
    //! Measures the body of a frame while it exists.
    class Pace;

    bool mayGoOn(qint64 moved);
    template<class Wait>
    bool waitInSlices(QIODevice *device, Wait wait);
    qint64 readSome(QIODevice *device, char *buffer, qint64 size);
    qint64 sendSome(QIODevice *device, const char *data, qint64 size);
    bool waitUntilWritten(QIODevice *device);

    int m_timeout = 0;
    bool m_isReadyReadWanted = false;
    QElapsedTimer m_sinceInterruption;
    QDeadlineTimer m_deadline{QDeadlineTimer::Forever};
    qint64 m_minimumRate = 0;
    Pace *m_pace = nullptr;
};

} // namespace Talverine
