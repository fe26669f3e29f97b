// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <QtCore/QObject>
#include <QtNetwork/QNetworkProxy>

namespace Talverine {

class ConnectionRunners;
class SClientBase;
class SSimpleBackgroundRunner;

/*!
 * Gives clients their worker threads and counts those that run.
 *
 *     SClientController controller;
 *     auto *client = new SClientBase(u"printer.local"_s, 7000, true);
 *     if (SSimpleBackgroundRunner *runner = controller.connectClient(client, true))
 *         client->authenticate(user, password);
 *
 * It lives in one thread, which runs an event loop. Its end interrupts its clients and waits for
 * their threads.
 */
class BRIXLIB_EXPORT SClientController : public QObject
{
    Q_OBJECT

public:
    explicit SClientController(QObject *parent = nullptr);
    //! \a proxy is kept and used for nothing yet.
    explicit SClientController(const QNetworkProxy &proxy, QObject *parent = nullptr);
    ~SClientController() override;

    /*!
     * Moves \a client, which has no parent, to a new thread, connects it there and waits for the
     * outcome; events of the calling thread go on. Gives the client's runner, or null when there is
     * no connection; the client deletes itself then and at its end. With \a autoDelete the runner
     * is deleted after the client has finished, else it lives until this controller ends.
     */
    [[nodiscard]] SSimpleBackgroundRunner *connectClient(SClientBase *client, bool autoDelete);
    /*!
     * As connectClient() without waiting: the client's started() and finished() tell the outcome.
     * Unless \a start is set the caller starts the runner, which is kept until this controller
     * ends.
     */
    SSimpleBackgroundRunner *connectClientAsync(SClientBase *client, bool start);

    //! Number of threads that run.
    int count() const;
    //! Asks every client to end after the exchange it is in.
    void interruptWorkers();

Q_SIGNALS:
    //! A thread has started or ended; \a count is the number that run now.
    void connectionCountChanged(int count);
    //! interruptWorkers() was called.
    void interruptWorkersRequested();

private:
    QNetworkProxy m_proxy;
    ConnectionRunners *m_runners;
};

} // namespace Talverine
