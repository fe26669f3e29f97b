// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QSet>

namespace Talverine {

class SSimpleBackgroundRunner;
class SSimpleWorker;

/*!
 * What the controllers of both ends share: the runners of their workers, counted while their
 * threads run. Its end interrupts them all, so that their threads end side by side, and waits.
 */
class ConnectionRunners final : public QObject
{
    Q_OBJECT

public:
    //! \a controller becomes the parent of this and of all runners, and deletes this first.
    explicit ConnectionRunners(QObject *controller);
    ~ConnectionRunners() override;

    //! A runner for \a worker, which is not started yet.
    SSimpleBackgroundRunner *add(SSimpleWorker *worker);
    /*!
     * Starts \a runner and waits, with events going on, until \a worker has begun or finished. Null
     * in the second case: the runner deletes itself then.
     */
    [[nodiscard]] static SSimpleBackgroundRunner *
    start(const QPointer<SSimpleBackgroundRunner> &runner, SSimpleWorker *worker);

    //! Number of threads that run.
    int count() const;
    //! Number of runners that were added and have not finished, whether they have started or not.
    int unfinished() const;

Q_SIGNALS:
    void countChanged(int count);
    //! Interrupts all runners.
    void interrupt();

private:
    void insert(const QObject *runner);
    void remove(const QObject *runner);

    QSet<const QObject *> m_running;
    QSet<const QObject *> m_unfinished;
};

} // namespace Talverine
