// SPDX-License-Identifier: MIT
#include <brixlib/protocol/commands/scommandwhoami.h>
#include <brixlib/protocol/scommandhelper.h>
#include <brixlib/protocol/scommunicatorbase.h>
#include <brixlib/protocol/socket/stcpsocket.h>
#include <brixlib/protocol/socket/stcpsocketspeedcontroller.h>
#include <brixlib/protocol/wire.h>

#include <shared/descriptorshortage.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr int kWaitMs = 10000;
constexpr int kShortMs = 200;

// Opens the operations that are kept for deriving classes.
class Communicator : public SCommunicatorBase
{
public:
    using SCommunicatorBase::absoluteChildPath;
    using SCommunicatorBase::absoluteMovePath;
    using SCommunicatorBase::authenticationStatus;
    using SCommunicatorBase::close;
    using SCommunicatorBase::contextId;
    using SCommunicatorBase::copyFile;
    using SCommunicatorBase::generateHashedPassword;
    using SCommunicatorBase::isSyncRequired;
    using SCommunicatorBase::progressFromSize;
    using SCommunicatorBase::readAll;
    using SCommunicatorBase::readBody;
    using SCommunicatorBase::readReplyFrame;
    using SCommunicatorBase::readWord;
    using SCommunicatorBase::readWord64;
    using SCommunicatorBase::registerCommand;
    using SCommunicatorBase::setContextId;
    using SCommunicatorBase::setCurrentPath;
    using SCommunicatorBase::setRootPath;
    using SCommunicatorBase::setSocket;
    using SCommunicatorBase::setUuid;
    using SCommunicatorBase::socket;
    using SCommunicatorBase::supportedCommands;
    using SCommunicatorBase::syncIf;
    using SCommunicatorBase::uuid;
    using SCommunicatorBase::writeAll;
    using SCommunicatorBase::writeFrame;
    using SCommunicatorBase::writeWord;
    using SCommunicatorBase::writeWord64;

protected:
    bool doWork() override { return true; }
};

// A socket of the library's kind and a bare one at the other end.
struct Pair
{
    Pair()
    {
        QTcpServer listener;
        listener.listen(QHostAddress::LocalHost);
        near.connectToHost(QHostAddress::LocalHost, listener.serverPort());
        connected = near.waitForConnected(kWaitMs) && listener.waitForNewConnection(kWaitMs);
        if (connected) {
            far.reset(listener.nextPendingConnection());
            far->setParent(nullptr);
        }
    }

    bool send(const QByteArray &bytes)
    {
        far->write(bytes);
        return far->waitForBytesWritten(kWaitMs);
    }
    QByteArray received(qsizetype size)
    {
        while (far->bytesAvailable() < size && far->waitForReadyRead(kWaitMs)) {
        }
        return far->readAll();
    }

    STcpSocket near{nullptr};
    std::unique_ptr<QTcpSocket> far;
    bool connected = false;
};

bool writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(cannot be read)");
}

// Lets no file of this process grow beyond so many bytes, as on a disk that is full.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
        : m_handler(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit{bytes, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_handler);
    }
    Q_DISABLE_COPY(FileSizeLimit)

private:
    rlimit m_before = {};
    void (*m_handler)(int);
};

// A device that gives an error at a chosen read or write.
class FailingDevice : public QIODevice
{
public:
    explicit FailingDevice(qint64 good)
        : m_good(good)
    {
    }
    bool isSequential() const override { return true; }

protected:
    qint64 readData(char *data, qint64 size) override
    {
        if (m_good <= 0)
            return -1;
        const qint64 count = std::min(size, m_good);
        std::fill_n(data, count, 'x');
        m_good -= count;
        return count;
    }
    qint64 writeData(const char *, qint64 size) override
    {
        const qint64 count = std::min(size, m_good);
        m_good -= count;
        return count > 0 ? count : -1;
    }
    qint64 bytesAvailable() const override { return m_good + 1 + QIODevice::bytesAvailable(); }

private:
    qint64 m_good;
};

} // namespace

class tst_SCommunicatorBase : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_root = QDir(m_dir->path()).canonicalPath() + u"/root"_s;
        QVERIFY(QDir().mkpath(m_root + u"/a/b"_s));
        // An empty path means the folder that the process works in: what an operation that takes
        // one by mistake does there must hurt nobody.
        m_before = QDir::currentPath();
        QVERIFY(QDir().mkpath(workFolder() + u"/kept"_s));
        QVERIFY(QDir::setCurrent(workFolder()));
        m_worker = std::make_unique<Communicator>();
        QVERIFY(m_worker->setRootPath(m_root));
    }
    void cleanup()
    {
        QVERIFY(QDir(workFolder() + u"/kept"_s).exists());
        QVERIFY(QDir::setCurrent(m_before));
        m_worker.reset();
        m_dir.reset();
    }

    void startsWithoutSocketJailOrLogin()
    {
        Communicator fresh;
        QVERIFY(fresh.isNull());
        QVERIFY(fresh.uuid().isNull());
        QVERIFY(!fresh.autoSync());
        QCOMPARE(fresh.rootPath(), QString());
        QCOMPARE(fresh.defaulHomeDirLocal(), QDir::homePath());
        QCOMPARE(fresh.currentPath(), QDir(QDir::homePath()).absolutePath());
        QCOMPARE(fresh.authenticationStatus(), AuthenticationStatus::NotAuthenticated);
        QVERIFY(Communicator().contextId() > fresh.contextId());
    }

    void operationsByNameStandInTheirOrder()
    {
        const QMetaObject &meta = SCommunicatorBase::staticMetaObject;
        QList<QByteArray> names;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
            const QMetaMethod method = meta.method(i);
            // One with a default argument stands there twice.
            if (method.methodType() == QMetaMethod::Method &&
                (names.isEmpty() || names.last() != method.name()))
                names.append(method.name());
        }
        const QList<QByteArray> expected = {
            "currentPath",    "rootPath",           "changeDirLocal",
            "homeDirLocal",   "makeDirLocal",       "removeDirLocal",
            "listDirLocal",   "removeFileLocal",    "renameFileLocal",
            "renameDirLocal", "removeLocal",        "renameLocal",
            "copyFileLocal",  "copyDirLocal",       "storageInfoLocal",
            "timeout",        "setSpeedController", "defaulHomeDirLocal",
            "existsLocal",    "autoSync",           "changePermissionsLocal",
        };
        QCOMPARE(names, expected);
    }

    // ---- The path jail ----

    void pathAboveTheJailIsEmpty()
    {
        QVERIFY(m_worker->setCurrentPath(u"a"_s, false));
        QCOMPARE(m_worker->absoluteChildPath(u"../../x"_s, m_root), QString());
        QCOMPARE(m_worker->absoluteChildPath(u"../x"_s, m_root), m_root + u"/x"_s);
    }

    void jailTestIgnoresCase()
    {
        const QString upper = m_root.toUpper() + u"/x"_s;
        QCOMPARE(m_worker->absoluteChildPath(upper, m_root), upper);
    }

    void neighbourWithTheSameBeginningPasses()
    {
        QCOMPARE(m_worker->absoluteChildPath(m_root + u"2/x"_s, m_root), m_root + u"2/x"_s);
    }

    void pathWithAZeroIsOutsideEveryJail_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("behind the folder above") << QString(u"..\0"_s);
        QTest::newRow("behind a folder") << QString(u"a\0"_s);
        QTest::newRow("within a name") << QString(u"a/f\0ile"_s);
        QTest::newRow("alone") << QString(u"\0"_s);
        QTest::newRow("absolute") << QString(u"/etc\0"_s);
    }
    // The system reads a name up to the zero: ".." would be listed, and below it for ever.
    void pathWithAZeroIsOutsideEveryJail()
    {
        QFETCH(QString, path);
        QTest::failOnWarning(QRegularExpression(u"."_s));
        QVERIFY(writeFile(m_root + u"/a/f"_s, "x"));
        QCOMPARE(m_worker->absoluteChildPath(path, m_root), QString());
        QCOMPARE(m_worker->absoluteChildPath(path, QString()), QString());
        QCOMPARE(m_worker->absoluteMovePath(m_root + u"/a"_s, path, u"t"_s, QString()), QString());
        QVERIFY(m_worker->listDirLocal(path).isEmpty());
        QVERIFY(!m_worker->copyDirLocal(path, u"copy"_s, false));
        QVERIFY(!m_worker->copyFileLocal(path, u"copy"_s, false));
        QVERIFY(!QFileInfo::exists(m_root + u"/copy"_s));
    }

    void childPaths_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("expected");
        QTest::newRow("empty is the current directory") << u""_s << u"%1/a"_s;
        QTest::newRow("relative") << u"b/c"_s << u"%1/a/b/c"_s;
        QTest::newRow("dots are cleaned") << u"./b/../c//d"_s << u"%1/a/c/d"_s;
        QTest::newRow("absolute inside") << u"%1/x"_s << u"%1/x"_s;
        QTest::newRow("absolute outside") << u"/etc/passwd"_s << u""_s;
        QTest::newRow("absolute that climbs out") << u"%1/../../etc"_s << u""_s;
        QTest::newRow("percent markers stay") << u"50%2 off"_s << u"%1/a/50%2 off"_s;
    }
    void childPaths()
    {
        QFETCH(QString, path);
        QFETCH(QString, expected);
        QVERIFY(m_worker->setCurrentPath(u"a"_s, false));
        QCOMPARE(m_worker->absoluteChildPath(path.replace(u"%1"_s, m_root), m_worker->rootPath()),
                 expected.replace(u"%1"_s, m_root));
    }

    void movedPaths_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("sourceBase");
        QTest::addColumn<QString>("targetBase");
        QTest::addColumn<QString>("root");
        QTest::addColumn<QString>("expected");
        QTest::newRow("below a new base")
            << u"/s/a/f"_s << u"/s"_s << u"/t"_s << u""_s << u"/t/a/f"_s;
        QTest::newRow("no target base") << u"/s/a/f"_s << u"/s"_s << u""_s << u""_s << u"a/f"_s;
        QTest::newRow("the base itself") << u"/s"_s << u"/s"_s << u"/t"_s << u""_s << u""_s;
        QTest::newRow("outside the base") << u"/x/f"_s << u"/s"_s << u"/t"_s << u""_s << u""_s;
        QTest::newRow("percent signs stay")
            << u"/s/100%1/50%2"_s << u"/s"_s << u"/t%1"_s << u""_s << u"/t%1/100%1/50%2"_s;
        QTest::newRow("target inside the root")
            << u"/s/a/f"_s << u"/s"_s << u"/r/t"_s << u"/r"_s << u"/r/t/a/f"_s;
        QTest::newRow("target outside the root stays relative")
            << u"/s/a/f"_s << u"/s"_s << u"/x"_s << u"/r"_s << u"a/f"_s;
        QTest::newRow("case of the base counts when it is cut off")
            << u"/S/a/f"_s << u"/s"_s << u"/t"_s << u""_s << u"/t/S/a/f"_s;
    }
    void movedPaths()
    {
        QFETCH(QString, path);
        QFETCH(QString, sourceBase);
        QFETCH(QString, targetBase);
        QFETCH(QString, root);
        QTEST(m_worker->absoluteMovePath(path, sourceBase, targetBase, root), "expected");
    }

    void missingRootIsRefused()
    {
        QSignalSpy refused(m_worker.get(), &SCommunicatorBase::invalidRootDir);
        QVERIFY(m_worker->setCurrentPath(u"a"_s, false));
        QVERIFY(!m_worker->setRootPath(m_root + u"/missing"_s));
        QCOMPARE(refused.size(), 1);
        QCOMPARE(refused.at(0).at(0).toString(), m_root + u"/missing"_s);
        QCOMPARE(m_worker->rootPath(), m_root);
        QCOMPARE(m_worker->currentPath(), m_root + u"/a"_s);
    }

    void emptyRootLiftsTheJailAndGoesHome()
    {
        m_worker->setDefaultHomeDirLocal(m_root + u"/a"_s);
        QVERIFY(m_worker->setRootPath(QString()));
        QCOMPARE(m_worker->rootPath(), QString());
        QCOMPARE(m_worker->currentPath(), m_root + u"/a"_s);
        QVERIFY(m_worker->existsLocal(u"/"_s));
    }

    void currentPathIsMadeOnlyWhenAsked()
    {
        QVERIFY(!m_worker->setCurrentPath(u"new/deep"_s, false));
        QCOMPARE(m_worker->currentPath(), m_root);
        QVERIFY(m_worker->setCurrentPath(u"new/deep"_s, true));
        QCOMPARE(m_worker->currentPath(), m_root + u"/new/deep"_s);
        QVERIFY(m_worker->setCurrentPath(QString(), false));
        QCOMPARE(m_worker->currentPath(), m_root);
        QVERIFY(!m_worker->setCurrentPath(u"/etc"_s, false));
    }

    void changeDirSpeaksAndGoesHomeWithoutPath()
    {
        QSignalSpy changed(m_worker.get(), &SCommunicatorBase::localDirChanged);
        QVERIFY(m_worker->changeDirLocal(u"a/b"_s));
        QVERIFY(!m_worker->changeDirLocal(u"missing"_s));
        QVERIFY(!m_worker->changeDirLocal(u"../../.."_s));
        QVERIFY(m_worker->homeDirLocal());
        QCOMPARE(changed.size(), 2);
        QCOMPARE(changed.at(0).at(0).toString(), m_root + u"/a/b"_s);
        QCOMPARE(changed.at(1).at(0).toString(), m_root);

        m_worker->setDefaultHomeDirLocal(m_root + u"/a"_s);
        QVERIFY(m_worker->setRootPath(QString()));
        QVERIFY(m_worker->changeDirLocal(u"/"_s));
        QVERIFY(m_worker->changeDirLocal(QString()));
        QCOMPARE(m_worker->currentPath(), m_root + u"/a"_s);
    }

    // ---- Local operations ----

    void refusesWhatLiesOutside_data()
    {
        using Operation = std::function<bool(Communicator &, const QString &outside)>;
        QTest::addColumn<Operation>("operation");
        const auto row = [](const char *name, const Operation &operation) {
            QTest::newRow(name) << operation;
        };
        row("change", [](auto &w, auto &out) { return w.changeDirLocal(out); });
        row("make", [](auto &w, auto &out) { return w.makeDirLocal(out + u"/new"_s); });
        row("remove a file",
            [](auto &w, auto &out) { return w.removeFileLocal(out + u"/file"_s); });
        row("remove a folder", [](auto &w, auto &out) { return w.removeDirLocal(out, true); });
        row("remove", [](auto &w, auto &out) { return w.removeLocal(out, true); });
        row("rename a file from there",
            [](auto &w, auto &out) { return w.renameFileLocal(out + u"/file"_s, u"new"_s); });
        row("rename a file to there",
            [](auto &w, auto &out) { return w.renameFileLocal(u"file"_s, out + u"/new"_s); });
        row("rename a folder from there",
            [](auto &w, auto &out) { return w.renameDirLocal(out, u"new"_s); });
        row("rename a folder to there",
            [](auto &w, auto &out) { return w.renameDirLocal(u"a"_s, out + u"/new"_s); });
        row("rename from there", [](auto &w, auto &out) { return w.renameLocal(out, u"new"_s); });
        row("rename to there",
            [](auto &w, auto &out) { return w.renameLocal(u"a"_s, out + u"/new"_s); });
        row("copy a file from there",
            [](auto &w, auto &out) { return w.copyFileLocal(out + u"/file"_s, u"new"_s); });
        row("copy a file to there",
            [](auto &w, auto &out) { return w.copyFileLocal(u"file"_s, out + u"/new"_s); });
        row("copy a folder from there",
            [](auto &w, auto &out) { return w.copyDirLocal(out, u"new"_s); });
        row("copy a folder to there",
            [](auto &w, auto &out) { return w.copyDirLocal(u"a"_s, out + u"/new"_s); });
        row("exists", [](auto &w, auto &out) { return w.existsLocal(out); });
        row("list", [](auto &w, auto &out) { return !w.listDirLocal(out).isEmpty(); });
        row("permissions", [](auto &w, auto &out) {
            return w.changePermissionsLocal(out + u"/file"_s, FileEntryFlags::Permissions);
        });
    }
    void refusesWhatLiesOutside()
    {
        using Operation = std::function<bool(Communicator &, const QString &outside)>;
        QFETCH(const Operation, operation);
        QTest::failOnWarning(QRegularExpression(u"."_s));
        const QString outside = QFileInfo(m_root).path() + u"/outside"_s;
        QVERIFY(QDir().mkpath(outside));
        QVERIFY(writeFile(outside + u"/file"_s, "outside"));
        const auto permissions = QFile::permissions(outside + u"/file"_s);
        QVERIFY(writeFile(m_root + u"/file"_s, "inside"));
        for (const QString &path : {outside, u"../outside"_s, u"a/../../outside"_s}) {
            QVERIFY(!operation(*m_worker, path));
            QCOMPARE(m_worker->currentPath(), m_root);
            QCOMPARE(readFile(outside + u"/file"_s), "outside");
            QCOMPARE(QFile::permissions(outside + u"/file"_s), permissions);
            const QDir::Filters all = QDir::NoDotAndDotDot | QDir::AllEntries;
            QCOMPARE(QDir(outside).entryList(all), QStringList{u"file"_s});
            QCOMPARE(QDir(m_root).entryList(all), (QStringList{u"a"_s, u"file"_s}));
        }
    }

    void makingAnExistingDirectoryIsSilent()
    {
        QSignalSpy created(m_worker.get(), &SCommunicatorBase::localDirCreated);
        QVERIFY(m_worker->makeDirLocal(u"a"_s));
        QCOMPARE(created.size(), 0);
        QVERIFY(m_worker->makeDirLocal(u"c/d"_s));
        QCOMPARE(created.size(), 1);
        QCOMPARE(created.at(0).at(0).toString(), m_root + u"/c/d"_s);
        QVERIFY(writeFile(m_root + u"/file"_s, "x"));
        QVERIFY(!m_worker->makeDirLocal(u"file/d"_s));
    }

    void removesFilesAndDirectories()
    {
        QSignalSpy files(m_worker.get(), &SCommunicatorBase::localFileRemoved);
        QSignalSpy dirs(m_worker.get(), &SCommunicatorBase::localDirRemoved);
        QVERIFY(writeFile(m_root + u"/a/file"_s, "x"));
        QVERIFY(m_worker->removeFileLocal(u"a/file"_s));
        QVERIFY(!m_worker->removeFileLocal(u"a/file"_s));
        QCOMPARE(files.size(), 1);
        QCOMPARE(files.at(0).at(0).toString(), u"a/file"_s);

        QVERIFY(!m_worker->removeDirLocal(u"a"_s, false));
        QVERIFY(m_worker->removeDirLocal(u"a"_s, true));
        QCOMPARE(dirs.size(), 1);
        QCOMPARE(dirs.at(0).at(0).toString(), m_root + u"/a"_s);
        QCOMPARE(dirs.at(0).at(1).toBool(), true);
        QVERIFY(!QFileInfo::exists(m_root + u"/a"_s));

        QVERIFY(QDir().mkpath(m_root + u"/empty"_s));
        QVERIFY(m_worker->removeDirLocal(u"empty"_s, false));
        QVERIFY(!QFileInfo::exists(m_root + u"/empty"_s));
        QCOMPARE(dirs.at(1), (QList<QVariant>{m_root + u"/empty"_s, false}));
        // What is missing counts as removed only with all that is below it.
        QVERIFY(!m_worker->removeDirLocal(u"empty"_s, false));
        QVERIFY(m_worker->removeDirLocal(u"empty"_s, true));
        QCOMPARE(dirs.size(), 3);
    }

    void removingALinkKeepsWhatItNames()
    {
        QSignalSpy files(m_worker.get(), &SCommunicatorBase::localFileRemoved);
        QVERIFY(writeFile(m_root + u"/a/file"_s, "x"));
        QVERIFY(QFile::link(m_root + u"/a"_s, m_root + u"/link"_s));
        QVERIFY(m_worker->removeDirLocal(u"link"_s, true));
        QCOMPARE(files.size(), 1);
        QVERIFY(!QFileInfo(m_root + u"/link"_s).isSymLink());
        QCOMPARE(readFile(m_root + u"/a/file"_s), "x");
    }

    void removeAndRenameChooseByKind()
    {
        QVERIFY(writeFile(m_root + u"/file"_s, "x"));
        QVERIFY(m_worker->renameLocal(u"file"_s, u"a/moved"_s));
        QVERIFY(m_worker->renameLocal(u"a"_s, u"z"_s));
        QCOMPARE(readFile(m_root + u"/z/moved"_s), "x");
        QVERIFY(m_worker->removeLocal(u"z/moved"_s, false));
        QVERIFY(m_worker->removeLocal(u"z"_s, true));
        QVERIFY(!m_worker->removeLocal(u"z"_s, true));
    }

    void renamesOnlyTheKindAskedFor()
    {
        QSignalSpy files(m_worker.get(), &SCommunicatorBase::localFileRenamed);
        QSignalSpy dirs(m_worker.get(), &SCommunicatorBase::localDirRenamed);
        QVERIFY(writeFile(m_root + u"/file"_s, "x"));
        QVERIFY(!m_worker->renameDirLocal(u"file"_s, u"other"_s));
        QVERIFY(!m_worker->renameFileLocal(u"a"_s, u"other"_s));
        QVERIFY(!m_worker->renameFileLocal(u"file"_s, QString()));
        QVERIFY(!m_worker->renameFileLocal(u"file"_s, u"../../out"_s));
        QVERIFY(!m_worker->renameDirLocal(u"a"_s, QString()));
        QVERIFY(!m_worker->renameDirLocal(u"a"_s, u"/out"_s));
        QCOMPARE(files.size() + dirs.size(), 0);
        QVERIFY(m_worker->renameFileLocal(u"file"_s, u"other"_s));
        QVERIFY(m_worker->renameDirLocal(u"a"_s, u"c"_s));
        QCOMPARE(files.at(0), (QList<QVariant>{u"file"_s, u"other"_s}));
        QCOMPARE(dirs.at(0), (QList<QVariant>{u"a"_s, u"c"_s}));
    }

    void copiesAFile()
    {
        QSignalSpy copied(m_worker.get(), &SCommunicatorBase::localFileCopied);
        QByteArray content(300000, 'c');
        QVERIFY(writeFile(m_root + u"/file"_s, content));
        QVERIFY(m_worker->copyFileLocal(u"file"_s, u"a/copy"_s, false));
        QCOMPARE(readFile(m_root + u"/a/copy"_s), content);
        QCOMPARE(copied.at(0), (QList<QVariant>{u"file"_s, u"a/copy"_s}));
        QVERIFY(!m_worker->copyFileLocal(u"a"_s, u"x"_s, false));
        QVERIFY(!m_worker->copyFileLocal(u"file"_s, QString(), false));
        QVERIFY(!m_worker->copyFileLocal(u"file"_s, u"/out"_s, false));
        QCOMPARE(copied.size(), 1);
    }

    void missingSourceLeavesAnEmptyTarget()
    {
        QVERIFY(m_worker->copyFileLocal(u"missing"_s, u"target"_s, false));
        QCOMPARE(readFile(m_root + u"/target"_s), QByteArray());
    }

    void fileCopiedOntoItselfStays()
    {
        QVERIFY(writeFile(m_root + u"/file"_s, "content"));
        QVERIFY(QFile::link(m_root + u"/file"_s, m_root + u"/link"_s));
        const QByteArray file = QFile::encodeName(m_root + u"/file"_s);
        QCOMPARE(link(file.constData(), (file + "2").constData()), 0);
        QVERIFY(m_worker->copyFileLocal(u"file"_s, u"a/../file"_s, false));
        QVERIFY(m_worker->copyFileLocal(u"file"_s, u"link"_s, false));
        QVERIFY(m_worker->copyFileLocal(u"file"_s, u"file2"_s, false));
        QCOMPARE(readFile(m_root + u"/file"_s), "content");
    }

    void targetThatDoesNotOpenFailsTheCopyWithoutAWord()
    {
        QTest::failOnWarning(QRegularExpression(u"."_s));
        QVERIFY(writeFile(m_root + u"/file"_s, "content"));
        QVERIFY(!m_worker->copyFileLocal(u"file"_s, u"missing/copy"_s, false));
        QVERIFY(!m_worker->copyFileLocal(u"file"_s, u"a"_s, false));
        QVERIFY(!QFileInfo::exists(m_root + u"/missing"_s));
    }

    // Who opens a pipe without somebody at its other end would wait for ever.
    void aNamedPipeIsNotCopied()
    {
        QCOMPARE(mkfifo(QFile::encodeName(m_root + u"/pipe"_s).constData(), 0600), 0);
        QVERIFY(QFile::link(m_root + u"/pipe"_s, m_root + u"/link"_s));
        QVERIFY(writeFile(m_root + u"/file"_s, "content"));
        for (const QString &pipe : {u"pipe"_s, u"link"_s}) {
            QVERIFY(!m_worker->copyFileLocal(pipe, u"copy"_s, false));
            QVERIFY(!QFileInfo::exists(m_root + u"/copy"_s));
            QVERIFY(!m_worker->copyFileLocal(u"file"_s, pipe, false));
        }
    }

    // Such files claim more than they give, and are never at their end.
    void fileThatGivesLessThanItClaimsIsCopied()
    {
        const QString source = u"/sys/class/net/lo/mtu"_s;
        const QByteArray content = readFile(source);
        QVERIFY(!content.isEmpty() && content.size() < QFileInfo(source).size());
        QVERIFY(QFile::link(source, m_root + u"/mtu"_s));
        QVERIFY(m_worker->copyFileLocal(u"mtu"_s, u"copy"_s, false));
        QCOMPARE(readFile(m_root + u"/copy"_s), content);
    }

    void fullDiskFailsTheCopy_data()
    {
        QTest::addColumn<int>("size");
        QTest::newRow("less than any buffer") << 10;
        QTest::newRow("more than a buffer") << 300000;
    }
    void fullDiskFailsTheCopy()
    {
        QFETCH(int, size);
        QVERIFY(writeFile(m_root + u"/file"_s, QByteArray(size, 'c')));
        QVERIFY(QFile::link(u"/dev/full"_s, m_root + u"/full"_s));
        QVERIFY(!m_worker->copyFileLocal(u"file"_s, u"full"_s, false));
    }

    void directoryCopiedOntoItselfDoesNothing()
    {
        QSignalSpy copied(m_worker.get(), &SCommunicatorBase::localDirCopied);
        QVERIFY(m_worker->copyDirLocal(u"a"_s, u"a"_s, false));
        QCOMPARE(copied.size(), 0);
        QCOMPARE(QDir(m_root + u"/a"_s).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList{u"b"_s});
    }

    void directoryIsNotCopiedOntoAnother()
    {
        QVERIFY(writeFile(m_root + u"/a/file"_s, "x"));
        QVERIFY(QDir().mkpath(m_root + u"/target"_s));
        QVERIFY(!m_worker->copyDirLocal(u"a"_s, u"target"_s, false));
        QVERIFY(QDir(m_root + u"/target"_s).isEmpty());
    }

    void copiesADirectory()
    {
        QSignalSpy copied(m_worker.get(), &SCommunicatorBase::localDirCopied);
        QVERIFY(writeFile(m_root + u"/a/b/file"_s, "1"));
        QVERIFY(writeFile(m_root + u"/a/.hidden"_s, "2"));
        QVERIFY(QDir().mkpath(m_root + u"/a/empty"_s));
        QVERIFY(m_worker->copyDirLocal(u"a"_s, u"c/copy"_s, false));
        QCOMPARE(readFile(m_root + u"/c/copy/b/file"_s), "1");
        QCOMPARE(readFile(m_root + u"/c/copy/.hidden"_s), "2");
        QVERIFY(!QFileInfo::exists(m_root + u"/c/copy/empty"_s));
        QCOMPARE(copied.at(0), (QList<QVariant>{u"a"_s, u"c/copy"_s}));
    }

    void failedCopyOfADirectoryKeepsWhatHasArrived()
    {
        constexpr qint64 kLimit = 1 << 20;
        QSignalSpy copied(m_worker.get(), &SCommunicatorBase::localDirCopied);
        QVERIFY(writeFile(m_root + u"/a/b/file"_s, QByteArray(2 * kLimit, 'x')));
        {
            const FileSizeLimit limit(kLimit);
            QVERIFY(!m_worker->copyDirLocal(u"a"_s, u"copy"_s, false));
        }
        QCOMPARE(copied.size(), 0);
        QVERIFY(QFileInfo(m_root + u"/copy/b/file"_s).size() > 0);
    }

    void directoryThatCannotBeMadeFailsTheCopy()
    {
        QVERIFY(writeFile(m_root + u"/file"_s, "x"));
        QVERIFY(!m_worker->copyDirLocal(u"a"_s, u"file/copy"_s, false));
    }

    void directoryThatCannotBeReadFailsTheCopy_data()
    {
        QTest::addColumn<int>("descriptors");
        QTest::newRow("none can be read") << 0;
        QTest::newRow("those below cannot be read") << 1;
    }

    void directoryThatCannotBeReadFailsTheCopy()
    {
        QFETCH(const int, descriptors);
        QSignalSpy copied(m_worker.get(), &SCommunicatorBase::localDirCopied);
        QVERIFY(writeFile(m_root + u"/a/b/file"_s, "x"));
        bool done = true;
        {
            const DescriptorShortage shortage(descriptors);
            done = m_worker->copyDirLocal(u"a"_s, u"copy"_s, false);
        }
        QVERIFY(!done);
        QCOMPARE(copied.size(), 0);
        QVERIFY(!QFileInfo::exists(m_root + u"/copy"_s));
        QVERIFY(m_worker->copyDirLocal(u"a"_s, u"copy"_s, false));
        QCOMPARE(readFile(m_root + u"/copy/b/file"_s), "x");
    }

    void missingDirectoryIsCopiedAsAnEmptyOne()
    {
        QVERIFY(m_worker->copyDirLocal(u"missing"_s, u"copy"_s, false));
        QVERIFY(QDir(m_root + u"/copy"_s).isEmpty());
        QVERIFY(QDir(m_root + u"/copy"_s).exists());
    }

    void interruptionEndsTheCopyOfADirectory()
    {
        constexpr int kFiles = 500;
        for (int i = 0; i < kFiles; ++i)
            QVERIFY(writeFile(m_root + u"/a/%1"_s.arg(i), {}));
        m_worker->setTimeout(1);
        bool copied = true;
        std::unique_ptr<QThread> thread(
            QThread::create([&] { copied = m_worker->copyDirLocal(u"a"_s, u"copy"_s, false); }));
        thread->start();
        thread->requestInterruption();
        QVERIFY(thread->wait(kWaitMs));
        QVERIFY(!copied);
    }

    void copyIntoAFolderBelowTheSourceEnds()
    {
        QVERIFY(writeFile(m_root + u"/a/file"_s, "x"));
        QVERIFY(m_worker->copyDirLocal(u"a"_s, u"a/copy"_s, false));
        QCOMPARE(readFile(m_root + u"/a/copy/file"_s), "x");
        QVERIFY(!QFileInfo::exists(m_root + u"/a/copy/copy"_s));
    }

    void directoryOutsideTheJailIsNotCopied()
    {
        QVERIFY(!m_worker->copyDirLocal(u"/etc"_s, u"c"_s, false));
        QVERIFY(!m_worker->copyDirLocal(u"a"_s, u"/tmp/out"_s, false));
        QVERIFY(!QFileInfo::exists(m_root + u"/c"_s));
    }

    void existsAlwaysSpeaks()
    {
        QSignalSpy checked(m_worker.get(), &SCommunicatorBase::localExistsCheck);
        QVERIFY(writeFile(m_root + u"/a/file"_s, "x"));
        QVERIFY(QFile::link(u"nowhere"_s, m_root + u"/dangling"_s));
        QVERIFY(m_worker->setCurrentPath(u"a"_s, false));
        QVERIFY(m_worker->existsLocal(u"b"_s));
        QVERIFY(m_worker->existsLocal(u"file"_s));
        QVERIFY(!m_worker->existsLocal(u"missing"_s));
        QVERIFY(!m_worker->existsLocal(u"../dangling"_s));
        QVERIFY(!m_worker->existsLocal(u"/etc"_s));
        QCOMPARE(checked.size(), 5);
        QCOMPARE(checked.at(4).at(0).toString(), u"/etc"_s);
    }

    void jailRootIsListedWithoutItsParent()
    {
        QSignalSpy listed(m_worker.get(), &SCommunicatorBase::localDirListed);
        QVERIFY(writeFile(m_root + u"/file.txt"_s, "x"));
        QVERIFY(writeFile(m_root + u"/.hidden"_s, "x"));
        QCOMPARE(names(m_worker->listDirLocal(u"."_s)),
                 (QStringList{u".hidden"_s, u"a"_s, u"file.txt"_s}));
        QCOMPARE(names(m_worker->listDirLocal(u"a"_s)), (QStringList{u".."_s, u"b"_s}));
        QCOMPARE(names(m_worker->listDirLocal(QString(), {u"*.txt"_s})),
                 QStringList{u"file.txt"_s});
        QCOMPARE(listed.size(), 3);
        QCOMPARE(listed.at(1).at(0).toString(), m_root + u"/a"_s);
    }

    void whatIsNoFileIsListedToo()
    {
        QVERIFY(QFile::link(u"nowhere"_s, m_root + u"/a/dangling"_s));
        QCOMPARE(mkfifo(QFile::encodeName(m_root + u"/a/pipe"_s).constData(), 0600), 0);
        QCOMPARE(names(m_worker->listDirLocal(u"a"_s)),
                 (QStringList{u".."_s, u"b"_s, u"dangling"_s, u"pipe"_s}));
    }

    void listOfAMissingDirectoryHoldsOnlyItsParent()
    {
        QCOMPARE(names(m_worker->listDirLocal(u"missing"_s)), QStringList{u".."_s});
        QVERIFY(m_worker->listDirLocal(u"/etc"_s).isEmpty());
    }

    void rootOfTheFileSystemIsListedWithoutParent()
    {
        QVERIFY(m_worker->setRootPath(QString()));
        QVERIFY(!names(m_worker->listDirLocal(u"/"_s)).contains(u".."_s));
    }

    void permissionsAreSet()
    {
        QSignalSpy changed(m_worker.get(), &SCommunicatorBase::localPermissionChanged);
        QVERIFY(writeFile(m_root + u"/file"_s, "x"));
        const auto wanted = QFileDevice::ReadUser | QFileDevice::WriteUser |
                            QFileDevice::ReadOwner | QFileDevice::WriteOwner;
        const FileEntryFlags flags = SFileEntry::qtPermissionsToFileEntryFlagsToQt(wanted);
        QVERIFY(m_worker->changePermissionsLocal(u"file"_s, flags));
        QCOMPARE(QFile::permissions(m_root + u"/file"_s), wanted);
        QVERIFY(!m_worker->changePermissionsLocal(u"missing"_s, flags));
        QVERIFY(!m_worker->changePermissionsLocal(u"/etc/hostname"_s, flags));
        QCOMPARE(changed.size(), 1);
        QCOMPARE(changed.at(0).at(0).toString(), u"file"_s);
    }

    void storageIsThatOfTheCurrentDirectory()
    {
        QCOMPARE(m_worker->storageInfoLocal(), QStorageInfo(m_root));
    }

    void syncingIsOffUnlessAskedAndRemovable()
    {
        QVERIFY(!m_worker->isSyncRequired(m_root));
        m_worker->setAutoSync(true);
        QVERIFY(m_worker->autoSync());
        QCOMPARE(m_worker->isSyncRequired(u"/proc"_s), false);
        m_worker->syncIf(u"a"_s);
        m_worker->syncIf(u"a"_s, m_root + u"/missing"_s);
    }

    // ---- Progress, hash, registry ----

    void progress_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::addColumn<qint64>("total");
        QTest::addColumn<int>("percent");
        QTest::newRow("no total") << qint64(10) << qint64(0) << 100;
        QTest::newRow("negative total") << qint64(10) << qint64(-1) << 100;
        QTest::newRow("start") << qint64(0) << qint64(7) << 0;
        QTest::newRow("cut to whole percent") << qint64(2) << qint64(3) << 66;
        QTest::newRow("end") << qint64(7) << qint64(7) << 100;
        QTest::newRow("as large as it gets")
            << std::numeric_limits<qint64>::max() / 2 << std::numeric_limits<qint64>::max() << 50;
    }
    void progress()
    {
        QFETCH(qint64, size);
        QFETCH(qint64, total);
        QSignalSpy spy(m_worker.get(), &SCommunicatorBase::progress);
        Q_EMIT m_worker->transferredBytes(size, total);
        QCOMPARE(spy.size(), 1);
        QTEST(spy.at(0).at(0).toInt(), "percent");
    }

    void passwordHashIsSaltedByTheSession()
    {
        m_worker->setUuid(QUuid::fromString(u"{3F2504E0-4F89-41D3-9A0C-0305E82C3301}"_s));
        const QByteArray expected =
            QCryptographicHash::hash("abc{3f2504e0-4f89-41d3-9a0c-0305e82c3301}",
                                     QCryptographicHash::Sha512)
                .toHex();
        QCOMPARE(m_worker->generateHashedPassword("abc"), expected);
        QCOMPARE(expected.size(), 128);
    }

    void prototypesGoWithTheirOwner()
    {
        auto worker = std::make_unique<Communicator>();
        const unsigned int context = worker->contextId();
        worker->registerCommand(new SCommandWhoAmI);
        QCOMPARE(worker->supportedCommands(), QList<SCommandId>{SCommandWhoAmI().id()});
        worker.reset();
        QVERIFY(SCommandHelper::registeredCommands(context).isEmpty());
    }

    void contextMayBeAnother()
    {
        Communicator worker;
        const unsigned int context = Communicator().contextId();
        worker.setContextId(context);
        QCOMPARE(worker.contextId(), context);
        worker.registerCommand(new SCommandWhoAmI);
        QCOMPARE(SCommandHelper::registeredCommands(context),
                 QList<SCommandId>{SCommandWhoAmI().id()});
    }

    // ---- Reading and writing ----

    void readsWhatArrivesInPieces()
    {
        Pair pair;
        QVERIFY(pair.connected);
        m_worker->setTimeout(kWaitMs);
        QByteArray wanted(100000, Qt::Uninitialized);
        for (qsizetype i = 0; i < wanted.size(); ++i)
            wanted[i] = static_cast<char>(i * 7);
        qsizetype sent = 0;
        std::unique_ptr<QThread> writer(QThread::create([&] {
            while (sent < wanted.size()) {
                const QByteArray piece = wanted.mid(sent, 777);
                if (!pair.send(piece))
                    return;
                sent += piece.size();
            }
        }));
        pair.far->moveToThread(writer.get());
        writer->start();
        QByteArray got(wanted.size(), '\0');
        QCOMPARE(m_worker->readAll(&pair.near, got), wanted.size());
        QVERIFY(writer->wait(kWaitMs));
        QCOMPARE(got, wanted);
    }

    void nothingIsReadForNoSize()
    {
        FailingDevice device(0);
        QVERIFY(device.open(QIODevice::ReadOnly));
        char byte = 0;
        QCOMPARE(m_worker->readAll(&device, &byte, 0), 0);
        QCOMPARE(m_worker->readAll(&device, &byte, -5), 0);
    }

    void endOfTheDeviceGivesAShortRead()
    {
        QBuffer device;
        device.setData("abc");
        QVERIFY(device.open(QIODevice::ReadOnly));
        QByteArray bytes(5, '\0');
        QCOMPARE(m_worker->readAll(&device, bytes), 3);
        QCOMPARE(m_worker->readAll(&device, bytes), 0);
        m_worker->setTimeout(kWaitMs);
        QCOMPARE(m_worker->readAll(&device, bytes), -1);
    }

    void readErrorIsMinusOne()
    {
        FailingDevice device(3);
        QVERIFY(device.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
        QByteArray bytes(5, '\0');
        QCOMPARE(m_worker->readAll(&device, bytes), -1);
    }

    void silentPeerTimesOut()
    {
        Pair pair;
        QVERIFY(pair.connected);
        m_worker->setTimeout(kShortMs);
        QByteArray bytes(4, '\0');
        QElapsedTimer elapsed;
        elapsed.start();
        QCOMPARE(m_worker->readAll(&pair.near, bytes), -1);
        QVERIFY(elapsed.elapsed() >= kShortMs - 20);
        QVERIFY(elapsed.elapsed() < kWaitMs);
        QVERIFY(pair.send("ab"));
        QCOMPARE(m_worker->readWord(&pair.near), 0u);
    }

    void timeoutOfZeroDoesNotWait()
    {
        Pair pair;
        QVERIFY(pair.connected);
        m_worker->setTimeout(0);
        QByteArray bytes(4, '\0');
        QCOMPARE(m_worker->readAll(&pair.near, bytes), 0);
    }

    void negativeTimeoutWaitsOn()
    {
        Pair pair;
        QVERIFY(pair.connected);
        m_worker->setTimeout(-1);
        std::unique_ptr<QThread> writer(QThread::create([&] {
            QThread::msleep(2 * kShortMs);
            pair.send("late");
        }));
        pair.far->moveToThread(writer.get());
        writer->start();
        QByteArray bytes(4, '\0');
        QCOMPARE(m_worker->readAll(&pair.near, bytes), 4);
        QCOMPARE(bytes, "late");
        QVERIFY(writer->wait(kWaitMs));
    }

    void lostPeerEndsTheRead()
    {
        Pair pair;
        QVERIFY(pair.connected);
        m_worker->setTimeout(kWaitMs);
        QVERIFY(pair.send("ab"));
        pair.far->close();
        pair.far.reset();
        QByteArray bytes(4, '\0');
        QElapsedTimer elapsed;
        elapsed.start();
        QVERIFY(m_worker->readAll(&pair.near, bytes) < 4);
        QVERIFY(elapsed.elapsed() < kWaitMs / 2);
    }

    void interruptionEndsTheWaitsWithinTheTimeout()
    {
        Pair pair;
        QVERIFY(pair.connected);
        m_worker->setTimeout(kShortMs);
        std::atomic<bool> stop = false;
        std::unique_ptr<QThread> drip(QThread::create([&] {
            while (!stop && pair.send("x"))
                QThread::msleep(20);
        }));
        pair.far->moveToThread(drip.get());
        drip->start();

        // The wait for each byte is short, so only the request can end this read.
        qint64 result = 0;
        std::unique_ptr<QThread> reader(QThread::create([&] {
            QByteArray bytes(1 << 20, '\0');
            result = m_worker->readAll(&pair.near, bytes);
        }));
        m_worker->moveToThread(reader.get());
        pair.near.moveToThread(reader.get());
        QElapsedTimer elapsed;
        reader->start();
        reader->requestInterruption();
        elapsed.start();
        QVERIFY(reader->wait(kWaitMs));
        QVERIFY(elapsed.elapsed() < kShortMs + 1000);
        QCOMPARE(result, -1);
        stop = true;
        QVERIFY(drip->wait(kWaitMs));
    }

    void writesAllAndWaits()
    {
        Pair pair;
        QVERIFY(pair.connected);
        m_worker->setTimeout(kWaitMs);
        QCOMPARE(m_worker->writeAll(&pair.near, QByteArray("hello")), 5);
        QCOMPARE(pair.near.bytesToWrite(), 0);
        QVERIFY(m_worker->writeWord(&pair.near, Wire::kAckWord));
        QVERIFY(m_worker->writeWord64(&pair.near, 0x0102030405060708u));
        QVERIFY(m_worker->writeFrame(&pair.near, "abc"));
        QCOMPARE(pair.received(24),
                 QByteArray::fromHex("68656c6c6f a5a5a5a5 0102030405060708 00000003 616263"));
    }

    void timeoutOfZeroDoesNotWaitForTheWrite()
    {
        Pair pair;
        QVERIFY(pair.connected);
        m_worker->setTimeout(0);
        const QByteArray bytes(64 << 20, 'x'); // more than the system takes
        QCOMPARE(m_worker->writeAll(&pair.near, bytes), bytes.size());
        QVERIFY(pair.near.bytesToWrite() > 0);
        pair.near.abort();
    }

    void peerThatTakesNothingTimesOut()
    {
        Pair pair;
        QVERIFY(pair.connected);
        m_worker->setTimeout(kShortMs);
        QCOMPARE(m_worker->writeAll(&pair.near, QByteArray(64 << 20, 'x')), -1);
    }

    void writeErrorIsMinusOne()
    {
        FailingDevice device(3);
        QVERIFY(device.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        QCOMPARE(m_worker->writeAll(&device, QByteArray("hello")), -1);
    }

    void readsWordsAndFrames()
    {
        Pair pair;
        QVERIFY(pair.connected);
        m_worker->setTimeout(kShortMs);
        QVERIFY(
            pair.send(QByteArray::fromHex("a5a5a5a5 0000000000000007 00000003 616263 00000000")));
        QCOMPARE(m_worker->readWord(&pair.near), Wire::kAckWord);
        quint64 word = 0;
        QVERIFY(m_worker->readWord64(&pair.near, &word));
        QCOMPARE(word, 7u);
        QByteArray body;
        QVERIFY(m_worker->readReplyFrame(&pair.near, &body));
        QCOMPARE(body, "abc");
        QVERIFY(!m_worker->readReplyFrame(&pair.near, &body));
        QVERIFY(!m_worker->readWord64(&pair.near, &word));
    }

    void falseLengthCostsNoMemory()
    {
        Pair pair;
        QVERIFY(pair.connected);
        m_worker->setTimeout(kShortMs);
        QVERIFY(pair.send(QByteArray::fromHex("ffffffff") + QByteArray(1000, 'x')));
        QByteArray body;
        QVERIFY(!m_worker->readReplyFrame(&pair.near, &body));
        QVERIFY(body.capacity() < 1 << 20);
    }

    void longBodyArrivesWhole()
    {
        Pair pair;
        QVERIFY(pair.connected);
        m_worker->setTimeout(kWaitMs);
        const QByteArray wanted(1000003, 'y');
        std::unique_ptr<QThread> writer(QThread::create([&] {
            pair.send(wanted);
            while (pair.far->bytesToWrite() > 0 && pair.far->waitForBytesWritten(kWaitMs)) {
            }
        }));
        pair.far->moveToThread(writer.get());
        writer->start();
        QByteArray body;
        QVERIFY(m_worker->readBody(&pair.near, static_cast<quint32>(wanted.size()), &body));
        QCOMPARE(body, wanted);
        QVERIFY(writer->wait(kWaitMs));
    }

    void copyKeepsThePeerAlive()
    {
        Pair pair;
        QVERIFY(pair.connected);
        m_worker->setTimeout(kWaitMs);
        m_worker->setSocket(&pair.near);
        QVERIFY(writeFile(m_root + u"/a/1"_s, "1"));
        QVERIFY(writeFile(m_root + u"/a/b/2"_s, "2"));
        QVERIFY(m_worker->copyDirLocal(u"a"_s, u"copy"_s, true));
        QCOMPARE(pair.received(8), QByteArray::fromHex("50a050a0 50a050a0"));
        QVERIFY(m_worker->copyFileLocal(u"a/1"_s, u"one"_s, true));
        QCOMPARE(pair.received(4), QByteArray::fromHex("50a050a0"));
    }

    void longCopyRepeatsTheWord()
    {
        Pair pair;
        QVERIFY(pair.connected);
        m_worker->setTimeout(kWaitMs);
        m_worker->setSocket(&pair.near);
        // Nothing but holes, copied to nowhere: as long as it needs to be, and no disk is filled.
        QFile source(m_root + u"/file"_s);
        QVERIFY(source.open(QIODevice::WriteOnly));
        QVERIFY(QFile::link(u"/dev/null"_s, m_root + u"/nowhere"_s));
        qint64 lasted = 0;
        qint64 fewest = 1; // one for each copy, and a second for the last
        qint64 most = 0;
        for (qint64 size = 128 << 20; lasted < 3 * Wire::kKeepAliveIntervalMs; size *= 2) {
            QVERIFY(source.resize(size));
            QElapsedTimer elapsed;
            elapsed.start();
            QVERIFY(m_worker->copyFileLocal(u"file"_s, u"nowhere"_s, true));
            lasted = elapsed.elapsed();
            fewest += 1;
            most += 1 + lasted / Wire::kKeepAliveIntervalMs;
        }
        const QByteArray bytes = pair.received(4 * fewest);
        QVERIFY(bytes.size() >= 4 * fewest);
        QVERIFY(bytes.size() <= 4 * most);
        QCOMPARE(bytes, QByteArray::fromHex("50a050a0").repeated(bytes.size() / 4));
    }

    void copyForALostPeerDoesNotTouchTheTarget()
    {
        Pair pair;
        QVERIFY(pair.connected);
        m_worker->setTimeout(kShortMs);
        m_worker->setSocket(&pair.near);
        pair.near.abort();
        QVERIFY(writeFile(m_root + u"/file"_s, "x"));
        QVERIFY(writeFile(m_root + u"/older"_s, "old"));
        QVERIFY(!m_worker->copyFileLocal(u"file"_s, u"copy"_s, true));
        QVERIFY(!m_worker->copyFileLocal(u"file"_s, u"older"_s, true));
        QVERIFY(!QFile::exists(m_root + u"/copy"_s));
        QCOMPARE(readFile(m_root + u"/older"_s), "old");
        // Nobody waits for this one.
        QVERIFY(m_worker->copyFileLocal(u"file"_s, u"copy"_s, false));
        QCOMPARE(readFile(m_root + u"/copy"_s), "x");
    }

    void socketIsWeakAndJoinsTheController()
    {
        STcpSocketSpeedController first(nullptr);
        STcpSocketSpeedController second(nullptr);
        QSignalSpy added(&second, &STcpSocketSpeedController::socketAdded);
        QSignalSpy removed(&first, &STcpSocketSpeedController::socketRemoved);
        auto socket = std::make_unique<STcpSocket>(nullptr);
        QSignalSpy joined(&first, &STcpSocketSpeedController::socketAdded);
        m_worker->setSpeedController(&first);
        QCOMPARE(joined.size(), 0); // there is no socket yet
        m_worker->setSocket(socket.get());
        QCOMPARE(joined.size(), 1);
        QVERIFY(!m_worker->isNull());
        m_worker->setSpeedController(&second);
        QCOMPARE(removed.size(), 1);
        QCOMPARE(added.size(), 1);
        m_worker->setSpeedController(nullptr);
        socket.reset();
        QVERIFY(m_worker->isNull());
        m_worker->close();
    }

private:
    QString workFolder() const { return QFileInfo(m_root).path() + u"/work"_s; }

    // Sorted, since the file system's order is its own; ".." has to come first by itself.
    static QStringList names(const QList<SFileEntry> &entries)
    {
        QStringList names;
        for (const SFileEntry &entry : entries)
            names.append(entry.fileName());
        std::sort(names.begin() + (names.value(0) == u".."_s ? 1 : 0), names.end());
        return names;
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_root;
    QString m_before;
    std::unique_ptr<Communicator> m_worker;
};

QTEST_GUILESS_MAIN(tst_SCommunicatorBase)
#include "tst_scommunicatorbase.moc"
