// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/device/sclientdevice.h>

#include "sclientdevice_p.h"

#include <brixlib/foundation/saturated_p.h>
#include <brixlib/foundation/underlyingdevice_p.h>
#include <brixlib/protocol/client/sclientbase.h>
#include <brixlib/protocol/socket/protocolsocket_p.h>
#include <brixlib/protocol/users/passwordhash_p.h>
#include <brixsec/ssecurecredential.h>

#include <QtCore/QSignalBlocker>
#include <QtCore/QUrl>

// What goes over the wire stands in sclientdevice_session.cpp, copying in sclientdevice_copy.cpp.
namespace Talverine {

namespace {

constexpr unsigned short kDefaultPort = 7000;

QByteArray hashOf(const QUrl &url, const Security::SSecureString &password)
{
    return password.isEmpty() ? SClientBase::decodeAndHashPassword(url) : passwordHash(password);
}

unsigned short portOf(const QUrl &url)
{
    const int port = url.port(-1);
    return port == 0 ? kDefaultPort : static_cast<unsigned short>(port);
}

} // namespace

SClientDevice::SClientDevice(const QString &host, const QString &fileName, unsigned short port,
                             const QString &user, const QByteArray &hashedPassword, QObject *parent)
    : QIODevice(parent)
    , m_fileName(fileName)
    , m_host(host)
    , m_port(port)
    , m_user(user)
    , m_hashedPassword(hashedPassword)
    , m_session(std::make_unique<Session>())
{
}

SClientDevice::SClientDevice(const QString &host, const QString &fileName, unsigned short port,
                             const QString &user, const Security::SSecureString &password,
                             QObject *parent)
    : SClientDevice(host, fileName, port, user, passwordHash(password), parent)
{
}

SClientDevice::SClientDevice(const QString &host, const QString &fileName, unsigned short port,
                             const Security::SSecureCredential &credential, QObject *parent)
    : SClientDevice(host, fileName, port, credential.username(), credential.password(), parent)
{
}

SClientDevice::SClientDevice(const QUrl &url, const QString &user,
                             const Security::SSecureString &password, QObject *parent)
    : SClientDevice(url.host(), url.path(), portOf(url), user.isEmpty() ? url.userName() : user,
                    hashOf(url, password), parent)
{
}

SClientDevice::~SClientDevice()
{
    close();
    // The socket dies after this part of the object.
    if (m_session->socket)
        m_session->socket->disconnect(this);
}

QString SClientDevice::fileName() const
{
    return m_fileName;
}

QString SClientDevice::host() const
{
    return m_host;
}

unsigned short SClientDevice::port() const
{
    return m_port;
}

QString SClientDevice::user() const
{
    return m_user;
}

QByteArray SClientDevice::hashedPassword() const
{
    return m_hashedPassword;
}

int SClientDevice::timeout() const
{
    return m_session->io.timeout();
}

void SClientDevice::setTimeout(int milliseconds)
{
    m_session->io.setTimeout(milliseconds);
}

void SClientDevice::setSpeedController(STcpSocketSpeedController *controller)
{
    m_session->setSpeedController(controller);
}

SClientDevice::Error SClientDevice::error() const
{
    return m_session->error;
}

SIOBuffer &SClientDevice::readBuffer()
{
    return m_session->readBuffer;
}

SIOBuffer &SClientDevice::writeBuffer()
{
    return m_session->writeBuffer;
}

// Without the flag Qt would read 16,384 bytes ahead for a read of ten.
bool SClientDevice::open(OpenMode mode)
{
    if (m_session->hasBegun() || !connectToHost())
        return false;
    if (!m_session->authenticate(m_user, m_hashedPassword) ||
        !m_session->clientDevice(m_fileName) || !m_session->openFile(mode & ~Unbuffered))
        return false;
    // Qt begins there.
    if (mode.testFlag(Append) && size() == Session::kUnknownSize)
        return false;
    return QIODevice::open(completedMode(mode) | Unbuffered);
}

bool SClientDevice::connectToHost()
{
    m_session->error = Error::NoConnection;
    const QHostAddress address = SClientBase::resolve(m_host, true);
    if (address.isNull())
        return false;
    auto socket = std::make_unique<STcpSocket>(this);
    if (!connectToServer(*socket, address, m_port, timeout()))
        return false;
    connect(socket.get(), &STcpSocket::aboutToClose, this,
            &SClientDevice::underlyingDeviceAboutToClose);
    connect(socket.get(), &STcpSocket::disconnected, this,
            &SClientDevice::underlyingDeviceDisconnected);
    connect(socket.get(), &STcpSocket::destroyed, this, &SClientDevice::underlyingDeviceDestroyed);
    connect(socket.get(), &STcpSocket::readyRead, this, &SClientDevice::readyRead);
    if (!m_session->begin(socket.get()))
        return false;
    socket.release(); // a child of this device
    m_session->error = Error::None;
    return true;
}

void SClientDevice::close()
{
    close(nullptr);
}

void SClientDevice::close(bool *ok)
{
    bool isConfirmed = false;
    if (m_session->socket && !m_session->isClosing) {
        const QScopedValueRollback closing(m_session->isClosing, true);
        // A buffer in front of this device has bytes to write yet.
        if (isOpen())
            Q_EMIT aboutToClose();
        const bool isFlushed = flush(true);
        isConfirmed = m_session->finish() && isFlushed;
        m_session->hangUp();
        m_session->sizeCache = Session::kUnknownSize;
        const QSignalBlocker alreadyTold(this);
        QIODevice::close();
    }
    if (ok)
        *ok = isConfirmed;
}

bool SClientDevice::flush(bool wait)
{
    if (m_session->writeBuffer.isEmpty())
        return true;
    const QByteArray bytes = m_session->writeBuffer.read(quint64(-1));
    return m_session->write(bytes.constData(), bytes.size(), wait) == bytes.size();
}

bool SClientDevice::isSequential() const
{
    return false;
}

qint64 SClientDevice::size() const
{
    if (m_session->sizeCache == Session::kUnknownSize)
        m_session->sizeCache = m_session->askSize();
    return m_session->sizeCache;
}

bool SClientDevice::seek(qint64 position)
{
    const qint64 before = pos();
    if (!QIODevice::seek(position))
        return false;
    m_session->readBuffer.clear();
    m_session->sizeCache = Session::kUnknownSize;
    if (m_session->seek(position))
        return true;
    if (isOpen())
        QIODevice::seek(before);
    return false;
}

qint64 SClientDevice::bytesAvailable() const
{
    const auto &socket = m_session->socket;
    const qint64 here = static_cast<qint64>(m_session->readBuffer.bytesAvailable()) +
                        (socket ? socket->bytesAvailable() : 0);
    // The size is the server's word, up to the largest number there is.
    return Saturated::sum(here, QIODevice::bytesAvailable());
}

qint64 SClientDevice::bytesToWrite() const
{
    const auto &socket = m_session->socket;
    return static_cast<qint64>(m_session->writeBuffer.bytesAvailable()) +
           (socket ? socket->bytesToWrite() : 0) + QIODevice::bytesToWrite();
}

bool SClientDevice::waitForReadyRead(int milliseconds)
{
    if (bytesAvailable() > 0)
        return true;
    return m_session->socket && m_session->socket->waitForReadyRead(milliseconds);
}

bool SClientDevice::waitForBytesWritten(int milliseconds)
{
    if (!flush(false))
        return false;
    const auto &socket = m_session->socket;
    return !socket || socket->bytesToWrite() == 0 || socket->waitForBytesWritten(milliseconds);
}

qint64 SClientDevice::readData(char *data, qint64 maxSize)
{
    if (!m_session->socket)
        return -1;
    return maxSize > 0 ? m_session->read(data, maxSize) : 0;
}

qint64 SClientDevice::writeData(const char *data, qint64 size)
{
    if (!m_session->socket)
        return -1;
    return size > 0 ? m_session->write(data, size, true) : 0;
}

void SClientDevice::underlyingDeviceAboutToClose()
{
    endOpenState();
}

void SClientDevice::underlyingDeviceDisconnected()
{
    endOpenState();
}

void SClientDevice::underlyingDeviceDestroyed()
{
    m_session->socket.clear();
}

// Not close(), which would talk to a server that has gone.
void SClientDevice::endOpenState()
{
    if (!isOpen() || m_session->isClosing)
        return;
    const QScopedValueRollback closing(m_session->isClosing, true);
    Q_EMIT aboutToClose();
    setOpenMode(NotOpen);
}

} // namespace Talverine

#include "moc_sclientdevice.cpp"
