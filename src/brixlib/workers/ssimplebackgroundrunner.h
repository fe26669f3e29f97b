// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QThread>

#include <climits>

namespace Talverine {

class SSimpleWorker;

/*!
 * Runs one SSimpleWorker in a thread of its own and owns the worker's end.
 *
 *     auto *runner = new SSimpleBackgroundRunner(new Indexer, this);
 *     connect(runner, &SSimpleBackgroundRunner::finished, runner, &QObject::deleteLater);
 *     runner->start();
 *
 * The thread ends when the worker finishes, and the worker is deleted there. A runner serves one
 * worker only. Lives in one thread, which is not the worker's.
 */
class BRIXLIB_EXPORT SSimpleBackgroundRunner : public QObject
{
    Q_OBJECT

public:
    //! Moves \a worker, which should have no parent, to the runner's thread, which start() starts.
    //! A worker that has a parent is taken from it, with a line in the debug log.
    explicit SSimpleBackgroundRunner(SSimpleWorker *worker, QObject *parent = nullptr);
    //! Interrupts the worker and waits for its thread, however long that takes.
    ~SSimpleBackgroundRunner() override;

    /*!
     * Starts the thread; does nothing when it was started before. When the system has no thread to
     * give, the worker finishes with SimpleWorkerError::InitError and is deleted, and the runner
     * finishes without having started.
     */
    void start(QThread::Priority priority = QThread::InheritPriority);
    bool isRunning() const;
    //! Asks the thread to stop and the worker to terminate; does not wait.
    void requestInterruption();
    //! Blocks until the thread has ended; false when \a msec milliseconds have passed before.
    bool waitForFinished(unsigned long msec = ULONG_MAX);

Q_SIGNALS:
    //! The thread is ending; the worker, which dies in it, is gone after waitForFinished().
    void finished();
    //! Tells the worker to terminate.
    void interrupt();
    //! The thread has started.
    void started();

private:
    void giveUp();
    bool setWorker(SSimpleWorker *worker);

    QThread *m_thread;
    QPointer<SSimpleWorker> m_worker;
};

} // namespace Talverine
