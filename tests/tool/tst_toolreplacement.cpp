// SPDX-License-Identifier: MIT
// Replacing an older file on a server by renaming: its permissions, and "brix cp" over it.
#include "hostilehost.h"
#include "limitedprocess.h"
#include "toolserver.h"

#include <brixlib/protocol/wire.h>

#include <QtCore/QMap>
#include <QtCore/QTemporaryDir>

#include <atomic>
#include <optional>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

using Answer = std::optional<bool>;

// How a server treats one of its commands.
enum class Fault { Refuse, DropBefore, DropAfter };

Answer answerTo(HostileServer &server, Fault fault)
{
    if (fault == Fault::Refuse)
        return server.sendResult(false);
    if (fault == Fault::DropAfter)
        server.perform();
    server.hangUp();
    return false;
}

// A server with a fault at its command of that number, 1 for the first.
HostileServer::Script atCommand(std::atomic_int *count, SCommandId command, int number, Fault fault)
{
    return [=](HostileServer &server, const SCommandId &id) -> Answer {
        return id == command && ++*count == number ? answerTo(server, fault) : std::nullopt;
    };
}

HostileServer::Script without(SCommandId command)
{
    return [=](HostileServer &server, const SCommandId &id) -> Answer {
        if (id != CommandIds::kCommandList)
            return std::nullopt;
        auto commands = server.ownCommands();
        commands.remove(command);
        return server.sendCommands(commands);
    };
}

Answer asUsual(HostileServer &, const SCommandId &)
{
    return std::nullopt;
}

constexpr QFileDevice::Permissions kPrivate = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
constexpr QFileDevice::Permissions kReadOnly = QFileDevice::ReadOwner | QFileDevice::ReadGroup;

// The permissions without the user's, which are the owner's in this process.
QFileDevice::Permissions permissions(const QString &path)
{
    return QFile::permissions(path) & QFileDevice::Permissions::fromInt(0x7077);
}

} // namespace

class tst_ToolReplacement : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;

    static QString older(const HostileHost &host) { return host.home() + u"/sub/what?"_s; }

    // Makes the older file and the source of a copy on the server.
    static bool makeFiles(const HostileHost &host, QFileDevice::Permissions permissions)
    {
        return writeFile(older(host), "older") && writeFile(host.home() + u"/source"_s, "new") &&
               QFile::setPermissions(older(host), permissions);
    }

    // Replaces the older file by the way named; each puts "new" in its place.
    ToolResult replace(const HostileHost &host, const QString &way) const
    {
        ToolProcess tool;
        tool.password = u"secret"_s;
        tool.workingDirectory = m_dir->path();
        tool.input = "new";
        if (way == u"cp"_s)
            return tool.run(
                {u"cp"_s, u"--timeout"_s, u"5"_s, host.url(u"source"_s), u"sub/what?"_s});
        const QString source = way == u"put"_s ? u"source"_s : u"-"_s;
        return tool.run({u"put"_s, u"--timeout"_s, u"5"_s, source, host.url(u"sub/what%3F"_s)});
    }

    // Where the older and the new content are on the server; the message must name each temporary
    // file.
    static QMap<QByteArray, QStringList> places(const HostileHost &host, const ToolResult &result)
    {
        QMap<QByteArray, QStringList> places;
        const QString folder = host.home() + u"/sub"_s;
        for (const QString &name : namesIn(folder)) {
            const bool isTold = name == u"what?"_s || result.err.contains(name.toUtf8());
            places[isTold ? readFile(folder + u'/' + name) : "not told"_ba].append(name);
        }
        return places;
    }

private Q_SLOTS:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(writeFile(m_dir->filePath(u"source"_s), "new"));
    }
    void cleanup() { m_dir.reset(); }

    void replacedFileKeepsItsPermissions_data()
    {
        QTest::addColumn<QString>("way");
        QTest::addColumn<QFileDevice::Permissions>("mode");
        for (const char *way : {"put", "put -", "cp"}) {
            QTest::addRow("%s, 0600", way) << QString::fromLatin1(way) << kPrivate;
            QTest::addRow("%s, 0440", way) << QString::fromLatin1(way) << kReadOnly;
        }
    }

    void replacedFileKeepsItsPermissions()
    {
        QFETCH(QString, way);
        QFETCH(QFileDevice::Permissions, mode);
        const HostileHost host(asUsual);
        QVERIFY(makeFiles(host, mode));
        const auto result = replace(host, way);
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QCOMPARE(readFile(older(host)), "new"_ba);
        QCOMPARE(permissions(older(host)), mode);
        QCOMPARE(namesIn(host.home() + u"/sub"_s), QStringList{u"what?"_s});
        QCOMPARE(readFile(host.home() + u"/source"_s), "new"_ba);
    }

    void serverThatCannotSetPermissionsStillReplaces_data()
    {
        QTest::addColumn<QString>("way");
        QTest::addColumn<bool>("lacksList");
        QTest::newRow("put, no aflp") << u"put"_s << false;
        QTest::newRow("put -, no aflp") << u"put -"_s << false;
        QTest::newRow("cp, no aflp") << u"cp"_s << false;
        QTest::newRow("put -, no lstd") << u"put -"_s << true;
    }

    void serverThatCannotSetPermissionsStillReplaces()
    {
        QFETCH(QString, way);
        QFETCH(bool, lacksList);
        const HostileHost host(
            without(lacksList ? CommandIds::kListDir : CommandIds::kSetPermissions));
        QVERIFY(makeFiles(host, kPrivate));
        const auto result = replace(host, way);
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QCOMPARE(readFile(older(host)), "new"_ba);
        QCOMPARE(namesIn(host.home() + u"/sub"_s), QStringList{u"what?"_s});
    }

    void olderFileKeepsItsPlaceWhenItsPermissionsAreNotKept_data()
    {
        QTest::addColumn<QString>("way");
        QTest::addColumn<int>("fault");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<bool>("isNewKept");
        for (const char *way : {"put", "put -", "cp"}) {
            const QString name = QString::fromLatin1(way);
            QTest::addRow("%s, refused", way)
                << name << int(Fault::Refuse) << 1 << (name == u"put -"_s);
            QTest::addRow("%s, dropped", way) << name << int(Fault::DropBefore) << 3 << true;
            QTest::addRow("%s, dropped afterwards", way)
                << name << int(Fault::DropAfter) << 3 << true;
        }
    }

    void olderFileKeepsItsPlaceWhenItsPermissionsAreNotKept()
    {
        QFETCH(QString, way);
        QFETCH(int, fault);
        QFETCH(int, exitCode);
        QFETCH(bool, isNewKept);
        std::atomic_int count = 0;
        const HostileHost host(atCommand(&count, CommandIds::kSetPermissions, 1, Fault(fault)));
        QVERIFY(makeFiles(host, kPrivate));
        const auto result = replace(host, way);
        QVERIFY2(result.exitCode == exitCode, result.err.constData());
        QCOMPARE(int(count), 1);
        QCOMPARE(readFile(older(host)), "older"_ba);
        QCOMPARE(permissions(older(host)), kPrivate);
        const auto found = places(host, result);
        QVERIFY2(!found.contains("not told"), result.err.constData());
        QCOMPARE(found.value("new").size(), isNewKept ? 1 : 0);
        if (exitCode == 1)
            QVERIFY2(result.err.contains("does not set the permissions"), result.err.constData());
    }

    void olderFileThatIsNotListedIsNotReplaced()
    {
        const HostileHost host([](HostileServer &server, const SCommandId &id) -> Answer {
            return id == CommandIds::kListDir ? Answer(server.sendEntries({})) : std::nullopt;
        });
        QVERIFY(makeFiles(host, kPrivate));
        const auto result = replace(host, u"put -"_s);
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("does not list the permissions"), result.err.constData());
        QCOMPARE(readFile(older(host)), "older"_ba);
        QCOMPARE(places(host, result).value("new").size(), 1);
    }

    // cp

    void olderFileSurvivesEachFaultOfCopy_data()
    {
        QTest::addColumn<int>("step"); // 0 for the copy, else the number of the rename
        QTest::addColumn<int>("fault");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<bool>("olderIsInPlace");
        const auto row = [](const char *name, int step, Fault fault, int exitCode,
                            bool olderIsInPlace) {
            QTest::newRow(name) << step << int(fault) << exitCode << olderIsInPlace;
        };
        row("copy refused", 0, Fault::Refuse, 1, true);
        row("dropped before copy", 0, Fault::DropBefore, 3, true);
        row("dropped after copy", 0, Fault::DropAfter, 3, true);
        row("dropped before first rename", 1, Fault::DropBefore, 3, true);
        row("dropped after first rename", 1, Fault::DropAfter, 3, true);
        row("older not moved aside", 2, Fault::Refuse, 1, true);
        row("dropped before older moved", 2, Fault::DropBefore, 3, true);
        row("dropped after older moved", 2, Fault::DropAfter, 3, false);
        row("new refused", 3, Fault::Refuse, 1, true);
        row("dropped before new renamed", 3, Fault::DropBefore, 3, false);
        row("dropped after new renamed", 3, Fault::DropAfter, 3, false);
    }

    void olderFileSurvivesEachFaultOfCopy()
    {
        QFETCH(int, step);
        QFETCH(int, fault);
        QFETCH(int, exitCode);
        QFETCH(bool, olderIsInPlace);
        std::atomic_int count = 0;
        const HostileHost host(
            step == 0 ? atCommand(&count, CommandIds::kCopyFile, 1, Fault(fault))
                      : atCommand(&count, CommandIds::kRenameFile, step, Fault(fault)));
        QVERIFY(makeFiles(host, kPrivate));
        const auto result = replace(host, u"cp"_s);
        QVERIFY2(result.exitCode == exitCode, result.err.constData());
        QVERIFY(count >= step);
        const auto found = places(host, result);
        QVERIFY2(!found.contains("not told"), result.err.constData());
        QCOMPARE(found.value("older").size(), 1);
        QCOMPARE(found.value("older").first() == u"what?"_s, olderIsInPlace);
        // An incomplete copy is removed, a complete one only where the server refuses its name.
        QCOMPARE(found.value("new").size(), step > 0 && exitCode == 3 ? 1 : 0);
        QCOMPARE(readFile(host.home() + u"/source"_s), "new"_ba);
    }

    void olderFileThatCopyDoesNotRemoveIsTold()
    {
        std::atomic_int count = 0;
        const HostileHost host(atCommand(&count, CommandIds::kRemoveFile, 1, Fault::Refuse));
        QVERIFY(makeFiles(host, kPrivate));
        const auto result = replace(host, u"cp"_s);
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("did not remove the older file"), result.err.constData());
        QCOMPARE(readFile(older(host)), "new"_ba);
        QCOMPARE(places(host, result).value("older").size(), 1);
    }

    void incompleteCopyReplacesNothing_data()
    {
        QTest::addColumn<bool>("isRemoved");
        QTest::newRow("removed") << true;
        QTest::newRow("not removed") << false;
    }

    // The server says that it has copied the file, of which it has stored a part.
    void incompleteCopyReplacesNothing()
    {
        QFETCH(bool, isRemoved);
        QString folder;
        const HostileHost host([&](HostileServer &server, const SCommandId &id) -> Answer {
            if (id == CommandIds::kRemoveFile && !isRemoved)
                return server.sendResult(false);
            if (id != CommandIds::kCopyFile)
                return std::nullopt;
            server.perform();
            for (const QString &name : namesIn(folder).filter(u".brix-"_s))
                QFile::resize(folder + u'/' + name, 2);
            return true;
        });
        folder = host.home() + u"/sub"_s;
        QVERIFY(makeFiles(host, kPrivate));
        const auto result = replace(host, u"cp"_s);
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("its copy has 2 of 3 bytes"), result.err.constData());
        const auto found = places(host, result);
        QCOMPARE(found.value("older"), QStringList{u"what?"_s});
        QCOMPARE(found.value("ne").size(), isRemoved ? 0 : 1);
        QCOMPARE(found.size(), isRemoved ? 1 : 2);
    }

    void copyOntoFullDiskKeepsOlderFile()
    {
        ToolServer server;
        limitFileSize(&server.process(), 100'000);
        QVERIFY(server.start());
        QVERIFY(writeFile(server.homePath(u"source"_s), QByteArray(200'000, 'x')));
        QVERIFY(writeFile(server.homePath(u"target"_s), "older"));
        const auto result = server.run({u"cp"_s, server.url(u"source"_s), u"target"_s});
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(readFile(server.homePath(u"target"_s)), "older"_ba);
        QCOMPARE(namesIn(server.home()), (QStringList{u"source"_s, u"target"_s}));
    }

    void copyOverOlderFileNeedsRenaming()
    {
        const HostileHost host(without(CommandIds::kRenameFile));
        QVERIFY(makeFiles(host, kPrivate));
        const auto result = replace(host, u"cp"_s);
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("does not know this command"), result.err.constData());
        QCOMPARE(readFile(older(host)), "older"_ba);
        QCOMPARE(namesIn(host.home() + u"/sub"_s), QStringList{u"what?"_s});
    }

    void copyReplacesLinkByFile()
    {
        const HostileHost host(asUsual);
        QVERIFY(writeFile(host.home() + u"/source"_s, "new"));
        QVERIFY(writeFile(host.home() + u"/sub/linked"_s, "kept"));
        QVERIFY(QFile::link(u"linked"_s, older(host)));
        const auto result = replace(host, u"cp"_s);
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QCOMPARE(readFile(older(host)), "new"_ba);
        QVERIFY(!QFileInfo(older(host)).isSymLink());
        QCOMPARE(readFile(host.home() + u"/sub/linked"_s), "kept"_ba);
    }
};

QTEST_GUILESS_MAIN(tst_ToolReplacement)
#include "tst_toolreplacement.moc"
