// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QObject>

namespace Talverine {

class SCommand;

/*!
 * Commands that wait to be sent, first in, first out. The queue owns what is in it.
 *
 * May be filled from any thread and emptied from another. Signals are emitted in the calling
 * thread, with the lock released, so another thread may already have changed the queue.
 *
 * A copy holds the same pointers, and both queues delete them when they end: a copy may only be
 * made where one of the two is emptied by dequeue() before. The library itself never copies one.
 */
class BRIXLIB_EXPORT SCommandQueue : public QObject
{
    Q_OBJECT

public:
    explicit SCommandQueue(QObject *parent = nullptr);
    //! Without a parent.
    SCommandQueue(const SCommandQueue &other);
    //! Clears the queue.
    ~SCommandQueue() override;
    //! Takes over the pointers of \a other; those held before are forgotten, not deleted.
    SCommandQueue &operator=(const SCommandQueue &other);

    //! Takes ownership. Emits firstEnqueued() if the queue was empty, then enqueued().
    void enqueue(SCommand *command);
    //! Hands the first command to the caller and emits dequeued(). The queue must not be empty.
    SCommand *dequeue();
    //! As dequeue(), but gives null and emits nothing when the queue is empty.
    SCommand *tryDequeue();
    //! Deletes all commands and emits cleared(), also when there were none.
    void clear();

    bool contains(SCommand *command) const;
    //! Takes the pointer out without deleting it; false when it is not there.
    bool removeOne(SCommand *command);
    //! Takes every occurrence of the pointer out without deleting it and gives their number. Takes
    //! no lock: for use while no other thread has the queue.
    qsizetype removeAll(SCommand *command);
    qsizetype size() const;
    bool isEmpty() const;

Q_SIGNALS:
    //! clear() has finished.
    void cleared();
    //! A command was handed out.
    void dequeued();
    //! A command was added.
    void enqueued();
    //! Before enqueued(), when the queue was empty. Threads that race may each see an empty queue.
    void firstEnqueued();

private:
    bool take(SCommand **command);

    mutable QMutex m_mutex;
    QList<SCommand *> m_commands;
};

} // namespace Talverine
