// SPDX-License-Identifier: MIT
#include <brixrt/sstorageinfo.h>

#include <QtCore/QStorageInfo>

#include <type_traits>

using namespace Talverine;
using namespace Qt::StringLiterals;

static_assert(!std::is_copy_constructible_v<SStorageInfo>);
static_assert(!std::is_convertible_v<QString, SStorageInfo>);

class tst_SStorageInfo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tellsWhatTheSystemTells()
    {
        const SStorageInfo storage(m_folder.path());
        const QStorageInfo expected(m_folder.path());
        QVERIFY(storage.isValid());
        QCOMPARE(storage.rootPath(), expected.rootPath());
        QCOMPARE(storage.device(), expected.device());
        QCOMPARE(storage.fileSystemType(), expected.fileSystemType());
        QCOMPARE(storage.bytesTotal(), expected.bytesTotal());
        QVERIFY(storage.bytesFree() >= storage.bytesAvailable());
        QVERIFY(storage.bytesTotal() >= storage.bytesFree());
        QVERIFY(storage.bytesAvailable() > 0);
    }

    void pathStandsForItsNearestFolder_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("missing file") << m_folder.filePath(u"missing.txt"_s);
        QTest::newRow("missing folders") << m_folder.filePath(u"a/b/c"_s);
        QTest::newRow("folder with a slash") << m_folder.path() + u'/';
        QTest::newRow("way up and down again")
            << m_folder.filePath(u"../%1"_s.arg(QDir(m_folder.path()).dirName()));
        QTest::newRow("file") << m_file;
        QTest::newRow("below a file") << m_file + u"/below"_s;
        QTest::newRow("odd name") << m_folder.filePath(u"50%2 off ü\n"_s);
    }
    void pathStandsForItsNearestFolder()
    {
        QFETCH(QString, path);
        const SStorageInfo storage(path);
        const SStorageInfo folder(m_folder.path());
        QVERIFY(storage.isValid());
        QCOMPARE(storage.rootPath(), folder.rootPath());
        QCOMPARE(storage.isRemovable(), folder.isRemovable());
        QCOMPARE(storage.sensitivity(), folder.sensitivity());
    }

    void relativePathStartsAtTheCurrentFolder()
    {
        const SStorageInfo storage(u"."_s);
        QCOMPARE(storage.rootPath(), QStorageInfo(QDir::currentPath()).rootPath());
    }

    void missingRootStandsForTheRoot()
    {
        const SStorageInfo storage(u"/nonexistent/folder"_s);
        QVERIFY(storage.isValid());
        QCOMPARE(storage.rootPath(), QStorageInfo::root().rootPath());
    }

    void emptyPathIsNoStorage_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("null") << QString();
        QTest::newRow("empty") << u""_s;
    }
    void emptyPathIsNoStorage()
    {
        QFETCH(QString, path);
        SStorageInfo storage(path);
        QVERIFY(!storage.isValid());
        QCOMPARE(storage.rootPath(), QString());
        QCOMPARE(storage.device(), QByteArray());
        QCOMPARE(storage.fileSystemType(), QByteArray());
        QCOMPARE(storage.bytesTotal(), -1);
        QCOMPARE(storage.bytesFree(), -1);
        QCOMPARE(storage.bytesAvailable(), -1);
        QVERIFY(!storage.isRemovable());
        QVERIFY(!storage.sync());
    }

    void sensitivityIsWhatFilesShow()
    {
        const bool otherCaseIsFound = QFile::exists(m_folder.filePath(u"FILE"_s));
        QCOMPARE(SStorageInfo(m_folder.path()).sensitivity(),
                 otherCaseIsFound ? Qt::CaseInsensitive : Qt::CaseSensitive);
    }

    void emptyPathAnswersAsThePlatformUsuallyDoes()
    {
#ifdef Q_OS_LINUX
        QCOMPARE(SStorageInfo(QString()).sensitivity(), Qt::CaseSensitive);
#else
        QCOMPARE(SStorageInfo(QString()).sensitivity(), Qt::CaseInsensitive);
#endif
    }

    void kernelFoldersAreNotRemovable()
    {
#ifdef Q_OS_LINUX
        QVERIFY(!SStorageInfo(u"/proc"_s).isRemovable());
        QVERIFY(SStorageInfo(u"/proc"_s).sync());
#endif
        QVERIFY(!SStorageInfo(u"/nonexistent"_s).rootPath().isEmpty());
    }

    void initTestCase()
    {
        m_file = m_folder.filePath(u"file"_s);
        QFile file(m_file);
        QVERIFY(file.open(QIODevice::WriteOnly));
    }

private:
    QTemporaryDir m_folder;
    QString m_file;
};

QTEST_APPLESS_MAIN(tst_SStorageInfo)
#include "tst_sstorageinfo.moc"
