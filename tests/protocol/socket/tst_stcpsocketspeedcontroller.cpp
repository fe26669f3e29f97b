// SPDX-License-Identifier: MIT
#include <brixlib/protocol/socket/stcpsocket.h>
#include <brixlib/protocol/socket/stcpsocketspeedcontroller.h>

#include <shared/rawpeer.h>

#include <QtCore/QSemaphore>

#include <array>
#include <limits>
#include <thread>
#include <vector>

using namespace Talverine;
using namespace std::chrono_literals;

namespace {

//! Every round of a controller: what it found and what it granted, -1 when it granted nothing.
class Rounds : public QObject
{
public:
    struct Round
    {
        qint64 incomingSum = -1;
        qint64 outgoingSum = -1;
        qint64 incomingGrant = -1;
        qint64 outgoingGrant = -1;

        bool operator==(const Round &) const = default;
    };

    explicit Rounds(STcpSocketSpeedController *controller)
    {
        using C = STcpSocketSpeedController;
        connect(controller, &C::currentIncomingSpeed, this, [this](qint64 speed) {
            rounds.append(Round());
            rounds.last().incomingSum = speed;
        });
        connect(controller, &C::currentOutcomingSpeed, this,
                [this](qint64 speed) { rounds.last().outgoingSum = speed; });
        connect(controller, &C::socketIncomingSpeed, this,
                [this](qint64 speed) { rounds.last().incomingGrant = speed; });
        connect(controller, &C::socketOutcomingSpeed, this,
                [this](qint64 speed) { rounds.last().outgoingGrant = speed; });
    }

    //! The next whole round; a round of -1 when none comes.
    Round next()
    {
        const qsizetype seen = rounds.size();
        const bool came = QTest::qWaitFor([&] { return rounds.size() > seen; }, 10000);
        return came ? rounds.last() : Round();
    }

    QList<Round> rounds;
};

//! The stated rule in plain numbers, to compare with.
class Model
{
public:
    qint64 grant(qint64 limit, qint64 sum, qint64 sockets)
    {
        const qint64 spare = limit - sum;
        m_correction += spare;
        m_correction = std::min(m_correction, 10 * sockets * limit);
        m_correction = std::max(m_correction, -10 * sockets * limit);
        const double control =
            0.3 * static_cast<double>(m_correction) + 0.05 * static_cast<double>(spare);
        const qint64 share = static_cast<qint64>(control) / sockets;
        const qint64 floor = limit / (sockets + sockets / 2);
        return share < floor ? floor : share > limit ? limit : share;
    }

private:
    qint64 m_correction = 0;
};

void report(STcpSocket &socket, qint64 incoming, qint64 outgoing)
{
    Q_EMIT socket.connectionIncomingSpeed(incoming);
    Q_EMIT socket.connectionOutcomingSpeed(outgoing);
}

} // namespace

class tst_STcpSocketSpeedController : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshControllerHasNoLimitsAndIsAdaptive()
    {
        const STcpSocketSpeedController controller;
        QCOMPARE(controller.incomingSpeed(), 0);
        QCOMPARE(controller.outcomingSpeed(), 0);
        QVERIFY(!controller.isFixedThrottleEnabled());
    }

    void settingsAreKept()
    {
        STcpSocketSpeedController controller;
        controller.setIncomingSpeed(1);
        controller.setOutcomingSpeed(2);
        controller.setFixedThrottle(true);
        QCOMPARE(controller.incomingSpeed(), 1);
        QCOMPARE(controller.outcomingSpeed(), 2);
        QVERIFY(controller.isFixedThrottleEnabled());
        controller.setIncomingSpeed(-3);
        QCOMPARE(controller.incomingSpeed(), -3);
    }

    void additionAndRemovalAreTold()
    {
        STcpSocketSpeedController controller;
        QSignalSpy added(&controller, &STcpSocketSpeedController::socketAdded);
        QSignalSpy removed(&controller, &STcpSocketSpeedController::socketRemoved);
        STcpSocket socket;
        controller.add(&socket);
        QCOMPARE(added.count(), 1);
        controller.add(&socket);
        QCOMPARE(added.count(), 1);
        controller.remove(&socket);
        QCOMPARE(removed.count(), 1);
        controller.remove(&socket);
        QCOMPARE(removed.count(), 1);
    }

    void nullIsIgnored()
    {
        STcpSocketSpeedController controller;
        QSignalSpy added(&controller, &STcpSocketSpeedController::socketAdded);
        QSignalSpy removed(&controller, &STcpSocketSpeedController::socketRemoved);
        controller.add(nullptr);
        controller.remove(nullptr);
        QCOMPARE(added.count(), 0);
        QCOMPARE(removed.count(), 0);
    }

    void limitsReachAddedSocketsAtOnce()
    {
        STcpSocketSpeedController controller;
        STcpSocket first;
        STcpSocket second;
        STcpSocket stranger;
        controller.add(&first);
        controller.add(&second);
        Q_EMIT controller.socketIncomingSpeed(3000);
        Q_EMIT controller.socketOutcomingSpeed(4000);
        for (const STcpSocket *socket : {&first, &second}) {
            QCOMPARE(socket->incomingSpeed(), 3000);
            QCOMPARE(socket->outcomingSpeed(), 4000);
        }
        QCOMPARE(stranger.incomingSpeed(), 0);

        Q_EMIT controller.socketIncomingSpeed(100);
        QCOMPARE(first.incomingSpeed(), 256);

        controller.remove(&first);
        Q_EMIT controller.socketIncomingSpeed(5000);
        QCOMPARE(first.incomingSpeed(), 256);
        QCOMPARE(second.incomingSpeed(), 5000);
    }

    // The connection is direct: no event of the socket's thread is needed.
    void limitsReachASocketWhoseThreadIsBusy()
    {
        STcpSocketSpeedController controller;
        STcpSocket socket;
        controller.add(&socket);
        std::thread other([&] { Q_EMIT controller.socketOutcomingSpeed(7000); });
        other.join();
        QCOMPARE(socket.outcomingSpeed(), 7000);
    }

    void timerRunsEveryTenthOfASecond()
    {
        // From before the first round: one that comes late lets the next come early.
        QElapsedTimer clock;
        clock.start();
        STcpSocketSpeedController controller;
        Rounds rounds(&controller);
        for (int i = 0; i < 4; ++i)
            rounds.next();
        QVERIFY2(clock.elapsed() >= 350, qPrintable(QString::number(clock.elapsed())));
    }

    void socketThatNeverReportedTakesNoPart()
    {
        STcpSocketSpeedController controller;
        controller.setIncomingSpeed(1000);
        Rounds rounds(&controller);
        STcpSocket socket;
        controller.add(&socket);
        QCOMPARE(rounds.next(), (Rounds::Round{0, 0, -1, -1}));
        QCOMPARE(socket.incomingSpeed(), 0);
        report(socket, 400, 0);
        QCOMPARE(rounds.next().incomingSum, 400);
        QCOMPARE(socket.incomingSpeed(), 1000);
    }

    void reportsAddUpAndTheLastOneCounts()
    {
        STcpSocketSpeedController controller;
        Rounds rounds(&controller);
        std::array<STcpSocket, 3> sockets;
        for (STcpSocket &socket : sockets)
            controller.add(&socket);
        report(sockets[0], 99, 98);
        report(sockets[0], 1, 2);
        report(sockets[1], 10, 20);
        report(sockets[2], 100, 200);
        const Rounds::Round round = rounds.next();
        QCOMPARE(round.incomingSum, 111);
        QCOMPARE(round.outgoingSum, 222);
    }

    void hugeReportsStopAtTheEndOfTheRange()
    {
        STcpSocketSpeedController controller;
        controller.setIncomingSpeed(1000);
        Rounds rounds(&controller);
        std::array<STcpSocket, 2> sockets;
        for (STcpSocket &socket : sockets) {
            controller.add(&socket);
            report(socket, std::numeric_limits<qint64>::max(), 0);
        }
        const Rounds::Round round = rounds.next();
        QCOMPARE(round.incomingSum, std::numeric_limits<qint64>::max());
        QCOMPARE(round.incomingGrant, 333);
    }

    void fixedThrottleGivesEqualParts()
    {
        STcpSocketSpeedController controller;
        controller.setFixedThrottle(true);
        controller.setIncomingSpeed(10000);
        controller.setOutcomingSpeed(20000);
        Rounds rounds(&controller);
        std::array<STcpSocket, 3> sockets;
        for (STcpSocket &socket : sockets) {
            controller.add(&socket);
            report(socket, 9000, 0);
        }
        const Rounds::Round round = rounds.next();
        QCOMPARE(round.incomingGrant, 3333);
        QCOMPARE(round.outgoingGrant, 6666);
        QCOMPARE(sockets[2].incomingSpeed(), 3333);
        QCOMPARE(sockets[2].outcomingSpeed(), 6666);
    }

    void noLimitLeavesSocketsFree()
    {
        STcpSocketSpeedController controller;
        Rounds rounds(&controller);
        STcpSocket socket;
        controller.add(&socket);
        socket.setIncomingSpeed(5000);
        report(socket, 400, 400);
        QCOMPARE(rounds.next(), (Rounds::Round{400, 400, 0, 0}));
        QCOMPARE(socket.incomingSpeed(), 0);
    }

    // Idle rounds build capacity up; then both do 500 of 1000, and the grant stands.
    void adaptiveThrottleFollowsTheRule()
    {
        STcpSocketSpeedController controller;
        controller.setIncomingSpeed(1000);
        controller.setOutcomingSpeed(100000);
        Rounds rounds(&controller);
        std::array<STcpSocket, 2> sockets;
        for (STcpSocket &socket : sockets)
            controller.add(&socket);
        Model incoming;
        Model outgoing;
        const auto check = [&](qint64 in, qint64 out) {
            for (STcpSocket &socket : sockets)
                report(socket, in, out);
            const qsizetype from = rounds.rounds.size();
            rounds.next();
            for (qsizetype i = from; i < rounds.rounds.size(); ++i) {
                const Rounds::Round &round = rounds.rounds.at(i);
                QCOMPARE(round.incomingSum, 2 * in);
                QCOMPARE(round.outgoingSum, 2 * out);
                QCOMPARE(round.incomingGrant, incoming.grant(1000, 2 * in, 2));
                QCOMPARE(round.outgoingGrant, outgoing.grant(100000, 2 * out, 2));
            }
            QCOMPARE(sockets[0].incomingSpeed(),
                     qMax(rounds.rounds.last().incomingGrant, qint64(256)));
            QCOMPARE(sockets[1].outcomingSpeed(), rounds.rounds.last().outgoingGrant);
        };
        for (int i = 0; i < 4; ++i)
            check(0, 60000);
        QVERIFY(rounds.rounds.last().incomingGrant > 333);
        QVERIFY(rounds.rounds.last().incomingGrant < 1000);
        const qint64 standing = (check(500, 50000), rounds.rounds.last().incomingGrant);
        for (int i = 0; i < 3; ++i) {
            check(500, 50000);
            QCOMPARE(rounds.rounds.last().incomingGrant, standing);
        }
    }

    // Three seconds of silence end a record; the next report makes a new one, and the corrections
    // that were built up before are forgotten.
    void silentSocketTakesNoPartUntilItsNextReport()
    {
        STcpSocketSpeedController controller;
        controller.setIncomingSpeed(1000);
        controller.setOutcomingSpeed(2000);
        Rounds rounds(&controller);
        std::array<STcpSocket, 2> sockets;
        for (STcpSocket &socket : sockets) {
            controller.add(&socket);
            report(socket, 10, 30);
        }
        QElapsedTimer silence;
        silence.start();
        QCOMPARE(rounds.next().incomingSum, 20);
        QTRY_COMPARE_WITH_TIMEOUT(rounds.rounds.last().incomingGrant, 1000, 10000);
        QTRY_COMPARE_WITH_TIMEOUT(rounds.rounds.last().outgoingGrant, 2000, 10000);
        QTRY_COMPARE_WITH_TIMEOUT(rounds.rounds.last().incomingSum, 0, 10000);
        QVERIFY2(silence.elapsed() >= 2999, qPrintable(QString::number(silence.elapsed())));
        QVERIFY2(silence.elapsed() < 4500, qPrintable(QString::number(silence.elapsed())));
        QCOMPARE(rounds.next(), (Rounds::Round{0, 0, -1, -1}));

        for (STcpSocket &socket : sockets)
            report(socket, 10, 30);
        const Rounds::Round round = rounds.next();
        QCOMPARE(round.incomingSum, 20);
        // Were a correction kept, the whole limit would be granted.
        QCOMPARE(round.incomingGrant, Model().grant(1000, 20, 2));
        QCOMPARE(round.outgoingGrant, Model().grant(2000, 60, 2));
    }

    void oneSilentSocketLeavesTheOthersTheirShare()
    {
        STcpSocketSpeedController controller;
        controller.setFixedThrottle(true);
        controller.setIncomingSpeed(1000);
        Rounds rounds(&controller);
        std::array<STcpSocket, 2> sockets;
        for (STcpSocket &socket : sockets) {
            controller.add(&socket);
            report(socket, 10, 0);
        }
        QCOMPARE(rounds.next().incomingGrant, 500);
        const bool alone = QTest::qWaitFor(
            [&] {
                report(sockets[0], 10, 0);
                return rounds.rounds.last().incomingGrant == 1000;
            },
            10000);
        QVERIFY(alone);
        // The silent one is not forgotten: limits still reach it.
        QCOMPARE(sockets[1].incomingSpeed(), 1000);
    }

    void removedSocketTakesNoPart()
    {
        STcpSocketSpeedController controller;
        Rounds rounds(&controller);
        STcpSocket socket;
        controller.add(&socket);
        report(socket, 10, 10);
        controller.remove(&socket);
        report(socket, 10, 10);
        QCOMPARE(rounds.next(), (Rounds::Round{0, 0, -1, -1}));
    }

    void reportUnderWayWhenItsSocketIsRemovedIsDropped()
    {
        STcpSocketSpeedController controller;
        Rounds rounds(&controller);
        STcpSocket socket;
        controller.add(&socket);
        // From another thread, so that the reports wait in the queue.
        std::thread other([&] { report(socket, 10, 10); });
        other.join();
        controller.remove(&socket);
        QCOMPARE(rounds.next(), (Rounds::Round{0, 0, -1, -1}));
    }

    void addingAgainStartsAnew()
    {
        STcpSocketSpeedController controller;
        Rounds rounds(&controller);
        STcpSocket socket;
        controller.add(&socket);
        report(socket, 10, 10);
        controller.add(&socket);
        QCOMPARE(rounds.next(), (Rounds::Round{0, 0, -1, -1}));
        report(socket, 20, 20);
        QCOMPARE(rounds.next().incomingSum, 20);
    }

    void socketThatDiesCountsAsRemoved()
    {
        STcpSocketSpeedController controller;
        QSignalSpy removed(&controller, &STcpSocketSpeedController::socketRemoved);
        auto socket = std::make_unique<STcpSocket>();
        STcpSocket *address = socket.get();
        controller.add(address);
        report(*socket, 10, 10);
        socket.reset();
        QCOMPARE(removed.count(), 1);
        Q_EMIT controller.socketIncomingSpeed(1000);
        Rounds rounds(&controller);
        QCOMPARE(rounds.next(), (Rounds::Round{0, 0, -1, -1}));
        controller.remove(address);
        QCOMPARE(removed.count(), 1);
    }

    // The first socket's end and last report are still queued when the second one is added.
    void newSocketAtTheSameAddressIsAnotherOne()
    {
        STcpSocketSpeedController controller;
        QSignalSpy added(&controller, &STcpSocketSpeedController::socketAdded);
        QSignalSpy removed(&controller, &STcpSocketSpeedController::socketRemoved);
        Rounds rounds(&controller);
        alignas(STcpSocket) std::array<std::byte, sizeof(STcpSocket)> place;
        STcpSocket *second = nullptr;
        std::thread other([&] {
            auto *first = new (place.data()) STcpSocket;
            controller.add(first);
            report(*first, 1000, 1000);
            first->~STcpSocket();
            second = new (place.data()) STcpSocket;
            controller.add(second);
            report(*second, 7, 7);
        });
        other.join();
        QCOMPARE(rounds.next().incomingSum, 7);
        QCOMPARE(added.count(), 2);
        Q_EMIT controller.socketIncomingSpeed(5000);
        QCOMPARE(second->incomingSpeed(), 5000);
        second->~STcpSocket();
        QTRY_COMPARE(removed.count(), 2);
        QCOMPARE(rounds.next().incomingSum, 0);
    }

    void controllerMayDieFirst()
    {
        STcpSocket socket;
        {
            STcpSocketSpeedController controller;
            controller.add(&socket);
            Q_EMIT controller.socketIncomingSpeed(5000);
        }
        report(socket, 1, 1);
        QCOMPARE(socket.incomingSpeed(), 5000);
    }

    void controllerMovesToAnotherThread()
    {
        QThread thread;
        auto *controller = new STcpSocketSpeedController;
        connect(&thread, &QThread::finished, controller, &QObject::deleteLater);
        controller->moveToThread(&thread);
        QAtomicPointer<QThread> seen;
        connect(
            controller, &STcpSocketSpeedController::currentIncomingSpeed, controller,
            [&] { seen.storeRelease(QThread::currentThread()); }, Qt::DirectConnection);
        thread.start();
        QTRY_COMPARE(seen.loadAcquire(), &thread);
        thread.quit();
        thread.wait();
    }

    void slotsOfItsSignalsMayCallTheController()
    {
        STcpSocketSpeedController controller;
        controller.setIncomingSpeed(1000);
        STcpSocket socket;
        STcpSocket other;
        controller.add(&socket);
        connect(&controller, &STcpSocketSpeedController::socketIncomingSpeed, this, [&] {
            controller.setIncomingSpeed(2000);
            controller.add(&other);
            controller.remove(&socket);
        });
        report(socket, 10, 10);
        QTRY_COMPARE(controller.incomingSpeed(), 2000);
    }

    // Workers make, add and lose sockets while limits are given out as fast as they can be.
    void socketsDieWhileLimitsAreGivenOut()
    {
        constexpr int kWorkers = 4;
        constexpr int kSocketsEach = 300;
        STcpSocketSpeedController controller;
        controller.setIncomingSpeed(1 << 20);
        controller.setOutcomingSpeed(1 << 20);
        QAtomicInt added = 0;
        QAtomicInt removed = 0;
        using C = STcpSocketSpeedController;
        connect(
            &controller, &C::socketAdded, this, [&] { added.ref(); }, Qt::DirectConnection);
        connect(
            &controller, &C::socketRemoved, this, [&] { removed.ref(); }, Qt::DirectConnection);

        QAtomicInt running = kWorkers;
        std::vector<std::thread> workers;
        for (int worker = 0; worker < kWorkers; ++worker) {
            workers.emplace_back([&, worker] {
                for (int i = 0; i < kSocketsEach; ++i) {
                    STcpSocket socket;
                    controller.add(&socket);
                    report(socket, i, i);
                    socket.setOutcomingSpeed(socket.outcomingSpeed() + 1);
                    if ((i + worker) % 3 == 0)
                        controller.remove(&socket);
                }
                running.deref();
            });
        }
        for (qint64 limit = 1000; running.loadAcquire() > 0; ++limit) {
            Q_EMIT controller.socketIncomingSpeed(limit);
            Q_EMIT controller.socketOutcomingSpeed(limit);
            QCoreApplication::processEvents();
        }
        for (std::thread &worker : workers)
            worker.join();
        QCOMPARE(added.loadAcquire(), kWorkers * kSocketsEach);
        QTRY_COMPARE(removed.loadAcquire(), added.loadAcquire());
        Rounds rounds(&controller);
        QCOMPARE(rounds.next(), (Rounds::Round{0, 0, -1, -1}));
    }

    // The same with connections that carry bytes through both throttles.
    void connectionsDieInTheirThreadsUnderAController()
    {
        constexpr int kWorkers = 3;
        constexpr int kConnectionsEach = 15;
        STcpSocketSpeedController controller;
        controller.setIncomingSpeed(4 << 20);
        controller.setOutcomingSpeed(4 << 20);
        QAtomicInt running = kWorkers;
        QAtomicInt failures = 0;
        std::vector<std::thread> workers;
        for (int worker = 0; worker < kWorkers; ++worker) {
            workers.emplace_back([&] {
                for (int i = 0; i < kConnectionsEach; ++i) {
                    STcpSocket socket;
                    controller.add(&socket);
                    RawPeer peer;
                    const QByteArray bytes(20000, 'x');
                    if (!peer.accept(&socket) || !peer.send(bytes) ||
                        socket.write(bytes) != bytes.size() || !socket.waitForReadyRead(10000))
                        failures.ref();
                    if (i % 2)
                        peer.reset();
                }
                running.deref();
            });
        }
        while (running.loadAcquire() > 0) {
            Q_EMIT controller.socketIncomingSpeed(1 << 20);
            Q_EMIT controller.socketOutcomingSpeed(1 << 20);
            QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
        }
        for (std::thread &worker : workers)
            worker.join();
        QCOMPARE(failures.loadAcquire(), 0);
    }

    // Each of the two dies in its own thread, in no order.
    void controllerAndSocketsDieAtTheSameTime()
    {
        for (int round = 0; round < 100; ++round) {
            auto controller = std::make_unique<STcpSocketSpeedController>();
            QSemaphore ready;
            QSemaphore go;
            std::thread other([&] {
                STcpSocket socket;
                controller->add(&socket);
                ready.release();
                go.acquire();
                report(socket, 1, 1);
            });
            ready.acquire();
            go.release();
            controller.reset();
            other.join();
        }
    }
};

QTEST_GUILESS_MAIN(tst_STcpSocketSpeedController)
#include "tst_stcpsocketspeedcontroller.moc"
