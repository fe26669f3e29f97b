// SPDX-License-Identifier: MIT
#include "memorysocket.h"

#include <algorithm>
#include <cstring>

namespace Fuzz {

namespace {

// Enough for each answer there is; a link test would go on for as long as the peer has asked for.
constexpr qint64 kLargestAnswerBytes = 2 * 1024 * 1024;

} // namespace

MemorySocket::MemorySocket(const QByteArray &fromPeer, qsizetype pieceBytes)
    : m_fromPeer(fromPeer)
    , m_pieceBytes(pieceBytes > 0 ? pieceBytes : fromPeer.size())
{
    setSocketState(ConnectedState);
    setOpenMode(ReadWrite);
}

MemorySocket::~MemorySocket()
{
    // The base would close a connection that the system does not have.
    setSocketState(UnconnectedState);
}

bool MemorySocket::isReadToEnd() const
{
    return m_arrived == m_fromPeer.size() && bytesAvailable() == 0;
}

qint64 MemorySocket::bytesAvailable() const
{
    return QIODevice::bytesAvailable() + m_arrived - m_taken;
}

bool MemorySocket::waitForReadyRead(int)
{
    if (state() != ConnectedState)
        return false;
    if (m_arrived == m_fromPeer.size()) {
        hangUp();
        return false;
    }
    m_arrived += std::min(m_pieceBytes, m_fromPeer.size() - m_arrived);
    return true;
}

bool MemorySocket::waitForBytesWritten(int)
{
    return false; // nothing ever waits to be written
}

void MemorySocket::disconnectFromHost()
{
    hangUp();
}

qint64 MemorySocket::readData(char *data, qint64 maxSize)
{
    const qint64 count = std::min<qint64>(maxSize, m_arrived - m_taken);
    if (count == 0)
        return state() == ConnectedState ? 0 : -1;
    std::memcpy(data, m_fromPeer.constData() + m_taken, static_cast<size_t>(count));
    m_taken += count;
    return count;
}

qint64 MemorySocket::writeData(const char *, qint64 size)
{
    const qint64 count = std::min(size, kLargestAnswerBytes - m_written);
    m_written += count;
    if (m_written == kLargestAnswerBytes)
        hangUp();
    return count > 0 ? count : -1;
}

// As after a real one: what has arrived stays readable, and nothing can be written.
void MemorySocket::hangUp()
{
    setSocketState(UnconnectedState);
    setOpenMode(ReadOnly);
}

} // namespace Fuzz
