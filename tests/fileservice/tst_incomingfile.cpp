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

    void fileHasThePermissionsOfAnyNewFile_data() { storages(); }
    void fileHasThePermissionsOfAnyNewFile()
    {
        QFETCH(const bool, needsSync);
        const QTemporaryDir dir;
        const QString target = dir.filePath(u"a.txt"_s);
        QVERIFY(FileTree::write(target, "older"));
        QVERIFY(QFile::setPermissions(target, QFileDevice::ReadOwner));
        IncomingFile file(target);
        QVERIFY(file.open(needsSync));
        QVERIFY(file.finish());
        QVERIFY(FileTree::write(dir.filePath(u"fresh.txt"_s), "fresh"));
        QCOMPARE(QFile::permissions(target), QFile::permissions(dir.filePath(u"fresh.txt"_s)));
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

    // What has not been committed cannot be moved into place; the older file is gone by then.
    void commitThatFailsShowsInTheMove()
    {
        const QTemporaryDir dir;
        const QString target = dir.filePath(u"a.txt"_s);
        QVERIFY(FileTree::write(target, "older"));
        IncomingFile file(target);
        QVERIFY(file.open(true));
        qobject_cast<QSaveFile *>(file.device())->cancelWriting();
        QVERIFY(!file.finish());
        QVERIFY(FileTree::below(dir.path()).isEmpty());
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
};

QTEST_APPLESS_MAIN(tst_IncomingFile)
#include "tst_incomingfile.moc"
