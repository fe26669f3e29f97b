// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/socket/stcpsocket.h>

namespace Fuzz {

/*!
 * A connection whose peer is a row of bytes in memory. They arrive piece by piece, one with each
 * wait; with the wait behind the last one the peer has closed the connection. What is written to it
 * is counted and forgotten, up to a limit, at which the peer closes the connection as well.
 *
 * No wait takes time, and the same bytes give the same course each time.
 */
class MemorySocket final : public Talverine::STcpSocket
{
public:
    //! \a fromPeer is not copied when it is raw data. A piece of 0 bytes stands for all at once.
    MemorySocket(const QByteArray &fromPeer, qsizetype pieceBytes);
    ~MemorySocket() override;

    //! Whether every byte of the peer has been read.
    bool isReadToEnd() const;

    qint64 bytesAvailable() const override;
    bool waitForReadyRead(int msecs) override;
    bool waitForBytesWritten(int msecs) override;
    void disconnectFromHost() override;

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *data, qint64 size) override;

private:
    void hangUp();

    const QByteArray m_fromPeer;
    const qsizetype m_pieceBytes;
    qsizetype m_arrived = 0;
    qsizetype m_taken = 0;
    qint64 m_written = 0;
};

} // namespace Fuzz
