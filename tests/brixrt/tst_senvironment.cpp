// SPDX-License-Identifier: MIT
#include <brixlib/enums/specialfolder.h>

#include <brixrt/senvironment.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>
#include <QtCore/QStandardPaths>
#include <QtCore/QTemporaryDir>
#include <QtCore/QThread>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#ifdef Q_OS_UNIX
#include <sys/wait.h>
#include <unistd.h>
#endif

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

//! The argument that makes the test print the folder it made, with a file in it, and end.
const char kMakeFolder[] = "--make-folder";

bool makeFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write("x") == 1;
}

int makeFolderAndEnd()
{
    const QString folder = SEnvironment::tempFolder(true);
    if (!makeFile(SEnvironment::tempUniqueFileName()))
        return 1;
    std::puts(qPrintable(folder));
    return 0;
}

} // namespace

class tst_SEnvironment : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newLineIsThatOfWindows() { QCOMPARE(SEnvironment::rawWindowsNewLine(), u"\r\n"_s); }

    void versionIsThatOfQt()
    {
        const QString version =
            u"%1.%2.%3"_s.arg(QString::number(SEnvironment::qtRuntimeVersion() >> 16),
                              QString::number(SEnvironment::qtRuntimeVersion() >> 8 & 0xFF),
                              QString::number(SEnvironment::qtRuntimeVersion() & 0xFF));
        QCOMPARE(version, QString::fromLatin1(qVersion()));
        QVERIFY(SEnvironment::qtRuntimeVersion() >= 0x060000);
    }

    // Before anything makes it.
    void temporaryFolderIsMadeOnDemandOnly()
    {
        const QString folder = SEnvironment::tempFolder();
        QVERIFY(folder.startsWith(QDir::tempPath() + u'/'));
        QVERIFY(!QFileInfo::exists(folder));
        QCOMPARE(SEnvironment::tempFolder(true), folder);
        QVERIFY(QFileInfo(folder).isDir());
        QCOMPARE(SEnvironment::tempFolder(), folder);
    }

    void temporaryFolderIsTheOwnersAlone()
    {
#ifdef Q_OS_UNIX
        const QFileInfo folder(SEnvironment::tempFolder(true));
        const auto others = QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup |
                            QFile::ReadOther | QFile::WriteOther | QFile::ExeOther;
        QVERIFY(!(folder.permissions() & others));
#else
        QSKIP("Permissions of this kind are those of Unix");
#endif
    }

    void temporaryFolderIsMadeAgainWhenItIsGone()
    {
        const QString folder = SEnvironment::tempFolder(true);
        QVERIFY(QDir(folder).removeRecursively());
        QCOMPARE(SEnvironment::tempFolder(true), folder);
        QVERIFY(QFileInfo(folder).isDir());
    }

    void manyThreadsMakeOneTemporaryFolder()
    {
        QVERIFY(QDir(SEnvironment::tempFolder()).removeRecursively());
        std::vector<std::unique_ptr<QThread>> threads;
        std::atomic<int> made{0};
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back(QThread::create(
                [&] { made += QFileInfo(SEnvironment::tempFolder(true)).isDir(); }));
            threads.back()->start();
        }
        for (const auto &thread : threads)
            QVERIFY(thread->wait(10'000));
        QCOMPARE(made.load(), 8);
    }

    void temporaryNamesAreFree()
    {
        const QTemporaryDir folder;
        const QString a = SEnvironment::tempUniqueFileName(folder.path());
        const QString b = SEnvironment::tempUniqueFileName(folder.path());
        QVERIFY(a != b);
        QCOMPARE(QFileInfo(a).path(), folder.path());
        QVERIFY(makeFile(a));
    }

    void temporaryNamesCanBeUsedAtOnce()
    {
        for (const QString &folder : {QString(), SEnvironment::tempFolder()}) {
            QVERIFY(QDir(SEnvironment::tempFolder()).removeRecursively());
            const QString name = SEnvironment::tempUniqueFileName(folder);
            QCOMPARE(QFileInfo(name).path(), SEnvironment::tempFolder());
            QVERIFY(makeFile(name));
        }
    }

    void temporaryFolderIsRemovedAtTheEnd()
    {
        QProcess process;
        process.start(QCoreApplication::applicationFilePath(), {QString::fromLatin1(kMakeFolder)});
        QVERIFY(process.waitForFinished());
        QCOMPARE(process.exitCode(), 0);
        const QString folder = QString::fromLocal8Bit(process.readAllStandardOutput()).trimmed();
        QVERIFY(folder.startsWith(QDir::tempPath() + u'/'));
        QVERIFY(!QFileInfo::exists(folder));
        QVERIFY(folder != SEnvironment::tempFolder());
    }

    void forkedProcessLeavesTheFolder()
    {
#ifdef Q_OS_UNIX
        const QString folder = SEnvironment::tempFolder(true);
        const pid_t child = ::fork();
        if (child == 0)
            std::exit(0);
        int status = -1;
        QCOMPARE(::waitpid(child, &status, 0), child);
        QVERIFY(QFileInfo::exists(folder));
#else
        QSKIP("This system has no fork");
#endif
    }

    void foldersAreThoseOfTheSystem_data()
    {
        QTest::addColumn<SpecialFolder>("folder");
        QTest::addColumn<QStandardPaths::StandardLocation>("location");
        QTest::newRow("home") << SpecialFolder::HomeLocation << QStandardPaths::HomeLocation;
        QTest::newRow("temporary") << SpecialFolder::TempLocation << QStandardPaths::TempLocation;
        QTest::newRow("data") << SpecialFolder::DataLocation
                              << QStandardPaths::AppLocalDataLocation;
        QTest::newRow("configuration")
            << SpecialFolder::AppConfigLocation << QStandardPaths::AppConfigLocation;
        QTest::newRow("downloads")
            << SpecialFolder::DownloadLocation << QStandardPaths::DownloadLocation;
    }

    void foldersAreThoseOfTheSystem()
    {
        QFETCH(SpecialFolder, folder);
        QFETCH(QStandardPaths::StandardLocation, location);
        QCOMPARE(SEnvironment::specialFolder(folder), QStandardPaths::writableLocation(location));
    }

    void rootIsTheRoot()
    {
        QCOMPARE(SEnvironment::specialFolder(SpecialFolder::RootLocation), QDir::rootPath());
    }

    void everyFolderHasAPath()
    {
        for (const int value : SpecialFolder_T::instance().values())
            QVERIFY(!SEnvironment::specialFolder(static_cast<SpecialFolder>(value)).isEmpty());
    }

    void unknownFoldersAreTheHome()
    {
        for (const int value : {-1, 19, 99, 103}) {
            QCOMPARE(SEnvironment::specialFolder(static_cast<SpecialFolder>(value)),
                     QDir::homePath());
        }
    }

    void downloadsHaveAFolder()
    {
        QCOMPARE(SEnvironment::downloadFolder(),
                 SEnvironment::specialFolder(SpecialFolder::DownloadLocation));
    }
};

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    if (argc > 1 && qstrcmp(argv[1], kMakeFolder) == 0)
        return makeFolderAndEnd();
    tst_SEnvironment test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_senvironment.moc"
