// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/enums/authenticationstatus.h>
#include <brixlib/enums/passwordtype.h>
#include <brixlib/protocol/scommandid.h>
#include <brixlib/protocol/scommunicatorbase.h>

#include <QtCore/QAtomicInt>
#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QString>
#include <QtNetwork/QAbstractSocket>
#include <QtNetwork/QHostAddress>

class QDataStream;
class QTimer;
class QUrl;

namespace Talverine {

class SCommandAuthentication;
class SCommandLinkTest;
class SCommandPluggable;
class SCommandQueue;
class SCommandStreamVersion;

namespace Security {
class SSecureCredential;
class SSecureString;
} // namespace Security

/*!
 * The client end of a connection.
 *
 * Public operations make commands and return at once; the worker thread sends them one by one, and
 * each answer comes as a signal from that thread. The first exchange that fails ends the session:
 * nothing is repeated, and a new connection takes a new object.
 *
 *     SClientController controller;
 *     auto *client = new SClientBase(u"printer.local"_s, 7000, true);
 *     connect(client, &SClientBase::whoAmIResult, this, &Window::showUser);
 *     if (controller.connectClient(client, true)) {
 *         client->authenticate(u"alice"_s, password);
 *         client->whoAmI(); // sent after the login
 *     }
 *
 * SClientController::connectClient() returns after the greeting of the server, which authenticate()
 * needs. With connectClientAsync() the order is: connect to connected(), start, then log in.
 *
 *     connect(client, &SClientBase::connected, client, [client, user, password] {
 *         client->authenticate(user, password);
 *         client->whoAmI();
 *     });
 *     controller.connectClientAsync(client, true);
 *
 * An instance is made without a parent and moved to a worker thread of its own by
 * SClientController. The operations that queue a command may be called from any thread while the
 * object lives; all others only in the worker thread, or through SClientBaseRequester.
 */
class BRIXLIB_EXPORT SClientBase : public SCommunicatorBase
{
    Q_OBJECT

public:
    explicit SClientBase(const QHostAddress &address, unsigned short port,
                         QObject *parent = nullptr);
    //! \a host is resolved in the worker thread, when the connection is made.
    SClientBase(const QString &host, unsigned short port, bool preferIPv4,
                QObject *parent = nullptr);
    ~SClientBase() override;

    //! Sends the first waiting command, handles its answer, and tells by commandResult() how it
    //! went; without a command, or with one that isNull(), the id is null. False ends the session.
    bool doWork() override;

    // Queries.

    //! The host name; when there is none and \a lookup is set, the name of address(), which blocks.
    Q_INVOKABLE QString host(bool lookup) const;
    //! The peer; null until a host name has been resolved.
    Q_INVOKABLE QHostAddress address() const;
    Q_INVOKABLE unsigned short port() const;
    Q_INVOKABLE bool preferIPv4() const;
    Q_INVOKABLE QAbstractSocket::SocketState state() const;
    //! Whether the server has the command; true for all until its list is known. From any thread.
    Q_INVOKABLE bool isCommandAvailable(const SCommandId &id) const;

    //! Whether the server refused the last command, before, during or after its work. False when
    //! the command succeeded, and when it failed for another reason, as a connection that is lost.
    //! Only in the worker thread; known when commandResult() comes.
    bool wasRefused() const;

    /*!
     * Largest reply to the command \a id in bytes; 0, the default, sets no limit. A longer reply
     * is not read and ends the session. It counts for replies that are read whole: names, lists and
     * the output of pluggables, not for the content of files. Set it before the client connects, or
     * in the worker thread.
     */
    void setReplyLimit(const SCommandId &id, qint64 bytes);
    qint64 replyLimit(const SCommandId &id) const;
    //! Whether the last command failed because its reply was longer than replyLimit() or than the
    //! memory allows. Only in the worker thread; known when commandResult() comes.
    bool wasReplyTooLarge() const;

    /*!
     * The version to speak with this server for \a command: the smaller of the command's own and
     * the server's. 0 for null, and for a command that the server's list does not have (the
     * command's own version when that is negative).
     */
    virtual int connectionCommandVersion(SCommand *command) const;

    //! Milliseconds that commandQueueEmpty() is held back by clients made from now on; 0 at first,
    //! never negative.
    static int queueEmptyFilterTimeout();
    static void setQueueEmptyFilterTimeout(int milliseconds);

    /*!
     * The address of \a host, which is a name or an address in text. Blocks. With \a preferIPv4 an
     * IPv4 address is taken when there is one, else an IPv6 address; null when the name is unknown.
     */
    static QHostAddress resolve(const QString &host, bool preferIPv4);

    /*!
     * Puts the user name and the password into \a url, the password as it stands, hashed or
     * encrypted. Nothing happens for PasswordType::None or a null credential. A plain password that
     * looks like one of the other forms, "(Hash,…)", is read back as that form.
     */
    static void addCredential(QUrl &url, const Security::SSecureCredential &credential,
                              const PasswordType &type);
    //! The credential in \a url; null without a user name or when the password is only a hash.
    static Security::SSecureCredential createSecureCredential(const QUrl &url);
    //! Hexadecimal SHA-512 of the password in \a url, in whatever form it stands there.
    static QByteArray decodeAndHashPassword(const QUrl &url);

public Q_SLOTS:
    /*!
     * Logs in. Must be called after connected(), since the greeting salts the password: an earlier
     * login is refused like a wrong password, and a line of the debug log says so. Other commands
     * that are queued from here on wait until the server has accepted the login and sent its list
     * of commands. After a refused login they wait for the next one or clearPendingCommands().
     */
    void authenticate(const QString &username, const QString &password);
    void authenticate(const QString &username, const Security::SSecureString &password);
    void authenticate(const Security::SSecureCredential &credential);
    //! Asks for the server's commands anew, and agrees on the stream version once more.
    void commandList();
    void serverName();
    void whoAmI();
    /*!
     * Calls what the server publishes as \a command. The whole command may take 1,048,576 bytes:
     * larger \a params cost the session.
     */
    void pluggable(const QString &command, const QByteArray &params);
    void pluggableList();
    //! Measures the connection by sending and then receiving for so many seconds; below 1 a phase
    //! carries nothing.
    void linkTest(int uploadSeconds, int downloadSeconds);
    //! Closes the connection. Called from another thread, it returns at once and the worker thread
    //! closes the connection after the exchange that it is in. Hides QObject::disconnect().
    void disconnect();
    //! Drops every command that has not been sent.
    void clearPendingCommands();

Q_SIGNALS:
    //! Once, when the greeting has been read: authenticate() may be called from here on.
    void connected(const QHostAddress &address);
    //! A command was dropped because the server does not have it. Comes from the thread that queued
    //! it, or from the worker's for one that was held back until the login.
    void unavailableCommand(const SCommandId &id);
    //! The first command has come into the empty queue; those that are held back do not count.
    void commandQueueNotEmpty();
    //! The queue has stayed empty past queueEmptyFilterTimeout().
    void commandQueueEmpty();
    //! One command has come into the queue.
    void commandEnqueue();
    //! One command was taken out of the queue to be sent.
    void commandDequeue();

    // Answers. Each comes before the commandResult() of its command.

    //! The server's commands. The form with versions comes first.
    void commandListResult(const QList<SCommandId> &list);
    void commandListResult(const QHash<SCommandId, qint32> &list);
    //! NotAuthenticated also when the server took the command but sent no status; commandResult()
    //! then tells of a failure.
    void authenticationResult(const AuthenticationStatus &value);
    void serverNameResult(const QString &value);
    void whoAmIResult(const QString &value);
    void pluggableResult(const QString &command, bool result, const QByteArray &params,
                         const QByteArray &output);
    void pluggableListResult(const QList<QString> &list);
    //! The server has accepted a link test; transferredBytes() follows after half a second.
    void linkTestStarted(int uploadSeconds, int downloadSeconds);
    //! Both phases are through; does not come for a test that failed on its way.
    void linkTestFinished(double uploadBytesPerSeconds, double downloadBytesPerSeconds);

protected:
    //! Connects and reads the greeting. When the server closes the connection meanwhile, finished()
    //! comes twice: with InterruptRequested and then with InitError.
    bool workerInit() override;
    //! Begins the session on a connected \a socket: reads the greeting, and sends what is queued
    //! from then on. False without a greeting.
    bool beginSession(STcpSocket *socket);
    /*!
     * The client's half of a command's answer, in the worker thread, after the server has accepted
     * \a command: reads from socket(), writes to it if need be, and gives true if all went well,
     * else the session ends. A derived class handles its own ids and passes the rest on; it has
     * registered a prototype of each in its constructor.
     */
    virtual bool executeCommand(SCommand *command);

    void setAddress(const QHostAddress &address);
    void setHost(const QString &host);
    void setPort(unsigned short port);
    void setPreferIPv4(bool prefer);

    //! The version that the server's list gives for \a id; 0 when it gives none. From any thread.
    int commandVersion(const SCommandId &id) const;
    /*!
     * Queues \a command, of which it takes ownership, at the version that the server has. One that
     * the server lacks is deleted with unavailableCommand(). While a login is under way, all but
     * the commands of the login itself are held back. From any thread.
     */
    void enqueueCommand(SCommand *command);
    //! Writes \a command and reads the server's word; true if the server has accepted it.
    bool sendCommand(SCommand *command);
    //! Records that the server refused the command while its reply phase was under way.
    void setRefused();
    //! Reads the reply frame of the command that is under way, within its replyLimit(). False also
    //! for the length 0.
    bool readReply(QByteArray *body);
    //! Reads the body of such a reply, whose length has been read already.
    bool readReplyBody(quint32 length, QByteArray *body);

    static QAtomicInt _emptyQueueFilterMSec;

private Q_SLOTS:
    void commandQueueEmptyEmitter();
    void onConnectionStarted();
    void onAuthenticationResult(const AuthenticationStatus &status);
    void onCommandListResult(const QHash<SCommandId, qint32> &list);

private:
    void initClientBase();
    void registerBaseCommands();
    void connectQueue();
    void connectSyncing();

    void listenToQueue();
    bool exchange(SCommand *command);
    bool exchangeWithinMemory(SCommand *command);
    bool readVerdict();

    void authenticateHashed(const QString &username, const QByteArray &hash);
    bool checkAndDelay(SCommand *command);
    void enqueueAvailable(SCommand *command);
    void flushDelayedCommands();
    SCommand *takeDelayed();
    QHash<SCommandId, int> serverCommands() const;

    bool readText(QString *text);
    bool executeCommandCommandList();
    bool executeCommandAuthentication();
    bool executeCommandServerName();
    bool executeCommandWhoAmI();
    bool executeCommandStreamVersion(const SCommandStreamVersion &command);
    bool executeCommandPluggable(const SCommandPluggable &command);
    bool executeCommandPluggableList();
    bool executeCommandLinkTest(const SCommandLinkTest &command);

    QString m_host;
    bool m_preferIPv4 = false;
    QHostAddress m_address;
    unsigned short m_port = 0;
    // Children, so that they move to the worker thread with this object.
    SCommandQueue *m_queue;
    SCommandQueue *m_delayedQueue;
    QTimer *m_queueFilter;

    // Guards what callers' threads read while the handshake changes it.
    mutable QMutex m_handshakeMutex;
    QHash<SCommandId, int> m_serverCommands;
    bool m_delayed = false;
    bool m_wasRefused = false;
    QHash<SCommandId, qint64> m_replyLimits;
    SCommandId m_commandUnderWay;
    bool m_wasReplyTooLarge = false;
};

} // namespace Talverine
