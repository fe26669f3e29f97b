// SPDX-License-Identifier: MIT
#include <shared/eventwait.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QPointer>
#include <QtTest/QTest>

#include <atomic>
#include <thread>

using namespace std::chrono_literals;

class tst_EventWait : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void whatHoldsIsNotWaitedFor()
    {
        bool ran = false;
        QMetaObject::invokeMethod(
            this, [&ran] { ran = true; }, Qt::QueuedConnection);
        QVERIFY(waitWithEvents([] { return true; }, 0ms));
        QVERIFY(!ran);
        QVERIFY(waitWithEvents([&ran] { return ran; }));
    }

    void eventsOfTheThreadGoOn()
    {
        bool ran = false;
        QTimer::singleShot(20ms, this, [&ran] { ran = true; });
        QVERIFY(waitWithEvents([&ran] { return ran; }));
    }

    void seesWhatTellsByNoEvent()
    {
        std::atomic_bool ready = false;
        std::thread other([&ready] { ready = true; });
        QVERIFY(waitWithEvents([&ready] { return ready.load(); }));
        other.join();
    }

    void objectsThatAreToBeDeletedAre()
    {
        QPointer<QObject> object(new QObject);
        object->deleteLater();
        QVERIFY(waitWithEvents([&object] { return object.isNull(); }));
    }

    void patienceHasAnEnd()
    {
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!waitWithEvents([] { return false; }, 50ms));
        QVERIFY(timer.elapsed() >= 50);
    }
};

QTEST_GUILESS_MAIN(tst_EventWait)
#include "tst_eventwait.moc"
