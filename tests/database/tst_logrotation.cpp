// SPDX-License-Identifier: MIT
// When a log gives way to a new one, what that keeps, and the backups beside it.
#include "samplelog.h"

#include <brixlib/database/log/slogger.h>

#include <brixrt/senvironment.h>

#include <shared/filesizelimit.h>
#include <shared/seededrandom.h>
#include <shared/signallog.h>

#include <QtCore/QLockFile>

#include <algorithm>

using namespace Talverine;
using namespace Talverine::Sample;
using namespace Qt::StringLiterals;

namespace {

const QString kMarker = u"LogRotate"_s;

//! Closes the log and opens it again.
bool reopen(SLogger &log)
{
    return log.close() && log.open(kUser, kPassword);
}

QStringList marked(const QStringList &ids)
{
    return QStringList{kMarker} + ids;
}

qint64 keyOf(const SDBRecord &entry)
{
    return entry.value(SDBRecord::uniqueIncKey()).toString().toLongLong();
}

bool setPin(SLogger &log, const QString &id, bool pin)
{
    const QList<SDBRecord> found = log.search(SLogger::logId(), id);
    return found.size() == 1 && log.pinDown(found.first(), pin);
}

//! Limits under which each opening rotates a log with an entry, and everything is carried.
constexpr RotateParameters kAll{.maxLogs = 0, .keepLogs = 100, .maxBytes = 1 << 30};

//! Where the lines end, each with its end, without a part of it, and with the next byte.
QList<qsizetype> cutsAroundLines(const QByteArray &bytes)
{
    QList<qsizetype> sizes{0};
    for (qsizetype at = bytes.indexOf('\n'); at >= 0; at = bytes.indexOf('\n', at + 1)) {
        for (qsizetype size = at - 3; size <= qMin(at + 2, bytes.size()); ++size)
            sizes.append(size);
    }
    return sizes;
}

bool touch(const QString &path)
{
    return setBytes(path, "x");
}

//! The bytes of the ten backups of a full ring, which are told apart by them.
QByteArray oldBackup(int number)
{
    return "backup " + QByteArray::number(number);
}

bool fillRing(const LogPlace &place)
{
    for (int number = 0; number < 10; ++number) {
        if (!QFile::exists(place.backup(number)) &&
            !setBytes(place.backup(number), oldBackup(number)))
            return false;
    }
    return true;
}

QStringList filesIn(const LogPlace &place)
{
    return QDir(place.folder.path()).entryList(QDir::Files | QDir::Hidden);
}

//! The files that are neither the log's nor a backup.
QStringList remainsIn(const LogPlace &place)
{
    return filesIn(place).filter(u"brix"_s);
}

//! The date in the first entry of a log, by which a renamed backup names its rotation.
QString stampOf(SLogger &log)
{
    return QString::number(log.first().value(SLogger::logDate()).toLongLong());
}

//! The name of a renamed backup.
QString asideOf(const LogPlace &place, int number, int next, const QString &stamp)
{
    return u"%1.brixaside.0%2.0%3.%4"_s.arg(place.file).arg(number).arg(next).arg(stamp);
}

const QString kOtherStamp = u"123456789"_s;

} // namespace

class tst_LogRotation : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void eleventhRecordRotatesAtTheNextOpen()
    {
        const LogPlace place;
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        const SignalLog<> rotated(&log, &SLogger::rotated);
        QVERIFY(appendNumbered(log, 1, 10));
        QVERIFY(reopen(log));
        QVERIFY(rotated.isEmpty());
        QVERIFY(appendNumbered(log, 11, 11));
        QCOMPARE(log.count(), 11);
        QVERIFY(rotated.isEmpty());
        QCOMPARE(place.backups(), QList<int>());
        const SignalLog opened(&log, &SLogger::opened);
        const SignalLog<> changed(&log, &SLogger::changed);
        QVERIFY(reopen(log));
        QCOMPARE(rotated.count(), 1);
        QCOMPARE(changed.count(), 1);
        QCOMPARE(opened.entries(), (QList<std::tuple<bool>>{{true}}));
        QCOMPARE(place.backups(), QList<int>{0});
        QCOMPARE(idsOf(log), marked(numbered(9, 11)));
        QVERIFY(reopen(log));
        QCOMPARE(rotated.count(), 1);
    }

    void rotatesInTheBackground()
    {
        const LogPlace place;
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 11));
        SignalLog<> rotated(&log, &SLogger::rotated);
        QVERIFY(log.close());
        QVERIFY(log.open(kUser, kPassword, true));
        log.waitForFinished();
        QVERIFY(log.isReady());
        QVERIFY(rotated.waitForCount(1));
        QCOMPARE(idsOf(log), marked(numbered(9, 11)));
    }

    void sizeRotatesAtTheNextOpen()
    {
        const LogPlace place;
        {
            SLogger log(place.file, kLarge);
            QVERIFY(log.open(kUser, kPassword));
            QVERIFY(appendNumbered(log, 1, 30));
        }
        const qint64 size = QFileInfo(place.file).size();
        SLogger log(place.file, {1000, 300, size});
        QVERIFY(log.open(kUser, kPassword));
        QCOMPARE(log.count(), 30);
        QVERIFY(log.close());
        SLogger smaller(place.file, {1000, 300, size - 1});
        QVERIFY(smaller.open(kUser, kPassword));
        // A third of the 30 that fit into so many bytes, rounded down to an entry's.
        QCOMPARE(idsOf(smaller), marked(numbered(21, 30)));
    }

    void firstRotationWrites00AndRemoves01()
    {
        const LogPlace place;
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(touch(place.backup(1)));
        QVERIFY(log.rotate(true));
        QCOMPARE(place.backups(), QList<int>{0});
    }

    void ringMovesOnByOne()
    {
        const LogPlace place;
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        const QList<int> all{0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
        for (int round = 0; round < 23; ++round) {
            QVERIFY(log.append(u"round%1"_s.arg(round)));
            QVERIFY(log.rotate(false));
            QCOMPARE(idsIn(place.backup(round % 10)).last(), u"round%1"_s.arg(round));
            QList<int> expected = all;
            if (round < 9)
                expected = all.first(round + 1);
            else
                expected.removeOne((round + 1) % 10);
            QCOMPARE(place.backups(), expected);
        }
    }

    void allTenTakenWritesOver09AndRemoves01()
    {
        const LogPlace place;
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        for (int number = 0; number < 10; ++number)
            QVERIFY(touch(place.backup(number)));
        QVERIFY(appendNumbered(log, 1, 2));
        QVERIFY(log.rotate(false));
        QCOMPARE(place.backups(), (QList<int>{0, 2, 3, 4, 5, 6, 7, 8, 9}));
        QCOMPARE(idsIn(place.backup(9)), numbered(1, 2));
        QCOMPARE(log.first().value(u"name"_s).toString(), u"machine.B09"_s);
    }

    void backupIsTheWholeLogUnpacked()
    {
        const LogPlace place;
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 4));
        log.setBackupCompression(true);
        const QByteArray before = bytesOf(place.file);
        QVERIFY(log.rotate(true));
        QCOMPARE(bytesOf(place.backup(0)), before);
        QVERIFY(log.backupCompressionEnabled());
    }

    void namesOfBackups_data()
    {
        QTest::addColumn<QString>("log");
        QTest::addColumn<QString>("backup");

        QTest::newRow("suffix goes") << u"machine.log"_s << u"machine.B00"_s;
        QTest::newRow("no suffix") << u"machine"_s << u"machine.B00"_s;
        QTest::newRow("all suffixes go") << u"machine.log.txt"_s << u"machine.B00"_s;
        QTest::newRow("only a suffix") << u".log"_s << u".B00"_s;
        QTest::newRow("place markers") << u"50%2 off %1.log"_s << u"50%2 off %1.B00"_s;
        QTest::newRow("beyond ASCII") << u"Größe.log"_s << u"Größe.B00"_s;
        QTest::newRow("folder with a dot") << u"a.b/machine.log"_s << u"a.b/machine.B00"_s;
    }

    void namesOfBackups()
    {
        QFETCH(const QString, log);
        QFETCH(const QString, backup);
        const QTemporaryDir folder;
        QVERIFY(QDir(folder.path()).mkdir(u"a.b"_s));
        SLogger logger(folder.filePath(log), kSmall);
        QVERIFY(logger.open(kUser, kPassword));
        QVERIFY(logger.append(u"e1"_s));
        QVERIFY(logger.rotate(false));
        QCOMPARE(idsIn(folder.filePath(backup)), QStringList{u"e1"_s});
        QCOMPARE(logger.first().value(u"name"_s).toString(), QFileInfo(backup).fileName());
    }

    void backupOpenedAsALogIsNotRemoved()
    {
        const LogPlace place;
        SLogger log(place.backup(1), kSmall);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 2));
        QVERIFY(log.rotate(false));
        QCOMPARE(place.backups(), (QList<int>{0, 1}));
        QCOMPARE(idsIn(place.backup(0)), numbered(1, 2));
        QCOMPARE(idsOf(log), QStringList{kMarker});
    }

    void logUnderTheNameOfItsNextBackupIsNotRotated()
    {
        const LogPlace place;
        QVERIFY(fillRing(place));
        QVERIFY(QFile::remove(place.backup(9)));
        SLogger log(place.backup(9), kSmall);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 3));
        const QByteArray before = bytesOf(place.backup(9));
        expectError("OpenError");
        QVERIFY(!log.rotate(false));
        QCOMPARE(log.error(), DBError::OpenError);
        QCOMPARE(bytesOf(place.backup(9)), before);
        QCOMPARE(idsOf(log), numbered(1, 3));
        for (int number = 0; number < 9; ++number)
            QCOMPARE(bytesOf(place.backup(number)), oldBackup(number));
        QCOMPARE(remainsIn(place), QStringList());
    }

    void logThatItsNextBackupIsALinkToIsNotRotated()
    {
        const LogPlace place;
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 3));
        QVERIFY(QFile::link(place.file, place.backup(9)));
        QVERIFY(fillRing(place));
        const QByteArray before = bytesOf(place.file);
        expectError("OpenError");
        QVERIFY(!log.rotate(false));
        QCOMPARE(log.error(), DBError::OpenError);
        QCOMPARE(bytesOf(place.file), before);
        QVERIFY(QFileInfo(place.backup(9)).isSymLink());
        QCOMPARE(place.backups().size(), 10);
    }

    void logThatWasRemovedWhileOpenIsRotatedToItsBackup()
    {
        const LogPlace place;
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 3));
        QVERIFY(QFile::remove(place.file));
        QVERIFY(log.rotate(false));
        QCOMPARE(idsIn(place.backup(0)), numbered(1, 3));
        // Nobody else may read what had an access that can't be known any more.
        QCOMPARE(QFile::permissions(place.backup(0)) &
                     (QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther),
                 QFile::Permissions());
        QCOMPARE(idsOf(log), QStringList{kMarker});
    }

    void newBackupHasTheAccessOfTheLogAndNotOfTheBackupBefore()
    {
        const LogPlace place;
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(fillRing(place));
        const QFile::Permissions own = QFile::ReadOwner | QFile::WriteOwner;
        QVERIFY(QFile::setPermissions(place.file, own));
        QVERIFY(QFile::setPermissions(place.backup(9), own | QFile::ReadOther));
        QVERIFY(log.rotate(false));
        QVERIFY(!QFile::permissions(place.backup(9)).testFlag(QFile::ReadOther));
    }

    void backupThatIsALinkIsReplacedAndNotFollowed()
    {
        const LogPlace place;
        const QTemporaryDir other;
        const QString elsewhere = other.filePath(u"elsewhere"_s);
        QVERIFY(setBytes(elsewhere, "precious"));
        QVERIFY(QFile::link(elsewhere, place.backup(9)));
        QVERIFY(fillRing(place));
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 3));
        QVERIFY(log.rotate(false));
        QCOMPARE(bytesOf(elsewhere), "precious");
        QVERIFY(!QFileInfo(place.backup(9)).isSymLink());
        QCOMPARE(idsIn(place.backup(9)), numbered(1, 3));
    }

    // What a kill leaves with all ten names taken: by the steps of the rotation, from the first
    // renaming to the last removal.
    void killedRotationOfAFullRing_data()
    {
        QTest::addColumn<QList<int>>("aside");
        QTest::addColumn<bool>("hasNewBackup");
        QTest::addColumn<bool>("hasNewLog");

        QTest::newRow("09 renamed") << QList<int>{9} << false << false;
        QTest::newRow("both renamed") << QList<int>{9, 1} << false << false;
        QTest::newRow("backup in place") << QList<int>{9, 1} << true << false;
        QTest::newRow("01 back again") << QList<int>{9} << true << false;
        QTest::newRow("log in place") << QList<int>{9, 1} << true << true;
        QTest::newRow("09 removed") << QList<int>{1} << true << true;
        QTest::newRow("01 removed") << QList<int>{9} << true << true;
    }

    void killedRotationOfAFullRing()
    {
        QFETCH(const QList<int>, aside);
        QFETCH(const bool, hasNewBackup);
        QFETCH(const bool, hasNewLog);
        const LogPlace place;
        {
            SLogger log(place.file, kLarge);
            QVERIFY(log.open(kUser, kPassword));
            QVERIFY(appendNumbered(log, 1, 3));
        }
        const QByteArray rotatedLog = bytesOf(place.file);
        QString stamp = kOtherStamp;
        if (hasNewLog) {
            SLogger log(place.file, kLarge);
            QVERIFY(log.open(kUser, kPassword));
            QVERIFY(log.rotate(false));
            stamp = stampOf(log);
            QVERIFY(QFile::remove(place.backup(0)));
        }
        QVERIFY(fillRing(place));
        for (const int number : aside)
            QVERIFY(QFile::rename(place.backup(number), asideOf(place, number, 9, stamp)));
        if (hasNewLog && !aside.contains(1))
            QVERIFY(QFile::remove(place.backup(1)));
        if (hasNewBackup)
            QVERIFY(setBytes(place.backup(9), rotatedLog));

        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        QCOMPARE(remainsIn(place), QStringList());
        QCOMPARE(place.backups().contains(1), !hasNewLog);
        for (const int number : place.backups()) {
            const bool isNew = number == 9 && hasNewLog;
            QCOMPARE(bytesOf(place.backup(number)), isNew ? rotatedLog : oldBackup(number));
        }
        QCOMPARE(place.backups().size(), hasNewLog ? 9 : 10);
        QCOMPARE(idsOf(log), hasNewLog ? QStringList{kMarker} : numbered(1, 3));
    }

    void finishedRotationOfAnEmptyLogIsNotUndone()
    {
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        const QByteArray empty = bytesOf(place.file);
        QVERIFY(log.rotate(false));
        QVERIFY(setBytes(asideOf(place, 1, 0, stampOf(log)), oldBackup(1)));
        QVERIFY(log.close());
        QVERIFY(log.open(kUser, kPassword));
        QCOMPARE(bytesOf(place.backup(0)), empty);
        QCOMPARE(place.backups(), QList<int>{0});
        QCOMPARE(remainsIn(place), QStringList());
    }

    void unfinishedRotationRemovesItsBackupAndBringsTheOldestBack()
    {
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 3));
        QVERIFY(log.close());
        QVERIFY(setBytes(place.backup(0), bytesOf(place.file)));
        QVERIFY(setBytes(asideOf(place, 1, 0, kOtherStamp), oldBackup(1)));
        QVERIFY(log.open(kUser, kPassword));
        QCOMPARE(place.backups(), QList<int>{1});
        QCOMPARE(bytesOf(place.backup(1)), oldBackup(1));
        QCOMPARE(remainsIn(place), QStringList());
    }

    void backupThatTheLogHasNotIsNeverRemoved()
    {
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(log.close());
        // Another log of the same base name has used the ring in the meantime.
        QVERIFY(setBytes(place.backup(9), "of another log"));
        QVERIFY(setBytes(asideOf(place, 1, 9, kOtherStamp), oldBackup(1)));
        QVERIFY(setBytes(asideOf(place, 9, 9, kOtherStamp), oldBackup(9)));
        QVERIFY(log.open(kUser, kPassword));
        QCOMPARE(bytesOf(place.backup(9)), "of another log");
        QCOMPARE(bytesOf(place.backup(1)), oldBackup(1));
        // Its own name is taken: it has the first that is free.
        QCOMPARE(bytesOf(place.backup(0)), oldBackup(9));
        QCOMPARE(remainsIn(place), QStringList());
    }

    void logOfTheSameBaseNameLeavesTheRemainsOfTheOther()
    {
        const LogPlace place;
        const QString aside = asideOf(place, 1, 9, kOtherStamp);
        QVERIFY(setBytes(aside, oldBackup(1)));
        SLogger other(place.folder.filePath(u"machine.txt"_s), kLarge);
        QVERIFY(other.open(kUser, kPassword));
        QCOMPARE(bytesOf(aside), oldBackup(1));
        QCOMPARE(place.backups(), QList<int>());
    }

    void namesThatAreNoRenamedBackupsAreLeft()
    {
        const LogPlace place;
        const QStringList names{u".brixaside"_s,         u".brixaside.01"_s,
                                u".brixaside.1.9.5"_s,   u".brixaside.01.09.x"_s,
                                u".brixaside.01.10.5"_s, u".brixaside.01.09.5.6"_s,
                                u".brixaside.+1.09.5"_s};
        for (const QString &name : names)
            QVERIFY(touch(place.file + name));
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        QCOMPARE(remainsIn(place).size(), names.size());
        QCOMPARE(place.backups(), QList<int>());
    }

    void slotOnRotatedFindsASettledDirectory()
    {
        const LogPlace place;
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(fillRing(place));
        QVERIFY(appendNumbered(log, 1, 3));
        QList<QStringList> found;
        const auto look = [&] { found.append(remainsIn(place)); };
        connect(&log, &SLogger::rotated, this, look, Qt::DirectConnection);
        connect(&log, &SLogger::changed, this, look, Qt::DirectConnection);
        QVERIFY(log.rotate(true));
        QCOMPARE(found, (QList<QStringList>{{}, {}}));
    }

    void slotOnRotatedMayOpenTheLogAgain()
    {
        const LogPlace place;
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(fillRing(place));
        QVERIFY(appendNumbered(log, 1, 3));
        QList<bool> opened;
        connect(
            &log, &SLogger::rotated, this,
            [&] { opened.append(log.close() && log.open(kUser, kPassword)); },
            Qt::DirectConnection);
        QVERIFY(log.rotate(false));
        QCOMPARE(opened, QList<bool>{true});
        QCOMPARE(idsOf(log), QStringList{kMarker});
        QCOMPARE(idsIn(place.backup(9)), numbered(1, 3));
        QCOMPARE(remainsIn(place), QStringList());
    }

    void newLogStartsWithTheMarker()
    {
        const LogPlace place;
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 7));
        const QDateTime before = QDateTime::currentDateTimeUtc();
        QVERIFY(log.rotate(true));
        const SDBRecord marker = log.first();
        QCOMPARE(keyOf(marker), 1);
        QCOMPARE(marker.names().mid(1, 4),
                 (QList<QString>{u"name"_s, u"nLogs"_s, SLogger::logDate(), SLogger::logId()}));
        QCOMPARE(marker.value(u"name"_s).toString(), u"machine.B00"_s);
        QCOMPARE(marker.value(u"nLogs"_s).toString(), u"7"_s);
        QCOMPARE(marker.value(SLogger::logId()).toString(), u"LogRotate"_s);
        QVERIFY(SLogger::recordDateTime(marker) >= before);
        QVERIFY(marker.checkSignature());
    }

    void withoutKeepingNothingButTheMarkerIsCarried()
    {
        const LogPlace place;
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 9));
        QVERIFY(setPin(log, u"e1"_s, true));
        QVERIFY(log.rotate(false));
        QCOMPARE(idsOf(log), QStringList{kMarker});
    }

    void twelveRecordsKeepAtMostFour()
    {
        const LogPlace place;
        SLogger log(place.file, {10000, 300, 1 << 30});
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 12));
        QVERIFY(log.rotate(true));
        QCOMPARE(idsOf(log), marked(numbered(9, 12)));
    }

    void keepLogsBounds_data()
    {
        QTest::addColumn<RotateParameters>("limits");
        QTest::addColumn<int>("kept");

        const qint64 large = 1 << 30;
        QTest::newRow("keepLogs") << RotateParameters{100, 2, large} << 2;
        QTest::newRow("a third") << RotateParameters{100, 300, large} << 4;
        QTest::newRow("no third without maxLogs") << RotateParameters{0, 300, large} << 12;
        QTest::newRow("nothing") << RotateParameters{100, 0, large} << 0;
        QTest::newRow("negative") << RotateParameters{100, -5, large} << 0;
        QTest::newRow("no bytes at all") << RotateParameters{100, 300, 1} << 0;
        QTest::newRow("size does not count") << RotateParameters{100, 300, 0} << 4;
        QTest::newRow("negative size does not count") << RotateParameters{100, 300, -1} << 4;
        QTest::newRow("everything")
            << RotateParameters{0, std::numeric_limits<int>::max(), 0} << 12;
    }

    void keepLogsBounds()
    {
        QFETCH(const RotateParameters, limits);
        QFETCH(const int, kept);
        const LogPlace place;
        {
            SLogger log(place.file, kLarge);
            QVERIFY(log.open(kUser, kPassword));
            QVERIFY(appendNumbered(log, 1, 12));
        }
        SLogger log(place.file, limits);
        QVERIFY(log.open(kUser, kPassword));
        // Some of the limits have rotated it already; then the log is only the marker's.
        if (place.backups().isEmpty())
            QVERIFY(log.rotate(true));
        QCOMPARE(idsOf(log), marked(numbered(13 - kept, 12)));
    }

    void defaultSizeKeepsWhatIsLeftOf32Bits()
    {
        int negative = 0;
        int positive = 0;
        for (int padding = 0; padding < 24; ++padding) {
            const LogPlace place;
            SLogger log(place.file);
            QVERIFY(log.open(kUser, kPassword));
            for (int number = 1; number <= 12; ++number) {
                SDBRecord entry = dated(number);
                entry.insert(u"padding"_s, QString(padding, u'x'));
                QVERIFY(log.append(u"e%1"_s.arg(number), entry));
            }
            const quint64 fitting = std::numeric_limits<quint64>::max() / 2 / (log.bytes() / 12);
            qint64 low = static_cast<qint64>(fitting % 0x100000000);
            if (low >= 0x80000000)
                low -= 0x100000000;
            const int kept = static_cast<int>(std::clamp<qint64>(low / 3, 0, 4));
            ++(low < 0 ? negative : positive);
            QVERIFY(log.rotate(true));
            QCOMPARE(idsOf(log), marked(numbered(13 - kept, 12)));
        }
        QVERIFY(negative > 0);
        QVERIFY(positive > 0);
    }

    void whenNothingIsKeptPinsGoToo()
    {
        const LogPlace place;
        SLogger log(place.file, {100, 0, 1 << 30});
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 6));
        QVERIFY(setPin(log, u"e1"_s, true));
        QVERIFY(log.rotate(true));
        QCOMPARE(idsOf(log), QStringList{kMarker});
    }

    void pinnedEntriesAreCarriedFirst()
    {
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 12));
        QVERIFY(setPin(log, u"e2"_s, true));
        QVERIFY(log.rotate(true));
        // What is pinned counts among the four that are kept.
        QCOMPARE(idsOf(log), marked({u"e2"_s, u"e10"_s, u"e11"_s, u"e12"_s}));
        QVERIFY(SLogger::isPinned(log.find(1).operator*()));
    }

    void unpinnedEntriesAreCarriedToo()
    {
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 12));
        QVERIFY(setPin(log, u"e2"_s, true));
        QVERIFY(setPin(log, u"e3"_s, true));
        QVERIFY(setPin(log, u"e3"_s, false));
        QVERIFY(log.rotate(true));
        // By their texts: "false" comes before "true".
        QCOMPARE(idsOf(log), marked({u"e3"_s, u"e2"_s, u"e11"_s, u"e12"_s}));
    }

    void pinnedEntryAmongTheNewestGoesInTwice()
    {
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 12));
        QVERIFY(setPin(log, u"e12"_s, true));
        QVERIFY(log.rotate(true));
        QCOMPARE(idsOf(log), marked({u"e12"_s, u"e10"_s, u"e11"_s, u"e12"_s}));
    }

    void morePinsThanAreKeptAreAllCarried()
    {
        const LogPlace place;
        SLogger log(place.file, {100, 1, 1 << 30});
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 6));
        for (const QString &id : {u"e1"_s, u"e2"_s, u"e3"_s})
            QVERIFY(setPin(log, id, true));
        QVERIFY(log.rotate(true));
        // The latest pin is found first.
        QCOMPARE(idsOf(log), marked({u"e3"_s, u"e2"_s, u"e1"_s}));
    }

    void newestAreThoseOfTheLatestDates()
    {
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        // Appended against the order of their dates.
        for (int number = 12; number >= 1; --number)
            QVERIFY(appendNumbered(log, number, number));
        QVERIFY(log.rotate(true));
        QCOMPARE(idsOf(log), marked(numbered(9, 12)));
    }

    void entriesOfOneDateAreCarriedTogether()
    {
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 5));
        QVERIFY(log.append(u"a"_s, dated(9)));
        QVERIFY(log.append(u"b"_s, dated(9)));
        // Two dates of the six are kept; of one date the latest entry is found first.
        QVERIFY(log.rotate(true));
        QCOMPARE(idsOf(log), marked({u"e5"_s, u"b"_s, u"a"_s}));
    }

    void carriedEntriesAreInsertedAnew()
    {
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        SDBRecord details = dated(5);
        details.insert(u"parts"_s, QStringList{u"head"_s, u"pump"_s});
        for (int i = 0; i < 3; ++i)
            QVERIFY(log.append(u"e%1"_s.arg(i), details));
        const SDBRecord before = log.first();
        QVERIFY(log.rotate(true));
        QCOMPARE(log.count(), 4);
        const SDBRecord after = log.last();
        QCOMPARE(keyOf(after), 4);
        QCOMPARE(after.value(SLogger::logId()), before.value(SLogger::logId()));
        QCOMPARE(after.value(SLogger::logDate()), before.value(SLogger::logDate()));
        QCOMPARE(after.value(u"parts"_s), before.value(u"parts"_s));
        QVERIFY(after.value(SDBRecord::dateTimeKey()).toString() >=
                before.value(SDBRecord::dateTimeKey()).toString());
        QVERIFY(after.checkSignature());
        QCOMPARE(after.names(), before.names());
    }

    void newKeysFollowTheCarriedOnes()
    {
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 6));
        QVERIFY(log.rotate(true));
        QCOMPARE(log.count(), 3);
        QVERIFY(log.append(u"next"_s));
        QCOMPARE(keyOf(log.last()), 4);
        QCOMPARE(idsOf(log), marked({u"e5"_s, u"e6"_s, u"next"_s}));
    }

    void emptyLogRotates()
    {
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(log.rotate(true));
        QCOMPARE(idsOf(log), QStringList{kMarker});
        QCOMPARE(log.first().value(u"nLogs"_s).toString(), u"0"_s);
    }

    void fieldIndexesStay()
    {
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 12));
        QVERIFY(log.addIndex(u"part"_s));
        QVERIFY(log.contains(SLogger::logId(), u"e1"_s));
        QVERIFY(log.rotate(true));
        QVERIFY(!log.contains(SLogger::logId(), u"e1"_s));
        QVERIFY(log.contains(SLogger::logId(), u"e12"_s));
        QVERIFY(log.append(u"e13"_s));
        QVERIFY(log.contains(SLogger::logId(), u"e13"_s));
        QCOMPARE(log.values(SLogger::logDate()).size(), 6);
    }

    void closedLogCostsNoBackup()
    {
        const LogPlace place;
        SLogger log(place.file, kSmall);
        QVERIFY(touch(place.backup(1)));
        expectError("SeekError");
        QVERIFY(!log.rotate(true));
        QCOMPARE(log.error(), DBError::SeekError);
        QCOMPARE(place.backups(), QList<int>{1});
    }

    void onlyTheOwnerRotates()
    {
        const LogPlace place;
        {
            SLogger log(place.file, kLarge);
            QVERIFY(log.open(kUser, kPassword));
            QVERIFY(appendNumbered(log, 1, 11));
        }
        const QByteArray before = bytesOf(place.file);
        SLogger log(place.file, kSmall);
        const SignalLog opened(&log, &SLogger::opened);
        expectError("AuthError");
        QVERIFY(!log.open(u"bob"_s, u"other"_s));
        QCOMPARE(log.error(), DBError::AuthError);
        QCOMPARE(opened.entries(), (QList<std::tuple<bool>>{{false}}));
        QCOMPARE(bytesOf(place.file), before);
        // The log is open to read.
        QVERIFY(log.isReady());
        QCOMPARE(idsOf(log), numbered(1, 11));
    }

    void logOfAnotherOwnerKeepsItsBackupsHoweverOftenItIsOpened()
    {
        const LogPlace place;
        {
            SLogger log(place.file, kLarge);
            QVERIFY(log.open(kUser, kPassword));
            for (int rotation = 0; rotation < 3; ++rotation) {
                QVERIFY(appendNumbered(log, 1, 12));
                QVERIFY(log.rotate(false));
            }
            QVERIFY(appendNumbered(log, 1, 12));
        }
        QVERIFY(touch(place.backup(4)));
        const QByteArray before = bytesOf(place.file);
        const QStringList files = QDir(place.folder.path()).entryList(QDir::Files);
        for (int opening = 0; opening < 12; ++opening) {
            SLogger log(place.file, kSmall);
            expectError("AuthError");
            QVERIFY(!log.open(u"bob"_s, u"other"_s));
            QCOMPARE(log.error(), DBError::AuthError);
            QCOMPARE(log.count(), 13);
        }
        QCOMPARE(bytesOf(place.file), before);
        QCOMPARE(QDir(place.folder.path()).entryList(QDir::Files), files);
    }

    void fullDiskAtTheBackupLeavesTheLog()
    {
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 12));
        const QByteArray before = bytesOf(place.file);
        {
            const FileSizeLimit limit(before.size() - 1);
            expectError("WriteError");
            QVERIFY(!log.rotate(true));
        }
        QCOMPARE(bytesOf(place.file), before);
        QCOMPARE(idsOf(log), numbered(1, 12));
        QVERIFY(appendNumbered(log, 13, 13));
        QVERIFY(log.rotate(true));
        QCOMPARE(log.count(), 5);
    }

    void fullDiskCostsNoOldBackup()
    {
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        for (int rotation = 0; rotation < 9; ++rotation) {
            QVERIFY(appendNumbered(log, 1, 12));
            QVERIFY(log.rotate(false));
        }
        QVERIFY(appendNumbered(log, 1, 12));
        QVERIFY(QFile::remove(place.backup(3)));
        {
            const FileSizeLimit limit(log.bytes() - 1);
            for (int attempt = 0; attempt < 5; ++attempt) {
                expectError("WriteError");
                QVERIFY(!log.rotate(true));
            }
        }
        QCOMPARE(place.backups(), (QList<int>{0, 1, 2, 4, 5, 6, 7, 8}));
        QVERIFY(log.rotate(true));
        QCOMPARE(place.backups(), (QList<int>{0, 1, 2, 3, 5, 6, 7, 8}));
    }

    void fullDiskAtTheNewLogLeavesTheOldOne()
    {
        const LogPlace place;
        SLogger log(place.file, kAll);
        QVERIFY(log.open(kUser, kPassword));
        for (int number = 1; number <= 12; ++number) {
            SDBRecord entry = dated(number);
            entry.insert(SLogger::logPinDown(), true);
            QVERIFY(log.append(u"e%1"_s.arg(number), entry));
        }
        const QByteArray before = bytesOf(place.file);
        {
            // With all of them carried, the marker makes the new log longer.
            const FileSizeLimit limit(before.size() + 10);
            QVERIFY(!log.rotate(true));
        }
        QCOMPARE(log.error(), DBError::WriteError);
        QCOMPARE(bytesOf(place.file), before);
        QCOMPARE(place.backups(), QList<int>());
        QCOMPARE(idsOf(log), numbered(1, 12));
    }

    void logTakenByAnotherProgramMeanwhileIsLeft()
    {
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 12));
        const QByteArray before = bytesOf(place.file);
        // A backup lets go of the lock.
        QVERIFY(log.backup(place.folder.path(), u"copy"_s));
        QLockFile other(place.file + u".lck"_s);
        QVERIFY(other.tryLock(0));
        expectError("FileLockError");
        QVERIFY(!log.rotate(true));
        QCOMPARE(log.error(), DBError::FileLockError);
        QVERIFY(log.isNull());
        QCOMPARE(bytesOf(place.file), before);
        QCOMPARE(place.backups(), QList<int>());
    }

    void rotatedLogIsLockedAgain()
    {
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(log.rotate(true));
        QLockFile other(place.file + u".lck"_s);
        QVERIFY(!other.tryLock(0));
    }

    void nothingIsLeftInTheTemporaryFolder()
    {
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(log.rotate(true));
        const QDir folder(SEnvironment::tempFolder());
        QVERIFY(folder.exists());
        QCOMPARE(folder.entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList());
    }

    void withoutATemporaryFolderTheLogIsLeft()
    {
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 12));
        const QByteArray before = bytesOf(place.file);
        // A file takes the folder's place; what lies in the current folder is none of the log's.
        const QString folder = SEnvironment::tempFolder(true);
        QVERIFY(QDir(folder).removeRecursively());
        QVERIFY(touch(folder));
        const QString current = QDir::currentPath();
        QVERIFY(QDir::setCurrent(place.folder.path()));
        QVERIFY(touch(u".srec"_s));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"No file name"_s));
        const bool rotated = log.rotate(true);
        const bool isLeftAlone = QFile::exists(u".srec"_s);
        QVERIFY(QDir::setCurrent(current));
        QVERIFY(QFile::remove(folder));
        QVERIFY(!rotated);
        QVERIFY(isLeftAlone);
        QCOMPARE(bytesOf(place.file), before);
        QVERIFY(log.rotate(true));
        QCOMPARE(idsOf(log), marked(numbered(9, 12)));
    }

    void logCutAtAnyLineOpensOrTellsWhy()
    {
        const LogPlace place;
        QList<qsizetype> ends;
        {
            SLogger log(place.file, kLarge);
            QVERIFY(log.open(kUser, kPassword));
            for (int number = 0; number < 3; ++number) {
                QVERIFY(number == 0 || appendNumbered(log, number, number));
                ends.append(log.bytes());
            }
        }
        const QByteArray whole = bytesOf(place.file);
        for (const qsizetype size : cutsAroundLines(whole)) {
            const LogPlace cut;
            QVERIFY(setBytes(cut.file, whole.first(size)));
            SLogger log(cut.file, kAll);
            const bool opened = log.open(kUser, kPassword);
            QVERIFY2(opened || size < ends.at(0), qPrintable(QString::number(size)));
            if (!opened) {
                QVERIFY(log.error() == DBError::WrongDB || log.error() == DBError::SignError);
                QCOMPARE(bytesOf(cut.file), whole.first(size));
                continue;
            }
            // Opening it has rotated it unless it is empty, and what was whole is carried.
            const QStringList ids = idsOf(log);
            QVERIFY(ids.isEmpty() || ids.first() == kMarker);
            QVERIFY(size < ends.at(1) || ids.contains(u"e1"_s));
            QVERIFY(size < ends.at(2) || ids.contains(u"e2"_s));
            QVERIFY(log.append(u"next"_s));
            QCOMPARE(idsOf(log), ids + QStringList{u"next"_s});
        }
    }

    void flippedBytesOpenOrTellWhy()
    {
        const LogPlace place;
        {
            SLogger log(place.file, kLarge);
            QVERIFY(log.open(kUser, kPassword));
            QVERIFY(appendNumbered(log, 1, 3));
        }
        const QByteArray whole = bytesOf(place.file);
        SeededRandom random;
        for (int round = 0; round < 60; ++round) {
            const LogPlace damaged;
            QByteArray bytes = whole;
            const qsizetype at = random.between(0, bytes.size() - 1);
            bytes[at] = static_cast<char>(bytes.at(at) ^ (random.between(1, 255)));
            QVERIFY(setBytes(damaged.file, bytes));
            SLogger log(damaged.file, kAll);
            if (!log.open(kUser, kPassword)) {
                QCOMPARE(bytesOf(damaged.file), bytes);
                continue;
            }
            QCOMPARE(bytesOf(damaged.backup(0)), bytes);
            QCOMPARE(log.first().value(SLogger::logId()).toString(), kMarker);
            QVERIFY(log.append(u"next"_s));
        }
    }
};

QTEST_GUILESS_MAIN(tst_LogRotation)
#include "tst_logrotation.moc"
