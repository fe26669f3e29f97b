// SPDX-License-Identifier: MIT
// One database for several threads of a program, and one file for several programs.
#include "sampledatabase.h"

#include <QtCore/QBuffer>
#include <QtCore/QLoggingCategory>
#include <QtCore/QProcess>
#include <QtCore/QThread>

#include <functional>

using namespace Talverine;
using namespace Talverine::Sample;
using namespace Qt::StringLiterals;

namespace {

constexpr int kThreads = 8;
constexpr int kPatienceMs = 120'000;

QString nameOf(const QString &who, int number)
{
    return u"%1-%2"_s.arg(who).arg(number);
}

//! Runs \a work in eight threads with their numbers; false when one takes too long.
bool runInThreads(const std::function<void(int)> &work)
{
    std::vector<std::unique_ptr<QThread>> threads;
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back(QThread::create([&work, number] { work(number); }));
        threads.back()->start();
    }
    bool isDone = true;
    for (const auto &thread : threads)
        isDone = thread->wait(kPatienceMs) && isDone;
    return isDone;
}

bool areAllSigned(SDBText &database)
{
    for (SDBIterator it = database.begin(); it != database.end(); ++it) {
        if (!it->checkSignature())
            return false;
    }
    return true;
}

// The other programs

constexpr int kPrograms = 2;
constexpr int kTurns = 20;

// While another program has the file, it is refused at once.
bool openWhenFree(SDBText *database, const QString &file)
{
    database->authenticate(kUser, kPassword);
    QElapsedTimer waited;
    waited.start();
    while (!database->open(file)) {
        if (database->error() != DBError::FileLockError || waited.hasExpired(kPatienceMs))
            return false;
        QThread::msleep(1);
    }
    return true;
}

// Adds 1 to a number that all programs share, and a record of each thread.
bool takeTurn(const QString &file, const QString &who, int turn)
{
    SDBText database;
    if (!openWhenFree(&database, file))
        return false;
    const int level = database[u"shared"_s].value(u"level"_s).toInt();
    if (!database.replace(ink(u"shared"_s, level + 1)))
        return false;
    std::atomic<int> inserted = 0;
    const bool isDone = runInThreads([&](int thread) {
        inserted += database.insert(ink(nameOf(who, turn * kThreads + thread)));
    });
    return isDone && inserted == kThreads && database.close();
}

int runProgram(const QString &file, const QString &who)
{
    for (int turn = 0; turn < kTurns; ++turn) {
        if (!takeTurn(file, who, turn))
            return 1;
    }
    return 0;
}

} // namespace

class tst_SDBText_Sharing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void eightThreadsInsertAndRemove()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        QVERIFY(runInThreads([&](int thread) {
            for (int i = 0; i < 200; ++i) {
                const QString name = nameOf(QString::number(thread), i);
                database.insert(ink(name, i));
                SDBRecord record;
                database.value(name, record);
                if (i % 2)
                    database.remove(name);
            }
        }));
        QCOMPARE(database.count(), kThreads * 100);
        QVERIFY(database.open(&device));
        QCOMPARE(database.count(), kThreads * 100);
        QVERIFY(areAllSigned(database));
    }

    // Four write what is their own, while the others do all that reads, and purge now and then.
    void eightThreadsDoDifferentThings()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        QVERIFY(database.addFieldIndex(u"level"_s));
        std::atomic<int> failures = 0;
        QVERIFY(runInThreads([&](int thread) {
            const QString who = QString::number(thread / 2);
            for (int i = 0; i < 60; ++i) {
                const QString name = nameOf(who, i);
                if (thread % 2 == 0) {
                    failures += !database.insert(ink(name, i));
                    failures += !database.replace(ink(name, i + 1));
                    failures += i % 3 == 0 && !database.remove(name);
                    failures += i % 20 == 19 && !database.purge();
                    continue;
                }
                SDBRecord record;
                if (database.value(name, record) && !record.checkSignature())
                    ++failures;
                QList<SDBRecord> found;
                database.searchField(SDBField(u"level"_s, i), found);
                for (const SDBRecord &hit : found)
                    failures += !hit.checkSignature();
                database.values(u"level"_s);
                database.first(record);
                database.contains(name);
                failures += database.count() < 0;
            }
        }));
        QCOMPARE(failures, 0);
        QCOMPARE(database.count(), kThreads / 2 * 40);
        QVERIFY(database.open(&device));
        QCOMPARE(database.count(), kThreads / 2 * 40);
        QVERIFY(areAllSigned(database));
    }

    // Whoever has the lock is alone: no turn is lost.
    void twoProgramsOfEightThreadsTakeTurns()
    {
        Place place;
        {
            SDBText database;
            QVERIFY(create(database, place.file));
            QVERIFY(database.insert(ink(u"shared"_s, 0)));
        }
        QProcess programs[kPrograms];
        for (int number = 0; number < kPrograms; ++number) {
            programs[number].setProcessChannelMode(QProcess::ForwardedErrorChannel);
            programs[number].start(QCoreApplication::applicationFilePath(),
                                   {u"program"_s, place.file, QString::number(number)});
        }
        for (QProcess &program : programs) {
            QVERIFY(program.waitForFinished(kPatienceMs));
            QCOMPARE(program.exitCode(), 0);
        }
        SDBText database;
        QVERIFY(openWhenFree(&database, place.file));
        QCOMPARE(database[u"shared"_s].value(u"level"_s).toInt(), kPrograms * kTurns);
        QCOMPARE(database.count(), 1 + kPrograms * kTurns * kThreads);
        QVERIFY(areAllSigned(database));
    }
};

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    // What was removed between two looks, and what another program has, is told in many lines.
    QLoggingCategory::setFilterRules(u"default.debug=false"_s);
    if (arguments.value(1) == u"program")
        return runProgram(arguments.value(2), arguments.value(3));
    tst_SDBText_Sharing test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_sdbtext_sharing.moc"
