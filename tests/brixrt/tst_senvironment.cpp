// SPDX-License-Identifier: MIT
#include <brixlib/enums/specialfolder.h>

#include <brixrt/senvironment.h>

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
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
//! The argument that makes the test do so without an application object, fork a process that ends,
//! and print a second line that tells whether the folder is still there.
const char kFork[] = "--fork";

//! The argument that makes the test print in brackets what it gets without a temporary folder.
const char kNoFolder[] = "--no-folder";

bool makeFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write("x") == 1;
}

bool printFolder()
{
    const QString folder = SEnvironment::tempFolder(true);
    std::puts(qPrintable(folder));
    std::fflush(stdout);
    return makeFile(SEnvironment::tempUniqueFileName());
}

void printWithoutFolder()
{
    for (const QString &path : {SEnvironment::tempFolder(true), SEnvironment::tempUniqueFileName()})
        std::puts(qPrintable(u'[' + path + u']'));
}

#ifdef Q_OS_UNIX
bool forkAndPrint()
{
    if (!printFolder())
        return false;
    const pid_t child = ::fork();
    if (child == 0)
        std::exit(0);
    int status = -1;
    if (::waitpid(child, &status, 0) != child || status != 0)
        return false;
    std::puts(QFileInfo::exists(SEnvironment::tempFolder()) ? "there" : "gone");
    return true;
}
#endif

//! The lines that the test program prints when it is run with \a argument; empty when it fails.
QStringList linesOfRun(const char *argument, const QProcessEnvironment &environment = {})
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(QCoreApplication::applicationFilePath(), {QString::fromLatin1(argument)});
    if (!process.waitForFinished() || process.exitCode() != 0)
        return {};
    const QString output = QString::fromLocal8Bit(process.readAllStandardOutput());
    return output.split(QRegularExpression(u"\\R"_s), Qt::SkipEmptyParts);
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
        const QStringList lines = linesOfRun(kMakeFolder);
        QCOMPARE(lines.size(), 1);
        QVERIFY(lines.first().startsWith(QDir::tempPath() + u'/'));
        QVERIFY(lines.first() != SEnvironment::tempFolder());
        QVERIFY(!QFileInfo::exists(lines.first()));
    }

    void forkedProcessLeavesTheFolder()
    {
#ifdef Q_OS_UNIX
        const QStringList lines = linesOfRun(kFork);
        QCOMPARE(lines.size(), 2);
        QCOMPARE(lines.last(), u"there"_s);
        QVERIFY(!QFileInfo::exists(lines.first()));
#else
        QSKIP("This system has no fork");
#endif
    }

    void withoutATemporaryFolderNamesAreEmpty()
    {
#ifdef Q_OS_LINUX
        // Nobody can make a folder there.
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"TMPDIR"_s, u"/proc"_s);
        const QStringList lines = linesOfRun(kNoFolder, environment);
        QCOMPARE(lines, QStringList({u"[]"_s, u"[]"_s}));
#else
        QSKIP("This system has no folder of which it is known that nobody can make one in it");
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
#ifdef Q_OS_UNIX
    if (argc > 1 && qstrcmp(argv[1], kFork) == 0)
        return forkAndPrint() ? 0 : 1;
#endif
    QCoreApplication application(argc, argv);
    if (argc > 1 && qstrcmp(argv[1], kMakeFolder) == 0)
        return printFolder() ? 0 : 1;
    if (argc > 1 && qstrcmp(argv[1], kNoFolder) == 0) {
        printWithoutFolder();
        return 0;
    }
    tst_SEnvironment test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_senvironment.moc"
