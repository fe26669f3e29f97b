// SPDX-License-Identifier: MIT
// Many clients do random operations for a long time, through a proxy that delays and cuts, with a
// server that is a process of its own. BRIX_SOAK_MINUTES says how long; 30 by default.
#include "flatness.h"
#include "soakplayer.h"

#include <shared/eventwait.h>
#include <shared/faultproxy.h>
#include <tool/toolserver.h>

#include <brixlib/workers/ssimplebackgroundrunner.h>

#include <fileservice/filetree.h>

#include <list>

using namespace Talverine;
using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

using Sample = ProcessWatch::Sample;

namespace {

constexpr int kPlayers = 50;
constexpr auto kSampleEvery = 2s;
// Longer than a stall and the time-outs of both ends together: no session works there any more.
constexpr auto kSettled = 60s;

int soakMinutes()
{
    return std::max(1, qEnvironmentVariable("BRIX_SOAK_MINUTES", u"30"_s).toInt());
}

std::chrono::milliseconds someTime(SeededRandom *random, int lowestMs, int highestMs)
{
    return std::chrono::milliseconds(random->between(lowestMs, highestMs));
}

// A byte in the small talk of a session as likely as one in a long transfer.
qint64 somePlace(SeededRandom *random)
{
    return random->between(0, qint64(1) << random->between(4, 24));
}

//! A path that delays always, and often cuts or stalls.
ConnectionPlan somePath(SeededRandom *random)
{
    FlowPlan up{.delay = someTime(random, 1, 30)};
    FlowPlan down{.delay = someTime(random, 1, 30)};
    FlowPlan &struck = random->chance(50) ? up : down;
    const qint64 kind = random->between(0, 9);
    if (kind < 5) {
        constexpr FlowFault kCuts[] = {FlowFault::Reset, FlowFault::Close, FlowFault::HalfClose};
        struck.faultAt = somePlace(random);
        struck.fault = kCuts[random->between(0, 2)];
    } else if (kind < 7) {
        struck.faultAt = somePlace(random);
        struck.fault = FlowFault::Stall;
        struck.stallTime = someTime(random, 100, 8000);
    } else if (kind < 8) {
        struck.bytesPerSecond = random->between(200'000, 5'000'000);
        struck.packetBytes = random->between(100, 10'000);
        struck.joinWindow = someTime(random, 0, 5);
    }
    return {.toServer = up, .toClient = down};
}

} // namespace

class tst_Soak : public QObject
{
    Q_OBJECT

private:
    ToolServer m_server;
    QTemporaryDir m_local;
    SoakScore m_score;
    std::list<SoakPlayer> m_players;
    std::unique_ptr<FaultProxy> m_proxy;
    int m_playing = 0;

    // A client after the other, until the time is up.
    void play(SoakPlayer *player)
    {
        auto *client = new SClientFtp(QHostAddress(QHostAddress::LocalHost), m_proxy->port());
        player->attach(client);
        auto *runner = new SSimpleBackgroundRunner(client, this);
        connect(runner, &SSimpleBackgroundRunner::finished, this, [this, runner, player] {
            runner->deleteLater();
            player->detach();
            player->checkLeftovers(kSettled);
            if (m_score.stop)
                --m_playing;
            else
                play(player);
        });
        runner->start();
    }

    void tell(const Sample &sample) const
    {
        qInfo("%4lld s: %lld operations, %lld files of %lld MiB compared, %lld sessions of which "
              "%lld broke; the server: %lld KiB, %lld threads, %lld descriptors",
              qlonglong(sample.msec / 1000), qlonglong(m_score.operations),
              qlonglong(m_score.files), qlonglong(m_score.fileBytes >> 20),
              qlonglong(m_score.sessions), qlonglong(m_score.broken), qlonglong(sample.memoryKiB),
              qlonglong(sample.threads), qlonglong(sample.descriptors));
    }

    void playFor(std::chrono::milliseconds time, ProcessWatch *watch)
    {
        const QDeadlineTimer end(time);
        qint64 minute = 0;
        while (!end.hasExpired() && m_score.problems().isEmpty()) {
            (void)waitWithEvents([] { return false; }, kSampleEvery);
            const Sample sample = watch->sample();
            if (sample.msec / 60'000 > minute) {
                minute = sample.msec / 60'000;
                tell(sample);
            }
        }
    }

    bool stop()
    {
        m_score.stop = true;
        return waitWithEvents([this] { return m_playing == 0; }, 3min) && m_proxy->waitForIdle(30s);
    }

private Q_SLOTS:
    void cleanup()
    {
        if (!m_proxy)
            return;
        m_proxy->resetAll();
        QVERIFY(stop());
        m_proxy.reset();
    }

    void serverStaysFlat()
    {
        const std::chrono::milliseconds whole = std::chrono::minutes(soakMinutes());
        // The first minutes fill caches and pools.
        const auto settled = std::min<std::chrono::milliseconds>(5min, whole / 3);
        SeededRandom random;

        QVERIFY(m_server.start());
        ProcessWatch watch(m_server.process().processId());
        const Sample rest = watch.sample();
        const auto isAtRest = [&] {
            const Sample sample = watch.sample();
            return sample.threads == rest.threads && sample.descriptors == rest.descriptors;
        };
        // What the first session of all leaves is not what this is about.
        QCOMPARE(m_server.run({u"whoami"_s, m_server.url()}).exitCode, 0);
        QVERIFY(QTest::qWaitFor(isAtRest, 10'000));

        m_proxy = std::make_unique<FaultProxy>(m_server.port());
        m_proxy->setPlanner([paths = std::make_shared<SeededRandom>(random.seed())](size_t) {
            return somePath(paths.get());
        });
        for (int i = 1; i <= kPlayers; ++i) {
            const auto name = u"player%1"_s.arg(i);
            m_players.emplace_back(
                &m_score,
                SoakPlayer::Places{m_server.home(), name, m_local.filePath(name), m_proxy->port()},
                random.seed() + static_cast<quint32>(i));
            ++m_playing;
            play(&m_players.back());
        }
        playFor(whole, &watch);
        const qint64 end = watch.samples().last().msec;

        QVERIFY(stop());
        QVERIFY(QTest::qWaitFor(isAtRest, 60'000));
        tell(watch.samples().last());
        for (SoakPlayer &player : m_players)
            player.checkLeftovers(0ms);
        QCOMPARE(m_score.problems().join(u", "_s), QString());
        QCOMPARE(FileTree::below(m_server.home()).filter(u".part"_s), QStringList());
        QCOMPARE(m_server.process().state(), QProcess::Running);

        // Chance alone moves the medians of a short run by up to half of what they may rise here.
        //
        // A session that its client has given up may live on until the server has noticed, so that
        // there may be more of them than clients. Each has a thread, its connection, and what wakes
        // its thread; some have a file open.
        const qint64 sessions = 2 * kPlayers;
        for (const Flatness &flat :
             {Flatness{"memory in KiB", &Sample::memoryKiB, 4096, rest.memoryKiB + 65536},
              Flatness{"threads", &Sample::threads, 10, rest.threads + sessions},
              Flatness{"descriptors", &Sample::descriptors, 20, rest.descriptors + 4 * sessions}})
            QCOMPARE(flat.check(watch, settled.count(), end), QString());
    }
};

int main(int count, char *arguments[])
{
    // Qt ends a function of a test that takes longer than five minutes.
    qputenv("QTEST_FUNCTION_TIMEOUT", QByteArray::number((soakMinutes() + 10) * 60'000));
    const QCoreApplication application(count, arguments);
    tst_Soak test;
    return QTest::qExec(&test, count, arguments);
}

#include "tst_soak.moc"
