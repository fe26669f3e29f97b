// SPDX-License-Identifier: MIT
#include "toolserver.h"
#include <serve/partialfiles.h>

#include <brixlib/fileservice/spartialfilemanager.h>

using namespace Brix;
using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

const QString kPartial = u"3f2504e0-4f89-41d3-9a0c-0305e82c3301.part"_s;

// Makes a file that was last written so many days ago.
bool writeOld(const QString &path, const QByteArray &content, int days)
{
    if (!writeFile(path, content))
        return false;
    QFile file(path);
    return file.open(QIODevice::ReadWrite) &&
           file.setFileTime(QDateTime::currentDateTimeUtc().addDays(-days),
                            QFileDevice::FileModificationTime);
}

} // namespace

class tst_PartialFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void namesOfPartialFilesAreKnown_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("isPartial");
        const auto row = [](const char *description, const QString &name, bool isPartial) {
            QTest::newRow(description) << name << isPartial;
        };
        row("a random UUID", kPartial, true);
        row("that of the library",
            QFileInfo(SPartialFileManager(u"/srv/a.txt"_s, false).fileName(false)).fileName(),
            true);
        row("upper case", u"3F2504E0-4f89-41d3-9a0c-0305e82c3301.part"_s, false);
        row("another version of UUID", u"3f2504e0-4f89-11d3-9a0c-0305e82c3301.part"_s, false);
        row("another variant of UUID", u"3f2504e0-4f89-41d3-7a0c-0305e82c3301.part"_s, false);
        row("with braces", u"{3f2504e0-4f89-41d3-9a0c-0305e82c3301}.part"_s, false);
        row("something before it", u"x"_s + kPartial, false);
        row("something after it", kPartial + u"x"_s, false);
        row("a line feed after it", kPartial + u"\n"_s, false);
        row("another ending", u"3f2504e0-4f89-41d3-9a0c-0305e82c3301.PART"_s, false);
        row("the name of a user", u"holiday.part"_s, false);
        row("a UUID alone", u"3f2504e0-4f89-41d3-9a0c-0305e82c3301"_s, false);
        row("none", QString(), false);
    }

    void namesOfPartialFilesAreKnown()
    {
        QFETCH(const QString, name);
        QTEST(PartialFiles::isName(name), "isPartial");
    }

    void oldPartialFilesAreRemovedAndNothingElse()
    {
        QTemporaryDir dir;
        const QString other = u"4f2504e0-4f89-41d3-9a0c-0305e82c3301.part"_s;
        QVERIFY(writeOld(dir.filePath(kPartial), "four", 8));
        QVERIFY(writeOld(dir.filePath(u".hidden/sub/"_s + kPartial), "seven 7", 8));
        QVERIFY(writeOld(dir.filePath(other), "young", 6));
        QVERIFY(writeOld(dir.filePath(u"holiday.part"_s), "a user's", 8));
        QVERIFY(writeOld(dir.filePath(u"file"_s), "linked", 8));
        QVERIFY(QFile::link(dir.filePath(u"file"_s), dir.filePath(u"sub"_s)));
        QVERIFY(QDir(dir.path()).mkpath(u"directory/"_s + kPartial));
        const QTemporaryDir outside;
        QVERIFY(writeOld(outside.filePath(kPartial), "elsewhere", 8));
        QVERIFY(QFile::link(outside.path(), dir.filePath(u"link"_s)));
        QVERIFY(QDir(dir.path()).mkdir(u"links"_s));
        QVERIFY(QFile::link(outside.filePath(kPartial), dir.filePath(u"links/"_s + kPartial)));

        const auto removal =
            PartialFiles::removeOlderThan(QDateTime::currentDateTimeUtc().addDays(-7), dir.path());
        QCOMPARE(removal.files, 2);
        QCOMPARE(removal.bytes, 11);
        QCOMPARE(removal.kept, QStringList());
        QVERIFY(!QFile::exists(dir.filePath(kPartial)));
        QVERIFY(!QFile::exists(dir.filePath(u".hidden/sub/"_s + kPartial)));
        QCOMPARE(readFile(dir.filePath(other)), "young"_ba);
        QCOMPARE(readFile(dir.filePath(u"holiday.part"_s)), "a user's"_ba);
        QVERIFY(QFileInfo(dir.filePath(u"directory/"_s + kPartial)).isDir());
        QVERIFY(QFileInfo(dir.filePath(u"links/"_s + kPartial)).isSymLink());
        QCOMPARE(readFile(outside.filePath(kPartial)), "elsewhere"_ba);
    }

    void serverRemovesThemInTheHomesAtItsStart()
    {
        ToolServer server;
        QVERIFY(writeOld(server.homePath(u"sub/"_s + kPartial), "content", 8));
        QVERIFY(writeOld(server.path(kPartial), "beside the home", 8));
        QVERIFY(server.start({u"--clean-partials"_s, u"7"_s}));
        QVERIFY(!QFile::exists(server.homePath(u"sub/"_s + kPartial)));
        QCOMPARE(readFile(server.path(kPartial)), "beside the home"_ba);
        const QByteArray log = server.logShowing("partial files");
        QVERIFY2(log.contains("removed 1 partial files (7 bytes)"), log.constData());
    }

    void serverKeepsThemUnlessAsked()
    {
        ToolServer server;
        QVERIFY(writeOld(server.homePath(kPartial), "content", 400));
        QVERIFY(server.start());
        QCOMPARE(readFile(server.homePath(kPartial)), "content"_ba);
    }

    void wrongNumberOfDaysIsWrongUsage_data()
    {
        QTest::addColumn<QString>("days");
        QTest::newRow("negative") << u"-1"_s;
        QTest::newRow("a fraction") << u"0.5"_s;
        QTest::newRow("too many") << u"36501"_s;
        QTest::newRow("a word") << u"all"_s;
    }

    void wrongNumberOfDaysIsWrongUsage()
    {
        QFETCH(const QString, days);
        const auto result = ToolProcess().run(
            {u"serve"_s, u"--users"_s, u"/dev/null"_s, u"--clean-partials="_s + days});
        QCOMPARE(result.exitCode, 2);
        QVERIFY2(result.err.contains("--clean-partials"), result.err.constData());
    }
};

QTEST_GUILESS_MAIN(tst_PartialFiles)
#include "tst_partialfiles.moc"
