// SPDX-License-Identifier: MIT
#include "toolserver.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QStorageInfo>

using namespace Qt::StringLiterals;

class tst_ToolFileCommands : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ToolServer> m_server;

    ToolResult run(const QString &command, const QString &path, const QStringList &more = {}) const
    {
        return m_server->run(QStringList{command, m_server->url(path)} + more);
    }
    QString home(const QString &name) const { return m_server->homePath(name); }

    // The command said no, for that reason.
    void verifyRefused(const ToolResult &result, const QByteArray &why)
    {
        QCOMPARE(result.exitCode, 1);
        QVERIFY(result.out.isEmpty());
        QVERIFY2(result.err.contains(why), result.err.constData());
    }

private Q_SLOTS:
    void init()
    {
        m_server = std::make_unique<ToolServer>();
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"b.txt"_s), "bee"));
        QVERIFY(writeFile(home(u"a file"_s), "first"));
        QVERIFY(writeFile(home(u".hidden"_s), ""));
        QVERIFY(writeFile(home(u"folder/inner/größe.txt"_s), "g"));
    }

    // ls

    void lsListsNamesInOrder()
    {
        const auto result = run(u"ls"_s, QString());
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.err.isEmpty());
        QCOMPARE(result.lines(), (QList<QByteArray>{".hidden", "a file", "b.txt", "folder/"}));
        QCOMPARE(run(u"ls"_s, u"folder"_s).out, "inner/\n"_ba);
        QCOMPARE(run(u"ls"_s, u"folder/inner/"_s).out, "größe.txt\n"_ba);
    }

    void lsOfAFileShowsThatFile()
    {
        QCOMPARE(run(u"ls"_s, u"b.txt"_s).out, "b.txt\n"_ba);
        QCOMPARE(run(u"ls"_s, u"folder/inner/gr%C3%B6%C3%9Fe.txt"_s).out, "größe.txt\n"_ba);
    }

    void lsShowsColumnsWithLong()
    {
        QVERIFY(QFile::setPermissions(home(u"b.txt"_s), QFileDevice::ReadOwner |
                                                            QFileDevice::WriteOwner |
                                                            QFileDevice::ReadGroup));
        QFile file(home(u"b.txt"_s));
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.setFileTime(
            QDateTime::fromString(u"2024-05-06T07:08:09.123Z"_s, Qt::ISODateWithMs),
            QFileDevice::FileModificationTime));
        file.close();
        QCOMPARE(run(u"ls"_s, u"b.txt"_s, {u"-l"_s}).out,
                 "f-rw-  rw-r-----             3  2024-05-06T07:08:09.123Z  b.txt\n"_ba);
    }

    void lsAsJsonIsAnObjectALine()
    {
        const auto lines = run(u"ls"_s, QString(), {u"--json"_s}).lines();
        QCOMPARE(lines.size(), 4);
        const auto file = QJsonDocument::fromJson(lines[2]).object();
        QCOMPARE(file.value("name"_L1).toString(), u"b.txt"_s);
        QCOMPARE(file.value("size"_L1).toInteger(), 3);
        QCOMPARE(file.value("folder"_L1).toBool(true), false);
        QCOMPARE(QJsonDocument::fromJson(lines[3]).object().value("folder"_L1).toBool(), true);
    }

    void lsOfNothingIsRefused()
    {
        verifyRefused(run(u"ls"_s, u"missing"_s), "the server has no missing");
        verifyRefused(run(u"ls"_s, u"missing/deep"_s), "the server has no missing/deep");
        verifyRefused(run(u"ls"_s, u"/etc"_s), "the server has no /etc");
    }

    // mkdir

    void mkdirMakesAllFolders()
    {
        const auto result = run(u"mkdir"_s, u"x/y/z"_s);
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.out.isEmpty());
        QVERIFY(QDir(home(u"x/y/z"_s)).exists());
        QCOMPARE(run(u"mkdir"_s, u"x/y/z"_s).exitCode, 0);
    }

    void mkdirIsRefused()
    {
        verifyRefused(run(u"mkdir"_s, u"b.txt"_s), "does not make b.txt");
        verifyRefused(run(u"mkdir"_s, u"../outside"_s), "does not make ../outside");
        QVERIFY(!QDir(m_server->path(u"outside"_s)).exists());
        QCOMPARE(run(u"mkdir"_s, QString()).exitCode, 2);
    }

    // rm

    void rmRemovesAFile()
    {
        QCOMPARE(run(u"rm"_s, u"b.txt"_s).exitCode, 0);
        QVERIFY(!QFile::exists(home(u"b.txt"_s)));
    }

    void rmRemovesAFolderOnlyWithRecursive()
    {
        verifyRefused(run(u"rm"_s, u"folder"_s), "is a folder; give -r");
        QVERIFY(QFile::exists(home(u"folder/inner/größe.txt"_s)));
        QCOMPARE(run(u"rm"_s, u"folder"_s, {u"-r"_s}).exitCode, 0);
        QVERIFY(!QFile::exists(home(u"folder"_s)));
    }

    void rmNeverMeansTheWholeHome()
    {
        for (const auto &path : {u""_s, u"/"_s}) {
            const auto result = run(u"rm"_s, path, {u"-r"_s});
            QVERIFY(result.exitCode != 0);
            QVERIFY(QFile::exists(home(u"b.txt"_s)));
        }
        verifyRefused(run(u"rm"_s, u"missing"_s), "the server has no missing");
        verifyRefused(run(u"rm"_s, u"../users.json"_s), "the server has no ../users.json");
        QVERIFY(QFile::exists(m_server->path(u"users.json"_s)));
    }

    // mv

    void mvRenamesFilesAndFolders()
    {
        QCOMPARE(run(u"mv"_s, u"b.txt"_s, {u"c.txt"_s}).exitCode, 0);
        QCOMPARE(readFile(home(u"c.txt"_s)), "bee"_ba);
        QVERIFY(!QFile::exists(home(u"b.txt"_s)));
        QCOMPARE(run(u"mv"_s, u"folder"_s, {u"other"_s}).exitCode, 0);
        QCOMPARE(readFile(home(u"other/inner/größe.txt"_s)), "g"_ba);
    }

    void mvIntoAFolderAndByUrl()
    {
        QCOMPARE(run(u"mv"_s, u"b.txt"_s, {u"folder/"_s}).exitCode, 0);
        QCOMPARE(readFile(home(u"folder/b.txt"_s)), "bee"_ba);
        QCOMPARE(run(u"mv"_s, u"folder/b.txt"_s, {m_server->url(u"my%20b.txt"_s)}).exitCode, 0);
        QCOMPARE(readFile(home(u"my b.txt"_s)), "bee"_ba);
    }

    void mvReplacesNothing()
    {
        verifyRefused(run(u"mv"_s, u"b.txt"_s, {u"a file"_s}), "there is a a file already");
        QCOMPARE(readFile(home(u"a file"_s)), "first"_ba);
        QCOMPARE(readFile(home(u"b.txt"_s)), "bee"_ba);
        verifyRefused(run(u"mv"_s, u"missing"_s, {u"x"_s}), "the server has no missing");
        verifyRefused(run(u"mv"_s, u"b.txt"_s, {u"../x"_s}), "does not move");
    }

    void mvToAnotherServerIsWrongUsage()
    {
        const auto result = run(u"mv"_s, u"b.txt"_s, {u"brix://ann@elsewhere:7000/x"_s});
        QCOMPARE(result.exitCode, 2);
        QVERIFY2(result.err.contains("on one server"), result.err.constData());
    }

    // cp

    void cpCopiesFilesAndFolders()
    {
        QCOMPARE(run(u"cp"_s, u"b.txt"_s, {u"c.txt"_s}).exitCode, 0);
        QCOMPARE(readFile(home(u"c.txt"_s)), "bee"_ba);
        QCOMPARE(readFile(home(u"b.txt"_s)), "bee"_ba);
        QCOMPARE(run(u"cp"_s, u"b.txt"_s, {u"a file"_s}).exitCode, 0);
        QCOMPARE(readFile(home(u"a file"_s)), "bee"_ba);
        QCOMPARE(run(u"cp"_s, u"folder"_s, {u"-r"_s, u"other"_s}).exitCode, 0);
        QCOMPARE(readFile(home(u"other/inner/größe.txt"_s)), "g"_ba);
    }

    void cpOfAMissingFileEmptiesNothing()
    {
        verifyRefused(run(u"cp"_s, u"missing"_s, {u"b.txt"_s}), "the server has no missing");
        QCOMPARE(readFile(home(u"b.txt"_s)), "bee"_ba);
    }

    void cpIsRefused()
    {
        verifyRefused(run(u"cp"_s, u"folder"_s, {u"other"_s}), "is a folder; give -r");
        verifyRefused(run(u"cp"_s, u"folder"_s, {u"-r"_s, u"b.txt"_s}), "there is a b.txt already");
        verifyRefused(run(u"cp"_s, u"b.txt"_s, {u"folder"_s}), "is a folder; write folder/");
        verifyRefused(run(u"cp"_s, u"b.txt"_s, {u"../x"_s}), "does not copy");
        QCOMPARE(readFile(home(u"b.txt"_s)), "bee"_ba);
    }

    // chmod

    void chmodSetsThePermissions()
    {
        const auto chmod = [&](const QString &mode) {
            return m_server->run({u"chmod"_s, mode, m_server->url(u"b.txt"_s)});
        };
        const auto mode = [&] {
            const auto permissions = int(QFileInfo(home(u"b.txt"_s)).permissions());
            return QString::number(
                (permissions >> 12 & 7) << 6 | (permissions >> 4 & 7) << 3 | (permissions & 7), 8);
        };
        QCOMPARE(chmod(u"640"_s).exitCode, 0);
        QCOMPARE(mode(), u"640"_s);
        QCOMPARE(chmod(u"0751"_s).exitCode, 0);
        QCOMPARE(mode(), u"751"_s);
        for (const auto &wrong : {u"000"_s, u"64"_s, u"6400"_s, u"abc"_s, u"888"_s, u"rw-"_s})
            QCOMPARE(chmod(wrong).exitCode, 2);
        QCOMPARE(mode(), u"751"_s);
    }

    void chmodOfNothingIsRefused()
    {
        verifyRefused(m_server->run({u"chmod"_s, u"640"_s, m_server->url(u"missing"_s)}),
                      "the server has no missing");
    }

    // df, pwd, exists

    void dfTellsTheStorage()
    {
        const auto result = run(u"df"_s, u"folder"_s, {u"--json"_s});
        QCOMPARE(result.exitCode, 0);
        const auto object = QJsonDocument::fromJson(result.out).object();
        const QStorageInfo storage(m_server->home());
        QCOMPARE(object.value("total"_L1).toInteger(), storage.bytesTotal());
        QCOMPARE(object.value("type"_L1).toString().toUtf8(), storage.fileSystemType());
        QVERIFY(object.value("available"_L1).toInteger() > 0);
        QVERIFY(run(u"df"_s, QString()).out.contains("available  "));
        verifyRefused(run(u"df"_s, u"missing"_s), "the server has no folder missing");
    }

    void pwdTellsTheFolder()
    {
        QCOMPARE(run(u"pwd"_s, QString()).out, m_server->home().toUtf8() + '\n');
        QCOMPARE(run(u"pwd"_s, u"folder/inner"_s).out,
                 m_server->home().toUtf8() + "/folder/inner\n");
        verifyRefused(run(u"pwd"_s, u"b.txt"_s), "the server has no folder b.txt");
    }

    void existsAnswersByItsExitCode()
    {
        const auto there = run(u"exists"_s, u"b.txt"_s);
        QCOMPARE(there.exitCode, 0);
        QCOMPARE(there.out, "yes\n"_ba);
        const auto missing = run(u"exists"_s, u"missing"_s);
        QCOMPARE(missing.exitCode, 1);
        QCOMPARE(missing.out, "no\n"_ba);
        QVERIFY(missing.err.isEmpty());
        QCOMPARE(run(u"exists"_s, u"/etc/passwd"_s).exitCode, 1);
        QCOMPARE(run(u"exists"_s, u"missing"_s, {u"--json"_s}).out, "{\"exists\":false}\n"_ba);
    }

    void serverThatVanishesIsAFailedConnection()
    {
        m_server->process().kill();
        QVERIFY(m_server->process().waitForFinished());
        QCOMPARE(run(u"ls"_s, QString()).exitCode, 3);
    }
};

QTEST_GUILESS_MAIN(tst_ToolFileCommands)
#include "tst_toolfilecommands.moc"
