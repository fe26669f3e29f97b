// SPDX-License-Identifier: MIT
// Programs that are killed at each system call of what replaces the content of a database or a log,
// and disks that fail or run full at each of them: the old content or the new one is there.
#include "databaseworks.h"

#include <shared/filecallfaults.h>
#include <shared/filesizelimit.h>
#include <shared/killedprocess.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QLoggingCategory>
#include <QtCore/QTemporaryDir>
#include <QtTest/QTest>

#include <algorithm>
#include <cstdio>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

// The sizes of the databases. All of them are thousands of kills.
QList<int> recordCounts()
{
    if (!qEnvironmentVariableIsSet("BRIX_TEST_ALL_KILLS"))
        return {8};
    return {1, 3, 8, 40, 120};
}

FileFault faultOf(const QString &name)
{
    return name == u"kill"   ? FileFault::Kill
           : name == u"half" ? FileFault::KillHalfway
                             : FileFault::None;
}

//! The child: does the work until it is killed, or tells the calls that it took.
int runWork(const QStringList &arguments)
{
    const DatabaseWork *work = databaseWork(arguments.at(0));
    const FileFaultPlan plan{arguments.at(2).toInt(), faultOf(arguments.at(3))};
    QByteArrayList calls;
    const bool isDone = work->run(
        arguments.at(1), [&] { FileCallFaults::arm(plan); },
        [&] { calls = FileCallFaults::disarm(); });
    for (const QByteArray &call : calls)
        std::puts(call.constData());
    return isDone ? 0 : 1;
}

// Full disks

constexpr qint64 kPageBytes = 4096;
constexpr int kMostPages = 200;
constexpr int kNoDisk = 77;

//! A file that takes all but some pages of a disk.
class Filler
{
public:
    explicit Filler(const QString &name)
        : m_file(name)
    {
    }

    bool leave(qint64 bytes)
    {
        const QByteArray page(kPageBytes, 'x');
        if (!m_file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
            return false;
        while (m_file.write(page) == page.size()) {
        }
        return m_file.resize(std::max<qint64>(m_file.size() - bytes, 0));
    }
    void remove() { m_file.remove(); }

private:
    QFile m_file;
};

//! Does the work with so much room; returns what is wrong afterwards.
QString runWithRoom(const DatabaseWork &work, const QString &disk, int pages, bool isOwnDisk,
                    bool *isDone)
{
    const QTemporaryDir folder(disk + u"/work-XXXXXX"_s);
    const Files files = work.prepare(8);
    if (!writeFiles(folder.path(), files))
        return u"no room for the files"_s;
    Filler filler(disk + u"/filler"_s);
    std::optional<FileSizeLimit> limit;
    bool isLimited = true;
    *isDone = work.run(
        folder.path(),
        [&] {
            if (isOwnDisk)
                isLimited = filler.leave(pages * kPageBytes);
            else
                limit.emplace(static_cast<rlim_t>(pages * kPageBytes));
        },
        [&] {
            limit.reset();
            filler.remove();
        });
    bool isNew = false;
    const QString fault = work.check(folder.path(), files, &isNew);
    if (!isLimited || (*isDone && !isNew))
        return u"not limited, or done in vain"_s;
    return fault;
}

//! The child: does the work with no room, with that of a page, and so on until there is enough.
int runOnFullDisk(const QStringList &arguments)
{
    const DatabaseWork *work = databaseWork(arguments.at(0));
    const bool isOwnDisk = arguments.at(2) == u"disk";
    int failures = 0;
    bool isDone = false;
    for (int pages = 0; !isDone && pages < kMostPages; ++pages) {
        const QString fault = runWithRoom(*work, arguments.at(1), pages, isOwnDisk, &isDone);
        if (!fault.isEmpty()) {
            std::printf("%d pages: %s\n", pages, qPrintable(fault));
            return 1;
        }
        failures += isDone ? 0 : 1;
    }
    std::printf("failed with up to %d pages\n", failures - 1);
    return isDone && failures > 0 ? 0 : 1;
}

//! The directories in which a child works, and in which it has its temporary files.
struct Stage
{
    QTemporaryDir folder{scratchTemplate()};
    QString work = folder.filePath(u"work"_s);
    QString temporary = folder.filePath(u"tmp"_s);

    bool make(const Files &files) const
    {
        return QDir().mkpath(work) && QDir().mkpath(temporary) && writeFiles(work, files);
    }
    //! The temporary directories that programs have left with something in them.
    QStringList remains() const
    {
        QStringList remains;
        for (const QFileInfo &remain : QDir(temporary).entryInfoList({u"brix-*"_s}, QDir::Dirs)) {
            if (!QDir(remain.filePath()).isEmpty())
                remains.append(remain.fileName());
        }
        return remains;
    }
};

bool start(KilledProcess *child, const DatabaseWork &work, const Stage &stage, int call,
           const QString &fault)
{
    child->process().setProgram(QCoreApplication::applicationFilePath());
    child->process().setArguments(
        {u"--work"_s, work.name, stage.work, QString::number(call), fault});
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"TMPDIR"_s, stage.temporary);
    child->process().setProcessEnvironment(environment);
    return child->start() && child->process().waitForFinished();
}

//! Whether the backups by rotation in a directory are those of \a files.
bool hasBackupsOf(const QString &directory, const Files &files)
{
    const QDir dir(directory);
    const QStringList names = dir.entryList({u"machine.B*"_s, u"machine.log.*"_s}, QDir::Files);
    for (const QString &name : names) {
        QFile file(dir.filePath(name));
        const bool isBeside =
            name.endsWith(u".idx") || name.endsWith(u".srec") || name.endsWith(u".lck");
        if (!isBeside && (!file.open(QIODevice::ReadOnly) || file.readAll() != files.value(name)))
            return false;
    }
    return true;
}

//! How often what was there afterwards.
struct Outcome
{
    int kills = 0;
    int old = 0;
    int fresh = 0;
};

} // namespace

class tst_KilledDatabases : public QObject
{
    Q_OBJECT

private:
    Outcome m_all;

    static void addWorks()
    {
        QTest::addColumn<QString>("name");
        for (const DatabaseWork &work : databaseWorks())
            QTest::newRow(qPrintable(work.name)) << work.name;
    }

    //! The calls of the work when nothing goes wrong.
    static QByteArrayList callsOf(const DatabaseWork &work, const Files &files)
    {
        const Stage stage;
        KilledProcess child;
        if (!stage.make(files) || !start(&child, work, stage, 0, u"none"_s) ||
            child.process().exitCode() != 0)
            return {};
        bool isNew = false;
        const QString fault = work.check(stage.work, files, &isNew);
        return fault.isEmpty() && isNew ? child.output().trimmed().split('\n') : QByteArrayList();
    }

    void kill(const DatabaseWork &work, const Files &files, int call, const QString &fault,
              Outcome *outcome)
    {
        const Stage stage;
        QVERIFY(stage.make(files));
        KilledProcess child;
        QVERIFY(start(&child, work, stage, call, fault));
        QCOMPARE(child.process().exitStatus(), QProcess::CrashExit);
        bool isNew = false;
        QCOMPARE(work.check(stage.work, files, &isNew), QString());
        QCOMPARE(stage.remains(), QStringList());
        ++outcome->kills;
        ++(isNew ? outcome->fresh : outcome->old);
    }

    void killAtEachCall(const DatabaseWork &work, int records, Outcome *outcome)
    {
        const Files files = work.prepare(records);
        const QByteArrayList calls = callsOf(work, files);
        QVERIFY(!calls.isEmpty());
        for (int call = 1; call <= calls.size(); ++call) {
            QStringList faults{u"kill"_s};
            // A lock is a few bytes of one page, which a kill does not tear.
            if (calls.at(call - 1).startsWith("write") && !calls.at(call - 1).endsWith(".lck"))
                faults.append(u"half"_s);
            for (const QString &fault : faults) {
                kill(work, files, call, fault, outcome);
                if (QTest::currentTestFailed()) {
                    qInfo("%s at call %d of %d, %s, with %d records", qPrintable(fault), call,
                          int(calls.size()), calls.at(call - 1).constData(), records);
                    return;
                }
            }
        }
    }

    // In this process, which goes on afterwards.
    void failAtEachCall(const DatabaseWork &work, FileFault fault)
    {
        const Files files = work.prepare(8);
        int failures = 0;
        for (int call = 1;; ++call) {
            const Stage stage;
            QVERIFY(stage.make(files));
            QByteArrayList calls;
            const bool isDone = work.run(
                stage.work,
                [&] {
                    FileCallFaults::arm({call, fault});
                },
                [&] { calls = FileCallFaults::disarm(); });
            if (calls.size() < call)
                break;
            // Backups by rotation are neither made nor removed in vain.
            const bool isAsBefore = hasBackupsOf(stage.work, files);
            bool isNew = false;
            const QString wrong = work.check(stage.work, files, &isNew);
            if (!wrong.isEmpty() || (isDone && !isNew) || (!isNew && !isAsBefore)) {
                qInfo("call %d, %s: %s", call, calls.at(call - 1).constData(),
                      isDone ? "done" : "failed");
                QCOMPARE(wrong, QString());
                // Of a failure that comes after the new content, the result tells.
                QVERIFY(isNew || !isDone);
                QVERIFY(isNew || isAsBefore);
            }
            failures += isDone ? 0 : 1;
        }
        QVERIFY(failures > 0);
    }

private Q_SLOTS:
    void initTestCase() { QLoggingCategory::setFilterRules(u"default.debug=false"_s); }

    void killAtEachCallLeavesTheOldOrTheNew_data() { addWorks(); }
    void killAtEachCallLeavesTheOldOrTheNew()
    {
        QFETCH(const QString, name);
        Outcome outcome;
        for (const int records : recordCounts()) {
            killAtEachCall(*databaseWork(name), records, &outcome);
            if (QTest::currentTestFailed())
                return;
        }
        QVERIFY(outcome.old > 0);
        QVERIFY(outcome.fresh > 0);
        qInfo("%d kills: %d times the old content, %d times the new", outcome.kills, outcome.old,
              outcome.fresh);
        m_all.kills += outcome.kills;
    }

    void failureOfEachCallLeavesTheOldOrTheNew_data() { addWorks(); }
    void failureOfEachCallLeavesTheOldOrTheNew()
    {
        QFETCH(const QString, name);
        failAtEachCall(*databaseWork(name), FileFault::Fail);
    }

    void diskThatIsFullFromEachCallOnLeavesTheOldOrTheNew_data() { addWorks(); }
    void diskThatIsFullFromEachCallOnLeavesTheOldOrTheNew()
    {
        QFETCH(const QString, name);
        failAtEachCall(*databaseWork(name), FileFault::DiskFull);
    }

    // On a disk of its own in memory. Where the system grants none, with a limit for each file.
    void diskWithTooFewPagesLeavesTheOldOrTheNew_data() { addWorks(); }
    void diskWithTooFewPagesLeavesTheOldOrTheNew()
    {
        QFETCH(const QString, name);
        const QTemporaryDir disk;
        const QString own = QCoreApplication::applicationFilePath();
        QProcess child;
        child.start(u"unshare"_s, {u"--map-root-user"_s, u"--mount"_s, u"sh"_s, u"-c"_s,
                                   u"mount -t tmpfs -o size=1m tmpfs \"$2\" || exit %1; "
                                   "exec \"$0\" --full \"$1\" \"$2\" disk"_s.arg(kNoDisk),
                                   own, name, disk.path()});
        const bool hasStarted = child.waitForStarted();
        QVERIFY(!hasStarted || child.waitForFinished(120'000));
        // 1 is what unshare returns when it may not.
        if (!hasStarted || child.exitCode() == kNoDisk ||
            child.readAllStandardError().startsWith("unshare:")) {
            child.start(own, {u"--full"_s, name, disk.path(), u"limit"_s});
            QVERIFY(child.waitForFinished(120'000));
        }
        const QByteArray output = child.readAllStandardOutput().trimmed();
        QCOMPARE(child.exitStatus(), QProcess::NormalExit);
        QVERIFY2(child.exitCode() == 0, output.constData());
        qInfo("%s", output.constData());
    }

    void cleanupTestCase() { qInfo("%d kills in all", m_all.kills); }
};

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == u"--work") {
        QLoggingCategory::setFilterRules(u"default.debug=false"_s);
        return runWork(arguments.sliced(2));
    }
    if (arguments.value(1) == u"--full") {
        QLoggingCategory::setFilterRules(u"default.debug=false"_s);
        return runOnFullDisk(arguments.sliced(2));
    }
    tst_KilledDatabases test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_killeddatabases.moc"
