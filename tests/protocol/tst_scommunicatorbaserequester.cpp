// SPDX-License-Identifier: MIT
#include <shared/signallog.h>

#include <brixlib/protocol/scommunicatorbase.h>
#include <brixlib/protocol/scommunicatorbaserequester.h>
#include <brixlib/protocol/socket/stcpsocketspeedcontroller.h>
#include <brixlib/workers/ssimplebackgroundrunner.h>

#include <QtCore/QRegularExpression>
#include <QtCore/QSemaphore>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

//! A communicator without a connection, kept to a folder.
class Worker final : public SCommunicatorBase
{
    Q_OBJECT

public:
    explicit Worker(const QString &root)
    {
        setRootPath(root);
        setTimeout(1234);
    }

    Q_INVOKABLE QThread *runsIn() { return QThread::currentThread(); }

protected:
    bool doWork() override { return true; }
    bool workerInit() override { return true; }
};

class Requester final : public SCommunicatorBaseRequester
{
public:
    using SCommunicatorBaseRequester::emitInvokeError;
    using SCommunicatorBaseRequester::post;
    using SCommunicatorBaseRequester::query;
    using SCommunicatorBaseRequester::SCommunicatorBaseRequester;
    using SCommunicatorBaseRequester::setWorker;
};

} // namespace

class tst_SCommunicatorBaseRequester : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void knowsItsWorker();
    void queriesReachAnotherThread();
    void fileOperationsReachAnotherThread();
    void postsReachAnotherThread();
    void speedControllerIsTakenAndLeft();
    void queryRunsInTheWorkersThread();
    void queryWaitsForTheStepInProgress();
    void postDoesNotWait();
    void queryFromTheWorkersThreadIsDirect();
    void sameThreadNeedsNoEventLoop();
    void withoutWorkerAllGiveDefaults();
    void workerThatHasEndedGivesDefaults();
    void unknownOperationTellsItsName();
    void goneWorkerTellsNoError();
    void autoDestroyFollowsTheWorker();
    void autoDestroyCanBeTakenBack();
    void everyThreadMayAsk();
    void workerMayEndWhileItIsAsked();

private:
    void endWorker();

    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<SSimpleBackgroundRunner> m_runner;
    QPointer<Worker> m_worker;
    std::unique_ptr<Requester> m_requester;
    QString m_root;
};

void tst_SCommunicatorBaseRequester::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    QVERIFY(m_folder->isValid());
    m_root = QDir(m_folder->path()).absolutePath();
    m_worker = new Worker(m_root);
    m_runner = std::make_unique<SSimpleBackgroundRunner>(m_worker);
    m_requester = std::make_unique<Requester>(m_worker);
    m_runner->start();
}

void tst_SCommunicatorBaseRequester::cleanup()
{
    m_requester.reset();
    m_runner.reset();
    m_folder.reset();
}

void tst_SCommunicatorBaseRequester::endWorker()
{
    m_runner->requestInterruption();
    QVERIFY(m_runner->waitForFinished(10000));
    QVERIFY(m_worker.isNull());
}

void tst_SCommunicatorBaseRequester::knowsItsWorker()
{
    QCOMPARE(m_requester->worker(), m_worker);
    QVERIFY(!m_requester->isNull());
    m_requester->setWorker(nullptr);
    QVERIFY(m_requester->isNull());
    QCOMPARE(m_requester->worker(), nullptr);
    QVERIFY(Requester(nullptr).isNull());
}

void tst_SCommunicatorBaseRequester::queriesReachAnotherThread()
{
    SignalLog errors(m_requester.get(), &SCommunicatorBaseRequester::invokeError);
    QCOMPARE(m_requester->timeout(), 1234);
    QCOMPARE(m_requester->rootPath(), m_root);
    QCOMPARE(m_requester->currentPath(), m_root);
    QCOMPARE(m_requester->defaulHomeDirLocal(), QDir::homePath());
    QCOMPARE(m_requester->autoSync(), false);
    QCOMPARE(m_requester->storageInfoLocal().rootPath(), QStorageInfo(m_root).rootPath());
    QCOMPARE(errors.count(), 0);
}

void tst_SCommunicatorBaseRequester::fileOperationsReachAnotherThread()
{
    Requester &files = *m_requester;
    SignalLog errors(&files, &SCommunicatorBaseRequester::invokeError);

    QVERIFY(files.makeDirLocal(u"a/b"_s));
    QVERIFY(files.existsLocal(u"a/b"_s));
    QVERIFY(files.changeDirLocal(u"a"_s));
    QCOMPARE(files.currentPath(), m_root + u"/a"_s);
    QFile file(m_root + u"/a/one.txt"_s);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write("text") == 4);
    file.close();

    QVERIFY(files.copyFileLocal(u"one.txt"_s, u"two.txt"_s, false));
    QVERIFY(files.renameFileLocal(u"two.txt"_s, u"three.txt"_s));
    QVERIFY(files.renameLocal(u"three.txt"_s, u"four.txt"_s));
    QVERIFY(files.changePermissionsLocal(
        u"four.txt"_s, SFileEntry::qtPermissionsToFileEntryFlagsToQt(QFile::ReadOwner)));
    QVERIFY(!(QFile::permissions(m_root + u"/a/four.txt"_s) & QFile::WriteOwner));
    QList<QString> names;
    const auto entries = files.listDirLocal(QString(), {u"*.txt"_s});
    for (const SFileEntry &entry : entries)
        names.append(entry.fileName());
    names.sort();
    QCOMPARE(names, QList<QString>({u".."_s, u"four.txt"_s, u"one.txt"_s}));

    QVERIFY(files.homeDirLocal());
    QCOMPARE(files.currentPath(), m_root);
    QVERIFY(files.copyDirLocal(u"a"_s, u"c"_s, false));
    QVERIFY(files.renameDirLocal(u"c"_s, u"d"_s));
    QVERIFY(files.existsLocal(u"d/one.txt"_s));
    QVERIFY(files.removeFileLocal(u"d/one.txt"_s));
    QVERIFY(files.removeLocal(u"d/four.txt"_s, false));
    QVERIFY(files.removeDirLocal(u"d"_s, false));
    QVERIFY(files.removeDirLocal(u"a"_s, true));
    QCOMPARE(QDir(m_root).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());

    QVERIFY(!files.makeDirLocal(u"/outside"_s));
    QVERIFY(!files.existsLocal(u"missing"_s));
    QCOMPARE(errors.count(), 0);
}

void tst_SCommunicatorBaseRequester::postsReachAnotherThread()
{
    SignalLog errors(m_requester.get(), &SCommunicatorBaseRequester::invokeError);
    m_requester->setTimeout(77);
    m_requester->setAutoSync(true);
    m_requester->setDefaultHomeDirLocal(u"/elsewhere"_s);
    // Queries line up behind them.
    QCOMPARE(m_requester->timeout(), 77);
    QCOMPARE(m_requester->autoSync(), true);
    QCOMPARE(m_requester->defaulHomeDirLocal(), u"/elsewhere"_s);
    QCOMPARE(errors.count(), 0);
}

void tst_SCommunicatorBaseRequester::speedControllerIsTakenAndLeft()
{
    SignalLog errors(m_requester.get(), &SCommunicatorBaseRequester::invokeError);
    {
        STcpSocketSpeedController controller;
        m_requester->setSpeedController(&controller);
        m_requester->setSpeedController(nullptr); // has happened when it returns
    }
    QCOMPARE(m_requester->timeout(), 1234);
    QCOMPARE(errors.count(), 0);
}

void tst_SCommunicatorBaseRequester::queryRunsInTheWorkersThread()
{
    QThread *ran = nullptr;
    m_requester->query("runsIn", Q_RETURN_ARG(QThread *, ran));
    QCOMPARE(ran, m_worker->thread());
    QVERIFY(ran != QThread::currentThread());
}

void tst_SCommunicatorBaseRequester::queryWaitsForTheStepInProgress()
{
    QSemaphore inStep;
    QSemaphore goOn;
    std::atomic_bool stepDone = false;
    QMetaObject::invokeMethod(m_worker, [&] {
        inStep.release();
        (void)goOn.tryAcquire(1, 10000);
        stepDone = true;
    });
    QVERIFY(inStep.tryAcquire(1, 10000));
    const std::unique_ptr<QThread> releaser(QThread::create([&] {
        QThread::msleep(50);
        goOn.release();
    }));
    releaser->start();
    QCOMPARE(m_requester->timeout(), 1234);
    QVERIFY(stepDone);
    releaser->wait();
}

void tst_SCommunicatorBaseRequester::postDoesNotWait()
{
    QSemaphore inStep;
    QSemaphore goOn;
    QMetaObject::invokeMethod(m_worker, [&] {
        inStep.release();
        (void)goOn.tryAcquire(1, 10000);
    });
    QVERIFY(inStep.tryAcquire(1, 10000));
    m_requester->setTimeout(5); // would hang if it waited
    goOn.release();
    QCOMPARE(m_requester->timeout(), 5);
}

void tst_SCommunicatorBaseRequester::queryFromTheWorkersThreadIsDirect()
{
    int given = 0;
    QMetaObject::invokeMethod(
        m_worker, [&] { given = m_requester->timeout(); }, Qt::BlockingQueuedConnection);
    QCOMPARE(given, 1234);
}

void tst_SCommunicatorBaseRequester::sameThreadNeedsNoEventLoop()
{
    Worker worker(m_root);
    Requester requester(&worker);
    QCOMPARE(requester.timeout(), 1234);
    requester.setTimeout(5);
    QCOMPARE(worker.timeout(), 5);
    QCOMPARE(requester.timeout(), 5);
}

void tst_SCommunicatorBaseRequester::withoutWorkerAllGiveDefaults()
{
    Requester none(nullptr);
    SignalLog errors(&none, &SCommunicatorBaseRequester::invokeError);
    QVERIFY(!none.autoSync());
    QVERIFY(!none.changeDirLocal(m_root));
    QVERIFY(!none.changePermissionsLocal(m_root, FileEntryFlags::Readable));
    QVERIFY(!none.copyDirLocal(m_root, m_root));
    QVERIFY(!none.copyFileLocal(m_root, m_root));
    QCOMPARE(none.currentPath(), QString());
    QCOMPARE(none.defaulHomeDirLocal(), QString());
    QVERIFY(!none.existsLocal(m_root));
    QVERIFY(!none.homeDirLocal());
    QVERIFY(none.listDirLocal(m_root).isEmpty());
    QVERIFY(!none.makeDirLocal(m_root));
    QVERIFY(!none.removeDirLocal(m_root, true));
    QVERIFY(!none.removeFileLocal(m_root));
    QVERIFY(!none.removeLocal(m_root, true));
    QVERIFY(!none.renameDirLocal(m_root, u"x"_s));
    QVERIFY(!none.renameFileLocal(m_root, u"x"_s));
    QVERIFY(!none.renameLocal(m_root, u"x"_s));
    QCOMPARE(none.rootPath(), QString());
    QVERIFY(!none.storageInfoLocal().isValid());
    QCOMPARE(none.timeout(), 0);
    none.setAutoSync(true);
    none.setDefaultHomeDirLocal(m_root);
    none.setSpeedController(nullptr);
    none.setTimeout(1);
    none.setAutoDestroy(true);
    none.setAutoDestroy(false);
    QVERIFY(QDir(m_root).exists());
    QCOMPARE(errors.count(), 0);
}

void tst_SCommunicatorBaseRequester::workerThatHasEndedGivesDefaults()
{
    QCOMPARE(m_requester->timeout(), 1234);
    endWorker();
    QVERIFY(m_requester->isNull());
    QCOMPARE(m_requester->timeout(), 0);
    QCOMPARE(m_requester->currentPath(), QString());
    m_requester->setTimeout(5);
}

void tst_SCommunicatorBaseRequester::unknownOperationTellsItsName()
{
    SignalLog errors(m_requester.get(), &SCommunicatorBaseRequester::invokeError);
    const QRegularExpression warning(u"No such method"_s);
    int result = 7;
    QTest::ignoreMessage(QtWarningMsg, warning);
    m_requester->query("nothing", Q_RETURN_ARG(int, result), Q_ARG(bool, true));
    QCOMPARE(result, 7);
    QTest::ignoreMessage(QtWarningMsg, warning);
    m_requester->post("setTimeout", Q_ARG(QString, u"soon"_s));
    m_requester->emitInvokeError(u"own"_s);
    QCOMPARE(errors.entries(),
             (QList<std::tuple<QString>>{{u"nothing"_s}, {u"setTimeout"_s}, {u"own"_s}}));
}

void tst_SCommunicatorBaseRequester::goneWorkerTellsNoError()
{
    SignalLog errors(m_requester.get(), &SCommunicatorBaseRequester::invokeError);
    endWorker();
    m_requester->query("nothing");
    m_requester->post("nothing");
    QCOMPARE(errors.count(), 0);
}

void tst_SCommunicatorBaseRequester::autoDestroyFollowsTheWorker()
{
    const QPointer<Requester> requester = new Requester(m_worker);
    requester->setAutoDestroy(true);
    requester->setAutoDestroy(true); // once is enough
    endWorker();
    QVERIFY(requester); // not before its own thread's events
    QTRY_VERIFY(requester.isNull());
}

void tst_SCommunicatorBaseRequester::autoDestroyCanBeTakenBack()
{
    const QPointer<Requester> requester = new Requester(m_worker);
    const std::unique_ptr<Requester> owner(requester.data());
    requester->setAutoDestroy(true);
    requester->setAutoDestroy(false);
    endWorker();
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(requester);
}

void tst_SCommunicatorBaseRequester::everyThreadMayAsk()
{
    std::atomic_int right = 0;
    std::vector<std::unique_ptr<QThread>> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(QThread::create([&] {
            for (int k = 0; k < 50; ++k) {
                if (m_requester->timeout() == 1234)
                    ++right;
            }
        }));
        threads.back()->start();
    }
    for (const auto &thread : threads)
        QVERIFY(thread->wait(10000));
    QCOMPARE(right.load(), 200);
}

void tst_SCommunicatorBaseRequester::workerMayEndWhileItIsAsked()
{
    for (int round = 0; round < 100; ++round) {
        QSemaphore asked;
        std::atomic_int wrong = 0;
        const std::unique_ptr<QThread> thread(QThread::create([&] {
            while (!m_requester->isNull()) {
                m_requester->setDefaultHomeDirLocal(m_root);
                const int timeout = m_requester->timeout();
                if (timeout != 1234 && timeout != 0)
                    ++wrong;
                asked.release();
            }
        }));
        thread->start();
        QVERIFY(asked.tryAcquire(3, 10000));
        endWorker();
        QVERIFY(thread->wait(10000));
        QCOMPARE(wrong.load(), 0);
        QCOMPARE(m_requester->timeout(), 0);
        cleanup();
        init();
    }
}

QTEST_GUILESS_MAIN(tst_SCommunicatorBaseRequester)
#include "tst_scommunicatorbaserequester.moc"
