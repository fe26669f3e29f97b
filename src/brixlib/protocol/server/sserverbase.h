// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/foundation/interfaces.h>
#include <brixlib/protocol/pluggables/spluggable.h>
#include <brixlib/protocol/scommunicatorbase.h>
#include <brixlib/protocol/server/sconnectionguard.h>
#include <brixlib/protocol/server/sserverlimits.h>

#include <QtCore/QDeadlineTimer>
#include <QtCore/QElapsedTimer>
#include <QtCore/QHash>
#include <QtCore/QPointer>
#include <QtNetwork/QHostAddress>

#include <cstddef>
#include <memory>

class QDataStream;
class QTimer;

namespace Talverine {

class SCommand;
class SCommandAuthentication;
class SCommandClientDevice;
class SCommandLinkTest;
class SCommandPluggable;
class SCommandStreamVersion;

/*!
 * The server's end of one connection. It reads commands, lets in who is in the authentication
 * database, carries each command out, and ends the session at the first failure. A user's home
 * folder is the jail of the whole session.
 *
 * An instance is made on an accepted socket's descriptor, which it takes over, and handed to
 * SServerController::serveNewConnection(), which moves it to a worker thread of its own. There it
 * lives and deletes itself when the session is over; other threads use an SServerBaseRequester.
 *
 *     connect(&controller, &SServerController::newConnection, this, [&](qint64 descriptor) {
 *         controller.serveNewConnection(new SServerBase(descriptor, &users), true);
 *     });
 *
 * A derived class registers prototypes of its commands in its constructor and overrides
 * executeCommand(). One whose constructor does not take the database, such as SServerFtp, is given
 * it by setAuthenticationDb() before it is served.
 */
class BRIXLIB_EXPORT SServerBase : public SCommunicatorBase
{
    Q_OBJECT

public:
    //! \a db stays the caller's and must outlive the session; null stands for a database of this
    //! session's own without any user.
    SServerBase(qint64 socketDescriptor, Interfaces::ISAuthenticationDb *db,
                QObject *parent = nullptr);
    explicit SServerBase(qint64 socketDescriptor, QObject *parent = nullptr);
    //! Without it a literal nullptr would fit both of the above.
    SServerBase(qint64 socketDescriptor, std::nullptr_t);
    ~SServerBase() override;

    //! Handles the commands that have arrived; false when the session is over.
    bool doWork() override;

    //! Sets what the client may take; without limits by default. Must be called before the session
    //! is served.
    void setLimits(const SServerLimits &limits);
    SServerLimits limits() const;

    // Reached by name from other threads; the order is fixed.

public Q_SLOTS:
    //! With a document root the client sees its jail as "/".
    void enableDocumentRoot(bool enabled);
    //! Logs the current user out if the database no longer has it. The session stays open.
    void onDbChanged();
    //! Logs the current user out if it is \a username. The session stays open.
    void onUserChanged(const QString &username);

public:
    //! Null makes a new database without any user. The old one is neither deleted nor
    //! disconnected.
    Q_INVOKABLE void setAuthenticationDb(Interfaces::ISAuthenticationDb *db);
    Q_INVOKABLE Interfaces::ISAuthenticationDb *authenticationDb() const;
    //! Who is logged in; empty until a login has succeeded.
    Q_INVOKABLE QString currentUser() const;
    //! What the client is told as the server's name; the host's name to begin with.
    Q_INVOKABLE void setServerName(const QString &name);
    Q_INVOKABLE QString serverName() const;
    Q_INVOKABLE bool isDocumentRootEnabled() const;
    /*!
     * Publishes \a pluggable as \a name in place of what had that name before. The server becomes
     * its parent, so it must live in the server's thread and have been made without a parent.
     */
    Q_INVOKABLE void addPluggable(const QString &name, SPluggable *pluggable);
    //! Withdraws a name. The object stays a child of the server.
    Q_INVOKABLE void delPluggable(const QString &name);
    Q_INVOKABLE QList<QString> pluggableList() const;
    //! The client's address; null before the session has begun.
    Q_INVOKABLE QHostAddress peerAddress() const;

Q_SIGNALS:
    //! A login was tried; comes before the client is told.
    void authenticationFinished(const QString &username, const AuthenticationStatus &status);
    //! A pluggable was called; \a result is false also when there is none of that name.
    void pluggableResult(const QString &command, bool result, const QByteArray &params,
                         const QByteArray &output);
    //! A client uses the file as a remote device.
    void clientDeviceStarted(const QString &fileName);
    //! A client has closed its remote device; does not come when the connection is lost.
    void clientDeviceFinished(const QString &fileName);
    //! A remote device has ended, closed by the client or not: so many bytes of the file were sent
    //! to the client, and so many of the client's were written to the file.
    void clientDeviceTransferred(qint64 readBytes, qint64 writtenBytes);
    //! A link test begins: the client sends for so many seconds, then it is sent to.
    void linkTestStarted(int uploadSeconds, int downloadSeconds);
    //! Both rates are the client's: what it sent and what it was sent. Does not come for a test
    //! that failed on its way.
    void linkTestFinished(double uploadBytesPerSeconds, double downloadBytesPerSeconds);
    //! The connection is up and the client has been greeted.
    void connectionInfo(const QHostAddress &peerAddress);
    void documentRootEnabled(bool value);

protected:
    //! Makes the socket and greets the client; false when that fails.
    bool workerInit() override;
    /*!
     * Version in which the client speaks \a command: the smaller of its own and the registered
     * one, which is 0 for commands that are not registered. 0 for null.
     */
    virtual int connectionCommandVersion(SCommand *command) const;
    /*!
     * Does the whole reply phase of \a command on socket(), after the command was accepted and
     * only while a user is logged in. True for success; the completion word is not its business.
     */
    virtual bool executeCommand(SCommand *command);

    /*!
     * What the handler writes from here on may leave together with the completion word, in one
     * packet: for a handler about to write its last words, since each packet wakes the client.
     * Nothing is held for more than 200 ms.
     */
    void holdReply();

    /*!
     * Whether a reply may take \a bytes of the memory that the connection guard grants to all
     * listings together. Waits up to half the timeout() for others. The memory counts as taken
     * until the command ends.
     */
    bool holdListing(qint64 bytes);

    void setSocketDescriptor(qint64 socketDescriptor);
    //! The accepted socket's descriptor; 0 for none.
    qint64 socketDescriptor() const;
    //! The command in the bytes, made from this server's prototypes, or null; the caller owns it.
    SCommand *receivedCommand(QDataStream &stream);
    SCommand *receivedCommand(const QByteArray &bytes);
    //! A client's path as a local one inside \a root; empty when it leads outside.
    QString networkPathToAbsolute(const QString &path, const QString &root) const;
    //! A local path as the client sees it; empty when it lies outside \a root.
    QString absoluteToNetworkPath(const QString &path, const QString &root) const;

private:
    void initSeverBase(qint64 socketDescriptor, Interfaces::ISAuthenticationDb *db);
    std::shared_ptr<const Interfaces::ISUser> user(const QString &username) const;
    bool setEnvironment(const QString &username);
    bool isLoginCurrent() const;

    void startLimits();
    void watchLimits();
    qint64 remainingMs() const;
    void noteLogin(bool hasSucceeded);
    void setLoginDeadline();
    bool hasExceededLogins() const;
    bool isIdleTooLong() const;
    quint32 bodyLimit() const;

    bool processCommandsInMemory();
    bool processCommands();
    bool processCommand(SCommandId *id);
    std::unique_ptr<SCommand> readCommand();
    bool innerExecuteCommand(SCommand *command);
    bool executeCommandAuthentication(const SCommandAuthentication &command);
    bool executeCommandCommandList(const SCommand &command);
    bool executeCommandServerName();
    bool executeCommandWhoAmI();
    bool executeCommandStreamVersion(const SCommandStreamVersion &command);
    bool executeCommandPluggable(const SCommandPluggable &command);
    bool callPluggable(const SCommandPluggable &command, QByteArray &output);
    bool executeCommandPluggableList();
    bool executeCommandClientDevice(const SCommandClientDevice &command);
    bool executeCommandLinkTest(const SCommandLinkTest &command);

    class DeviceSession;
    friend class SServerController;

    qint64 m_socketDescriptor = 0;
    bool m_replyIsHeld = false;
    bool m_hasSocket = false;
    QPointer<Interfaces::ISAuthenticationDb> m_db;
    QString m_currentUser;
    QByteArray m_loginPassword; //!< hash of the password at the time of the login
    QString m_loginHome;
    QString m_serverName;
    QHash<QString, QPointer<SPluggable>> m_pluggables;
    bool m_documentRootEnabled = false;
    SServerLimits m_limits;
    std::shared_ptr<SConnectionGuard::Place> m_place;
    QTimer *m_limitTimer = nullptr;
    QDeadlineTimer m_loginDeadline{QDeadlineTimer::Forever};
    QElapsedTimer m_sinceCommand;
    int m_failedLogins = 0;
};

} // namespace Talverine
