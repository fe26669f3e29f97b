// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/protocol/server/sconnectionguard.h>

#include <QtCore/QHash>
#include <QtCore/QObject>
#include <QtNetwork/QHostAddress>

#include <memory>

namespace Talverine {

class ConnectionRunners;
class SServerBase;
class SSimpleBackgroundRunner;
class STcpServer;

/*!
 * Listens for connections, gives each session a worker thread of its own, and counts them.
 *
 *     SServerController controller;
 *     connect(&controller, &SServerController::newConnection, this, [&](qint64 descriptor) {
 *         controller.serveNewConnection(new SServerBase(descriptor, &users), true);
 *     });
 *     controller.listen(QHostAddress::Any, 7000);
 *
 * Lives in one thread, whose event loop must run. Deleting it stops all sessions and waits for
 * their threads.
 */
class BRIXLIB_EXPORT SServerController : public QObject
{
    Q_OBJECT

public:
    explicit SServerController(QObject *parent = nullptr);
    ~SServerController() override;

    //! Port 0 takes a free one, which serverPort() tells.
    [[nodiscard]] bool listen(const QHostAddress &address = QHostAddress::Any,
                              unsigned short port = 0);
    //! Stops listening and closes the connections that wait for a greeting; the sessions go on.
    void close();
    bool isListening() const;
    /*!
     * Connections wait until resumeAccepting(), also when it begins to listen only later. Called
     * from newConnection(), it still lets through those that have arrived by then.
     */
    void pauseAccepting();
    void resumeAccepting();
    //! Where it listens; null and 0 when it does not.
    QHostAddress serverAddress() const;
    unsigned short serverPort() const;
    //! Why listen() or accepting a connection failed.
    QString errorString() const;

    /*!
     * Runs \a server in a new thread and waits with an event loop of its own until the session has
     * begun. Null when it could not begin. A server that has a parent is refused: the result is
     * null, and the server with its connection stays with the parent. With \a autoDelete the
     * runner deletes itself when the thread has ended; otherwise it stays until this controller
     * dies. No further connection is accepted during the wait.
     */
    SSimpleBackgroundRunner *serveNewConnection(SServerBase *server, bool autoDelete = true);
    //! The same without waiting and without deletion. Unless \a start is true the thread is the
    //! caller's to start.
    SSimpleBackgroundRunner *serveNewConnectionAsync(SServerBase *server, bool start = true);

    //! Sessions whose threads run.
    int count() const;
    //! 0 and below mean no limit.
    int maximumConnections() const;
    /*!
     * Closes further connections without a greeting while \a maximum sessions were handed over to
     * be served and have not finished, whether their threads have started or not.
     */
    void setMaximumConnections(int maximum);
    bool maximumConnectionsReached() const;

    /*!
     * Sets the guard that admits connections, or null, the default, for none. A connection that the
     * guard refuses is closed without a greeting. One that the guard delays is announced by
     * newConnection() after the delay. Sessions that exist keep the guard they came with.
     */
    void setConnectionGuard(std::shared_ptr<SConnectionGuard> guard);
    std::shared_ptr<SConnectionGuard> connectionGuard() const;
    /*!
     * Number of descriptors that connections leave free for other uses; 0 by default. A connection
     * is closed without a greeting when fewer would be left, counting those that the threads in the
     * making need: without them Qt ends the process.
     */
    int reservedDescriptors() const;
    void setReservedDescriptors(int count);

public Q_SLOTS:
    //! Asks all sessions to end; each finishes its exchange, within its time-out. Does not wait.
    void interruptWorkers();

Q_SIGNALS:
    void connectionCountChanged(int count);
    void interruptWorkersRequested();
    //! A connection was accepted; the receiver makes a server on the descriptor and serves it. A
    //! connection that nobody listens for is closed.
    void newConnection(qint64 socketDescriptor);

private:
    void onNewConnection(qint64 socketDescriptor);
    void onAcceptError();
    void updateAccepting();
    bool admit(qint64 socketDescriptor);
    bool hasResources(qint64 newestDescriptor) const;
    bool wait(qint64 socketDescriptor);
    void endWait(qint64 socketDescriptor);
    void announce(qint64 socketDescriptor);
    SSimpleBackgroundRunner *addRunner(SServerBase *server);

    STcpServer *m_server;
    ConnectionRunners *m_runners;
    std::shared_ptr<SConnectionGuard> m_guard;
    // Places of the connections that wait for their greeting, and of those that were announced and
    // are not served yet, by descriptor.
    QHash<qint64, std::shared_ptr<SConnectionGuard::Place>> m_waiting;
    QHash<qint64, std::shared_ptr<SConnectionGuard::Place>> m_announced;
    int m_maximumConnections = 0;
    int m_reservedDescriptors = 0;
    bool m_isPaused = false;
    bool m_isServing = false;
};

} // namespace Talverine
