// SPDX-License-Identifier: MIT
#pragma once

#include "answer.h"

#include <brixlib/protocol/scommandid.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QMutex>
#include <QtCore/QObject>

#include <memory>
#include <vector>

namespace Talverine {
class SClientFtp;
}

namespace Brix {

//! A command that has ended.
struct EndedCommand
{
    Talverine::SCommandId id;
    bool succeeded = false; //!< the exchange is complete
    Answer answer;
};

//! Ended commands in their order, on the way from the thread of the client to that of its user.
class EndedCommands final
{
public:
    //! Whether it is time to take(): a batch is complete, or the last taking was a while ago.
    bool add(EndedCommand ended);
    std::vector<EndedCommand> take();

private:
    QMutex m_mutex; // guards what follows
    std::vector<EndedCommand> m_ended;
    QElapsedTimer m_sinceTaken;
};

/*!
 * Gathers what a client's signals tell of one command after the other, in the client's own thread,
 * and hands the ended commands over in batches. Each event that crosses threads wakes one, and for
 * a small file that would cost more than the file.
 *
 * Thread: belongs to the client, as its child.
 */
class AnswerCollector final : public QObject
{
    Q_OBJECT

public:
    //! To be made before \a client runs.
    AnswerCollector(Talverine::SClientFtp *client, std::shared_ptr<EndedCommands> ended);

Q_SIGNALS:
    //! There is something to take: the client has nothing left to do, a batch is complete, a
    //! command has failed, or the last taking was a while ago.
    void ready();
    //! A transfer or link test that is under way has moved so many bytes; at most ten times a
    //! second.
    void transferred(qint64 done, qint64 total);

private:
    void listenToResults(Talverine::SClientFtp *client);
    void listenToTransfers(Talverine::SClientFtp *client);
    template<typename Signal, typename Slot>
    void listen(Talverine::SClientFtp *client, Signal signal, Slot slot);
    void onTransferred(qint64 done, qint64 total);
    void onEnded(Talverine::SCommandId id, bool succeeded);

    Answer m_answer;
    QElapsedTimer m_sinceTransferred;
    const std::shared_ptr<EndedCommands> m_ended;
};

} // namespace Brix
