// SPDX-License-Identifier: MIT
// The client against a scripted server of bare bytes: what it sends, how it takes each reply, old
// servers, and servers that lie, stop or vanish.
#include "filesession.h"
#include "filetree.h"

#include <brixlib/fileservice/commands/scommandgetdir.h>
#include <brixlib/fileservice/commands/scommandsendfile.h>

#include <shared/memorypeak.h>
#include <shared/processfacts.h>
#include <shared/rawserver.h>
#include <shared/utctime.h>

#include <QtCore/QBuffer>
#include <QtCore/QRegularExpression>
#include <QtCore/QtEndian>

using namespace Talverine;
using namespace Qt::StringLiterals;
using namespace RawBytes;

using Operation = std::function<void(SClientFtp &)>;
Q_DECLARE_METATYPE(Operation)

namespace {

constexpr int kShortTimeoutMs = 400;
// What a transfer may hold in memory, whatever sizes the peer tells.
constexpr qint64 kAllowedBytes = 16 * 1024 * 1024;

constexpr const char *kOldServerWarning =
    "SClientFtp::getDir(): Warning: using deprecated command due to server limitations. The target "
    "path will be ignored.";

QByteArray keepAlive()
{
    return QByteArray::fromHex("50A050A0");
}

//! A handshake with a server that has all file commands, as today's do.
RawHandshake today()
{
    RawHandshake handshake;
    for (const char *id : {"cd__", "mkd_", "rmd_", "lstd", "rmf_", "rnf_", "rnd_", "pwd_", "exst",
                           "fsse", "aflp", "gfio", "siof"})
        handshake.commands.append({id});
    for (const char *id : {"cpyf", "cpyd", "gfls"})
        handshake.commands.append({id, 0x00010100});
    for (const char *id : {"getf", "getd"})
        handshake.commands.append({id, 0x00010200});
    for (const char *id : {"sndf", "stoi"})
        handshake.commands.append({id, 0x00020000});
    return handshake;
}

//! The same with one command at another version; 0 takes it off the list.
RawHandshake todayBut(const QByteArray &id, quint32 version)
{
    RawHandshake handshake = today();
    auto &commands = handshake.commands;
    const auto it = std::find_if(commands.begin(), commands.end(),
                                 [&](const auto &command) { return command.letters == id; });
    if (version == 0)
        commands.erase(it);
    else
        it->version = version;
    return handshake;
}

bool isThere(auto &peer)
{
    return peer.socket().state() == QAbstractSocket::ConnectedState;
}

//! The path as a field.
QByteArray path(const QString &text)
{
    return RawBytes::text(text);
}

QByteArray names(const QStringList &list)
{
    QByteArray bytes = u32(static_cast<quint32>(list.size()));
    for (const QString &name : list)
        bytes += path(name);
    return bytes;
}

Operation op(void (SClientFtp::*operation)(const QString &), const QString &argument)
{
    return [=](SClientFtp &client) { (client.*operation)(argument); };
}

Operation op(void (SClientFtp::*operation)(const QString &, const QString &), const QString &first,
             const QString &second)
{
    return [=](SClientFtp &client) { (client.*operation)(first, second); };
}

Operation op(void (SClientFtp::*operation)())
{
    return [=](SClientFtp &client) { (client.*operation)(); };
}

} // namespace

class tst_SClientFtpWire : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(u"."_s));
        m_client = std::make_unique<FileClient>();
    }

    void cleanup() { m_client.reset(); }

    // What goes out

    void operationQueuesItsCommand_data()
    {
        QTest::addColumn<Operation>("operation");
        QTest::addColumn<QByteArray>("expected");
        using Self = SClientFtp;
        const QString a = u"a"_s;
        const QString b = u"b"_s;
        QTest::newRow("changeDir") << op(&Self::changeDir, a) << body("cd__", path(a));
        QTest::newRow("homeDir sends an empty path") << op(&Self::homeDir) << body("cd__", u32(0));
        QTest::newRow("pwd") << op(&Self::pwd) << body("pwd_");
        QTest::newRow("listDir") << op(&Self::listDir, a) << body("lstd", path(a));
        QTest::newRow("makeDir") << op(&Self::makeDir, a) << body("mkd_", path(a));
        QTest::newRow("removeDir") << op(&Self::removeDir, a) << body("rmd_", path(a));
        QTest::newRow("removeFile") << op(&Self::removeFile, a) << body("rmf_", path(a));
        QTest::newRow("exists") << op(qOverload<const QString &>(&Self::exists), a)
                                << body("exst", path(a));
        QTest::newRow("renameDir") << op(&Self::renameDir, a, b) << body("rnd_", path(a) + path(b));
        QTest::newRow("renameFile")
            << op(&Self::renameFile, a, b) << body("rnf_", path(a) + path(b));
        QTest::newRow("copyDir") << op(&Self::copyDir, a, b)
                                 << body("cpyd", path(a) + path(b), 0x00010100);
        QTest::newRow("copyFile") << op(&Self::copyFile, a, b)
                                  << body("cpyf", path(a) + path(b), 0x00010100);
        QTest::newRow("setFilePermissions") << Operation([](SClientFtp &client) {
            client.setFilePermissions(u"a"_s, static_cast<FileEntryFlags>(0x64440001));
        }) << body("aflp", u32(0x64440000) + path(a));
        QTest::newRow("storageInfo") << op(&Self::storageInfo) << body("stoi", {}, 0x00020000);
        QTest::newRow("fileSystemSensitivity")
            << op(qOverload<>(&Self::fileSystemSensitivity)) << body("fsse");
        QTest::newRow("getFile") << Operation([](SClientFtp &client) {
            client.getFile(u"a"_s, u"b"_s, true);
        }) << body("getf", i64(0) + path(a) + path(b) + '\1', 0x00010200);
        QTest::newRow("getFile without a local name")
            << Operation([](SClientFtp &client) { client.getFile(u"x/a"_s, false); })
            << body("getf", i64(0) + path(u"x/a"_s) + path(a) + '\0', 0x00010200);
        QTest::newRow("getFiles") << Operation([](SClientFtp &client) {
            client.getFiles(u"a"_s, u"*.txt; *.csv"_s, u"b"_s, false);
        }) << body("gfls", path(a) + path(u"*.txt; *.csv"_s) + path(b) + u32(0), 0x00010100);
        QTest::newRow("getFiles recursively")
            << Operation([](SClientFtp &client) { client.getFiles(u"a"_s, u"*"_s, u"b"_s, true); })
            << body("gfls", path(a) + path(u"*"_s) + path(b) + u32(1), 0x00010100);
        QTest::newRow("getDir") << Operation([](SClientFtp &client) {
            client.getDir(u"a"_s, u"b"_s, false);
        }) << body("gfls", path(a) + u32(0) + path(b) + u32(5), 0x00010100);
        QTest::newRow("getDir with removal and without a local name")
            << Operation([](SClientFtp &client) { client.getDir(u"x/a"_s, QString(), true); })
            << body("gfls", path(u"x/a"_s) + u32(0) + path(a) + u32(7), 0x00010100);
        QTest::newRow("getDevice")
            << Operation([](SClientFtp &client) { client.getDevice(u"a"_s, nullptr); })
            << body("gfio", path(a));
        QTest::newRow("sendDevice")
            << Operation([](SClientFtp &client) { client.sendDevice(nullptr, u"a"_s); })
            << body("siof", path(a));
    }
    void operationQueuesItsCommand()
    {
        QFETCH(const Operation, operation);
        QFETCH(const QByteArray, expected);
        QByteArray command;
        RawServer server(scripted(today(), [&](auto &peer) { command = peer.readCommand(); }));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(!m_client->run(operation));
        QVERIFY(server.finishes());
        QCOMPARE(command.toHex(' '), expected.toHex(' '));
    }

    void sentFileIsAnnouncedByItsResolvedName_data()
    {
        QTest::addColumn<QString>("remote");
        QTest::addColumn<QString>("target");
        QTest::newRow("with a remote name") << u"b"_s << u"b"_s;
        QTest::newRow("without one") << QString() << u"a.txt"_s;
    }
    void sentFileIsAnnouncedByItsResolvedName()
    {
        QFETCH(const QString, remote);
        QFETCH(const QString, target);
        const QString local = m_client->path(u"a.txt"_s);
        QVERIFY(FileTree::write(local, "12345"));
        QByteArray command;
        QByteArray data;
        RawServer server(scripted(today(), [&](auto &peer) {
            command = peer.readCommand();
            peer.send(ack());
            data = peer.read(13);
            peer.send(ack());
        }));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(m_client->run([&](SClientFtp &client) { client.sendFile(u"a.txt"_s, remote); }));
        QVERIFY(server.finishes());
        QCOMPARE(command.toHex(' '),
                 body("sndf", path(local) + path(target) + '\0', 0x00020000).toHex(' '));
        QCOMPARE(data, u64(5) + "12345");
    }

    // How replies are taken

    void replyIsReported_data()
    {
        wellFormedReplies();
        using Self = SClientFtp;
        const auto changeDir = op(&Self::changeDir, u"a"_s);
        QTest::newRow("result byte 0")
            << changeDir << "\0"_ba << QStringList{u"changeDirResult false"_s};
        QTest::newRow("result byte 2")
            << changeDir << "\2"_ba << QStringList{u"changeDirResult true"_s};
        QTest::newRow("result byte FF")
            << changeDir << "\xFF"_ba << QStringList{u"changeDirResult true"_s};
        QTest::newRow("first byte of a keep-alive word where there is none")
            << changeDir << "\x50"_ba << QStringList{u"changeDirResult true"_s};
        QTest::newRow("spare bytes in a frame")
            << op(&Self::pwd) << frame(path(u"/a"_s) + "spare") << QStringList{u"pwdResult /a"_s};
        QTest::newRow("insensitive to case")
            << op(qOverload<>(&Self::fileSystemSensitivity)) << u32(0)
            << QStringList{u"fileSystemSensitivity false"_s};
        QTest::newRow("unknown sensitivity")
            << op(qOverload<>(&Self::fileSystemSensitivity)) << u32(2)
            << QStringList{u"fileSystemSensitivity false"_s};
        QTest::newRow("storage without a name")
            << op(&Self::storageInfo) << u64(1) + u64(2) + u64(3) + u32(0)
            << QStringList{u"storageInfoResult 1 2 3 "_s};
        QTest::newRow("storage that is not known")
            << op(&Self::storageInfo) << i64(-1) + i64(-1) + i64(-1) + u32(0)
            << QStringList{u"storageInfoResult -1 -1 -1 "_s};
        QTest::newRow("empty list")
            << op(&Self::listDir, u"a"_s) << frame(u32(0)) << QStringList{u"listDirResult 0"_s};
    }
    void replyIsReported()
    {
        QFETCH(const Operation, operation);
        QFETCH(const QByteArray, reply);
        QFETCH(const QStringList, expected);
        RawServer server(scripted(today(), [&](auto &peer) {
            peer.answer(reply);
            peer.answer(frame(path(u"/here"_s)));
        }));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(m_client->run(
            [&](SClientFtp &client) {
                operation(client);
                client.pwd();
            },
            2));
        QCOMPARE(m_client->log, expected + QStringList{u"pwdResult /here"_s});
    }

    void entriesOfEveryVersionAreRead()
    {
        const QDateTime modified = utcTime(QDate(2024, 2, 29), QTime(12, 30));
        // Julian day, milliseconds of the day, UTC.
        const QByteArray date = i64(2460370) + u32(45000000) + '\1';
        const QByteArray reply = u32(2) + u32(0x00010100) + path(u"new"_s) + i64(5) +
                                 u32(0x64440004) + date + u32(0x000100FF) + path(u"old"_s) +
                                 i64(-1) + u32(1);
        RawServer server(scripted(today(), [&](auto &peer) {
            peer.answer(frame(reply));
            peer.readToEnd();
        }));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(m_client->run(op(&SClientFtp::listDir, u"a"_s)));
        QCOMPARE(m_client->entries,
                 (QList<SFileEntry>{
                     {u"new"_s, 5, modified, static_cast<FileEntryFlags>(0x64440004)},
                     {u"old"_s, -1, QDateTime(), FileEntryFlags::Directory},
                 }));
    }

    void replyCutAtAnyByteEndsTheSession_data() { wellFormedReplies(); }
    void replyCutAtAnyByteEndsTheSession()
    {
        QFETCH(const Operation, operation);
        QFETCH(const QByteArray, reply);
        QFETCH(const QStringList, expected);
        verifyCuts(today(), operation, reply, expected);
    }

    void replyOfAnOldServerCutAtAnyByteEndsTheSession()
    {
        verifyCuts(todayBut("gfls", 0),
                   [](SClientFtp &client) { client.getDir(u"a"_s, QString()); }, frame(names({})),
                   {u"getDirResult true"_s});
    }

    void refusedCommandEndsTheSession_data() { wellFormedReplies(); }
    void refusedCommandEndsTheSession()
    {
        QFETCH(const Operation, operation);
        RawServer server(scripted(today(), [&](auto &peer) {
            peer.readCommand();
            peer.send(nack());
            peer.readToEnd();
        }));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(!m_client->run(operation));
        QVERIFY(m_client->log.isEmpty());
        QVERIFY(m_client->waitForEnd());
    }

    void nackAsLastWordEndsTheSession_data() { wellFormedReplies(); }
    void nackAsLastWordEndsTheSession()
    {
        QFETCH(const Operation, operation);
        QFETCH(const QByteArray, reply);
        QFETCH(const QStringList, expected);
        RawServer server(scripted(today(), [&](auto &peer) {
            peer.readCommand();
            peer.send(ack() + reply + nack());
            peer.readToEnd();
        }));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(!m_client->run(operation));
        QCOMPARE(m_client->log, expected);
        QVERIFY(m_client->waitForEnd());
    }

    void lyingReplyEndsTheSessionAtNoCost_data()
    {
        using Self = SClientFtp;
        const auto pwd = op(&Self::pwd);
        const auto listDir = op(&Self::listDir, u"a"_s);
        const Operation getFiles = [](SClientFtp &client) {
            client.getFiles(u"a"_s, QString(), u"b"_s, true);
        };
        const QByteArray endless = u32(0xFFFFFFFF);
        QTest::addColumn<Operation>("operation");
        QTest::addColumn<QByteArray>("reply");
        QTest::newRow("no length") << pwd << u32(0);
        QTest::newRow("length of 4 GiB") << pwd << endless + QByteArray(100000, 'x');
        QTest::newRow("length of 2 GiB") << pwd << u32(0x80000000) + path(u"/a"_s);
        QTest::newRow("text of 2 GiB") << pwd << frame(u32(0x7FFFFFFE) + "abc");
        QTest::newRow("text of 4 GiB") << pwd << frame(u32(0xFFFFFFFC) + "abc");
        QTest::newRow("text of half a letter") << pwd << frame(u32(3) + "abc");
        QTest::newRow("text longer than its frame") << pwd << frame(u32(6) + "abcd");
        QTest::newRow("endless list of entries")
            << listDir << frame(endless + QByteArray(24, '\0'));
        QTest::newRow("one entry too few") << listDir << frame(u32(1));
        QTest::newRow("no count of entries") << listDir << frame("abc");
        QTest::newRow("endless list of files")
            << getFiles << frame(path(u"/a"_s) + endless + path(u"/a/b"_s));
        QTest::newRow("one file too few")
            << getFiles << frame(path(u"/a"_s) + u32(2) + path(u"/a/b"_s));
        QTest::newRow("no list of files") << getFiles << frame(path(u"/a"_s));
        // A server of any age may be asked for it.
        const Operation oldGetDir = [](SClientFtp &client) {
            static_cast<JailedClient &>(client).enqueueCommand(
                new SCommandGetDir(u"a"_s, u"a"_s, true));
        };
        QTest::newRow("old form, endless list of files")
            << oldGetDir << frame(endless + path(u"/a/b"_s));
        QTest::newRow("old form, one file too few") << oldGetDir << frame(u32(2) + path(u"/a/b"_s));
        QTest::newRow("old form, no length") << oldGetDir << u32(0);
        QTest::newRow("name of a storage of 4 GiB")
            << op(&Self::storageInfo) << u64(1) + u64(2) + u64(3) + endless + "ext4";
        QTest::newRow("half a sensitivity")
            << op(qOverload<>(&Self::fileSystemSensitivity)) << "abc"_ba;
    }
    void lyingReplyEndsTheSessionAtNoCost()
    {
        QFETCH(const Operation, operation);
        QFETCH(const QByteArray, reply);
        // Says no more, and keeps the connection open.
        RawServer server(scripted(today(), [&](auto &peer) {
            peer.readCommand();
            peer.send(ack() + reply);
            peer.readToEnd();
        }));
        m_client->timeout = kShortTimeoutMs;
        QVERIFY(m_client->open(server.port()));
        const TestShared::HeldMemoryPeak peak;
        QVERIFY(!m_client->run(operation));
        QVERIFY(m_client->log.isEmpty());
        QCOMPARE(m_client->results.size(), 1);
        QVERIFY(m_client->waitForEnd());
        QVERIFY(peak.growth() < kAllowedBytes);
    }

    void replyIsReadUpToItsLimit_data()
    {
        using Self = SClientFtp;
        QTest::addColumn<Operation>("operation");
        QTest::addColumn<QByteArray>("id");
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<QByteArray>("reply");
        QTest::newRow("pwd") << op(qOverload<>(&Self::pwd)) << "pwd_"_ba << QByteArray()
                             << path(u"/a"_s);
        QTest::newRow("list") << op(&Self::listDir, u"a"_s) << "lstd"_ba << QByteArray() << u32(0);
        const Operation getFiles = [](SClientFtp &client) {
            client.getFiles(u"a"_s, u"*"_s, u"b"_s, false);
        };
        QTest::newRow("files") << getFiles << "gfls"_ba << QByteArray() << path(u"/a"_s) + u32(0);
        QTest::newRow("storage") << op(&Self::storageInfo) << "stoi"_ba << u64(1) + u64(2) + u64(3)
                                 << "ext4"_ba;
    }
    void replyIsReadUpToItsLimit()
    {
        QFETCH(const Operation, operation);
        QFETCH(const QByteArray, id);
        QFETCH(const QByteArray, before);
        QFETCH(const QByteArray, reply);
        const SCommandId command(qFromBigEndian<quint32>(id.constData()));
        const auto isRead = [&](qint64 limit) {
            RawServer server(scripted(today(), [&](auto &peer) {
                peer.answer(before + frame(reply));
                peer.readToEnd();
            }));
            FileClient client;
            client.configure = [&](SClientFtp &one) { one.setReplyLimit(command, limit); };
            return client.open(server.port()) && client.run(operation);
        };
        QVERIFY(isRead(reply.size()));
        QTest::ignoreMessage(QtDebugMsg,
                             QRegularExpression(u"^SClientBase::readReply: .* too large$"_s));
        QVERIFY(!isRead(reply.size() - 1));
    }

    // A server that cannot give its list writes the nack word in the place of the length, and goes.
    void refusalInThePlaceOfAReplyIsNoLength_data()
    {
        QTest::addColumn<qint64>("limit");
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<bool>("isRefused");
        QTest::addColumn<bool>("isTooLarge");
        QTest::newRow("with a limit") << qint64(1000) << nack() << true << false;
        QTest::newRow("without a limit") << qint64(0) << nack() << true << false;
        QTest::newRow("a length beyond the limit")
            << qint64(1000) << u32(1001) + QByteArray(1001, 'x') << false << true;
        QTest::newRow("a length of that value, with bytes after it")
            << qint64(0) << nack() + "more" << false << false;
    }
    void refusalInThePlaceOfAReplyIsNoLength()
    {
        QFETCH(const qint64, limit);
        QFETCH(const QByteArray, reply);
        QFETCH(const bool, isRefused);
        QFETCH(const bool, isTooLarge);
        RawServer server(scripted(today(), [&](auto &peer) {
            peer.readCommand();
            peer.send(ack() + reply);
        }));
        std::atomic_bool refused = false;
        std::atomic_bool tooLarge = false;
        m_client->configure = [&](JailedClient &client) {
            client.setReplyLimit(SCommandId(qFromBigEndian<quint32>("lstd")), limit);
            connect(
                &client, &SClientFtp::commandResult, &client,
                [&] {
                    refused = client.wasRefused();
                    tooLarge = client.wasReplyTooLarge();
                },
                Qt::DirectConnection);
        };
        QVERIFY(m_client->open(server.port()));
        if (isTooLarge) {
            QTest::ignoreMessage(QtDebugMsg,
                                 QRegularExpression(u"^SClientBase::readReply: .* too large$"_s));
        }
        QVERIFY(!m_client->run(op(&SClientFtp::listDir, u"a"_s)));
        QVERIFY(m_client->log.isEmpty());
        QCOMPARE(refused, isRefused);
        QCOMPARE(tooLarge, isTooLarge);
    }

    // Keep-alive words

    // The connection ends after it: it is a result that no word can begin with any more.
    void singleByteOfAKeepAliveWordAtTheEndIsAResult()
    {
        RawServer server(scripted(today(), [](auto &peer) {
            peer.readCommand();
            peer.send(ack() + keepAlive() + keepAlive().first(1));
        }));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(!m_client->run(op(&SClientFtp::copyFile, u"a"_s, u"b"_s)));
        QCOMPARE(m_client->log, QStringList{u"copyFileResult true"_s});
    }

    void keepAliveWordsAreConsumed_data()
    {
        QTest::addColumn<QByteArrayList>("pieces");
        QTest::addColumn<bool>("result");
        const QByteArray word = keepAlive();
        QTest::newRow("none, true") << QByteArrayList{"\1"} << true;
        QTest::newRow("none, false") << QByteArrayList{QByteArray(1, '\0')} << false;
        QTest::newRow("one") << QByteArrayList{word, "\1"} << true;
        QTest::newRow("many") << QByteArrayList{word, word + word, word, QByteArray(1, '\0')}
                              << false;
        QTest::newRow("together with the result") << QByteArrayList{word + word + '\1'} << true;
        for (int size = 1; size < 4; ++size) {
            QTest::addRow("split after %d bytes", size)
                << QByteArrayList{word + word.first(size), word.sliced(size) + '\0'} << false;
        }
        QTest::newRow("byte by byte")
            << QByteArrayList{"\x50", "\xA0", "\x50", "\xA0", "\1"} << true;
    }
    void keepAliveWordsAreConsumed()
    {
        QFETCH(const QByteArrayList, pieces);
        QFETCH(const bool, result);
        QSemaphore told;
        RawServer server(scripted(today(), [&](auto &peer) {
            peer.readCommand();
            peer.send(ack());
            for (const QByteArray &piece : pieces) {
                peer.send(piece);
                QThread::msleep(30);
            }
            // The result stands alone, with nothing behind it, until it has been taken.
            told.tryAcquire(1, kPatienceMs);
            peer.send(ack());
            peer.readToEnd();
        }));
        QVERIFY(m_client->open(server.port()));
        m_client->forget();
        m_client->client()->copyFile(u"a"_s, u"b"_s);
        QTRY_COMPARE(m_client->log, QStringList{u"copyFileResult "_s + word(result)});
        QVERIFY(m_client->results.isEmpty());
        told.release();
        QVERIFY(m_client->waitForResults(1));
        QCOMPARE(m_client->results, QStringList{u"cpyf true"_s});
    }

    void keepAliveWordsMayComeBeforeAListOfFiles()
    {
        RawServer server(scripted(today(), [](auto &peer) {
            peer.answer(keepAlive() + keepAlive() + frame(path(u"/a"_s) + names({})));
            peer.readToEnd();
        }));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(m_client->run(
            [](SClientFtp &client) { client.getFiles(u"a"_s, QString(), u"b"_s, true); }));
        QCOMPARE(m_client->log, QStringList{u"getFilesResult true"_s});
    }

    void keepAliveWordsKeepTheTimeoutAway()
    {
        RawServer server(scripted(today(), [](auto &peer) {
            peer.readCommand();
            peer.send(ack());
            for (int i = 0; i < 12; ++i) {
                peer.send(keepAlive());
                QThread::msleep(100);
            }
            peer.send('\1' + ack());
            peer.readToEnd();
        }));
        m_client->timeout = kShortTimeoutMs;
        QVERIFY(m_client->open(server.port()));
        QVERIFY(m_client->run(op(&SClientFtp::copyDir, u"a"_s, u"b"_s)));
        QCOMPARE(m_client->log, QStringList{u"copyDirResult true"_s});
    }

    void keepAliveWordThatIsCutOffIsNoResult_data()
    {
        QTest::addColumn<bool>("closes");
        QTest::newRow("and the server goes away") << true;
        QTest::newRow("and the server falls silent") << false;
    }
    void keepAliveWordThatIsCutOffIsNoResult()
    {
        QFETCH(const bool, closes);
        RawServer server(scripted(today(), [&](auto &peer) {
            peer.readCommand();
            peer.send(ack() + keepAlive() + keepAlive().first(2));
            if (!closes)
                peer.readToEnd();
        }));
        m_client->timeout = 1000;
        QVERIFY(m_client->open(server.port()));
        QElapsedTimer waiting;
        waiting.start();
        QVERIFY(!m_client->run(op(&SClientFtp::copyFile, u"a"_s, u"b"_s)));
        QCOMPARE(m_client->log, QStringList{u"copyFileResult false"_s});
        QVERIFY(m_client->waitForEnd());
        // Once for the rest of the word, once for the result.
        QVERIFY(waiting.elapsed() < 2 * m_client->timeout + 800);
    }

    void endlessKeepAliveWordsDoNotHoldAStopUp_data()
    {
        QTest::addColumn<int>("pauseMs");
        QTest::newRow("without a pause") << 0;
        QTest::newRow("one a moment") << 50;
    }
    void endlessKeepAliveWordsDoNotHoldAStopUp()
    {
        QFETCH(const int, pauseMs);
        RawServer server(scripted(today(), [&](auto &peer) {
            peer.readCommand();
            peer.send(ack());
            const QDeadlineTimer deadline(kPatienceMs);
            while (isThere(peer) && !deadline.hasExpired() && peer.send(keepAlive()))
                QThread::msleep(static_cast<unsigned long>(pauseMs));
        }));
        m_client->timeout = kShortTimeoutMs;
        QVERIFY(m_client->open(server.port()));
        m_client->client()->copyFile(u"a"_s, u"b"_s);
        QTest::qWait(200);
        QElapsedTimer stopping;
        stopping.start();
        m_client->controller().interruptWorkers();
        QVERIFY(m_client->waitForEnd());
        QVERIFY(stopping.elapsed() < kShortTimeoutMs + 1000);
        QCOMPARE(m_client->log, QStringList{u"copyFileResult false"_s});
    }

    // Old servers

    void oldServerSendsNoKeepAliveWords_data()
    {
        QTest::addColumn<QByteArray>("id");
        QTest::addColumn<Operation>("operation");
        QTest::addColumn<quint32>("version");
        for (const quint32 version : {0x00010000U, 0x000100FFU}) {
            QTest::addRow("copyFile, version %x", version)
                << "cpyf"_ba << op(&SClientFtp::copyFile, u"a"_s, u"b"_s) << version;
            QTest::addRow("copyDir, version %x", version)
                << "cpyd"_ba << op(&SClientFtp::copyDir, u"a"_s, u"b"_s) << version;
        }
    }
    void oldServerSendsNoKeepAliveWords()
    {
        QFETCH(const QByteArray, id);
        QFETCH(const Operation, operation);
        QFETCH(const quint32, version);
        QByteArray command;
        RawServer server(scripted(todayBut(id, version), [&](auto &peer) {
            command = peer.readCommand();
            // A result and the begin of a last word that is wrong. Taken for a keep-alive word, it
            // would leave a good answer behind.
            peer.send(ack() + keepAlive() + '\0' + ack());
            peer.readToEnd();
        }));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(!m_client->run(operation));
        QCOMPARE(m_client->log.size(), 1);
        QVERIFY(m_client->log.first().endsWith(u"Result true"_s));
        m_client.reset();
        QVERIFY(server.finishes());
        QCOMPARE(command.toHex(' '), body(id, path(u"a"_s) + path(u"b"_s), version).toHex(' '));
    }

    void oldServerSendsNoKeepAliveWordsBeforeAListOfFiles()
    {
        RawServer server(scripted(todayBut("gfls", 0x000100FF), [](auto &peer) {
            // A length that is never reached, and not a word before a good answer.
            peer.answer(keepAlive() + frame(path(u"/a"_s) + names({})));
        }));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(!m_client->run(
            [](SClientFtp &client) { client.getFiles(u"a"_s, QString(), u"b"_s, true); }));
        QVERIFY(m_client->log.isEmpty());
    }

    void oldServerTellsLessOfItsStorage_data()
    {
        QTest::addColumn<quint32>("version");
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<QString>("expected");
        QTest::newRow("1.0.0") << 0x00010000U << u64(1) + u64(2) << u"storageInfoResult 1 2 0 "_s;
        QTest::newRow("1.0.1") << 0x00010001U << u64(1) + u64(2) + u64(3) + array("ext4")
                               << u"storageInfoResult 1 2 3 ext4"_s;
    }
    void oldServerTellsLessOfItsStorage()
    {
        QFETCH(const quint32, version);
        QFETCH(const QByteArray, reply);
        QFETCH(const QString, expected);
        RawServer server(scripted(todayBut("stoi", version), [&](auto &peer) {
            peer.answer(reply);
            peer.readToEnd();
        }));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(m_client->run(op(&SClientFtp::storageInfo)));
        QCOMPARE(m_client->log, QStringList{expected});
    }

    void oldServerIsToldTheSizeByTheCommand_data()
    {
        QTest::addColumn<quint32>("version");
        QTest::addColumn<bool>("hasTarget");
        QTest::addColumn<bool>("hasRemove");
        QTest::newRow("just below 2.0.0") << 0x0001FFFFU << true << true;
        QTest::newRow("1.2.0") << 0x00010200U << true << true;
        QTest::newRow("1.1.0") << 0x00010100U << false << true;
        QTest::newRow("1.0.0") << 0x00010000U << false << false;
    }
    void oldServerIsToldTheSizeByTheCommand()
    {
        QFETCH(const quint32, version);
        QFETCH(const bool, hasTarget);
        QFETCH(const bool, hasRemove);
        const QString local = m_client->path(u"a.txt"_s);
        QVERIFY(FileTree::write(local, "12345"));
        QByteArray command;
        QByteArray data;
        RawServer server(scripted(todayBut("sndf", version), [&](auto &peer) {
            command = peer.readCommand();
            peer.send(ack());
            data = peer.read(5);
            peer.send(ack());
            peer.readToEnd();
        }));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(m_client->run(
            [](SClientFtp &client) { client.sendFile(u"a.txt"_s, u"b.txt"_s, true); }));
        QCOMPARE(m_client->progress.last(), (std::pair<qint64, qint64>{5, 5}));
        QVERIFY(!QFileInfo::exists(local));
        m_client.reset();
        QVERIFY(server.finishes());
        QByteArray fields = i64(5) + path(local);
        if (hasTarget)
            fields += path(u"b.txt"_s);
        if (hasRemove)
            fields += '\1';
        QCOMPARE(command.toHex(' '), body("sndf", fields, version).toHex(' '));
        QCOMPARE(data, "12345");
    }

    void fileThatHasChangedSinceAnOldServerWasToldItsSizeEndsTheSession()
    {
        const QString local = m_client->path(u"a.txt"_s);
        QVERIFY(FileTree::write(local, "12345"));
        QSemaphore changed;
        RawServer server(scripted(todayBut("sndf", 0x00010200), [&](auto &peer) {
            peer.readCommand();
            changed.tryAcquire(1, kPatienceMs);
            peer.send(ack());
            peer.readToEnd();
        }));
        QVERIFY(m_client->open(server.port()));
        m_client->forget();
        m_client->client()->sendFile(u"a.txt"_s, u"b.txt"_s, true);
        QVERIFY(FileTree::write(local, "123456"));
        changed.release();
        QVERIFY(m_client->waitForEnd());
        QCOMPARE(m_client->results, QStringList{u"sndf false"_s});
        QCOMPARE(FileTree::read(local), "123456");
    }

    void listWithoutVersionsMakesEveryVersionZero()
    {
        const QString local = m_client->path(u"a.txt"_s);
        QVERIFY(FileTree::write(local, "12345"));
        RawHandshake handshake = today();
        handshake.withVersions = false;
        QByteArray command;
        RawServer server(scripted(handshake, [&](auto &peer) {
            command = peer.readCommand();
            peer.send(ack());
            peer.read(5);
            peer.send(ack());
            peer.answer(u64(1) + u64(2));
            peer.readToEnd();
        }));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(m_client->run(
            [](SClientFtp &client) {
                client.sendFile(u"a.txt"_s, u"b.txt"_s);
                client.storageInfo();
            },
            2));
        QCOMPARE(m_client->log.last(), u"storageInfoResult 1 2 0 "_s);
        m_client.reset();
        QVERIFY(server.finishes());
        QCOMPARE(command.toHex(' '), body("sndf", i64(5) + path(local), 0).toHex(' '));
    }

    void getDirOfAnOldServerWarnsOfATargetOfItsOwn_data()
    {
        QTest::addColumn<QString>("local");
        QTest::addColumn<bool>("warns");
        QTest::newRow("another target") << u"b"_s << true;
        QTest::newRow("the same target") << u"a"_s << false;
        QTest::newRow("no target") << QString() << false;
    }
    void getDirOfAnOldServerWarnsOfATargetOfItsOwn()
    {
        QFETCH(const QString, local);
        QFETCH(const bool, warns);
        QByteArray command;
        RawServer server(
            scripted(todayBut("gfls", 0), [&](auto &peer) { command = peer.readCommand(); }));
        QVERIFY(m_client->open(server.port()));
        MessageLog messages;
        QVERIFY(!m_client->run([&](SClientFtp &client) { client.getDir(u"a"_s, local, false); }));
        QCOMPARE(messages.lines(),
                 warns ? QStringList{QString::fromLatin1(kOldServerWarning)} : QStringList());
        QVERIFY(server.finishes());
        const QString target = local.isEmpty() ? u"a"_s : local;
        QCOMPARE(command.toHex(' '),
                 body("getd", i64(0) + path(u"a"_s) + path(target) + '\0', 0x00010200).toHex(' '));
    }

    void getDirOfAnOldServerFetchesItsFilesAndRemovesTheFolder()
    {
        QByteArrayList commands;
        RawServer server(scripted(todayBut("gfls", 0), [&](auto &peer) {
            peer.answer(frame(names({u"/srv/in/a.txt"_s, u"/srv/in/s/b.txt"_s})));
            for (const char *data : {"A", "B"}) {
                commands.append(peer.readCommand());
                peer.send(ack() + u64(1) + data + ack());
            }
            commands.append(peer.readCommand());
            peer.send(ack() + '\1' + ack());
            peer.readToEnd();
        }));
        const QString got = m_client->path(u"got"_s);
        QVERIFY(m_client->open(server.port()));
        QTest::ignoreMessage(QtDebugMsg, kOldServerWarning);
        QVERIFY(
            m_client->run([&](SClientFtp &client) { client.getDir(u"/srv/in"_s, got, true); }, 4));
        QCOMPARE(m_client->log.first(), u"getDirResult true"_s);
        QCOMPARE(m_client->log.last(), u"removeDirResult true"_s);
        QCOMPARE(FileTree::below(got), (QStringList{u"a.txt"_s, u"s/"_s, u"s/b.txt"_s}));
        m_client.reset();
        QVERIFY(server.finishes());
        QCOMPARE(commands.at(0).toHex(' '),
                 body("getf", i64(0) + path(u"/srv/in/a.txt"_s) + path(got + u"/a.txt"_s) + '\0',
                      0x00010200)
                     .toHex(' '));
        QCOMPARE(commands.at(2).toHex(' '), body("rmd_", path(u"/srv/in"_s)).toHex(' '));
    }

    void commandThatTheServerLacksIsReported()
    {
        RawServer server(scripted(todayBut("gfio", 0), [](auto &peer) {
            peer.answer(frame(path(u"/here"_s)));
            peer.readToEnd();
        }));
        QVERIFY(m_client->open(server.port()));
        QBuffer device;
        QVERIFY(m_client->run([&](SClientFtp &client) {
            client.getDevice(u"a"_s, &device);
            client.pwd();
        }));
        QCOMPARE(m_client->log, (QStringList{u"unavailableCommand gfio"_s, u"pwdResult /here"_s}));
    }

    void foldersOfSendDirAreRemovedEvenIfNothingArrived()
    {
        QVERIFY(FileTree::write(m_client->path(u"one/a.txt"_s), "a"));
        QVERIFY(FileTree::write(m_client->path(u"two/b.txt"_s), "b"));
        RawServer server(scripted(todayBut("sndf", 0), [](auto &peer) {
            peer.answer(frame(path(u"/here"_s)));
            peer.readToEnd();
        }));
        QVERIFY(m_client->open(server.port()));
        QTRY_COMPARE(m_client->emptied, 1);
        const auto inWorker = [](SClientFtp &client) {
            const auto calls = [&client] {
                client.sendDir(u"one"_s, QString(), true);
                client.sendDir(u"two"_s, QString(), true);
                client.pwd();
            };
            QMetaObject::invokeMethod(&client, calls, Qt::BlockingQueuedConnection);
        };
        QVERIFY(m_client->run(inWorker));
        QTRY_COMPARE(
            m_client->log,
            (QStringList{u"unavailableCommand sndf"_s, u"unavailableCommand sndf"_s,
                         u"pwdResult /here"_s, u"localDirRemoved "_s + m_client->path(u"one"_s),
                         u"localDirRemoved "_s + m_client->path(u"two"_s)}));
        QVERIFY(FileTree::below(m_client->folder()).isEmpty());
    }

    // Names in lists of files

    void listedFilesLandBelowTheTarget_data()
    {
        QTest::addColumn<bool>("hasRoot");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("local");
        QTest::addColumn<QString>("target");
        for (const bool hasRoot : {true, false}) {
            const auto row = [hasRoot](const char *what) -> QTestData & {
                return QTest::addRow("%s, %s a root", what, hasRoot ? "with" : "without")
                       << hasRoot;
            };
            row("below the base") << u"/srv/in/a/b.txt"_s << u"got"_s << u"got/a/b.txt"_s;
            row("no target") << u"/srv/in/a/b.txt"_s << QString() << u"a/b.txt"_s;
            row("going up") << u"/srv/in/../../etc/b.txt"_s << u"got"_s << u"b.txt"_s;
            row("somewhere else") << u"/etc/b.txt"_s << u"got"_s << u"b.txt"_s;
            row("beside the base") << u"/srv/info/b.txt"_s << u"got"_s << u"got/fo/b.txt"_s;
            row("relative and going up") << u"../../b.txt"_s << u"got"_s << u"b.txt"_s;
            row("the base itself") << u"/srv/in"_s << u"got"_s << u"in"_s;
        }
        QTest::newRow("target outside the root")
            << true << u"/srv/in/a/b.txt"_s << u"/elsewhere"_s << u"a/b.txt"_s;
    }
    void listedFilesLandBelowTheTarget()
    {
        QFETCH(const bool, hasRoot);
        QFETCH(const QString, name);
        QFETCH(const QString, local);
        QFETCH(const QString, target);
        RawServer server(scripted(today(), [&](auto &peer) {
            peer.answer(frame(path(u"/srv/in"_s) + names({name})));
            peer.answer(u64(1) + 'A');
            peer.readToEnd();
        }));
        m_client->configure = [this, hasRoot](JailedClient &client) {
            QVERIFY(!hasRoot || client.setRootPath(m_client->folder()));
        };
        QVERIFY(m_client->open(server.port()));
        QVERIFY(m_client->run(
            [&](SClientFtp &client) { client.getFiles(u"/srv/in"_s, QString(), local, true); }, 2));
        QCOMPARE(m_client->log.last(), u"getFileFinished "_s + m_client->path(target));
        QCOMPARE(FileTree::read(m_client->path(target)), "A");
    }

    void listedNameOfAFolderEndsTheSessionAndKeepsTheFolder()
    {
        QVERIFY(FileTree::write(m_client->path(u"got/kept.txt"_s), "kept"));
        RawServer server(scripted(today(), [&](auto &peer) {
            peer.answer(frame(path(u"/srv"_s) + names({u"/srv/got"_s})));
            peer.answer(u64(1) + 'A');
            peer.readToEnd();
        }));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(!m_client->run(
            [](SClientFtp &client) { client.getFiles(u"/srv"_s, QString(), QString(), true); }, 2));
        QCOMPARE(m_client->results, (QStringList{u"gfls true"_s, u"getf false"_s}));
        QVERIFY(m_client->waitForEnd());
        QCOMPARE(FileTree::below(m_client->folder()), (QStringList{u"got/"_s, u"got/kept.txt"_s}));
    }

    // Transfers from the server

    void refusedFileEatsTheNackAsHalfASize()
    {
        QVERIFY(FileTree::write(m_client->path(u"a.txt"_s), "older"));
        RawServer server(scripted(today(), [](auto &peer) {
            peer.readCommand();
            peer.send(ack() + nack());
        }));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(!m_client->run([](SClientFtp &client) { client.getFile(u"x/a.txt"_s); }));
        const QString target = m_client->path(u"a.txt"_s);
        QCOMPARE(m_client->log,
                 (QStringList{u"getFileStarted "_s + target, u"getFileFinished "_s + target}));
        QCOMPARE(m_client->progress, (QList<std::pair<qint64, qint64>>{{0, 0}}));
        QCOMPARE(m_client->results, QStringList{u"getf false"_s});
        QCOMPARE(FileTree::read(target), "");
        QVERIFY(m_client->waitForEnd());
    }

    // Only for a file is it no failure as yet that a server falls silent: it is empty then. With
    // the connection all is lost but what was there before.
    void sizeThatDoesNotCome_data()
    {
        QTest::addColumn<bool>("device");
        QTest::addColumn<bool>("closes");
        QTest::newRow("file, the server closes") << false << true;
        QTest::newRow("file, the server falls silent") << false << false;
        QTest::newRow("device, the server closes") << true << true;
        QTest::newRow("device, the server falls silent") << true << false;
    }
    void sizeThatDoesNotCome()
    {
        QFETCH(const bool, device);
        QFETCH(const bool, closes);
        for (qsizetype size = 0; size < 8; size += closes ? 1 : 7) {
            RawServer server(scripted(today(), [&](auto &peer) {
                peer.readCommand();
                peer.send(ack() + u64(100).first(size));
                if (!closes)
                    peer.readToEnd();
            }));
            m_client = std::make_unique<FileClient>();
            m_client->timeout = kShortTimeoutMs;
            const QString target = m_client->path(u"a.txt"_s);
            QVERIFY(FileTree::write(target, "older"));
            QVERIFY(m_client->open(server.port()));
            QBuffer buffer;
            QVERIFY(!m_client->run([&](SClientFtp &client) {
                device ? client.getDevice(u"a.txt"_s, &buffer) : client.getFile(u"a.txt"_s);
            }));
            const bool becomesEmpty = !device && !closes;
            QStringList expected{device ? u"getDeviceStarted"_s : u"getFileStarted "_s + target};
            if (becomesEmpty)
                expected.append(u"getFileFinished "_s + target);
            QCOMPARE(m_client->log, expected);
            QCOMPARE(FileTree::read(target), becomesEmpty ? "" : "older");
            QCOMPARE(buffer.isOpen(), device);
            QCOMPARE(m_client->results.size(), 1);
            QVERIFY(m_client->waitForEnd());
            QCOMPARE(FileTree::below(m_client->folder()), QStringList{u"a.txt"_s});
        }
    }

    // A server that takes the command back says so; a piece of that says nothing.
    void wordInThePlaceOfTheSize_data()
    {
        QTest::addColumn<QByteArray>("word");
        QTest::addColumn<bool>("becomesEmpty");
        QTest::newRow("nack") << nack() << true;
        QTest::newRow("a part of nack") << nack().first(3) << false;
        QTest::newRow("nack and more") << nack() + '\0' << true;
        QTest::newRow("ack") << ack() << false;
    }
    void wordInThePlaceOfTheSize()
    {
        QFETCH(const QByteArray, word);
        QFETCH(const bool, becomesEmpty);
        RawServer server(scripted(today(), [&](auto &peer) {
            peer.readCommand();
            peer.send(ack() + word);
        }));
        m_client = std::make_unique<FileClient>();
        const QString target = m_client->path(u"a.txt"_s);
        QVERIFY(FileTree::write(target, "older"));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(!m_client->run([](SClientFtp &client) { client.getFile(u"a.txt"_s); }));
        QCOMPARE(FileTree::read(target), becomesEmpty ? "" : "older");
        QCOMPARE(m_client->results, QStringList{u"getf false"_s});
        QVERIFY(m_client->waitForEnd());
        QCOMPARE(FileTree::below(m_client->folder()), QStringList{u"a.txt"_s});
    }

    // Nobody has said that there is no such file.
    void stopBeforeTheSizeLeavesTheFile()
    {
        RawServer server(scripted(today(), [](auto &peer) {
            peer.readCommand();
            peer.send(ack());
            peer.readToEnd();
        }));
        m_client = std::make_unique<FileClient>();
        m_client->timeout = kShortTimeoutMs;
        const QString target = m_client->path(u"a.txt"_s);
        QVERIFY(FileTree::write(target, "older"));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(!m_client->run([](SClientFtp &client) {
            QObject::connect(
                &client, &SClientFtp::getFileStarted, &client,
                [] { QThread::currentThread()->requestInterruption(); }, Qt::DirectConnection);
            client.getFile(u"a.txt"_s);
        }));
        QCOMPARE(FileTree::read(target), "older");
        QVERIFY(m_client->waitForEnd());
        QCOMPARE(FileTree::below(m_client->folder()), QStringList{u"a.txt"_s});
    }

    // The base is a directory of the server, which is missing here.
    void strictClientKeepsTheTreeOfAnotherMachine_data()
    {
        QTest::addColumn<Operation>("operation");
        QTest::newRow("getDir") << Operation(
            [](SClientFtp &client) { client.getDir(u"in"_s, u"got"_s, false); });
        QTest::newRow("getFiles") << Operation(
            [](SClientFtp &client) { client.getFiles(u"in"_s, u"*"_s, u"got"_s, true); });
    }
    void strictClientKeepsTheTreeOfAnotherMachine()
    {
        QFETCH(const Operation, operation);
        RawServer server(scripted(today(), [](auto &peer) {
            peer.answer(frame(path(u"/absent/in"_s) +
                              names({u"/absent/in/a.txt"_s, u"/absent/in/sub/a.txt"_s})));
            peer.answer(u64(1) + 'a');
            peer.answer(u64(1) + 'b');
            peer.readToEnd();
        }));
        m_client->configure = [this](JailedClient &client) {
            QVERIFY(client.setRootPath(m_client->folder()));
            client.setStrictJail(true);
        };
        QVERIFY(m_client->open(server.port()));
        QVERIFY(m_client->run(operation, 3));
        QCOMPARE(FileTree::read(m_client->path(u"got/a.txt"_s)), "a");
        QCOMPARE(FileTree::read(m_client->path(u"got/sub/a.txt"_s)), "b");
        QCOMPARE(FileTree::below(m_client->folder()),
                 (QStringList{u"got/"_s, u"got/a.txt"_s, u"got/sub/"_s, u"got/sub/a.txt"_s}));
    }

    void negativeSizeMeansNoBytes()
    {
        RawServer server(scripted(today(), [](auto &peer) {
            peer.answer(i64(-5));
            peer.readToEnd();
        }));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(m_client->run([](SClientFtp &client) { client.getFile(u"a.txt"_s); }));
        QCOMPARE(m_client->progress, (QList<std::pair<qint64, qint64>>{{-5, -5}}));
        QCOMPARE(FileTree::read(m_client->path(u"a.txt"_s)), "");
    }

    void placeWhereNoFileCanBeMadeEndsTheSession_data()
    {
        QTest::addColumn<QString>("target");
        QTest::newRow("a folder that cannot be made") << u"file/new/a.txt"_s;
        QTest::newRow("a folder that takes no files") << u"/proc/a.txt"_s;
    }
    void placeWhereNoFileCanBeMadeEndsTheSession()
    {
        QFETCH(const QString, target);
        QVERIFY(FileTree::write(m_client->path(u"file"_s), "kept"));
        RawServer server(scripted(today(), [](auto &peer) {
            peer.answer(u64(1) + 'A');
            peer.readToEnd();
        }));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(!m_client->run([&](SClientFtp &client) { client.getFile(u"a.txt"_s, target); }));
        QVERIFY(m_client->log.isEmpty());
        QCOMPARE(m_client->results, QStringList{u"getf false"_s});
        QVERIFY(m_client->waitForEnd());
        QCOMPARE(FileTree::below(m_client->folder()), QStringList{u"file"_s});
        QCOMPARE(FileTree::read(m_client->path(u"file"_s)), "kept");
    }

    void moreBytesThanAnnouncedAreNoCompletion()
    {
        RawServer server(scripted(today(), [](auto &peer) {
            peer.answer(u64(3) + "12345");
            peer.readToEnd();
        }));
        QVERIFY(m_client->open(server.port()));
        QVERIFY(!m_client->run([](SClientFtp &client) { client.getFile(u"a.txt"_s); }));
        QCOMPARE(m_client->results, QStringList{u"getf false"_s});
        QCOMPARE(FileTree::read(m_client->path(u"a.txt"_s)), "123");
        QVERIFY(m_client->waitForEnd());
    }

    void brokenTransferLeavesNothing_data()
    {
        QTest::addColumn<bool>("device");
        QTest::addColumn<qint64>("claimed");
        QTest::addColumn<QByteArray>("sent");
        QTest::addColumn<bool>("closes");
        for (const bool device : {false, true}) {
            const char *const what = device ? "device" : "file";
            QTest::addRow("%s, the server vanishes", what)
                << device << qint64(100) << QByteArray(50, 'x') << true;
            QTest::addRow("%s, the server vanishes after a large part", what)
                << device << qint64(3000000) << QByteArray(2000000, 'x') << true;
            QTest::addRow("%s, the server falls silent", what)
                << device << qint64(100) << QByteArray(50, 'x') << false;
            QTest::addRow("%s, the server sends the size only", what)
                << device << qint64(100) << QByteArray() << false;
            QTest::addRow("%s, the server claims 4 EiB", what)
                << device << (qint64(1) << 62) << QByteArray(300000, 'x') << false;
        }
    }
    void brokenTransferLeavesNothing()
    {
        QFETCH(const bool, device);
        QFETCH(const qint64, claimed);
        QFETCH(const QByteArray, sent);
        QFETCH(const bool, closes);
        QVERIFY(FileTree::write(m_client->path(u"a.bin"_s), "older"));
        RawServer server(scripted(today(), [&](auto &peer) {
            peer.readCommand();
            peer.send(ack() + i64(claimed) + sent);
            if (!closes)
                peer.readToEnd();
        }));
        m_client->timeout = kShortTimeoutMs;
        QVERIFY(m_client->open(server.port()));
        const qsizetype descriptors = ProcessFacts::descriptors();
        QBuffer buffer;
        QVERIFY(!m_client->run([&](SClientFtp &client) {
            if (device)
                client.getDevice(u"a.bin"_s, &buffer);
            else
                client.getFile(u"a.bin"_s);
        }));
        QCOMPARE(m_client->log.size(), 1);
        QVERIFY(m_client->waitForEnd());
        QVERIFY(server.finishes());
        QCOMPARE(FileTree::below(m_client->folder()), QStringList{u"a.bin"_s});
        QCOMPARE(FileTree::read(m_client->path(u"a.bin"_s)), "older");
        QCOMPARE(buffer.isOpen(), device);
        QTRY_VERIFY(ProcessFacts::descriptors() < descriptors);
    }

    void stopInTheMiddleOfATransferIsSeenAtOnce_data()
    {
        QTest::addColumn<bool>("sends");
        QTest::newRow("getFile") << false;
        QTest::newRow("sendFile") << true;
    }
    void stopInTheMiddleOfATransferIsSeenAtOnce()
    {
        QFETCH(const bool, sends);
        QFile large(m_client->path(u"large.bin"_s));
        QVERIFY(large.open(QIODevice::WriteOnly) && large.resize(256 << 20));
        large.close();
        // Takes and sends a little now and then, for ever.
        RawServer server(scripted(today(), [](auto &peer) {
            peer.readCommand();
            peer.send(ack() + u64(1000000));
            const QDeadlineTimer deadline(kPatienceMs);
            while (isThere(peer) && !deadline.hasExpired() && peer.send("x"))
                peer.socket().waitForReadyRead(20);
        }));
        QVERIFY(m_client->open(server.port()));
        m_client->forget();
        if (sends)
            m_client->client()->sendFile(u"large.bin"_s, u"b"_s);
        else
            m_client->client()->getFile(u"b"_s);
        QTRY_COMPARE(m_client->log.size(), 1);
        QElapsedTimer stopping;
        stopping.start();
        m_client->controller().interruptWorkers();
        QVERIFY(m_client->waitForEnd());
        QVERIFY(stopping.elapsed() < 2000);
        QCOMPARE(FileTree::below(m_client->folder()), QStringList{u"large.bin"_s});
    }

    void negativeTimeoutHasNoIdleLimit()
    {
        RawServer server(scripted(today(), [](auto &peer) {
            peer.readCommand();
            peer.send(ack() + u64(2) + "a");
            QThread::msleep(600);
            peer.send("b" + ack());
            peer.readToEnd();
        }));
        m_client->timeout = -1;
        QVERIFY(m_client->open(server.port()));
        QVERIFY(m_client->run([](SClientFtp &client) { client.getFile(u"a.txt"_s); }));
        QCOMPARE(FileTree::read(m_client->path(u"a.txt"_s)), "ab");
    }

    void progressComesAtMostTenTimesASecond()
    {
        RawServer server(scripted(today(), [](auto &peer) {
            peer.readCommand();
            peer.send(ack() + u64(100));
            peer.drip(QByteArray(100, 'x'), 6);
            peer.send(ack());
            peer.readToEnd();
        }));
        QVERIFY(m_client->open(server.port()));
        QElapsedTimer taken;
        taken.start();
        QVERIFY(m_client->run([](SClientFtp &client) { client.getFile(u"a.txt"_s); }));
        const qsizetype most = taken.elapsed() / 100 + 1;
        QVERIFY(m_client->progress.size() <= most);
        QVERIFY(m_client->progress.size() >= 3);
        QCOMPARE(m_client->progress.last(), (std::pair<qint64, qint64>{100, 100}));
    }

    // Transfers to the server

    void sourceOutsideTheRootInTheHandlerEndsTheSession()
    {
        const QTemporaryDir outside;
        const QString source = outside.filePath(u"a.txt"_s);
        QVERIFY(FileTree::write(source, "secret"));
        QByteArray sent;
        RawServer server(scripted(today(), [&](auto &peer) {
            peer.readCommand();
            peer.send(ack());
            sent = peer.read(1);
        }));
        m_client->configure = [this](JailedClient &client) {
            QVERIFY(client.setRootPath(m_client->folder()));
        };
        QVERIFY(m_client->open(server.port()));
        QVERIFY(!m_client->run([&](SClientFtp &client) {
            static_cast<JailedClient &>(client).enqueueCommand(
                new SCommandSendFile(source, u"b"_s, true));
        }));
        QVERIFY(m_client->log.isEmpty());
        QCOMPARE(m_client->results, QStringList{u"sndf false"_s});
        QVERIFY(m_client->waitForEnd());
        QVERIFY(server.finishes());
        QCOMPARE(sent, "");
        QCOMPARE(FileTree::read(source), "secret");
    }

    void serverThatStopsReadingCostsTheTimeout_data()
    {
        QTest::addColumn<bool>("device");
        QTest::newRow("sendFile") << false;
        QTest::newRow("sendDevice") << true;
    }
    void serverThatStopsReadingCostsTheTimeout()
    {
        QFETCH(const bool, device);
        QFile large(m_client->path(u"large.bin"_s));
        QVERIFY(large.open(QIODevice::WriteOnly) && large.resize(256 << 20));
        large.close();
        QSemaphore over;
        RawServer server(scripted(today(), [&](auto &peer) {
            peer.readCommand();
            peer.send(ack());
            over.tryAcquire(1, kPatienceMs);
        }));
        m_client->timeout = kShortTimeoutMs;
        QVERIFY(m_client->open(server.port()));
        const TestShared::HeldMemoryPeak peak;
        QVERIFY(!m_client->run([&](SClientFtp &client) {
            if (device)
                client.sendDevice(&large, u"b"_s);
            else
                client.sendFile(u"large.bin"_s, u"b"_s, true);
        }));
        over.release();
        QVERIFY(m_client->waitForEnd());
        QCOMPARE(m_client->log.size(), 1);
        QVERIFY(large.exists());
        QCOMPARE(large.isOpen(), device);
        QVERIFY(peak.growth() < kAllowedBytes);
        large.close();
    }

    void serverThatVanishesDuringASendEndsTheSession()
    {
        QFile large(m_client->path(u"large.bin"_s));
        QVERIFY(large.open(QIODevice::WriteOnly) && large.resize(256 << 20));
        large.close();
        RawServer server(scripted(today(), [&](auto &peer) {
            peer.readCommand();
            peer.send(ack());
            peer.read(1000000);
            peer.vanish();
        }));
        QVERIFY(m_client->open(server.port()));
        QElapsedTimer ending;
        ending.start();
        QVERIFY(!m_client->run(
            [](SClientFtp &client) { client.sendFile(u"large.bin"_s, u"b"_s, true); }));
        QVERIFY(m_client->waitForEnd());
        QVERIFY(ending.elapsed() < 5000);
        QVERIFY(large.exists());
    }

private:
    /*!
     * Cuts the answer at each byte. A result that does not come is reported as a refusal, any other
     * reply that is not whole in no way.
     */
    void verifyCuts(const RawHandshake &handshake, const Operation &operation,
                    const QByteArray &reply, const QStringList &expected)
    {
        const QByteArray whole = ack() + reply + ack();
        const qsizetype end = ack().size() + reply.size();
        QStringList unanswered;
        if (reply.size() == 1)
            unanswered = QStringList(expected).replaceInStrings(u"true"_s, u"false"_s);
        for (qsizetype size = 0; size < whole.size(); ++size) {
            RawServer server(scripted(handshake, [&](auto &peer) {
                peer.readCommand();
                peer.send(whole.first(size));
            }));
            m_client = std::make_unique<FileClient>();
            QVERIFY(m_client->open(server.port()));
            QVERIFY2(!m_client->run(operation), qPrintable(QString::number(size)));
            if (size < ack().size())
                QCOMPARE(m_client->log, QStringList());
            else
                QCOMPARE(m_client->log, size < end ? unanswered : expected);
            QCOMPARE(m_client->results.size(), 1);
            QVERIFY(m_client->waitForEnd());
            QVERIFY(server.finishes());
        }
    }

    struct Reply
    {
        QByteArray bytes;
        QStringList log;
    };

    struct Row
    {
        QByteArray name;
        Operation operation;
        Reply reply;
    };

    //! A reply that goes well, for each command whose reply is not a file.
    static QList<Row> replies()
    {
        using Self = SClientFtp;
        const QString a = u"a"_s;
        const auto yes = [](const QString &signal) { return Reply{"\1", {signal + u" true"_s}}; };
        return {
            {"changeDir", op(&Self::changeDir, a), yes(u"changeDirResult"_s)},
            {"homeDir", op(&Self::homeDir), yes(u"changeDirResult"_s)},
            {"makeDir", op(&Self::makeDir, a), yes(u"makeDirResult"_s)},
            {"removeDir", op(&Self::removeDir, a), yes(u"removeDirResult"_s)},
            {"removeFile", op(&Self::removeFile, a), yes(u"removeFileResult"_s)},
            {"renameDir", op(&Self::renameDir, a, a), yes(u"renameDirResult"_s)},
            {"renameFile", op(&Self::renameFile, a, a), yes(u"renameFileResult"_s)},
            {"copyDir", op(&Self::copyDir, a, a), yes(u"copyDirResult"_s)},
            {"copyFile", op(&Self::copyFile, a, a), yes(u"copyFileResult"_s)},
            {"exists", op(qOverload<const QString &>(&Self::exists), a), yes(u"exists"_s)},
            {"setFilePermissions",
             [](SClientFtp &client) {
                 client.setFilePermissions(u"a"_s, FileEntryFlags::Permissions);
             },
             yes(u"setSetFilePermissionsResult"_s)},
            {"pwd", op(&Self::pwd), {frame(path(u"/a"_s)), {u"pwdResult /a"_s}}},
            {"listDir",
             op(&Self::listDir, a),
             {frame(u32(1) + u32(0x00010000) + path(a) + i64(1) + u32(4)), {u"listDirResult 1"_s}}},
            {"fileSystemSensitivity",
             op(qOverload<>(&Self::fileSystemSensitivity)),
             {u32(1), {u"fileSystemSensitivity true"_s}}},
            {"storageInfo",
             op(&Self::storageInfo),
             {u64(1) + u64(2) + u64(3) + array("ext4"), {u"storageInfoResult 1 2 3 ext4"_s}}},
            {"getFiles",
             [](SClientFtp &client) { client.getFiles(u"a"_s, QString(), u"b"_s, true); },
             {frame(path(u"/a"_s) + names({})), {u"getFilesResult true"_s}}},
            {"getDir",
             [](SClientFtp &client) { client.getDir(u"a"_s, QString()); },
             {frame(path(u"/a"_s) + names({})),
              {u"getDirResult true"_s, u"getFilesResult true"_s}}},
        };
    }

    static void wellFormedReplies()
    {
        QTest::addColumn<Operation>("operation");
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<QStringList>("expected");
        for (const Row &row : replies())
            QTest::newRow(row.name.constData())
                << row.operation << row.reply.bytes << row.reply.log;
    }

    static RawServer::Script scripted(const RawHandshake &handshake, const RawServer::Script &rest)
    {
        return [=](auto &peer) {
            if (handshake(peer))
                rest(peer);
        };
    }

    std::unique_ptr<FileClient> m_client;
};

QTEST_GUILESS_MAIN(tst_SClientFtpWire)
#include "tst_sclientftp_wire.moc"
