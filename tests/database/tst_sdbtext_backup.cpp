// SPDX-License-Identifier: MIT
// Backup and restore, and what is done with two databases.
#include "sampledatabase.h"

#include <brixlib/compression/scompressordevice.h>
#include <brixlib/compression/slz4.h>
#include <brixlib/compression/szip.h>

#ifdef Q_OS_UNIX
#include <shared/filesizelimit.h>
#endif

#include <QtCore/QBuffer>
#include <QtCore/QTemporaryFile>
#include <QtCore/QThread>
#include <QtTest/QSignalSpy>

using namespace Talverine;
using namespace Talverine::Sample;
using namespace Qt::StringLiterals;
using Compression::CompressionAlgorithm;
using Compression::SCompressorDevice;

namespace {

//! A database in memory, of ada, with records of the level 1.
class Memory
{
public:
    explicit Memory(const QStringList &names = {}, const QString &key = u"name"_s,
                    DBAuthGrants grants = DBAuthGrants::ReadOnly)
    {
        if (!create(database, &device, grants, key) || !insertAll(database, names))
            qFatal("no database");
    }

    QBuffer device;
    SDBText database;
};

} // namespace

class tst_SDBText_Backup : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // It has the hash of the password.
    void newBackupHasThePermissionsOfTheDatabase_data()
    {
        QTest::addColumn<CompressionAlgorithm>("algorithm");
        QTest::newRow("plain") << CompressionAlgorithm::Uncompressed;
        QTest::newRow("compressed") << CompressionAlgorithm::Lz4;
    }

    void newBackupHasThePermissionsOfTheDatabase()
    {
        QFETCH(CompressionAlgorithm, algorithm);
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(
            QFile::setPermissions(place.file, QFileDevice::ReadOwner | QFileDevice::WriteOwner));
        QVERIFY(database.open(place.file));
        database.setBackupCompressor(algorithm);
        const QString backup = place.beside(u".backup"_s);
        QVERIFY(database.backup(backup));
        QCOMPARE(QFile::permissions(backup), QFile::permissions(place.file));
        // One that is there stays whose it is.
        const auto own = QFile::permissions(backup) | QFileDevice::ReadGroup;
        QVERIFY(QFile::setPermissions(backup, own));
        QVERIFY(database.backup(backup));
        QCOMPARE(QFile::permissions(backup), own);
    }

    void deniedBackupMakesNoFile()
    {
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file, DBAuthGrants::None));
        QVERIFY(!database.authenticate(u"bob"_s, u"other"_s));
        QVERIFY(!database.backup(place.beside(u".backup"_s)));
        QCOMPARE(database.error(), DBError::AuthError);
        QVERIFY(!QFile::exists(place.beside(u".backup"_s)));
    }

    void backupIsACopy_data()
    {
        QTest::addColumn<CompressionAlgorithm>("set");
        QTest::addColumn<CompressionAlgorithm>("used");
        QTest::newRow("Uncompressed")
            << CompressionAlgorithm::Uncompressed << CompressionAlgorithm::Uncompressed;
        QTest::newRow("Zip") << CompressionAlgorithm::Zip << CompressionAlgorithm::Zip;
        QTest::newRow("Lz4") << CompressionAlgorithm::Lz4 << CompressionAlgorithm::Lz4;
        QTest::newRow("Lzma") << CompressionAlgorithm::Lzma << CompressionAlgorithm::Uncompressed;
    }

    void backupIsACopy()
    {
        QFETCH(CompressionAlgorithm, set);
        QFETCH(CompressionAlgorithm, used);
        Memory source({u"b"_s, u"a"_s});
        source.database.setBackupCompressor(set);
        QCOMPARE(source.database.backupCompressor(), used);
        QBuffer backup;
        QVERIFY(source.database.backup(&backup));
        QVERIFY(!backup.isOpen());
        QBuffer plain;
        if (used == CompressionAlgorithm::Zip)
            QVERIFY(SCompressorDevice::decompress(&backup, &plain, new Compression::SZip));
        else if (used == CompressionAlgorithm::Lz4)
            QVERIFY(SCompressorDevice::decompress(&backup, &plain, new Compression::SLz4));
        else
            plain.setData(backup.data());
        QCOMPARE(plain.data(), source.device.data());

        Memory target({u"z"_s});
        QSignalSpy restored(&target.database, &SDBText::databaseRestored);
        QSignalSpy modified(&target.database, &SDBText::databaseModified);
        QSignalSpy opened(&target.database, &SDBText::databaseOpened);
        QVERIFY(target.database.restore(&backup));
        QCOMPARE(restored.size(), 1);
        QCOMPARE(restored.at(0).at(0).toBool(), true);
        QCOMPARE(modified.size(), 1);
        QCOMPARE(opened.size(), 0);
        QCOMPARE(target.device.data(), source.device.data());
        QVERIFY(target.database == source.database);
    }

    void backupOfAFile()
    {
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"a"_s}));
        const QString backup = place.folder.filePath(u"backup.db"_s);
        QVERIFY(database.backup(backup));
        QCOMPARE(bytesOf(backup), bytesOf(place.file));
        QVERIFY(database.clear());
        QVERIFY(database.restore(backup));
        QCOMPARE(walk(database), QStringList{u"a"_s});
        QVERIFY(QFile::exists(place.beside(u".lck"_s)));
    }

    void backupThatClears()
    {
        Memory source({u"a"_s});
        QBuffer backup;
        QVERIFY(source.database.backup(&backup, true));
        QCOMPARE(source.database.count(), 0);
        QVERIFY(source.database.restore(&backup));
        QCOMPARE(source.database.count(), 1);
        source.database.authenticate(u"eve"_s, QString());
        QBuffer second;
        expectError("AuthError");
        QVERIFY(!source.database.backup(&second, true));
        QVERIFY(second.data().endsWith(source.device.data()));
    }

    void othersMayOpenTheFileAfterABackup()
    {
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"a"_s}));
        QBuffer backup;
        QVERIFY(database.backup(&backup));
        QVERIFY(!database.isNull());
        SDBText second;
        QVERIFY(second.open(place.file));
        second.close();
        QVERIFY(insertAll(database, {u"b"_s}));
        QCOMPARE(walk(database), (QStringList{u"a"_s, u"b"_s}));
    }

    void targetThatIsOpenIsWrittenFromWhereItStands()
    {
        Memory source({u"a"_s});
        QBuffer backup;
        QVERIFY(backup.open(QIODevice::ReadWrite));
        backup.write("before ");
        QVERIFY(source.database.backup(&backup));
        QCOMPARE(backup.data(), "before " + source.device.data());
        QVERIFY(backup.open(QIODevice::ReadOnly));
        expectError("OpenError");
        QVERIFY(!source.database.backup(&backup));
        backup.close();
        source.database.setBackupCompressor(CompressionAlgorithm::Lz4);
        QVERIFY(backup.open(QIODevice::ReadWrite));
        expectError("WriteError");
        QVERIFY(!source.database.backup(&backup));
    }

    void targetThatIsOpenedForItIsEmptied_data()
    {
        QTest::addColumn<CompressionAlgorithm>("algorithm");
        QTest::newRow("Uncompressed") << CompressionAlgorithm::Uncompressed;
        QTest::newRow("Zip") << CompressionAlgorithm::Zip;
        QTest::newRow("Lz4") << CompressionAlgorithm::Lz4;
    }

    void targetThatIsOpenedForItIsEmptied()
    {
        QFETCH(CompressionAlgorithm, algorithm);
        Memory source({u"a"_s, u"b"_s, u"c"_s});
        source.database.setBackupCompressor(algorithm);
        QBuffer buffer;
        QTemporaryFile file;
        QVERIFY(source.database.backup(&buffer));
        QVERIFY(source.database.backup(&file));
        QVERIFY(source.database.clear());
        QVERIFY(insertAll(source.database, {u"d"_s}));
        for (QIODevice *device : std::initializer_list<QIODevice *>{&buffer, &file}) {
            QVERIFY(source.database.backup(device));
            Memory target;
            QVERIFY(target.database.restore(device));
            QCOMPARE(walk(target.database), QStringList{u"d"_s});
        }
    }

    void backupsThatCannotBeMade()
    {
        Memory source({u"a"_s});
        expectError("OpenError");
        QVERIFY(!source.database.backup(u"/nowhere/backup.db"_s));
        expectError("OpenError");
        QVERIFY(!source.database.backup(static_cast<QIODevice *>(nullptr)));
        SDBText closed;
        QBuffer backup;
        backup.setData("precious");
        expectError("SeekError");
        QVERIFY(!closed.backup(&backup));
        QCOMPARE(backup.data(), "precious");
    }

    void databaseIsNotItsOwnBackup()
    {
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"a"_s}));
        const QByteArray before = bytesOf(place.file);
        expectError("OpenError");
        QVERIFY(!database.backup(place.file));
        QBuffer backup;
        QVERIFY(database.backup(&backup));
        const QString link = place.folder.filePath(u"link.db"_s);
        QVERIFY(QFile::link(place.file, link));
        expectError("OpenError");
        QVERIFY(!database.restore(link));
        QFile same(place.file);
        expectError("OpenError");
        QVERIFY(!database.backup(&same));
        expectError("OpenError");
        QVERIFY(!database.restore(&same));
        // It opens: the backup has dropped the lock.
        SDBText second;
        QVERIFY(second.open(place.file));
        QVERIFY(second.authenticate(kUser, kPassword));
        expectError("OpenError");
        second = database;
        QCOMPARE(second.error(), DBError::OpenError);
        QCOMPARE(bytesOf(place.file), before);
    }

    void databaseIsNotItsOwnBackupUnderAnotherName_data()
    {
        QTest::addColumn<bool>("isHard");
        QTest::addColumn<CompressionAlgorithm>("algorithm");
        QTest::newRow("hard link") << true << CompressionAlgorithm::Uncompressed;
        QTest::newRow("hard link, packed") << true << CompressionAlgorithm::Lz4;
        QTest::newRow("symbolic link") << false << CompressionAlgorithm::Uncompressed;
        QTest::newRow("symbolic link, packed") << false << CompressionAlgorithm::Zip;
    }

    void databaseIsNotItsOwnBackupUnderAnotherName()
    {
        QFETCH(bool, isHard);
        QFETCH(CompressionAlgorithm, algorithm);
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"a"_s}));
        database.setBackupCompressor(algorithm);
        const QString link = place.folder.filePath(u"link.lnk"_s);
        QVERIFY(isHard ? hardLink(place.file, link) : QFile::link(place.file, link));
        const QByteArray before = bytesOf(place.file);
        for (const bool merge : {false, true}) {
            expectError("OpenError");
            QVERIFY(!database.restore(link, merge));
            QCOMPARE(database.error(), DBError::OpenError);
            QCOMPARE(bytesOf(place.file), before);
        }
        for (const bool clearAfter : {false, true}) {
            expectError("OpenError");
            QVERIFY(!database.backup(link, clearAfter));
            QCOMPARE(database.error(), DBError::OpenError);
            QCOMPARE(bytesOf(place.file), before);
        }
        QVERIFY(insertAll(database, {u"b"_s}));
        QCOMPARE(walk(database), (QStringList{u"a"_s, u"b"_s}));
    }

    void databaseIsNotItsOwnBackupByHandle()
    {
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"a"_s}));
        const QByteArray before = bytesOf(place.file);
        QFile other(place.file);
        QVERIFY(other.open(QIODevice::ReadWrite));
        QFile file;
        QVERIFY(file.open(other.handle(), QIODevice::ReadWrite));
        expectError("OpenError");
        QVERIFY(!database.backup(&file));
        expectError("OpenError");
        QVERIFY(!database.restore(&file));
        QCOMPARE(bytesOf(place.file), before);
        QCOMPARE(walk(database), QStringList{u"a"_s});
    }

    void databaseIsNotAssignedToItselfThroughAHardLink()
    {
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"a"_s}));
        const QByteArray before = bytesOf(place.file);
        const QString link = place.folder.filePath(u"link.db"_s);
        QVERIFY(hardLink(place.file, link));
        // Its lock has another name.
        SDBText second;
        QVERIFY(second.open(link));
        QVERIFY(second.authenticate(kUser, kPassword));
        expectError("OpenError");
        second = database;
        QCOMPARE(second.error(), DBError::OpenError);
        QCOMPARE(bytesOf(place.file), before);
    }

    void deviceIsNotItsOwnBackup()
    {
        Memory source({u"a"_s});
        const QByteArray before = source.device.data();
        expectError("OpenError");
        QVERIFY(!source.database.backup(&source.device));
        expectError("OpenError");
        QVERIFY(!source.database.restore(&source.device));
        SDBText second;
        QVERIFY(second.open(&source.device));
        second.authenticate(kUser, kPassword);
        expectError("OpenError");
        second = source.database;
        QCOMPARE(source.device.data(), before);
        QVERIFY(source.database[u"a"_s].checkSignature());
    }

    // restore

    void restoreMergesByKey()
    {
        Memory source({u"a"_s, u"b"_s});
        QBuffer backup;
        QVERIFY(source.database.backup(&backup));
        Memory target({u"b"_s, u"c"_s});
        QVERIFY(target.database.replace(ink(u"b"_s, 9)));
        QSignalSpy removed(&target.database, &SDBText::recordRemoved);
        QSignalSpy inserted(&target.database, &SDBText::recordInserted);
        QSignalSpy restored(&target.database, &SDBText::databaseRestored);
        QVERIFY(target.database.restore(&backup, true));
        QCOMPARE(walk(target.database), (QStringList{u"a"_s, u"b"_s, u"c"_s}));
        QCOMPARE(target.database[u"b"_s].value(u"level"_s), QVariant(u"1"_s));
        QVERIFY(target.database[u"b"_s].checkSignature());
        QCOMPARE(removed.size(), 0);
        QCOMPARE(inserted.size(), 0);
        QCOMPARE(restored.size(), 1);
    }

    void mergedRecordsAreInsertedAnew()
    {
        Memory source({}, u"name"_s, DBAuthGrants::All);
        source.database.authenticate(u"eve"_s, QString());
        QVERIFY(insertAll(source.database, {u"a"_s}));
        const QVariant time = source.database[u"a"_s].value(SDBRecord::DateTimeKey);
        QBuffer backup;
        QVERIFY(source.database.backup(&backup));
        QBuffer device;
        SDBText target;
        QVERIFY(target.authenticate(kUser, kPassword));
        QVERIFY(target.create(&device, u"name"_s, DBAuthGrants::None, QLocale(u"it_IT"_s)));
        QTest::qWait(2);
        QVERIFY(target.restore(&backup, true));
        const SDBRecord record = target[u"a"_s];
        QCOMPARE(record.value(SDBRecord::OwnerKey), QVariant(kUser));
        QCOMPARE(record.value(SDBRecord::CultureKey), QVariant(u"it-IT"_s));
        QVERIFY(record.value(SDBRecord::DateTimeKey) != time);
        QVERIFY(record.checkSignature());
    }

    void restoreUnderUniqueKeysAppendsAll()
    {
        Memory source({u"a"_s, u"b"_s}, SDBRecord::UniqueIncKey);
        QBuffer backup;
        QVERIFY(source.database.backup(&backup));
        QVERIFY(source.database.restore(&backup, true));
        QCOMPARE(source.database.count(), 4);
        QCOMPARE(source.database[u"0000000000000004"_s].value(u"name"_s), QVariant(u"b"_s));
    }

    void restoreIsForTheOwnerOfBoth()
    {
        Memory source({u"a"_s});
        QBuffer backup;
        QVERIFY(source.database.backup(&backup));
        Memory target({u"b"_s}, u"name"_s, DBAuthGrants::All);
        target.database.authenticate(u"eve"_s, u"apple"_s);
        QSignalSpy restored(&target.database, &SDBText::databaseRestored);
        expectError("AuthError");
        QVERIFY(!target.database.restore(&backup));
        QCOMPARE(restored.size(), 0);
        QCOMPARE(walk(target.database), QStringList{u"b"_s});
        Memory other({u"b"_s});
        other.database.authenticate(u"eve"_s, u"apple"_s);
        expectError("AuthError");
        QVERIFY(!other.database.restore(&backup));
    }

    void databaseWithoutPasswordCannotBeRestored()
    {
        QBuffer device;
        SDBText database;
        database.authenticate(kUser, QString());
        QVERIFY(database.create(&device, u"name"_s, DBAuthGrants::All));
        QBuffer backup;
        QVERIFY(database.backup(&backup));
        expectError("AuthError");
        QVERIFY(!database.restore(&backup));
    }

    void deniedRestoreLeavesAll()
    {
        Memory source({u"a"_s});
        QBuffer backup;
        QVERIFY(source.database.backup(&backup));
        Memory target({u"b"_s});
        const QByteArray before = target.device.data();
        target.database.authenticate(u"eve"_s, QString());
        for (const bool merge : {false, true}) {
            expectError("AuthError");
            QVERIFY(!target.database.restore(&backup, merge));
            expectError("AuthError");
            QVERIFY(!target.database.restore(u"/nowhere/backup.db"_s, merge));
        }
        QCOMPARE(target.device.data(), before);
    }

    void damagedHeadIsMended()
    {
        Place place;
        {
            SDBText database;
            QVERIFY(create(database, place.file));
            QVERIFY(insertAll(database, {u"a"_s}));
        }
        const QByteArray head = bytesOf(place.beside(u".srec"_s));
        QVERIFY(setBytes(place.file, bytesOf(place.file).replace("dbkey", "xxxxx")));
        const auto expectCopyOfTheHead = [] {
            QTest::ignoreMessage(QtDebugMsg, "SDBText::loadSpecialRecordBackup: database "
                                             "corrupted! Using the backup index.");
        };
        SDBText damaged;
        expectCopyOfTheHead();
        QVERIFY(damaged.open(place.file));
        QVERIFY(damaged.authenticate(kUser, kPassword));
        Memory assigned;
        assigned.database = damaged;
        QVERIFY(assigned.device.data().startsWith(head));
        QCOMPARE(walk(assigned.database), QStringList{u"a"_s});
        QVERIFY(damaged.clear());
        QCOMPARE(bytesOf(place.file), head);
    }

    void damagedBackupIsRefusedWithACopyOfAHeadBesideIt_data()
    {
        QTest::addColumn<QByteArray>("backup");
        QTest::addColumn<bool>("merge");
        for (const CompressionAlgorithm algorithm :
             {CompressionAlgorithm::Lz4, CompressionAlgorithm::Zip}) {
            Memory source({u"a"_s, u"b"_s});
            source.database.setBackupCompressor(algorithm);
            QBuffer packed;
            QVERIFY(source.database.backup(&packed));
            QByteArray changed = packed.data();
            changed[changed.size() / 2] = static_cast<char>(changed.at(changed.size() / 2) ^ 0x55);
            const QByteArray name = algorithm == CompressionAlgorithm::Lz4 ? "Lz4" : "Zip";
            for (const bool merge : {false, true}) {
                const QByteArray how = merge ? ", merged" : "";
                QTest::newRow((name + ", cut" + how).constData())
                    << packed.data().chopped(10) << merge;
                QTest::newRow((name + ", only its name" + how).constData())
                    << packed.data().first(20) << merge;
                QTest::newRow((name + ", changed" + how).constData()) << changed << merge;
                QTest::newRow((name + ", name changed" + how).constData())
                    << 'x' + packed.data().mid(1) << merge;
            }
        }
        const Memory plain({u"a"_s});
        const QByteArray headless = QByteArray(plain.device.data()).replace("dbkey", "xxxxx");
        QTest::newRow("plain, head destroyed") << headless << false;
        QTest::newRow("plain, head destroyed, merged") << headless << true;
    }

    void damagedBackupIsRefusedWithACopyOfAHeadBesideIt()
    {
        QFETCH(QByteArray, backup);
        QFETCH(bool, merge);
        Place place;
        {
            SDBText database;
            QVERIFY(create(database, place.file));
        }
        QVERIFY(QFile::exists(place.beside(u".srec"_s)));
        QVERIFY(setBytes(place.file, backup));
        Memory target({u"z"_s});
        const QByteArray before = target.device.data();
        QSignalSpy restored(&target.database, &SDBText::databaseRestored);
        QSignalSpy modified(&target.database, &SDBText::databaseModified);
        expectError("WrongDB");
        QVERIFY(!target.database.restore(place.file, merge));
        QCOMPARE(target.database.error(), DBError::WrongDB);
        QCOMPARE(target.device.data(), before);
        QCOMPARE(walk(target.database), QStringList{u"z"_s});
        QCOMPARE(restored.size(), 0);
        QCOMPARE(modified.size(), 0);
        QCOMPARE(bytesOf(place.file), backup);
    }

    void changedByteOfAPackedBackupLosesNothing()
    {
        Memory source({u"a"_s, u"b"_s});
        source.database.setBackupCompressor(CompressionAlgorithm::Lz4);
        QBuffer packed;
        QVERIFY(source.database.backup(&packed));
        const DebugLines lines;
        for (qsizetype at = 0; at < packed.data().size(); ++at) {
            QByteArray bytes = packed.data();
            bytes[at] = static_cast<char>(bytes.at(at) ^ 0x55);
            QBuffer damaged(&bytes);
            Memory target({u"z"_s});
            const QByteArray before = target.device.data();
            // The checksum covers the text. A change that keeps the text does no harm.
            const bool isRestored = target.database.restore(&damaged);
            QCOMPARE(target.device.data(), isRestored ? source.device.data() : before);
        }
    }

#ifdef Q_OS_UNIX
    void packedBackupThatFindsNoSpaceIsNotCalledDamaged()
    {
        Memory source({u"a"_s, u"b"_s});
        source.database.setBackupCompressor(CompressionAlgorithm::Zip);
        QBuffer packed;
        QVERIFY(source.database.backup(&packed));
        Memory target({u"z"_s});
        const QByteArray before = target.device.data();
        {
            const FileSizeLimit limit(100);
            expectError("WriteError");
            QVERIFY(!target.database.restore(&packed));
        }
        QCOMPARE(target.device.data(), before);
        QVERIFY(target.database.restore(&packed));
        QCOMPARE(walk(target.database), (QStringList{u"a"_s, u"b"_s}));
    }
#endif

    void restoreOfAnotherKeyField()
    {
        Memory source({}, u"id"_s);
        QBuffer backup;
        QVERIFY(source.database.backup(&backup));
        Memory target({u"b"_s});
        expectError("KeyIsNull");
        QVERIFY(!target.database.restore(&backup));
        expectError("KeyIsNull");
        QVERIFY(!target.database.restore(&backup, true));
        QCOMPARE(target.database.count(), 1);
    }

    void restoreOfWhatIsNoBackup_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QByteArray>("error");
        Memory source({u"a"_s});
        QBuffer packed;
        source.database.setBackupCompressor(CompressionAlgorithm::Lz4);
        QVERIFY(source.database.backup(&packed));
        QByteArray changed = source.device.data();
        changed.replace("dbversion = 1", "dbversion = 3");
        QTest::newRow("nothing") << QByteArray() << QByteArray("WrongDB");
        QTest::newRow("other text") << QByteArray("Dear Sir") << QByteArray("WrongDB");
        QTest::newRow("changed head") << changed << QByteArray("SignError");
        QTest::newRow("compressed and cut") << packed.data().chopped(10) << QByteArray("WrongDB");
    }

    void restoreOfWhatIsNoBackup()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QByteArray, error);
        Memory target({u"b"_s});
        QSignalSpy restored(&target.database, &SDBText::databaseRestored);
        const QByteArray before = target.device.data();
        QBuffer backup(&bytes);
        expectError(error.constData());
        QVERIFY(!target.database.restore(&backup));
        QCOMPARE(restored.size(), 0);
        QCOMPARE(target.device.data(), before);
    }

    void restoreOfAMissingFile()
    {
        Place place;
        Memory target({u"b"_s});
        expectError("FileNotFound");
        QVERIFY(!target.database.restore(place.file));
        QVERIFY(!QFile::exists(place.file));
        QCOMPARE(target.database.count(), 1);
    }

    void restoreLeavesNoTemporaryFiles()
    {
        const auto files = [] {
            return QDir(QDir::tempPath()).entryList({u"tst_sdbtext_backup*"_s}, QDir::Files);
        };
        const QStringList before = files();
        Memory source({u"a"_s});
        source.database.setBackupCompressor(CompressionAlgorithm::Zip);
        QBuffer backup;
        QVERIFY(source.database.backup(&backup));
        QVERIFY(source.database.restore(&backup));
        QVERIFY(source.database.restore(&backup, true));
        QCOMPARE(files(), before);
    }

    void fieldIndexesKnowWhatWasRestored()
    {
        Memory source({u"a"_s});
        QBuffer backup;
        QVERIFY(source.database.backup(&backup));
        Memory target({u"b"_s});
        QList<SDBRecord> found;
        QVERIFY(target.database.addFieldIndex(u"level"_s));
        QVERIFY(target.database.searchField({u"level"_s, 1}, found));
        QVERIFY(target.database.restore(&backup, true));
        QVERIFY(target.database.searchField({u"level"_s, 1}, found));
        QCOMPARE(found.size(), 2);
        QVERIFY(target.database.restore(&backup));
        QVERIFY(target.database.searchField({u"level"_s, 1}, found));
        QCOMPARE(found.size(), 1);
    }

    // Operators

    void copyIsInMemory()
    {
        Memory source({u"a"_s, u"b"_s});
        QVERIFY(source.database.addFieldIndex(u"level"_s));
        SDBText copy(source.database);
        QCOMPARE(copy.error(), DBError::NoError);
        QVERIFY(copy == source.database);
        QCOMPARE(copy.fileName(), QString());
        QCOMPARE(copy.fieldsIndexed(), QStringList{u"level"_s});
        QVERIFY(copy.insert(ink(u"c"_s)));
        QVERIFY(copy != source.database);
        QCOMPARE(source.database.count(), 2);
        const SDBText null;
        expectError("SeekError");
        const SDBText copyOfNull(null);
        QVERIFY(copyOfNull.isNull());
    }

    void assignmentRefillsTheFile()
    {
        Place place;
        Memory source({u"a"_s});
        SDBText target;
        QVERIFY(create(target, place.file, DBAuthGrants::All, u"id"_s));
        QSignalSpy modified(&target, &SDBText::databaseModified);
        target = source.database;
        QCOMPARE(modified.size(), 1);
        QCOMPARE(bytesOf(place.file), source.device.data());
        QCOMPARE(target.key(), u"name"_s);
        QVERIFY(target == source.database);
        const SDBText &same = target;
        target = same;
        QCOMPARE(target.count(), 1);
        QVERIFY(target == source.database);
    }

    void assignmentNeedsTheRightToWriteBoth()
    {
        Memory source({u"a"_s});
        Memory target({u"b"_s});
        source.database.authenticate(u"eve"_s, QString());
        expectError("AuthError");
        target.database = source.database;
        QCOMPARE(target.database.error(), DBError::AuthError);
        QCOMPARE(walk(target.database), QStringList{u"b"_s});
        source.database.authenticate(kUser, kPassword);
        target.database.authenticate(u"eve"_s, QString());
        expectError("AuthError");
        target.database = source.database;
        QCOMPARE(walk(target.database), QStringList{u"b"_s});
    }

    void equalityLooksAtSettingsAndRecords()
    {
        Memory source({u"a"_s});
        SDBText copy(source.database);
        QVERIFY(copy == source.database);
        QVERIFY(copy.replace(copy[u"a"_s]));
        // Another time of insertion.
        QTest::qWait(2);
        QVERIFY(copy.replace(copy[u"a"_s]));
        QVERIFY(copy != source.database);
        Memory other({}, u"name"_s, DBAuthGrants::All);
        QVERIFY(Memory().database != other.database);
        QVERIFY(Memory().database == Memory().database);
        Memory secret({}, u"name"_s, DBAuthGrants::None);
        QVERIFY(secret.database == secret.database);
        Memory secretToo({}, u"name"_s, DBAuthGrants::None);
        QVERIFY(secret.database == secretToo.database);
        secretToo.database.authenticate(u"eve"_s, QString());
        QVERIFY(secret.database != secretToo.database);
    }

    void plusAddsUnchangedRecords()
    {
        Memory first({u"a"_s, u"b"_s});
        Memory second({u"b"_s, u"c"_s});
        QVERIFY(second.database.replace(ink(u"b"_s, 2)));
        QSignalSpy modified(&first.database, &SDBText::databaseModified);
        QSignalSpy inserted(&first.database, &SDBText::recordInserted);
        QCOMPARE(first.database.values(u"level"_s).size(), 1);
        first.database += second.database;
        QCOMPARE(modified.size(), 1);
        QCOMPARE(inserted.size(), 0);
        QCOMPARE(walk(first.database), (QStringList{u"a"_s, u"b"_s, u"c"_s}));
        QCOMPARE(first.database[u"b"_s].value(u"level"_s), QVariant(u"1"_s));
        QCOMPARE(first.database[u"c"_s], second.database[u"c"_s]);
        QList<SDBRecord> found;
        QVERIFY(first.database.searchField({u"level"_s, 1}, found));
        QCOMPARE(found.size(), 3);
        first.database += first.database;
        QCOMPARE(first.database.count(), 3);
        SDBText null;
        null += first.database;
        QVERIFY(null == first.database);
    }

    void minusRemovesWhatTheOtherHas()
    {
        Memory first({u"a"_s, u"b"_s, u"c"_s});
        Memory second({u"b"_s, u"d"_s});
        QSignalSpy removed(&first.database, &SDBText::recordRemoved);
        QSignalSpy modified(&first.database, &SDBText::databaseModified);
        first.database -= second.database;
        QCOMPARE(removed.size(), 1);
        QCOMPARE(modified.size(), 2);
        QCOMPARE(walk(first.database), (QStringList{u"a"_s, u"c"_s}));
        SDBText null;
        null -= first.database;
        QVERIFY(null.isNull());
        first.database -= first.database;
        QCOMPARE(first.database.count(), 0);
    }

    void minusEndsWithTheFirstThatCannotBeRemoved()
    {
        Memory first({u"a"_s, u"b"_s, u"c"_s});
        Memory second({u"a"_s, u"b"_s, u"c"_s});
        first.device.buffer().replace("name = b", "name = x");
        QSignalSpy modified(&first.database, &SDBText::databaseModified);
        expectError("UnknownError");
        first.database -= second.database;
        QCOMPARE(first.database.error(), DBError::UnknownError);
        QCOMPARE(modified.size(), 2);
        QVERIFY(!first.database.contains(u"a"_s));
        QVERIFY(first.database.contains(u"c"_s));
    }

    void sumWithoutTheRightToCopyIsNull()
    {
        Memory first({u"a"_s});
        Memory second({u"b"_s});
        first.database.authenticate(u"eve"_s, QString());
        expectError("AuthError");
        const SDBText sum = first.database + second.database;
        QVERIFY(sum.isNull());
        QCOMPARE(sum.error(), DBError::AuthError);
        expectError("AuthError");
        const SDBText difference = first.database - second.database;
        QVERIFY(difference.isNull());
        SDBText null;
        expectError("SeekError");
        QVERIFY(null + second.database == second.database);
    }

    void sumAndDifferenceAreNewDatabases()
    {
        Memory first({u"a"_s, u"b"_s});
        Memory second({u"b"_s, u"c"_s});
        SDBText sum = first.database + second.database;
        QCOMPARE(walk(sum), (QStringList{u"a"_s, u"b"_s, u"c"_s}));
        SDBText difference = first.database - second.database;
        QCOMPARE(walk(difference), QStringList{u"a"_s});
        QCOMPARE(first.database.count(), 2);
        QCOMPARE(second.database.count(), 2);
    }

    void operatorsNeedTheSameKeyField()
    {
        Memory first({u"a"_s});
        Memory second({}, u"id"_s);
        expectError("KeyIsNull");
        first.database += second.database;
        QCOMPARE(first.database.error(), DBError::KeyIsNull);
        expectError("KeyIsNull");
        first.database -= second.database;
        QCOMPARE(first.database.count(), 1);
    }

    void operatorsNeedTheRightToDoIt()
    {
        Memory first({u"a"_s});
        Memory second({u"b"_s}, u"name"_s, DBAuthGrants::None);
        second.database.authenticate(u"eve"_s, QString());
        expectError("AuthError");
        first.database += second.database;
        expectError("AuthError");
        first.database -= second.database;
        second.database.authenticate(kUser, kPassword);
        first.database.authenticate(u"eve"_s, QString());
        expectError("AuthError");
        first.database += second.database;
        QCOMPARE(first.database.error(), DBError::AuthError);
        QCOMPARE(first.database.count(), 1);
    }

    // Threads

    void twoThreadsCombineTwoDatabasesBothWays()
    {
        Memory first({u"a"_s, u"b"_s});
        Memory second({u"b"_s, u"c"_s});
        const auto combine = [](SDBText *to, const SDBText *from) {
            for (int i = 0; i < 200; ++i)
                *to += *from;
        };
        const std::unique_ptr<QThread> thread(
            QThread::create(combine, &first.database, &second.database));
        thread->start();
        combine(&second.database, &first.database);
        QVERIFY(thread->wait(60'000));
        QCOMPARE(walk(first.database), walk(second.database));
    }
};

QTEST_GUILESS_MAIN(tst_SDBText_Backup)
#include "tst_sdbtext_backup.moc"
