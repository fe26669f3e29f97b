// SPDX-License-Identifier: MIT
#include "replyserver.h"

#include "fuzztarget.h"

#include <QtCore/QtEndian>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Fuzz {

namespace {

void sendAll(int descriptor, const QByteArray &bytes)
{
    for (qsizetype sent = 0; sent < bytes.size();) {
        const ssize_t count = ::send(descriptor, bytes.constData() + sent,
                                     static_cast<size_t>(bytes.size() - sent), MSG_NOSIGNAL);
        if (count <= 0)
            return;
        sent += count;
    }
}

void readToEnd(int descriptor)
{
    char bytes[65536];
    while (::recv(descriptor, bytes, sizeof bytes, 0) > 0)
        continue;
}

// Without the usual wait of a closed connection in the system, of which there is room for some
// thousands.
void closeAtOnce(int descriptor)
{
    const linger atOnce{1, 0};
    setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    ::close(descriptor);
}

} // namespace

ReplyServer::ReplyServer()
    : m_listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = qToBigEndian(quint32(INADDR_LOOPBACK));
    socklen_t size = sizeof address;
    auto *const anyAddress = reinterpret_cast<sockaddr *>(&address);
    require(::bind(m_listener, anyAddress, size) == 0 && ::listen(m_listener, 16) == 0 &&
                ::getsockname(m_listener, anyAddress, &size) == 0,
            "ReplyServer: cannot listen");
    m_port = qFromBigEndian(address.sin_port);
    m_thread = std::thread([this] { serve(); });
}

ReplyServer::~ReplyServer()
{
    ::shutdown(m_listener, SHUT_RDWR); // wakes the thread
    m_thread.join();
    ::close(m_listener);
}

void ReplyServer::prepare(const QByteArray &bytes)
{
    const QMutexLocker lock(&m_mutex);
    m_prepared.append(bytes);
}

QByteArray ReplyServer::takePrepared()
{
    const QMutexLocker lock(&m_mutex);
    return m_prepared.isEmpty() ? QByteArray() : m_prepared.takeFirst();
}

void ReplyServer::serve()
{
    int descriptor = -1;
    while ((descriptor = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0) {
        sendAll(descriptor, takePrepared());
        ::shutdown(descriptor, SHUT_WR);
        readToEnd(descriptor);
        closeAtOnce(descriptor);
    }
}

} // namespace Fuzz
