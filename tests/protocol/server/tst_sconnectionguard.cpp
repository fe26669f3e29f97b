// SPDX-License-Identifier: MIT
#include <brixlib/protocol/server/sconnectionguard.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QThread>
#include <QtTest/QTest>

#include <thread>
#include <vector>

using namespace Talverine;
using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

using Limits = SConnectionGuard::Limits;
using Place = std::unique_ptr<SConnectionGuard::Place>;

namespace {

QHostAddress address(const QString &text)
{
    return QHostAddress(text);
}

const QHostAddress kFirst = address(u"192.0.2.1"_s);
const QHostAddress kSecond = address(u"192.0.2.2"_s);

// Fails to log in as often, each time with a connection of its own.
void fail(SConnectionGuard &guard, const QHostAddress &from, int times)
{
    for (int i = 0; i < times; ++i) {
        const Place place = guard.admit(from);
        QVERIFY(place);
        place->loginFailed();
    }
}

} // namespace

class tst_SConnectionGuard : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void withoutLimitsEveryConnectionIsAdmittedAtOnce()
    {
        SConnectionGuard guard{Limits{}};
        QCOMPARE(guard.limits(), Limits{});
        std::vector<Place> places;
        for (int i = 0; i < 1000; ++i) {
            places.push_back(guard.admit(kFirst));
            QVERIFY(places.back());
            QCOMPARE(places.back()->delay(), 0ms);
            places.back()->loginFailed();
        }
        QCOMPARE(guard.connections(), 1000);
        QCOMPARE(guard.failures(kFirst), 0);
    }

    void countsConnectionsOfEachAddress()
    {
        SConnectionGuard guard{Limits{.perAddress = 2}};
        Place first = guard.admit(kFirst);
        const Place second = guard.admit(kFirst);
        QVERIFY(first && second);
        QVERIFY(!guard.admit(kFirst));
        const Place other = guard.admit(kSecond);
        QVERIFY(other);
        QCOMPARE(guard.connections(), 3);
        QCOMPARE(guard.connections(kFirst), 2);
        // A login does not make room: it is connections that count.
        first->loginSucceeded();
        QVERIFY(!guard.admit(kFirst));
        first.reset();
        QVERIFY(guard.admit(kFirst));
        QCOMPARE(guard.connections(kFirst), 1);
    }

    void countsConnectionsThatHaveNotLoggedIn()
    {
        SConnectionGuard guard{Limits{.pendingLogins = 3, .pendingLoginsPerAddress = 2}};
        const Place a = guard.admit(kFirst);
        const Place b = guard.admit(kFirst);
        QVERIFY(a && b);
        QVERIFY(!guard.admit(kFirst));
        const Place c = guard.admit(kSecond);
        QVERIFY(c);
        QVERIFY(!guard.admit(kSecond));
        QCOMPARE(guard.pendingLogins(), 3);
        a->loginSucceeded();
        a->loginSucceeded();
        QCOMPARE(guard.pendingLogins(), 2);
        const Place d = guard.admit(kFirst);
        QVERIFY(d);
        QVERIFY(!guard.admit(kFirst));
    }

    void placesOutliveTheGuard()
    {
        auto guard = std::make_unique<SConnectionGuard>(Limits{.perAddress = 1});
        const Place place = guard->admit(kFirst);
        guard.reset();
        QVERIFY(place->holdListing(100, 0ms));
        place->loginFailed();
    }

    void addressesOfOneNetworkCountAsOne_data()
    {
        QTest::addColumn<QString>("first");
        QTest::addColumn<QString>("second");
        QTest::addColumn<bool>("isOne");
        QTest::newRow("same") << u"192.0.2.1"_s << u"192.0.2.1"_s << true;
        QTest::newRow("neighbours of IPv4") << u"192.0.2.1"_s << u"192.0.2.2"_s << false;
        QTest::newRow("IPv4 in its IPv6 form") << u"192.0.2.1"_s << u"::ffff:192.0.2.1"_s << true;
        QTest::newRow("two of 64 bits") << u"2001:db8::1"_s << u"2001:db8::ffff:1"_s << true;
        QTest::newRow("two networks") << u"2001:db8::1"_s << u"2001:db8:0:1::1"_s << false;
    }

    void addressesOfOneNetworkCountAsOne()
    {
        QFETCH(QString, first);
        QFETCH(QString, second);
        QFETCH(bool, isOne);
        SConnectionGuard guard{Limits{.perAddress = 1}};
        const Place place = guard.admit(address(first));
        QVERIFY(place);
        QCOMPARE(guard.connections(address(second)), isOne ? 1 : 0);
        QCOMPARE(guard.admit(address(second)) == nullptr, isOne);
    }

    void delayDoublesWithEachFailure()
    {
        SConnectionGuard guard{Limits{.firstDelay = 100s, .longestDelay = 500s}};
        QCOMPARE(guard.admit(kFirst)->delay(), 0ms);
        for (const auto expected : {100s, 200s, 400s, 500s, 500s}) {
            fail(guard, kFirst, 1);
            const auto delay = guard.admit(kFirst)->delay();
            QVERIFY2(delay <= expected && delay > expected - 20s,
                     qPrintable(QString::number(delay.count())));
        }
        QCOMPARE(guard.failures(kFirst), 5);
        QCOMPARE(guard.admit(kSecond)->delay(), 0ms);
    }

    void manyFailuresDoNotOverflowTheDelay()
    {
        SConnectionGuard guard{
            Limits{.firstDelay = 1s, .longestDelay = 60s, .delayedPerAddress = 0}};
        fail(guard, kFirst, 1000);
        const auto delay = guard.admit(kFirst)->delay();
        QVERIFY(delay > 50s && delay <= 60s);
    }

    // A user who mistypes the password and waits is greeted at once.
    void delayCountsFromTheLastFailure()
    {
        SConnectionGuard guard{Limits{.firstDelay = 50ms}};
        fail(guard, kFirst, 1);
        QVERIFY(guard.admit(kFirst)->delay() > 0ms);
        QTRY_COMPARE(guard.admit(kFirst)->delay(), 0ms);
        QCOMPARE(guard.failures(kFirst), 1);
    }

    void goodLoginClearsTheFailuresOfItsAddress()
    {
        SConnectionGuard guard{Limits{.firstDelay = 100s}};
        const Place good = guard.admit(kFirst);
        fail(guard, kFirst, 3);
        fail(guard, kSecond, 1);
        good->loginSucceeded();
        QCOMPARE(guard.failures(kFirst), 0);
        QCOMPARE(guard.admit(kFirst)->delay(), 0ms);
        QCOMPARE(guard.failures(kSecond), 1);
    }

    void failuresAreForgottenAfterAWhile()
    {
        SConnectionGuard guard{Limits{.firstDelay = 100s, .forgetAfter = 50ms}};
        fail(guard, kFirst, 3);
        QTRY_COMPARE(guard.failures(kFirst), 0);
        QCOMPARE(guard.admit(kFirst)->delay(), 0ms);
    }

    void onlyAFewConnectionsOfAnAddressAreDelayed()
    {
        SConnectionGuard guard{Limits{.firstDelay = 100s, .delayedPerAddress = 2}};
        fail(guard, kFirst, 1);
        const Place a = guard.admit(kFirst);
        const Place b = guard.admit(kFirst);
        QVERIFY(a && b);
        QVERIFY(!guard.admit(kFirst));
        QVERIFY(guard.admit(kSecond));
        a->greeted();
        QCOMPARE(a->delay(), 0ms);
        QVERIFY(guard.admit(kFirst));
    }

    // All of them would guess before the first has failed.
    void onlyAFewConnectionsTryToLogInAfterAFailure()
    {
        SConnectionGuard guard{
            Limits{.firstDelay = 1ms, .longestDelay = 1ms, .delayedPerAddress = 2}};
        fail(guard, kFirst, 1);
        QTRY_COMPARE(guard.admit(kFirst)->delay(), 0ms);
        Place a = guard.admit(kFirst);
        const Place b = guard.admit(kFirst);
        QVERIFY(a && b);
        QVERIFY(!guard.admit(kFirst));
        QVERIFY(guard.admit(kSecond));
        a.reset();
        QVERIFY(guard.admit(kFirst));
    }

    void failuresOfManyAddressesTakeBoundedMemory()
    {
        SConnectionGuard guard{Limits{.firstDelay = 1s}};
        const Place kept = guard.admit(kFirst);
        kept->loginFailed();
        quint32 ipv4 = 0x0A000000;
        constexpr int kAddresses = 100'000;
        for (int i = 0; i < kAddresses; ++i)
            guard.admit(QHostAddress(++ipv4))->loginFailed();
        int known = 0;
        for (int i = 0; i < kAddresses; ++i)
            known += guard.failures(QHostAddress(ipv4 - static_cast<quint32>(i)));
        QVERIFY2(known >= 8192 && known <= 16384, qPrintable(QString::number(known)));
        QCOMPARE(guard.failures(QHostAddress(ipv4)), 1);
        QCOMPARE(guard.failures(kFirst), 1);
    }

    void listingsShareOneBound()
    {
        SConnectionGuard guard{Limits{.listingBytes = 100}};
        const Place a = guard.admit(kFirst);
        Place b = guard.admit(kSecond);
        QVERIFY(a->holdListing(60, 0ms));
        QVERIFY(a->holdListing(40, 0ms)); // less than it holds
        QCOMPARE(guard.listingBytes(), 60);
        QVERIFY(!b->holdListing(41, 0ms));
        QVERIFY(b->holdListing(40, 0ms));
        QCOMPARE(guard.listingBytes(), 100);
        a->releaseListing();
        QVERIFY(b->holdListing(100, 0ms));
        b.reset();
        QCOMPARE(guard.listingBytes(), 0);
    }

    void listingLargerThanTheBoundIsRefusedAtOnce()
    {
        SConnectionGuard guard{Limits{.listingBytes = 100}};
        const Place a = guard.admit(kFirst);
        QVERIFY(a->holdListing(50, 0ms));
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!a->holdListing(101, 60s));
        QVERIFY(timer.elapsed() < 30'000);
    }

    void listingWaitsForAnother()
    {
        SConnectionGuard guard{Limits{.listingBytes = 100}};
        const Place a = guard.admit(kFirst);
        const Place b = guard.admit(kSecond);
        QVERIFY(a->holdListing(100, 0ms));
        std::thread releasing([&] {
            QThread::msleep(20);
            a->releaseListing();
        });
        const bool held = b->holdListing(100, 60s);
        releasing.join();
        QVERIFY(held);
    }

    // The counts are right whatever the threads do at the same time.
    void threadsShareTheGuard()
    {
        SConnectionGuard guard{
            Limits{.perAddress = 8, .pendingLogins = 12, .firstDelay = 1ms, .listingBytes = 1000}};
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back([&guard, from = i % 2 == 0 ? kFirst : kSecond] {
                for (int round = 0; round < 2000; ++round) {
                    const Place place = guard.admit(from);
                    if (!place)
                        continue;
                    place->greeted();
                    (void)place->holdListing(300, 0ms);
                    round % 3 == 0 ? place->loginSucceeded() : place->loginFailed();
                }
            });
        }
        for (std::thread &thread : threads)
            thread.join();
        QCOMPARE(guard.connections(), 0);
        QCOMPARE(guard.pendingLogins(), 0);
        QCOMPARE(guard.listingBytes(), 0);
        QCOMPARE(guard.connections(kFirst), 0);
    }
};

QTEST_GUILESS_MAIN(tst_SConnectionGuard)
#include "tst_sconnectionguard.moc"
