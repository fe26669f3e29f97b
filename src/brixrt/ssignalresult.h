// SPDX-License-Identifier: MIT
#pragma once

#include <brixrt/brixrt_export.h>

#include <QtCore/QObject>

namespace Talverine {

/*!
 * Waits for the first of two events, told by signals, while events go on being handled.
 *
 *     SSignalResult result;
 *     connect(client, &SClientBase::started, &result, &SSignalResult::success);
 *     connect(client, &SClientBase::finished, &result, &SSignalResult::failed);
 *     runner.start();
 *     if (!result.waitResult())
 *         return nullptr;
 *
 * Lives in the thread that waits and is used by no other: a sender that lives in another thread
 * reaches the slots by queued calls.
 */
class BRIXRT_EXPORT SSignalResult : public QObject
{
    Q_OBJECT

public:
    explicit SSignalResult(QObject *parent = nullptr);
    ~SSignalResult() override;

    /*!
     * Blocks, with an event loop of its own, until a slot was called or \a msec milliseconds have
     * passed, and tells whether it was success(). -1 waits without limit; 0 handles what is waiting
     * already. A result that is there already is given at once. False also when the thread is told
     * to quit, and when this object is deleted meanwhile.
     */
    [[nodiscard]] bool waitResult(int msec = -1);

    //! True when the first slot called was success().
    bool succeeded() const;
    //! True once a slot was called.
    bool isFinished() const;
    //! Forgets the result, so that the next call of a slot counts again.
    void reset();

public Q_SLOTS:
    //! Ends the wait with true. Only the first call of a slot has an effect.
    void success();
    //! Ends the wait with false. Only the first call of a slot has an effect.
    void failed();

Q_SIGNALS:
    //! Once, after the first call of a slot; after reset() once again.
    void finished();

private:
    enum class State { Open, Succeeded, Failed };

    void finish(State state);

    State m_state = State::Open;
};

} // namespace Talverine
