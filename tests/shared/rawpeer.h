// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtNetwork/QHostAddress>
#include <QtNetwork/QTcpServer>

#include <cerrno>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

/*!
 * The bare descriptor at the other end of a connection, for tests that block the thread of the
 * socket they look at: it may be used from any thread, and ends a connection in each way there is.
 */
class RawPeer
{
public:
    explicit RawPeer(int descriptor = -1)
        : m_descriptor(descriptor)
    {
    }

    ~RawPeer() { close(); }
    Q_DISABLE_COPY(RawPeer)

    //! Connects \a socket to a server made for it and takes the other end; false on failure.
    template<typename Socket>
    bool accept(Socket *socket)
    {
        close();
        Acceptor server;
        if (!server.listen(QHostAddress::LocalHost))
            return false;
        socket->connectToHost(server.serverAddress(), server.serverPort());
        if (!socket->waitForConnected(10000) || !server.waitForNewConnection(10000))
            return false;
        m_descriptor = server.taken;
        return m_descriptor >= 0;
    }

    //! Sends all of \a bytes; waits while the connection takes no more.
    bool send(const QByteArray &bytes)
    {
        for (qsizetype sent = 0; sent < bytes.size();) {
            const ssize_t count = ::send(m_descriptor, bytes.constData() + sent,
                                         static_cast<size_t>(bytes.size() - sent), MSG_NOSIGNAL);
            if (count <= 0)
                return false;
            sent += count;
        }
        return true;
    }

    //! The next \a size bytes; fewer when the connection ends or nothing comes for ten seconds.
    QByteArray receive(qsizetype size)
    {
        limitWaits();
        QByteArray bytes(size, Qt::Uninitialized);
        qsizetype received = 0;
        while (received < size) {
            const ssize_t count = recv(m_descriptor, bytes.data() + received,
                                       static_cast<size_t>(size - received), 0);
            if (count <= 0)
                break;
            received += count;
        }
        bytes.truncate(received);
        return bytes;
    }

    //! Reads and forgets what comes next, at most \a size bytes; their number, 0 at the end.
    qsizetype receiveSome(qsizetype size)
    {
        m_scratch.resize(size);
        const ssize_t count = recv(m_descriptor, m_scratch.data(), static_cast<size_t>(size), 0);
        return qMax(count, ssize_t(0));
    }

    //! How the other side ended the connection, if it did.
    enum class End { None, Finished, Reset };

    //! Reads away what still comes; None when the end does not come within ten seconds.
    End readToEnd()
    {
        limitWaits();
        char bytes[4096];
        ssize_t count = 0;
        while ((count = recv(m_descriptor, bytes, sizeof bytes, 0)) > 0)
            continue;
        if (count == 0)
            return End::Finished;
        return errno == ECONNRESET ? End::Reset : End::None;
    }

    //! Whether something to read, or the end, is there already.
    bool hasNews()
    {
        char byte = 0;
        return recv(m_descriptor, &byte, 1, MSG_PEEK | MSG_DONTWAIT) >= 0 || errno != EAGAIN;
    }

    //! Tells the other side that no more will come; what it sends still arrives.
    void finishSending() { ::shutdown(m_descriptor, SHUT_WR); }

    //! Ends the connection in good order.
    void close()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
        m_descriptor = -1;
    }

    //! Breaks the connection off, as a crash of the peer's machine shows itself.
    void reset()
    {
        const linger atOnce{1, 0};
        setsockopt(m_descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        close();
    }

private:
    struct Acceptor : QTcpServer
    {
        void incomingConnection(qintptr descriptor) override
        {
            taken = static_cast<int>(descriptor);
            // Accepted without waiting; a peer that has the thread to itself may wait.
            fcntl(taken, F_SETFL, fcntl(taken, F_GETFL) & ~O_NONBLOCK);
        }
        int taken = -1;
    };

    void limitWaits()
    {
        const timeval patience{10, 0};
        setsockopt(m_descriptor, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }

    int m_descriptor = -1;
    QByteArray m_scratch;
};
