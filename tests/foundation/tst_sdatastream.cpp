// SPDX-License-Identifier: MIT
#include <brixlib/foundation/sdatastream.h>

#include <QtCore/QSemaphore>

#include <functional>
#include <optional>
#include <thread>
#include <vector>

using namespace Talverine;

namespace {

//! A thread whose object may be started many times, with a different job each time.
class JobThread final : public QThread
{
public:
    std::function<void()> job;

    //! How many connections wait for the end of the thread's run, and of its object.
    int connectionsToItsEnd() const
    {
        return receivers(SIGNAL(finished())) + receivers(SIGNAL(destroyed(QObject *)));
    }

protected:
    void run() override { job(); }
};

//! The default version as a thread that has set nothing sees it.
int versionInNewThread()
{
    JobThread thread;
    int version = 0;
    thread.job = [&] { version = SDataStream::defaultVersion(); };
    thread.start();
    thread.wait();
    return version;
}

} // namespace

class tst_SDataStream : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startsAtVersion17()
    {
        QCOMPARE(int(SDataStream::defaultVersion()), 17);
        QCOMPARE(SDataStream::defaultVersion(), QDataStream::Qt_5_6);
    }

    void everyConstructorTakesTheThreadsVersion()
    {
        SDataStream::setDefaultVersion(QDataStream::Qt_6_0);
        QByteArray bytes;
        QBuffer buffer(&bytes);
        QCOMPARE(SDataStream().version(), int(QDataStream::Qt_6_0));
        QCOMPARE(SDataStream(bytes).version(), int(QDataStream::Qt_6_0));
        QCOMPARE(SDataStream(&bytes, QIODevice::ReadWrite).version(), int(QDataStream::Qt_6_0));
        QCOMPARE(SDataStream(&buffer).version(), int(QDataStream::Qt_6_0));
        SDataStream::setDefaultVersion(QDataStream::Qt_5_6);
        QCOMPARE(SDataStream().version(), 17);
    }

    void readsAndWritesWhereItWasTold()
    {
        QByteArray bytes;
        SDataStream(&bytes, QIODevice::WriteOnly) << quint32(0x01020304);
        QCOMPARE(bytes, QByteArray::fromHex("01020304"));

        quint32 value = 0;
        SDataStream reader(bytes);
        reader >> value;
        QCOMPARE(value, 0x01020304u);

        QBuffer buffer(&bytes);
        QVERIFY(buffer.open(QIODevice::ReadOnly));
        value = 0;
        SDataStream device(&buffer);
        device >> value;
        QCOMPARE(value, 0x01020304u);
    }

    void streamKeepsItsVersionWhenTheDefaultChanges()
    {
        SDataStream stream;
        SDataStream::setDefaultVersion(QDataStream::Qt_6_0);
        QCOMPARE(stream.version(), 17);
        SDataStream::setDefaultVersion(QDataStream::Qt_5_6);
    }

    void newThreadStartsAt17WhateverOthersHaveSet()
    {
        SDataStream::setDefaultVersion(QDataStream::Qt_6_0);
        QCOMPARE(versionInNewThread(), 17);
        QCOMPARE(int(SDataStream::defaultVersion()), int(QDataStream::Qt_6_0));
        SDataStream::setDefaultVersion(QDataStream::Qt_5_6);
    }

    void lastSettingOfAThreadCounts()
    {
        SDataStream::setDefaultVersion(QDataStream::Qt_6_0);
        SDataStream::setDefaultVersion(QDataStream::Qt_5_15);
        QCOMPARE(SDataStream::defaultVersion(), QDataStream::Qt_5_15);
        SDataStream::setDefaultVersion(QDataStream::Qt_5_6);
    }

    // The address of a dead thread is soon that of a new one, which must not find the old entry.
    void entryIsGoneWithTheThreadObject()
    {
        std::optional<JobThread> thread; // every object stands at the same address
        for (int i = 0; i < 3; ++i) {
            thread.emplace();
            int before = 0;
            thread->job = [&] {
                before = SDataStream::defaultVersion();
                SDataStream::setDefaultVersion(QDataStream::Qt_6_0);
                SDataStream::setDefaultVersion(QDataStream::Qt_6_0);
            };
            thread->start();
            QVERIFY(thread->wait());
            QCOMPARE(before, 17);
        }
    }

    void entryIsGoneWhenTheRunOfAThreadHasEnded()
    {
        JobThread thread;
        thread.job = [] { SDataStream::setDefaultVersion(QDataStream::Qt_6_0); };
        thread.start();
        QVERIFY(thread.wait());

        int version = 0;
        thread.job = [&] { version = SDataStream::defaultVersion(); };
        thread.start();
        QVERIFY(thread.wait());
        QCOMPARE(version, 17);
    }

    // What a thread still deletes behind its last signal may set a version once more.
    void entryOfTheLastMomentIsGoneWithTheThreadObject()
    {
        std::optional<JobThread> thread; // every object stands at the same address
        for (int i = 0; i < 3; ++i) {
            thread.emplace();
            int before = 0;
            bool setAgain = false;
            thread->job = [&] {
                before = SDataStream::defaultVersion();
                auto *leftover = new QObject;
                connect(leftover, &QObject::destroyed, leftover, [&] {
                    SDataStream::setDefaultVersion(QDataStream::Qt_6_0);
                    setAgain = true;
                });
                leftover->deleteLater();
            };
            thread->start();
            QVERIFY(thread->wait());
            QVERIFY(setAgain);
            QCOMPARE(before, 17);
        }
    }

    void manySettingsConnectOnce()
    {
        JobThread thread;
        int once = 0;
        int often = 0;
        thread.job = [&] {
            SDataStream::setDefaultVersion(QDataStream::Qt_6_0);
            once = thread.connectionsToItsEnd();
            for (int i = 0; i < 100; ++i)
                SDataStream::setDefaultVersion(QDataStream::Qt_5_15);
            often = thread.connectionsToItsEnd();
        };
        thread.start();
        QVERIFY(thread.wait());
        QVERIFY(once > 0);
        QCOMPARE(often, once);
    }

    void threadsThatQtDoesNotKnowHaveEntriesToo()
    {
        for (int i = 0; i < 20; ++i) {
            int before = 0;
            int after = 0;
            std::thread([&] {
                before = SDataStream::defaultVersion();
                SDataStream::setDefaultVersion(QDataStream::Qt_6_0);
                after = SDataStream::defaultVersion();
            }).join();
            QCOMPARE(before, 17);
            QCOMPARE(after, int(QDataStream::Qt_6_0));
        }
    }

    void threadsDoNotSeeEachOthersVersions()
    {
        constexpr int threadCount = 8;
        QSemaphore set;
        QSemaphore go;
        std::vector<std::unique_ptr<JobThread>> threads;
        std::vector<int> versions(threadCount);
        for (int i = 0; i < threadCount; ++i) {
            threads.push_back(std::make_unique<JobThread>());
            threads.back()->job = [&, i] {
                SDataStream::setDefaultVersion(QDataStream::Version(QDataStream::Qt_4_0 + i));
                set.release();
                go.acquire();
                versions[size_t(i)] = SDataStream::defaultVersion();
            };
            threads.back()->start();
        }
        set.acquire(threadCount);
        go.release(threadCount);
        for (const auto &thread : threads)
            QVERIFY(thread->wait());
        for (int i = 0; i < threadCount; ++i)
            QCOMPARE(versions[size_t(i)], QDataStream::Qt_4_0 + i);
    }
};

QTEST_GUILESS_MAIN(tst_SDataStream)
#include "tst_sdatastream.moc"
