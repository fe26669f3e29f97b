// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <QtCore/QByteArray>
#include <QtCore/QIODevice>
#include <QtCore/QString>

#include <memory>

class QUrl;

namespace Talverine {

class SIOBuffer;
class STcpSocketSpeedController;

namespace Interfaces {
class IProgress;
}

namespace Security {
class SSecureCredential;
class SSecureString;
} // namespace Security

/*!
 * A file on a file server as a device. Opening it connects and logs in on a connection of its own,
 * and from then on each call is one exchange with the server, in the calling thread.
 *
 * For small reads and writes put a buffer in front:
 *
 *     SClientDevice file(u"press"_s, u"jobs/list.csv"_s, 7000, u"ann"_s, password);
 *     SBufferedDevice buffered(&file, SBufferedDevice::networkFSBufferSize());
 *     if (buffered.open(QIODevice::ReadOnly))
 *         show(buffered.readLine());
 *
 * - An object serves one open(): once there was a connection, a further call fails.
 * - A read() gives at most 1,048,576 bytes, and so does readAll(), which makes room for as many as
 *   the server claims: use read(), in a loop.
 * - The server does not answer a write: what it could not store shows only in size(), after a
 *   seek().
 * - When an exchange breaks off midway, through a time-out for example, this end no longer knows
 *   what comes next. The connection stays, but all calls after that one fail.
 * - A slot that is called during an exchange, by readyRead() for example, cannot begin another.
 *
 * Every call blocks for up to timeout() at each step. The object belongs to the thread that opens
 * it: one that was made in another has to be moved there before.
 */
class BRIXLIB_EXPORT SClientDevice : public QIODevice
{
    Q_OBJECT

public:
    //! What a call has failed at.
    enum class Error {
        None,
        NoConnection, //!< the host is unknown, or nobody answers there as a server does
        Connection,   //!< it broke, or the server said something strange
        Login,        //!< the server refuses the user or the password
        File,         //!< the server refuses to do that with this file
    };
    Q_ENUM(Error)

    /*!
     * The file \a fileName on the server \a host. The path is taken from the user's home folder
     * there; \a hashedPassword is the lower-case hexadecimal SHA-512 of the password's UTF-8.
     */
    SClientDevice(const QString &host, const QString &fileName, unsigned short port,
                  const QString &user, const QByteArray &hashedPassword, QObject *parent = nullptr);
    SClientDevice(const QString &host, const QString &fileName, unsigned short port,
                  const QString &user, const Security::SSecureString &password,
                  QObject *parent = nullptr);
    SClientDevice(const QString &host, const QString &fileName, unsigned short port,
                  const Security::SSecureCredential &credential, QObject *parent = nullptr);
    /*!
     * The path of \a url on its host. An empty \a user or \a password is taken from the URL, the
     * password in each form that SClientBase::addCredential() writes. Port 0 stands for 7000; a URL
     * without a port gives 65535, so it should have one.
     */
    SClientDevice(const QUrl &url, const QString &user, const Security::SSecureString &password,
                  QObject *parent = nullptr);
    //! Closes the device, which may block.
    ~SClientDevice() override;

    QString fileName() const;
    QString host() const;
    unsigned short port() const;
    QString user() const;
    QByteArray hashedPassword() const;

    //! Milliseconds that each wait for the server may last; 10,000 to begin with. 0 does not wait,
    //! negative has no limit.
    int timeout() const;
    void setTimeout(int milliseconds);
    //! Moves the connection from the old controller to \a controller (null for none), which may
    //! die at any time in the thread of this object; in another it has to be taken off before.
    void setSpeedController(STcpSocketSpeedController *controller);

    //! Why the last call that failed has failed.
    Error error() const;

    /*!
     * Connects, logs in and opens the file on the server with \a mode, making its folder if need
     * be. Append and NewOnly imply WriteOnly. The device itself is always unbuffered. After a
     * failure it may still be connected; it is of no more use then.
     */
    bool open(OpenMode mode) override;
    //! As below, without a result.
    void close() override;
    /*!
     * Closes the file and the connection. \a ok, which may be null, tells whether the server has
     * confirmed it; false also when the device was not open.
     */
    void close(bool *ok);
    //! Sends what is still in writeBuffer(), with \a wait until it has left.
    bool flush(bool wait = true);

    //! False.
    bool isSequential() const override;
    /*!
     * Bytes of the file, or -1 when the server does not tell. Asked for once, and once more after a
     * seek(); writing does not change it.
     */
    qint64 size() const override;
    //! One exchange. When the server refuses, the position stays as it was.
    bool seek(qint64 position) override;
    //! May cost an exchange, for size().
    qint64 bytesAvailable() const override;
    qint64 bytesToWrite() const override;
    bool waitForReadyRead(int milliseconds) override;
    //! True when nothing is left to be written, or when some of it has left in time.
    bool waitForBytesWritten(int milliseconds) override;

    /*!
     * Copies \a source, from where it stands to its end, to \a target. A device that is closed is
     * opened for it and closed again. \a progress, which may be null, is told the percentage and
     * may break the copy off. False when anything failed, also at closing, or was broken off; what
     * was copied by then stays.
     */
    static bool copy(QIODevice *target, QIODevice *source, Interfaces::IProgress *progress,
                     int bufferSize = kCopyBufferBytes);
    static bool copy(QIODevice *target, QIODevice *source, int bufferSize = kCopyBufferBytes);

protected:
    //! One exchange: at most \a maxSize bytes, 0 at the end of the file, -1 on a failure.
    qint64 readData(char *data, qint64 maxSize) override;
    //! Sends all of \a data and waits until it has left; -1 on a failure.
    qint64 writeData(const char *data, qint64 size) override;

    // Empty, unless a deriving class puts something there.

    //! Counts in bytesAvailable(); cleared by seek().
    SIOBuffer &readBuffer();
    //! Counts in bytesToWrite(); sent by flush().
    SIOBuffer &writeBuffer();

private Q_SLOTS:
    void underlyingDeviceAboutToClose();
    void underlyingDeviceDisconnected();
    void underlyingDeviceDestroyed();

private:
    static constexpr int kCopyBufferBytes = 0x100000;

    bool connectToHost();
    void endOpenState();

    class Session;

    const QString m_fileName;
    const QString m_host;
    const unsigned short m_port;
    const QString m_user;
    const QByteArray m_hashedPassword;
    const std::unique_ptr<Session> m_session;
};

} // namespace Talverine
