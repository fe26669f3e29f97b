// SPDX-License-Identifier: MIT
#include <shared/killedprocess.h>
#include <shared/seededrandom.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include <csignal>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

using End = KilledProcess::End;

namespace {

void prepare(KilledProcess *child, const QString &script)
{
    child->process().setProgram(u"/bin/sh"_s);
    child->process().setArguments({u"-c"_s, script});
}

// Lives until it is killed, and no longer than the test.
const auto kStays = u"echo ready; read line"_s;

} // namespace

class tst_KilledProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void programThatIsNotThereDoesNotStart()
    {
        KilledProcess child;
        child.process().setProgram(u"/nowhere/program"_s);
        QVERIFY(!child.start());
    }

    void killsAtOutput()
    {
        KilledProcess child;
        prepare(&child, u"echo one; echo half; read line; echo never"_s);
        QVERIFY(child.start());
        QCOMPARE(child.killAtOutput("half"), End::Killed);
        QCOMPARE(child.process().state(), QProcess::NotRunning);
        QCOMPARE(child.process().exitStatus(), QProcess::CrashExit);
        QCOMPARE(child.process().exitCode(), SIGKILL);
        QCOMPARE(child.output(), "one\nhalf\n");
    }

    void killsWhenAConditionHolds()
    {
        const QTemporaryDir dir;
        const QString file = dir.filePath(u"file"_s);
        KilledProcess child;
        prepare(&child, u"while :; do echo line >> '%1'; done"_s.arg(file));
        QVERIFY(child.start());
        QCOMPARE(child.killWhen([&] { return QFile(file).size() >= 1000; }), End::Killed);
        // What is left is the caller's to look at, and does not change any more.
        const qint64 left = QFile(file).size();
        QVERIFY(left >= 1000);
        QCOMPARE(QFile(file).size(), left);
    }

    void clearsNothingAwayInTheChild()
    {
        const QTemporaryDir dir;
        const QString file = dir.filePath(u"partial"_s);
        KilledProcess child;
        prepare(&child,
                u"trap 'rm \"%1\"' EXIT TERM INT HUP; echo x > '%1'; echo ready; read line"_s.arg(
                    file));
        QVERIFY(child.start());
        QCOMPARE(child.killAtOutput("ready"), End::Killed);
        QVERIFY(QFile::exists(file));
    }

    void killsAfterAChosenTime()
    {
        KilledProcess child;
        prepare(&child, kStays);
        QVERIFY(child.start());
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(child.killAfter(50ms), End::Killed);
        QVERIFY(timer.elapsed() >= 50);
    }

    void killsAtRandomMoments()
    {
        SeededRandom random;
        for (int round = 0; round < 20; ++round) {
            KilledProcess child;
            prepare(&child, kStays);
            QVERIFY(child.start());
            QCOMPARE(child.killAfter(std::chrono::milliseconds(random.between(0, 20))),
                     End::Killed);
        }
    }

    void tellsOfAnEndThatCameFirst()
    {
        KilledProcess child;
        prepare(&child, u"echo done; exit 7"_s);
        QVERIFY(child.start());
        QCOMPARE(child.killAtOutput("never"), End::EndedBefore);
        QCOMPARE(child.process().exitCode(), 7);
        QCOMPARE(child.output(), "done\n");
    }

    void crashOfItsOwnIsNoKill()
    {
        KilledProcess child;
        prepare(&child, u"kill -SEGV $$"_s);
        QVERIFY(child.start());
        QCOMPARE(child.killAtOutput("never"), End::EndedBefore);
        QCOMPARE(child.process().exitStatus(), QProcess::CrashExit);
    }

    void patienceHasAnEnd()
    {
        KilledProcess child;
        prepare(&child, kStays);
        QVERIFY(child.start());
        QCOMPARE(child.killAtOutput("never", 50ms), End::MomentNotCome);
        QCOMPARE(child.process().state(), QProcess::NotRunning);
        QCOMPARE(child.output(), "ready\n");
    }

    void endOfTheHelperEndsTheChild()
    {
        qint64 id = 0;
        {
            KilledProcess child;
            prepare(&child, kStays);
            QVERIFY(child.start());
            id = child.process().processId();
            QCOMPARE(::kill(static_cast<pid_t>(id), 0), 0);
        }
        QCOMPARE(::kill(static_cast<pid_t>(id), 0), -1);
    }
};

QTEST_GUILESS_MAIN(tst_KilledProcess)
#include "tst_killedprocess.moc"
