// SPDX-License-Identifier: MIT
// Strangers besiege "brix serve" that has few descriptors, while two users move files.
// BRIX_STORM_MINUTES says how long; 10 by default.
#include "flatness.h"
#include "stormcrowd.h"
#include "stormuser.h"

#include <shared/eventwait.h>

#include <fileservice/filetree.h>

#include <QtCore/QDeadlineTimer>

#include <sys/resource.h>

using namespace Qt::StringLiterals;
using namespace Talverine;
using namespace std::chrono_literals;

using Sample = ProcessWatch::Sample;

namespace {

constexpr rlim_t kDescriptors = 256;
constexpr auto kSampleEvery = 2s;
constexpr qint64 kConnectionsAMinute = 500;
constexpr qint64 kLongestLoginMs = 10'000;
// Too long for the buffers of the system.
constexpr int kListedFiles = 20'000;
constexpr qint64 kListingMemory = qint64(32) << 20;
// One address has at most four connections that wait; the delay doubles up to a minute.
constexpr qint64 kMostGuesses = 100;

// 256 descriptors, less 64 in reserve and some 10 at rest, are enough for 60 sessions of three.
const QStringList kGuards = {u"--max-logins-pending"_s,     u"40"_s,
                             u"--max-logins-per-address"_s, u"12"_s,
                             u"--max-per-address"_s,        u"16"_s,
                             u"--max-listing-memory"_s,     QString::number(kListingMemory)};

int stormMinutes()
{
    return std::max(1, qEnvironmentVariable("BRIX_STORM_MINUTES", u"10"_s).toInt());
}

} // namespace

class tst_Storm : public QObject
{
    Q_OBJECT

private:
    ToolServer m_server;
    StormTally m_tally;

    // Whom the strangers know.
    bool addBob()
    {
        const QString stem = QString(120, u'n');
        for (int i = 0; i < kListedFiles; ++i) {
            if (!writeFile(m_server.path(u"bob/"_s + stem + QString::number(i)), QByteArray()))
                return false;
        }
        m_server.users.insert(new SUserData(u"bob"_s, u"open"_s, m_server.path(u"bob"_s)));
        return true;
    }

    bool startServer()
    {
        m_server.process().setChildProcessModifier([] {
            const rlimit limit{kDescriptors, kDescriptors};
            setrlimit(RLIMIT_NOFILE, &limit);
        });
        // What it logs is not what this is about, and nobody reads it here.
        m_server.process().setStandardErrorFile(QProcess::nullDevice());
        return m_server.start(kGuards);
    }

    void tell(const Sample &sample) const
    {
        qInfo("%4lld s: %lld connections, %lld greeted, %lld guesses, %lld listings unread; the "
              "server: %lld KiB, %lld threads, %lld descriptors",
              qlonglong(sample.msec / 1000), qlonglong(m_tally.connections),
              qlonglong(m_tally.greeted), qlonglong(m_tally.guesses), qlonglong(m_tally.listings),
              qlonglong(sample.memoryKiB), qlonglong(sample.threads),
              qlonglong(sample.descriptors));
    }

    void watchFor(std::chrono::milliseconds time, const StormUser &first, const StormUser &second,
                  ProcessWatch *watch) const
    {
        const QDeadlineTimer end(time);
        qint64 minute = 0;
        while (!end.hasExpired() && first.isWorking() && second.isWorking()) {
            (void)waitWithEvents([] { return false; }, kSampleEvery);
            const Sample sample = watch->sample();
            if (sample.msec / 60'000 > minute) {
                minute = sample.msec / 60'000;
                tell(sample);
            }
        }
    }

    static void checkUser(const StormUser &user)
    {
        qInfo("a user: %lld files, %lld MiB each way, the slowest login %lld ms",
              qlonglong(user.files()), qlonglong(user.bytes() >> 20),
              qlonglong(user.slowestLoginMs()));
        QCOMPARE(user.problem(), QString());
        QVERIFY(user.files() > 0);
        QVERIFY(user.slowestLoginMs() < kLongestLoginMs);
    }

    void checkTally() const
    {
        QVERIFY2(m_tally.connections >= kConnectionsAMinute * stormMinutes(),
                 qPrintable(QString::number(m_tally.connections)));
        QVERIFY(m_tally.guesses >= 1);
        QVERIFY(m_tally.guesses < kMostGuesses);
        QCOMPARE(m_tally.guessed, 0);
        QVERIFY(m_tally.listings > 0);
    }

private Q_SLOTS:
    void usersWorkOnInAStorm()
    {
        const std::chrono::milliseconds whole = std::chrono::minutes(stormMinutes());
        QVERIFY(addBob());
        QVERIFY(startServer());
        ProcessWatch watch(m_server.process().processId());
        const Sample rest = watch.sample();
        const auto isAtRest = [&] {
            const Sample sample = watch.sample();
            return sample.threads == rest.threads && sample.descriptors == rest.descriptors;
        };
        // What the first session of all leaves is not what this is about.
        QCOMPARE(m_server.run({u"whoami"_s, m_server.url()}).exitCode, 0);
        QVERIFY(QTest::qWaitFor(isAtRest, 10'000));

        SeededRandom random;
        auto crowd = std::make_unique<StormCrowd>(m_server.port(), &m_tally);
        StormUser first(m_server, u"first"_s, random.seed());
        StormUser second(m_server, u"second"_s, random.seed() + 1);
        watchFor(whole, first, second, &watch);
        const qint64 end = watch.samples().last().msec;
        first.stop();
        second.stop();
        tell(watch.sample());
        crowd.reset();

        checkUser(first);
        checkUser(second);
        checkTally();
        QCOMPARE(m_server.process().state(), QProcess::Running);
        QVERIFY(QTest::qWaitFor(isAtRest, 60'000));
        tell(watch.samples().last());
        QCOMPARE(m_server.run({u"whoami"_s, m_server.url()}).exitCode, 0);
        QCOMPARE(FileTree::below(m_server.home()).filter(u".part"_s), QStringList());

        const qint64 settled = whole.count() / 3;
        const qint64 most = rest.memoryKiB + 65'536;
        for (const Flatness &flat :
             {Flatness{"memory in KiB", &Sample::memoryKiB, 4096, most},
              Flatness{"threads", &Sample::threads, 10, 64},
              Flatness{"descriptors", &Sample::descriptors, 20, qint64(kDescriptors)}})
            QCOMPARE(flat.check(watch, settled, end), QString());
    }
};

int main(int count, char *arguments[])
{
    // Qt ends a function of a test that takes longer than five minutes.
    qputenv("QTEST_FUNCTION_TIMEOUT", QByteArray::number((stormMinutes() + 5) * 60'000));
    const QCoreApplication application(count, arguments);
    tst_Storm test;
    return QTest::qExec(&test, count, arguments);
}

#include "tst_storm.moc"
