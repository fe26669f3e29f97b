// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <QtCore/QObject>
#include <QtNetwork/QHostAddress>

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
    //! Stops listening; the sessions go on.
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
     * Connections that come when there are so many sessions are closed without a greeting. Those
     * that are being set up are not counted, so a burst can pass the limit by as many.
     */
    void setMaximumConnections(int maximum);
    bool maximumConnectionsReached() const;

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

    STcpServer *m_server;
    ConnectionRunners *m_runners;
    int m_maximumConnections = 0;
    bool m_isPaused = false;
    bool m_isServing = false;
};

} // namespace Talverine
