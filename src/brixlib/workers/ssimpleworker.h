// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/workers/simpleworkererror.h>

#include <QtCore/QAtomicInteger>
#include <QtCore/QObject>
#include <QtCore/QVariant>

#include <memory>

class QRecursiveMutex;

namespace Talverine {

/*!
 * Work in small steps in a thread of its own: each call of run() takes one step.
 *
 * Derive from it, implement doWork(), and hand the object to an SSimpleBackgroundRunner, which
 * moves it to its thread, calls init() there and ends the thread on finished(). The default
 * workerInit() takes one step on start; a worker that is driven by another signal (a socket's
 * readyRead(), a timer) overrides workerInit() and connects that signal to run().
 *
 * After finished() the worker takes no further step.
 *
 * Lives in one thread; terminateLater(), userData() and setUserData() may be called from any.
 */
class BRIXLIB_EXPORT SSimpleWorker : public QObject
{
    Q_OBJECT

public:
    explicit SSimpleWorker(QObject *parent = nullptr);
    ~SSimpleWorker() override;

    //! One step of the work; false ends the worker with SimpleWorkerError::WorkError.
    virtual bool doWork() = 0;

    //! A value that the worker carries for its owner and does not look at.
    QVariant userData() const;
    void setUserData(const QVariant &userData);

    //! Waits \a msec milliseconds, none if negative, while the events of the calling thread go on.
    static void sleep(int msec);

public Q_SLOTS:
    /*!
     * Prepares the worker by workerInit(), then started() or finished(InitError). A worker that was
     * told to terminate before reports finished(InterruptRequested) once more after started(), for
     * the thread that was begun for it meanwhile.
     */
    void init();
    /*!
     * Takes one step, unless one is running, the worker is terminating or it has finished: the call
     * is lost then. Before init() it gives finished(InitError).
     */
    void run();
    //! Ends the worker: at once when it is idle, else after the running step.
    void terminateLater();

Q_SIGNALS:
    //! No step follows; from the worker's thread, or from that of terminateLater() when idle.
    void finished(SimpleWorkerError error);
    //! For deriving classes to emit.
    void progress(int percent);
    //! By init(), when the worker can begin.
    void started();

protected:
    //! Called by init(), in the worker's thread; true when the worker can begin.
    virtual bool workerInit();

    //! Called by a step that completes the work; without effect once the thread is interrupted.
    void done();
    bool isInitialized() const;
    //! Whether a step is being taken. It stays true after a step that has finished the worker.
    bool isRunning() const;
    //! Whether the calling thread was asked to stop.
    static bool isInterruptionRequested();

private:
    friend class SCommunicatorBaseRequester;
    friend class SSimpleBackgroundRunner;

    enum RunState : quint32 { Idle = 0, InStep = 1, Terminating = 2 };

    void endStep();

    QVariant m_userData;
    bool m_initialized = false;
    QAtomicInteger<quint32> m_runState = Idle;
    std::unique_ptr<QRecursiveMutex> m_mutex; // guards m_userData and m_terminatePending
    bool m_terminatePending = false;
    bool m_doneFlag = false;
    const std::shared_ptr<class WorkerEnd> m_end;
};

} // namespace Talverine
