// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMutex>

#include <thread>

namespace Fuzz {

/*!
 * A server on 127.0.0.1 for clients that make their socket themselves: it sends the bytes prepared
 * for a connection, finishes sending, and reads on until the client goes.
 */
class ReplyServer
{
public:
    ReplyServer();
    ~ReplyServer();
    Q_DISABLE_COPY_MOVE(ReplyServer)

    quint16 port() const { return m_port; }
    //! What the next connection gets; to be called before the client connects, once for each.
    void prepare(const QByteArray &bytes);

private:
    void serve();
    QByteArray takePrepared();

    int m_listener = -1;
    quint16 m_port = 0;
    QMutex m_mutex;
    QList<QByteArray> m_prepared;
    std::thread m_thread;
};

} // namespace Fuzz
