// SPDX-License-Identifier: MIT
// How the file of a database is replaced: in which steps, and what stays as it was.
#include "samplelog.h"

#include <brixlib/database/log/slogger.h>

#include <shared/filecallfaults.h>

#include <QtCore/QBuffer>
#include <QtCore/QDir>
#include <QtCore/QLockFile>
#include <QtCore/QTemporaryFile>
#include <QtTest/QSignalSpy>

#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

using namespace Talverine;
using namespace Talverine::Sample;
using namespace Qt::StringLiterals;

namespace {

// Any other user and group than root, which exist everywhere.
constexpr uid_t kOtherUser = 1;
constexpr gid_t kOtherGroup = 2;

bool purge(SDBText &database)
{
    return database.purge();
}

bool clear(SDBText &database)
{
    return database.clear();
}

bool assign(SDBText &database)
{
    QBuffer device;
    SDBText other;
    if (!create(other, &device) || !insertAll(other, {u"new"_s}))
        return false;
    database = other;
    return database.error() == DBError::NoError;
}

bool restore(SDBText &database)
{
    QBuffer device;
    SDBText other;
    QBuffer backup;
    return create(other, &device) && insertAll(other, {u"new"_s}) && other.backup(&backup) &&
           database.restore(&backup);
}

using Work = bool (*)(SDBText &);

void addWorks()
{
    QTest::addColumn<Work>("work");
    QTest::newRow("purge") << &purge;
    QTest::newRow("clear") << &clear;
    QTest::newRow("assign") << &assign;
    QTest::newRow("restore") << &restore;
}

ino_t numberOf(const QString &file)
{
    struct stat status = {};
    return ::stat(QFile::encodeName(file).constData(), &status) == 0 ? status.st_ino : 0;
}

struct stat statusOf(const QString &file)
{
    struct stat status = {};
    ::stat(QFile::encodeName(file).constData(), &status);
    return status;
}

QStringList filesIn(const QTemporaryDir &folder)
{
    return QDir(folder.path()).entryList(QDir::Files | QDir::Hidden | QDir::System);
}

} // namespace

Q_DECLARE_METATYPE(Work)

class tst_DatabaseReplacement : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newContentIsOnTheDiskBeforeItIsPutInPlace_data() { addWorks(); }
    void newContentIsOnTheDiskBeforeItIsPutInPlace()
    {
        QFETCH(const Work, work);
        const Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        for (int number = 0; number < 100; ++number)
            QVERIFY(database.insert(ink(QString::number(number))));
        FileCallFaults::arm({});
        const bool isDone = work(database);
        const QByteArrayList calls = FileCallFaults::disarm();
        QVERIFY(isDone);
        const qsizetype lastWrite = calls.lastIndexOf("write inks.db.brixnew");
        const qsizetype flush = calls.indexOf("fsync inks.db.brixnew");
        const qsizetype removal = calls.indexOf("unlink inks.db.idx");
        const qsizetype renaming = calls.indexOf("rename inks.db");
        const QByteArray folder = QFileInfo(place.folder.path()).fileName().toUtf8();
        const qsizetype entry = calls.indexOf("fsync " + folder);
        QVERIFY(lastWrite >= 0);
        QVERIFY(lastWrite < flush);
        QVERIFY(flush < renaming);
        QVERIFY(removal < renaming);
        QVERIFY(renaming < entry);
        // Once, and not for each record.
        QCOMPARE(calls.count("fsync inks.db.brixnew"), 1);
        QVERIFY(!calls.contains("write inks.db"));
        QVERIFY(!calls.contains("ftruncate inks.db"));
    }

    void headCopyThatFitsIsNotWrittenAgain()
    {
        const Place place;
        {
            SDBText made;
            QVERIFY(create(made, place.file));
        }
        const QByteArray copy = bytesOf(place.beside(u".srec"_s));
        QVERIFY(!copy.isEmpty());
        SDBText database;
        FileCallFaults::arm({});
        const bool isOpen = database.open(place.file);
        const QByteArrayList calls = FileCallFaults::disarm();
        QVERIFY(isOpen);
        QVERIFY(!calls.contains("write inks.db.srec"));
        QVERIFY(!calls.contains("ftruncate inks.db.srec"));
        QCOMPARE(bytesOf(place.beside(u".srec"_s)), copy);
    }

    void headCopyOfAnotherOwnerStays_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<QByteArray>("after");
        QTest::newRow("the same settings") << QByteArray("ada") << QByteArray("ada");
        QTest::newRow("other settings") << QByteArray("ada") << QByteArray("ida");
    }

    // Only the owner of a file may set its permissions.
    void headCopyOfAnotherOwnerStays()
    {
        QFETCH(const QByteArray, before);
        QFETCH(const QByteArray, after);
        const Place place;
        const QString copyFile = place.beside(u".srec"_s);
        {
            SDBText made;
            QVERIFY(create(made, place.file));
        }
        const QByteArray copy = bytesOf(copyFile).replace(before, after);
        QVERIFY(setBytes(copyFile, copy));
        const auto open = [&](const FileFaultPlan &plan) {
            SDBText database;
            QFile::setPermissions(copyFile, QFile::ReadOwner | QFile::WriteOwner);
            FileCallFaults::arm(plan);
            static_cast<void>(database.open(place.file));
            return FileCallFaults::disarm();
        };
        const qsizetype call = open({}).indexOf("fchmod inks.db.srec");
        QVERIFY(call >= 0);
        QVERIFY(setBytes(copyFile, copy));
        open({.call = int(call) + 1, .fault = FileFault::Fail});
        QCOMPARE(bytesOf(copyFile), copy);
    }

    void rotationFlushesTheBackupBeforeItReplacesTheLog()
    {
        const LogPlace place;
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 11));
        FileCallFaults::arm({});
        const bool isDone = log.rotate(true);
        const QByteArrayList calls = FileCallFaults::disarm();
        QVERIFY(isDone);
        const qsizetype flush = calls.indexOf("fsync machine.log.brixbackup");
        const qsizetype backup = calls.indexOf("rename machine.B00");
        const QByteArray folder = QFileInfo(place.folder.path()).fileName().toUtf8();
        const qsizetype entry = calls.indexOf("fsync " + folder);
        const qsizetype renaming = calls.indexOf("rename machine.log");
        QVERIFY(flush >= 0);
        QVERIFY(flush < backup);
        QVERIFY(backup < entry);
        QVERIFY(entry < renaming);
    }

    void backupIsOnTheDiskBeforeTheDatabaseIsCleared()
    {
        const Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"a"_s}));
        FileCallFaults::arm({});
        const bool isDone = database.backup(place.folder.filePath(u"copy"_s), true);
        const QByteArrayList calls = FileCallFaults::disarm();
        QVERIFY(isDone);
        QVERIFY(calls.contains("fsync copy"));
        QVERIFY(calls.indexOf("fsync copy") < calls.indexOf("rename inks.db"));
        // The lock is not let go of in between.
        QVERIFY(!calls.contains("unlink inks.db.lck"));
    }

    void signalsAreThoseOfARewriting()
    {
        const Place place;
        QStringList signalNames; // until after the database is closed
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"a"_s, u"b"_s}));
        connect(&database, &SDBText::databaseModified, this,
                [&] { signalNames.append(u"modified"_s); });
        connect(&database, &SDBText::databasePurged, this,
                [&] { signalNames.append(u"purged"_s); });
        connect(&database, &SDBText::databaseClosed, this,
                [&] { signalNames.append(u"closed"_s); });
        QVERIFY(database.purge());
        QCOMPARE(signalNames, (QStringList{u"modified"_s, u"purged"_s}));
        signalNames.clear();
        QVERIFY(database.clear());
        QCOMPARE(signalNames, QStringList{u"modified"_s});
        signalNames.clear();
        QVERIFY(assign(database));
        QCOMPARE(signalNames, (QStringList{u"closed"_s, u"modified"_s}));
    }

    void deviceOfTheCallerHasTheNewFile_data() { addWorks(); }
    void deviceOfTheCallerHasTheNewFile()
    {
        QFETCH(const Work, work);
        const Place place;
        QFile file(place.file);
        SDBText database;
        QVERIFY(create(database, &file));
        QVERIFY(insertAll(database, {u"b"_s, u"a"_s}));
        const ino_t before = numberOf(place.file);
        QVERIFY(work(database));
        QVERIFY(numberOf(place.file) != before);
        QVERIFY(file.isOpen());
        QCOMPARE(file.size(), QFileInfo(place.file).size());
        QVERIFY(database.insert(ink(u"next"_s)));
        QVERIFY(bytesOf(place.file).contains("name = next"));
        QVERIFY(file.seek(0));
        QCOMPARE(file.readAll(), bytesOf(place.file));
        // The lock is held.
        QVERIFY(!QLockFile(place.beside(u".lck"_s)).tryLock(0));
    }

    void temporaryFileIsRewrittenInPlace()
    {
        QTemporaryFile file;
        QVERIFY(file.open());
        const ino_t before = numberOf(file.fileName());
        SDBText database;
        QVERIFY(create(database, &file));
        QVERIFY(insertAll(database, {u"b"_s, u"a"_s}));
        QVERIFY(database.purge());
        QCOMPARE(numberOf(file.fileName()), before);
        QCOMPARE(walk(database), (QStringList{u"a"_s, u"b"_s}));
        QVERIFY(bytesOf(file.fileName()).contains("name = b"));
        database.close();
        for (const QString &suffix : {u".srec"_s, u".idx"_s})
            QFile::remove(file.fileName() + suffix);
    }

    void linkStaysALink_data() { addWorks(); }
    void linkStaysALink()
    {
        QFETCH(const Work, work);
        const Place place;
        const QTemporaryDir other;
        const QString target = other.filePath(u"target.db"_s);
        {
            SDBText made;
            QVERIFY(create(made, target));
            QVERIFY(insertAll(made, {u"b"_s, u"a"_s}));
        }
        QVERIFY(QFile::link(target, place.file));
        SDBText database;
        QVERIFY(database.open(place.file));
        database.authenticate(kUser, kPassword);
        const ino_t before = numberOf(target);
        QVERIFY(work(database));
        QVERIFY(QFileInfo(place.file).isSymLink());
        QCOMPARE(QFileInfo(place.file).symLinkTarget(), target);
        QVERIFY(numberOf(target) != before);
        QVERIFY(database.insert(ink(u"next"_s)));
        QVERIFY(bytesOf(target).contains("name = next"));
        QVERIFY(!filesIn(other).contains(u"target.db.brixnew"_s));
    }

    void otherNameOfTheFileKeepsTheOldContent()
    {
        const Place place;
        const QString other = place.folder.filePath(u"other.db"_s);
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"a"_s}));
        std::filesystem::create_hard_link(place.file.toStdString(), other.toStdString());
        const QByteArray before = bytesOf(place.file);
        QVERIFY(database.clear());
        QCOMPARE(bytesOf(other), before);
        QVERIFY(bytesOf(place.file).size() < before.size());
    }

    void permissionsStay_data()
    {
        QTest::addColumn<int>("mode");
        for (const int mode : {0600, 0640, 0644, 0660, 0666, 0604})
            QTest::addRow("%o", static_cast<unsigned>(mode)) << mode;
    }

    void permissionsStay()
    {
        QFETCH(const int, mode);
        const Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"a"_s}));
        QCOMPARE(::chmod(QFile::encodeName(place.file).constData(), static_cast<mode_t>(mode)), 0);
        QVERIFY(database.purge());
        QCOMPARE(static_cast<int>(statusOf(place.file).st_mode & 07777), mode);
        QCOMPARE(statusOf(place.file).st_uid, geteuid());
    }

    void ownerAndGroupStay()
    {
        const Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"a"_s}));
        const QByteArray name = QFile::encodeName(place.file);
        // Who isn't root gives no file away, and has his own to keep.
        const bool isGiven = ::chown(name.constData(), kOtherUser, kOtherGroup) == 0;
        QCOMPARE(isGiven, geteuid() == 0);
        const struct stat before = statusOf(place.file);
        QVERIFY(database.purge());
        QCOMPARE(statusOf(place.file).st_uid, before.st_uid);
        QCOMPARE(statusOf(place.file).st_gid, before.st_gid);
        QCOMPARE(statusOf(place.file).st_mode, before.st_mode);
        QVERIFY(statusOf(place.file).st_ino != before.st_ino);
    }

    void directoryThatTakesNoFileLeavesTheDatabase_data() { addWorks(); }
    void directoryThatTakesNoFileLeavesTheDatabase()
    {
        QFETCH(const Work, work);
        const Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"b"_s, u"a"_s}));
        const QByteArray before = bytesOf(place.file);
        // For root too: a directory has the name.
        QVERIFY(QDir(place.folder.path()).mkpath(u"inks.db.brixnew/full"_s));
        QVERIFY(!work(database));
        QCOMPARE(database.error(), DBError::ResetError);
        QCOMPARE(bytesOf(place.file), before);
        QVERIFY(insertAll(database, {u"c"_s}));
        QCOMPARE(database.count(), 3);
        QVERIFY(QFile::exists(place.folder.filePath(u"inks.db.brixnew/full"_s)));
    }

    void nextOpeningRemovesItsOwnRemains()
    {
        const Place place;
        {
            SDBText database;
            QVERIFY(create(database, place.file));
        }
        const QStringList others{u"inks.db.bak"_s,         u"inks.db.new"_s,
                                 u"inks.db.tmp"_s,         u"inks.brixnew"_s,
                                 u"inks.db.old.brixnew"_s, u"ks.db.brixnew"_s,
                                 u"machine.log.brixnew"_s, u"inks.db.brixbackup"_s};
        for (const QString &name : others)
            QVERIFY(setBytes(place.folder.filePath(name), "x"));
        QVERIFY(setBytes(place.beside(u".brixnew"_s), "# TextDB file ty"));
        SDBText database;
        QVERIFY(database.open(place.file));
        QVERIFY(!QFile::exists(place.beside(u".brixnew"_s)));
        for (const QString &name : others)
            QCOMPARE(bytesOf(place.folder.filePath(name)), "x");
    }

    void openingOfALockedDatabaseRemovesNothing()
    {
        const Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(setBytes(place.beside(u".brixnew"_s), "x"));
        SDBText other;
        expectError("FileLockError");
        QVERIFY(!other.open(place.file));
        QCOMPARE(bytesOf(place.beside(u".brixnew"_s)), "x");
    }

    void unlockedDatabaseFollowsAFileThatAnotherProgramReplaced()
    {
        const Place place;
        SDBText first;
        QVERIFY(create(first, place.file));
        QVERIFY(insertAll(first, {u"a"_s, u"b"_s}));
        // From then on, it is not locked.
        QVERIFY(first.backup(place.folder.filePath(u"copy"_s)));
        {
            SDBText second;
            QVERIFY(second.open(place.file));
            second.authenticate(kUser, kPassword);
            QVERIFY(second.remove(u"a"_s));
            QVERIFY(second.purge());
            QVERIFY(insertAll(second, {u"c"_s}));
        }
        QVERIFY(insertAll(first, {u"d"_s}));
        QVERIFY(first.remove(u"b"_s));
        QVERIFY(first.replace(ink(u"c"_s, 2)));
        QCOMPARE(walk(first), (QStringList{u"c"_s, u"d"_s}));
        first.close();
        SDBText third;
        QVERIFY(third.open(place.file));
        QCOMPARE(walk(third), (QStringList{u"c"_s, u"d"_s}));
    }

    void staleIndexIsGoneBeforeTheNewContentIsThere()
    {
        const Place place;
        {
            SDBText made;
            QVERIFY(create(made, place.file));
            QVERIFY(insertAll(made, {u"a"_s}));
        }
        QVERIFY(QFile::exists(place.beside(u".idx"_s)));
        SDBText database;
        QVERIFY(database.open(place.file));
        database.authenticate(kUser, kPassword);
        QVERIFY(database.clear());
        QVERIFY(!QFile::exists(place.beside(u".idx"_s)));
    }

    void closedDatabaseIsClearedAsBefore()
    {
        const Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"a"_s}));
        QVERIFY(database.close());
        QVERIFY(database.clear());
        QVERIFY(!database.isNull());
        QCOMPARE(database.count(), 0);
        QVERIFY(!QLockFile(place.beside(u".lck"_s)).tryLock(0));
    }

    void closedDatabaseThatCannotBeClearedStaysClosed()
    {
        const Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"a"_s}));
        QVERIFY(database.close());
        const QByteArray before = bytesOf(place.file);
        QVERIFY(QDir(place.folder.path()).mkpath(u"inks.db.brixnew/full"_s));
        expectError("ResetError");
        QVERIFY(!database.clear());
        QVERIFY(database.isNull());
        QCOMPARE(bytesOf(place.file), before);
        QVERIFY(QLockFile(place.beside(u".lck"_s)).tryLock(0));
        expectError("SeekError");
        QVERIFY(!database.purge());
        QVERIFY(QLockFile(place.beside(u".lck"_s)).tryLock(0));
    }

    void rotationRemovesTheRemainsOfAKilledOne()
    {
        const LogPlace place;
        const QTemporaryDir temporary;
        {
            SLogger log(place.file, kSmall);
            QVERIFY(log.open(kUser, kPassword));
        }
        const QString folder = temporary.filePath(u"brix-1b9d6bcd-bbfd-4b2d-9b5d-ab8dfbbd4bed"_s);
        const QString copy = folder + u"/6ec0bd7f-11c0-43da-975e-2a8ad9ebae0b"_s;
        QVERIFY(QDir().mkpath(folder));
        for (const QString &suffix : {u""_s, u".srec"_s, u".lck"_s})
            QVERIFY(setBytes(copy + suffix, "x"));
        QVERIFY(setBytes(place.file + u".brixrotation"_s, copy.toUtf8()));
        QVERIFY(setBytes(place.file + u".brixbackup"_s, "x"));
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(!QFileInfo::exists(folder));
        QCOMPARE(filesIn(place.folder),
                 (QStringList{u"machine.log"_s, u"machine.log.lck"_s, u"machine.log.srec"_s}));
    }

    void noteThatNamesNoTemporaryCopyRemovesNothing_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("any file") << u"precious.db"_s;
        QTest::newRow("random name in any directory")
            << u"plain/6ec0bd7f-11c0-43da-975e-2a8ad9ebae0b"_s;
        QTest::newRow("any name in a temporary directory")
            << u"brix-1b9d6bcd-bbfd-4b2d-9b5d-ab8dfbbd4bed/precious"_s;
    }

    void noteThatNamesNoTemporaryCopyRemovesNothing()
    {
        QFETCH(const QString, name);
        const LogPlace place;
        const QTemporaryDir other;
        const QString precious = other.filePath(name);
        QVERIFY(QDir().mkpath(QFileInfo(precious).path()));
        QVERIFY(setBytes(precious, "x"));
        QVERIFY(setBytes(place.file + u".brixrotation"_s, precious.toUtf8()));
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        QCOMPARE(bytesOf(precious), "x");
        QVERIFY(!QFile::exists(place.file + u".brixrotation"_s));
    }

    void backupSurvivesAFailedRotationThatWouldHaveWrittenOverIt()
    {
        const LogPlace place;
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        for (int number = 0; number < 10; ++number)
            QVERIFY(setBytes(place.backup(number), "backup " + QByteArray::number(number)));
        QVERIFY(appendNumbered(log, 1, 11));
        const QByteArray before = bytesOf(place.file);
        QVERIFY(QDir(place.folder.path()).mkpath(u"machine.log.brixnew/full"_s));
        expectError("ResetError");
        QVERIFY(!log.rotate(true));
        QCOMPARE(log.error(), DBError::ResetError);
        QCOMPARE(bytesOf(place.file), before);
        for (int number = 0; number < 10; ++number)
            QCOMPARE(bytesOf(place.backup(number)), "backup " + QByteArray::number(number));
        QCOMPARE(idsOf(log), numbered(1, 11));
    }
};

QTEST_GUILESS_MAIN(tst_DatabaseReplacement)
#include "tst_databasereplacement.moc"
