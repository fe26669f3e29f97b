// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <QtCore/QByteArray>
#include <QtNetwork/QTcpSocket>

#include <memory>

namespace Talverine {

class STcpSocketThrottle;

/*!
 * A TCP socket that measures its speed and can hold it down in both directions.
 *
 * With a limit for sending, write() blocks its caller until the data has left at that speed. With a
 * limit for receiving, the socket blocks its thread after readyRead(), in step with the bytes that
 * have arrived and were not read by then. Without a limit data goes straight to the QTcpSocket. A
 * thread that is asked to stop (QThread::requestInterruption()) is no longer held back.
 *
 * Several sockets share limits through an STcpSocketSpeedController.
 *
 * Lives in one thread; the limits may be read and set from any while the socket exists.
 */
class BRIXLIB_EXPORT STcpSocket : public QTcpSocket
{
    Q_OBJECT

public:
    explicit STcpSocket(QObject *parent = nullptr);
    ~STcpSocket() override;

    qint64 bytesAvailable() const override;
    //! Counts the bytes that a limit holds back too.
    qint64 bytesToWrite() const override;

    //! The limit for receiving in bytes per second; 0, the default, for none.
    qint64 incomingSpeed() const;
    //! The limit for sending in bytes per second; 0, the default, for none.
    qint64 outcomingSpeed() const;

public Q_SLOTS:
    //! A positive limit below 256 becomes 256; a negative one stops the traffic.
    void setIncomingSpeed(qint64 bytesPerSecond);
    //! A positive limit below 256 becomes 256; a negative one stops the traffic.
    void setOutcomingSpeed(qint64 bytesPerSecond);

Q_SIGNALS:
    //! The measured speed; after a transfer, at most every 100 ms.
    void connectionIncomingSpeed(qint64 bytesPerSecond);
    //! The measured speed; after a transfer, at most every 100 ms.
    void connectionOutcomingSpeed(qint64 bytesPerSecond);
    //! For the use of applications; the socket itself does not emit it.
    void readyWrite();

protected:
    /*!
     * With a limit, takes all of \a data, blocks until it has left or the peer has gone, and gives
     * the number of bytes taken; what did not leave counts in bytesToWrite(), and further data is
     * refused with -1 then. Without one, as QTcpSocket.
     */
    qint64 writeData(const char *data, qint64 size) override;

    //! Sends all that is held back; the bytes sent, or -1 when the peer has gone.
    qint64 writeToSocket();
    //! Sends one piece of at most \a size bytes, -1 for all; as writeToSocket().
    qint64 writeToSocket(qint64 size);

private:
    friend class DirectSocket;
    friend class STcpSocketSpeedController;

    qint64 writeThrottled(const char *data, qint64 size);
    qint64 writeThrough(const char *data, qint64 size);
    qint64 heldBack() const;
    qint64 appendToBuffer(const char *data, qint64 size);
    void removeFromBuffer(qint64 size);
    void clearBuffer();
    void handToSystem();
    qint64 waitToSend();
    qint64 waitToReceive();
    void takeNoteOfHangUp();
    void countSent(qint64 bytes);
    void countReceived(qint64 bytes);
    void emitIncomingSpeedAfter(qint64 msec);
    void emitOutcomingSpeedAfter(qint64 msec);
    void onReadyRead();
    void onAboutToClose();
    void onStateChanged(QAbstractSocket::SocketState state);

    QByteArray m_writeBuffer;
    qsizetype m_writeOffset = 0; // what stands before it has left already
    std::shared_ptr<STcpSocketThrottle> m_incoming;
    std::shared_ptr<STcpSocketThrottle> m_outgoing;
    QAbstractSocket::SocketState m_lastState = QAbstractSocket::UnconnectedState;
    bool m_closing = false;
    bool m_hungUp = false; // the peer was found to have gone, and is being taken note of
};

} // namespace Talverine
