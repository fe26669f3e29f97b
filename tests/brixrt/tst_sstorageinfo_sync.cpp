// SPDX-License-Identifier: MIT
#include <brixrt/sstorageinfo.h>

#include <brixrt/sstorageinfo_p.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

// What the played platform answers, and what it was asked to do.
struct Platform
{
    bool removable = true;
    bool syncResult = true;
    QStringList synced;
};

Platform platform;

} // namespace

namespace Talverine::StoragePlatform {

bool isRemovable(const QString &)
{
    return platform.removable;
}

bool sync(const QString &folder)
{
    platform.synced.append(folder);
    return platform.syncResult;
}

Qt::CaseSensitivity sensitivity(const QString &, const QByteArray &)
{
    return Qt::CaseInsensitive;
}

Qt::CaseSensitivity usualSensitivity()
{
    return Qt::CaseInsensitive;
}

} // namespace Talverine::StoragePlatform

class tst_SStorageInfoSync : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { platform = {}; }

    void flushesRemovableStorageAtOnce()
    {
        {
            SStorageInfo storage(m_folder.path());
            QVERIFY(storage.sync());
            QCOMPARE(platform.synced, QStringList(m_folder.path()));
        }
        QCOMPARE(platform.synced.size(), 1);
    }

    void flushesOnceWhenItDies()
    {
        {
            SStorageInfo storage(m_folder.path());
            storage.syncLater();
            storage.syncLater();
            QCOMPARE(platform.synced, QStringList());
        }
        QCOMPARE(platform.synced, QStringList(m_folder.path()));
    }

    void flushesNothingUnasked()
    {
        {
            const SStorageInfo storage(m_folder.path());
            QVERIFY(storage.isRemovable());
        }
        QCOMPARE(platform.synced, QStringList());
    }

    void leavesOtherStorageAlone()
    {
        platform.removable = false;
        {
            SStorageInfo storage(m_folder.path());
            QVERIFY(storage.sync());
            storage.syncLater();
        }
        QCOMPARE(platform.synced, QStringList());
    }

    void tellsFailure()
    {
        platform.syncResult = false;
        SStorageInfo storage(m_folder.path());
        QVERIFY(!storage.sync());
    }

    void fileFlushesItsFolder()
    {
        SStorageInfo storage(m_folder.filePath(u"some/file"_s));
        QVERIFY(storage.sync());
        QCOMPARE(platform.synced, QStringList(m_folder.path()));
    }

    void emptyPathAsksThePlatformNothing()
    {
        {
            SStorageInfo storage{QString()};
            QVERIFY(!storage.isRemovable());
            QVERIFY(!storage.sync());
            storage.syncLater();
            QCOMPARE(storage.sensitivity(), Qt::CaseInsensitive);
        }
        QCOMPARE(platform.synced, QStringList());
    }

private:
    QTemporaryDir m_folder;
};

QTEST_APPLESS_MAIN(tst_SStorageInfoSync)
#include "tst_sstorageinfo_sync.moc"
