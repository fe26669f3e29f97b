// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/foundation/interfaces.h>

#include <QtCore/QObject>
#include <QtCore/QQueue>
#include <QtCore/QVariant>

namespace Talverine {

/*!
 * A first-in, first-out queue of values that tells of what goes in and out.
 *
 * Values are compared as QVariant does. It has no lock: it belongs to one thread.
 */
class BRIXLIB_EXPORT SGenericQueue : public QObject,
                                     public Interfaces::ICloneable,
                                     public Interfaces::IEquatable
{
    Q_OBJECT

public:
    explicit SGenericQueue(QObject *parent = nullptr);
    ~SGenericQueue() override;

    void enqueue(const QVariant &value);
    //! Appends \a value unless an equal one is in the queue.
    void enqueueUnique(const QVariant &value);
    //! Takes the head; the queue must not be empty.
    QVariant dequeue();
    //! Takes the head; false on an empty queue, which leaves \a value as it was.
    [[nodiscard]] bool tryDequeue(QVariant &value);
    //! Copies the head; false on an empty queue, which leaves \a value as it was.
    [[nodiscard]] bool tryHead(QVariant &value) const;

    bool contains(const QVariant &value) const;
    //! The number of values removed, without a signal.
    qsizetype removeAll(const QVariant &value);
    //! Removes the first equal value without a signal; false when there is none.
    bool removeOne(const QVariant &value);
    //! Empties the queue; emits cleared() also when it was empty.
    void clear();

    bool isEmpty() const;
    qsizetype size() const;
    //! The values, the head first.
    const QQueue<QVariant> &data() const;
    //! The values themselves; changes go without a signal.
    QQueue<QVariant> &data();
    //! A copy of the values, the head first.
    QQueue<QVariant> toQueue() const;
    //! Exchanges the values with those of \a other, without a signal.
    void swap(QQueue<QVariant> &other);

    //! A queue of the same values without a parent.
    SGenericQueue *clone() const override;
    //! As isEmpty().
    bool isNull() const override;
    bool equalsTo(const Interfaces::IEquatable *other) const override;

Q_SIGNALS:
    void cleared();
    void dequeued();
    void enqueued();

protected:
    SGenericQueue(const SGenericQueue &other);
    SGenericQueue &operator=(const SGenericQueue &other);
    bool operator==(const SGenericQueue &other) const;
    bool operator!=(const SGenericQueue &other) const;

private:
    QQueue<QVariant> m_queue;
};

} // namespace Talverine
