// SPDX-License-Identifier: MIT
#include <brixrt/sstorageinfo_p.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_SStorageInfoLinux : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void storageWithoutDeviceIsNotRemovable_data()
    {
        QTest::addColumn<QString>("folder");
        QTest::newRow("kernel's own") << u"/proc"_s;
        QTest::newRow("devices' own") << u"/sys"_s;
        QTest::newRow("missing") << u"/nonexistent/folder"_s;
    }
    void storageWithoutDeviceIsNotRemovable()
    {
        QFETCH(QString, folder);
        QVERIFY(!StoragePlatform::isRemovable(folder));
    }

    void flushesTheStorageOfAFolder()
    {
        const QTemporaryDir folder;
        QVERIFY(StoragePlatform::sync(folder.path()));
        QVERIFY(!StoragePlatform::sync(folder.filePath(u"missing"_s)));
    }

    void typesThatIgnoreCase_data()
    {
        QTest::addColumn<QByteArray>("type");
        QTest::addColumn<Qt::CaseSensitivity>("sensitivity");
        for (const char *type :
             {"vfat", "msdos", "exfat", "ntfs", "ntfs3", "cifs", "smb3", "hfs", "hfsplus"}) {
            QTest::newRow(type) << QByteArray(type) << Qt::CaseInsensitive;
        }
        for (const char *type : {"ext4", "xfs", "btrfs", "tmpfs", "overlay", "nfs4", "vfatx", ""})
            QTest::newRow(type) << QByteArray(type) << Qt::CaseSensitive;
    }
    void typesThatIgnoreCase()
    {
        QFETCH(QByteArray, type);
        QFETCH(Qt::CaseSensitivity, sensitivity);
        const QTemporaryDir folder;
        QCOMPARE(StoragePlatform::sensitivity(folder.path(), type), sensitivity);
    }

    void usualAnswerIsSensitive()
    {
        QCOMPARE(StoragePlatform::usualSensitivity(), Qt::CaseSensitive);
    }
};

QTEST_APPLESS_MAIN(tst_SStorageInfoLinux)
#include "tst_sstorageinfo_linux.moc"
