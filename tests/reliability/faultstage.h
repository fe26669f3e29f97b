// SPDX-License-Identifier: MIT
#pragma once

#include <fileservice/filesession.h>
#include <shared/faultproxy.h>
#include <shared/processfacts.h>

#include <QtCore/QMap>

#include <functional>

/*!
 * A file server with a proxy before it, on which one session after the other is played, each with a
 * fault in another place, and the outcome of each held against what must be true after every fault.
 *
 *     FaultStage stage;
 *     FaultStage::Whole whole;
 *     QCOMPARE(stage.playWhole(scene, &whole), QString());
 *     for (qint64 at = 0; at <= whole.toServer; ++at)
 *         QCOMPARE(stage.playFault(scene, whole, {.toServer = true, .at = at}), QString());
 *
 * Each play is a new connection, and so also shows that the fault before did the server no harm.
 */
class FaultStage
{
public:
    //! What lies in the folders of both ends: the contents by path. Folders end in "/".
    using Tree = QMap<QString, QByteArray>;

    struct Fault;
    struct Whole;

    //! What a session does.
    struct Scene
    {
        //! Fills the folders of the server's user and of the client, which are empty before.
        std::function<void(const QString &home, const QString &folder)> prepare = {};
        //! Queues commands once the client is connected and has sent its login; in its thread.
        std::function<void(JailedClient &client)> act = {};
        //! How many exchanges that makes.
        int exchanges = 0;
        /*!
         * Instead of a client and act: a whole session with the server at a port, in a thread of
         * its own. Gives a text for each step, which ends in " true" or " false".
         */
        std::function<QStringList(quint16 port, int timeoutMs)> drive = {};
    };

    //! How a scene goes when nothing disturbs it.
    struct Whole
    {
        qint64 toServer = 0; //!< all bytes of the session
        qint64 toClient = 0;
        QStringList results;
        Tree before;
        Tree after;
    };

    //! Where a session is disturbed, and how.
    struct Fault
    {
        bool toServer = true;
        qint64 at = 0;
        FlowFault kind = FlowFault::Reset;
    };

    //! Plays \a scene without a fault. The text tells what went wrong.
    QString playWhole(const Scene &scene, Whole *whole);
    //! Plays \a scene under a plan that disturbs but does not break; all must go as in \a whole.
    QString playUnder(const Scene &scene, const Whole &whole, const ConnectionPlan &plan);
    /*!
     * Plays \a scene with a fault that breaks it. The text tells what is wrong; it is empty when
     * - the client's worker and the server's session have ended in time, and all their threads and
     *   descriptors are gone: after a cut, long before a time-out; after a stall, a few time-outs
     *   later for the client, and no later than the connection for the server;
     * - the exchanges that came before the fault have succeeded, and no other one has;
     * - each file is as it was, or as it is after the whole scene, and no other file is there.
     */
    QString playFault(const Scene &scene, const Whole &whole, const Fault &fault);

    /*!
     * Plays \a scene as a whole, with a cut at each of its bytes behind those of \a first in both
     * directions, and as a whole again. The text tells what went wrong first.
     */
    QString playCuts(const Scene &scene, const Whole &first, Whole *whole);

    FileServer &server() { return m_server; }

    //! The time-outs of both ends in the plays to come; 10 s at first.
    void setTimeouts(int clientMs, int serverMs);

    //! How many faults were played, and how long the slowest took from the connection to the rest.
    int faults() const { return m_faults; }
    qint64 slowestMs() const { return m_slowestMs; }

private:
    struct Outcome
    {
        FaultProxy::Record record;
        QStringList results;
        Tree tree;
        qint64 tookMs = 0;
        QString problem;
    };

    Outcome play(const Scene &scene, const ConnectionPlan &plan, Tree *before = nullptr);
    QStringList playClient(const Scene &scene, FileClient *client);
    QStringList playDrive(const Scene &scene);
    bool waitForRest(size_t connection);
    bool takesTooLong(qint64 msec, FlowFault kind) const;
    QString leftovers();
    Tree trees(const QString &folder) const;

    FileServer m_server;
    FaultProxy m_proxy{m_server.port()};
    int m_timeoutMs = 10000;
    const qsizetype m_descriptors = ProcessFacts::descriptors(); // at rest
    const qsizetype m_threads = ProcessFacts::threads();
    int m_faults = 0;
    qint64 m_slowestMs = 0;
};
