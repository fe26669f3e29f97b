// SPDX-License-Identifier: MIT
#pragma once

#include <fileservice/filesession.h>
#include <shared/faultproxy.h>

#include <QtCore/QMap>

#include <functional>

/*!
 * A file server with a proxy before it, on which one session after the other is played, each cut at
 * another byte, and the outcome of each held against what must be true after every cut.
 *
 *     CutStage stage;
 *     CutStage::Whole whole;
 *     QCOMPARE(stage.playWhole(scene, &whole), QString());
 *     for (qint64 at = 0; at <= whole.toServer; ++at)
 *         QCOMPARE(stage.playCut(scene, whole, {.toServer = true, .at = at}), QString());
 */
class CutStage
{
public:
    //! What lies in the folders of both ends: the contents by path. Folders end in "/".
    using Tree = QMap<QString, QByteArray>;

    struct Cut;
    struct Whole;

    //! What a session does once it is connected and has sent its login.
    struct Scene
    {
        //! Fills the folders of the server's user and of the client, which are empty before.
        std::function<void(const QString &home, const QString &folder)> prepare = {};
        //! Queues commands, in the client's thread.
        std::function<void(JailedClient &client)> act = {};
        //! How many exchanges that makes.
        int exchanges = 0;
        //! Whether a cut may leave an empty file with the client.
        std::function<bool(const Whole &whole, const Cut &cut)> mayEmptyFiles = {};
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

    //! Where a session is cut.
    struct Cut
    {
        bool toServer = true;
        qint64 at = 0;
        FlowFault fault = FlowFault::Reset;

        //! A cut that is a reset or a close, so mixed that both meet all parts of a word.
        static Cut mixed(bool toServer, qint64 at)
        {
            const bool resets = ((at ^ at >> 2 ^ (toServer ? 1 : 0)) & 1) != 0;
            return {toServer, at, resets ? FlowFault::Reset : FlowFault::Close};
        }
    };

    //! Plays \a scene without a fault. The text tells what went wrong.
    QString playWhole(const Scene &scene, Whole *whole);
    /*!
     * Plays \a scene with a cut. The text tells what is wrong; it is empty when
     * - the worker of the client and the session of the server have ended long before a time-out,
     *   and all their threads and descriptors are gone;
     * - the exchanges that came before the cut have succeeded, and no other one has;
     * - each file is as it was, or as it is after the whole scene, and no other file is there,
     *   except for what mayEmptyFiles() allows.
     */
    QString playCut(const Scene &scene, const Whole &whole, const Cut &cut);

    FileServer &server() { return m_server; }

    //! How many cuts were played, and how long the slowest took from the connection to the rest.
    int cuts() const { return m_cuts; }
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
    bool waitForEnd(FileClient *client, size_t connection);
    QString leftovers();
    Tree trees(const FileClient &client) const;

    FileServer m_server;
    FaultProxy m_proxy{m_server.port()};
    qsizetype m_descriptors = -1; // at rest
    qsizetype m_threads = -1;
    int m_cuts = 0;
    qint64 m_slowestMs = 0;
};
