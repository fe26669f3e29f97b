// SPDX-License-Identifier: MIT
#include <brixrt/ssignalresult.h>

#include <QtCore/QEventLoop>

using namespace Talverine;

namespace {

constexpr int kLongMsec = 60000;

// Sends one of two signals from whatever thread it lives in.
class Sender : public QObject
{
    Q_OBJECT

public:
    void sendGood() { Q_EMIT good(); }
    void sendBad() { Q_EMIT bad(); }

Q_SIGNALS:
    void good();
    void bad();
};

} // namespace

class tst_SSignalResult : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshResultIsOpen()
    {
        const SSignalResult result;
        QVERIFY(!result.isFinished());
        QVERIFY(!result.succeeded());
    }

    void resultBeforeTheWaitIsGivenAtOnce()
    {
        SSignalResult good;
        good.success();
        QVERIFY(good.waitResult());
        QVERIFY(good.waitResult(0));

        SSignalResult bad;
        bad.failed();
        QVERIFY(!bad.waitResult());
        QVERIFY(bad.isFinished());
        QVERIFY(!bad.succeeded());
    }

    void resultDuringTheWaitEndsIt_data()
    {
        QTest::addColumn<bool>("success");
        QTest::addColumn<int>("msec");
        QTest::newRow("success, no limit") << true << -1;
        QTest::newRow("failure, no limit") << false << -1;
        QTest::newRow("success, limit") << true << kLongMsec;
        QTest::newRow("failure, limit") << false << kLongMsec;
        QTest::newRow("success, any negative limit") << true << -7;
    }
    void resultDuringTheWaitEndsIt()
    {
        QFETCH(bool, success);
        QFETCH(int, msec);
        SSignalResult result;
        QTimer::singleShot(1, &result, success ? &SSignalResult::success : &SSignalResult::failed);
        QCOMPARE(result.waitResult(msec), success);
        QVERIFY(result.isFinished());
    }

    void firstSlotWins()
    {
        SSignalResult result;
        const QSignalSpy spy(&result, &SSignalResult::finished);
        result.failed();
        result.success();
        result.failed();
        QVERIFY(!result.succeeded());
        QVERIFY(!result.waitResult());
        QCOMPARE(spy.count(), 1);
    }

    void signalComesAfterEitherSlotWithTheResult()
    {
        SSignalResult result;
        QList<bool> told;
        connect(&result, &SSignalResult::finished, this, [&] { told.append(result.succeeded()); });
        result.success();
        result.reset();
        result.failed();
        QCOMPARE(told, QList<bool>({true, false}));
    }

    void waitEndsByTimeAndMayBeRepeated()
    {
        SSignalResult result;
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!result.waitResult(30));
        QVERIFY(timer.elapsed() >= 29);
        QVERIFY(!result.isFinished());
        QTimer::singleShot(1, &result, &SSignalResult::success);
        QVERIFY(result.waitResult(kLongMsec));
    }

    void zeroHandlesWhatIsWaitingAlready()
    {
        SSignalResult result;
        QVERIFY(!result.waitResult(0));
        QMetaObject::invokeMethod(&result, &SSignalResult::success, Qt::QueuedConnection);
        QVERIFY(!result.isFinished());
        QVERIFY(result.waitResult(0));
    }

    void resetOpensTheResultAgain()
    {
        SSignalResult result;
        result.failed();
        result.reset();
        QVERIFY(!result.isFinished());
        QVERIFY(!result.waitResult(0));
        result.success();
        QVERIFY(result.waitResult());
    }

    void eventsGoOnDuringTheWait()
    {
        SSignalResult result;
        int ticks = 0;
        QTimer timer;
        connect(&timer, &QTimer::timeout, this, [&] {
            if (++ticks == 5)
                result.success();
        });
        timer.start(1);
        QVERIFY(result.waitResult(kLongMsec));
        QCOMPARE(ticks, 5);
    }

    void workerThreadBringsTheResult_data()
    {
        QTest::addColumn<bool>("success");
        QTest::newRow("success") << true;
        QTest::newRow("failure") << false;
    }
    void workerThreadBringsTheResult()
    {
        QFETCH(bool, success);
        SSignalResult result;
        QThread thread;
        auto *sender = new Sender;
        sender->moveToThread(&thread);
        connect(sender, &Sender::good, &result, &SSignalResult::success);
        connect(sender, &Sender::bad, &result, &SSignalResult::failed);
        connect(&thread, &QThread::started, sender, success ? &Sender::sendGood : &Sender::sendBad);
        connect(&thread, &QThread::finished, sender, &QObject::deleteLater);
        QThread *told = nullptr;
        connect(&result, &SSignalResult::finished, this, [&] { told = QThread::currentThread(); });

        thread.start();
        QCOMPARE(result.waitResult(kLongMsec), success);
        QCOMPARE(told, QThread::currentThread());
        thread.quit();
        QVERIFY(thread.wait());
    }

    void workerThreadMayBeDoneBeforeTheWait()
    {
        SSignalResult result;
        QThread thread;
        connect(&thread, &QThread::finished, &result, &SSignalResult::success);
        thread.start();
        thread.quit();
        QVERIFY(thread.wait());
        QVERIFY(result.waitResult(kLongMsec));
    }

    void waitsInAThreadOfItsOwn()
    {
        bool succeeded = false;
        const std::unique_ptr<QThread> thread(QThread::create([&succeeded] {
            SSignalResult result;
            QTimer::singleShot(1, &result, &SSignalResult::success);
            succeeded = result.waitResult(kLongMsec);
        }));
        thread->start();
        QVERIFY(thread->wait());
        QVERIFY(succeeded);
    }

    void quittingThreadEndsTheWait()
    {
        bool waited = true;
        const std::unique_ptr<QThread> thread(QThread::create([&waited] {
            SSignalResult result;
            QTimer::singleShot(1, &result, [] { QThread::currentThread()->quit(); });
            waited = result.waitResult();
        }));
        thread->start();
        QVERIFY(thread->wait());
        QVERIFY(!waited);
    }

    void mayBeDeletedDuringTheWait()
    {
        auto *result = new SSignalResult;
        QTimer::singleShot(1, this, [result] { delete result; });
        QVERIFY(!result->waitResult());
    }

    void waitsNest()
    {
        SSignalResult outer;
        SSignalResult inner;
        bool innerResult = false;
        QTimer::singleShot(1, this, [&] {
            QTimer::singleShot(1, &outer, &SSignalResult::success);
            QTimer::singleShot(2, &inner, &SSignalResult::success);
            innerResult = inner.waitResult(kLongMsec);
        });
        QVERIFY(outer.waitResult(kLongMsec));
        QVERIFY(innerResult);
    }
};

QTEST_GUILESS_MAIN(tst_SSignalResult)
#include "tst_ssignalresult.moc"
