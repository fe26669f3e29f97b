// SPDX-License-Identifier: MIT
#include <brixlib/foundation/sfileentry.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr FileEntryFlags bits(quint32 value)
{
    return static_cast<FileEntryFlags>(value);
}

QString makeFile(const QDir &folder, const QString &name, const QByteArray &content)
{
    QFile file(folder.filePath(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        return QString();
    return file.fileName();
}

} // namespace

class tst_SFileEntry : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaultEntryIsNull()
    {
        const SFileEntry entry;
        QVERIFY(entry.isNull());
        QVERIFY(entry.fileName().isEmpty());
        QCOMPARE(entry.size(), 0);
        QVERIFY(entry.lastModified().isNull());
        QCOMPARE(quint32(entry.flags()), 0u);
        QVERIFY(entry.isFile());
    }

    void everyFieldCountsInComparing()
    {
        const QDateTime date = QDateTime::fromMSecsSinceEpoch(1000);
        const SFileEntry entry(u"a"_s, 1, date, FileEntryFlags::Readable);
        QCOMPARE(entry, SFileEntry(u"a"_s, 1, date, FileEntryFlags::Readable));
        QVERIFY(entry != SFileEntry(u"b"_s, 1, date, FileEntryFlags::Readable));
        QVERIFY(entry != SFileEntry(u"a"_s, 2, date, FileEntryFlags::Readable));
        QVERIFY(entry != SFileEntry(u"a"_s, 1, date.addMSecs(1), FileEntryFlags::Readable));
        QVERIFY(entry != SFileEntry(u"a"_s, 1, date, FileEntryFlags::Writable));
    }

    void oneFieldIsEnoughNotToBeNull()
    {
        const QDateTime noDate;
        QVERIFY(SFileEntry(QString(), 0, noDate, FileEntryFlags::None).isNull());
        QVERIFY(SFileEntry(u""_s, 0, noDate, FileEntryFlags::None).isNull());
        QVERIFY(!SFileEntry(u"a"_s, 0, noDate, FileEntryFlags::None).isNull());
        QVERIFY(!SFileEntry(QString(), 1, noDate, FileEntryFlags::None).isNull());
        QVERIFY(
            !SFileEntry(QString(), 0, QDateTime::currentDateTime(), FileEntryFlags::None).isNull());
        QVERIFY(!SFileEntry(QString(), 0, noDate, FileEntryFlags::Hidden).isNull());
    }

    void copyEqualsItsOriginal()
    {
        const SFileEntry entry(u"a"_s, 1, QDateTime::currentDateTime(), FileEntryFlags::Hidden);
        const SFileEntry copy(entry);
        SFileEntry assigned;
        assigned = entry;
        QCOMPARE(copy, entry);
        QCOMPARE(assigned, entry);
    }

    void flagsHaveTheFixedBits()
    {
        QCOMPARE(quint32(FileEntryFlags::Directory), 0x00000001u);
        QCOMPARE(quint32(FileEntryFlags::Symbolic), 0x00000002u);
        QCOMPARE(quint32(FileEntryFlags::Readable), 0x00000004u);
        QCOMPARE(quint32(FileEntryFlags::Writable), 0x00000008u);
        QCOMPARE(quint32(FileEntryFlags::Executable), 0x00000010u);
        QCOMPARE(quint32(FileEntryFlags::Hidden), 0x00000020u);
    }

    void eachQuestionReadsOneBit_data()
    {
        QTest::addColumn<quint32>("flag");
        QTest::newRow("directory") << 0x01u;
        QTest::newRow("symbolic") << 0x02u;
        QTest::newRow("readable") << 0x04u;
        QTest::newRow("writable") << 0x08u;
        QTest::newRow("executable") << 0x10u;
        QTest::newRow("hidden") << 0x20u;
        QTest::newRow("undeclared bit") << 0x40u;
        QTest::newRow("a permission") << 0x40000000u;
    }

    void eachQuestionReadsOneBit()
    {
        QFETCH(quint32, flag);
        const SFileEntry entry(u"a"_s, 0, QDateTime(), bits(flag));
        QCOMPARE(entry.isDirectory(), flag == 0x01);
        QCOMPARE(entry.isFile(), flag != 0x01);
        QCOMPARE(entry.isSymbolic(), flag == 0x02);
        QCOMPARE(entry.isReadable(), flag == 0x04);
        QCOMPARE(entry.isWritable(), flag == 0x08);
        QCOMPARE(entry.isExecutable(), flag == 0x10);
        QCOMPARE(entry.isHidden(), flag == 0x20);
    }

    void permissionsAreTheHighHalf()
    {
        const auto permissions = QFileDevice::ReadOwner | QFileDevice::WriteUser |
                                 QFileDevice::ExeGroup | QFileDevice::ReadOther;
        const FileEntryFlags flags = SFileEntry::qtPermissionsToFileEntryFlagsToQt(permissions);
        QCOMPARE(quint32(flags), 0x42140000u);
        QCOMPARE(SFileEntry::fileEntryFlagsToQtPermissions(flags), permissions);
        QCOMPARE(SFileEntry::fileEntryFlagsToQtPermissions(bits(0x4214003F)), permissions);
        QCOMPARE(SFileEntry(u"a"_s, 0, QDateTime(), bits(0x4214003F)).qtPermissions(), permissions);
        QCOMPARE(SFileEntry::fileEntryFlagsToQtPermissions(bits(0x0000FFFF)),
                 QFileDevice::Permissions());
    }

    void everyHighBitSurvivesTheWayThroughPermissions()
    {
        const FileEntryFlags all = FileEntryFlags::Permissions;
        const auto permissions = SFileEntry::fileEntryFlagsToQtPermissions(all);
        QCOMPARE(permissions.toInt(), 0xFFFF);
        QCOMPARE(SFileEntry::qtPermissionsToFileEntryFlagsToQt(permissions), all);
    }

    void baseFlagsString_data()
    {
        QTest::addColumn<quint32>("flags");
        QTest::addColumn<QString>("text");
        QTest::newRow("nothing") << 0u << u"f----"_s;
        QTest::newRow("all") << 0x3Fu << u"dhrwx"_s;
        QTest::newRow("directory") << 0x01u << u"d----"_s;
        QTest::newRow("a link has no letter") << 0x02u << u"f----"_s;
        QTest::newRow("readable") << 0x04u << u"f-r--"_s;
        QTest::newRow("writable") << 0x08u << u"f--w-"_s;
        QTest::newRow("executable") << 0x10u << u"f---x"_s;
        QTest::newRow("hidden") << 0x20u << u"fh---"_s;
        QTest::newRow("permissions are not shown") << 0xFFFF0000u << u"f----"_s;
    }

    void baseFlagsString()
    {
        QFETCH(quint32, flags);
        QFETCH(QString, text);
        QCOMPARE(SFileEntry::baseFlagsString(bits(flags)), text);
        QCOMPARE(SFileEntry(QString(), 0, QDateTime(), bits(flags)).baseFlagsString(), text);
    }

    void advancedFlagsString_data()
    {
        QTest::addColumn<quint32>("flags");
        QTest::addColumn<QString>("text");
        QTest::newRow("nothing") << 0u << u"---------"_s;
        QTest::newRow("only the owner's bits") << 0x70000000u << u"---------"_s;
        QTest::newRow("low half is not shown") << 0x0000FFFFu << u"---------"_s;
        QTest::newRow("all") << 0xFFFF0000u << u"rwxrwxrwx"_s;
        QTest::newRow("bit 26") << (1u << 26) << u"r--------"_s;
        QTest::newRow("bit 25") << (1u << 25) << u"-w-------"_s;
        QTest::newRow("bit 24") << (1u << 24) << u"--x------"_s;
        QTest::newRow("bit 22") << (1u << 22) << u"---r-----"_s;
        QTest::newRow("bit 21") << (1u << 21) << u"----w----"_s;
        QTest::newRow("bit 20") << (1u << 20) << u"-----x---"_s;
        QTest::newRow("bit 18") << (1u << 18) << u"------r--"_s;
        QTest::newRow("bit 17") << (1u << 17) << u"-------w-"_s;
        QTest::newRow("bit 16") << (1u << 16) << u"--------x"_s;
    }

    void advancedFlagsString()
    {
        QFETCH(quint32, flags);
        QFETCH(QString, text);
        QCOMPARE(SFileEntry::advancedFlagsString(bits(flags)), text);
        QCOMPARE(SFileEntry(QString(), 0, QDateTime(), bits(flags)).advancedFlagsString(), text);
    }

    void plainFile()
    {
        const QTemporaryDir dir;
        const QString path = makeFile(QDir(dir.path()), u"größe.bin"_s, QByteArray(12345, 'x'));
        QVERIFY(!path.isEmpty());
        QFile file(path);
        QVERIFY(file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                    QFileDevice::ReadGroup));
        QVERIFY(file.open(QIODevice::ReadWrite));
        const QDateTime date = QDateTime::fromMSecsSinceEpoch(1577934245000);
        QVERIFY(file.setFileTime(date, QFileDevice::FileModificationTime));
        file.close();

        const SFileEntry entry = SFileEntry::fromFileName(path);
        QCOMPARE(entry.fileName(), u"größe.bin"_s);
        QCOMPARE(entry.size(), 12345);
        QCOMPARE(entry.lastModified(), date);
        QVERIFY(entry.isFile());
        QVERIFY(entry.isReadable());
        QVERIFY(entry.isWritable());
        QVERIFY(!entry.isExecutable());
        QVERIFY(!entry.isSymbolic());
        QVERIFY(!entry.isHidden());
        QCOMPARE(entry.qtPermissions(), QFileInfo(path).permissions());
        QCOMPARE(entry.advancedFlagsString(), u"rw-r-----"_s);
    }

    void folder()
    {
        const QTemporaryDir dir;
        const SFileEntry entry = SFileEntry::fromFileName(dir.path());
        QVERIFY(entry.isDirectory());
        QVERIFY(!entry.isFile());
        QVERIFY(entry.isExecutable());
        QCOMPARE(entry.fileName(), QFileInfo(dir.path()).fileName());
    }

    void parentFolderKeepsItsDots()
    {
        const SFileEntry entry = SFileEntry::fromFileName(u".."_s);
        QCOMPARE(entry.fileName(), u".."_s);
        QVERIFY(entry.isDirectory());
    }

    void missingFileHasItsNameOnly()
    {
        const QTemporaryDir dir;
        const SFileEntry entry = SFileEntry::fromFileName(dir.filePath(u"missing.txt"_s));
        QCOMPARE(entry.fileName(), u"missing.txt"_s);
        QCOMPARE(entry.size(), 0);
        QCOMPARE(quint32(entry.flags()), 0u);
        QVERIFY(!entry.lastModified().isValid());
        QVERIFY(!entry.isNull());
    }

#ifdef Q_OS_UNIX
    void dottedFileIsHidden()
    {
        const QTemporaryDir dir;
        const QString path = makeFile(QDir(dir.path()), u".profile"_s, "x");
        QVERIFY(SFileEntry::fromFileName(path).isHidden());
    }

    void missingDottedFileHasNoFlags()
    {
        const QTemporaryDir dir;
        const SFileEntry entry = SFileEntry::fromFileName(dir.filePath(u".missing"_s));
        QCOMPARE(quint32(entry.flags()), 0u);
    }

    void linkToAFolderIsBoth()
    {
        const QTemporaryDir dir;
        const QString link = dir.filePath(u"link"_s);
        QVERIFY(QFile::link(dir.path(), link));
        const SFileEntry entry = SFileEntry::fromFileName(link);
        QVERIFY(entry.isDirectory());
        QVERIFY(entry.isSymbolic());
    }

    void linkThatLeadsNowhereIsStillALink()
    {
        const QTemporaryDir dir;
        const QString link = dir.filePath(u"dangling"_s);
        QVERIFY(QFile::link(dir.filePath(u"missing"_s), link));
        const SFileEntry entry = SFileEntry::fromFileName(link);
        QCOMPARE(entry.fileName(), u"dangling"_s);
        QVERIFY(entry.isSymbolic());
        QVERIFY(entry.isFile());
    }

    void shellLinkToAFolderIsAFile_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("directory");
        QTest::newRow("suffix LNK") << u"folder.LNK"_s << false;
        QTest::newRow("suffix lnk") << u"folder.lnk"_s << false;
        QTest::newRow("another suffix") << u"folder.lnk2"_s << true;
    }

    void shellLinkToAFolderIsAFile()
    {
        QFETCH(QString, name);
        QFETCH(bool, directory);
        const QTemporaryDir dir;
        QVERIFY(QFile::link(dir.path(), dir.filePath(name)));
        const SFileEntry entry = SFileEntry::fromFileName(dir.filePath(name));
        QCOMPARE(entry.isDirectory(), directory);
        QVERIFY(entry.isSymbolic());
    }

    void folderWithTheSuffixOfALinkStaysAFolder()
    {
        const QTemporaryDir dir;
        QVERIFY(QDir(dir.path()).mkdir(u"real.lnk"_s));
        QVERIFY(SFileEntry::fromFileName(dir.filePath(u"real.lnk"_s)).isDirectory());
    }

    void fileAboveFourGigabytesHasItsSize()
    {
        const QTemporaryDir dir;
        QFile file(dir.filePath(u"sparse"_s));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.resize(Q_INT64_C(5) << 30));
        QCOMPARE(SFileEntry::fromFileName(file.fileName()).size(), Q_INT64_C(5) << 30);
    }
#endif

    void typesTravelByBothSpellings_data()
    {
        QTest::addColumn<QByteArray>("spelling");
        QTest::addColumn<QMetaType>("type");
        const auto entry = QMetaType::fromType<SFileEntry>();
        const auto list = QMetaType::fromType<QList<SFileEntry>>();
        const auto flags = QMetaType::fromType<FileEntryFlags>();
        QTest::newRow("entry") << QByteArray("SFileEntry") << entry;
        QTest::newRow("entry in full") << QByteArray("Talverine::SFileEntry") << entry;
        QTest::newRow("list") << QByteArray("QList<SFileEntry>") << list;
        QTest::newRow("list in full") << QByteArray("QList<Talverine::SFileEntry>") << list;
        QTest::newRow("flags") << QByteArray("FileEntryFlags") << flags;
        QTest::newRow("flags in full") << QByteArray("Talverine::FileEntryFlags") << flags;
    }

    void typesTravelByBothSpellings()
    {
        QFETCH(QByteArray, spelling);
        QFETCH(QMetaType, type);
        QCOMPARE(QMetaType::fromName(spelling), type);
    }

    void entryGoesThroughAVariant()
    {
        const SFileEntry entry(u"a"_s, 1, QDateTime::currentDateTime(), FileEntryFlags::Hidden);
        QCOMPARE(QVariant::fromValue(entry).value<SFileEntry>(), entry);
    }
};

QTEST_APPLESS_MAIN(tst_SFileEntry)
#include "tst_sfileentry.moc"
