// SPDX-License-Identifier: MIT
#include <brixrt/sysfsblock_linux_p.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

// A tree of devices as the kernel shows it, in a temporary folder.
class DeviceTree
{
public:
    QString blockRoot() const { return m_root.filePath(u"dev/block"_s); }

    // Adds a disk at a place below devices/ and gives its folder.
    QString addDisk(const QString &place, const QByteArray &removable = "0\n")
    {
        const QString folder = m_root.filePath(u"devices/%1"_s.arg(place));
        makeFolder(folder);
        write(folder + u"/removable"_s, removable);
        return folder;
    }

    QString addPartition(const QString &disk, const QString &name)
    {
        const QString folder = u"%1/%2"_s.arg(disk, name);
        makeFolder(folder);
        write(folder + u"/partition"_s, "1\n");
        return folder;
    }

    void number(const QString &folder, const QString &majorAndMinor)
    {
        makeFolder(blockRoot());
        link(folder, u"%1/%2"_s.arg(blockRoot(), majorAndMinor));
    }

    // Lays the upper device upon the lower one.
    void lay(const QString &upper, const QString &lower)
    {
        makeFolder(upper + u"/slaves"_s);
        link(lower, u"%1/slaves/%2"_s.arg(upper, QFileInfo(lower).fileName()));
    }

private:
    static void makeFolder(const QString &folder) { QVERIFY(QDir().mkpath(folder)); }
    static void link(const QString &target, const QString &name)
    {
        QVERIFY(QFile::link(target, name));
    }
    static void write(const QString &fileName, const QByteArray &content)
    {
        QFile file(fileName);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(content), content.size());
    }

    QTemporaryDir m_root;
};

} // namespace

class tst_SysfsBlockLinux : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void diskInsideIsNotRemovable()
    {
        DeviceTree tree;
        const QString disk = tree.addDisk(u"pci0000:00/ata1/block/sda"_s);
        tree.number(disk, u"8:0"_s);
        tree.number(tree.addPartition(disk, u"sda1"_s), u"8:1"_s);
        QVERIFY(!isRemovable(tree, 8, 0));
        QVERIFY(!isRemovable(tree, 8, 1));
    }

    void memoryCardSaysSo()
    {
        DeviceTree tree;
        const QString disk = tree.addDisk(u"pci0000:00/mmc0/block/mmcblk0"_s, "1\n");
        tree.number(disk, u"179:0"_s);
        tree.number(tree.addPartition(disk, u"mmcblk0p1"_s), u"179:1"_s);
        QVERIFY(isRemovable(tree, 179, 0));
        QVERIFY(isRemovable(tree, 179, 1));
    }

    void driveOnUsbIsRemovableWhateverItSays()
    {
        DeviceTree tree;
        const QString disk = tree.addDisk(u"pci0000:00/usb2/2-1/2-1:1.0/host6/block/sdb"_s);
        tree.number(disk, u"8:16"_s);
        tree.number(tree.addPartition(disk, u"sdb2"_s), u"8:18"_s);
        QVERIFY(isRemovable(tree, 8, 16));
        QVERIFY(isRemovable(tree, 8, 18));
    }

    void nameThatOnlyBeginsLikeUsbIsNone_data()
    {
        QTest::addColumn<QString>("folder");
        QTest::newRow("no number") << u"usb"_s;
        QTest::newRow("word") << u"usbstorage"_s;
        QTest::newRow("inside a word") << u"notusb1"_s;
    }
    void nameThatOnlyBeginsLikeUsbIsNone()
    {
        QFETCH(QString, folder);
        DeviceTree tree;
        tree.number(tree.addDisk(u"%1/block/sdc"_s.arg(folder)), u"8:32"_s);
        QVERIFY(!isRemovable(tree, 8, 32));
    }

    void encryptedVolumeFollowsTheDiskBelow()
    {
        DeviceTree tree;
        const QString stick = tree.addDisk(u"usb1/block/sdb"_s);
        const QString inside = tree.addDisk(u"ata1/block/sda"_s);
        const QString onStick = tree.addDisk(u"virtual/block/dm-0"_s);
        const QString onInside = tree.addDisk(u"virtual/block/dm-1"_s);
        tree.lay(onStick, tree.addPartition(stick, u"sdb1"_s));
        tree.lay(onInside, tree.addPartition(inside, u"sda1"_s));
        tree.number(onStick, u"253:0"_s);
        tree.number(onInside, u"253:1"_s);
        QVERIFY(isRemovable(tree, 253, 0));
        QVERIFY(!isRemovable(tree, 253, 1));
    }

    void layersInACircleEnd()
    {
        DeviceTree tree;
        const QString one = tree.addDisk(u"virtual/block/dm-0"_s);
        const QString two = tree.addDisk(u"virtual/block/dm-1"_s);
        tree.lay(one, two);
        tree.lay(two, one);
        tree.number(one, u"253:0"_s);
        QVERIFY(!isRemovable(tree, 253, 0));
    }

    void unknownDeviceIsNotRemovable()
    {
        DeviceTree tree;
        QVERIFY(!isRemovable(tree, 8, 0));
        tree.number(u"/nonexistent/disk"_s, u"8:0"_s);
        QVERIFY(!isRemovable(tree, 8, 0));
    }

private:
    static bool isRemovable(const DeviceTree &tree, unsigned majorNumber, unsigned minorNumber)
    {
        return StoragePlatform::isRemovableBlockDevice(tree.blockRoot(), majorNumber, minorNumber);
    }
};

QTEST_APPLESS_MAIN(tst_SysfsBlockLinux)
#include "tst_sysfsblock_linux.moc"
