// SPDX-License-Identifier: MIT
#include "hostilehost.h"
#include "limitedprocess.h"
#include "toolserver.h"

#include <brixlib/protocol/wire.h>

#include <shared/faketerminal.h>

#include <QtCore/QDirIterator>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QRegularExpression>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <limits>
#include <optional>

#include <sys/stat.h>
#include <unistd.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

// All files below a folder with their content, and its folders, by their relative paths.
QMap<QString, QByteArray> tree(const QString &folder)
{
    QMap<QString, QByteArray> content;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        const QString name = QDir(folder).relativeFilePath(it.filePath());
        content.insert(name, it.fileInfo().isDir() ? "a folder"_ba : readFile(it.filePath()));
    }
    return content;
}

// A tree with much of what names and sizes can be.
void makeTree(const QString &folder)
{
    const QByteArray large = [] {
        QByteArray bytes(3'000'000, Qt::Uninitialized);
        quint32 state = 1;
        for (char &byte : bytes)
            byte = char((state = state * 1664525 + 1013904223) >> 24);
        return bytes;
    }();
    for (const auto &name :
         {u"plain"_s, u".hidden"_s, u"with blanks "_s, u"per%20cent"_s, u"50%2 off"_s, u"-dash"_s,
          u"größe"_s, u"漢字 🖨"_s, u"tab\tnew\nline"_s, u"back\\slash"_s, u"a&b=c#d;e"_s,
          u"what?"_s, u"a<b>|c*\"d\""_s, u"sub/inner/deep.txt"_s, u"odd? <folder>/file"_s})
        QVERIFY(writeFile(folder + u'/' + name, "content of " + name.toUtf8()));
    QVERIFY(writeFile(folder + u"/empty"_s, {}));
    QVERIFY(writeFile(folder + u"/sub/large"_s, large));
    QVERIFY(QDir().mkpath(folder + u"/empty folder/another"_s));
}

// So many files, and so small, that several sessions move them.
constexpr int manyFiles = 400;

void makeManyFiles(const QString &folder)
{
    for (int i = 0; i < manyFiles; ++i)
        QVERIFY(writeFile(folder + u'/' + QString::number(i), "small"));
}

QJsonObject summary(const ToolResult &result)
{
    return result.lines().isEmpty() ? QJsonObject()
                                    : QJsonDocument::fromJson(result.lines().last()).object();
}

mode_t modeOf(const QString &path)
{
    struct stat status = {};
    return stat(qPrintable(path), &status) == 0 ? status.st_mode & 07777 : mode_t(-1);
}

SFileEntry fileEntry(const QString &name, qint64 size = 3)
{
    return SFileEntry(name, size, QDateTime::currentDateTimeUtc(), FileEntryFlags::Readable);
}

SFileEntry folderEntry(const QString &name)
{
    return SFileEntry(name, 0, QDateTime::currentDateTimeUtc(),
                      FileEntryFlags::Readable | FileEntryFlags::Directory);
}

} // namespace

class tst_ToolTransferCommands : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ToolServer> m_server;
    std::unique_ptr<QTemporaryDir> m_dir;

    QString local(const QString &name) const { return m_dir->filePath(name); }
    QString home(const QString &name) const { return m_server->homePath(name); }
    ToolResult get(const QString &path, const QStringList &more = {}) const
    {
        return m_server->run(QStringList{u"get"_s, m_server->url(path)} + more);
    }
    ToolResult put(const QString &name, const QString &path, const QStringList &more = {}) const
    {
        return m_server->run(QStringList{u"put"_s, name, m_server->url(path)} + more);
    }
    // A client inside the test's own folder.
    ToolProcess clientHere() const
    {
        auto tool = m_server->client();
        tool.workingDirectory = m_dir->path();
        return tool;
    }
    // A command against a hostile server.
    ToolResult getFrom(const HostileHost &host, const QString &path,
                       const QStringList &more = {}) const
    {
        return clientHere().run(QStringList{u"get"_s, u"--timeout"_s, u"2"_s, host.url(path)} +
                                more);
    }
    ToolResult putTo(const HostileHost &host, const QString &name, const QString &path,
                     const QStringList &more = {}) const
    {
        return clientHere().run(
            QStringList{u"put"_s, u"--timeout"_s, u"2"_s, name, host.url(path)} + more);
    }

private Q_SLOTS:
    void init()
    {
        m_server = std::make_unique<ToolServer>();
        m_dir = std::make_unique<QTemporaryDir>();
    }
    void cleanup()
    {
        m_server.reset();
        m_dir.reset();
    }

    // Single files

    void putAndGetMoveAFile()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(local(u"a.txt"_s), "content"));
        const auto sent = put(local(u"a.txt"_s), u"b.txt"_s);
        QCOMPARE(sent.exitCode, 0);
        QVERIFY(sent.err.isEmpty());
        QVERIFY2(sent.out.startsWith("1 file, 7 bytes in "), sent.out.constData());
        QCOMPARE(readFile(home(u"b.txt"_s)), "content"_ba);
        const auto fetched = get(u"b.txt"_s, {local(u"c.txt"_s)});
        QCOMPARE(fetched.exitCode, 0);
        QCOMPARE(readFile(local(u"c.txt"_s)), "content"_ba);
        QCOMPARE(namesIn(m_dir->path()), (QStringList{u"a.txt"_s, u"c.txt"_s}));
        QCOMPARE(namesIn(m_server->home()), QStringList{u"b.txt"_s});
    }

    void quietTransferSaysNothing()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(local(u"a.txt"_s), "content"));
        const auto result = put(local(u"a.txt"_s), QString(), {u"--quiet"_s});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.out.isEmpty());
        QVERIFY(result.err.isEmpty());
    }

    void summaryAsJsonIsOneObject()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(local(u"a.txt"_s), "content"));
        const auto object = summary(put(local(u"a.txt"_s), QString(), {u"--json"_s}));
        QCOMPARE(object.value("files"_L1).toInteger(), 1);
        QCOMPARE(object.value("bytes"_L1).toInteger(), 7);
        QVERIFY(object.value("seconds"_L1).toDouble() > 0);
        QVERIFY(object.value("rate"_L1).toDouble() > 0);
        for (const auto &key : {u"failures"_s, u"notTried"_s, u"leftOut"_s})
            QCOMPARE(object.value(key), QJsonValue(QJsonArray()));
    }

    void failureAsJsonIsOneObject_data()
    {
        QTest::addColumn<QStringList>("words");
        QTest::addColumn<QString>("reason");
        QTest::addColumn<int>("exitCode");
        const auto row = [](const char *name, const QStringList &words, const QString &reason,
                            int exitCode) { QTest::newRow(name) << words << reason << exitCode; };
        row("get of a missing file", {u"get"_s, u"URLmissing"_s, u"LOCALx"_s},
            u"the server has no missing"_s, 1);
        row("get -r of a missing directory", {u"get"_s, u"-r"_s, u"URLmissing"_s, u"LOCALx"_s},
            u"the server has no folder missing"_s, 1);
        row("get of a directory", {u"get"_s, u"URLfolder"_s, u"LOCALx"_s},
            u"folder is a folder; give -r"_s, 1);
        row("get to a place that cannot be made", {u"get"_s, u"URLa.txt"_s, u"LOCALfile/x"_s},
            u"cannot make the folder LOCALfile"_s, 4);
        row("put of a missing file", {u"put"_s, u"LOCALmissing"_s, u"URLx"_s},
            u"there is no file LOCALmissing"_s, 4);
        row("put into a directory that cannot be made", {u"put"_s, u"LOCALfile"_s, u"URLa.txt/x"_s},
            u"the server has no directory a.txt and does not make it"_s, 1);
        row("a URL that is none", {u"get"_s, u"nonsense"_s},
            u"wrong URL: it does not begin with brix:// (the form is brix://USER@HOST:PORT/PATH)"_s,
            2);
    }

    void failureAsJsonIsOneObject()
    {
        QFETCH(QStringList, words);
        QFETCH(QString, reason);
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"a.txt"_s), "content"));
        QVERIFY(QDir(m_server->home()).mkdir(u"folder"_s));
        QVERIFY(writeFile(local(u"file"_s), "older"));
        words.replaceInStrings(u"URL"_s, m_server->url());
        words.replaceInStrings(u"LOCAL"_s, m_dir->path() + u'/');
        reason.replace(u"LOCAL"_s, m_dir->path() + u'/');
        const auto result = m_server->run(words + QStringList{u"--json"_s});
        QTEST(result.exitCode, "exitCode");
        QCOMPARE(result.lines().size(), 1);
        const auto object = summary(result);
        QCOMPARE(object.value("files"_L1).toInteger(-1), 0);
        const auto failures = object.value("failures"_L1).toArray();
        QCOMPARE(failures.size(), 1);
        QCOMPARE(failures.first()["reason"_L1].toString(), reason);
        QVERIFY2(result.err.contains(reason.toUtf8()), result.err.constData());
    }

    void wrongPasswordAsJsonIsOneObject()
    {
        QVERIFY(m_server->start());
        auto tool = clientHere();
        tool.password = u"wrong"_s;
        const auto result = tool.run({u"get"_s, m_server->url(u"a.txt"_s), u"--json"_s});
        QCOMPARE(result.exitCode, 1);
        const auto failures = summary(result).value("failures"_L1).toArray();
        QCOMPARE(failures.size(), 1);
        QCOMPARE(failures.first()["name"_L1].toString(), m_server->url(u"a.txt"_s));
    }

    void putFindsItsPlace_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("place");
        QTest::newRow("no path") << QString() << u"a.txt"_s;
        QTest::newRow("another name") << u"b.txt"_s << u"b.txt"_s;
        QTest::newRow("a folder that is there") << u"folder"_s << u"folder/a.txt"_s;
        QTest::newRow("a slash at the end") << u"new/"_s << u"new/a.txt"_s;
        QTest::newRow("new folders") << u"x/y/z.txt"_s << u"x/y/z.txt"_s;
        QTest::newRow("encoded name") << u"50%25%20%3F"_s << u"50% ?"_s;
    }

    void putFindsItsPlace()
    {
        QFETCH(QString, path);
        QFETCH(QString, place);
        QVERIFY(m_server->start());
        QVERIFY(QDir(m_server->home()).mkdir(u"folder"_s));
        QVERIFY(writeFile(local(u"a.txt"_s), "content"));
        QCOMPARE(put(local(u"a.txt"_s), path).exitCode, 0);
        QCOMPARE(readFile(home(place)), "content"_ba);
    }

    void getFindsItsPlace_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("place");
        QTest::newRow("no place") << QStringList{} << u"a.txt"_s;
        QTest::newRow("another name") << QStringList{u"b.txt"_s} << u"b.txt"_s;
        QTest::newRow("a folder that is there") << QStringList{u"folder"_s} << u"folder/a.txt"_s;
        QTest::newRow("the current folder") << QStringList{u"."_s} << u"a.txt"_s;
        QTest::newRow("a slash at the end") << QStringList{u"new/"_s} << u"new/a.txt"_s;
        QTest::newRow("new folders") << QStringList{u"x/y/z.txt"_s} << u"x/y/z.txt"_s;
        QTest::newRow("refused characters") << QStringList{u"what?"_s} << u"what?"_s;
    }

    void getFindsItsPlace()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, place);
        QVERIFY(m_server->start());
        QVERIFY(QDir(m_dir->path()).mkdir(u"folder"_s));
        QVERIFY(writeFile(home(u"sub/a.txt"_s), "content"));
        const auto result =
            clientHere().run(QStringList{u"get"_s, m_server->url(u"sub/a.txt"_s)} + arguments);
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QCOMPARE(readFile(local(place)), "content"_ba);
    }

    void absolutePathOfTheServerHasASecondSlash()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"a.txt"_s), "content"));
        QCOMPARE(get(home(u"a.txt"_s), {local(u"a.txt"_s)}).exitCode, 0);
        QCOMPARE(readFile(local(u"a.txt"_s)), "content"_ba);
    }

    void olderFilesAreReplaced()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(local(u"a.txt"_s), "new"));
        QVERIFY(writeFile(home(u"a.txt"_s), "the older and longer content"));
        QVERIFY(writeFile(home(u"what?"_s), "the older and longer content"));
        QCOMPARE(put(local(u"a.txt"_s), u"a.txt"_s).exitCode, 0);
        QCOMPARE(put(local(u"a.txt"_s), u"what%3F"_s).exitCode, 0);
        QCOMPARE(readFile(home(u"a.txt"_s)), "new"_ba);
        QCOMPARE(readFile(home(u"what?"_s)), "new"_ba);
        QVERIFY(writeFile(local(u"b.txt"_s), "the older and longer content"));
        QCOMPARE(get(u"a.txt"_s, {local(u"b.txt"_s)}).exitCode, 0);
        QCOMPARE(readFile(local(u"b.txt"_s)), "new"_ba);
        QCOMPARE(namesIn(m_server->home()), (QStringList{u"a.txt"_s, u"what?"_s}));
    }

    void replacedFileKeepsItsPermissions_data()
    {
        QTest::addColumn<QStringList>("words");
        QTest::addColumn<QString>("place");
        QTest::newRow("get") << QStringList{u"get"_s} << u"here"_s;
        QTest::newRow("get -r") << QStringList{u"get"_s, u"-r"_s} << u"here"_s;
        QTest::newRow("put") << QStringList{u"put"_s} << u"there"_s;
        QTest::newRow("put -r") << QStringList{u"put"_s, u"-r"_s} << u"there"_s;
    }

    void replacedFileKeepsItsPermissions()
    {
        QFETCH(QStringList, words);
        QFETCH(const QString, place);
        QVERIFY(m_server->start());
        const bool isGet = place == u"here"_s;
        const bool isTree = words.contains(u"-r"_s);
        const QString source = isGet ? home(u"tree/a.txt"_s) : local(u"tree/a.txt"_s);
        const QString target = isGet ? local(u"tree/a.txt"_s) : home(u"tree/a.txt"_s);
        const QString end = isTree ? QString() : u"/a.txt"_s;
        for (const mode_t mode : {0600, 0440, 0755, 0666}) {
            QVERIFY(writeFile(source, "new " + QByteArray::number(mode)));
            QFile::remove(target);
            QVERIFY(writeFile(target, "older"));
            QCOMPARE(chmod(qPrintable(target), mode), 0);
            const auto result = m_server->run(
                words +
                (isGet ? QStringList{m_server->url(u"tree"_s + end), local(u"tree"_s) + end}
                       : QStringList{local(u"tree"_s) + end, m_server->url(u"tree"_s + end)}));
            QVERIFY2(result.exitCode == 0, result.err.constData());
            QCOMPARE(modeOf(target), mode);
            QCOMPARE(readFile(target), "new " + QByteArray::number(mode));
        }
        QCOMPARE(namesIn(QFileInfo(target).path()), QStringList{u"a.txt"_s});
    }

    void newFileFollowsTheUmask_data()
    {
        QTest::addColumn<mode_t>("mask");
        QTest::addColumn<mode_t>("mode");
        QTest::newRow("022") << mode_t(022) << mode_t(0644);
        QTest::newRow("077") << mode_t(077) << mode_t(0600);
        QTest::newRow("0") << mode_t(0) << mode_t(0666);
    }

    void newFileFollowsTheUmask()
    {
        QFETCH(const mode_t, mask);
        QFETCH(const mode_t, mode);
        const mode_t before = umask(mask);
        const bool isStarted = m_server->start();
        umask(before);
        QVERIFY(isStarted);
        QVERIFY(writeFile(local(u"a.txt"_s), "content"));
        QCOMPARE(put(local(u"a.txt"_s), u"b.txt"_s).exitCode, 0);
        QCOMPARE(modeOf(home(u"b.txt"_s)), mode);
        umask(mask);
        const auto fetched = get(u"b.txt"_s, {local(u"c.txt"_s)});
        umask(before);
        QCOMPARE(fetched.exitCode, 0);
        QCOMPARE(modeOf(local(u"c.txt"_s)), mode);
    }

    // Who may not read the older file must not read the new one while it arrives.
    void contentOfAPrivateFileIsPrivateWhileItArrives()
    {
        QVERIFY(m_server->start({u"--limit-out"_s, u"262144"_s}));
        QVERIFY(writeFile(home(u"large"_s), QByteArray(16 << 20, 'x')));
        QVERIFY(writeFile(local(u"target"_s), "older"));
        QCOMPARE(chmod(qPrintable(local(u"target"_s)), 0600), 0);
        QProcess client;
        m_server->client().prepare(&client,
                                   {u"get"_s, m_server->url(u"large"_s), local(u"target"_s)});
        client.start();
        const auto partial = [this] {
            return local(namesIn(m_dir->path()).filter(u".part"_s).value(0));
        };
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(partial()).isFile() && QFileInfo(partial()).size() > 0,
                                 20'000);
        QCOMPARE(modeOf(partial()), mode_t(0600));
        kill(pid_t(client.processId()), SIGINT);
        QVERIFY(client.waitForFinished(20'000));
        QCOMPARE(client.exitCode(), 130);
        QCOMPARE(namesIn(m_dir->path()), QStringList{u"target"_s});
        QCOMPARE(readFile(local(u"target"_s)), "older"_ba);
    }

    void linkHereIsFollowed_data()
    {
        QTest::addColumn<bool>("isTree");
        QTest::newRow("get") << false;
        QTest::newRow("get -r") << true;
    }

    void linkHereIsFollowed()
    {
        QFETCH(const bool, isTree);
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"tree/a.txt"_s), "new"));
        QVERIFY(writeFile(local(u"elsewhere/b.txt"_s), "older"));
        QCOMPARE(chmod(qPrintable(local(u"elsewhere/b.txt"_s)), 0600), 0);
        QVERIFY(QDir(m_dir->path()).mkdir(u"tree"_s));
        QVERIFY(QFile::link(u"../elsewhere/b.txt"_s, local(u"tree/a.txt"_s)));
        const auto result = isTree ? get(u"tree"_s, {u"-r"_s, local(u"tree"_s)})
                                   : get(u"tree/a.txt"_s, {local(u"tree/a.txt"_s)});
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QVERIFY(QFileInfo(local(u"tree/a.txt"_s)).isSymLink());
        QCOMPARE(readFile(local(u"elsewhere/b.txt"_s)), "new"_ba);
        QCOMPARE(modeOf(local(u"elsewhere/b.txt"_s)), mode_t(0600));
        QCOMPARE(namesIn(local(u"elsewhere"_s)), QStringList{u"b.txt"_s});
        QCOMPARE(namesIn(local(u"tree"_s)), QStringList{u"a.txt"_s});
    }

    void linkThatLeadsNowhereIsRefused()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"a.txt"_s), "new"));
        QVERIFY(QFile::link(local(u"missing"_s), local(u"a.txt"_s)));
        const auto result = get(u"a.txt"_s, {local(u"a.txt"_s)});
        QCOMPARE(result.exitCode, 4);
        QVERIFY2(result.err.contains("is a link that leads nowhere"), result.err.constData());
        QCOMPARE(namesIn(m_dir->path()), QStringList{u"a.txt"_s});
        QVERIFY(QFileInfo(local(u"a.txt"_s)).isSymLink());
    }

    void directoryIsNotReplacedByAFileOfATree()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"tree/a"_s), "new"));
        QVERIFY(writeFile(home(u"tree/b"_s), "new"));
        QVERIFY(writeFile(local(u"back/a/kept"_s), "kept"));
        QVERIFY(QFile::link(local(u"back/a"_s), local(u"back/b"_s)));
        const auto result = get(u"tree"_s, {u"-r"_s, local(u"back"_s)});
        QCOMPARE(result.exitCode, 4);
        QVERIFY2(result.err.contains("back/a is a directory"), result.err.constData());
        QVERIFY2(result.err.contains("back/b is a directory"), result.err.constData());
        QVERIFY(QFileInfo(local(u"back/b"_s)).isSymLink());
        QCOMPARE(readFile(local(u"back/a/kept"_s)), "kept"_ba);
    }

    // An upload must not write outside the home directory through a link.
    void linkOnTheServerIsReplaced()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(local(u"a.txt"_s), "new"));
        QVERIFY(writeFile(home(u"b.txt"_s), "older"));
        QVERIFY(QFile::link(home(u"b.txt"_s), home(u"a.txt"_s)));
        QCOMPARE(put(local(u"a.txt"_s), u"a.txt"_s).exitCode, 0);
        QVERIFY(!QFileInfo(home(u"a.txt"_s)).isSymLink());
        QCOMPARE(readFile(home(u"a.txt"_s)), "new"_ba);
        QCOMPARE(readFile(home(u"b.txt"_s)), "older"_ba);
    }

    void aPipeIsNotReplaced()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"tree/pipe"_s), "content"));
        const QString pipe = local(u"pipe"_s);
        QCOMPARE(mkfifo(qPrintable(pipe), 0600), 0);
        for (const auto &words : {QStringList{m_server->url(u"tree/pipe"_s), pipe},
                                  QStringList{u"-r"_s, m_server->url(u"tree"_s), local(u"."_s)}}) {
            const auto result = m_server->run(QStringList{u"get"_s} + words);
            QCOMPARE(result.exitCode, 4);
            QVERIFY2(result.err.contains("is no ordinary file"), result.err.constData());
            QVERIFY(QFileInfo::exists(pipe) && !QFileInfo(pipe).isFile());
        }
    }

    void emptyFileIsMoved()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(local(u"empty"_s), {}));
        QCOMPARE(put(local(u"empty"_s), QString()).exitCode, 0);
        QCOMPARE(get(u"empty"_s, {local(u"back"_s)}).exitCode, 0);
        QCOMPARE(readFile(local(u"back"_s)), QByteArray());
    }

    void sourceIsRemovedWhenAsked()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(local(u"a.txt"_s), "content"));
        QCOMPARE(put(local(u"a.txt"_s), QString(), {u"--remove-source"_s}).exitCode, 0);
        QVERIFY(namesIn(m_dir->path()).isEmpty());
        QCOMPARE(get(u"a.txt"_s, {local(u"b.txt"_s), u"--remove-source"_s}).exitCode, 0);
        QVERIFY(namesIn(m_server->home()).isEmpty());
        QCOMPARE(readFile(local(u"b.txt"_s)), "content"_ba);
    }

    void whatIsNotThereIsTold()
    {
        QVERIFY(m_server->start());
        auto result = get(u"missing"_s, {local(u"x"_s)});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("the server has no missing"), result.err.constData());
        result = get(u"/etc/passwd"_s, {local(u"x"_s)});
        QCOMPARE(result.exitCode, 1);
        result = put(local(u"missing"_s), QString());
        QCOMPARE(result.exitCode, 4);
        QVERIFY2(result.err.contains("there is no file"), result.err.constData());
        result = put(local(u"missing"_s), QString(), {u"-r"_s});
        QCOMPARE(result.exitCode, 4);
        QVERIFY(namesIn(m_dir->path()).isEmpty());
        QVERIFY(namesIn(m_server->home()).isEmpty());
    }

    void foldersNeedRecursive()
    {
        QVERIFY(m_server->start());
        QVERIFY(QDir(m_server->home()).mkdir(u"folder"_s));
        QCOMPARE(get(u"folder"_s, {local(u"x"_s)}).exitCode, 1);
        QCOMPARE(get(u"folder/"_s, {local(u"x"_s)}).exitCode, 1);
        QCOMPARE(put(m_dir->path(), u"x"_s).exitCode, 4);
        QVERIFY(writeFile(home(u"a.txt"_s), "content"));
        QCOMPARE(get(u"a.txt"_s, {u"-r"_s, local(u"x"_s)}).exitCode, 1);
        QVERIFY(!QFile::exists(local(u"x"_s)));
        QCOMPARE(get(QString(), {u"-r"_s}).exitCode, 2);
    }

    void placeThatCannotBeWrittenIsTold()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"a.txt"_s), "content"));
        QVERIFY(writeFile(local(u"file"_s), "older"));
        auto result = get(u"a.txt"_s, {local(u"file/x"_s)});
        QCOMPARE(result.exitCode, 4);
        QVERIFY2(result.err.contains("cannot make the folder"), result.err.constData());
        QCOMPARE(readFile(local(u"file"_s)), "older"_ba);
        QVERIFY(QDir(m_dir->path()).mkdir(u"odd?"_s));
        result = get(u"a.txt"_s, {local(u"odd?/x"_s)});
        QCOMPARE(result.exitCode, 4);
        QVERIFY2(result.err.contains("cannot receive into"), result.err.constData());
        result = get(u"a.txt"_s, {u"/proc/x"_s});
        QCOMPARE(result.exitCode, 4);
        QVERIFY2(result.err.contains("cannot write in /proc"), result.err.constData());
        result = put(local(u"file"_s), u"a.txt/x"_s);
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("does not make it"), result.err.constData());
        result = put(local(u"file"_s), u"../outside"_s);
        QVERIFY(result.exitCode != 0);
        QVERIFY(!QFile::exists(m_server->path(u"outside"_s)));
        QCOMPARE(readFile(home(u"a.txt"_s)), "content"_ba);
    }

    void progressIsShownOnATerminalOnly_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<bool>("isShown");
        QTest::newRow("terminal") << QStringList{} << true;
        QTest::newRow("terminal, quiet") << QStringList{u"--quiet"_s} << false;
    }

    void progressIsShownOnATerminalOnly()
    {
        QFETCH(QStringList, options);
        QFETCH(bool, isShown);
        QVERIFY(m_server->start({u"--limit-in"_s, u"1048576"_s}));
        QVERIFY(writeFile(local(u"large"_s), QByteArray(2 << 20, 'x')));
        FakeTerminal terminal;
        QProcess client;
        m_server->client().prepare(
            &client, QStringList{u"put"_s, local(u"large"_s), m_server->url()} + options);
        terminal.attach(&client, {STDERR_FILENO});
        client.start();
        QVERIFY(client.waitForFinished(30'000));
        QCOMPARE(client.exitCode(), 0);
        const QByteArray screen = terminal.screen();
        QCOMPARE(screen.contains("MiB of 2.0 MiB"), isShown);
        // About two seconds, at most ten times a second; the rest is room for a slow machine.
        QVERIFY(screen.count("MiB of 2.0 MiB") < 60);
        if (isShown)
            QVERIFY2(screen.endsWith(" \r"), "the line was not wiped");
        else
            QVERIFY(screen.isEmpty());
    }

    // Trees

    void treeComesBackAsItWas()
    {
        QVERIFY(m_server->start());
        makeTree(local(u"tree"_s));
        const auto sent = put(local(u"tree"_s), u"copy"_s, {u"-r"_s});
        QVERIFY2(sent.exitCode == 0, sent.err.constData());
        QVERIFY2(sent.out.startsWith("17 files, "), sent.out.constData());
        QCOMPARE(tree(home(u"copy"_s)), tree(local(u"tree"_s)));
        const auto fetched = get(u"copy"_s, {u"-r"_s, local(u"back"_s)});
        QVERIFY2(fetched.exitCode == 0, fetched.err.constData());
        QVERIFY2(fetched.out.startsWith("17 files, "), fetched.out.constData());
        QCOMPARE(tree(local(u"back"_s)), tree(local(u"tree"_s)));
        QCOMPARE(namesIn(m_server->home()), QStringList{u"copy"_s});
        QCOMPARE(namesIn(m_dir->path()), (QStringList{u"back"_s, u"tree"_s}));
    }

    void treeTakesItsOwnNameByDefault()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(local(u"tree/a.txt"_s), "content"));
        QCOMPARE(put(local(u"tree"_s), QString(), {u"-r"_s}).exitCode, 0);
        QCOMPARE(readFile(home(u"tree/a.txt"_s)), "content"_ba);
        QVERIFY(QDir(local(u"tree"_s)).removeRecursively());
        QCOMPARE(clientHere().run({u"get"_s, u"-r"_s, m_server->url(u"tree/"_s)}).exitCode, 0);
        QCOMPARE(readFile(local(u"tree/a.txt"_s)), "content"_ba);
    }

    void treeIsMergedIntoWhatIsThere()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(local(u"tree/a.txt"_s), "new"));
        QVERIFY(writeFile(home(u"copy/a.txt"_s), "older"));
        QVERIFY(writeFile(home(u"copy/b.txt"_s), "kept"));
        QCOMPARE(put(local(u"tree"_s), u"copy"_s, {u"-r"_s}).exitCode, 0);
        QCOMPARE(readFile(home(u"copy/a.txt"_s)), "new"_ba);
        QCOMPARE(readFile(home(u"copy/b.txt"_s)), "kept"_ba);
    }

    void manyFilesArriveInBothDirections()
    {
        QVERIFY(m_server->start());
        for (int i = 0; i < 500; ++i)
            QVERIFY(writeFile(local(u"tree/%1/%2"_s.arg(i % 7).arg(i)), QByteArray(i, 'x')));
        QCOMPARE(put(local(u"tree"_s), u"copy"_s, {u"-r"_s}).exitCode, 0);
        QCOMPARE(get(u"copy"_s, {u"-r"_s, local(u"back"_s)}).exitCode, 0);
        QCOMPARE(tree(local(u"back"_s)), tree(local(u"tree"_s)));
    }

    void manySmallFilesGoOnSeveralSessions()
    {
        QVERIFY(m_server->start({u"--verbose"_s}));
        makeManyFiles(home(u"tree"_s));
        QCOMPARE(get(u"tree"_s, {u"-r"_s, local(u"copy"_s)}).exitCode, 0);
        QVERIFY(m_server->logShowing("[4] login of ann").contains("[4] getf"));
        QCOMPARE(tree(local(u"copy"_s)), tree(home(u"tree"_s)));
        QCOMPARE(put(local(u"copy"_s), u"back"_s, {u"-r"_s}).exitCode, 0);
        QVERIFY(m_server->logShowing("[8] login of ann").contains("[8] sndf"));
        QCOMPARE(tree(home(u"back"_s)), tree(home(u"tree"_s)));
    }

    void serverThatTakesFewSessionsIsEnough()
    {
        QVERIFY(m_server->start({u"--max-connections"_s, u"2"_s}));
        makeManyFiles(home(u"tree"_s));
        const auto result = get(u"tree"_s, {u"-r"_s, local(u"copy"_s)});
        QCOMPARE(result.exitCode, 0);
        QVERIFY2(result.err.isEmpty(), result.err.constData());
        QCOMPARE(tree(local(u"copy"_s)), tree(home(u"tree"_s)));
    }

    void endOfOneSessionEndsTheTransfer_data()
    {
        QTest::addColumn<bool>("isGet");
        QTest::newRow("get") << true;
        QTest::newRow("put") << false;
    }

    void endOfOneSessionEndsTheTransfer()
    {
        QFETCH(bool, isGet);
        std::atomic_int files = 0;
        const HostileHost host(
            [&files](HostileServer &server, const SCommandId &id) -> std::optional<bool> {
                const bool isFile = id == CommandIds::kGetFile || id == CommandIds::kSendFile;
                if (!isFile || ++files != 40)
                    return std::nullopt;
                server.hangUp();
                return false;
            });
        const QString source = (isGet ? host.home() : m_dir->path()) + u"/tree"_s;
        const QString target = (isGet ? m_dir->path() : host.home()) + u"/copy"_s;
        makeManyFiles(source);
        const auto result = isGet ? getFrom(host, u"tree"_s, {u"-r"_s, target, u"--json"_s})
                                  : putTo(host, source, u"copy"_s, {u"-r"_s, u"--json"_s});
        QCOMPARE(result.exitCode, 3);
        const auto object = summary(result);
        const auto done = object.value("files"_L1).toInteger();
        const auto notTried = object.value("notTried"_L1).toArray().size();
        QCOMPARE(object.value("failures"_L1).toArray().size(), 1);
        QCOMPARE(done + 1 + notTried, qint64(manyFiles));
        // Only what waited already on the other sessions was still moved.
        QVERIFY2(done < 200, qPrintable(QString::number(done)));
        const auto arrived = tree(target);
        QCOMPARE(arrived.size(), done);
        for (const auto &content : arrived)
            QCOMPARE(content, "small"_ba);
    }

    void treeIsRemovedAtItsSourceWhenAsked()
    {
        QVERIFY(m_server->start());
        makeTree(local(u"tree"_s));
        const auto before = tree(local(u"tree"_s));
        QCOMPARE(put(local(u"tree"_s), u"copy"_s, {u"-r"_s, u"--remove-source"_s}).exitCode, 0);
        QVERIFY(namesIn(m_dir->path()).isEmpty());
        QCOMPARE(get(u"copy"_s, {u"-r"_s, u"--remove-source"_s, local(u"back"_s)}).exitCode, 0);
        QVERIFY(namesIn(m_server->home()).isEmpty());
        QCOMPARE(tree(local(u"back"_s)), before);
    }

    void linksAndOtherThingsAreLeftOut()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(local(u"tree/a.txt"_s), "content"));
        QVERIFY(QFile::link(u"a.txt"_s, local(u"tree/link to a file"_s)));
        QVERIFY(QFile::link(u"nowhere"_s, local(u"tree/link to nothing"_s)));
        QVERIFY(QFile::link(u".."_s, local(u"tree/link to a folder"_s)));
        QCOMPARE(mkfifo(QFile::encodeName(local(u"tree/pipe"_s)).constData(), 0600), 0);
        const auto result = put(local(u"tree"_s), u"copy"_s, {u"-r"_s});
        QCOMPARE(result.exitCode, 0);
        QVERIFY2(result.out.contains("3 left out"), result.out.constData());
        QVERIFY2(result.err.contains("left out: link to nothing: a link that leads nowhere"),
                 result.err.constData());
        QVERIFY(result.err.contains("left out: link to a folder: a link to a folder"));
        QVERIFY(result.err.contains("left out: pipe: neither file nor folder"));
        QCOMPARE(namesIn(home(u"copy"_s)), (QStringList{u"a.txt"_s, u"link to a file"_s}));

        QVERIFY(QFile::link(u"nowhere"_s, home(u"copy/broken"_s)));
        QVERIFY(QFile::link(u".."_s, home(u"copy/loop"_s)));
        const auto fetched = get(u"copy"_s, {u"-r"_s, local(u"back"_s)});
        QCOMPARE(fetched.exitCode, 0);
        QVERIFY2(fetched.out.contains("2 left out"), fetched.out.constData());
        QCOMPARE(namesIn(local(u"back"_s)), (QStringList{u"a.txt"_s, u"link to a file"_s}));
    }

    void nameThatIsNotTextIsAFailure()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(local(u"tree/a.txt"_s), "content"));
        const QByteArray odd = QFile::encodeName(local(u"tree/"_s)) + "b\xff.txt";
        std::FILE *raw = std::fopen(odd.constData(), "w");
        QVERIFY(raw);
        std::fclose(raw);
        const auto result = put(local(u"tree"_s), u"copy"_s, {u"-r"_s});
        QCOMPARE(std::remove(odd.constData()), 0);
        QCOMPARE(result.exitCode, 4);
        QVERIFY2(result.err.contains("not valid text"), result.err.constData());
        QCOMPARE(namesIn(home(u"copy"_s)), QStringList{u"a.txt"_s});
    }

    void failureOfOneFileLeavesTheOthers()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"copy/a/x"_s), "a"));
        QVERIFY(writeFile(home(u"copy/b"_s), "b"));
        // A folder stands where a file is to go, and a file where a folder is to go.
        QVERIFY(QDir().mkpath(local(u"back/b/inner"_s)));
        QVERIFY(writeFile(local(u"back/a"_s), "in the way"));
        QVERIFY(writeFile(home(u"copy/c"_s), "c"));
        const auto result = get(u"copy"_s, {u"-r"_s, local(u"back"_s), u"--json"_s});
        QCOMPARE(result.exitCode, 4);
        const auto object = summary(result);
        QCOMPARE(object.value("files"_L1).toInteger(), 1);
        QStringList failed;
        for (const auto &failure : object.value("failures"_L1).toArray())
            failed.append(failure.toObject().value("name"_L1).toString());
        QCOMPARE(failed, (QStringList{u"a"_s, u"b"_s}));
        QVERIFY2(result.err.contains("back/b is a directory"), result.err.constData());
        QCOMPARE(readFile(local(u"back/c"_s)), "c"_ba);
        QCOMPARE(readFile(local(u"back/a"_s)), "in the way"_ba);
        QCOMPARE(namesIn(local(u"back"_s)), (QStringList{u"a"_s, u"b"_s, u"c"_s}));
    }

    void folderThatTheServerCannotMakeIsAFailureOfItsOwn()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(local(u"tree/a/x"_s), "a"));
        QVERIFY(writeFile(local(u"tree/b"_s), "b"));
        QVERIFY(writeFile(home(u"copy/a"_s), "in the way"));
        const auto result = put(local(u"tree"_s), u"copy"_s, {u"-r"_s, u"--remove-source"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("brix: a: the server does not make this folder"),
                 result.err.constData());
        QCOMPARE(readFile(home(u"copy/b"_s)), "b"_ba);
        QCOMPARE(readFile(local(u"tree/a/x"_s)), "a"_ba);
    }

    // Interruption and loss

    void interruptionLeavesNothingHalfDone_data()
    {
        QTest::addColumn<bool>("isGet");
        QTest::addColumn<int>("signal");
        QTest::newRow("get, Ctrl-C") << true << SIGINT;
        QTest::newRow("get, SIGTERM") << true << SIGTERM;
        QTest::newRow("put, Ctrl-C") << false << SIGINT;
    }

    void interruptionLeavesNothingHalfDone()
    {
        QFETCH(bool, isGet);
        QFETCH(int, signal);
        QVERIFY(m_server->start({u"--limit-in"_s, u"262144"_s, u"--limit-out"_s, u"262144"_s}));
        const QByteArray large(16 << 20, 'x');
        QVERIFY(writeFile(isGet ? home(u"large"_s) : local(u"large"_s), large));
        QVERIFY(writeFile(isGet ? local(u"target"_s) : home(u"target"_s), "older"));
        const QString receivingFolder = isGet ? m_dir->path() : m_server->home();
        QProcess client;
        m_server->client().prepare(
            &client, isGet ? QStringList{u"get"_s, m_server->url(u"large"_s), local(u"target"_s)}
                           : QStringList{u"put"_s, local(u"large"_s), m_server->url(u"target"_s)});
        client.start();
        QTRY_VERIFY_WITH_TIMEOUT(!namesIn(receivingFolder).filter(u".part"_s).isEmpty(), 20'000);
        kill(pid_t(client.processId()), signal);
        QVERIFY(client.waitForFinished(20'000));
        QCOMPARE(client.exitStatus(), QProcess::NormalExit);
        QCOMPARE(client.exitCode(), 130);
        QVERIFY(client.readAllStandardError().contains("interrupted"));
        QTRY_VERIFY_WITH_TIMEOUT(namesIn(receivingFolder).filter(u".part"_s).isEmpty(), 20'000);
        QVERIFY(namesIn(receivingFolder).filter(u".brix-"_s).isEmpty());
        QCOMPARE(readFile(isGet ? local(u"target"_s) : home(u"target"_s)), "older"_ba);
    }

    void bytesOfAnUnfinishedFileAreCounted_data()
    {
        QTest::addColumn<bool>("isJson");
        QTest::newRow("text") << false;
        QTest::newRow("JSON") << true;
    }

    void bytesOfAnUnfinishedFileAreCounted()
    {
        QFETCH(const bool, isJson);
        QVERIFY(m_server->start({u"--limit-out"_s, u"4194304"_s}));
        QVERIFY(writeFile(home(u"large"_s), QByteArray(64 << 20, 'x')));
        QProcess client;
        m_server->client().prepare(
            &client, QStringList{u"get"_s, m_server->url(u"large"_s), local(u"target"_s)} +
                         (isJson ? QStringList{u"--json"_s} : QStringList()));
        client.start();
        const auto received = [this] {
            return QFileInfo(local(namesIn(m_dir->path()).filter(u".part"_s).value(0))).size();
        };
        QTRY_VERIFY_WITH_TIMEOUT(received() > (3 << 20), 20'000);
        kill(pid_t(client.processId()), SIGINT);
        QVERIFY(client.waitForFinished(20'000));
        QCOMPARE(client.exitCode(), 130);
        const QByteArray out = client.readAllStandardOutput();
        const QByteArray err = client.readAllStandardError();
        static const QRegularExpression failure(
            u"^brix: large: interrupted after [0-9.]+ MiB\n$"_s);
        QVERIFY2(failure.match(QString::fromUtf8(err)).hasMatch(), err.constData());
        if (isJson) {
            const auto object = QJsonDocument::fromJson(out).object();
            QVERIFY2(object.value("unfinishedBytes"_L1).toInteger() > (1 << 20), out.constData());
            QCOMPARE(object.value("files"_L1).toInteger(-1), 0);
            return;
        }
        static const QRegularExpression text(
            u"^0 files, 0 bytes in .*, [0-9.]+ MiB of unfinished files discarded\n$"_s);
        QVERIFY2(text.match(QString::fromUtf8(out)).hasMatch(), out.constData());
    }

    // The signal mostly comes between two files, when no exchange is there to fail.
    void interruptionOfATreeIsTold_data()
    {
        QTest::addColumn<bool>("isGet");
        QTest::newRow("get") << true;
        QTest::newRow("put") << false;
    }

    void interruptionOfATreeIsTold()
    {
        QFETCH(bool, isGet);
        QVERIFY(m_server->start());
        for (int i = 0; i < 5000; ++i)
            QVERIFY(writeFile((isGet ? home(u"tree/"_s) : local(u"tree/"_s)) + QString::number(i),
                              "small"));
        const QString receivingFolder = isGet ? local(u"copy"_s) : home(u"copy"_s);
        QProcess client;
        m_server->client().prepare(
            &client,
            isGet ? QStringList{u"get"_s, u"-r"_s, m_server->url(u"tree"_s), receivingFolder}
                  : QStringList{u"put"_s, u"-r"_s, local(u"tree"_s), m_server->url(u"copy"_s)});
        client.start();
        QTRY_VERIFY_WITH_TIMEOUT(!namesIn(receivingFolder).isEmpty(), 20'000);
        kill(pid_t(client.processId()), SIGINT);
        QVERIFY(client.waitForFinished(20'000));
        QCOMPARE(client.exitStatus(), QProcess::NormalExit);
        QCOMPARE(client.exitCode(), 130);
        const QByteArray error = client.readAllStandardError();
        QVERIFY2(error.contains("not tried, since interrupted: "), error.constData());
        QVERIFY2(!error.contains("the connection"), error.constData());
    }

    void serverThatDiesInATransferIsTold()
    {
        QVERIFY(m_server->start({u"--limit-out"_s, u"262144"_s}));
        QVERIFY(writeFile(home(u"tree/large"_s), QByteArray(16 << 20, 'x')));
        QVERIFY(writeFile(home(u"tree/later"_s), "later"));
        QVERIFY(writeFile(local(u"back/large"_s), "older"));
        QProcess client;
        m_server->client().prepare(&client,
                                   {u"get"_s, u"-r"_s, m_server->url(u"tree"_s), local(u"back"_s)});
        client.start();
        QTRY_VERIFY_WITH_TIMEOUT(!namesIn(local(u"back"_s)).filter(u".part"_s).isEmpty(), 20'000);
        m_server->process().kill();
        QVERIFY(client.waitForFinished(30'000));
        QCOMPARE(client.exitCode(), 3);
        const QByteArray error = client.readAllStandardError();
        QVERIFY2(error.contains("brix: large: the connection broke"), error.constData());
        QVERIFY2(error.contains("not tried, since the connection had ended: later"),
                 error.constData());
        QCOMPARE(namesIn(local(u"back"_s)), QStringList{u"large"_s});
        QCOMPARE(readFile(local(u"back/large"_s)), "older"_ba);
    }

    void serverThatStopsWhileItReceivesIsTold()
    {
        QVERIFY(m_server->start({u"--limit-in"_s, u"262144"_s}));
        QVERIFY(writeFile(local(u"large"_s), QByteArray(16 << 20, 'x')));
        QProcess client;
        m_server->client().prepare(&client,
                                   {u"put"_s, local(u"large"_s), m_server->url(u"target"_s)});
        client.start();
        QTRY_VERIFY_WITH_TIMEOUT(!namesIn(m_server->home()).filter(u".part"_s).isEmpty(), 20'000);
        m_server->process().terminate();
        QVERIFY(client.waitForFinished(30'000));
        QCOMPARE(client.exitCode(), 3);
        const QByteArray error = client.readAllStandardError();
        QVERIFY2(error.startsWith("brix: large: after "), error.constData());
        QCOMPARE(error.count('\n'), 1);
    }

    // A limit on the size of files stands in for a disk that takes no more: the small one is
    // reached long before the first report of progress.
    void fullDiskIsTold_data()
    {
        QTest::addColumn<qint64>("limit");
        QTest::addColumn<QStringList>("words");
        QTest::newRow("at once") << qint64(4096) << QStringList{};
        QTest::newRow("after a while") << qint64(48 << 20) << QStringList{};
        QTest::newRow("at once, of a tree") << qint64(4096) << QStringList{u"-r"_s};
    }

    void fullDiskIsTold()
    {
        QFETCH(const qint64, limit);
        QFETCH(const QStringList, words);
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"tree/large"_s), QByteArray(64 << 20, 'x')));
        QVERIFY(writeFile(local(u"large"_s), "older"));
        QProcess client;
        const bool isTree = !words.isEmpty();
        m_server->client().prepare(
            &client, QStringList{u"get"_s} + words +
                         QStringList{m_server->url(isTree ? u"tree"_s : u"tree/large"_s),
                                     isTree ? m_dir->path() : local(u"large"_s)});
        limitFileSize(&client, rlim_t(limit));
        client.start();
        QVERIFY(client.waitForFinished(30'000));
        const QByteArray error = client.readAllStandardError();
        QVERIFY2(client.exitCode() == 4, error.constData());
        const QByteArray wanted = u"brix: large: cannot be written in %1: %2\n"_s
                                      .arg(m_dir->path(), qt_error_string(EFBIG))
                                      .toUtf8();
        QCOMPARE(error, wanted);
        QCOMPARE(namesIn(m_dir->path()), QStringList{u"large"_s});
        QCOMPARE(readFile(local(u"large"_s)), "older"_ba);
    }

    // Servers that do not behave

    void namesThatLeadElsewhereAreRefused()
    {
        const HostileHost host(
            [](HostileServer &server, const SCommandId &id) -> std::optional<bool> {
                if (id != CommandIds::kListDir)
                    return std::nullopt;
                return server.sendEntries({fileEntry(u"../evil"_s), fileEntry(u"/tmp/evil"_s),
                                           folderEntry(u"."_s), fileEntry(u""_s),
                                           fileEntry(u"sub/evil"_s), fileEntry(u"good"_s)});
            });
        QVERIFY(writeFile(host.home() + u"/tree/good"_s, "yes"));
        QVERIFY(writeFile(host.home() + u"/evil"_s, "no"));
        const auto result = getFrom(host, u"tree"_s, {u"-r"_s, u"back"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("a name that no file here can have"), result.err.constData());
        QCOMPARE(namesIn(m_dir->path()), QStringList{u"back"_s});
        QCOMPARE(namesIn(local(u"back"_s)), QStringList{u"good"_s});
        QCOMPARE(readFile(local(u"back/good"_s)), "yes"_ba);
    }

    void nameThatIsNoValidTextHarmsNothing()
    {
        const QString name = u"a"_s + QChar(0xd800);
        const HostileHost host(
            [name](HostileServer &server, const SCommandId &id) -> std::optional<bool> {
                if (id == CommandIds::kGetFile)
                    return server.send(QByteArray("\0\0\0\0\0\0\0\x03"
                                                  "abc",
                                                  11));
                if (id != CommandIds::kListDir)
                    return std::nullopt;
                return server.sendEntries({fileEntry(name)});
            });
        QVERIFY(QDir(host.home()).mkdir(u"tree"_s));
        const auto result = getFrom(host, u"tree"_s, {u"-r"_s, u"back"_s});
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QCOMPARE(tree(local(u"back"_s)).values(), QList<QByteArray>{"abc"_ba});
    }

    void absurdSizesAreNotBelieved()
    {
        constexpr qint64 largest = std::numeric_limits<qint64>::max();
        const HostileHost host(
            [](HostileServer &server, const SCommandId &id) -> std::optional<bool> {
                if (id == CommandIds::kGetFile)
                    return server.send(QByteArray("\xff\xff\xff\xff\xff\xff\xff\xf0", 8));
                if (id != CommandIds::kListDir)
                    return std::nullopt;
                return server.sendEntries({fileEntry(u"a"_s, largest), fileEntry(u"b"_s, largest),
                                           fileEntry(u"c"_s, -1),
                                           fileEntry(u"d"_s, std::numeric_limits<qint64>::min())});
            });
        QVERIFY(QDir(host.home()).mkdir(u"tree"_s));
        const auto result = getFrom(host, u"tree"_s, {u"-r"_s, u"back"_s, u"--json"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(summary(result).value("bytes"_L1).toInteger(-1), 0);
    }

    void foldersWithoutEndAreNotFollowed()
    {
        const HostileHost host(
            [](HostileServer &server, const SCommandId &id) -> std::optional<bool> {
                if (id != CommandIds::kListDir)
                    return std::nullopt;
                return server.sendEntries({folderEntry(u"d"_s)});
            });
        QVERIFY(QDir(host.home()).mkdir(u"tree"_s));
        const auto result = getFrom(host, u"tree"_s, {u"-r"_s, u"back"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("lies too deep"), result.err.constData());
    }

    void fileThatTheServerDoesNotSendHarmsNothing()
    {
        const HostileHost host([](HostileServer &, const SCommandId &id) -> std::optional<bool> {
            if (id == CommandIds::kGetFile)
                return false;
            return std::nullopt;
        });
        QVERIFY(writeFile(host.home() + u"/a.txt"_s, "content"));
        QVERIFY(writeFile(local(u"a.txt"_s), "older"));
        const auto result = getFrom(host, u"a.txt"_s, {u"--remove-source"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("the server does not send it"), result.err.constData());
        QCOMPARE(readFile(local(u"a.txt"_s)), "older"_ba);
        QCOMPARE(namesIn(m_dir->path()), QStringList{u"a.txt"_s});
        QCOMPARE(readFile(host.home() + u"/a.txt"_s), "content"_ba);
    }

    void newFileThatTheServerTakesBackIsRemoved()
    {
        const HostileHost host(
            [](HostileServer &server, const SCommandId &id) -> std::optional<bool> {
                if (id != CommandIds::kGetFile)
                    return std::nullopt;
                server.send(QByteArray("\0\0\0\0\0\0\0\x03"
                                       "abc",
                                       11));
                return false;
            });
        QVERIFY(writeFile(host.home() + u"/a.txt"_s, "content"));
        const auto result = getFrom(host, u"a.txt"_s);
        QCOMPARE(result.exitCode, 3);
        QVERIFY(namesIn(m_dir->path()).isEmpty());
    }

    void failedGetLeavesAloneWhatHasTakenItsNameMeanwhile()
    {
        const QString target = local(u"a.txt"_s);
        const HostileHost host(
            [target](HostileServer &server, const SCommandId &id) -> std::optional<bool> {
                if (id != CommandIds::kGetFile)
                    return std::nullopt;
                server.send(QByteArray("\0\0\0\0\0\0\0\x03"
                                       "abc",
                                       11));
                // Another program.
                writeFile(target, "another's");
                return false;
            });
        QVERIFY(writeFile(host.home() + u"/a.txt"_s, "content"));
        const auto result = getFrom(host, u"a.txt"_s);
        QCOMPARE(result.exitCode, 3);
        QCOMPARE(namesIn(m_dir->path()), QStringList{u"a.txt"_s});
        QCOMPARE(readFile(target), "another's"_ba);
    }

    void failureOfANameListedTwiceKeepsItsFirstFile()
    {
        std::atomic_int fetched = 0;
        const HostileHost host(
            [&fetched](HostileServer &server, const SCommandId &id) -> std::optional<bool> {
                if (id == CommandIds::kListDir)
                    return server.sendEntries({fileEntry(u"a"_s), fileEntry(u"a"_s)});
                if (id != CommandIds::kGetFile || ++fetched == 1)
                    return std::nullopt;
                server.send(QByteArray("\0\0\0\0\0\0\0\x03"
                                       "abc",
                                       11));
                return false;
            });
        QVERIFY(writeFile(host.home() + u"/tree/a"_s, "first"));
        const auto result = getFrom(host, u"tree"_s, {u"-r"_s, u"back"_s, u"--remove-source"_s});
        QCOMPARE(result.exitCode, 3);
        QCOMPARE(namesIn(local(u"back"_s)), QStringList{u"a"_s});
        QCOMPARE(readFile(local(u"back/a"_s)), "first"_ba);
    }

    void newFileHasItsNameOnlyAfterTheServersLastWord()
    {
        const QString target = local(u"a.txt"_s);
        std::atomic_bool hadName = false;
        const HostileHost host([&, target](HostileServer &server,
                                           const SCommandId &id) -> std::optional<bool> {
            if (id != CommandIds::kGetFile)
                return std::nullopt;
            server.send(QByteArray("\0\0\0\0\0\0\0\x03"
                                   "abc",
                                   11));
            const QString folder = QFileInfo(target).path();
            hadName =
                QTest::qWaitFor([&] { return !namesIn(folder).filter(u".brix-"_s).isEmpty(); }) &&
                QFile::exists(target);
            return true;
        });
        QVERIFY(writeFile(host.home() + u"/a.txt"_s, "content"));
        QCOMPARE(getFrom(host, u"a.txt"_s).exitCode, 0);
        QVERIFY(!hadName);
        QCOMPARE(readFile(target), "abc"_ba);
        QCOMPARE(namesIn(m_dir->path()), QStringList{u"a.txt"_s});
    }

    void fileThatIsCutOffHarmsNothing_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("exitCode");
        QTest::newRow("half a size") << QByteArray("\0\0\0", 3) << 3;
        QTest::newRow("too few bytes") << QByteArray("\0\0\0\0\0\0\0\x10"
                                                     "abc",
                                                     11)
                                       << 3;
        QTest::newRow("absurd size") << QByteArray("\x7f\xff\xff\xff\xff\xff\xff\xff"
                                                   "abc",
                                                   11)
                                     << 3;
        QTest::newRow("negative size") << QByteArray("\xff\xff\xff\xff\xff\xff\xff\xf0", 8) << 1;
    }

    void fileThatIsCutOffHarmsNothing()
    {
        QFETCH(QByteArray, bytes);
        const HostileHost host(
            [bytes](HostileServer &server, const SCommandId &id) -> std::optional<bool> {
                if (id != CommandIds::kGetFile)
                    return std::nullopt;
                server.send(bytes);
                server.hangUp();
                return false;
            });
        QVERIFY(writeFile(host.home() + u"/a.txt"_s, "content"));
        QVERIFY(writeFile(local(u"a.txt"_s), "older"));
        const auto result = getFrom(host, u"a.txt"_s);
        QTEST(result.exitCode, "exitCode");
        QCOMPARE(readFile(local(u"a.txt"_s)), "older"_ba);
        QCOMPARE(namesIn(m_dir->path()), QStringList{u"a.txt"_s});
    }

    void silentServerIsGivenUp()
    {
        const HostileHost host([](HostileServer &, const SCommandId &id) -> std::optional<bool> {
            if (id != CommandIds::kExists)
                return std::nullopt;
            QThread::sleep(4);
            return false;
        });
        const auto result = getFrom(host, u"a.txt"_s);
        QCOMPARE(result.exitCode, 3);
        QVERIFY2(result.err.contains("ended the connection"), result.err.constData());
    }

    void handshakeThatGoesWrongIsTold_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<int>("exitCode");
        QTest::newRow("no commands") << QByteArray("\0\0\0\x08\0\0\0\0\0\0\0\0", 12) << 0;
        QTest::newRow("empty reply") << QByteArray("\0\0\0\0", 4) << 3;
        QTest::newRow("reply cut off") << QByteArray("\0\0\0\x08\0\0", 6) << 3;
        QTest::newRow("absurd size") << QByteArray("\xff\xff\xff\xff\0\0", 6) << 3;
    }

    void handshakeThatGoesWrongIsTold()
    {
        QFETCH(QByteArray, reply);
        QFETCH(int, exitCode);
        const HostileHost host(
            [reply](HostileServer &server, const SCommandId &id) -> std::optional<bool> {
                if (id != CommandIds::kCommandList)
                    return std::nullopt;
                return server.send(reply);
            });
        const auto result =
            clientHere().run({u"ls"_s, u"--timeout"_s, u"2"_s, host.url(QString())});
        QVERIFY2(result.exitCode == exitCode, result.err.constData());
    }

    void fileThatTheServerDoesNotStoreKeepsItsSource()
    {
        const HostileHost host([](HostileServer &, const SCommandId &id) -> std::optional<bool> {
            if (id == CommandIds::kSendFile)
                return false;
            return std::nullopt;
        });
        QVERIFY(writeFile(local(u"tree/a.txt"_s), "content"));
        QVERIFY(writeFile(local(u"tree/b.txt"_s), "content"));
        const auto result =
            putTo(host, u"tree"_s, u"copy"_s, {u"-r"_s, u"--remove-source"_s, u"--json"_s});
        QVERIFY2(result.exitCode == 1, result.err.constData());
        const auto object = summary(result);
        QCOMPARE(object.value("files"_L1).toInteger(), 0);
        QCOMPARE(object.value("failures"_L1).toArray().size(), 1);
        QCOMPARE(object.value("notTried"_L1).toArray(), QJsonArray{u"b.txt"_s});
        QCOMPARE(readFile(local(u"tree/a.txt"_s)), "content"_ba);
        QCOMPARE(readFile(local(u"tree/b.txt"_s)), "content"_ba);
    }
};

QTEST_GUILESS_MAIN(tst_ToolTransferCommands)
#include "tst_tooltransfercommands.moc"
