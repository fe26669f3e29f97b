// SPDX-License-Identifier: MIT
#include <brixlib/foundation/sglobalnetworkaccessmanager.h>

#include <QtCore/QSemaphore>
#include <QtNetwork/QNetworkAccessManager>

using namespace Talverine;

namespace {

template<typename Job>
void runInThread(Job job)
{
    const std::unique_ptr<QThread> thread(QThread::create(job));
    thread->start();
    QVERIFY(thread->wait());
}

QNetworkAccessManager *global()
{
    return SGlobalNetworkAccessManager::globalNetworkAccessManager();
}

} // namespace

class tst_SGlobalNetworkAccessManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { SGlobalNetworkAccessManager::setGlobalNetworkAccessManager(nullptr); }

    void nothingIsSetAtFirst() { QCOMPARE(global(), nullptr); }

    void givesWhatWasSet()
    {
        QNetworkAccessManager first;
        QNetworkAccessManager second;
        SGlobalNetworkAccessManager::setGlobalNetworkAccessManager(&first);
        QCOMPARE(global(), &first);
        SGlobalNetworkAccessManager::setGlobalNetworkAccessManager(&second);
        QCOMPARE(global(), &second);
        SGlobalNetworkAccessManager::setGlobalNetworkAccessManager(nullptr);
        QCOMPARE(global(), nullptr);
    }

    void deadManagerIsNotGiven()
    {
        auto manager = std::make_unique<QNetworkAccessManager>();
        SGlobalNetworkAccessManager::setGlobalNetworkAccessManager(manager.get());
        QCOMPARE(global(), manager.get());
        manager.reset();
        QCOMPARE(global(), nullptr);
    }

    void anotherThreadGetsNone()
    {
        QNetworkAccessManager manager;
        SGlobalNetworkAccessManager::setGlobalNetworkAccessManager(&manager);
        QNetworkAccessManager *seen = &manager;
        runInThread([&] { seen = global(); });
        QCOMPARE(seen, nullptr);
        QCOMPARE(global(), &manager);
    }

    void managerOfAnotherThreadIsGivenThereOnly()
    {
        QNetworkAccessManager *here = nullptr;
        QNetworkAccessManager *there = nullptr;
        QNetworkAccessManager *made = nullptr;
        QSemaphore set;
        QSemaphore checked;
        const std::unique_ptr<QThread> thread(QThread::create([&] {
            QNetworkAccessManager manager;
            made = &manager;
            SGlobalNetworkAccessManager::setGlobalNetworkAccessManager(&manager);
            there = global();
            set.release();
            checked.acquire();
        }));
        thread->start();
        set.acquire();
        here = global();
        checked.release();
        QVERIFY(thread->wait());
        QCOMPARE(there, made);
        QCOMPARE(here, nullptr);
    }

    void movedManagerIsGivenAgainOnceItIsSetAnew()
    {
        QThread thread;
        QNetworkAccessManager manager;
        SGlobalNetworkAccessManager::setGlobalNetworkAccessManager(&manager);
        manager.moveToThread(&thread);
        QCOMPARE(global(), nullptr);

        thread.start();
        QNetworkAccessManager *before = &manager;
        QNetworkAccessManager *after = nullptr;
        QMetaObject::invokeMethod(
            &manager,
            [&] {
                before = global();
                SGlobalNetworkAccessManager::setGlobalNetworkAccessManager(&manager);
                after = global();
                manager.moveToThread(thread.thread());
            },
            Qt::BlockingQueuedConnection);
        thread.quit();
        QVERIFY(thread.wait());
        QCOMPARE(before, nullptr);
        QCOMPARE(after, &manager);
    }
};

QTEST_GUILESS_MAIN(tst_SGlobalNetworkAccessManager)
#include "tst_sglobalnetworkaccessmanager.moc"
