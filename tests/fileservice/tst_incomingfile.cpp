// SPDX-License-Identifier: MIT
#include "filetree.h"

#include <brixlib/fileservice/incomingfile_p.h>

#include <QtCore/QRegularExpression>
#include <QtCore/QSaveFile>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_IncomingFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { QTest::failOnWarning(QRegularExpression(u"."_s)); }

    void fileStandsUnderItsNameOnceItIsWhole_data() { storages(); }
    void fileStandsUnderItsNameOnceItIsWhole()
    {
        QFETCH(const bool, needsSync);
        const QTemporaryDir dir;
        const QString target = dir.filePath(u"a.txt"_s);
        QVERIFY(FileTree::write(target, "older"));
        IncomingFile file(target);
        QCOMPARE(file.name(), target);
        QVERIFY(file.open(needsSync));
        QCOMPARE(file.device()->write("new"), 3);
        QCOMPARE(FileTree::read(target), "older");
        QVERIFY(file.finish());
        QCOMPARE(FileTree::below(dir.path()), QStringList{u"a.txt"_s});
        QCOMPARE(FileTree::read(target), "new");
    }

    void newFileHasThePermissionsOfAnyNewFile_data() { storages(); }
    void newFileHasThePermissionsOfAnyNewFile()
    {
        QFETCH(const bool, needsSync);
        const QTemporaryDir dir;
        const QString target = dir.filePath(u"a.txt"_s);
        IncomingFile file(target);
        QVERIFY(file.open(needsSync));
        QVERIFY(file.finish());
        QVERIFY(FileTree::write(dir.filePath(u"fresh.txt"_s), "fresh"));
        QCOMPARE(QFile::permissions(target), QFile::permissions(dir.filePath(u"fresh.txt"_s)));
    }

    void replacedFileKeepsItsPermissions_data() { storagesWithPermissions(); }
    void replacedFileKeepsItsPermissions()
    {
        QFETCH(const bool, needsSync);
        QFETCH(const QFileDevice::Permissions, permissions);
        const QTemporaryDir dir;
        const QString target = dir.filePath(u"a.txt"_s);
        QVERIFY(FileTree::write(target, "older"));
        QVERIFY(QFile::setPermissions(target, permissions));
        IncomingFile file(target);
        QVERIFY(file.open(needsSync));
        QCOMPARE(file.device()->write("new"), 3);
        QVERIFY(file.finish());
        QCOMPARE(permissionsOf(target), permissions);
        QVERIFY(QFile::setPermissions(target, permissions | QFileDevice::ReadOwner));
        QCOMPARE(FileTree::read(target), "new");
    }

    // Who may not read the older file must not read the new one while it arrives.
    void permissionsAreThoseOfTheOlderFileFromTheFirstByteOn_data() { storages(); }
    void permissionsAreThoseOfTheOlderFileFromTheFirstByteOn()
    {
        QFETCH(const bool, needsSync);
        const QTemporaryDir dir;
        const QString target = dir.filePath(u"a.txt"_s);
        QVERIFY(FileTree::write(target, "older"));
        QVERIFY(QFile::setPermissions(target, kPrivate));
        IncomingFile file(target);
        QVERIFY(file.open(needsSync));
        QCOMPARE(qobject_cast<QFileDevice *>(file.device())->permissions() & kOfTheFile, kPrivate);
    }

    void permissionsThatChangeMeanwhileAreKept_data() { storages(); }
    void permissionsThatChangeMeanwhileAreKept()
    {
        QFETCH(const bool, needsSync);
        const QTemporaryDir dir;
        const QString target = dir.filePath(u"a.txt"_s);
        IncomingFile file(target);
        QVERIFY(file.open(needsSync));
        QVERIFY(FileTree::write(target, "older"));
        QVERIFY(QFile::setPermissions(target, kPrivate));
        QVERIFY(file.finish());
        QCOMPARE(permissionsOf(target), kPrivate);
    }

    void linkIsReplacedByAFileWithThePermissionsOfWhatItLedTo_data() { storages(); }
    void linkIsReplacedByAFileWithThePermissionsOfWhatItLedTo()
    {
        QFETCH(const bool, needsSync);
        const QTemporaryDir dir;
        const QString target = dir.filePath(u"a.txt"_s);
        const QString linked = dir.filePath(u"linked.txt"_s);
        QVERIFY(FileTree::write(linked, "older"));
        QVERIFY(QFile::setPermissions(linked, kPrivate));
        QVERIFY(QFile::link(linked, target));
        IncomingFile file(target);
        QVERIFY(file.open(needsSync));
        QVERIFY(file.finish());
        QVERIFY(!QFileInfo(target).isSymLink());
        QCOMPARE(permissionsOf(target), kPrivate);
        QCOMPARE(FileTree::read(linked), "older");
    }

    void unfinishedFileLeavesNothing_data() { storages(); }
    void unfinishedFileLeavesNothing()
    {
        QFETCH(const bool, needsSync);
        const QTemporaryDir dir;
        const QString target = dir.filePath(u"a.txt"_s);
        QVERIFY(FileTree::write(target, "older"));
        {
            IncomingFile file(target);
            QVERIFY(file.open(needsSync));
            QCOMPARE(file.device()->write("new"), 3);
        }
        QCOMPARE(FileTree::below(dir.path()), QStringList{u"a.txt"_s});
        QCOMPARE(FileTree::read(target), "older");
    }

    void storageThatNeedsItIsWrittenThroughASaveFile_data() { storages(); }
    void storageThatNeedsItIsWrittenThroughASaveFile()
    {
        QFETCH(const bool, needsSync);
        const QTemporaryDir dir;
        IncomingFile file(dir.filePath(u"a.txt"_s));
        QVERIFY(file.open(needsSync));
        QCOMPARE(qobject_cast<QSaveFile *>(file.device()) != nullptr, needsSync);
        const auto *device = qobject_cast<QFileDevice *>(file.device());
        const QRegularExpression partial(u"^%1/[0-9a-f-]{36}\\.part$"_s.arg(dir.path()));
        QVERIFY(partial.match(device->fileName()).hasMatch());
    }

    void missingFolderDoesNotOpen_data() { storages(); }
    void missingFolderDoesNotOpen()
    {
        QFETCH(const bool, needsSync);
        const QTemporaryDir dir;
        IncomingFile file(dir.filePath(u"missing/a.txt"_s));
        QVERIFY(!file.open(needsSync));
        QVERIFY(FileTree::below(dir.path()).isEmpty());
    }

    void folderInItsPlaceStays_data() { storages(); }
    void folderInItsPlaceStays()
    {
        QFETCH(const bool, needsSync);
        const QTemporaryDir dir;
        QVERIFY(FileTree::write(dir.filePath(u"a/kept.txt"_s), "kept"));
        {
            IncomingFile file(dir.filePath(u"a"_s));
            QVERIFY(file.open(needsSync));
            QVERIFY(!file.finish());
        }
        QCOMPARE(FileTree::below(dir.path()), (QStringList{u"a/"_s, u"a/kept.txt"_s}));
    }

    // What has not been committed cannot be moved into place.
    void commitThatFailsShowsInTheMove()
    {
        const QTemporaryDir dir;
        const QString target = dir.filePath(u"a.txt"_s);
        QVERIFY(FileTree::write(target, "older"));
        IncomingFile file(target);
        QVERIFY(file.open(true));
        qobject_cast<QSaveFile *>(file.device())->cancelWriting();
        QVERIFY(!file.finish());
        QCOMPARE(FileTree::below(dir.path()), QStringList{u"a.txt"_s});
        QCOMPARE(FileTree::read(target), "older");
    }

    // A full disk is to show in the write.
    void nothingIsHeldBackInABuffer_data() { storages(); }
    void nothingIsHeldBackInABuffer()
    {
        QFETCH(const bool, needsSync);
        const QTemporaryDir dir;
        IncomingFile file(dir.filePath(u"a.txt"_s));
        QVERIFY(file.open(needsSync));
        QVERIFY(file.device()->openMode().testFlag(QIODevice::Unbuffered));
        QCOMPARE(file.device()->write("new"), 3);
        const QStringList visible = FileTree::below(dir.path());
        // A save file has no name before it is committed.
        if (!needsSync || !visible.isEmpty())
            QCOMPARE(FileTree::read(dir.filePath(visible.value(0))), "new");
    }

private:
    static void storages()
    {
        QTest::addColumn<bool>("needsSync");
        QTest::newRow("removable") << true;
        QTest::newRow("fixed") << false;
    }

    static void storagesWithPermissions()
    {
        QTest::addColumn<bool>("needsSync");
        QTest::addColumn<QFileDevice::Permissions>("permissions");
        using File = QFileDevice;
        for (const bool needsSync : {true, false}) {
            const auto row = [needsSync](const char *name, QFileDevice::Permissions permissions) {
                QTest::addRow("%s, %s", name, needsSync ? "removable" : "fixed")
                    << needsSync << permissions;
            };
            row("the owner's alone", kPrivate);
            row("read by its owner alone", File::ReadOwner);
            row("read by the group", kPrivate | File::ReadGroup);
            row("written by all",
                kPrivate | File::ReadGroup | File::WriteGroup | File::ReadOther | File::WriteOther);
            row("executable", kPrivate | File::ExeOwner | File::ExeGroup | File::ExeOther);
            row("nobody's", {});
        }
    }

    static QFileDevice::Permissions permissionsOf(const QString &path)
    {
        return QFile::permissions(path) & kOfTheFile;
    }

    static constexpr QFileDevice::Permissions kPrivate =
        QFileDevice::ReadOwner | QFileDevice::WriteOwner;
    // Without what Qt adds for the user of this process.
    static constexpr QFileDevice::Permissions kOfTheFile =
        QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner |
        QFileDevice::ReadGroup | QFileDevice::WriteGroup | QFileDevice::ExeGroup |
        QFileDevice::ReadOther | QFileDevice::WriteOther | QFileDevice::ExeOther;
};

QTEST_APPLESS_MAIN(tst_IncomingFile)
#include "tst_incomingfile.moc"
