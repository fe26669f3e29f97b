// SPDX-License-Identifier: MIT
// Backups of a log that a program asks for, and reading them back.
#include "samplelog.h"

#include <brixlib/database/log/slogger.h>

#include <brixrt/senvironment.h>

#include <shared/filesizelimit.h>
#include <shared/seededrandom.h>
#include <shared/signallog.h>
#include <shared/utctime.h>

using namespace Talverine;
using namespace Talverine::Sample;
using namespace Qt::StringLiterals;

namespace {

const QString kMarker = u"LogRotate"_s;
const QString kCopy = u"copy.log"_s;

//! An open log of the entries "e1" to "e3", and a folder with a backup of these.
struct BackedUpLog
{
    LogPlace place;
    QTemporaryDir folder;
    SLogger log{place.file, kLarge};
    bool isMade = log.open(kUser, kPassword) && appendNumbered(log, 1, 3) &&
                  log.backup(folder.path(), kCopy) && log.close() && log.open(kUser, kPassword);
    QString copy = folder.filePath(kCopy);
};

//! The files that the page of the format shows, put together from their lines: the first one whole,
//! of the other what comes behind the same head. Empty when an offset is wrong.
QByteArrayList filesOfTheFormatPage()
{
    static const QRegularExpression shownLine(u"^    ( *\\d+)(?:  (.*))?$"_s);
    const QString page =
        QString::fromUtf8(bytesOf(QStringLiteral(BRIX_PROJECT "/docs/formats/log-backups.md")));
    QByteArrayList files;
    bool isInFile = false;
    for (const QString &line : page.mid(page.indexOf(u"## Example"_s)).split(u'\n')) {
        const QRegularExpressionMatch shown = shownLine.match(line);
        const qsizetype offset = shown.captured(1).trimmed().toInt();
        if (shown.hasMatch() && !isInFile)
            files.append(files.value(0).first(offset));
        isInFile = shown.hasMatch();
        if (!isInFile)
            continue;
        if (offset != files.last().size())
            return {};
        files.last() += shown.captured(2).toUtf8() + "\r\n";
    }
    return files;
}

} // namespace

class tst_LogRestore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void backupIsACopy()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        QCOMPARE(bytesOf(given.copy), bytesOf(given.place.file));
        QCOMPARE(given.log.count(), 3);
    }

    void backupWithoutANameTakesTheLogs()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        QVERIFY(given.log.backup(given.folder.path(), QString()));
        QCOMPARE(idsIn(given.folder.filePath(u"machine.log"_s)), numbered(1, 3));
        QVERIFY(given.log.restore(given.folder.path(), true));
        QCOMPARE(given.log.count(), 6);
    }

    void backupWithoutAnyNameFails()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        SLogger inMemory(given.log);
        QCOMPARE(inMemory.pathName(), QString());
        QVERIFY(!inMemory.backup(given.folder.path(), QString()));
        QVERIFY(!inMemory.restore(given.folder.path(), QString(), false));
        QVERIFY(inMemory.backup(given.folder.path(), u"named"_s));
        QCOMPARE(idsIn(given.folder.filePath(u"named"_s)), numbered(1, 3));
    }

    void mergeIntoALogInMemoryWritesNoNote()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        SLogger inMemory(given.log);
        const QTemporaryDir directory;
        const QString current = QDir::currentPath();
        QVERIFY(QDir::setCurrent(directory.path()));
        const bool isMade = setBytes(u".brixrestoration"_s, "precious");
        const bool isMerged = inMemory.restore(given.folder.path(), kCopy, true, SLogger::logId());
        QVERIFY(QDir::setCurrent(current));
        QVERIFY(isMade);
        QVERIFY(isMerged);
        QCOMPARE(bytesOf(directory.filePath(u".brixrestoration"_s)), "precious");
    }

    void errorTellsWhyAMergeFailed_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<DBError>("error");

        QTest::newRow("missing") << u"none"_s << DBError::FileNotFound;
        QTest::newRow("not a database") << u"text"_s << DBError::WrongDB;
        QTest::newRow("of another owner") << u"foreign"_s << DBError::AuthError;
    }

    void errorTellsWhyAMergeFailed()
    {
        QFETCH(const QString, name);
        QFETCH(const DBError, error);
        BackedUpLog given;
        QVERIFY(given.isMade);
        QVERIFY(setBytes(given.folder.filePath(u"text"_s), "no database at all\r\n"));
        {
            SLogger foreign(given.folder.filePath(u"foreign"_s), kLarge);
            QVERIFY(foreign.open(u"bob"_s, u"other"_s));
        }
        QVERIFY(given.log.append(u"e4"_s));
        QVERIFY(!given.log.restore(given.folder.path(), name, true, SLogger::logId()));
        QCOMPARE(given.log.error(), error);
        QCOMPARE(given.log.count(), 4);
    }

    void errorTellsThatAMergeHadNoRoom()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        bool isMerged = true;
        {
            const FileSizeLimit limit(given.log.bytes() / 2);
            isMerged = given.log.restore(given.folder.path(), kCopy, true, SLogger::logId());
        }
        QVERIFY(!isMerged);
        QCOMPARE(given.log.error(), DBError::WriteError);
        QCOMPARE(given.log.count(), 3);
    }

    void errorTellsThatARestoreFromTheRingHadNoRoom()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        QVERIFY(QFile::copy(given.copy, given.place.backup(0)));
        bool isRestored = true;
        {
            const FileSizeLimit limit(given.log.bytes() / 2);
            isRestored = given.log.restore(given.place.folder.path(), u"machine.B00"_s, false);
        }
        QVERIFY(!isRestored);
        QCOMPARE(given.log.error(), DBError::WriteError);
        QCOMPARE(idsOf(given.log), numbered(1, 3));
        QCOMPARE(given.place.backups(), QList<int>{0});
    }

    void slotOnRotatedMayOpenALogThatIsRestoredFromTheRing()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        QVERIFY(QFile::copy(given.copy, given.place.backup(0)));
        QVERIFY(given.log.append(u"e4"_s));
        connect(
            &given.log, &SLogger::rotated, this,
            [&] { given.log.close() && given.log.open(kUser, kPassword); }, Qt::DirectConnection);
        QVERIFY(given.log.restore(given.place.folder.path(), u"machine.B00"_s, false));
        QCOMPARE(idsOf(given.log), numbered(1, 3));
    }

    void logThatWasRemovedWhileOpenIsRestored()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        QVERIFY(given.log.append(u"e4"_s));
        QVERIFY(QFile::remove(given.place.file));
        QVERIFY(given.log.restore(given.folder.path(), kCopy, false));
        QCOMPARE(idsOf(given.log), numbered(1, 3));
        QCOMPARE(idsIn(given.place.backup(0)), numbered(1, 3) + QStringList{u"e4"_s});
    }

    void backupToAFolderThatIsNotThereFails()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        expectError("OpenError");
        QVERIFY(!given.log.backup(given.folder.filePath(u"none"_s), kCopy));
        QCOMPARE(given.log.error(), DBError::OpenError);
    }

    void backupOntoTheLogItselfFails()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        expectError("OpenError");
        QVERIFY(!given.log.backup(given.place.folder.path()));
        QCOMPARE(idsOf(given.log), numbered(1, 3));
    }

    void otherProgramsMayOpenTheLogAfterABackup()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        SLogger other(given.place.file);
        expectError("FileLockError");
        QVERIFY(!other.open(kUser, kPassword));
        QVERIFY(given.log.backup(given.folder.path(), u"again"_s));
        QVERIFY(other.open(kUser, kPassword));
        QVERIFY(given.log.append(u"e4"_s));
    }

    void packedBackupComesBack()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        given.log.setBackupCompression(true);
        QVERIFY(given.log.backupCompressionEnabled());
        QVERIFY(given.log.backup(given.folder.path(), u"packed"_s));
        QVERIFY(bytesOf(given.folder.filePath(u"packed"_s)) != bytesOf(given.place.file));
        QVERIFY(given.log.restore(given.folder.path(), u"packed"_s, true));
        QCOMPARE(idsOf(given.log), numbered(1, 3) + numbered(1, 3));
        given.log.setBackupCompression(false);
        QVERIFY(!given.log.backupCompressionEnabled());
    }

    void restoreTakesThePlaceOfTheLog()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        QVERIFY(appendNumbered(given.log, 4, 5));
        const SignalLog<> restored(&given.log, &SLogger::restored);
        const SignalLog<> rotated(&given.log, &SLogger::rotated);
        const SignalLog<> changed(&given.log, &SLogger::changed);
        QVERIFY(given.log.restore(given.folder.path(), kCopy, false));
        QCOMPARE(idsOf(given.log), numbered(1, 3));
        QCOMPARE(idsIn(given.place.backup(0)), numbered(1, 5));
        QCOMPARE(restored.count(), 1);
        QCOMPARE(rotated.count(), 1);
        QCOMPARE(changed.count(), 2);
        QVERIFY(given.log.contains(SLogger::logId(), u"e2"_s));
        QVERIFY(given.log.append(u"next"_s));
        QCOMPARE(given.log.last().value(SDBRecord::uniqueIncKey()).toString(),
                 u"0000000000000004"_s);
    }

    void allTenBackupsTakenTheLastOneComesBack()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        for (int number = 0; number < 9; ++number)
            QVERIFY(setBytes(given.place.backup(number), "x"));
        QVERIFY(QFile::copy(given.copy, given.place.backup(9)));
        QVERIFY(appendNumbered(given.log, 4, 5));
        // The rotation writes over it.
        QVERIFY(given.log.restore(given.place.folder.path(), u"machine.B09"_s, false));
        QCOMPARE(idsOf(given.log), numbered(1, 3));
        QCOMPARE(idsIn(given.place.backup(9)), numbered(1, 5));
    }

    // The rotation before the restore writes over the file that this is another name of.
    void hardLinkToABackupComesBack()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        for (int number = 0; number < 9; ++number)
            QVERIFY(setBytes(given.place.backup(number), "x"));
        QVERIFY(QFile::copy(given.copy, given.place.backup(9)));
        QVERIFY(hardLink(given.place.backup(9), given.place.folder.filePath(u"link"_s)));
        QVERIFY(appendNumbered(given.log, 4, 5));
        QVERIFY(given.log.restore(given.place.folder.path(), u"link"_s, false));
        QCOMPARE(idsOf(given.log), numbered(1, 3));
        QCOMPARE(idsIn(given.place.backup(9)), numbered(1, 5));
    }

    void everyBackupByRotationComesBack_data()
    {
        QTest::addColumn<int>("number");
        for (int number = 0; number < 9; ++number)
            QTest::newRow(QByteArray::number(number).constData()) << number;
    }

    // The rotation that comes before a restore makes room for its own backup.
    void everyBackupByRotationComesBack()
    {
        QFETCH(const int, number);
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        for (int round = 0; round < 9; ++round) {
            QVERIFY(appendNumbered(log, round, round));
            QVERIFY(log.rotate(false));
        }
        QVERIFY(
            log.restore(place.folder.path(), QFileInfo(place.backup(number)).fileName(), false));
        QVERIFY(log.contains(SLogger::logId(), u"e%1"_s.arg(number)));
        QCOMPARE(place.backups(), (QList<int>{1, 2, 3, 4, 5, 6, 7, 8, 9}));
    }

    void missingBackupIsToldAfterTheRotation()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        expectError("FileNotFound");
        QVERIFY(!given.log.restore(given.folder.path(), u"none"_s, false));
        QCOMPARE(given.log.error(), DBError::FileNotFound);
        QVERIFY(!QFile::exists(given.folder.filePath(u"none"_s)));
        QCOMPARE(idsOf(given.log), QStringList{kMarker});
        QCOMPARE(idsIn(given.place.backup(0)), numbered(1, 3));
    }

    void missingBackupToMergeCostsNothing()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        const QByteArray before = bytesOf(given.place.file);
        expectError("FileNotFound");
        QVERIFY(!given.log.restore(given.folder.path(), u"none"_s, true));
        QCOMPARE(given.log.error(), DBError::FileNotFound);
        QVERIFY(!given.log.restore(given.folder.path(), u"none"_s, true, SLogger::logId()));
        QVERIFY(!QFile::exists(given.folder.filePath(u"none"_s)));
        QCOMPARE(bytesOf(given.place.file), before);
        QCOMPARE(given.place.backups(), QList<int>());
    }

    void restoreOfAnOtherOwnersBackupLeavesTheMarker()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(u"bob"_s, u"other"_s));
        QVERIFY(appendNumbered(log, 7, 8));
        expectError("AuthError");
        QVERIFY(!log.restore(given.folder.path(), kCopy, false));
        QCOMPARE(log.error(), DBError::AuthError);
        QCOMPARE(idsOf(log), QStringList{kMarker});
        QCOMPARE(idsIn(place.backup(0)), numbered(7, 8));
        expectError("AuthError");
        QVERIFY(!log.restore(given.folder.path(), kCopy, true));
        QVERIFY(!log.restore(given.folder.path(), kCopy, true, SLogger::logId()));
        QCOMPARE(log.count(), 1);
    }

    void restoreThatCannotRotateChangesNothing()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        QVERIFY(given.log.close());
        const QByteArray before = bytesOf(given.place.file);
        const SignalLog<> restored(&given.log, &SLogger::restored);
        expectError("SeekError");
        QVERIFY(!given.log.restore(given.folder.path(), kCopy, false));
        QCOMPARE(given.log.error(), DBError::SeekError);
        QCOMPARE(bytesOf(given.place.file), before);
        QCOMPARE(given.place.backups(), QList<int>());
        QVERIFY(restored.isEmpty());
    }

    void mergeAppendsAllEntriesWithNewKeys()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        QVERIFY(appendNumbered(given.log, 4, 4));
        const SignalLog<> restored(&given.log, &SLogger::restored);
        const SignalLog<> rotated(&given.log, &SLogger::rotated);
        QVERIFY(given.log.restore(given.folder.path(), kCopy, true));
        QCOMPARE(idsOf(given.log), numbered(1, 4) + numbered(1, 3));
        QCOMPARE(restored.count(), 1);
        QVERIFY(rotated.isEmpty());
        QCOMPARE(given.place.backups(), QList<int>());
        const SDBRecord last = given.log.last();
        QCOMPARE(last.value(SLogger::logDate()).toString().toLongLong(), dateOf(3));
        QVERIFY(last.checkSignature());
    }

    void mergeLeavesOutWhatTheLogHolds()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 2, 2));
        QVERIFY(appendNumbered(log, 9, 9));
        const QByteArray copy = bytesOf(given.copy);
        QVERIFY(log.restore(given.folder.path(), kCopy, true, SLogger::logId()));
        QCOMPARE(idsOf(log), (QStringList{u"e2"_s, u"e9"_s, u"e1"_s, u"e3"_s}));
        QCOMPARE(bytesOf(given.copy), copy);
        QCOMPARE(QDir(given.folder.path()).entryList(QDir::Files), QStringList{kCopy});
        // A second time there is nothing new.
        QVERIFY(log.restore(given.folder.path(), kCopy, true, SLogger::logId()));
        QCOMPARE(log.count(), 4);
    }

    void mergeBySeveralEntriesOfOneText()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        QVERIFY(given.log.append(u"e2"_s));
        QVERIFY(given.log.backup(given.folder.path(), kCopy));
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(log.append(u"e2"_s));
        QVERIFY(log.restore(given.folder.path(), kCopy, true, SLogger::logId()));
        QCOMPARE(idsOf(log), (QStringList{u"e2"_s, u"e1"_s, u"e3"_s}));
    }

    void mergeByAFieldThatNobodyHasTakesAll()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        QVERIFY(given.log.restore(given.folder.path(), kCopy, true, u"serial"_s));
        QCOMPARE(idsOf(given.log), numbered(1, 3) + numbered(1, 3));
    }

    void mergeByAFieldCannotSiftAPackedBackup()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        given.log.setBackupCompression(true);
        QVERIFY(given.log.backup(given.folder.path(), u"packed"_s));
        QVERIFY(!given.log.restore(given.folder.path(), u"packed"_s, true, SLogger::logId()));
        QCOMPARE(given.log.count(), 3);
    }

    void mergeIntoAClosedLogFails()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        QVERIFY(given.log.close());
        const QByteArray before = bytesOf(given.place.file);
        QVERIFY(!given.log.restore(given.folder.path(), kCopy, true));
        QVERIFY(!given.log.restore(given.folder.path(), kCopy, true, SLogger::logId()));
        QCOMPARE(bytesOf(given.place.file), before);
    }

    void whatIsNoBackupIsNotMerged()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        const QByteArray before = bytesOf(given.place.file);
        SeededRandom random;
        for (int round = 0; round < 10; ++round) {
            QVERIFY(setBytes(given.copy, random.bytes(random.between(0, 3000))));
            QVERIFY(!given.log.restore(given.folder.path(), kCopy, true));
            QVERIFY(!given.log.restore(given.folder.path(), kCopy, true, SLogger::logId()));
        }
        QCOMPARE(bytesOf(given.place.file), before);
    }

    void otherKindOfDatabaseIsNotMerged()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        {
            SDBText inks;
            QVERIFY(create(inks, given.copy));
            QVERIFY(insertAll(inks, {u"cyan"_s}));
        }
        expectError("KeyIsNull");
        QVERIFY(!given.log.restore(given.folder.path(), kCopy, true));
        QCOMPARE(given.log.error(), DBError::KeyIsNull);
        QCOMPARE(given.log.count(), 3);
    }

    void exampleOfTheFormatPage()
    {
        const QByteArrayList files = filesOfTheFormatPage();
        QCOMPARE(files.size(), 2);
        QCOMPARE(files.at(0).size(), 1682);
        QCOMPARE(files.at(1).size(), 1195);
        const LogPlace place;
        QVERIFY(setBytes(place.backup(0), files.at(0)));
        QVERIFY(setBytes(place.file, files.at(1)));
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        QCOMPARE(idsOf(log), (QStringList{u"LogRotate"_s, u"Warning"_s}));
        QCOMPARE(log.first().value(u"name"_s).toString(), u"machine.B00"_s);
        QCOMPARE(log.first().value(u"nLogs"_s).toString(), u"3"_s);
        QVERIFY(log.first().checkSignature());
        QVERIFY(log.last().checkSignature());
        QVERIFY(SLogger::isPinned(log.last()));

        SLogger backup(place.backup(0), kLarge);
        QVERIFY(backup.open(kUser, kPassword));
        QCOMPARE(idsOf(backup), (QStringList{u"HeadCleaned"_s, u"Stopped"_s, u"Warning"_s}));
        for (SDBIterator entry = backup.begin(); entry != backup.end(); ++entry)
            QVERIFY(entry->checkSignature());
        QCOMPARE(SLogger::recordDateTime(backup.first()),
                 utcTime(QDate(2026, 11, 20), QTime(17, 16, 39, 145)));
        QVERIFY(SLogger::isPinned(backup.last()));
    }

    void nothingIsLeftInTheTemporaryFolder()
    {
        BackedUpLog given;
        QVERIFY(given.isMade);
        QVERIFY(given.log.restore(given.folder.path(), kCopy, true, SLogger::logId()));
        QVERIFY(given.log.restore(given.folder.path(), kCopy, false));
        QVERIFY(given.log.restore(given.place.folder.path(), u"machine.B00"_s, false));
        const QDir folder(SEnvironment::tempFolder());
        QVERIFY(folder.exists());
        QCOMPARE(folder.entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList());
    }
};

QTEST_GUILESS_MAIN(tst_LogRestore)
#include "tst_logrestore.moc"
