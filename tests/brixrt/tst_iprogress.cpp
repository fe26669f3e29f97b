// SPDX-License-Identifier: MIT
#include <brixrt/iprogress.h>

#include <atomic>
#include <limits>
#include <thread>
#include <vector>

using namespace Talverine;

namespace {

class Progress : public Interfaces::IProgress
{
public:
    using IProgress::childProgresses;
};

// Counts what reaches it, and proves that no lock is held above while it is called.
class Child : public Interfaces::IProgress
{
public:
    explicit Child(const Interfaces::IProgress *parent = nullptr)
        : m_parent(parent)
    {
    }

    void reset() override
    {
        ++resets;
        look();
        IProgress::reset();
    }
    void abort() override
    {
        ++aborts;
        look();
        IProgress::abort();
    }
    void setProgress(int percent) override
    {
        ++sets;
        look();
        IProgress::setProgress(percent);
    }

    int resets = 0;
    int aborts = 0;
    int sets = 0;

private:
    // Would block for ever under the parent's lock.
    void look() const
    {
        if (m_parent)
            m_parent->isAbortRequested();
    }

    const Interfaces::IProgress *m_parent;
};

} // namespace

class tst_IProgress : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshProgressIsZeroAndNotAborted()
    {
        const Progress progress;
        QCOMPARE(progress.progress(), 0);
        QVERIFY(!progress.isAbortRequested());
        QVERIFY(progress.childProgresses().isEmpty());
    }

    void valueIsKeptAsItWasSet_data()
    {
        QTest::addColumn<int>("percent");
        QTest::newRow("none") << 0;
        QTest::newRow("half") << 50;
        QTest::newRow("all") << 100;
        QTest::newRow("above") << 101;
        QTest::newRow("negative") << -1;
        QTest::newRow("largest") << std::numeric_limits<int>::max();
        QTest::newRow("smallest") << std::numeric_limits<int>::min();
    }
    void valueIsKeptAsItWasSet()
    {
        QFETCH(int, percent);
        Progress progress;
        progress.setProgress(percent);
        QCOMPARE(progress.progress(), percent);
    }

    void resetClearsProgressAndAbort()
    {
        Progress progress;
        progress.setProgress(40);
        progress.abort();
        QVERIFY(progress.isAbortRequested());
        QCOMPARE(progress.progress(), 40);
        progress.reset();
        QVERIFY(!progress.isAbortRequested());
        QCOMPARE(progress.progress(), 0);
    }

    void childrenFollow()
    {
        Progress progress;
        Child child(&progress);
        Child grandchild(&child);
        progress.addChild(&child);
        child.addChild(&grandchild);

        progress.setProgress(30);
        QCOMPARE(child.progress(), 30);
        QCOMPARE(grandchild.progress(), 30);
        progress.abort();
        QVERIFY(child.isAbortRequested());
        QVERIFY(grandchild.isAbortRequested());
        progress.reset();
        QVERIFY(!child.isAbortRequested());
        QVERIFY(!grandchild.isAbortRequested());
        QCOMPARE(grandchild.progress(), 0);
        QCOMPARE(grandchild.resets, 1);
    }

    void childWithThatValueIsNotSetAgain()
    {
        Progress progress;
        Child child;
        progress.addChild(&child);
        progress.setProgress(10);
        progress.setProgress(10);
        QCOMPARE(child.sets, 1);
        child.setProgress(20);
        progress.setProgress(20);
        QCOMPARE(child.sets, 2);
    }

    void childIsAbortedOnce()
    {
        Progress progress;
        Child child;
        progress.addChild(&child);
        progress.abort();
        progress.abort();
        QCOMPARE(child.aborts, 1);
    }

    void childDoesNotReachItsParent()
    {
        Progress progress;
        Child child;
        progress.addChild(&child);
        child.setProgress(70);
        child.abort();
        QCOMPARE(progress.progress(), 0);
        QVERIFY(!progress.isAbortRequested());
    }

    void childIsAddedOnce()
    {
        Progress progress;
        Child child;
        progress.addChild(&child);
        progress.addChild(&child);
        progress.addChild(nullptr);
        progress.addChild(&progress);
        QCOMPARE(progress.childProgresses(), QList<Interfaces::IProgress *>{&child});
        progress.reset();
        QCOMPARE(child.resets, 1);
    }

    void removedChildIsLeftAlone()
    {
        Progress progress;
        Child child;
        Child other;
        progress.addChild(&child);
        progress.removeChild(&other);
        progress.removeChild(nullptr);
        progress.removeChild(&child);
        progress.setProgress(5);
        progress.abort();
        progress.reset();
        QCOMPARE(child.sets + child.aborts + child.resets, 0);
    }

    void threadsShareOneProgress()
    {
        Progress progress;
        Progress child;
        progress.addChild(&child);
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([&progress, thread] {
                for (int round = 0; round < 2000; ++round) {
                    progress.setProgress(thread);
                    const int seen = progress.progress();
                    if (seen < 0 || seen > 3)
                        qFatal("a value that nobody set");
                    if (thread == 0)
                        progress.abort();
                }
            });
        }
        threads.emplace_back([&progress] {
            for (int round = 0; round < 2000; ++round) {
                Progress passing;
                progress.childProgresses();
                progress.isAbortRequested();
            }
        });
        for (std::thread &thread : threads)
            thread.join();
        QVERIFY(progress.isAbortRequested());
        QVERIFY(child.isAbortRequested());
    }

    void childrenThatOneThreadHasLookedAtMayGoInAnother()
    {
        Progress progress;
        Progress first;
        Progress goes;
        Progress last;
        for (Progress *child : {&first, &goes, &last})
            progress.addChild(child);
        std::atomic_bool looked = false;
        std::thread look([&] {
            if (progress.childProgresses().count(&last) != 1)
                qFatal("a child is missing");
            // Orders nothing: the lock alone is to keep the threads apart.
            looked.store(true, std::memory_order_relaxed);
        });
        while (!looked.load(std::memory_order_relaxed))
            std::this_thread::yield();
        progress.removeChild(&goes);
        look.join();
        QCOMPARE(progress.childProgresses(), (QList<Interfaces::IProgress *>{&first, &last}));
    }
};

QTEST_APPLESS_MAIN(tst_IProgress)
#include "tst_iprogress.moc"
