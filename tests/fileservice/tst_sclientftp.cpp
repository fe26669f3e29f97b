// SPDX-License-Identifier: MIT
#include "filesession.h"
#include "filetree.h"

#include <shared/filesizelimit.h>
#include <shared/utctime.h>

#include <QtCore/QBuffer>
#include <QtCore/QRegularExpression>
#include <QtCore/QStorageInfo>

#include <atomic>
#include <cerrno>
#include <functional>

using namespace Talverine;
using namespace Qt::StringLiterals;

// The client against the library's own server. What a scripted server makes of it stands in
// tst_sclientftp_wire.cpp.
using Step = std::function<void(SClientFtp &)>;

class tst_SClientFtp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(u"."_s));
        m_server = std::make_unique<FileServer>();
        m_client = std::make_unique<FileClient>();
    }

    void cleanup()
    {
        m_client.reset();
        QVERIFY(m_server->waitForEnd());
        m_server.reset();
    }

    // Construction

    void prototypesFollowThoseOfTheBaseInTheStatedOrder()
    {
        class Client : public SClientFtp
        {
        public:
            using SClientFtp::SClientFtp;
            using SClientFtp::supportedCommands;
        };
        QStringList ids;
        const Client client(QHostAddress(QHostAddress::LocalHost), 1);
        for (const SCommandId &id : client.supportedCommands())
            ids.append(letters(id));
        QCOMPARE(ids.mid(8), (QStringList{u"getf"_s, u"sndf"_s, u"cd__"_s, u"mkd_"_s, u"rmd_"_s,
                                          u"lstd"_s, u"rmf_"_s, u"rnf_"_s, u"rnd_"_s, u"cpyf"_s,
                                          u"cpyd"_s, u"pwd_"_s, u"getd"_s, u"stoi"_s, u"gfls"_s,
                                          u"siof"_s, u"gfio"_s, u"exst"_s, u"fsse"_s, u"aflp"_s}));
    }

    void hostIsPassedToTheBase()
    {
        const SClientFtp client(u"printer.local"_s, 7000, true);
        QCOMPARE(client.host(false), u"printer.local"_s);
        QCOMPARE(client.port(), 7000);
        QVERIFY(client.preferIPv4());
    }

    void everyOperationIsInvocableByName_data()
    {
        QTest::addColumn<QByteArray>("signature");
        for (const char *signature : {"changeDir(QString)",
                                      "homeDir()",
                                      "pwd()",
                                      "listDir(QString)",
                                      "makeDir(QString)",
                                      "removeDir(QString)",
                                      "removeFile(QString)",
                                      "exists(QString)",
                                      "renameDir(QString,QString)",
                                      "renameFile(QString,QString)",
                                      "copyDir(QString,QString)",
                                      "copyFile(QString,QString)",
                                      "setFilePermissions(QString,FileEntryFlags)",
                                      "storageInfo()",
                                      "fileSystemSensitivity()",
                                      "getFile(QString,QString,bool)",
                                      "getFile(QString,bool)",
                                      "getFiles(QString,QString,QString,bool)",
                                      "getDir(QString,QString,bool)",
                                      "getDevice(QString,QIODevice*)",
                                      "sendFile(QString,QString,bool)",
                                      "sendFile(QString,bool)",
                                      "sendFiles(QString,QString,QString,bool)",
                                      "sendDir(QString,QString,bool)",
                                      "sendDevice(QIODevice*,QString)"})
            QTest::newRow(signature) << QByteArray(signature);
    }
    void everyOperationIsInvocableByName()
    {
        QFETCH(const QByteArray, signature);
        const QMetaObject &meta = SClientFtp::staticMetaObject;
        const int index = meta.indexOfMethod(signature.constData());
        QVERIFY(index >= 0);
        QVERIFY(meta.method(index).methodType() != QMetaMethod::Signal);
    }

    void transfersReportAsPercent_data()
    {
        QTest::addColumn<QByteArray>("signal");
        QTest::newRow("getFile") << "getFileTransferredSize"_ba;
        QTest::newRow("sendFile") << "sendFileTransferredSize"_ba;
        QTest::newRow("getDevice") << "getDeviceTransferredSize"_ba;
        QTest::newRow("sendDevice") << "sendDeviceTransferredSize"_ba;
    }
    void transfersReportAsPercent()
    {
        QFETCH(const QByteArray, signal);
        SClientFtp client(QHostAddress(QHostAddress::LocalHost), 1);
        const QSignalSpy transferred(&client, &SClientFtp::transferredBytes);
        const QSignalSpy percent(&client, &SClientFtp::progress);
        QVERIFY(QMetaObject::invokeMethod(&client, signal.constData(), Q_ARG(qint64, 30),
                                          Q_ARG(qint64, 40)));
        QCOMPARE(transferred.size(), 1);
        QCOMPARE(transferred.first(), (QList<QVariant>{30, 40}));
        QCOMPARE(percent.first(), QList<QVariant>{75});
    }

    // Folders and entries of the server

    void changeDirMovesAndPwdTells()
    {
        QVERIFY(QDir(m_server->home()).mkpath(u"a/b"_s));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run(
            [](SClientFtp &client) {
                client.changeDir(u"a"_s);
                client.changeDir(u"b"_s);
                client.pwd();
                client.changeDir(u"missing"_s);
                client.pwd();
                client.homeDir();
                client.pwd();
            },
            7));
        QCOMPARE(
            m_client->log,
            (QStringList{u"changeDirResult true"_s, u"changeDirResult true"_s,
                         u"pwdResult "_s + m_server->path(u"a/b"_s), u"changeDirResult false"_s,
                         u"pwdResult "_s + m_server->path(u"a/b"_s), u"changeDirResult true"_s,
                         u"pwdResult "_s + m_server->home()}));
    }

    void makeDirMakesTheWholePath()
    {
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run(
            [](SClientFtp &client) {
                client.makeDir(u"a/b"_s);
                client.makeDir(u"a/b"_s);
            },
            2));
        QCOMPARE(m_client->log, (QStringList{u"makeDirResult true"_s, u"makeDirResult true"_s}));
        QVERIFY(QFileInfo(m_server->path(u"a/b"_s)).isDir());
    }

    void removeDirTakesAllThatIsInIt()
    {
        QVERIFY(FileTree::write(m_server->path(u"a/b/c.txt"_s), "c"));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run([](SClientFtp &client) { client.removeDir(u"a"_s); }));
        QCOMPARE(m_client->log, QStringList{u"removeDirResult true"_s});
        QVERIFY(FileTree::below(m_server->home()).isEmpty());
    }

    void removeDirTakesALinkAndNotWhatItLeadsTo()
    {
        QVERIFY(FileTree::write(m_server->outside() + u"/kept.txt"_s, "kept"));
        QVERIFY(QFile::link(m_server->outside(), m_server->path(u"link"_s)));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run([](SClientFtp &client) { client.removeDir(u"link"_s); }));
        QCOMPARE(m_client->log, QStringList{u"removeDirResult true"_s});
        QVERIFY(!QFileInfo(m_server->path(u"link"_s)).isSymLink());
        QCOMPARE(FileTree::read(m_server->outside() + u"/kept.txt"_s), "kept");
    }

    void refusalsLeaveTheSessionOpen()
    {
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run(
            [](SClientFtp &client) {
                client.removeFile(u"missing"_s);
                client.renameFile(u"missing"_s, u"other"_s);
                client.renameDir(u"missing"_s, u"other"_s);
                client.exists(u"missing"_s);
                client.setFilePermissions(u"missing"_s, FileEntryFlags::Permissions);
            },
            5));
        QCOMPARE(m_client->log,
                 (QStringList{u"removeFileResult false"_s, u"renameFileResult false"_s,
                              u"renameDirResult false"_s, u"exists false"_s,
                              u"setSetFilePermissionsResult false"_s}));
        QVERIFY(!m_client->ended);
    }

    void entriesAreListedAsTheyAre()
    {
        QVERIFY(FileTree::write(m_server->path(u"sub/ünï.txt"_s), "12345"));
        QVERIFY(FileTree::write(m_server->path(u"sub/.hidden"_s), ""));
        QVERIFY(QDir(m_server->home()).mkpath(u"sub/folder"_s));
        QVERIFY(QFile::link(u"nowhere"_s, m_server->path(u"sub/dangling"_s)));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run([](SClientFtp &client) { client.listDir(u"sub"_s); }));

        QCOMPARE(m_client->entries.size(), 5);
        QCOMPARE(m_client->entries.first().fileName(), u".."_s);
        QHash<QString, SFileEntry> byName;
        for (const SFileEntry &entry : std::as_const(m_client->entries))
            byName.insert(entry.fileName(), entry);
        for (const QString &name : {u"ünï.txt"_s, u".hidden"_s, u"folder"_s, u"dangling"_s})
            QCOMPARE(byName.value(name),
                     SFileEntry::fromFileName(m_server->path(u"sub/"_s + name)));
    }

    void topOfTheJailHasNoParentEntry()
    {
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run([](SClientFtp &client) { client.listDir(QString()); }));
        QCOMPARE(m_client->log, QStringList{u"listDirResult 0"_s});
    }

    void missingFolderListsOnlyItsParent()
    {
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run([](SClientFtp &client) { client.listDir(u"missing"_s); }));
        QCOMPARE(m_client->entries.size(), 1);
        QCOMPARE(m_client->entries.first().fileName(), u".."_s);
    }

    void filesAndFoldersAreRenamed()
    {
        QVERIFY(FileTree::write(m_server->path(u"a.txt"_s), "a"));
        QVERIFY(FileTree::write(m_server->path(u"folder/b.txt"_s), "b"));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run(
            [](SClientFtp &client) {
                client.renameFile(u"a.txt"_s, u"c.txt"_s);
                client.renameDir(u"folder"_s, u"moved"_s);
                client.renameFile(u"moved"_s, u"x"_s);
                client.renameDir(u"c.txt"_s, u"x"_s);
            },
            4));
        QCOMPARE(m_client->log,
                 (QStringList{u"renameFileResult true"_s, u"renameDirResult true"_s,
                              u"renameFileResult false"_s, u"renameDirResult false"_s}));
        QCOMPARE(FileTree::below(m_server->home()),
                 (QStringList{u"c.txt"_s, u"moved/"_s, u"moved/b.txt"_s}));
    }

    void filesAndFoldersAreCopied()
    {
        const QByteArray content = FileTree::content(300000);
        QVERIFY(FileTree::write(m_server->path(u"folder/deep/a.bin"_s), content));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run(
            [](SClientFtp &client) {
                client.copyFile(u"folder/deep/a.bin"_s, u"b.bin"_s);
                client.copyDir(u"folder"_s, u"copy"_s);
                client.copyDir(u"folder"_s, u"copy"_s);
                client.copyFile(u"folder"_s, u"x"_s);
                client.pwd();
            },
            5));
        QCOMPARE(m_client->log, (QStringList{u"copyFileResult true"_s, u"copyDirResult true"_s,
                                             u"copyDirResult false"_s, u"copyFileResult false"_s,
                                             u"pwdResult "_s + m_server->home()}));
        QCOMPARE(FileTree::read(m_server->path(u"b.bin"_s)), content);
        QCOMPARE(FileTree::read(m_server->path(u"copy/deep/a.bin"_s)), content);
    }

    void existenceIsTold()
    {
        QVERIFY(FileTree::write(m_server->path(u"a.txt"_s), "a"));
        QVERIFY(QFile::link(u"nowhere"_s, m_server->path(u"dangling"_s)));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run(
            [](SClientFtp &client) {
                client.exists(u"a.txt"_s);
                client.exists(QString());
                client.exists(u"dangling"_s);
            },
            3));
        QCOMPARE(m_client->log,
                 (QStringList{u"exists true"_s, u"exists true"_s, u"exists false"_s}));
    }

    void permissionsAreSet()
    {
        const QString file = m_server->path(u"a.txt"_s);
        QVERIFY(FileTree::write(file, "a"));
        QVERIFY(m_client->open(m_server->port()));
        const auto wanted = QFileDevice::ReadOwner | QFileDevice::ReadUser | QFileDevice::ExeGroup;
        QVERIFY(m_client->run([&](SClientFtp &client) {
            client.setFilePermissions(u"a.txt"_s,
                                      SFileEntry::qtPermissionsToFileEntryFlagsToQt(wanted));
        }));
        QCOMPARE(m_client->log, QStringList{u"setSetFilePermissionsResult true"_s});
        QCOMPARE(QFile::permissions(file) &
                     (QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup |
                      QFileDevice::ExeGroup | QFileDevice::ReadOther),
                 QFileDevice::ReadOwner | QFileDevice::ExeGroup);
    }

    void setFilePermissionsWithoutPermissionsEndsTheSession()
    {
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(!m_client->run([](SClientFtp &client) {
            client.setFilePermissions(u"a.txt"_s, FileEntryFlags::Readable);
        }));
        QVERIFY(m_client->waitForEnd());
    }

    void storageIsThatOfTheCurrentDirectory()
    {
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run([](SClientFtp &client) { client.storageInfo(); }));
        const QStringList words = m_client->log.value(0).split(u' ');
        QCOMPARE(words.size(), 5);
        const QStorageInfo storage(m_server->home());
        QCOMPARE(words.at(2).toLongLong(), storage.bytesTotal());
        QVERIFY(words.at(1).toLongLong() <= words.at(3).toLongLong());
        QVERIFY(words.at(3).toLongLong() > 0);
        QCOMPARE(words.at(4).toLatin1(), storage.fileSystemType());
    }

    void sensitivityToCaseIsTold()
    {
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run([](SClientFtp &client) { client.fileSystemSensitivity(); }));
        QCOMPARE(m_client->log, QStringList{u"fileSystemSensitivity true"_s});
        QCOMPARE(m_server->log, QStringList{u"fileSystemSensitivityCheck"_s});
    }

    // Files from the server

    void filesOfEverySizeAreFetched_data() { sizes(); }
    void filesOfEverySizeAreFetched()
    {
        QFETCH(const qint64, size);
        const QByteArray content = FileTree::content(size);
        QVERIFY(FileTree::write(m_server->path(u"a.bin"_s), content));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run([this](SClientFtp &client) {
            client.getFile(u"a.bin"_s, m_client->path(u"b.bin"_s), false);
        }));
        const QString target = m_client->path(u"b.bin"_s);
        QCOMPARE(m_client->log,
                 (QStringList{u"getFileStarted "_s + target, u"getFileFinished "_s + target}));
        verifyProgress(size);
        QCOMPARE(FileTree::below(m_client->folder()), QStringList{u"b.bin"_s});
        QVERIFY(FileTree::read(target) == content);
        const QString source = m_server->path(u"a.bin"_s);
        QTRY_COMPARE(m_server->log, (QStringList{u"getFileStarted "_s + source,
                                                 u"getFileFinished %1 false"_s.arg(source)}));
    }

    void zeroByteFileIsCreatedEmpty()
    {
        QVERIFY(FileTree::write(m_server->path(u"empty"_s), ""));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run([](SClientFtp &client) { client.getFile(u"empty"_s, QString()); }));
        const QString target = m_client->path(u"empty"_s);
        QCOMPARE(m_client->log,
                 (QStringList{u"getFileStarted "_s + target, u"getFileFinished "_s + target}));
        QCOMPARE(m_client->progress, (QList<std::pair<qint64, qint64>>{{0, 0}}));
        QCOMPARE(FileTree::read(target), "");
    }

    void getFileMakesTheFolderOfTheTarget()
    {
        QVERIFY(FileTree::write(m_server->path(u"a.txt"_s), "a"));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run(
            [](SClientFtp &client) { client.getFile(u"a.txt"_s, u"new/deep/b.txt"_s); }));
        QCOMPARE(FileTree::read(m_client->path(u"new/deep/b.txt"_s)), "a");
    }

    void getFileWithoutALocalNameTakesTheRemoteOne()
    {
        QVERIFY(FileTree::write(m_server->path(u"sub/a.txt"_s), "a"));
        m_client->configure = [this](JailedClient &client) {
            QVERIFY(client.setRootPath(m_client->folder()));
        };
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run([](SClientFtp &client) { client.getFile(u"sub/a.txt"_s); }));
        QCOMPARE(FileTree::below(m_client->folder()), QStringList{u"a.txt"_s});
        QCOMPARE(FileTree::read(m_client->path(u"a.txt"_s)), "a");
    }

    void getFileReplacesTheTargetAndRemovesTheSource()
    {
        QVERIFY(FileTree::write(m_server->path(u"a.txt"_s), "new"));
        QVERIFY(FileTree::write(m_client->path(u"a.txt"_s), "older and longer"));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run([](SClientFtp &client) { client.getFile(u"a.txt"_s, true); }));
        QCOMPARE(FileTree::read(m_client->path(u"a.txt"_s)), "new");
        QVERIFY(FileTree::below(m_server->home()).isEmpty());
        QTRY_COMPARE(m_server->log.value(1),
                     u"getFileFinished %1 true"_s.arg(m_server->path(u"a.txt"_s)));
    }

    void refusedGetFileEmptiesTheTargetAndFails_data()
    {
        QTest::addColumn<QString>("remote");
        QTest::newRow("missing") << u"missing"_s;
        QTest::newRow("a folder") << u"folder"_s;
        QTest::newRow("outside the jail") << u"../outside/secret.txt"_s;
        QTest::newRow("a link to nowhere") << u"dangling"_s;
    }
    void refusedGetFileEmptiesTheTargetAndFails()
    {
        QFETCH(const QString, remote);
        QVERIFY(QDir(m_server->home()).mkpath(u"folder"_s));
        QVERIFY(QFile::link(u"nowhere"_s, m_server->path(u"dangling"_s)));
        QVERIFY(FileTree::write(m_server->outside() + u"/secret.txt"_s, "secret"));
        const QString target = m_client->path(u"a.txt"_s);
        QVERIFY(FileTree::write(target, "older"));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(!m_client->run([&](SClientFtp &client) { client.getFile(remote, target, false); }));

        QCOMPARE(m_client->log,
                 (QStringList{u"getFileStarted "_s + target, u"getFileFinished "_s + target}));
        QCOMPARE(m_client->progress, (QList<std::pair<qint64, qint64>>{{0, 0}}));
        QCOMPARE(m_client->results, QStringList{u"getf false"_s});
        QCOMPARE(FileTree::below(m_client->folder()), QStringList{u"a.txt"_s});
        QCOMPARE(FileTree::read(target), "");
        QVERIFY(m_client->waitForEnd());
        QVERIFY(m_server->log.isEmpty());
    }

    void namesThatNoFileMayHaveAreFixed()
    {
        QVERIFY(FileTree::write(m_server->path(u"a?b.txt"_s), "ab"));
        QVERIFY(m_client->open(m_server->port()));
        QTest::ignoreMessage(
            QtDebugMsg,
            QRegularExpression(u"SPartialFileManager: Wrong file name detected! Trying to fix "
                               "it!.*a\\?b\\.txt"_s));
        QVERIFY(m_client->run([](SClientFtp &client) { client.getFile(u"a?b.txt"_s); }));
        QCOMPARE(FileTree::below(m_client->folder()), QStringList{u"a_b.txt"_s});
    }

    void namesOfEveryKindTravel_data()
    {
        QTest::addColumn<QString>("name");
        for (const QString &name :
             {u".hidden"_s, u"50%2 off %1.txt"_s, u"a%20b"_s, u"ünï ☃ 𝄞"_s, u" lead"_s, u"trail "_s,
              u"-rf"_s, u"a;b"_s, u"back\\slash"_s, u"new\nline"_s, QString(255, u'x')})
            QTest::newRow(qPrintable(name.left(20).simplified())) << name;
    }
    void namesOfEveryKindTravel()
    {
        QFETCH(const QString, name);
        QVERIFY(FileTree::write(m_client->path(u"out/"_s + name), "content"));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run([](SClientFtp &client) { client.sendDir(u"out"_s, u"up"_s); }));
        QCOMPARE(FileTree::below(m_server->home()), (QStringList{u"up/"_s, u"up/"_s + name}));
        QVERIFY(m_client->run([](SClientFtp &client) { client.getDir(u"up"_s, u"back"_s); }, 2));
        QCOMPARE(FileTree::read(m_client->path(u"back/"_s + name)), "content");
    }

    void dateAndPermissionsDoNotTravel()
    {
        const QDateTime old = utcTime(QDate(2001, 2, 3), QTime(4, 5, 6));
        QFile source(m_server->path(u"a.txt"_s));
        QVERIFY(source.open(QIODevice::WriteOnly));
        QVERIFY(source.setFileTime(old, QFileDevice::FileModificationTime));
        QVERIFY(source.setPermissions(QFileDevice::ReadOwner | QFileDevice::ExeOwner));
        source.close();
        QVERIFY(FileTree::write(m_client->path(u"fresh.txt"_s), "fresh"));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run([](SClientFtp &client) { client.getFile(u"a.txt"_s); }));
        const QFileInfo fresh(m_client->path(u"fresh.txt"_s));
        const QFileInfo fetched(m_client->path(u"a.txt"_s));
        QCOMPARE(fetched.permissions(), fresh.permissions());
        QVERIFY(fetched.lastModified() >= fresh.lastModified());
    }

    void failureAtAFileOfThisMachineIsNamed_data()
    {
        QTest::addColumn<Step>("step");
        QTest::addColumn<QString>("reason");
        const auto row = [](const char *name, const Step &step, const QString &reason) {
            QTest::newRow(name) << step << reason;
        };
        row(
            "the directory is a file", [](SClientFtp &c) { c.getFile(u"a.txt"_s, u"file/x"_s); },
            u"the directory cannot be created"_s);
        row(
            "a directory has the name", [](SClientFtp &c) { c.getFile(u"a.txt"_s, u"folder"_s); },
            u"the file cannot be put in its place"_s);
        row(
            "the disk is full", [](SClientFtp &c) { c.getFile(u"large"_s, u"large"_s); },
            qt_error_string(EFBIG));
        row(
            "the partial file cannot be opened",
            [](SClientFtp &c) { c.getFile(u"a.txt"_s, u"/proc/self/x"_s); },
            qt_error_string(ENOENT));
        row(
            "the source is missing", [](SClientFtp &c) { c.sendFile(u"missing"_s); },
            u"there is no such regular file"_s);
        row(
            "the source is a directory", [](SClientFtp &c) { c.sendFile(u"folder"_s); },
            u"there is no such regular file"_s);
        row(
            "the server has no such file", [](SClientFtp &c) { c.getFile(u"missing"_s); },
            QString());
        row(
            "the transfer succeeds", [](SClientFtp &c) { c.getFile(u"a.txt"_s); }, QString());
    }
    void failureAtAFileOfThisMachineIsNamed()
    {
        QFETCH(const Step, step);
        QFETCH(const QString, reason);
        QVERIFY(FileTree::write(m_server->path(u"a.txt"_s), "content"));
        QVERIFY(FileTree::write(m_server->path(u"large"_s), QByteArray(2 << 20, 'x')));
        QVERIFY(FileTree::write(m_client->path(u"file"_s), "older"));
        QVERIFY(FileTree::write(m_client->path(u"folder/kept"_s), "kept"));
        const FileSizeLimit limit(1 << 20);
        QString noted = u"no result"_s;
        m_client->configure = [&noted](SClientFtp &client) {
            QObject::connect(
                &client, &SClientFtp::commandResult, &client,
                [&noted, &client] { noted = client.localError(); }, Qt::DirectConnection);
        };
        QVERIFY(m_client->open(m_server->port()));
        m_client->run(step);
        QCOMPARE(noted, reason);
    }

    // Most of the file has not been sent when the server gives up.
    void refusalInTheMiddleOfAFileIsKnown_data()
    {
        QTest::addColumn<bool>("isDevice");
        QTest::newRow("sendFile") << false;
        QTest::newRow("sendDevice") << true;
    }
    void refusalInTheMiddleOfAFileIsKnown()
    {
        QFETCH(const bool, isDevice);
        QVERIFY(FileTree::write(m_client->path(u"large"_s), QByteArray(32 << 20, 'x')));
        QFile device(m_client->path(u"large"_s));
        const FileSizeLimit limit(1 << 20);
        std::atomic_bool isRefused = false;
        m_client->configure = [&isRefused](SClientFtp &client) {
            QObject::connect(
                &client, &SClientFtp::commandResult, &client,
                [&isRefused, &client] { isRefused = client.wasRefused(); }, Qt::DirectConnection);
        };
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(!m_client->run([&](SClientFtp &client) {
            if (isDevice)
                client.sendDevice(&device, u"target"_s);
            else
                client.sendFile(u"large"_s, u"target"_s);
        }));
        QVERIFY(isRefused);
        QVERIFY(!QFile::exists(m_server->path(u"target"_s)));
    }

    // What the server has in its tree is nothing that the jail here could look at.
    void strictClientKeepsTheTreeOfWhatItFetches_data()
    {
        QTest::addColumn<bool>("isDirectory");
        QTest::newRow("getDir") << true;
        QTest::newRow("getFiles") << false;
    }
    void strictClientKeepsTheTreeOfWhatItFetches()
    {
        QFETCH(const bool, isDirectory);
        QVERIFY(FileTree::write(m_server->path(u"in/a.txt"_s), "a"));
        QVERIFY(FileTree::write(m_server->path(u"in/sub/a.txt"_s), "b"));
        makeClientStrict();
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run(
            [isDirectory](SClientFtp &client) {
                if (isDirectory)
                    client.getDir(u"in"_s, u"got"_s, false);
                else
                    client.getFiles(u"in"_s, u"*"_s, u"got"_s, true);
            },
            3));
        QCOMPARE(FileTree::below(m_client->folder()),
                 (QStringList{u"got/"_s, u"got/a.txt"_s, u"got/sub/"_s, u"got/sub/a.txt"_s}));
        QCOMPARE(FileTree::read(m_client->path(u"got/a.txt"_s)), "a");
        QCOMPARE(FileTree::read(m_client->path(u"got/sub/a.txt"_s)), "b");
    }

    void strictClientSendsALinkThatLeavesTheDirectoryButNotTheJail()
    {
        QVERIFY(FileTree::write(m_client->path(u"other.txt"_s), "other"));
        QVERIFY(QDir(m_client->folder()).mkpath(u"out/sub"_s));
        QVERIFY(QFile::link(m_client->path(u"other.txt"_s), m_client->path(u"out/sub/link.txt"_s)));
        makeClientStrict();
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run([](SClientFtp &client) { client.sendDir(u"out"_s, u"up"_s); }));
        QCOMPARE(FileTree::below(m_server->home()),
                 (QStringList{u"up/"_s, u"up/sub/"_s, u"up/sub/link.txt"_s}));
        QCOMPARE(FileTree::read(m_server->path(u"up/sub/link.txt"_s)), "other");
    }

    void refusalOfAFetchIsKnown_data()
    {
        QTest::addColumn<bool>("isDevice");
        QTest::newRow("getFile") << false;
        QTest::newRow("getDevice") << true;
    }
    void refusalOfAFetchIsKnown()
    {
        QFETCH(const bool, isDevice);
        QBuffer device;
        std::atomic_bool isRefused = false;
        m_client->configure = [&isRefused](SClientFtp &client) {
            QObject::connect(
                &client, &SClientFtp::commandResult, &client,
                [&isRefused, &client] { isRefused = client.wasRefused(); }, Qt::DirectConnection);
        };
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(!m_client->run([&](SClientFtp &client) {
            if (isDevice)
                client.getDevice(u"missing"_s, &device);
            else
                client.getFile(u"missing"_s);
        }));
        QVERIFY(isRefused);
    }

    void replacedFileKeepsItsPermissions_data()
    {
        QTest::addColumn<bool>("isGet");
        QTest::newRow("getFile, here") << true;
        QTest::newRow("sendFile, on the server") << false;
    }
    void replacedFileKeepsItsPermissions()
    {
        QFETCH(const bool, isGet);
        const QString here = m_client->path(u"a.txt"_s);
        const QString there = m_server->path(u"a.txt"_s);
        const QString target = isGet ? here : there;
        QVERIFY(FileTree::write(here, "here"));
        QVERIFY(FileTree::write(there, "there"));
        QVERIFY(QFile::setPermissions(target, QFileDevice::ReadOwner | QFileDevice::WriteOwner));
        const auto before = QFile::permissions(target);
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run([isGet](SClientFtp &client) {
            if (isGet)
                client.getFile(u"a.txt"_s);
            else
                client.sendFile(u"a.txt"_s);
        }));
        QCOMPARE(FileTree::read(target), isGet ? "there"_ba : "here"_ba);
        QCOMPARE(QFile::permissions(target), before);
    }

    void getFilesFetchesWhatMatches_data()
    {
        QTest::addColumn<QString>("filters");
        QTest::addColumn<bool>("recursive");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("all of one folder")
            << QString() << false << QStringList{u".h"_s, u"a.txt"_s, u"b.csv"_s, u"c.bin"_s};
        QTest::newRow("all of the tree")
            << QString() << true
            << QStringList{u".h"_s, u"a.txt"_s, u"b.csv"_s, u"c.bin"_s, u"sub/"_s, u"sub/d.txt"_s};
        QTest::newRow("patterns with a blank")
            << u"*.txt; *.csv"_s << false << QStringList{u"a.txt"_s, u"b.csv"_s};
        QTest::newRow("patterns in the tree")
            << u"*.txt;;"_s << true << QStringList{u"a.txt"_s, u"sub/"_s, u"sub/d.txt"_s};
        QTest::newRow("no match") << u"*.pdf"_s << true << QStringList();
    }
    void getFilesFetchesWhatMatches()
    {
        QFETCH(const QString, filters);
        QFETCH(const bool, recursive);
        QFETCH(const QStringList, expected);
        for (const QString &name :
             {u"in/a.txt"_s, u"in/b.csv"_s, u"in/c.bin"_s, u"in/.h"_s, u"in/sub/d.txt"_s})
            QVERIFY(FileTree::write(m_server->path(name), name.toUtf8()));
        QVERIFY(QDir(m_server->home()).mkpath(u"in/emptydir"_s));
        QVERIFY(QFile::link(u"nowhere"_s, m_server->path(u"in/dangling.txt"_s)));

        const auto files = expected.filter(QRegularExpression(u"[^/]$"_s));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run(
            [&](SClientFtp &client) { client.getFiles(u"in"_s, filters, u"got"_s, recursive); },
            1 + static_cast<int>(files.size())));
        QCOMPARE(m_client->log.first(), u"getFilesResult true"_s);
        QCOMPARE(m_client->log.size(), 1 + 2 * files.size());
        QCOMPARE(FileTree::below(m_client->path(u"got"_s)), expected);
        for (const QString &name : files)
            QCOMPARE(FileTree::read(m_client->path(u"got/"_s + name)), "in/" + name.toUtf8());
    }

    void getFilesOfAMissingFolderGivesNothing()
    {
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run(
            [](SClientFtp &client) { client.getFiles(u"missing"_s, QString(), u"got"_s, true); }));
        QCOMPARE(m_client->log, QStringList{u"getFilesResult true"_s});
    }

    void getDirReportsBeforeTheFirstFileHasMoved()
    {
        QVERIFY(FileTree::write(m_server->path(u"in/sub/a.txt"_s), "a"));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run([](SClientFtp &client) { client.getDir(u"in"_s, u"got"_s); }, 2));
        const QString target = m_client->path(u"got/sub/a.txt"_s);
        QCOMPARE(m_client->log,
                 (QStringList{u"getDirResult true"_s, u"getFilesResult true"_s,
                              u"getFileStarted "_s + target, u"getFileFinished "_s + target}));
        QVERIFY(QFileInfo::exists(m_server->path(u"in"_s)));
    }

    void getDirWithoutALocalNameTakesTheRemoteOne()
    {
        QVERIFY(FileTree::write(m_server->path(u"deep/in/a.txt"_s), "a"));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(
            m_client->run([](SClientFtp &client) { client.getDir(u"deep/in"_s, QString()); }, 2));
        QCOMPARE(FileTree::below(m_client->folder()), (QStringList{u"in/"_s, u"in/a.txt"_s}));
    }

    void getDirWithRemovalRemovesTheRemoteFolderLast()
    {
        QVERIFY(FileTree::write(m_server->path(u"in/a.txt"_s), "a"));
        QVERIFY(FileTree::write(m_server->path(u"in/sub/b.txt"_s), "b"));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(
            m_client->run([](SClientFtp &client) { client.getDir(u"in"_s, u"got"_s, true); }, 4));
        QCOMPARE(m_client->log.last(), u"removeDirResult true"_s);
        QCOMPARE(m_client->results.last(), u"rmd_ true"_s);
        QVERIFY(FileTree::below(m_server->home()).isEmpty());
        QCOMPARE(FileTree::below(m_client->path(u"got"_s)),
                 (QStringList{u"a.txt"_s, u"sub/"_s, u"sub/b.txt"_s}));
    }

    void filesQueuedByGetDirComeAfterCommandsQueuedBefore()
    {
        QVERIFY(FileTree::write(m_server->path(u"in/a.txt"_s), "a"));
        QVERIFY(m_client->open(m_server->port()));
        // In the worker's thread, where no command runs before both are queued.
        const auto queueInWorker = [this](SClientFtp &) {
            callInWorker(m_client->client(), [](SClientFtp &client) {
                client.getDir(u"in"_s, u"got"_s, true);
                client.pwd();
            });
        };
        QVERIFY(m_client->run(queueInWorker, 4));
        QCOMPARE(m_client->results,
                 (QStringList{u"gfls true"_s, u"pwd_ true"_s, u"getf true"_s, u"rmd_ true"_s}));
    }

    void devicesOfEverySizeAreFilled_data() { sizes(); }
    void devicesOfEverySizeAreFilled()
    {
        QFETCH(const qint64, size);
        const QByteArray content = FileTree::content(size);
        QVERIFY(FileTree::write(m_server->path(u"a.bin"_s), content));
        QVERIFY(m_client->open(m_server->port()));
        QBuffer device;
        QVERIFY(m_client->run([&](SClientFtp &client) { client.getDevice(u"a.bin"_s, &device); }));
        QCOMPARE(m_client->log, (QStringList{u"getDeviceStarted"_s, u"getDeviceFinished"_s}));
        verifyProgress(size);
        QVERIFY(!device.isOpen());
        QVERIFY(device.data() == content);
    }

    void refusedGetDeviceFailsAndLeavesTheDeviceOpen()
    {
        QVERIFY(m_client->open(m_server->port()));
        QBuffer device;
        QVERIFY(
            !m_client->run([&](SClientFtp &client) { client.getDevice(u"missing"_s, &device); }));
        QCOMPARE(m_client->log, QStringList{u"getDeviceStarted"_s});
        QVERIFY(m_client->waitForEnd());
        QVERIFY(device.isOpen());
        QCOMPARE(device.data(), "");
    }

    void deviceThatDoesNotOpenEndsTheSession_data()
    {
        QTest::addColumn<bool>("sends");
        QTest::newRow("getDevice") << false;
        QTest::newRow("sendDevice") << true;
    }
    void deviceThatDoesNotOpenEndsTheSession()
    {
        QFETCH(const bool, sends);
        QVERIFY(FileTree::write(m_server->path(u"a.bin"_s), "a"));
        QVERIFY(m_client->open(m_server->port()));
        QFile device(m_client->path(u"missing/a.bin"_s));
        QVERIFY(!m_client->run([&](SClientFtp &client) {
            if (sends)
                client.sendDevice(&device, u"b.bin"_s);
            else
                client.getDevice(u"a.bin"_s, &device);
        }));
        QVERIFY(m_client->log.isEmpty());
        QVERIFY(m_client->waitForEnd());
    }

    void deviceThatIsGoneEndsTheSession()
    {
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(!m_client->run([](SClientFtp &client) { client.sendDevice(nullptr, u"b"_s); }));
        QVERIFY(m_client->log.isEmpty());
        QVERIFY(m_client->waitForEnd());
    }

    // Order and thread of the signals

    void lastReportOfATransferComesBeforeItsEnd_data()
    {
        QTest::addColumn<QByteArray>("what");
        for (const char *what : {"getFile", "sendFile", "getDevice", "sendDevice"})
            QTest::newRow(what) << QByteArray(what);
    }
    void lastReportOfATransferComesBeforeItsEnd()
    {
        QFETCH(const QByteArray, what);
        QVERIFY(FileTree::write(m_server->path(u"a"_s), "a"));
        QVERIFY(FileTree::write(m_client->path(u"b"_s), "b"));
        QStringList order;
        QSet<QThread *> threads;
        // Noted where they are emitted.
        const auto note = [&](const QString &event) {
            order.append(event);
            threads.insert(QThread::currentThread());
        };
        m_client->configure = [&](JailedClient &client) {
            const auto started = [note](auto) { note(u"started"_s); };
            const auto moved = [note](qint64 done, qint64 size) {
                note(u"%1 of %2"_s.arg(QString::number(done), QString::number(size)));
            };
            const auto finished = [note](auto) { note(u"finished"_s); };
            connect(&client, &SClientFtp::getFileStarted, &client, started);
            connect(&client, &SClientFtp::getFileTransferredSize, &client, moved);
            connect(&client, &SClientFtp::getFileFinished, &client, finished);
            connect(&client, &SClientFtp::sendFileStarted, &client, started);
            connect(&client, &SClientFtp::sendFileTransferredSize, &client, moved);
            connect(&client, &SClientFtp::sendFileFinished, &client, finished);
            connect(&client, &SClientFtp::getDeviceStarted, &client, started);
            connect(&client, &SClientFtp::getDeviceTransferredSize, &client, moved);
            connect(&client, &SClientFtp::getDeviceFinished, &client, finished);
            connect(&client, &SClientFtp::sendDeviceStarted, &client, started);
            connect(&client, &SClientFtp::sendDeviceTransferredSize, &client, moved);
            connect(&client, &SClientFtp::sendDeviceFinished, &client, finished);
        };
        QVERIFY(m_client->open(m_server->port()));
        QBuffer device;
        device.setData("c");
        QVERIFY(m_client->run([&](SClientFtp &client) {
            if (what == "getFile")
                client.getFile(u"a"_s);
            else if (what == "sendFile")
                client.sendFile(u"b"_s);
            else if (what == "getDevice")
                client.getDevice(u"a"_s, &device);
            else
                client.sendDevice(&device, u"c"_s);
        }));
        QCOMPARE(order, (QStringList{u"started"_s, u"1 of 1"_s, u"finished"_s}));
        QCOMPARE(threads, QSet<QThread *>{m_client->client()->thread()});
        QVERIFY(!threads.contains(QThread::currentThread()));
    }

    // Files to the server

    void filesOfEverySizeAreSent_data() { sizes(); }
    void filesOfEverySizeAreSent()
    {
        QFETCH(const qint64, size);
        const QByteArray content = FileTree::content(size);
        const QString source = m_client->path(u"a.bin"_s);
        QVERIFY(FileTree::write(source, content));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(
            m_client->run([](SClientFtp &client) { client.sendFile(u"a.bin"_s, u"new/b.bin"_s); }));
        QCOMPARE(m_client->log, (QStringList{u"sendFileStarted "_s + source,
                                             u"sendFileFinished %1 false"_s.arg(source)}));
        verifyProgress(size);
        QCOMPARE(FileTree::below(m_server->home()), (QStringList{u"new/"_s, u"new/b.bin"_s}));
        QVERIFY(FileTree::read(m_server->path(u"new/b.bin"_s)) == content);
        const QString target = m_server->path(u"new/b.bin"_s);
        QTRY_COMPARE(m_server->log, (QStringList{u"sendFileStarted "_s + target,
                                                 u"sendFileFinished "_s + target}));
    }

    void sendFileWithoutARemoteNameTakesTheLocalOne()
    {
        QVERIFY(FileTree::write(m_client->path(u"sub/a.txt"_s), "a"));
        QVERIFY(QDir(m_server->home()).mkpath(u"up"_s));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run(
            [](SClientFtp &client) {
                client.changeDir(u"up"_s);
                client.sendFile(u"sub/a.txt"_s, true);
            },
            2));
        QCOMPARE(FileTree::below(m_server->home()), (QStringList{u"up/"_s, u"up/a.txt"_s}));
        QCOMPARE(FileTree::below(m_client->folder()), QStringList{u"sub/"_s});
        QCOMPARE(m_client->log.last(),
                 u"sendFileFinished %1 true"_s.arg(m_client->path(u"sub/a.txt"_s)));
    }

    void missingSourceEndsTheSessionUntouched()
    {
        QVERIFY(FileTree::write(m_server->path(u"b.txt"_s), "older"));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(
            !m_client->run([](SClientFtp &client) { client.sendFile(u"missing"_s, u"b.txt"_s); }));
        QVERIFY(m_client->log.isEmpty());
        QVERIFY(m_client->waitForEnd());
        QVERIFY(m_server->waitForEnd());
        QCOMPARE(FileTree::below(m_server->home()), QStringList{u"b.txt"_s});
        QCOMPARE(FileTree::read(m_server->path(u"b.txt"_s)), "older");
    }

    void sourceOutsideTheRootIsDroppedInSilence()
    {
        const QString outside = m_server->outside() + u"/a.txt"_s;
        QVERIFY(FileTree::write(outside, "a"));
        m_client->configure = [this](JailedClient &client) {
            QVERIFY(client.setRootPath(m_client->folder()));
        };
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run([&](SClientFtp &client) {
            client.sendFile(outside, u"b.txt"_s);
            client.sendFiles(m_server->outside(), QString(), u"up"_s, true);
            client.pwd();
        }));
        QCOMPARE(m_client->results, QStringList{u"pwd_ true"_s});
        QVERIFY(FileTree::below(m_server->home()).isEmpty());
    }

    void targetOutsideTheRootEndsTheSession()
    {
        QVERIFY(FileTree::write(m_server->path(u"a.txt"_s), "a"));
        m_client->configure = [this](JailedClient &client) {
            QVERIFY(client.setRootPath(m_client->folder()));
        };
        QVERIFY(m_client->open(m_server->port()));
        const QString outside = m_server->outside() + u"/a.txt"_s;
        QVERIFY(!m_client->run([&](SClientFtp &client) { client.getFile(u"a.txt"_s, outside); }));
        QVERIFY(m_client->log.isEmpty());
        QVERIFY(!QFileInfo::exists(outside));
        QVERIFY(m_client->waitForEnd());
    }

    void sendFilesSendsWhatMatches()
    {
        for (const QString &name :
             {u"out/a.txt"_s, u"out/b.csv"_s, u"out/c.bin"_s, u"out/s/d.txt"_s})
            QVERIFY(FileTree::write(m_client->path(name), name.toUtf8()));
        QVERIFY(QFile::link(u"nowhere"_s, m_client->path(u"out/dangling.txt"_s)));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run(
            [](SClientFtp &client) {
                client.sendFiles(u"out"_s, u"*.txt; *.csv"_s, u"flat"_s, false);
                client.sendFiles(u"out"_s, u"*.txt"_s, u"tree"_s, true);
            },
            4));
        QCOMPARE(FileTree::below(m_server->home()),
                 (QStringList{u"flat/"_s, u"flat/a.txt"_s, u"flat/b.csv"_s, u"tree/"_s,
                              u"tree/a.txt"_s, u"tree/s/"_s, u"tree/s/d.txt"_s}));
        QCOMPARE(FileTree::read(m_server->path(u"tree/s/d.txt"_s)), "out/s/d.txt");
    }

    void rootOfTheClientIsNoneOfTheServersPaths()
    {
        QVERIFY(FileTree::write(m_client->path(u"out/s/a.txt"_s), "a"));
        m_client->configure = [this](JailedClient &client) {
            QVERIFY(client.setRootPath(m_client->folder()));
        };
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run([](SClientFtp &client) { client.sendDir(u"out"_s, u"up"_s); }));
        QCOMPARE(FileTree::below(m_server->home()),
                 (QStringList{u"up/"_s, u"up/s/"_s, u"up/s/a.txt"_s}));
    }

    void sendDirWithoutARemoteNameTakesTheLocalOne()
    {
        QVERIFY(FileTree::write(m_client->path(u"deep/out/a.txt"_s), "a"));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(
            m_client->run([](SClientFtp &client) { client.sendDir(u"deep/out"_s, QString()); }));
        QCOMPARE(FileTree::below(m_server->home()), (QStringList{u"out/"_s, u"out/a.txt"_s}));
    }

    void sendDirWithRemovalRemovesTheFolderWhenTheQueueIsEmpty()
    {
        QVERIFY(FileTree::write(m_client->path(u"out/a.txt"_s), "a"));
        QVERIFY(FileTree::write(m_client->path(u"out/sub/b.txt"_s), "b"));
        QVERIFY(m_client->open(m_server->port()));
        // From any other thread the list of folders would be written while the worker reads it.
        const auto sendInWorker = [this](SClientFtp &) {
            callInWorker(m_client->client(),
                         [](SClientFtp &client) { client.sendDir(u"out"_s, u"up"_s, true); });
        };
        QVERIFY(m_client->run(sendInWorker, 2));
        QTRY_COMPARE(m_client->log.last(), u"localDirRemoved "_s + m_client->path(u"out"_s));
        QVERIFY(FileTree::below(m_client->folder()).isEmpty());
        QCOMPARE(FileTree::below(m_server->home()),
                 (QStringList{u"up/"_s, u"up/a.txt"_s, u"up/sub/"_s, u"up/sub/b.txt"_s}));
    }

    void sendDirOfAnEmptyTreeQueuesNothingAndTheFolderWaits()
    {
        QVERIFY(QDir(m_client->folder()).mkpath(u"out/sub"_s));
        QVERIFY(m_client->open(m_server->port()));
        // The signal of the handshake's end must not be taken for the next one.
        QTRY_COMPARE(m_client->emptied, 1);
        m_client->forget();
        callInWorker(m_client->client(),
                     [](SClientFtp &client) { client.sendDir(u"out"_s, u"up"_s, true); });
        QVERIFY(m_client->results.isEmpty());
        QVERIFY(QFileInfo::exists(m_client->path(u"out"_s)));

        QVERIFY(m_client->run([](SClientFtp &client) { client.pwd(); }));
        QTRY_VERIFY(!QFileInfo::exists(m_client->path(u"out"_s)));
        QCOMPARE(m_client->results, QStringList{u"pwd_ true"_s});
        QVERIFY(FileTree::below(m_server->home()).isEmpty());
    }

    void devicesOfEverySizeAreSent_data() { sizes(); }
    void devicesOfEverySizeAreSent()
    {
        QFETCH(const qint64, size);
        QBuffer device;
        device.setData(FileTree::content(size));
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(m_client->run([&](SClientFtp &client) { client.sendDevice(&device, u"b.bin"_s); }));
        QCOMPARE(m_client->log, (QStringList{u"sendDeviceStarted"_s, u"sendDeviceFinished"_s}));
        verifyProgress(size);
        QVERIFY(!device.isOpen());
        QCOMPARE(FileTree::below(m_server->home()), QStringList{u"b.bin"_s});
        QVERIFY(FileTree::read(m_server->path(u"b.bin"_s)) == device.data());
    }

private:
    static void sizes()
    {
        QTest::addColumn<qint64>("size");
        for (const qint64 size : {0, 1, 7, 8, 9, 4096, 262143, 262144, 262145, 524288, 3000001})
            QTest::addRow("%lld", size) << size;
    }

    // The reports rise, and the last one is the whole.
    void verifyProgress(qint64 size)
    {
        QVERIFY(!m_client->progress.isEmpty());
        qint64 before = 0;
        for (const auto &[done, total] : std::as_const(m_client->progress)) {
            QCOMPARE(total, size);
            QVERIFY(done >= before);
            before = done;
        }
        QCOMPARE(before, size);
    }

    void makeClientStrict()
    {
        m_client->configure = [this](JailedClient &client) {
            QVERIFY(client.setRootPath(m_client->folder()));
            client.setStrictJail(true);
        };
    }

    // Calls in the worker's thread and waits until it has been done.
    template<typename Operation>
    static void callInWorker(SClientFtp *client, Operation operation)
    {
        QMetaObject::invokeMethod(
            client, [client, operation] { operation(*client); }, Qt::BlockingQueuedConnection);
    }

    std::unique_ptr<FileServer> m_server;
    std::unique_ptr<FileClient> m_client;
};

QTEST_GUILESS_MAIN(tst_SClientFtp)
#include "tst_sclientftp.moc"
