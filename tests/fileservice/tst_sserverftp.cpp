// SPDX-License-Identifier: MIT
// Sessions under a scripted client of bare bytes: the replies in all their forms, the jail, what
// lies on disk.
#include "filesession.h"
#include "filetree.h"

#include <shared/descriptorshortage.h>
#include <shared/rawclient.h>

#include <QtCore/QRegularExpression>
#include <QtCore/QSemaphore>
#include <QtCore/QStorageInfo>

#include <type_traits>

#include <sys/stat.h>

using namespace Talverine;
using namespace Qt::StringLiterals;
using namespace RawBytes;

namespace {

QByteArray names(const QStringList &list)
{
    QByteArray bytes = u32(static_cast<quint32>(list.size()));
    for (const QString &name : list)
        bytes += text(name);
    return bytes;
}

QByteArray yes()
{
    return ack() + '\1' + ack();
}

QByteArray no()
{
    return ack() + '\0' + ack();
}

//! Fields of a transfer's command in each form.
QByteArray fileFields(quint32 version, qint64 size, const QString &name, const QString &target,
                      bool removes)
{
    QByteArray fields;
    if (version < 0x00020000)
        fields += i64(size);
    fields += text(name);
    if (version > 0x00010100)
        fields += text(target);
    if (version > 0x00010000)
        fields += removes ? '\1' : '\0';
    return fields;
}

// A database in the place of the parent does not compile.
static_assert(!std::is_constructible_v<SServerFtp, qint64, SAuthenticationDb *>);
static_assert(!std::is_constructible_v<SServerFtp, qint64, Interfaces::ISAuthenticationDb *>);
static_assert(
    !std::is_constructible_v<SServerFtp, qint64, Interfaces::ISAuthenticationDb *, QObject *>);
static_assert(std::is_constructible_v<SServerFtp, qint64, QObject *>);
static_assert(std::is_constructible_v<SServerFtp, qint64, std::nullptr_t>);
static_assert(std::is_constructible_v<SServerFtp, qint64>);

} // namespace

class tst_SServerFtp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // An empty path means the folder that the process works in: what a command that is led there by
    // mistake does must hurt nobody.
    void initTestCase() { QVERIFY(QDir::setCurrent(m_work.path())); }

    void init()
    {
        QTest::failOnWarning(QRegularExpression(u"."_s));
        m_server = std::make_unique<FileServer>();
        m_client = std::make_unique<RawClient>();
    }

    void cleanup()
    {
        m_client.reset();
        QVERIFY(m_server->waitForEnd());
        // Removing a slow tree would be slow too.
        QFile::remove(chained(kChain));
        m_server.reset();
    }

    // Construction

    void prototypesFollowThoseOfTheBaseInTheStatedOrder()
    {
        class Server : public SServerFtp
        {
        public:
            using SServerFtp::supportedCommands;
        };
        QStringList ids;
        const Server server;
        for (const SCommandId &id : server.supportedCommands())
            ids.append(letters(id));
        QCOMPARE(ids.mid(9), (QStringList{u"getf"_s, u"sndf"_s, u"cd__"_s, u"mkd_"_s, u"rmd_"_s,
                                          u"lstd"_s, u"rmf_"_s, u"rnf_"_s, u"rnd_"_s, u"cpyf"_s,
                                          u"cpyd"_s, u"pwd_"_s, u"getd"_s, u"stoi"_s, u"gfls"_s,
                                          u"siof"_s, u"gfio"_s, u"exst"_s, u"fsse"_s, u"aflp"_s}));
    }

    void transfersReportAsPercent_data()
    {
        QTest::addColumn<QByteArray>("signal");
        QTest::newRow("getFile") << "getFileTransferredSize"_ba;
        QTest::newRow("sendFile") << "sendFileTransferredSize"_ba;
    }
    void transfersReportAsPercent()
    {
        QFETCH(const QByteArray, signal);
        SServerFtp server;
        const QSignalSpy percent(&server, &SServerFtp::progress);
        QVERIFY(QMetaObject::invokeMethod(&server, signal.constData(), Q_ARG(qint64, 30),
                                          Q_ARG(qint64, 40)));
        QCOMPARE(percent.first(), QList<QVariant>{75});
    }

    void sessionWithoutADescriptorDoesNotBegin()
    {
        SServerFtp server;
        const QSignalSpy finished(&server, &SServerFtp::finished);
        server.init();
        QCOMPARE(finished.size(), 1);
    }

    void commandsOfTheBaseAreServedToo()
    {
        QVERIFY(login());
        const QByteArray reply = ack() + frame(text(u"alice")) + ack();
        QCOMPARE(exchange(command("wami"), reply.size()).toHex(' '), reply.toHex(' '));
        verifySessionGoesOn();
    }

    // Result bytes

    void simpleCommandAnswersWithOneByte_data()
    {
        QTest::addColumn<QByteArray>("sent");
        QTest::addColumn<QByteArray>("reply");
        QTest::newRow("changeDir") << command("cd__", text(u"folder")) << yes();
        QTest::newRow("changeDir, missing") << command("cd__", text(u"missing")) << no();
        QTest::newRow("changeDir, a file") << command("cd__", text(u"a.txt")) << no();
        QTest::newRow("makeDir") << command("mkd_", text(u"new/deep")) << yes();
        QTest::newRow("makeDir, there already") << command("mkd_", text(u"folder")) << yes();
        QTest::newRow("makeDir, a file in its way") << command("mkd_", text(u"a.txt/x")) << no();
        QTest::newRow("removeDir, not empty") << command("rmd_", text(u"folder")) << yes();
        QTest::newRow("removeFile") << command("rmf_", text(u"a.txt")) << yes();
        QTest::newRow("removeFile, missing") << command("rmf_", text(u"missing")) << no();
        QTest::newRow("removeFile, a folder") << command("rmf_", text(u"folder")) << no();
        QTest::newRow("removeFile, a link to nowhere")
            << command("rmf_", text(u"dangling")) << yes();
        QTest::newRow("exists, a file") << command("exst", text(u"a.txt")) << yes();
        QTest::newRow("exists, a folder") << command("exst", text(u"folder")) << yes();
        QTest::newRow("exists, the current directory") << command("exst", text(u"")) << yes();
        QTest::newRow("exists, missing") << command("exst", text(u"missing")) << no();
        QTest::newRow("exists, a link to nowhere") << command("exst", text(u"dangling")) << no();
        QTest::newRow("renameFile") << command("rnf_", text(u"a.txt") + text(u"b.txt")) << yes();
        QTest::newRow("renameFile, the target is there")
            << command("rnf_", text(u"a.txt") + text(u"folder/c.txt")) << no();
        QTest::newRow("renameDir") << command("rnd_", text(u"folder") + text(u"moved")) << yes();
        QTest::newRow("renameDir, a file") << command("rnd_", text(u"a.txt") + text(u"b")) << no();
        QTest::newRow("setFilePermissions")
            << command("aflp", u32(0x66440000) + text(u"a.txt")) << yes();
        QTest::newRow("setFilePermissions, missing")
            << command("aflp", u32(0x66440000) + text(u"missing")) << no();
        QTest::newRow("copyFile of an old client")
            << command("cpyf", text(u"a.txt") + text(u"b.txt")) << yes();
        QTest::newRow("copyFile, a folder, of an old client")
            << command("cpyf", text(u"folder") + text(u"b")) << no();
        QTest::newRow("copyFile, into a missing folder, of an old client")
            << command("cpyf", text(u"a.txt") + text(u"missing/b.txt")) << no();
        QTest::newRow("copyDir of an old client")
            << command("cpyd", text(u"folder") + text(u"copy")) << yes();
        QTest::newRow("copyDir, the target is there, of an old client")
            << command("cpyd", text(u"folder") + text(u"folder/sub")) << no();
    }
    void simpleCommandAnswersWithOneByte()
    {
        QFETCH(const QByteArray, sent);
        QFETCH(const QByteArray, reply);
        makeTree();
        QVERIFY(login());
        m_client->send(sent);
        QCOMPARE(m_client->read(reply.size()).toHex(' '), reply.toHex(' '));
        verifySessionGoesOn();
    }

    void linkToNowhereGetsTheStatedResult_data()
    {
        QTest::addColumn<QByteArray>("sent");
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<QString>("added");
        QTest::addColumn<bool>("stays");
        const QByteArray link = text(u"dangling");
        const QByteArray newName = text(u"new");
        const QByteArray refused = ack() + nack();
        const QByteArray noFiles = ack() + frame(u32(0)) + ack();
        const QString none;
        QTest::newRow("changeDir") << command("cd__", link) << no() << none << true;
        QTest::newRow("makeDir") << command("mkd_", link) << no() << none << true;
        QTest::newRow("removeDir") << command("rmd_", link) << yes() << none << false;
        QTest::newRow("removeFile") << command("rmf_", link) << yes() << none << false;
        QTest::newRow("exists") << command("exst", link) << no() << none << true;
        QTest::newRow("renameFile")
            << command("rnf_", link + newName) << yes() << u"new"_s << false;
        QTest::newRow("renameDir") << command("rnd_", link + newName) << yes() << u"new"_s << false;
        QTest::newRow("copyFile, an empty one comes of it")
            << command("cpyf", link + newName) << yes() << u"new"_s << true;
        QTest::newRow("copyFile, through it")
            << command("cpyf", text(u"a.txt") + link) << yes() << u"nowhere"_s << true;
        QTest::newRow("copyDir, an empty one comes of it")
            << command("cpyd", link + newName) << yes() << u"new/"_s << true;
        QTest::newRow("copyDir, onto it")
            << command("cpyd", text(u"folder") + link) << no() << none << true;
        QTest::newRow("setFilePermissions")
            << command("aflp", u32(0x77770000) + link) << no() << none << true;
        QTest::newRow("getDevice") << command("gfio", link) << refused << none << true;
        QTest::newRow("sendDevice, in its place")
            << command("siof", link) + u64(1) + "x" << ack() + ack() << u"dangling"_s << false;
        QTest::newRow("sendDevice, below it")
            << command("siof", text(u"dangling/x")) + u64(1) + "x" << refused << none << true;
        QTest::newRow("getDir") << command("getd",
                                           fileFields(0x00010200, 0, u"dangling"_s, u"x"_s, false),
                                           0x00010200)
                                << noFiles << none << true;
    }
    void linkToNowhereGetsTheStatedResult()
    {
        QFETCH(const QByteArray, sent);
        QFETCH(const QByteArray, reply);
        QFETCH(const QString, added);
        QFETCH(const bool, stays);
        makeTree();
        QStringList expected = FileTree::below(m_server->home());
        if (!stays)
            expected.removeOne(u"dangling"_s);
        if (!added.isEmpty())
            expected.append(added);
        expected.sort();
        QVERIFY(login());
        QCOMPARE(exchange(sent, reply.size()).toHex(' '), reply.toHex(' '));
        QCOMPARE(FileTree::below(m_server->home()), expected);
        QCOMPARE(QFileInfo(m_server->path(u"dangling"_s)).isSymLink(), stays);
        QCOMPARE(FileTree::read(m_server->path(u"a.txt"_s)), "aaa");
    }

    void nullPermissionsEndTheSession_data()
    {
        QTest::addColumn<QByteArray>("fields");
        QTest::newRow("none") << u32(0) + text(u"a.txt");
        QTest::newRow("in the low half only") << u32(0x0000FFFF) + text(u"a.txt");
        QTest::newRow("without a name") << u32(0x66440000) + text(u"");
    }
    void nullPermissionsEndTheSession()
    {
        QFETCH(const QByteArray, fields);
        makeTree();
        const auto before = QFile::permissions(m_server->path(u"a.txt"_s));
        QVERIFY(login());
        m_client->send(command("aflp", fields));
        QCOMPARE(m_client->read(4), nack());
        QVERIFY(m_client->endsHere());
        QCOMPARE(QFile::permissions(m_server->path(u"a.txt"_s)), before);
    }

    void failedRemoveFileIsAnsweredAndCompleted()
    {
        QVERIFY(login());
        m_client->send(command("rmf_", text(u"missing")));
        QCOMPARE(m_client->read(4), ack());
        QCOMPARE(m_client->read(1), "\0"_ba);
        QCOMPARE(m_client->read(4), ack());
        verifySessionGoesOn();
    }

    void removeDirRemovesANonEmptyFolder()
    {
        makeTree();
        QVERIFY(login());
        QCOMPARE(exchange(command("rmd_", text(u"folder")), 9), yes());
        QCOMPARE(FileTree::below(m_server->home()), (QStringList{u"a.txt"_s, u"dangling"_s}));
    }

    void changeDirWithoutAPathGoesToTheTopOfTheJail_data() { documentRoot(); }
    void changeDirWithoutAPathGoesToTheTopOfTheJail()
    {
        applyDocumentRoot();
        makeTree();
        QVERIFY(login());
        QCOMPARE(exchange(command("cd__", text(u"folder/sub")), 9), yes());
        QCOMPARE(exchange(command("cd__", text(u"")), 9), yes());
        QTRY_COMPARE(m_server->log.value(1), u"localDirChanged "_s + m_server->home());
    }

    void nullTextIsAnEmptyPath()
    {
        makeTree();
        QVERIFY(login());
        QCOMPARE(exchange(command("cd__", text(u"folder")), 9), yes());
        QCOMPARE(exchange(command("cd__", u32(0xFFFFFFFF)), 9), yes());
        QTRY_COMPARE(m_server->log.value(1), u"localDirChanged "_s + m_server->home());
    }

    // Copies

    void copyKeepsANewerClientAlive_data()
    {
        QTest::addColumn<QByteArray>("sent");
        QTest::addColumn<int>("words");
        QTest::addColumn<bool>("result");
        QTest::newRow("a file") << command("cpyf", text(u"a.txt") + text(u"b.txt"), 0x00010100) << 1
                                << true;
        QTest::newRow("a file, in a version that is to come")
            << command("cpyf", text(u"a.txt") + text(u"b.txt"), 0x00050000) << 1 << true;
        QTest::newRow("a file below the version")
            << command("cpyf", text(u"a.txt") + text(u"b.txt"), 0x000100FF) << 0 << true;
        QTest::newRow("a folder as a file")
            << command("cpyf", text(u"folder") + text(u"b.txt"), 0x00010100) << 0 << false;
        QTest::newRow("a folder of two files")
            << command("cpyd", text(u"folder") + text(u"copy"), 0x00010100) << 2 << true;
        QTest::newRow("onto what is there")
            << command("cpyd", text(u"folder") + text(u"folder/sub"), 0x00010100) << 0 << false;
    }
    void copyKeepsANewerClientAlive()
    {
        QFETCH(const QByteArray, sent);
        QFETCH(const int, words);
        QFETCH(const bool, result);
        makeTree();
        QVERIFY(login());
        const QByteArray reply = ack() + QByteArray::fromHex("50A050A0").repeated(words) +
                                 (result ? '\1' : '\0') + ack();
        QCOMPARE(exchange(sent, reply.size()).toHex(' '), reply.toHex(' '));
        verifySessionGoesOn();
    }

    void longListingBeforeACopyKeepsANewerClientAlive()
    {
        QVERIFY(makeSlowTree(400));
        // Entries that are no files send no words of their own.
        QVERIFY(QFile::remove(chained(0)) && QDir().mkdir(chained(0)));
        QVERIFY(login());
        m_client->send(command("cpyd", text(u"slow") + text(u"copy"), 0x00010100));
        QCOMPARE(m_client->read(4), ack());
        const QByteArray word = QByteArray::fromHex("50A050A0");
        QCOMPARE(m_client->read(4), word);
        QByteArray rest = m_client->read(5);
        while (rest.startsWith(word))
            rest = rest.mid(4) + m_client->read(4);
        QCOMPARE(rest.toHex(' '), ('\1' + ack()).toHex(' '));
        QCOMPARE(QDir(m_server->path(u"copy"_s)).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList());
    }

    void missingFileIsCopiedAsAnEmptyOne()
    {
        QVERIFY(login());
        QCOMPARE(exchange(command("cpyf", text(u"missing") + text(u"b.txt")), 9), yes());
        QCOMPARE(FileTree::read(m_server->path(u"b.txt"_s)), "");
    }

    // Reply frames and raw words

    void currentDirectoryIsTold_data() { documentRoot(); }
    void currentDirectoryIsTold()
    {
        const QString top = applyDocumentRoot();
        makeTree();
        QVERIFY(login());
        QCOMPARE(pwd(), top.isEmpty() ? u"/"_s : top);
        QCOMPARE(exchange(command("cd__", text(u"folder")), 9), yes());
        QCOMPARE(pwd(), top + u"/folder"_s);
    }

    void directoryThatCannotBeReadEndsAStrictListing_data()
    {
        QTest::addColumn<bool>("isStrict");
        QTest::addColumn<int>("left");
        QTest::addColumn<QString>("path");
        QTest::addColumn<quint32>("count"); // 0 for a failure
        const auto row = [](const char *name, bool isStrict, int left, const QString &path,
                            quint32 count) {
            QTest::newRow(name) << isStrict << left << path << count;
        };
        row("no descriptors, strict", true, 0, u"sub"_s, 0);
        row("no descriptors", false, 0, u"sub"_s, 1);
        row("an empty directory, strict", true, 100, u"empty"_s, 1);
        row("one file, strict", true, 100, u"one"_s, 2);
        row("a missing directory, strict", true, 100, u"missing"_s, 1);
        row("the home directory, strict", true, 100, QString(), 3);
    }
    void directoryThatCannotBeReadEndsAStrictListing()
    {
        QFETCH(const bool, isStrict);
        QFETCH(const int, left);
        QFETCH(const QString, path);
        QFETCH(const quint32, count);
        QVERIFY(FileTree::write(m_server->path(u"sub/a.txt"_s), "12345"));
        QVERIFY(FileTree::write(m_server->path(u"one/a.txt"_s), "12345"));
        QVERIFY(QDir(m_server->home()).mkdir(u"empty"_s));
        m_server->configure = [isStrict](SServerFtp &session) {
            session.setStrictListings(isStrict);
        };
        QVERIFY(login());
        const DescriptorShortage shortage(left);
        m_client->send(command("lstd", text(path)));
        QCOMPARE(m_client->read(4), ack());
        if (count == 0) {
            QCOMPARE(m_client->read(4), nack());
            return;
        }
        QCOMPARE(m_client->readFrame().first(4), u32(count));
        QCOMPARE(m_client->read(4), ack());
    }

    void directoryThatCannotBeReadEndsAStrictListOfFiles_data()
    {
        QTest::addColumn<bool>("isStrict");
        QTest::addColumn<int>("left");
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<int>("count"); // -1 for a failure
        const auto files = [](const QString &path, quint32 flags) {
            return command("gfls", text(path) + text(u"") + text(u"") + u32(flags), 0x00010100);
        };
        const auto directory = [](const QString &path) {
            return command("getd", fileFields(0x00010200, 0, path, u"x"_s, false), 0x00010200);
        };
        const auto row = [](const char *name, bool isStrict, int left, const QByteArray &request,
                            int count) {
            QTest::newRow(name) << isStrict << left << request << count;
        };
        row("gfls, no descriptors", false, 0, files(u"sub"_s, 1), 0);
        row("gfls, no descriptors, strict", true, 0, files(u"sub"_s, 1), -1);
        row("gfls, no descriptors, flat, strict", true, 0, files(u"sub"_s, 0), -1);
        row("gfls, none for what is below, strict", true, 1, files(u"sub"_s, 1), -1);
        row("gfls, all, strict", true, 100, files(u"sub"_s, 1), 2);
        row("gfls, flat, strict", true, 100, files(u"sub"_s, 0), 1);
        row("gfls, a slash at the end, strict", true, 100, files(u"sub/"_s, 1), 2);
        row("gfls, the home directory, strict", true, 100, files(QString(), 1), 2);
        row("gfls, empty, strict", true, 100, files(u"sub/empty"_s, 1), 0);
        row("gfls, missing, strict", true, 100, files(u"missing"_s, 1), 0);
        row("getd, no descriptors", false, 0, directory(u"sub"_s), 0);
        row("getd, no descriptors, strict", true, 0, directory(u"sub"_s), -1);
        row("getd, none for what is below, strict", true, 1, directory(u"sub"_s), -1);
        row("getd, all, strict", true, 100, directory(u"sub"_s), 2);
        row("getd, missing, strict", true, 100, directory(u"missing"_s), 0);
    }
    void directoryThatCannotBeReadEndsAStrictListOfFiles()
    {
        QFETCH(const bool, isStrict);
        QFETCH(const int, left);
        QFETCH(const QByteArray, request);
        QFETCH(const int, count);
        QVERIFY(FileTree::write(m_server->path(u"sub/a.txt"_s), "12345"));
        QVERIFY(FileTree::write(m_server->path(u"sub/below/b.txt"_s), "12345"));
        QVERIFY(QDir(m_server->home()).mkpath(u"sub/empty"_s));
        m_server->configure = [isStrict](SServerFtp &session) {
            session.setStrictListings(isStrict);
        };
        QVERIFY(login());
        const DescriptorShortage shortage(left);
        m_client->send(request);
        QCOMPARE(m_client->read(4), ack());
        if (count < 0) {
            QCOMPARE(m_client->read(4), nack());
            return;
        }
        const QByteArray body = m_client->readFrame();
        QCOMPARE(request.contains("gfls") ? splitList(body).second.size()
                                          : qsizetype(body.first(4).toHex().toUInt(nullptr, 16)),
                 count);
        QCOMPARE(m_client->read(4), ack());
    }

    void folderIsListed()
    {
        QVERIFY(FileTree::write(m_server->path(u"sub/a.txt"_s), "12345"));
        QVERIFY(login());
        m_client->send(command("lstd", text(u"sub")));
        QCOMPARE(m_client->read(4), ack());
        const QByteArray body = m_client->readFrame();
        QCOMPARE(m_client->read(4), ack());

        const QFileInfo file(m_server->path(u"sub/a.txt"_s));
        const QDateTime modified = file.lastModified();
        const quint32 flags = 0x0000000C | static_cast<quint32>(file.permissions()) << 16;
        const QByteArray entry = u32(0x00010100) + text(u"a.txt") + i64(5) + u32(flags) +
                                 i64(modified.date().toJulianDay()) +
                                 i32(modified.time().msecsSinceStartOfDay()) + '\0';
        QCOMPARE(body.first(4), u32(2));
        QCOMPARE(body.mid(4, 4 + 4 + 4), u32(0x00010100) + text(u"..").first(8));
        QCOMPARE(body.last(entry.size()).toHex(' '), entry.toHex(' '));
    }

    void sensitivityToCaseIsAWord()
    {
        QVERIFY(login());
        QCOMPARE(exchange(command("fsse"), 12).toHex(' '), (ack() + u32(1) + ack()).toHex(' '));
        QTRY_COMPARE(m_server->log, QStringList{u"fileSystemSensitivityCheck"_s});
    }

    void answersOfOperationsAreTold()
    {
        QList<bool> answers;
        m_server->configure = [&](SServerFtp &session) {
            connect(&session, &SServerFtp::operationFinished, this,
                    [&answers](bool result) { answers.append(result); });
        };
        QVERIFY(login());
        QCOMPARE(exchange(command("mkd_", text(u"new")), 9), ack() + '\1' + ack());
        QCOMPARE(exchange(command("exst", text(u"missing")), 9), ack() + '\0' + ack());
        QCOMPARE(exchange(command("wami"), 4), ack());
        QTRY_COMPARE(answers, (QList<bool>{true, false}));
    }

    void slotRunsBeforeTheSensitivityIsTold()
    {
        QSemaphore reached;
        QSemaphore mayGoOn;
        m_server->configure = [&](SServerFtp &session) {
            connect(
                &session, &SServerFtp::fileSystemSensitivityCheck, &session,
                [&] {
                    reached.release();
                    mayGoOn.tryAcquire(1, kPatienceMs);
                },
                Qt::DirectConnection);
        };
        QVERIFY(login());
        QCOMPARE(exchange(command("fsse"), 4), ack());
        const bool called = reached.tryAcquire(1, kPatienceMs);
        const bool quiet = m_client->staysQuiet(100);
        mayGoOn.release();
        QVERIFY(called);
        QVERIFY(quiet);
        QCOMPARE(m_client->read(8), u32(1) + ack());
    }

    void storageIsToldInTheFormOfTheClient_data()
    {
        QTest::addColumn<quint32>("version");
        QTest::addColumn<bool>("details");
        QTest::newRow("1.0.0") << 0x00010000U << false;
        QTest::newRow("1.0.1") << 0x00010001U << true;
        QTest::newRow("2.0.0") << 0x00020000U << true;
        QTest::newRow("a version that is to come") << 0x00070000U << true;
        QTest::newRow("0") << 0U << false;
    }
    void storageIsToldInTheFormOfTheClient()
    {
        QFETCH(const quint32, version);
        QFETCH(const bool, details);
        QVERIFY(login());
        const QStorageInfo storage(m_server->home());
        m_client->send(command("stoi", {}, version));
        QCOMPARE(m_client->read(4), ack());
        const quint64 available = m_client->readWord64();
        QCOMPARE(m_client->readWord64(), static_cast<quint64>(storage.bytesTotal()));
        if (details) {
            QVERIFY(m_client->readWord64() >= available);
            QCOMPARE(m_client->readFrame(), storage.fileSystemType());
        }
        QCOMPARE(m_client->read(4), ack());
        verifySessionGoesOn();
    }

    // Lists of files

    void filesAreFound_data()
    {
        QTest::addColumn<QString>("folder");
        QTest::addColumn<QString>("filters");
        QTest::addColumn<quint32>("flags");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("one folder") << u"in"_s << QString() << 0U
                                    << QStringList{u".h"_s, u"a.txt"_s, u"b.csv"_s, u"c.bin"_s};
        QTest::newRow("the tree") << u"in"_s << QString() << 1U
                                  << QStringList{u".h"_s, u"a.txt"_s, u"b.csv"_s, u"c.bin"_s,
                                                 u"sub/d.txt"_s};
        QTest::newRow("the flags of the client say nothing here")
            << u"in"_s << QString() << 6U
            << QStringList{u".h"_s, u"a.txt"_s, u"b.csv"_s, u"c.bin"_s};
        QTest::newRow("patterns with a blank")
            << u"in"_s << u"*.txt; *.csv"_s << 0U << QStringList{u"a.txt"_s, u"b.csv"_s};
        QTest::newRow("patterns of blanks only")
            << u"in"_s << u" ; "_s << 0U
            << QStringList{u".h"_s, u"a.txt"_s, u"b.csv"_s, u"c.bin"_s};
        QTest::newRow("patterns in the tree")
            << u"in"_s << u"*.txt"_s << 1U << QStringList{u"a.txt"_s, u"sub/d.txt"_s};
        QTest::newRow("patterns do not look at case")
            << u"in"_s << u"A.*;*.CSV"_s << 0U << QStringList{u"a.txt"_s, u"b.csv"_s};
        QTest::newRow("patterns with one letter and with a set of letters")
            << u"in"_s << u"?.txt;[bc].*"_s << 0U
            << QStringList{u"a.txt"_s, u"b.csv"_s, u"c.bin"_s};
        QTest::newRow("patterns are for whole names")
            << u"in"_s << u".txt;a;in/a.txt;*.c"_s << 1U << QStringList();
        QTest::newRow("a pattern that cannot be read")
            << u"in"_s << u"[;*.csv"_s << 0U << QStringList{u"b.csv"_s};
        QTest::newRow("nothing but such a pattern") << u"in"_s << u"["_s << 0U << QStringList();
        QTest::newRow("all names and more")
            << u"in"_s << u"*.txt;*"_s << 0U
            << QStringList{u".h"_s, u"a.txt"_s, u"b.csv"_s, u"c.bin"_s};
        QTest::newRow("a missing folder") << u"missing"_s << QString() << 1U << QStringList();
        QTest::newRow("a file") << u"in/a.txt"_s << QString() << 1U << QStringList();
    }
    void filesAreFound()
    {
        QFETCH(const QString, folder);
        QFETCH(const QString, filters);
        QFETCH(const quint32, flags);
        QFETCH(const QStringList, expected);
        for (const QString &name :
             {u"in/a.txt"_s, u"in/b.csv"_s, u"in/c.bin"_s, u"in/.h"_s, u"in/sub/d.txt"_s})
            QVERIFY(FileTree::write(m_server->path(name), "x"));
        QVERIFY(QFile::link(u"nowhere"_s, m_server->path(u"in/dangling.txt"_s)));
        QVERIFY(QDir(m_server->home()).mkpath(u"in/empty.txt"_s));
        QVERIFY(login());
        m_client->send(
            command("gfls", text(folder) + text(filters) + text(u"") + u32(flags), 0x00010100));
        QCOMPARE(m_client->read(4), ack());
        const auto [base, files] = splitList(m_client->readFrame());
        QCOMPARE(base, m_server->path(folder));
        QStringList wanted;
        for (const QString &name : expected)
            wanted.append(base + u'/' + name);
        QCOMPARE(files, wanted);
        QCOMPARE(m_client->read(4), ack());
        verifySessionGoesOn();
    }

    void longSearchKeepsANewerClientAlive()
    {
        QVERIFY(makeSlowTree(400));
        QVERIFY(login());
        const QByteArray fields = text(u"slow") + text(u"") + text(u"") + u32(1);

        m_client->send(command("gfls", fields, 0x000100FF));
        QCOMPARE(m_client->read(4), ack());
        const QByteArray list = m_client->readFrame();
        QCOMPARE(splitList(list).second.size(), 400);
        QCOMPARE(m_client->read(4), ack());

        QElapsedTimer searching;
        searching.start();
        m_client->send(command("gfls", fields, 0x00010100));
        QCOMPARE(m_client->read(4), ack());
        int words = 0;
        quint32 word = m_client->readWord();
        for (; word == 0x50A050A0; word = m_client->readWord())
            ++words;
        QVERIFY(words > 0);
        QVERIFY(words <= searching.elapsed() / 100);
        QVERIFY(m_client->read(word) == list);
        QCOMPARE(m_client->read(4), ack());
    }

    void longSearchWithoutAMatchKeepsANewerClientAlive()
    {
        QVERIFY(makeSlowTree(400));
        QVERIFY(login());
        m_client->send(
            command("gfls", text(u"slow") + text(u"*.txt") + text(u"") + u32(1), 0x00010100));
        QCOMPARE(m_client->read(8), ack() + QByteArray::fromHex("50A050A0"));
        quint32 word = m_client->readWord();
        while (word == 0x50A050A0)
            word = m_client->readWord();
        QVERIFY(splitList(m_client->read(word)).second.isEmpty());
        QCOMPARE(m_client->read(4), ack());
    }

    void longSearchOfAnOldClientSendsNothingMeanwhile()
    {
        QVERIFY(makeSlowTree(400));
        QVERIFY(login());
        QElapsedTimer searching;
        searching.start();
        m_client->send(
            command("getd", fileFields(0x00010200, 0, u"slow"_s, u"x"_s, false), 0x00010200));
        QCOMPARE(m_client->read(4), ack());
        QCOMPARE(splitList(text(u"") + m_client->readFrame()).second.size(), 400);
        QVERIFY(searching.elapsed() > 100);
        QCOMPARE(m_client->read(4), ack());
    }

    void longWalkSeesAStop_data()
    {
        QTest::addColumn<QByteArray>("sent");
        const auto search = [](QStringView filters) {
            return command("gfls", text(u"slow") + text(filters) + text(u"") + u32(1), 0x00010100);
        };
        QTest::newRow("all files") << search(u"");
        QTest::newRow("without a match") << search(u"*.txt");
        QTest::newRow("of an old client")
            << command("getd", fileFields(0x00010200, 0, u"slow"_s, u"x"_s, false), 0x00010200);
        QTest::newRow("copyDir") << command("cpyd", text(u"slow") + text(u"copy"));
    }
    void longWalkSeesAStop()
    {
        QFETCH(const QByteArray, sent);
        QVERIFY(makeSlowTree(2000));
        m_server->host().timeoutMs = 500;
        QVERIFY(login());
        QCOMPARE(exchange(sent, 4), ack());
        QTest::qWait(50);
        QElapsedTimer stopping;
        stopping.start();
        m_server->host().controller.interruptWorkers();
        QVERIFY(m_server->waitForEnd());
        QVERIFY(stopping.elapsed() < 1500);
    }

    void oldListOfFilesCutsTheCurrentDirectoryOut_data()
    {
        QTest::addColumn<bool>("enabled");
        QTest::addColumn<QString>("current");
        QTest::addColumn<QString>("asked");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("from the top")
            << false << u""_s << u"in"_s << QStringList{u"/in/a.txt"_s, u"/in/sub/b.txt"_s};
        QTest::newRow("from the folder")
            << false << u"in"_s << u""_s << QStringList{u"/in/a.txt"_s, u"/in/sub/b.txt"_s};
        QTest::newRow("document root")
            << true << u""_s << u"/in"_s << QStringList{u"/in/a.txt"_s, u"/in/sub/b.txt"_s};
        // The old form knows only files below the current directory.
        QTest::newRow("from a folder that begins alike")
            << false << u"in"_s << u"../inn"_s << QStringList{u"/in/n/c.txt"_s};
        QTest::newRow("a missing folder") << false << u""_s << u"missing"_s << QStringList();
    }
    void oldListOfFilesCutsTheCurrentDirectoryOut()
    {
        QFETCH(const bool, enabled);
        QFETCH(const QString, current);
        QFETCH(const QString, asked);
        QFETCH(const QStringList, expected);
        const QString top = applyDocumentRoot();
        QVERIFY(enabled == top.isEmpty());
        QVERIFY(FileTree::write(m_server->path(u"in/a.txt"_s), "x"));
        QVERIFY(FileTree::write(m_server->path(u"in/sub/b.txt"_s), "x"));
        QVERIFY(FileTree::write(m_server->path(u"inn/c.txt"_s), "x"));
        QVERIFY(login());
        QCOMPARE(exchange(command("cd__", text(current)), 9), yes());
        m_client->send(command("getd", fileFields(0x00010200, 0, asked, u"x"_s, true), 0x00010200));
        QCOMPARE(m_client->read(4), ack());
        QByteArray files = names({});
        QStringList wanted;
        for (const QString &name : expected)
            wanted.append(top + name);
        const QByteArray body = m_client->readFrame();
        auto [ignored, found] = splitList(text(u"") + body);
        found.sort();
        QCOMPARE(found, wanted);
        QCOMPARE(m_client->read(4), ack());
        // The flag is the client's business.
        QVERIFY(QFileInfo::exists(m_server->path(u"in/a.txt"_s)));
        verifySessionGoesOn();
    }

    void oldListOfFilesCutsTheCurrentDirectoryOutWhereverItStands()
    {
        const QString folder = m_server->path(u"in"_s);
        QVERIFY(FileTree::write(folder + folder + u"/a.txt"_s, "x"));
        QVERIFY(login());
        QCOMPARE(exchange(command("cd__", text(u"in")), 9), yes());
        m_client->send(
            command("getd", fileFields(0x00010200, 0, u""_s, u"x"_s, false), 0x00010200));
        QCOMPARE(m_client->read(4), ack());
        QCOMPARE(m_client->readFrame().toHex(' '), names({folder + u"/a.txt"_s}).toHex(' '));
        QCOMPARE(m_client->read(4), ack());
    }

    // Files that leave

    void fileLeavesInEveryForm_data()
    {
        QTest::addColumn<QByteArray>("sent");
        QTest::addColumn<bool>("removes");
        for (const quint32 version : {0U, 0x00010000U, 0x00010100U, 0x00010200U, 0x00020000U}) {
            for (const bool removes : {false, true}) {
                QTest::addRow("getFile %08x%s", version, removes ? ", to be removed" : "")
                    << command("getf", fileFields(version, 99, u"folder/c.txt"_s, u"x"_s, removes),
                               version)
                    << (removes && version > 0x00010000);
            }
        }
        QTest::newRow("getDevice") << command("gfio", text(u"folder/c.txt")) << false;
    }
    void fileLeavesInEveryForm()
    {
        QFETCH(const QByteArray, sent);
        QFETCH(const bool, removes);
        makeTree();
        QVERIFY(login());
        const QByteArray reply = ack() + u64(4) + "cccc" + ack();
        QCOMPARE(exchange(sent, reply.size()).toHex(' '), reply.toHex(' '));
        const QString path = m_server->path(u"folder/c.txt"_s);
        QCOMPARE(QFileInfo::exists(path), !removes);
        QTRY_COMPARE(m_server->log,
                     (QStringList{u"getFileStarted "_s + path,
                                  u"getFileFinished %1 %2"_s.arg(path, word(removes))}));
        verifySessionGoesOn();
    }

    void removalOfAFileThatIsGoneCountsAsDone()
    {
        constexpr int kSize = 8 << 20;
        const QString path = m_server->path(u"a.bin"_s);
        QVERIFY(FileTree::write(path, QByteArray(kSize, 'x')));
        QVERIFY(login());
        m_client->socket().setReadBufferSize(65536);
        m_client->send(
            command("getf", fileFields(0x00010200, 0, u"a.bin"_s, u"x"_s, true), 0x00010200));
        QCOMPARE(m_client->read(12), ack() + u64(kSize));
        QVERIFY(QFile::remove(path));
        m_client->socket().setReadBufferSize(0);
        QCOMPARE(m_client->read(kSize).size(), kSize);
        QCOMPARE(m_client->read(4), ack());
        QTRY_COMPARE(m_server->log.value(1), u"getFileFinished %1 true"_s.arg(path));
    }

    void progressIsTold_data()
    {
        QTest::addColumn<bool>("sends");
        QTest::addColumn<QByteArray>("sent");
        QTest::newRow("getFile") << false
                                 << command("getf",
                                            fileFields(0x00010200, 0, u"a"_s, u"x"_s, false),
                                            0x00010200);
        QTest::newRow("getDevice") << false << command("gfio", text(u"a"));
        QTest::newRow("sendFile") << true
                                  << command("sndf",
                                             fileFields(0x00020000, 0, u"x"_s, u"a"_s, false),
                                             0x00020000);
        QTest::newRow("sendDevice") << true << command("siof", text(u"a"));
    }
    void progressIsTold()
    {
        QFETCH(const bool, sends);
        QFETCH(const QByteArray, sent);
        constexpr int kPieces = 8;
        // A limit lets through what is written within its first millisecond, so there is more.
        constexpr qint64 kSize = 524288 * kPieces;
        QList<std::pair<qint64, qint64>> reports;
        QStringList order;
        QObject context;
        const auto note = [&](qint64 done, qint64 size) { reports.append({done, size}); };
        const auto noteEnd = [&] { order.append(u"%1 reports"_s.arg(reports.size())); };
        m_server->configure = [&](SServerFtp &session) {
            connect(&session, &SServerFtp::getFileTransferredSize, &context, note);
            connect(&session, &SServerFtp::getFileFinished, &context, noteEnd);
            connect(&session, &SServerFtp::sendFileTransferredSize, &context, note);
            connect(&session, &SServerFtp::sendFileFinished, &context, noteEnd);
        };
        const QByteArray piece(kSize / kPieces, 'x');
        if (!sends) {
            QVERIFY(FileTree::write(m_server->path(u"a"_s), piece.repeated(kPieces)));
            m_server->sendingLimit = 2 * kSize;
        }
        QVERIFY(login());

        QElapsedTimer moving;
        moving.start();
        m_client->send(sent);
        QCOMPARE(m_client->read(4), ack());
        if (sends) {
            m_client->send(u64(kSize));
            for (int i = 0; i < kPieces; ++i) {
                m_client->send(piece);
                QTest::qWait(60);
            }
        } else {
            QCOMPARE(m_client->read(8 + kSize).size(), 8 + kSize);
        }
        QCOMPARE(m_client->read(4), ack());
        QTRY_COMPARE(order.size(), 1);

        // The last one tells the end, just before the file is told to be there.
        QCOMPARE(order.first(), u"%1 reports"_s.arg(reports.size()));
        QCOMPARE(reports.last(), std::make_pair(kSize, kSize));
        QVERIFY(reports.size() >= 2);
        QVERIFY(reports.size() <= moving.elapsed() / 100 + 1);
        for (qsizetype i = 1; i < reports.size(); ++i) {
            QVERIFY(reports.at(i).first >= reports.at(i - 1).first);
            QCOMPARE(reports.at(i - 1).second, kSize);
        }
    }

    void emptyFileIsToldAsDone_data()
    {
        QTest::addColumn<QByteArray>("sent");
        QTest::newRow("getDevice") << command("gfio", text(u"empty"));
        QTest::newRow("sendDevice") << command("siof", text(u"empty")) + u64(0);
    }
    void emptyFileIsToldAsDone()
    {
        QFETCH(const QByteArray, sent);
        QVERIFY(FileTree::write(m_server->path(u"empty"_s), ""));
        QList<std::pair<qint64, qint64>> reports;
        QObject context;
        const auto note = [&](qint64 done, qint64 size) { reports.append({done, size}); };
        m_server->configure = [&](SServerFtp &session) {
            connect(&session, &SServerFtp::getFileTransferredSize, &context, note);
            connect(&session, &SServerFtp::sendFileTransferredSize, &context, note);
        };
        QVERIFY(login());
        m_client->send(sent);
        QTRY_COMPARE(m_server->log.size(), 2);
        QCOMPARE(reports, (QList<std::pair<qint64, qint64>>{{0, 0}}));
    }

    void emptyFileLeavesAsASizeOnly()
    {
        QVERIFY(FileTree::write(m_server->path(u"empty"_s), ""));
        QVERIFY(login());
        QCOMPARE(exchange(command("gfio", text(u"empty")), 16), ack() + u64(0) + ack());
        verifySessionGoesOn();
    }

    void fileThatCannotLeaveEndsTheSession_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("missing") << u"missing"_s;
        QTest::newRow("a folder") << u"folder"_s;
        QTest::newRow("no name") << u""_s;
        QTest::newRow("a link to nowhere") << u"dangling"_s;
        QTest::newRow("a pipe without a writer") << u"pipe"_s;
        QTest::newRow("a name with a zero in it") << QString(u"a.txt\0b"_s);
        QTest::newRow("a name that is too long") << QString(5000, u'x');
    }
    void fileThatCannotLeaveEndsTheSession()
    {
        QFETCH(const QString, name);
        makeTree();
        QCOMPARE(mkfifo(QFile::encodeName(m_server->path(u"pipe"_s)).constData(), 0600), 0);
        const QStringList before = FileTree::below(m_server->home());
        QVERIFY(login());
        m_client->send(command("getf", fileFields(0x00010200, 0, name, u"x"_s, true), 0x00010200));
        QCOMPARE(m_client->read(8), ack() + nack());
        QVERIFY(m_client->endsHere());
        QVERIFY(m_server->log.isEmpty());
        QCOMPARE(FileTree::below(m_server->home()), before);
    }

    // Files that arrive

    void fileArrivesInEveryForm_data()
    {
        QTest::addColumn<QByteArray>("sent");
        QTest::addColumn<QString>("target");
        for (const quint32 version : {0U, 0x00010000U, 0x00010100U}) {
            QTest::addRow("sendFile %08x", version)
                << command("sndf", fileFields(version, 5, u"/there/n.txt"_s, u"new/t.txt"_s, false),
                           version) +
                       "12345"
                << u"n.txt"_s;
        }
        QTest::addRow("sendFile 00010200")
            << command("sndf", fileFields(0x00010200, 5, u"/there/n.txt"_s, u"new/t.txt"_s, false),
                       0x00010200) +
                   "12345"
            << u"new/t.txt"_s;
        for (const quint32 version : {0x00020000U, 0x00040000U}) {
            QTest::addRow("sendFile %08x", version)
                << command("sndf", fileFields(version, 0, u"/there/n.txt"_s, u"new/t.txt"_s, false),
                           version) +
                       u64(5) + "12345"
                << u"new/t.txt"_s;
        }
        QTest::addRow("sendFile without a target")
            << command("sndf", fileFields(0x00020000, 0, u"/there/n.txt"_s, u""_s, false),
                       0x00020000) +
                   u64(5) + "12345"
            << u"n.txt"_s;
        QTest::newRow("sendDevice")
            << command("siof", text(u"new/t.txt")) + u64(5) + "12345" << u"new/t.txt"_s;
    }
    void fileArrivesInEveryForm()
    {
        QFETCH(const QByteArray, sent);
        QFETCH(const QString, target);
        QVERIFY(login());
        // The next command lies right behind the bytes of the file.
        m_client->send(sent + command("exst", text(target)));
        QCOMPARE(m_client->read(17), ack() + ack() + yes());
        const QString path = m_server->path(target);
        QCOMPARE(FileTree::read(path), "12345");
        QTRY_COMPARE(m_server->log,
                     (QStringList{u"sendFileStarted "_s + path, u"sendFileFinished "_s + path,
                                  u"localExistsCheck "_s + path}));
        QVERIFY(FileTree::below(m_server->home()).filter(u".part"_s).isEmpty());
    }

    void fileMayArriveByteByByte()
    {
        QVERIFY(login());
        m_client->send(command("siof", text(u"a.txt")));
        QCOMPARE(m_client->read(4), ack());
        const QByteArray bytes = u64(5) + "12345";
        for (const char byte : bytes) {
            m_client->send(QByteArray(1, byte));
            QTest::qWait(5);
        }
        QCOMPARE(m_client->read(4), ack());
        QCOMPARE(FileTree::read(m_server->path(u"a.txt"_s)), "12345");
    }

    void emptyFileArrives_data()
    {
        QTest::addColumn<QByteArray>("sent");
        QTest::newRow("with a size") << command("siof", text(u"a.txt")) + u64(0);
        QTest::newRow("with a negative size") << command("siof", text(u"a.txt")) + i64(-7);
        QTest::newRow("of an old client")
            << command("sndf", fileFields(0x00010200, 0, u"x"_s, u"a.txt"_s, false), 0x00010200);
        QTest::newRow("with a negative size, of an old client")
            << command("sndf", fileFields(0x00010200, -7, u"x"_s, u"a.txt"_s, false), 0x00010200);
    }
    void emptyFileArrives()
    {
        QFETCH(const QByteArray, sent);
        makeTree();
        QVERIFY(login());
        QCOMPARE(exchange(sent, 8), ack() + ack());
        QCOMPARE(FileTree::read(m_server->path(u"a.txt"_s)), "");
        verifySessionGoesOn();
    }

    void fileThatCannotArriveEndsTheSession_data()
    {
        QTest::addColumn<QString>("target");
        QTest::newRow("a file in the way of its folder") << u"a.txt/b.txt"_s;
        QTest::newRow("a folder in its way") << u"folder"_s;
        QTest::newRow("an empty folder in its way") << u"empty"_s;
        QTest::newRow("no name") << u""_s;
        QTest::newRow("a name that is too long") << QString(300, u'x');
        QTest::newRow("a folder whose name the rule for files changes") << u"new|dir/b.txt"_s;
    }
    void fileThatCannotArriveEndsTheSession()
    {
        QFETCH(const QString, target);
        makeTree();
        QVERIFY(QDir(m_server->home()).mkpath(u"empty"_s));
        const QStringList before = FileTree::below(m_server->home());
        if (target.contains(u'|'))
            QTest::ignoreMessage(QtDebugMsg,
                                 QRegularExpression(u"SPartialFileManager: Wrong file name"_s));
        QVERIFY(login());
        m_client->send(command("siof", text(target)) + u64(1) + "x");
        QCOMPARE(m_client->read(8), ack() + nack());
        QVERIFY(m_client->waitForEnd());
        QVERIFY(m_server->waitForEnd());
        QStringList after = FileTree::below(m_server->home());
        after.removeOne(u"new|dir/"_s);
        QCOMPARE(after, before);
        QCOMPARE(FileTree::read(m_server->path(u"a.txt"_s)), "aaa");
    }

    void fileWithoutANameLeavesTheCurrentDirectoryAlone()
    {
        makeTree();
        QVERIFY(QDir(m_server->home()).mkpath(u"empty"_s));
        const QStringList before = FileTree::below(m_server->home());
        QVERIFY(login());
        QCOMPARE(exchange(command("cd__", text(u"empty")), 9), yes());
        m_client->send(command("sndf", fileFields(0x00020000, 0, u""_s, u""_s, false), 0x00020000) +
                       u64(1) + "x");
        QCOMPARE(m_client->read(8), ack() + nack());
        QVERIFY(m_client->waitForEnd());
        QVERIFY(m_server->waitForEnd());
        QCOMPARE(FileTree::below(m_server->home()), before);
    }

    void markersInNamesAreLetters()
    {
        QVERIFY(login());
        QCOMPARE(exchange(command("siof", text(u"50%2 off/100%1.txt")) + u64(1) + "x", 8),
                 ack() + ack());
        QCOMPARE(FileTree::read(m_server->path(u"50%2 off/100%1.txt"_s)), "x");
    }

    void namesThatNoFileMayHaveAreFixed()
    {
        QVERIFY(login());
        QTest::ignoreMessage(QtDebugMsg,
                             QRegularExpression(u"SPartialFileManager: Wrong file name"_s));
        QCOMPARE(exchange(command("siof", text(u"a?b.txt")) + u64(1) + "x", 8), ack() + ack());
        QCOMPARE(FileTree::below(m_server->home()), QStringList{u"a_b.txt"_s});
        QTRY_COMPARE(m_server->log.value(1), u"sendFileFinished "_s + m_server->path(u"a_b.txt"_s));
    }

    void laterOfTwoSessionsWins()
    {
        QVERIFY(login());
        RawClient other;
        QVERIFY(other.openAndLogin(m_server->port(), u"alice"_s, u"secret"_s));
        m_client->send(command("siof", text(u"a.txt")) + u64(6) + "fir");
        QCOMPARE(m_client->read(4), ack());
        QTRY_COMPARE(m_server->log.size(), 1);
        other.send(command("siof", text(u"a.txt")) + u64(6) + "second");
        QCOMPARE(other.read(8), ack() + ack());
        QCOMPARE(FileTree::read(m_server->path(u"a.txt"_s)), "second");
        m_client->send("st!");
        QCOMPARE(m_client->read(4), ack());
        QCOMPARE(FileTree::read(m_server->path(u"a.txt"_s)), "first!");
        QCOMPARE(FileTree::below(m_server->home()), QStringList{u"a.txt"_s});
    }

    // The jail

    void pathOutsideTheJailTouchesNothing_data()
    {
        QTest::addColumn<QByteArray>("id");
        QTest::addColumn<QByteArray>("fields");
        QTest::addColumn<quint32>("version");
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<bool>("enabled");
        const QByteArray refused = QByteArray(1, '\0');
        const quint32 first = 0x00010000;
        for (const bool enabled : {false, true}) {
            const char *const mode = enabled ? ", document root" : "";
            for (const QString &outside :
                 {u"../bob/b.txt"_s, u"/etc"_s, u"../bob"_s, u"folder/../../bob"_s,
                  u"/../bob/b.txt"_s, u"..\0"_s, u"folder\0/sub"_s, u"a.txt\0"_s}) {
                // The system reads a name up to a zero. With a document root an absolute path lies
                // inside unless it climbs out.
                if (enabled && outside == u"/etc")
                    continue;
                const QByteArray out = text(outside);
                const QByteArray in = text(u"a.txt");
                const auto row = [&](const char *id, const char *what, const QByteArray &fields,
                                     quint32 version, const QByteArray &reply) {
                    const QString shown = QString(outside).replace(QChar::Null, u'0');
                    QTest::addRow("%s %s%s%s", id, qPrintable(shown), what, mode)
                        << QByteArray(id) << fields << version << reply << enabled;
                };
                for (const char *id : {"cd__", "mkd_", "rmd_", "rmf_", "exst"})
                    row(id, "", out, first, refused + ack());
                row("aflp", "", u32(0x77770000) + out, first, refused + ack());
                for (const char *id : {"rnf_", "rnd_", "cpyf", "cpyd"}) {
                    const quint32 version = id[0] == 'c' ? 0x00010100 : first;
                    row(id, " as the source", out + in, version, refused + ack());
                    row(id, " as the target", in + out, version, refused + ack());
                }
                row("lstd", "", out, first, frame(u32(0)) + ack());
                row("getf", "", fileFields(0x00010200, 0, outside, u"x"_s, true), 0x00010200,
                    nack());
                row("sndf", "", fileFields(0x00020000, 0, u"x"_s, outside, false), 0x00020000,
                    nack());
                row("gfio", "", out, first, nack());
                row("siof", "", out, first, nack());
                row("getd", "", fileFields(0x00010200, 0, outside, u"x"_s, true), 0x00010200,
                    nack());
                row("gfls", "", out + text(u"") + text(u"") + u32(3), 0x00010100, nack());
            }
        }
    }
    void pathOutsideTheJailTouchesNothing()
    {
        QFETCH(const QByteArray, id);
        QFETCH(const QByteArray, fields);
        QFETCH(const quint32, version);
        QFETCH(const QByteArray, reply);
        applyDocumentRoot();
        makeTree();
        QVERIFY(FileTree::write(m_server->outside() + u"/b.txt"_s, "bbb"));
        const QStringList inside = FileTree::below(m_server->home());
        QVERIFY(login());
        m_client->send(command(id, fields, version));
        QCOMPARE(m_client->read(4 + reply.size()).toHex(' '), (ack() + reply).toHex(' '));
        if (reply == nack())
            QVERIFY(m_client->endsHere());
        else
            verifySessionGoesOn();

        QCOMPARE(FileTree::below(m_server->home()), inside);
        QCOMPARE(FileTree::read(m_server->path(u"a.txt"_s)), "aaa");
        QCOMPARE(FileTree::below(m_server->outside()), QStringList{u"b.txt"_s});
        QCOMPARE(FileTree::read(m_server->outside() + u"/b.txt"_s), "bbb");
        QCOMPARE(QFileInfo(m_server->outside() + u"/b.txt"_s).permissions() & QFileDevice::ExeOther,
                 QFileDevice::Permissions());
        // Not even asked of the local tree.
        m_client.reset();
        QVERIFY(m_server->waitForEnd());
        QVERIFY(m_server->log.isEmpty());
    }

    // A field that cannot be read is not an empty path.
    void commandThatCannotBeReadTouchesNothing_data()
    {
        QTest::addColumn<QByteArray>("id");
        QTest::addColumn<QByteArray>("fields");
        const QByteArray path = text(u"folder");
        const QHash<QByteArray, QByteArray> heads{
            {"aflp", u32(0x77770000)},
            {"rnf_", path},
            {"rnd_", path},
            {"cpyf", path},
            {"cpyd", path},
            {"getf", i64(0)},
            {"getd", i64(0)},
            {"sndf", i64(0)},
        };
        for (const QByteArray &id :
             {"cd__"_ba, "mkd_"_ba, "rmd_"_ba, "lstd"_ba, "rmf_"_ba, "exst"_ba, "rnf_"_ba,
              "rnd_"_ba, "cpyf"_ba, "cpyd"_ba, "aflp"_ba, "getf"_ba, "sndf"_ba, "getd"_ba,
              "gfls"_ba, "gfio"_ba, "siof"_ba}) {
            const QByteArray head = heads.value(id);
            const auto row = [&](const char *what, const QByteArray &fields) {
                QTest::addRow("%s, %s", id.constData(), what) << id << fields;
            };
            row("no field", {});
            row("a text that is missing", head);
            row("half a length", head + u32(0).first(2));
            row("a text that is cut", head + path.chopped(1));
            row("a text of an odd size", head + u32(3) + "abc");
            row("a text of 2 GiB", head + u32(0x7FFFFFFE) + path);
            row("a text of 4 GiB", head + u32(0xFFFFFFFC) + path);
        }
    }
    void commandThatCannotBeReadTouchesNothing()
    {
        QFETCH(const QByteArray, id);
        QFETCH(const QByteArray, fields);
        makeTree();
        const QStringList before = FileTree::below(m_server->home());
        QVERIFY(login());
        m_client->send(command(id, fields));
        QCOMPARE(m_client->read(4), nack());
        QVERIFY(m_client->endsHere());
        QVERIFY(m_server->waitForEnd());
        QCOMPARE(FileTree::below(m_server->home()), before);
        QVERIFY(m_server->log.isEmpty());
    }

    void emptyPathOfTheClientMeansItsCurrentDirectory()
    {
        makeTree();
        QVERIFY(login());
        QCOMPARE(exchange(command("cd__", text(u"folder")), 9), yes());
        QCOMPARE(exchange(command("rmd_", text(u"")), 9), yes());
        QCOMPARE(FileTree::below(m_server->home()), (QStringList{u"a.txt"_s, u"dangling"_s}));
        QTRY_COMPARE(m_server->log.last(), u"localDirRemoved "_s + m_server->path(u"folder"_s));
    }

    void documentRootTakesAbsolutePathsFromTheJail()
    {
        m_server->configure = [](SServerFtp &session) { session.enableDocumentRoot(true); };
        makeTree();
        QVERIFY(login());
        QCOMPARE(exchange(command("cd__", text(u"/folder/sub")), 9), yes());
        QCOMPARE(pwd(), u"/folder/sub"_s);
        QCOMPARE(exchange(command("exst", text(u"d.txt")), 9), yes());
        QCOMPARE(exchange(command("exst", text(u"/a.txt")), 9), yes());
        QCOMPARE(exchange(command("rmf_", text(u"/folder/c.txt")), 9), yes());
        m_client->send(
            command("gfls", text(u"/folder") + text(u"") + text(u"") + u32(1), 0x00010100));
        QCOMPARE(m_client->read(4), ack());
        QCOMPARE(m_client->readFrame().toHex(' '),
                 (text(u"/folder") + names({u"/folder/sub/d.txt"_s})).toHex(' '));
        QCOMPARE(m_client->read(4), ack());
    }

    // Names on disk

    void nameThatIsNotUtf8IsPassedOver()
    {
        const QByteArray bad = QFile::encodeName(m_server->path(u"sub/bad"_s)) + "\xFF\xFE.txt";
        QVERIFY(FileTree::write(m_server->path(u"sub/good.txt"_s), "good"));
        FILE *file = fopen(bad.constData(), "w");
        QVERIFY(file);
        fclose(file);
        QVERIFY(login());

        m_client->send(command("gfls", text(u"sub") + text(u"") + text(u"") + u32(1), 0x00010100));
        QCOMPARE(m_client->read(4), ack());
        QCOMPARE(splitList(m_client->readFrame()).second,
                 QStringList{m_server->path(u"sub/good.txt"_s)});
        QCOMPARE(m_client->read(4), ack());

        m_client->send(command("lstd", text(u"sub")));
        QCOMPARE(m_client->read(4), ack());
        QCOMPARE(m_client->readFrame().first(4), u32(2));
        QCOMPARE(m_client->read(4), ack());

        m_client->send(
            command("getd", fileFields(0x00010200, 0, u"sub"_s, u"x"_s, false), 0x00010200));
        QCOMPARE(m_client->read(4), ack());
        QCOMPARE(m_client->readFrame().first(4), u32(1));
        QCOMPARE(m_client->read(4), ack());

        QCOMPARE(exchange(command("cpyd", text(u"sub") + text(u"copy")), 9), yes());
        QCOMPARE(exchange(command("rmd_", text(u"copy")), 9), yes());
        QVERIFY(!QFileInfo::exists(m_server->path(u"copy"_s)));

        // It stays, and the folder with it.
        QCOMPARE(exchange(command("rmd_", text(u"sub")), 9), no());
        struct stat status;
        QCOMPARE(stat(bad.constData(), &status), 0);
        QCOMPARE(remove(bad.constData()), 0);
        verifySessionGoesOn();
    }

private:
    static constexpr int kChain = 38; // the system follows 40

    //! a.txt, folder/c.txt, folder/sub/d.txt and a link to nowhere.
    void makeTree()
    {
        QVERIFY(FileTree::write(m_server->path(u"a.txt"_s), "aaa"));
        QVERIFY(FileTree::write(m_server->path(u"folder/c.txt"_s), "cccc"));
        QVERIFY(FileTree::write(m_server->path(u"folder/sub/d.txt"_s), "ddddd"));
        QVERIFY(QFile::link(u"nowhere"_s, m_server->path(u"dangling"_s)));
    }

    /*!
     * Links to one file over a chain of links, each of which goes through thousands of steps: the
     * system takes about a millisecond to see that such an entry is a file.
     */
    bool makeSlowTree(int count)
    {
        if (!FileTree::write(chained(0), "x") || !QDir(m_server->home()).mkpath(u"slow"_s))
            return false;
        for (int i = 1; i <= kChain; ++i) {
            const QString target = u"./"_s.repeated(2000) + u"chain%1"_s.arg(i - 1);
            if (!QFile::link(target, chained(i)))
                return false;
        }
        for (int i = 0; i < count; ++i) {
            if (!QFile::link(chained(kChain), m_server->path(u"slow/%1"_s.arg(i))))
                return false;
        }
        return true;
    }

    QString chained(int i) const { return m_server->path(u"chain%1"_s.arg(i)); }

    static void documentRoot()
    {
        QTest::addColumn<bool>("enabled");
        QTest::newRow("with a document root") << true;
        QTest::newRow("without one") << false;
    }

    //! Sets the session as the row says, and gives what the client sees before its paths.
    QString applyDocumentRoot()
    {
        QFETCH(const bool, enabled);
        m_server->configure = [enabled](SServerFtp &session) {
            session.enableDocumentRoot(enabled);
        };
        return enabled ? QString() : m_server->home();
    }

    bool login() { return m_client->openAndLogin(m_server->port(), u"alice"_s, u"secret"_s); }

    QByteArray exchange(const QByteArray &sent, qint64 replySize)
    {
        m_client->send(sent);
        return m_client->read(replySize);
    }

    QString pwd()
    {
        m_client->send(command("pwd_"));
        if (m_client->read(4) != ack())
            return u"refused"_s;
        const QByteArray body = m_client->readFrame();
        if (m_client->read(4) != ack())
            return u"not completed"_s;
        return takeText(body, 0).first;
    }

    void verifySessionGoesOn()
    {
        QVERIFY(!pwd().isEmpty());
        QCOMPARE(m_client->socket().bytesAvailable(), 0);
    }

    //! The text at \a offset and what stands behind it.
    static std::pair<QString, qsizetype> takeText(const QByteArray &bytes, qsizetype offset)
    {
        const auto size = static_cast<qsizetype>(bytes.mid(offset, 4).toHex().toUInt(nullptr, 16));
        QString text;
        for (qsizetype i = offset + 4; i < offset + 4 + size; i += 2)
            text.append(QChar(bytes.mid(i, 2).toHex().toUShort(nullptr, 16)));
        return {text, offset + 4 + size};
    }

    //! Base and sorted files of a list.
    static std::pair<QString, QStringList> splitList(const QByteArray &bytes)
    {
        auto [base, offset] = takeText(bytes, 0);
        const quint32 count = bytes.mid(offset, 4).toHex().toUInt(nullptr, 16);
        offset += 4;
        QStringList files;
        for (quint32 i = 0; i < count; ++i) {
            const auto [file, next] = takeText(bytes, offset);
            files.append(file);
            offset = next;
        }
        files.sort();
        return {base, offset == bytes.size() ? files : QStringList{QStringLiteral("spare bytes")}};
    }

    QTemporaryDir m_work;
    std::unique_ptr<FileServer> m_server;
    std::unique_ptr<RawClient> m_client;
};

QTEST_GUILESS_MAIN(tst_SServerFtp)
#include "tst_sserverftp.moc"
