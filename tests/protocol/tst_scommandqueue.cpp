// SPDX-License-Identifier: MIT
#include <brixlib/protocol/scommandqueue.h>

#include <brixlib/protocol/sconcretecommand.h>

#include <atomic>

using namespace Talverine;

namespace {

// Counts its objects and carries a number.
class Numbered : public SConcreteCommand<Numbered>
{
public:
    explicit Numbered(int value = 0)
        : SConcreteCommand(Wire::word("numb"))
        , number(value)
    {
        ++alive;
    }
    Numbered(const Numbered &other)
        : SConcreteCommand(other)
        , number(other.number)
    {
        ++alive;
    }
    Numbered &operator=(const Numbered &) = default;
    ~Numbered() override { --alive; }

    int number;
    static inline std::atomic<int> alive = 0;
};

int takenNumber(SCommandQueue &queue)
{
    const std::unique_ptr<SCommand> command(queue.dequeue());
    return static_cast<const Numbered &>(*command).number;
}

// Writes down the names of a queue's signals in the order of emission. A queue that outlives its
// log speaks once more when it ends, to nobody.
class SignalLog
{
public:
    explicit SignalLog(SCommandQueue &queue)
    {
        listen(queue, &SCommandQueue::cleared, "cleared");
        listen(queue, &SCommandQueue::dequeued, "dequeued");
        listen(queue, &SCommandQueue::enqueued, "enqueued");
        listen(queue, &SCommandQueue::firstEnqueued, "firstEnqueued");
    }

    QList<QByteArray> taken() { return std::exchange(m_names, {}); }

private:
    void listen(SCommandQueue &queue, void (SCommandQueue::*signal)(), const char *name)
    {
        QObject::connect(&queue, signal, &m_context, [this, name] { m_names.append(name); });
    }

    QList<QByteArray> m_names;
    QObject m_context;
};

using Names = QList<QByteArray>;

} // namespace

class tst_SCommandQueue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { QCOMPARE(Numbered::alive.load(), 0); }

    void freshQueueIsEmpty()
    {
        QObject parent;
        auto *queue = new SCommandQueue(&parent);
        QCOMPARE(queue->parent(), &parent);
        QVERIFY(queue->isEmpty());
        QCOMPARE(queue->size(), 0);
    }

    void firstInFirstOut()
    {
        SCommandQueue queue;
        for (int i = 0; i < 5; ++i)
            queue.enqueue(new Numbered(i));
        QCOMPARE(queue.size(), 5);
        for (int i = 0; i < 5; ++i)
            QCOMPARE(takenNumber(queue), i);
        QVERIFY(queue.isEmpty());
    }

    void enqueueSpeaksOfTheFirstBeforeTheRest()
    {
        SCommandQueue queue;
        SignalLog log(queue);
        queue.enqueue(new Numbered);
        QCOMPARE(log.taken(), (Names{"firstEnqueued", "enqueued"}));
        queue.enqueue(new Numbered);
        QCOMPARE(log.taken(), Names{"enqueued"});
        takenNumber(queue);
        takenNumber(queue);
        QCOMPARE(log.taken(), (Names{"dequeued", "dequeued"}));
        queue.enqueue(new Numbered);
        QCOMPARE(log.taken(), (Names{"firstEnqueued", "enqueued"}));
    }

    void tryDequeueOnAnEmptyQueueEmitsNothing()
    {
        SCommandQueue queue;
        SignalLog log(queue);
        QVERIFY(!queue.tryDequeue());
        QVERIFY(log.taken().isEmpty());
    }

    void tryDequeueHandsOutTheFirst()
    {
        SCommandQueue queue;
        auto *command = new Numbered(1);
        queue.enqueue(command);
        SignalLog log(queue);
        const std::unique_ptr<SCommand> taken(queue.tryDequeue());
        QCOMPARE(taken.get(), command);
        QCOMPARE(log.taken(), Names{"dequeued"});
    }

    void clearOnAnEmptyQueueSpeaksOnce()
    {
        SCommandQueue queue;
        SignalLog log(queue);
        queue.clear();
        QCOMPARE(log.taken(), Names{"cleared"});
    }

    void clearDeletesAllAndSpeaksOnce()
    {
        SCommandQueue queue;
        for (int i = 0; i < 3; ++i)
            queue.enqueue(new Numbered(i));
        SignalLog log(queue);
        queue.clear();
        QCOMPARE(Numbered::alive.load(), 0);
        QVERIFY(queue.isEmpty());
        QCOMPARE(log.taken(), Names{"cleared"});
    }

    void destructorClears()
    {
        auto queue = std::make_unique<SCommandQueue>();
        queue->enqueue(new Numbered);
        QSignalSpy cleared(queue.get(), &SCommandQueue::cleared);
        queue.reset();
        QCOMPARE(cleared.size(), 1);
        QCOMPARE(Numbered::alive.load(), 0);
    }

    void commandsAreFoundAndTakenOutByPointer()
    {
        SCommandQueue queue;
        auto *command = new Numbered(1);
        const auto twin = std::make_unique<Numbered>(1);
        queue.enqueue(command);
        queue.enqueue(new Numbered(2));
        SignalLog log(queue);
        QVERIFY(queue.contains(command));
        QVERIFY(!queue.contains(twin.get()));
        QVERIFY(!queue.removeOne(twin.get()));
        QVERIFY(queue.removeOne(command));
        QVERIFY(!queue.contains(command));
        QVERIFY(!queue.removeOne(command));
        QCOMPARE(queue.size(), 1);
        QVERIFY(log.taken().isEmpty());
        QCOMPARE(Numbered::alive.load(), 3);
        delete command;
    }

    void removeAllCountsEveryOccurrence()
    {
        SCommandQueue queue;
        const auto command = std::make_unique<Numbered>(1);
        queue.enqueue(command.get());
        queue.enqueue(new Numbered(2));
        queue.enqueue(command.get());
        QCOMPARE(queue.removeAll(command.get()), 2);
        QCOMPARE(queue.removeAll(command.get()), 0);
        QCOMPARE(queue.size(), 1);
    }

    void copiesHoldTheSamePointers()
    {
        SCommandQueue queue;
        auto *first = new Numbered(1);
        auto *second = new Numbered(2);
        queue.enqueue(first);
        queue.enqueue(second);

        SCommandQueue copy(queue);
        SCommandQueue assigned;
        assigned = queue;
        for (SCommandQueue *other : {&copy, &assigned}) {
            QCOMPARE(other->dequeue(), first);
            QCOMPARE(other->dequeue(), second);
            QVERIFY(other->isEmpty());
        }
        QCOMPARE(queue.size(), 2);
    }

    void copyIsEmptiedWhileTheQueueIsFilled()
    {
        constexpr int count = 2000;
        Numbered command;
        SCommandQueue queue;
        queue.enqueue(&command);
        int missing = 0;
        const std::unique_ptr<QThread> reader(QThread::create([&] {
            for (int i = 0; i < count; ++i) {
                SCommandQueue copy(queue);
                if (copy.dequeue() != &command)
                    ++missing;
                while (copy.tryDequeue()) {
                }
            }
        }));
        reader->start();
        for (int i = 0; i < count; ++i) {
            queue.enqueue(&command);
            queue.removeOne(&command);
        }
        QVERIFY(reader->wait(60000));
        QCOMPARE(missing, 0);
        QCOMPARE(queue.dequeue(), &command);
        QVERIFY(queue.isEmpty());
    }

    void assigningToItselfChangesNothing()
    {
        SCommandQueue queue;
        queue.enqueue(new Numbered(1));
        SCommandQueue &same = queue;
        queue = same;
        QCOMPARE(queue.size(), 1);
    }

    void signalsComeWithTheLockReleased()
    {
        // The queue speaks once more when it ends.
        QList<qsizetype> sizes;
        SCommandQueue queue;
        const auto look = [&] { sizes.append(queue.size()); };
        connect(&queue, &SCommandQueue::firstEnqueued, this, look);
        connect(&queue, &SCommandQueue::enqueued, this, look);
        connect(&queue, &SCommandQueue::dequeued, this, look);
        connect(&queue, &SCommandQueue::cleared, this, look);
        queue.enqueue(new Numbered);
        takenNumber(queue);
        queue.clear();
        QCOMPARE(sizes, (QList<qsizetype>{1, 1, 0, 0}));
    }

    void oneThreadFillsWhileAnotherEmpties()
    {
        constexpr int count = 20000;
        SCommandQueue queue;
        std::atomic<int> enqueued = 0;
        std::atomic<int> dequeued = 0;
        connect(
            &queue, &SCommandQueue::enqueued, this, [&] { ++enqueued; }, Qt::DirectConnection);
        connect(
            &queue, &SCommandQueue::dequeued, this, [&] { ++dequeued; }, Qt::DirectConnection);

        const std::unique_ptr<QThread> producer(QThread::create([&] {
            for (int i = 0; i < count; ++i)
                queue.enqueue(new Numbered(i));
        }));
        producer->start();

        QDeadlineTimer deadline(60000);
        int next = 0;
        while (next < count && !deadline.hasExpired()) {
            const std::unique_ptr<SCommand> command(queue.tryDequeue());
            if (command) {
                QCOMPARE(static_cast<const Numbered &>(*command).number, next);
                ++next;
            }
        }
        QVERIFY(producer->wait(60000));
        QCOMPARE(next, count);
        QCOMPARE(enqueued.load(), count);
        QCOMPARE(dequeued.load(), count);
    }

    void everyCommandLeavesOnceHoweverItIsTaken()
    {
        constexpr int count = 5000;
        SCommandQueue queue;
        std::atomic<bool> finished = false;
        const std::unique_ptr<QThread> cleaner(QThread::create([&] {
            while (!finished)
                queue.clear();
        }));
        const std::unique_ptr<QThread> reader(QThread::create([&] {
            while (!finished)
                delete queue.tryDequeue();
        }));
        cleaner->start();
        reader->start();
        for (int i = 0; i < count; ++i)
            queue.enqueue(new Numbered(i));
        finished = true;
        QVERIFY(cleaner->wait(60000));
        QVERIFY(reader->wait(60000));
        queue.clear();
        QCOMPARE(Numbered::alive.load(), 0);
    }
};

QTEST_APPLESS_MAIN(tst_SCommandQueue)
#include "tst_scommandqueue.moc"
