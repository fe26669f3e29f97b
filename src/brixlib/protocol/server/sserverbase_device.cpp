// SPDX-License-Identifier: MIT
// The session in which a client drives a file of the server as a remote device.
#include <brixlib/protocol/server/sserverbase.h>

#include <brixlib/protocol/blockingio_p.h>
#include <brixlib/protocol/namedpipe_p.h>

#include <brixlib/protocol/clientdevicecommands.h>
#include <brixlib/protocol/commands/scommandclientdevice.h>
#include <brixlib/protocol/socket/stcpsocket.h>

#include <QtCore/QFile>
#include <QtCore/QtEndian>

namespace Talverine {

namespace {

constexpr qint64 kBufferBytes = 1048576;
// The count of bytes goes out in front of them, in the same write.
constexpr qint64 kCountBytes = sizeof(qint64);
constexpr int kIdleWaitMs = 100;

// Qt would complain of a mode that is none, once for each request.
bool isOpenMode(QIODevice::OpenMode mode)
{
    const bool hasAccess = mode & (QIODevice::ReadWrite | QIODevice::Append | QIODevice::NewOnly);
    return hasAccess && !mode.testFlags(QIODevice::NewOnly | QIODevice::ExistingOnly);
}

} // namespace

class SServerBase::DeviceSession
{
public:
    DeviceSession(SServerBase &server, const QString &path)
        : m_server(server)
        , m_file(path)
        , m_buffer(std::make_unique_for_overwrite<char[]>(kCountBytes + kBufferBytes))
    {
    }

    //! Answers requests until the client closes the device. Returns false when the connection
    //! fails, the thread is to stop, or the user may not log in as before any more.
    bool run()
    {
        Q_EMIT m_server.clientDeviceStarted(m_file.fileName());
        while (waitForRequest()) {
            const quint32 request = m_server.readWord(socket());
            if (request == 0 || !m_server.isLoginCurrent())
                return false;
            if (request == static_cast<quint32>(ClientDeviceCommands::Close)) {
                m_file.close();
                Q_EMIT m_server.clientDeviceFinished(m_file.fileName());
                return true;
            }
            if (!answer(static_cast<ClientDeviceCommands>(request)))
                return false;
        }
        return false;
    }

    qint64 readBytes() const { return m_readBytes; }
    qint64 writtenBytes() const { return m_writtenBytes; }

private:
    STcpSocket *socket() const { return m_server.socket(); }

    // A client without an idle limit may stay as long as it likes, unless the thread is to stop.
    bool waitForRequest()
    {
        m_server.m_sinceCommand.start();
        while (socket()->state() == QAbstractSocket::ConnectedState && !isInterruptionRequested() &&
               !m_server.isIdleTooLong()) {
            if (BlockingIo::waitForBytes(socket(), kIdleWaitMs))
                return true;
        }
        return false;
    }

    bool answer(ClientDeviceCommands request)
    {
        switch (request) {
        case ClientDeviceCommands::Open:
            return open();
        case ClientDeviceCommands::Seek:
            return seek();
        case ClientDeviceCommands::Size:
            return m_server.writeWord64(socket(), static_cast<quint64>(m_file.size()));
        case ClientDeviceCommands::Read:
            return read();
        case ClientDeviceCommands::Write:
            return write();
        case ClientDeviceCommands::AtEnd:
            return reply(m_file.atEnd());
        default:
            return true;
        }
    }

    bool reply(bool result)
    {
        const char byte = result ? 1 : 0;
        return m_server.writeAll(socket(), &byte, 1) == 1;
    }

    // Without a buffer of its own: the bytes read next are seldom those behind, and a disk that is
    // full shows in the size at once.
    bool open()
    {
        quint32_be mode;
        char *bytes = reinterpret_cast<char *>(&mode);
        if (m_server.readAll(socket(), bytes, sizeof mode) != sizeof mode)
            return false;
        const QIODevice::OpenMode wanted(static_cast<int>(quint32(mode)));
        return reply(isOpenMode(wanted) && !m_file.isOpen() && !isNamedPipe(m_file.fileName()) &&
                     m_file.open(wanted | QIODevice::Unbuffered));
    }

    bool seek()
    {
        quint64 position = 0;
        if (!m_server.readWord64(socket(), &position))
            return false;
        const auto wanted = static_cast<qint64>(position);
        // Qt would complain of each of these.
        const bool isPossible = m_file.isOpen() && !m_file.isSequential() && wanted >= 0;
        return reply(isPossible && m_file.seek(wanted));
    }

    bool read()
    {
        quint64 word = 0;
        if (!m_server.readWord64(socket(), &word))
            return false;
        const qint64 wanted = std::min(static_cast<qint64>(word), kBufferBytes);
        const qint64 count = wanted >= 0 && m_file.isReadable()
                                 ? m_file.read(m_buffer.get() + kCountBytes, wanted)
                                 : -1;
        qToBigEndian(count, m_buffer.get());
        const qint64 size = kCountBytes + std::max<qint64>(count, 0);
        const bool isSent = m_server.writeAll(socket(), m_buffer.get(), size) == size;
        m_readBytes += isSent ? size - kCountBytes : 0;
        return isSent;
    }

    // All the announced bytes are taken off the connection, also when the file takes no more.
    bool write()
    {
        quint64 word = 0;
        if (!m_server.readWord64(socket(), &word))
            return false;
        bool taken = m_file.isWritable();
        for (auto left = static_cast<qint64>(word); left > 0;) {
            const qint64 piece = std::min(left, kBufferBytes);
            if (m_server.readAll(socket(), m_buffer.get(), piece) != piece)
                return false;
            taken = taken && m_file.write(m_buffer.get(), piece) == piece;
            m_writtenBytes += taken ? piece : 0;
            left -= piece;
        }
        return true;
    }

    SServerBase &m_server;
    QFile m_file;
    const std::unique_ptr<char[]> m_buffer;
    qint64 m_readBytes = 0;
    qint64 m_writtenBytes = 0;
};

// An empty answer means a path outside the jail; made absolute once more it would turn into the
// current directory.
bool SServerBase::executeCommandClientDevice(const SCommandClientDevice &command)
{
    const QString path = networkPathToAbsolute(command.fileName(), rootPath());
    if (path.isEmpty() || !makeDirLocal(QFileInfo(path).path()))
        return false;
    DeviceSession session(*this, path);
    const bool isClosed = session.run();
    Q_EMIT clientDeviceTransferred(session.readBytes(), session.writtenBytes());
    return isClosed;
}

} // namespace Talverine
