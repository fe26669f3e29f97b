// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/spartialfilemanager.h>

#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
#include <QtCore/QThread>

#include <atomic>
#include <cstdlib>
#include <memory>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

bool write(const QString &fileName, const QByteArray &content)
{
    QFile file(fileName);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

QByteArray read(const QString &fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : "unreadable"_ba;
}

QStringList entries(const QTemporaryDir &dir)
{
    return QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
}

const QString kDie = u"--die-in-a-transfer"_s;
constexpr int kDeadExitCode = 77;

// Ends the process as a crash does: no destructor runs.
[[noreturn]] void dieInATransfer(const QString &target)
{
    const SPartialFileManager partial(target, true);
    std::_Exit(write(partial.fileName(false), "half") ? kDeadExitCode : 1);
}

} // namespace

class tst_SPartialFileManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { QTest::failOnWarning(QRegularExpression(u"."_s)); }

    void freshManagerTouchesNothing()
    {
        QTemporaryDir dir;
        const QString target = dir.filePath(u"report.pdf"_s);
        {
            const SPartialFileManager partial(target, true);
            QVERIFY(!partial.isCompleted());
            QVERIFY(partial.deleteIncompleteFile());
            QCOMPARE(partial.fileName(true), target);
            QVERIFY(entries(dir).isEmpty());
        }
        QVERIFY(entries(dir).isEmpty());
        QVERIFY(!SPartialFileManager(target, false).deleteIncompleteFile());
    }

    void partialNameIsAUuidBesideTheTarget_data()
    {
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<QString>("folder");
        QTest::newRow("absolute") << u"/srv/ann/report.pdf"_s << u"/srv/ann"_s;
        QTest::newRow("relative") << u"ann/report.pdf"_s << u"ann"_s;
        QTest::newRow("bare") << u"report.pdf"_s << u"."_s;
        QTest::newRow("percent signs in the folder")
            << u"/srv/50%2 off/%1.pdf"_s << u"/srv/50%2 off"_s;
        QTest::newRow("not ASCII") << u"/srv/größe/名.pdf"_s << u"/srv/größe"_s;
    }

    void partialNameIsAUuidBesideTheTarget()
    {
        QFETCH(QString, fileName);
        QFETCH(QString, folder);
        const SPartialFileManager partial(fileName, false);
        const QRegularExpression pattern(
            u"^%1/[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}\\.part$"_s
                .arg(QRegularExpression::escape(folder)));
        QVERIFY2(pattern.match(partial.fileName(false)).hasMatch(),
                 qPrintable(partial.fileName(false)));
        QCOMPARE(partial.fileName(true), fileName);
    }

    void transfersToOneTargetHaveDifferentPartialNames()
    {
        const SPartialFileManager one(u"/srv/report.pdf"_s, false);
        const SPartialFileManager two(u"/srv/report.pdf"_s, false);
        QVERIFY(one.fileName(false) != two.fileName(false));
        QVERIFY(one != two);
    }

    void refusedCharactersAreReplaced_data()
    {
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<QString>("cleaned");
        QTest::addColumn<QString>("line");
        QTest::newRow("question mark") << u"a?b.txt"_s << u"a_b.txt"_s << u"\"a?b.txt\""_s;
        QTest::newRow("all of them, the colon and the slash stay")
            << u"C:/x/<a>*|\"?.txt"_s << u"C:/x/_a_____.txt"_s << u"\"C:/x/<a>*|\\\"?.txt\""_s;
        QTest::newRow("in a folder's name")
            << u"/a?b/c.txt"_s << u"/a_b/c.txt"_s << u"\"/a?b/c.txt\""_s;
    }

    void refusedCharactersAreReplaced()
    {
        QFETCH(QString, fileName);
        QFETCH(QString, cleaned);
        QFETCH(QString, line);
        line.prepend(u"SPartialFileManager: Wrong file name detected! Trying to fix it! "_s);
        QTest::ignoreMessage(QtDebugMsg, qPrintable(line));
        const SPartialFileManager partial(fileName, false);
        QCOMPARE(partial.fileName(true), cleaned);
        QCOMPARE(QFileInfo(partial.fileName(false)).path(), QFileInfo(cleaned).path());
    }

    void ordinaryNameIsNotLogged()
    {
        static int lines = 0;
        lines = 0;
        const auto previous = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext &, const QString &) { ++lines; });
        const SPartialFileManager partial(u"C:\\x/a b:c;d'e.txt"_s, false);
        qInstallMessageHandler(previous);
        QCOMPARE(partial.fileName(true), u"C:\\x/a b:c;d'e.txt"_s);
        QCOMPARE(lines, 0);
    }

    void completeMovesThePartialFile()
    {
        QTemporaryDir dir;
        SPartialFileManager partial(dir.filePath(u"report.pdf"_s), true);
        QVERIFY(write(partial.fileName(false), "content"));
        QVERIFY(partial.complete());
        QVERIFY(partial.isCompleted());
        QCOMPARE(partial.fileName(false), dir.filePath(u"report.pdf"_s));
        QCOMPARE(partial.fileName(true), dir.filePath(u"report.pdf"_s));
        QCOMPARE(entries(dir), QStringList{u"report.pdf"_s});
        QCOMPARE(read(dir.filePath(u"report.pdf"_s)), "content"_ba);
    }

    void completeReplacesAnOlderFile()
    {
        QTemporaryDir dir;
        QVERIFY(write(dir.filePath(u"report.pdf"_s), "the older and longer content"));
        SPartialFileManager partial(dir.filePath(u"report.pdf"_s), true);
        QVERIFY(write(partial.fileName(false), "new"));
        QVERIFY(partial.complete());
        QCOMPARE(entries(dir), QStringList{u"report.pdf"_s});
        QCOMPARE(read(dir.filePath(u"report.pdf"_s)), "new"_ba);
    }

    void completedFileOutlivesTheManager()
    {
        QTemporaryDir dir;
        {
            SPartialFileManager partial(dir.filePath(u"report.pdf"_s), true);
            QVERIFY(write(partial.fileName(false), "content"));
            QVERIFY(partial.complete());
        }
        QCOMPARE(entries(dir), QStringList{u"report.pdf"_s});
    }

    void secondCompleteTellsWhetherTheFileExists()
    {
        QTemporaryDir dir;
        SPartialFileManager partial(dir.filePath(u"report.pdf"_s), true);
        QVERIFY(write(partial.fileName(false), "content"));
        QVERIFY(partial.complete());
        QVERIFY(partial.complete());
        QCOMPARE(read(dir.filePath(u"report.pdf"_s)), "content"_ba);
        QVERIFY(QFile::remove(dir.filePath(u"report.pdf"_s)));
        QVERIFY(!partial.complete());
        QVERIFY(partial.isCompleted());
    }

    void incompleteFileIsDeletedWhenAsked()
    {
        QTemporaryDir dir;
        {
            const SPartialFileManager partial(dir.filePath(u"report.pdf"_s), true);
            QVERIFY(write(partial.fileName(false), "half"));
            QCOMPARE(entries(dir).size(), 1);
        }
        QVERIFY(entries(dir).isEmpty());
    }

    void incompleteFileIsKeptWhenAsked()
    {
        QTemporaryDir dir;
        QString left;
        {
            const SPartialFileManager partial(dir.filePath(u"report.pdf"_s), false);
            left = partial.fileName(false);
            QVERIFY(write(left, "half"));
        }
        QCOMPARE(read(left), "half"_ba);
    }

    void partialFileOfADeadProcessIsLeftAlone()
    {
        QTemporaryDir dir;
        const QString target = dir.filePath(u"report.pdf"_s);
        QCOMPARE(QProcess::execute(QCoreApplication::applicationFilePath(), {kDie, target}),
                 kDeadExitCode);
        const QStringList left = entries(dir);
        QCOMPARE(left.size(), 1);
        QVERIFY2(left.first().endsWith(u".part"), qPrintable(left.first()));
        {
            SPartialFileManager partial(target, true);
            QVERIFY(write(partial.fileName(false), "content"));
            QVERIFY(partial.complete());
        }
        QCOMPARE(entries(dir).size(), 2);
        QCOMPARE(read(dir.filePath(left.first())), "half"_ba);
    }

    void laterOfTwoTransfersToOneTargetStays()
    {
        QTemporaryDir dir;
        const QString target = dir.filePath(u"report.pdf"_s);
        SPartialFileManager one(target, true);
        SPartialFileManager two(target, true);
        QVERIFY(write(one.fileName(false), "one"));
        QVERIFY(write(two.fileName(false), "two"));
        QVERIFY(two.complete());
        QCOMPARE(read(target), "two"_ba);
        QVERIFY(one.complete());
        QCOMPARE(read(target), "one"_ba);
        QCOMPARE(entries(dir), QStringList{u"report.pdf"_s});
    }

    void completeWithoutAPartialFileKeepsTheOlderFile()
    {
        QTemporaryDir dir;
        QVERIFY(write(dir.filePath(u"report.pdf"_s), "older"));
        {
            SPartialFileManager partial(dir.filePath(u"report.pdf"_s), true);
            QVERIFY(!partial.complete());
            QVERIFY(!partial.isCompleted());
        }
        QCOMPARE(entries(dir), QStringList{u"report.pdf"_s});
        QCOMPARE(read(dir.filePath(u"report.pdf"_s)), "older"_ba);
    }

    // Replaced in two steps, the file is missing in between.
    void readerAlwaysFindsTheFileWhileItIsReplaced()
    {
        QTemporaryDir dir;
        const QString target = dir.filePath(u"report.pdf"_s);
        QVERIFY(write(target, "older"));
        std::atomic_bool isStarted = false;
        std::atomic_bool isOver = false;
        int missing = 0;
        int wrong = 0;
        const std::unique_ptr<QThread> reader(QThread::create([&] {
            while (!isOver) {
                QFile file(target);
                if (!file.open(QIODevice::ReadOnly))
                    ++missing;
                else if (const QByteArray content = file.readAll();
                         content != "older" && content != "newer")
                    ++wrong;
                isStarted = true;
            }
        }));
        reader->start();
        QTRY_VERIFY_WITH_TIMEOUT(isStarted, 20'000);
        bool isReplaced = true;
        for (int i = 0; i < 5000 && isReplaced; ++i) {
            SPartialFileManager partial(target, true);
            isReplaced = write(partial.fileName(false), "newer") && partial.complete();
        }
        isOver = true;
        reader->wait();
        QVERIFY(isReplaced);
        QCOMPARE(missing, 0);
        QCOMPARE(wrong, 0);
    }

    void linkIsReplacedAndWhatItLeadsToStays_data()
    {
        QTest::addColumn<bool>("leadsSomewhere");
        QTest::newRow("a link to a file") << true;
        QTest::newRow("a link to nowhere") << false;
    }

    void linkIsReplacedAndWhatItLeadsToStays()
    {
        QFETCH(const bool, leadsSomewhere);
        QTemporaryDir dir;
        const QString target = dir.filePath(u"report.pdf"_s);
        const QString linked = dir.filePath(u"linked.pdf"_s);
        QVERIFY(!leadsSomewhere || write(linked, "older"));
        QVERIFY(QFile::link(linked, target));
        SPartialFileManager partial(target, true);
        QVERIFY(write(partial.fileName(false), "new"));
        QVERIFY(partial.complete());
        QVERIFY(!QFileInfo(target).isSymLink());
        QCOMPARE(read(target), "new"_ba);
        QCOMPARE(QFile::exists(linked), leadsSomewhere);
        if (leadsSomewhere)
            QCOMPARE(read(linked), "older"_ba);
    }

    void failedMoveLeavesThePartialFileToTheDestructor()
    {
        // A folder of that name, with something in it, cannot be moved over.
        QTemporaryDir dir;
        const QString target = dir.filePath(u"report.pdf"_s);
        QVERIFY(QDir().mkpath(target + u"/inner"_s));
        {
            SPartialFileManager partial(target, true);
            QVERIFY(write(partial.fileName(false), "content"));
            QVERIFY(!partial.complete());
            QVERIFY(!partial.isCompleted());
            QCOMPARE(entries(dir).size(), 2);
            QCOMPARE(read(partial.fileName(false)), "content"_ba);
        }
        QCOMPARE(entries(dir), QStringList{u"report.pdf"_s});
        QVERIFY(QDir(target).exists(u"inner"_s));
    }

    void transferIntoAFolderWithARefusedNameFails()
    {
        // The folder was made under its own name while the rule changed the whole path.
        QTemporaryDir dir;
        QVERIFY(QDir(dir.path()).mkdir(u"a?b"_s));
        const QString target = dir.filePath(u"a?b/report.pdf"_s);
        const QString line =
            u"SPartialFileManager: Wrong file name detected! Trying to fix it! \"%1\""_s.arg(
                target);
        QTest::ignoreMessage(QtDebugMsg, qPrintable(line));
        SPartialFileManager partial(target, true);
        QVERIFY(!write(partial.fileName(false), "content"));
        QVERIFY(!partial.complete());
        QCOMPARE(entries(dir), QStringList{u"a?b"_s});
    }

    void copyNamesTheSamePartialFile()
    {
        QTemporaryDir dir;
        SPartialFileManager partial(dir.filePath(u"report.pdf"_s), true);
        {
            const SPartialFileManager copy(partial);
            QVERIFY(copy == partial);
            QVERIFY(!(copy != partial));
            QCOMPARE(copy.fileName(false), partial.fileName(false));
            QVERIFY(write(partial.fileName(false), "half"));
        }
        QVERIFY2(entries(dir).isEmpty(), "the copy that ended first deletes the file of both");
        QVERIFY(write(partial.fileName(false), "content"));
        QVERIFY(partial.complete());
    }

    void copyCompletedAfterTheOtherFailsAndKeepsTheFile()
    {
        QTemporaryDir dir;
        SPartialFileManager partial(dir.filePath(u"report.pdf"_s), true);
        SPartialFileManager copy(partial);
        QVERIFY(write(partial.fileName(false), "content"));
        QVERIFY(partial.complete());
        QVERIFY(!copy.complete());
        QCOMPARE(read(dir.filePath(u"report.pdf"_s)), "content"_ba);
    }

    void assignmentTakesAllFourValues()
    {
        QTemporaryDir dir;
        SPartialFileManager partial(dir.filePath(u"report.pdf"_s), true);
        SPartialFileManager other(dir.filePath(u"other.pdf"_s), false);
        QVERIFY(write(partial.fileName(false), "content"));
        QVERIFY(partial.complete());
        other = partial;
        QVERIFY(other == partial);
        QVERIFY(other.isCompleted());
        QVERIFY(other.deleteIncompleteFile());
        QCOMPARE(other.fileName(false), dir.filePath(u"report.pdf"_s));
    }

    void comparisonLooksAtTheCompletedFlag()
    {
        QTemporaryDir dir;
        SPartialFileManager partial(dir.filePath(u"report.pdf"_s), false);
        const SPartialFileManager before(partial);
        QVERIFY(write(partial.fileName(false), "content"));
        QVERIFY(partial.complete());
        QVERIFY(partial != before);
    }
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == kDie)
        dieInATransfer(arguments.value(2));
    tst_SPartialFileManager test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_spartialfilemanager.moc"
