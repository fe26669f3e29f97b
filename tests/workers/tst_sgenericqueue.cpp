// SPDX-License-Identifier: MIT
#include <brixlib/workers/sgenericqueue.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

struct Spies
{
    explicit Spies(SGenericQueue *queue)
        : cleared(queue, &SGenericQueue::cleared)
        , dequeued(queue, &SGenericQueue::dequeued)
        , enqueued(queue, &SGenericQueue::enqueued)
    {
    }

    QList<qsizetype> counts() const
    {
        return {cleared.count(), dequeued.count(), enqueued.count()};
    }

    QSignalSpy cleared;
    QSignalSpy dequeued;
    QSignalSpy enqueued;
};

const QList<qsizetype> kSilence{0, 0, 0};

//! Opens what is protected.
class OpenQueue : public SGenericQueue
{
public:
    OpenQueue() = default;
    OpenQueue(const OpenQueue &other)
        : SGenericQueue(other)
    {
    }
    using SGenericQueue::operator=;
    using SGenericQueue::operator==;
    using SGenericQueue::operator!=;
};

} // namespace

class tst_SGenericQueue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshQueueIsEmpty()
    {
        const SGenericQueue queue;
        QVERIFY(queue.isEmpty());
        QVERIFY(queue.isNull());
        QCOMPARE(queue.size(), 0);
        QVERIFY(queue.data().isEmpty());
        QVERIFY(queue.toQueue().isEmpty());
    }

    void firstInIsFirstOut()
    {
        SGenericQueue queue;
        Spies spies(&queue);
        queue.enqueue(1);
        queue.enqueue(u"two"_s);
        queue.enqueue(1);
        QCOMPARE(spies.counts(), (QList<qsizetype>{0, 0, 3}));
        QCOMPARE(queue.size(), 3);
        QVERIFY(!queue.isNull());
        QCOMPARE(queue.dequeue(), QVariant(1));
        QCOMPARE(queue.dequeue(), QVariant(u"two"_s));
        QCOMPARE(queue.dequeue(), QVariant(1));
        QCOMPARE(spies.counts(), (QList<qsizetype>{0, 3, 3}));
        QVERIFY(queue.isEmpty());
    }

    void enqueuedComesAfterTheValueIsIn()
    {
        SGenericQueue queue;
        qsizetype seen = -1;
        connect(&queue, &SGenericQueue::enqueued, this, [&] { seen = queue.size(); });
        queue.enqueue(1);
        QCOMPARE(seen, 1);
    }

    void enqueueUniqueOfAnEqualValueEmitsNothing()
    {
        SGenericQueue queue;
        Spies spies(&queue);
        queue.enqueueUnique(5);
        QCOMPARE(spies.counts(), (QList<qsizetype>{0, 0, 1}));
        queue.enqueueUnique(5);
        QCOMPARE(spies.counts(), (QList<qsizetype>{0, 0, 1}));
        QCOMPARE(queue.size(), 1);
        queue.enqueueUnique(6);
        QCOMPARE(spies.counts(), (QList<qsizetype>{0, 0, 2}));
        QCOMPARE(queue.size(), 2);
    }

    void tryDequeueOfAnEmptyQueueLeavesTheOutput()
    {
        SGenericQueue queue;
        Spies spies(&queue);
        QVariant value(u"kept"_s);
        QVERIFY(!queue.tryDequeue(value));
        QCOMPARE(value.toString(), u"kept"_s);
        QCOMPARE(spies.counts(), kSilence);
    }

    void tryDequeueTakesTheHead()
    {
        SGenericQueue queue;
        queue.enqueue(7);
        Spies spies(&queue);
        QVariant value;
        QVERIFY(queue.tryDequeue(value));
        QCOMPARE(value, QVariant(7));
        QVERIFY(queue.isEmpty());
        QCOMPARE(spies.counts(), (QList<qsizetype>{0, 1, 0}));
    }

    void tryHeadOfAnEmptyQueueLeavesTheOutput()
    {
        const SGenericQueue queue;
        QVariant value(u"kept"_s);
        QVERIFY(!queue.tryHead(value));
        QCOMPARE(value.toString(), u"kept"_s);
    }

    void tryHeadDoesNotRemove()
    {
        SGenericQueue queue;
        queue.enqueue(7);
        queue.enqueue(8);
        Spies spies(&queue);
        QVariant value;
        QVERIFY(queue.tryHead(value));
        QCOMPARE(value, QVariant(7));
        QCOMPARE(queue.size(), 2);
        QCOMPARE(spies.counts(), kSilence);
    }

    void removalIsByEqualityAndSilent()
    {
        SGenericQueue queue;
        for (int value : {1, 2, 1, 3, 1})
            queue.enqueue(value);
        Spies spies(&queue);
        QVERIFY(queue.contains(1));
        QVERIFY(queue.removeOne(1));
        QCOMPARE(queue.toQueue().first(), QVariant(2));
        QCOMPARE(queue.removeAll(1), 2);
        QCOMPARE(queue.removeAll(1), 0);
        QVERIFY(!queue.removeOne(1));
        QVERIFY(!queue.contains(1));
        QCOMPARE(queue.size(), 2);
        QCOMPARE(spies.counts(), kSilence);
    }

    void clearAlwaysTells()
    {
        SGenericQueue queue;
        queue.enqueue(1);
        Spies spies(&queue);
        queue.clear();
        QVERIFY(queue.isEmpty());
        QCOMPARE(spies.counts(), (QList<qsizetype>{1, 0, 0}));
        queue.clear();
        QCOMPARE(spies.counts(), (QList<qsizetype>{2, 0, 0}));
    }

    void swapExchangesSilently()
    {
        SGenericQueue queue;
        queue.enqueue(1);
        Spies spies(&queue);
        QQueue<QVariant> other;
        other << 2 << 3;
        queue.swap(other);
        QCOMPARE(queue.size(), 2);
        QCOMPARE(queue.data().head(), QVariant(2));
        QCOMPARE(other.size(), 1);
        QCOMPARE(other.head(), QVariant(1));
        QCOMPARE(spies.counts(), kSilence);
    }

    void dataMayBeChangedInPlace()
    {
        SGenericQueue queue;
        queue.data().enqueue(4);
        QCOMPARE(queue.size(), 1);
        QQueue<QVariant> copy = queue.toQueue();
        copy.clear();
        QCOMPARE(queue.size(), 1);
    }

    void cloneHasTheValuesAndNoParent()
    {
        QObject parent;
        SGenericQueue queue(&parent);
        queue.enqueue(1);
        queue.enqueue(2);
        const Interfaces::ICloneable &cloneable = queue;
        const std::unique_ptr<Interfaces::ICloneable> copy(cloneable.clone());
        auto *clone = dynamic_cast<SGenericQueue *>(copy.get());
        QVERIFY(clone);
        QCOMPARE(clone->parent(), nullptr);
        QVERIFY(clone->equalsTo(&queue));
        clone->enqueue(3);
        QCOMPARE(queue.size(), 2);
    }

    void equalityNeedsTheSameTypeValuesAndOrder()
    {
        SGenericQueue queue;
        queue.enqueue(1);
        queue.enqueue(2);
        SGenericQueue same;
        same.enqueue(1);
        same.enqueue(2);
        SGenericQueue turned;
        turned.enqueue(2);
        turned.enqueue(1);
        SGenericQueue shorter;
        shorter.enqueue(1);
        OpenQueue derived;
        derived.enqueue(1);
        derived.enqueue(2);

        QVERIFY(queue.equalsTo(&queue));
        QVERIFY(queue.equalsTo(&same));
        QVERIFY(!queue.equalsTo(&turned));
        QVERIFY(!queue.equalsTo(&shorter));
        QVERIFY(!queue.equalsTo(&derived));
        QVERIFY(!queue.equalsTo(nullptr));
    }

    void derivedClassesCopyAndCompare()
    {
        OpenQueue queue;
        queue.enqueue(1);
        const OpenQueue copy(queue);
        QVERIFY(copy == queue);
        OpenQueue assigned;
        QVERIFY(assigned != queue);
        assigned = static_cast<const SGenericQueue &>(queue);
        QVERIFY(assigned == queue);
        assigned = static_cast<const SGenericQueue &>(assigned);
        QCOMPARE(assigned.size(), 1);
    }
};

QTEST_APPLESS_MAIN(tst_SGenericQueue)
#include "tst_sgenericqueue.moc"
