// SPDX-License-Identifier: MIT
#include <brixlib/protocol/users/sauthenticationdb.h>
#include <brixlib/protocol/users/suserdata.h>

#include <shared/toolprocess.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#ifdef Q_OS_UNIX
#include "limitedprocess.h"
#endif

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

QByteArray read(const QString &fileName)
{
    QFile file(fileName);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : "unreadable"_ba;
}

bool write(const QString &fileName, const QByteArray &content)
{
    QFile file(fileName);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

QJsonObject object(const QByteArray &line)
{
    return QJsonDocument::fromJson(line).object();
}

} // namespace

class tst_ToolUserCommands : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_file;
    ToolProcess m_tool;

    ToolResult user(const QStringList &arguments) const
    {
        return m_tool.run(QStringList{u"user"_s} + arguments);
    }
    ToolResult add(const QString &name, const QStringList &more = {}) const
    {
        return user(QStringList{u"add"_s, m_file, name, u"--home"_s, m_dir->path()} + more);
    }
    SUserData stored(const QString &name) const
    {
        return SUserData(SAuthenticationDb::fromFile(m_file).value(name));
    }
    QStringList files() const
    {
        return QDir(m_dir->path())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }

private Q_SLOTS:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        m_file = m_dir->filePath(u"users.json"_s);
        m_tool = {};
        m_tool.password = u"secret"_s;
    }

    void addMakesTheFile()
    {
        const auto result =
            add(u"Ann"_s, {u"--fullname"_s, u"Ann Smith"_s, u"--email"_s, u"ann@example.com"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "added ann\n"_ba);
        QVERIFY(result.err.isEmpty());
        QVERIFY(stored(u"ann"_s) == SUserData(u"ann"_s, u"secret"_s, m_dir->path(), u"Ann Smith"_s,
                                              u"ann@example.com"_s));
        QCOMPARE(files(), QStringList{u"users.json"_s});
    }

    void newFileIsReadableByItsOwnerAlone()
    {
        QCOMPARE(add(u"ann"_s).exitCode, 0);
        const auto others = QFileDevice::ReadGroup | QFileDevice::WriteGroup |
                            QFileDevice::ReadOther | QFileDevice::WriteOther;
        QCOMPARE(QFileInfo(m_file).permissions() & others, QFileDevice::Permissions());
    }

    void editTakesTheFileFromOthers()
    {
        QCOMPARE(add(u"ann"_s).exitCode, 0);
        for (const int mode : {0x6664, 0x6640, 0x6604, 0x6600}) {
            QVERIFY(QFile::setPermissions(m_file, QFileDevice::Permissions(mode)));
            QCOMPARE(user({u"disable"_s, m_file, u"ann"_s}).exitCode, 0);
            QCOMPARE(QFileInfo(m_file).permissions(), QFileDevice::Permissions(0x6600));
        }
    }

    void passwordThatIsTooLongIsRefused()
    {
        m_tool.input = QByteArray(5000, 'x') + '\n';
        const auto result = add(u"ann"_s, {u"--password-stdin"_s});
        QCOMPARE(result.exitCode, 2);
        QVERIFY2(result.err.contains("the password on stdin is too long"), result.err.constData());
        QVERIFY(files().isEmpty());
    }

    void emptyFileIsTakenAsNew()
    {
        QVERIFY(write(m_file, {}));
        QCOMPARE(add(u"ann"_s).exitCode, 0);
        QVERIFY(stored(u"ann"_s).isValid());
    }

    void addOfANameThatExistsIsRefused()
    {
        QCOMPARE(add(u"ann"_s, {u"--disabled"_s, u"--fullname"_s, u"Ann Smith"_s}).exitCode, 0);
        const QByteArray before = read(m_file);
        m_tool.password = u"other"_s;
        const auto result = add(u"ANN"_s);
        QCOMPARE(result.exitCode, 1);
        QVERIFY(result.out.isEmpty());
        QVERIFY2(result.err.contains("has a user ann already"), result.err.constData());
        QVERIFY2(result.err.contains("--replace"), result.err.constData());
        QCOMPARE(read(m_file), before);
    }

    void addWithReplaceReplacesTheUserOfThatName()
    {
        QCOMPARE(add(u"ann"_s).exitCode, 0);
        QCOMPARE(add(u"bob"_s).exitCode, 0);
        m_tool.password = u"other"_s;
        const auto result = add(u"ANN"_s, {u"--disabled"_s, u"--replace"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "replaced ann\n"_ba);
        QCOMPARE(SAuthenticationDb::fromFile(m_file).users(), (QList<QString>{u"ann"_s, u"bob"_s}));
        QCOMPARE(stored(u"ann"_s).hashedPassword(), SUserData::hashPassword(u"other"_s));
        QVERIFY(!stored(u"ann"_s).enabled());
        QVERIFY(stored(u"bob"_s).isValid());
    }

    void passwdChangesNothingButThePassword()
    {
        QCOMPARE(add(u"ann"_s, {u"--disabled"_s, u"--fullname"_s, u"Ann Smith"_s, u"--email"_s,
                                u"ann@example.com"_s})
                     .exitCode,
                 0);
        m_tool.password = u"other"_s;
        const auto result = user({u"passwd"_s, m_file, u"Ann"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "changed the password of ann\n"_ba);
        QVERIFY(stored(u"ann"_s) == SUserData(u"ann"_s, u"other"_s, m_dir->path(), u"Ann Smith"_s,
                                              u"ann@example.com"_s, true));
    }

    void enableAndDisableChangeNothingElse()
    {
        QCOMPARE(add(u"ann"_s, {u"--fullname"_s, u"Ann Smith"_s}).exitCode, 0);
        const SUserData before = stored(u"ann"_s);
        auto result = user({u"disable"_s, m_file, u"Ann"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "disabled ann\n"_ba);
        SUserData disabled = before;
        disabled.setEnabled(false);
        QVERIFY(stored(u"ann"_s) == disabled);
        result = user({u"enable"_s, m_file, u"ann"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "enabled ann\n"_ba);
        QVERIFY(stored(u"ann"_s) == before);
    }

    void changeOfAnUnknownUserChangesNothing_data()
    {
        QTest::addColumn<QString>("command");
        for (const auto *command : {"passwd", "enable", "disable", "remove"})
            QTest::newRow(command) << QString::fromLatin1(command);
    }

    void changeOfAnUnknownUserChangesNothing()
    {
        QFETCH(QString, command);
        QCOMPARE(add(u"ann"_s).exitCode, 0);
        const QByteArray before = read(m_file);
        const auto result = user({command, m_file, u"eve"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("has no user eve"), result.err.constData());
        QCOMPARE(read(m_file), before);
        QCOMPARE(user({command, m_dir->filePath(u"missing.json"_s), u"ann"_s}).exitCode, 4);
    }

    void homesThatOverlapAreTold_data()
    {
        QTest::addColumn<QString>("annsHome");
        QTest::addColumn<QString>("bobsHome");
        QTest::addColumn<QString>("whoReaches");
        QTest::newRow("beginning of the other") << u"job"_s << u"jobs"_s << u"ann"_s;
        QTest::newRow("the other is the beginning") << u"jobs"_s << u"job"_s << u"bob"_s;
        QTest::newRow("without case") << u"Job"_s << u"jobs"_s << u"ann"_s;
        QTest::newRow("below the other") << u"job"_s << u"job/today"_s << u"ann"_s;
        QTest::newRow("the same") << u"job"_s << u"job"_s << QString();
        QTest::newRow("others") << u"job"_s << u"bob"_s << QString();
    }

    void homesThatOverlapAreTold()
    {
        QFETCH(QString, annsHome);
        QFETCH(QString, bobsHome);
        QFETCH(QString, whoReaches);
        const auto addAt = [this](const QString &name, const QString &home) {
            QDir(m_dir->path()).mkpath(home);
            return user({u"add"_s, m_file, name, u"--home"_s, m_dir->filePath(home)});
        };
        const auto first = addAt(u"ann"_s, annsHome);
        QCOMPARE(first.exitCode, 0);
        const auto second = addAt(u"bob"_s, bobsHome);
        QCOMPARE(second.exitCode, 0);
        const bool annReaches = whoReaches == u"ann";
        const QString warning = u"brix: %1 can read and change %2, the home of %3: "_s.arg(
            whoReaches, m_dir->filePath(annReaches ? bobsHome : annsHome),
            annReaches ? u"bob"_s : u"ann"_s);
        if (whoReaches.isEmpty())
            QCOMPARE(second.err, QByteArray());
        else
            QVERIFY2(second.err.startsWith(warning.toUtf8()), second.err.constData());
        QCOMPARE(second.err.count('\n'), whoReaches.isEmpty() ? 0 : 1);
    }

    void folderBesideTheHomeThatIsReachedIsTold()
    {
        for (const QString &name : {u"job"_s, u"jobs"_s, u"JOBS2"_s, u"other"_s, u"job/below"_s})
            QVERIFY(QDir(m_dir->path()).mkdir(name));
        const auto result =
            user({u"add"_s, m_file, u"ann"_s, u"--home"_s, m_dir->filePath(u"job"_s)});
        QCOMPARE(result.exitCode, 0);
        QVERIFY2(
            result.err.contains("ann can read and change " + m_dir->path().toUtf8() + "/jobs:"),
            result.err.constData());
        QVERIFY2(result.err.contains("/JOBS2:"), result.err.constData());
        QCOMPARE(result.err.count('\n'), 2);
    }

    void homeIsResolvedByTheCallersFolder()
    {
        m_tool.workingDirectory = m_dir->path();
        QVERIFY(QDir(m_dir->path()).mkdir(u"home"_s));
        const auto result = user({u"add"_s, u"users.json"_s, u"ann"_s, u"--home"_s, u"home"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(stored(u"ann"_s).homeFolder(), QDir(m_dir->path()).canonicalPath() + u"/home"_s);
    }

    void missingHomeIsTold()
    {
        const auto result =
            user({u"add"_s, m_file, u"ann"_s, u"--home"_s, m_dir->filePath(u"missing"_s)});
        QCOMPARE(result.exitCode, 0);
        QVERIFY2(result.err.contains("does not exist here"), result.err.constData());
        const auto quiet = user(
            {u"add"_s, m_file, u"bob"_s, u"--quiet"_s, u"--home"_s, m_dir->filePath(u"missing"_s)});
        QCOMPARE(quiet.exitCode, 0);
        QVERIFY(quiet.err.isEmpty());
    }

    void passwordIsReadFromStdin_data()
    {
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<QString>("password");
        QTest::newRow("a line") << "from stdin\n"_ba << u"from stdin"_s;
        QTest::newRow("a Windows line") << "from stdin\r\n"_ba << u"from stdin"_s;
        QTest::newRow("without its end") << "größe"_ba << u"größe"_s;
        QTest::newRow("only the first") << "one\ntwo\n"_ba << u"one"_s;
        QTest::newRow("blanks stay") << " a b \n"_ba << u" a b "_s;
    }

    void passwordIsReadFromStdin()
    {
        QFETCH(QByteArray, input);
        QFETCH(QString, password);
        m_tool.input = input;
        QCOMPARE(add(u"ann"_s, {u"--password-stdin"_s}).exitCode, 0);
        QCOMPARE(stored(u"ann"_s).hashedPassword(), SUserData::hashPassword(password));
    }

    void endedStdinIsNoPassword()
    {
        const auto result = add(u"ann"_s, {u"--password-stdin"_s});
        QCOMPARE(result.exitCode, 2);
        QVERIFY2(result.err.contains("stdin ended"), result.err.constData());
        QVERIFY(files().isEmpty());
    }

    void emptyPasswordIsRefused()
    {
        m_tool.input = "\n";
        const auto typed = add(u"ann"_s, {u"--password-stdin"_s});
        QCOMPARE(typed.exitCode, 2);
        QVERIFY2(typed.err.contains("an empty password is not taken"), typed.err.constData());
        m_tool.password = u""_s;
        const auto set = add(u"ann"_s);
        QCOMPARE(set.exitCode, 2);
        QVERIFY2(set.err.contains("an empty password is not taken"), set.err.constData());
        QVERIFY(files().isEmpty());
    }

    void emptyNameIsRefused()
    {
        const auto result = add(QString());
        QCOMPARE(result.exitCode, 2);
        QVERIFY(files().isEmpty());
    }

    void listShowsTheUsersInOrder()
    {
        QCOMPARE(add(u"bob"_s, {u"--disabled"_s}).exitCode, 0);
        QCOMPARE(add(u"ann"_s, {u"--fullname"_s, u"Ann Smith"_s}).exitCode, 0);
        const auto result = user({u"list"_s, m_file});
        QCOMPARE(result.exitCode, 0);
        const QByteArray home = m_dir->path().toUtf8();
        QCOMPARE(result.lines(), (QList<QByteArray>{"ann  enabled   " + home + "  Ann Smith",
                                                    "bob  disabled  " + home}));
    }

    void listAsJsonIsAnObjectALine()
    {
        QCOMPARE(add(u"bob"_s, {u"--disabled"_s}).exitCode, 0);
        QCOMPARE(add(u"ann"_s, {u"--fullname"_s, u"Ann \"A\" Smith"_s}).exitCode, 0);
        const auto result = user({u"list"_s, u"--json"_s, m_file});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.lines().size(), 2);
        QCOMPARE(object(result.lines()[0]), (QJsonObject{{u"username"_s, u"ann"_s},
                                                         {u"homeFolder"_s, m_dir->path()},
                                                         {u"fullname"_s, u"Ann \"A\" Smith"_s},
                                                         {u"email"_s, QString()},
                                                         {u"state"_s, u"enabled"_s}}));
        QCOMPARE(object(result.lines()[1]).value("state"_L1).toString(), u"disabled"_s);
        QVERIFY(!result.out.contains(SUserData::hashPassword(u"secret"_s)));
    }

    void listTellsAUserWhoLacksSomething()
    {
        QVERIFY(write(m_file, R"({"users":[{"username":"ann"}]})"_ba));
        QCOMPARE(user({u"list"_s, m_file}).out, "ann  incomplete\n"_ba);
    }

    void listOfAMissingFileFails()
    {
        const auto result = user({u"list"_s, m_file});
        QCOMPARE(result.exitCode, 4);
        QVERIFY(result.out.isEmpty());
        QVERIFY2(result.err.contains("cannot read"), result.err.constData());
        QVERIFY(files().isEmpty());
    }

    void removeTakesAUserOut()
    {
        QCOMPARE(add(u"ann"_s).exitCode, 0);
        QCOMPARE(add(u"bob"_s).exitCode, 0);
        const auto result = user({u"remove"_s, m_file, u"Ann"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "removed ann\n"_ba);
        QCOMPARE(SAuthenticationDb::fromFile(m_file).users(), QList<QString>{u"bob"_s});
    }

    void removeOfTheLastUserLeavesAnEmptyTable()
    {
        QCOMPARE(add(u"ann"_s).exitCode, 0);
        QCOMPARE(user({u"remove"_s, m_file, u"ann"_s}).exitCode, 0);
        const auto result = user({u"list"_s, m_file});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.out.isEmpty());
        QCOMPARE(add(u"bob"_s).exitCode, 0);
    }

    void damagedFileIsNeverOverwritten_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("no JSON") << "users: ann\n"_ba;
        QTest::newRow("one blank") << " "_ba;
        QTest::newRow("cut off") << R"({"users":[{"username":"ann","email":""}]})"_ba.first(35);
        QTest::newRow("an array") << R"([{"username":"ann"}])"_ba;
        QTest::newRow("no users") << "{}"_ba;
        QTest::newRow("users are an object") << R"({"users":{"username":"ann"}})"_ba;
        QTest::newRow("user is a text") << R"({"users":["ann"]})"_ba;
        QTest::newRow("user without a name") << R"({"users":[{"password":"00"}]})"_ba;
        QTest::newRow("value of another type")
            << R"({"users":[{"username":"ann","disabled":"yes"}]})"_ba;
        QTest::newRow("unknown key of a user")
            << R"({"users":[{"username":"ann","phone":"1"}]})"_ba;
        QTest::newRow("unknown key beside the users")
            << R"({"users":[{"username":"ann"}],"version":2})"_ba;
        QTest::newRow("two of one name")
            << R"({"users":[{"username":"ann"},{"username":"Ann"}]})"_ba;
        QTest::newRow("zeros") << QByteArray(512, '\0');
        QTest::newRow("something else") << "#!/bin/sh\nexit 0\n"_ba;
    }

    void damagedFileIsNeverOverwritten()
    {
        QFETCH(QByteArray, content);
        QVERIFY(write(m_file, content));
        for (const auto &arguments :
             {QStringList{u"add"_s, m_file, u"bob"_s, u"--home"_s, u"/"_s},
              QStringList{u"remove"_s, m_file, u"ann"_s}, QStringList{u"list"_s, m_file},
              QStringList{u"passwd"_s, m_file, u"ann"_s},
              QStringList{u"enable"_s, m_file, u"ann"_s},
              QStringList{u"disable"_s, m_file, u"ann"_s}}) {
            const auto result = user(arguments);
            QCOMPARE(result.exitCode, 1);
            QVERIFY(result.out.isEmpty());
            QVERIFY2(result.err.contains("not a sound user file"), result.err.constData());
            QCOMPARE(read(m_file), content);
            QCOMPARE(files(), QStringList{u"users.json"_s});
        }
    }

    void folderIsNoUserFile()
    {
        const auto result = user({u"add"_s, m_dir->path(), u"ann"_s, u"--home"_s, u"/"_s});
        QCOMPARE(result.exitCode, 4);
        QVERIFY2(result.err.contains("it is a folder"), result.err.constData());
        QFile::remove(m_dir->path() + u".lock"_s);
    }

#ifdef Q_OS_UNIX
    void fullDiskLeavesTheFile()
    {
        QCOMPARE(add(u"ann"_s).exitCode, 0);
        const QByteArray before = read(m_file);
        QProcess process;
        m_tool.prepare(&process,
                       {u"user"_s, u"add"_s, m_file, u"bob"_s, u"--home"_s, m_dir->path()});
        limitFileSize(&process, rlim_t(before.size() + 10));
        process.start();
        QVERIFY(process.waitForFinished(60'000));
        QCOMPARE(process.exitCode(), 4);
        QVERIFY(process.readAllStandardError().contains("cannot write"));
        QCOMPARE(read(m_file), before);
        QCOMPARE(files(), QStringList{u"users.json"_s});
    }
#endif

    void fileInAMissingFolderCannotBeMade()
    {
        const auto result = user(
            {u"add"_s, m_dir->filePath(u"missing/users.json"_s), u"ann"_s, u"--home"_s, u"/"_s});
        QCOMPARE(result.exitCode, 4);
        QVERIFY2(result.err.contains("folder is missing"), result.err.constData());
    }

    void linkToTheFileStaysALink()
    {
        QCOMPARE(add(u"ann"_s).exitCode, 0);
        const QString link = m_dir->filePath(u"link.json"_s);
        QVERIFY(QFile::link(m_file, link));
        QCOMPARE(user({u"add"_s, link, u"bob"_s, u"--home"_s, u"/"_s}).exitCode, 0);
        QVERIFY(QFileInfo(link).isSymLink());
        QVERIFY(stored(u"bob"_s).isValid());
    }

    void editsAtTheSameTimeLoseNothing()
    {
        constexpr int count = 8;
        std::vector<std::unique_ptr<QProcess>> processes;
        for (int i = 0; i < count; ++i) {
            processes.push_back(std::make_unique<QProcess>());
            m_tool.prepare(processes.back().get(),
                           {u"user"_s, u"add"_s, m_file, u"user%1"_s.arg(i), u"--home"_s, u"/"_s});
            processes.back()->start();
        }
        for (const auto &process : processes) {
            QVERIFY(process->waitForFinished(60'000));
            QCOMPARE(process->exitCode(), 0);
        }
        QCOMPARE(SAuthenticationDb::fromFile(m_file).users().size(), count);
        QCOMPARE(files(), QStringList{u"users.json"_s});
    }
};

QTEST_GUILESS_MAIN(tst_ToolUserCommands)
#include "tst_toolusercommands.moc"
