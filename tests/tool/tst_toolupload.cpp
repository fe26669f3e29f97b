// SPDX-License-Identifier: MIT
// brix put against servers that are old, refuse, or drop the connection.
#include "hostilehost.h"
#include "limitedprocess.h"
#include "toolserver.h"

#include <brixlib/protocol/wire.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QTemporaryDir>

#include <atomic>
#include <optional>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

using Answer = std::optional<bool>;

// What the server says about its commands.
enum class List { Lowered, WithoutVersions, WithoutSendFile, WithoutRename, WithoutListDir, Empty };

bool sendList(HostileServer &server, List list, qint32 sendFileVersion = 0)
{
    auto commands = server.ownCommands();
    switch (list) {
    case List::Lowered:
        commands[CommandIds::kSendFile] = sendFileVersion;
        break;
    case List::WithoutVersions:
        return server.sendCommandsWithoutVersions();
    case List::WithoutSendFile:
        commands.remove(CommandIds::kSendFile);
        break;
    case List::WithoutRename:
        commands.remove(CommandIds::kRenameFile);
        break;
    case List::WithoutListDir:
        commands.remove(CommandIds::kListDir);
        break;
    case List::Empty:
        commands.clear();
        break;
    }
    return server.sendCommands(commands);
}

HostileServer::Script withList(List list, qint32 sendFileVersion = 0)
{
    return [=](HostileServer &server, const SCommandId &id) -> Answer {
        return id == CommandIds::kCommandList ? Answer(sendList(server, list, sendFileVersion))
                                              : std::nullopt;
    };
}

// How a server treats one of its renames.
enum class Rename { Refuse, DropBefore, DropAfter };

// Calls the renames of a transfer 1, 2, 3 and so on.
HostileServer::Script atRename(std::atomic_int *count, int which, Rename how, bool allAfter = false)
{
    return [=](HostileServer &server, const SCommandId &id) -> Answer {
        if (id != CommandIds::kRenameFile)
            return std::nullopt;
        const int number = ++*count;
        if (number != which && !(allAfter && number > which))
            return std::nullopt;
        if (how == Rename::Refuse)
            return server.sendResult(false);
        if (how == Rename::DropAfter)
            server.perform();
        server.hangUp();
        return false;
    };
}

// Returns the temporary names in a directory.
QStringList temporaryNames(const QString &folder)
{
    return namesIn(folder).filter(u".brix-"_s);
}

} // namespace

class tst_ToolUpload : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;

    QString local(const QString &name) const { return m_dir->filePath(name); }
    ToolResult put(const HostileHost &host, const QString &name, const QString &path,
                   const QStringList &more = {}, const QByteArray &input = {}) const
    {
        ToolProcess tool;
        tool.password = u"secret"_s;
        tool.workingDirectory = m_dir->path();
        tool.input = input;
        return tool.run(QStringList{u"put"_s, u"--timeout"_s, u"5"_s, name, host.url(path)} + more);
    }

    static void addOldServers()
    {
        QTest::addColumn<int>("list");
        QTest::addColumn<qint32>("version");
        QTest::newRow("1.0.0") << int(List::Lowered) << Wire::version(1, 0, 0);
        QTest::newRow("1.1.0") << int(List::Lowered) << Wire::version(1, 1, 0);
        QTest::newRow("0") << int(List::Lowered) << 0;
        QTest::newRow("no versions") << int(List::WithoutVersions) << 0;
    }

private Q_SLOTS:
    void init() { m_dir = std::make_unique<QTemporaryDir>(); }
    void cleanup() { m_dir.reset(); }

    // Servers that are not told the target

    void oldServerStoresFileInItsDirectory_data() { addOldServers(); }
    void oldServerStoresFileInItsDirectory()
    {
        QFETCH(int, list);
        QFETCH(qint32, version);
        const HostileHost host(withList(List(list), version));
        QVERIFY(writeFile(local(u"a.txt"_s), "new"));
        QVERIFY(writeFile(host.home() + u"/a.txt"_s, "at home"));
        QVERIFY(writeFile(host.home() + u"/sub/a.txt"_s, "the older one"));
        const auto result = put(host, u"a.txt"_s, u"sub/a.txt"_s);
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QCOMPARE(readFile(host.home() + u"/sub/a.txt"_s), "new"_ba);
        QCOMPARE(readFile(host.home() + u"/a.txt"_s), "at home"_ba);
        QCOMPARE(put(host, u"a.txt"_s, u"made/here/"_s).exitCode, 0);
        QCOMPARE(readFile(host.home() + u"/made/here/a.txt"_s), "new"_ba);
        QCOMPARE(readFile(host.home() + u"/a.txt"_s), "at home"_ba);
    }

    void oldServerStoresTree_data() { addOldServers(); }
    void oldServerStoresTree()
    {
        QFETCH(int, list);
        QFETCH(qint32, version);
        const HostileHost host(withList(List(list), version));
        for (const auto &name : {u"same"_s, u"sub/same"_s, u"sub/deep/same"_s, u"other/same"_s})
            QVERIFY(writeFile(local(u"tree/"_s + name), name.toUtf8()));
        QVERIFY(writeFile(host.home() + u"/same"_s, "at home"));
        const auto result = put(host, u"tree"_s, u"copy"_s, {u"-r"_s, u"--remove-source"_s});
        QVERIFY2(result.exitCode == 0, result.err.constData());
        for (const auto &name : {u"same"_s, u"sub/same"_s, u"sub/deep/same"_s, u"other/same"_s})
            QCOMPARE(readFile(host.home() + u"/copy/"_s + name), name.toUtf8());
        QCOMPARE(readFile(host.home() + u"/same"_s), "at home"_ba);
        QVERIFY(!QFile::exists(local(u"tree"_s)));
    }

    void oldServerIsNotSentAnotherName_data() { addOldServers(); }
    void oldServerIsNotSentAnotherName()
    {
        QFETCH(int, list);
        QFETCH(qint32, version);
        const HostileHost host(withList(List(list), version));
        QVERIFY(writeFile(local(u"a.txt"_s), "new"));
        QVERIFY(writeFile(local(u"what?"_s), "new"));
        QVERIFY(writeFile(host.home() + u"/a.txt"_s, "kept"));
        QVERIFY(writeFile(host.home() + u"/b.txt"_s, "kept too"));
        QVERIFY(writeFile(host.home() + u"/what?"_s, "kept"));
        QVERIFY(writeFile(host.home() + u"/what_"_s, "kept"));
        auto result = put(host, u"a.txt"_s, u"b.txt"_s, {u"--remove-source"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("too old to store a file under another name"),
                 result.err.constData());
        result = put(host, u"a.txt"_s, u"new/b.txt"_s, {u"--remove-source"_s});
        QCOMPARE(result.exitCode, 1);
        result = put(host, u"what?"_s, QString(), {u"--remove-source"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("too old to store a file under such a name"),
                 result.err.constData());
        QCOMPARE(namesIn(host.home()),
                 (QStringList{u"a.txt"_s, u"b.txt"_s, u"what?"_s, u"what_"_s}));
        for (const auto &name : {u"/a.txt"_s, u"/what?"_s, u"/what_"_s})
            QCOMPARE(readFile(host.home() + name), "kept"_ba);
        QCOMPARE(readFile(host.home() + u"/b.txt"_s), "kept too"_ba);
        QCOMPARE(namesIn(m_dir->path()), (QStringList{u"a.txt"_s, u"what?"_s}));
    }

    void oldServerGetsTheOtherFilesOfTree()
    {
        const HostileHost host(withList(List::WithoutVersions));
        QVERIFY(writeFile(local(u"tree/plain"_s), "plain"));
        QVERIFY(writeFile(local(u"tree/what?"_s), "odd"));
        QVERIFY(writeFile(local(u"tree/odd?/inner"_s), "inner"));
        QVERIFY(writeFile(host.home() + u"/copy/what_"_s, "kept"));
        const auto result = put(host, u"tree"_s, u"copy"_s, {u"-r"_s, u"--remove-source"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("brix: what?: the server is too old"), result.err.constData());
        QVERIFY2(result.err.contains("brix: odd?/inner: the server is too old"),
                 result.err.constData());
        QCOMPARE(readFile(host.home() + u"/copy/plain"_s), "plain"_ba);
        QCOMPARE(readFile(host.home() + u"/copy/what_"_s), "kept"_ba);
        QCOMPARE(namesIn(host.home() + u"/copy"_s),
                 (QStringList{u"odd?"_s, u"plain"_s, u"what_"_s}));
        QVERIFY(namesIn(host.home() + u"/copy/odd?"_s).isEmpty());
        QCOMPARE(namesIn(local(u"tree"_s)), (QStringList{u"odd?"_s, u"what?"_s}));
        QCOMPARE(readFile(local(u"tree/odd?/inner"_s)), "inner"_ba);
    }

    void directoryThatOldServerDoesNotEnterIsRefused()
    {
        std::atomic_int entered = 0;
        const HostileHost host([&](HostileServer &server, const SCommandId &id) -> Answer {
            if (id == CommandIds::kCommandList)
                return server.sendCommandsWithoutVersions();
            // The first for the root of the tree, after the return to the home directory.
            if (id == CommandIds::kChangeDir && ++entered == 2)
                return server.sendResult(false);
            return std::nullopt;
        });
        QVERIFY(writeFile(local(u"tree/a"_s), "a"));
        QVERIFY(writeFile(local(u"tree/sub/b"_s), "b"));
        QVERIFY(writeFile(host.home() + u"/a"_s, "kept"));
        const auto result = put(host, u"tree"_s, u"copy"_s, {u"-r"_s, u"--remove-source"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("brix: copy: the server does not enter this directory"),
                 result.err.constData());
        QCOMPARE(readFile(host.home() + u"/a"_s), "kept"_ba);
        QCOMPARE(namesIn(host.home() + u"/copy"_s), QStringList{u"sub"_s});
        QCOMPARE(readFile(host.home() + u"/copy/sub/b"_s), "b"_ba);
        QCOMPARE(namesIn(local(u"tree"_s)), (QStringList{u"a"_s, u"sub"_s}));
    }

    void lossOfOldServerIsTold()
    {
        std::atomic_int entered = 0;
        const HostileHost host([&](HostileServer &server, const SCommandId &id) -> Answer {
            if (id == CommandIds::kCommandList)
                return server.sendCommandsWithoutVersions();
            if (id != CommandIds::kChangeDir || ++entered != 4)
                return std::nullopt;
            server.hangUp();
            return false;
        });
        QVERIFY(writeFile(local(u"tree/a"_s), "a"));
        QVERIFY(writeFile(local(u"tree/sub/b"_s), "b"));
        QVERIFY(writeFile(local(u"tree/sub/c/d"_s), "d"));
        const auto result = put(host, u"tree"_s, u"copy"_s, {u"-r"_s});
        QCOMPARE(result.exitCode, 3);
        QVERIFY2(result.err.contains("not tried, since the connection had ended: sub/b, sub/c/d"),
                 result.err.constData());
        QCOMPARE(readFile(host.home() + u"/copy/a"_s), "a"_ba);
    }

    void serverThatIsToldTheTargetInTheSecondFormStoresIt()
    {
        const HostileHost host(withList(List::Lowered, Wire::version(1, 2, 0)));
        QVERIFY(writeFile(local(u"a.txt"_s), "new"));
        QCOMPARE(put(host, u"a.txt"_s, u"sub/b.txt"_s).exitCode, 0);
        QCOMPARE(readFile(host.home() + u"/sub/b.txt"_s), "new"_ba);
        QCOMPARE(namesIn(host.home()), QStringList{u"sub"_s});
    }

    // Servers that lack a command

    void commandThatServerLacksIsTold_data()
    {
        QTest::addColumn<int>("list");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QByteArray>("message");
        const QByteArray unknown = "does not know this command";
        QTest::newRow("sndf") << int(List::WithoutSendFile) << u"new/a.txt"_s << unknown;
        QTest::newRow("empty list") << int(List::Empty) << u"new/a.txt"_s << unknown;
        QTest::newRow("lstd") << int(List::WithoutListDir) << u"new/a.txt"_s << unknown;
        QTest::newRow("rnf_, odd name")
            << int(List::WithoutRename) << u"what%3F"_s << "cannot rename files"_ba;
    }

    void commandThatServerLacksIsTold()
    {
        QFETCH(int, list);
        QFETCH(QString, path);
        QFETCH(QByteArray, message);
        const HostileHost host(withList(List(list)));
        QVERIFY(writeFile(local(u"a.txt"_s), "content"));
        const auto result = put(host, u"a.txt"_s, path, {u"--remove-source"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains(message), result.err.constData());
        QVERIFY(namesIn(host.home()).isEmpty());
        QCOMPARE(readFile(local(u"a.txt"_s)), "content"_ba);
    }

    void getFromServerThatLacksTheCommandIsTold()
    {
        const HostileHost host([](HostileServer &server, const SCommandId &id) -> Answer {
            if (id != CommandIds::kCommandList)
                return std::nullopt;
            auto commands = server.ownCommands();
            commands.remove(CommandIds::kGetFile);
            return server.sendCommands(commands);
        });
        QVERIFY(writeFile(host.home() + u"/a.txt"_s, "content"));
        ToolProcess tool;
        tool.password = u"secret"_s;
        const auto result = tool.run({u"get"_s, host.url(u"a.txt"_s), local(u"a.txt"_s)});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("does not know this command"), result.err.constData());
        QVERIFY(namesIn(m_dir->path()).isEmpty());
    }

    void inputIsNotReadWhenServerLacksACommand_data()
    {
        QTest::addColumn<int>("list");
        QTest::newRow("rnf_") << int(List::WithoutRename);
        QTest::newRow("empty list") << int(List::Empty);
    }

    void inputIsNotReadWhenServerLacksACommand()
    {
        QFETCH(int, list);
        const HostileHost host(withList(List(list)));
        const auto result = put(host, u"-"_s, u"a.txt"_s, {}, "content");
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("does not know this command"), result.err.constData());
        QVERIFY(namesIn(host.home()).isEmpty());
    }

    // Sources are removed only after the server lists the file

    void sourceThatServerDoesNotListIsKept_data()
    {
        QTest::addColumn<int>("listing");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("message");
        const QByteArray unlisted = "does not list it with its size";
        QTest::newRow("nothing") << 0 << 1 << unlisted;
        QTest::newRow("another size") << 1 << 1 << unlisted;
        QTest::newRow("a directory") << 2 << 1 << unlisted;
        QTest::newRow("connection lost") << 3 << 3 << "did not list the directory"_ba;
    }

    void sourceThatServerDoesNotListIsKept()
    {
        QFETCH(int, listing);
        QFETCH(int, exitCode);
        QFETCH(QByteArray, message);
        const HostileHost host([=](HostileServer &server, const SCommandId &id) -> Answer {
            if (id != CommandIds::kListDir)
                return std::nullopt;
            const auto now = QDateTime::currentDateTimeUtc();
            if (listing == 0)
                return server.sendEntries({});
            if (listing == 1)
                return server.sendEntries(
                    {SFileEntry(u"a.txt"_s, 6, now, FileEntryFlags::Readable)});
            if (listing == 2)
                return server.sendEntries(
                    {SFileEntry(u"a.txt"_s, 7, now, FileEntryFlags::Directory)});
            server.hangUp();
            return false;
        });
        QVERIFY(writeFile(local(u"a.txt"_s), "content"));
        QVERIFY(writeFile(local(u"tree/a.txt"_s), "content"));
        auto result = put(host, u"a.txt"_s, QString(), {u"--remove-source"_s});
        QCOMPARE(result.exitCode, exitCode);
        QVERIFY2(result.err.contains(message), result.err.constData());
        result = put(host, u"tree"_s, u"copy"_s, {u"-r"_s, u"--remove-source"_s});
        QCOMPARE(result.exitCode, exitCode);
        QCOMPARE(readFile(local(u"a.txt"_s)), "content"_ba);
        QCOMPARE(readFile(local(u"tree/a.txt"_s)), "content"_ba);
        QCOMPARE(readFile(host.home() + u"/a.txt"_s), "content"_ba);
    }

    void treeIsListedOncePerDirectory()
    {
        std::atomic_int listings = 0;
        const HostileHost host([&](HostileServer &, const SCommandId &id) -> Answer {
            if (id == CommandIds::kListDir)
                ++listings;
            return std::nullopt;
        });
        for (int i = 0; i < 60; ++i)
            QVERIFY(writeFile(local(u"tree/%1/%2"_s.arg(i % 3).arg(i)), "small"));
        const auto result = put(host, u"tree"_s, u"copy"_s, {u"-r"_s, u"--remove-source"_s});
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QCOMPARE(listings.load(), 3);
        QVERIFY(namesIn(m_dir->path()).isEmpty());
        for (int i = 0; i < 60; ++i)
            QCOMPARE(readFile(host.home() + u"/copy/%1/%2"_s.arg(i % 3).arg(i)), "small"_ba);
    }

    void sourceThatChangesMeanwhileIsKept()
    {
        const HostileHost host([this](HostileServer &, const SCommandId &id) -> Answer {
            if (id == CommandIds::kListDir)
                writeFile(local(u"a.txt"_s), "CONTENT");
            return std::nullopt;
        });
        QVERIFY(writeFile(local(u"a.txt"_s), "content"));
        QFile source(local(u"a.txt"_s));
        QVERIFY(source.open(QIODevice::ReadWrite));
        QVERIFY(source.setFileTime(QDateTime::currentDateTimeUtc().addDays(-1),
                                   QFileDevice::FileModificationTime));
        source.close();
        const auto result = put(host, u"a.txt"_s, QString(), {u"--remove-source"_s});
        QCOMPARE(result.exitCode, 4);
        QVERIFY2(result.err.contains("changed here meanwhile"), result.err.constData());
        QCOMPARE(readFile(local(u"a.txt"_s)), "CONTENT"_ba);
        QCOMPARE(readFile(host.home() + u"/a.txt"_s), "content"_ba);
    }

    // A server that has no room

    // A limit on the size of files stands for the full disk.
    void serverWithoutRoomRefuses_data()
    {
        QTest::addColumn<qsizetype>("size");
        QTest::addColumn<bool>("isInput");
        for (const qsizetype size : {200'000, 32'000'000}) {
            QTest::addRow("put, %d bytes", int(size)) << size << false;
            QTest::addRow("put -, %d bytes", int(size)) << size << true;
        }
    }

    void serverWithoutRoomRefuses()
    {
        QFETCH(qsizetype, size);
        QFETCH(bool, isInput);
        ToolServer server;
        limitFileSize(&server.process(), 100'000);
        QVERIFY(writeFile(server.homePath(u"file"_s), "kept"));
        QVERIFY(server.start());
        const QByteArray content(size, 'x');
        QVERIFY(writeFile(local(u"large"_s), content));
        auto tool = server.client();
        if (isInput)
            tool.input = content;
        const auto result =
            tool.run({u"put"_s, isInput ? u"-"_s : local(u"large"_s), server.url(u"file"_s)});
        QVERIFY2(result.exitCode == 1, result.err.constData());
        QVERIFY2(result.err.contains("has no room"), result.err.constData());
        QCOMPARE(readFile(server.homePath(u"file"_s)), "kept"_ba);
        QCOMPARE(namesIn(server.home()), QStringList{u"file"_s});
    }

    void serverThatTellsTooLittleRoomRefuses()
    {
        const HostileHost host([](HostileServer &server, const SCommandId &id) -> Answer {
            if (id == CommandIds::kStorageInfo)
                return server.send(QByteArray(7, '\0') + "\x09" + QByteArray(16, '\0') +
                                   QByteArray(4, '\0'));
            if (id != CommandIds::kSendFile)
                return std::nullopt;
            // As if the last word of the server was lost on its way.
            server.hangUp();
            return false;
        });
        QVERIFY(writeFile(local(u"a.txt"_s), "ten bytes!"));
        const auto result = put(host, u"a.txt"_s, QString());
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("no room for it: 10 bytes are needed, 9 bytes are available"),
                 result.err.constData());
    }

    // Replacing an older file by renaming

    void versionSurvivesEachFailedRename_data()
    {
        QTest::addColumn<bool>("isInput");
        QTest::addColumn<int>("which");
        QTest::addColumn<int>("how");
        QTest::addColumn<bool>("allAfter");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<bool>("olderIsInPlace");
        QTest::addColumn<bool>("newIsInPlace");
        const auto row = [](const char *name, int which, Rename how, bool allAfter, int exitCode,
                            bool olderIsInPlace, bool newIsInPlace) {
            QTest::addRow("put, %s", name) << false << which << int(how) << allAfter << exitCode
                                           << olderIsInPlace << newIsInPlace;
            QTest::addRow("put -, %s", name) << true << which << int(how) << allAfter << exitCode
                                             << olderIsInPlace << newIsInPlace;
        };
        // The first rename is refused in any case, since the older file has the name.
        row("first dropped", 1, Rename::DropBefore, false, 3, true, false);
        row("first dropped afterwards", 1, Rename::DropAfter, false, 3, true, false);
        row("all refused", 1, Rename::Refuse, true, 1, true, false);
        row("older not moved aside", 2, Rename::Refuse, false, 1, true, false);
        row("dropped before older moved", 2, Rename::DropBefore, false, 3, true, false);
        row("dropped after older moved", 2, Rename::DropAfter, false, 3, false, false);
        row("new refused", 3, Rename::Refuse, false, 1, true, false);
        row("new and return refused", 3, Rename::Refuse, true, 1, false, false);
        row("dropped before new renamed", 3, Rename::DropBefore, false, 3, false, false);
        row("dropped after new renamed", 3, Rename::DropAfter, false, 3, false, true);
    }

    void versionSurvivesEachFailedRename()
    {
        QFETCH(bool, isInput);
        QFETCH(int, which);
        QFETCH(int, how);
        QFETCH(bool, allAfter);
        QFETCH(int, exitCode);
        QFETCH(bool, olderIsInPlace);
        QFETCH(bool, newIsInPlace);
        std::atomic_int count = 0;
        const HostileHost host(atRename(&count, which, Rename(how), allAfter));
        const QString folder = host.home() + u"/sub"_s;
        QVERIFY(writeFile(folder + u"/what?"_s, "older"));
        QVERIFY(writeFile(local(u"source"_s), "new"));
        const auto result = isInput
                                ? put(host, u"-"_s, u"sub/what%3F"_s, {}, "new")
                                : put(host, u"source"_s, u"sub/what%3F"_s, {u"--remove-source"_s});
        QVERIFY2(result.exitCode == exitCode, result.err.constData());
        QVERIFY(count >= which);

        // Each name with a whole version of the file is the file's own or told.
        QMap<QByteArray, QStringList> places;
        for (const auto &name : namesIn(folder)) {
            places[readFile(folder + u'/' + name)].append(name);
            if (name != u"what?"_s)
                QVERIFY2(result.err.contains(name.toUtf8()), result.err.constData());
        }
        QCOMPARE(places.value("older").size(), 1);
        QCOMPARE(places.value("older").first() == u"what?"_s, olderIsInPlace);
        QCOMPARE(places.value("new").contains(u"what?"_s), newIsInPlace);
        // What is known to be refused leaves nothing behind that the client still has itself.
        const bool isCleaned = !isInput && exitCode == 1 && olderIsInPlace;
        QCOMPARE(places.value("new").size(), isCleaned ? 0 : 1);
        QCOMPARE(readFile(local(u"source"_s)), "new"_ba);
        QVERIFY(temporaryNames(host.home()).isEmpty());
    }

    void olderFileThatIsNotRemovedIsTold_data()
    {
        QTest::addColumn<bool>("isInput");
        QTest::addColumn<bool>("isDropped");
        QTest::newRow("put, refused") << false << false;
        QTest::newRow("put, dropped") << false << true;
        QTest::newRow("put -, refused") << true << false;
        QTest::newRow("put -, dropped") << true << true;
    }

    void olderFileThatIsNotRemovedIsTold()
    {
        QFETCH(bool, isInput);
        QFETCH(bool, isDropped);
        const HostileHost host([=](HostileServer &server, const SCommandId &id) -> Answer {
            if (id != CommandIds::kRemoveFile)
                return std::nullopt;
            if (!isDropped)
                return server.sendResult(false);
            server.hangUp();
            return false;
        });
        QVERIFY(writeFile(host.home() + u"/what?"_s, "older"));
        QVERIFY(writeFile(local(u"source"_s), "new"));
        const auto result = isInput ? put(host, u"-"_s, u"what%3F"_s, {}, "new")
                                    : put(host, u"source"_s, u"what%3F"_s);
        QCOMPARE(result.exitCode, isDropped ? 3 : 1);
        QCOMPARE(readFile(host.home() + u"/what?"_s), "new"_ba);
        const auto left = temporaryNames(host.home());
        QCOMPARE(left.size(), 1);
        QCOMPARE(readFile(host.home() + u'/' + left.first()), "older"_ba);
        QVERIFY2(result.err.contains("did not remove the older file "_ba + left.first().toUtf8()),
                 result.err.constData());
        QVERIFY2(result.out.startsWith("1 file, "), result.out.constData());
    }

    void nameThatServerRefusesLosesNothing_data()
    {
        QTest::addColumn<bool>("isInput");
        QTest::newRow("put") << false;
        QTest::newRow("put -") << true;
    }

    void nameThatServerRefusesLosesNothing()
    {
        QFETCH(bool, isInput);
        std::atomic_int count = 0;
        const HostileHost host(atRename(&count, 1, Rename::Refuse, true));
        QVERIFY(writeFile(local(u"source"_s), "new"));
        const auto result = isInput ? put(host, u"-"_s, u"what%3F"_s, {}, "new")
                                    : put(host, u"source"_s, u"what%3F"_s, {u"--remove-source"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("does not store a file under the name what?"),
                 result.err.constData());
        const auto names = namesIn(host.home());
        QCOMPARE(names.size(), isInput ? 1 : 0);
        if (isInput) {
            QCOMPARE(readFile(host.home() + u'/' + names.first()), "new"_ba);
            QVERIFY2(result.err.contains(names.first().toUtf8()), result.err.constData());
        }
        QCOMPARE(readFile(local(u"source"_s)), "new"_ba);
    }

    void directoryOfThatNameIsKept()
    {
        const HostileHost host([](HostileServer &, const SCommandId &) { return std::nullopt; });
        QVERIFY(writeFile(host.home() + u"/copy/what?/inner"_s, "kept"));
        QVERIFY(writeFile(local(u"tree/what?"_s), "new"));
        const auto result = put(host, u"tree"_s, u"copy"_s, {u"-r"_s, u"--remove-source"_s});
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(readFile(host.home() + u"/copy/what?/inner"_s), "kept"_ba);
        QCOMPARE(namesIn(host.home() + u"/copy"_s), QStringList{u"what?"_s});
        QCOMPARE(readFile(local(u"tree/what?"_s)), "new"_ba);
    }
};

QTEST_GUILESS_MAIN(tst_ToolUpload)
#include "tst_toolupload.moc"
