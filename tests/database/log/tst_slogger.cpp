// SPDX-License-Identifier: MIT
// Opening a log, its entries, and who may do what.
#include <database/samplelog.h>

#include <brixlib/database/log/slogger.h>
#include <brixlib/foundation/sdotnetcompatibilityhelper.h>

#include <brixrt/slocale.h>

#include <shared/filesizelimit.h>
#include <shared/signallog.h>
#include <shared/utctime.h>

#include <QtCore/QLockFile>
#include <QtCore/QThread>
#include <QtCore/QThreadPool>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

using namespace Talverine;
using namespace Talverine::Sample;
using namespace Qt::StringLiterals;

namespace {

constexpr int kMost = std::numeric_limits<int>::max();

//! Shows who a log was opened by.
class OpenLogger : public SLogger
{
public:
    using SLogger::passwd;
    using SLogger::SLogger;
    using SLogger::user;
};

} // namespace

class tst_SLogger : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newOneIsNull()
    {
        SLogger log(u"machine.log"_s);
        QVERIFY(log.isNull());
        QVERIFY(log.isEmpty());
        QVERIFY(!log.isReady());
        QCOMPARE(log.count(), 0);
        QCOMPARE(log.bytes(), 0);
        QCOMPARE(log.pathName(), u"machine.log"_s);
        QCOMPARE(log.rotateParameters(), RotateParameters());
        QVERIFY(!log.backupCompressionEnabled());
        QVERIFY(log.first().isEmpty());
        QVERIFY(log.last().isEmpty());
        QVERIFY(log.search(SLogger::logId(), u"e1"_s).isEmpty());
        expectError("KeyIsNull");
        QVERIFY(!log.append(u"e1"_s));
        QCOMPARE(log.error(), DBError::KeyIsNull);
        log.waitForFinished();
    }

    void namesOfTheFields()
    {
        QCOMPARE(SLogger::logId(), u"logid"_s);
        QCOMPARE(SLogger::logDate(), u"logdate"_s);
        QCOMPARE(SLogger::logPinDown(), u"logpindown"_s);
    }

    void limitsByDefault()
    {
        const RotateParameters limits;
        QCOMPARE(limits.maxLogs, 10000);
        QCOMPARE(limits.keepLogs, 300);
        QCOMPARE(limits.maxBytes, std::numeric_limits<qint64>::max());
        const SLogger log(u"machine.log"_s, {20, 30, 40});
        QCOMPARE(log.rotateParameters(), (RotateParameters{20, 30, 40}));
    }

    void limitsAreBroughtInRange_data()
    {
        QTest::addColumn<int>("maxLogs");
        QTest::addColumn<int>("keepLogs");
        QTest::addColumn<int>("maxExpected");
        QTest::addColumn<int>("keepExpected");

        QTest::newRow("in range") << 1000 << 100 << 1000 << 100;
        QTest::newRow("0 is no limit") << 0 << 300 << kMost << 300;
        QTest::newRow("too few") << 9 << 0 << 10 << 0;
        QTest::newRow("negative") << -1 << 1 << 10 << 1;
        QTest::newRow("least negative") << std::numeric_limits<int>::min() << 0 << 10 << 0;
        QTest::newRow("a tenth is kept") << 10 << 2 << 10 << 1;
        QTest::newRow("a tenth, rounded down") << 1009 << 101 << 1009 << 100;
        QTest::newRow("nothing is kept") << 1000 << -1 << 1000 << 0;
        QTest::newRow("a tenth of no limit") << 0 << kMost << kMost << kMost / 10;
    }

    void limitsAreBroughtInRange()
    {
        QFETCH(const int, maxLogs);
        QFETCH(const int, keepLogs);
        const SLogger log(u"machine.log"_s, maxLogs, keepLogs);
        QTEST(log.rotateParameters().maxLogs, "maxExpected");
        QTEST(log.rotateParameters().keepLogs, "keepExpected");
        QCOMPARE(log.rotateParameters().maxBytes, std::numeric_limits<qint64>::max());
    }

    void openCreatesALogThatOnlyItsOwnerWrites()
    {
        const LogPlace place;
        OpenLogger log(place.file);
        const SignalLog opened(&log, &SLogger::opened);
        QVERIFY(log.open(kUser, kPassword));
        QCOMPARE(opened.entries(), (QList<std::tuple<bool>>{{true}}));
        QVERIFY(log.isReady());
        QVERIFY(log.isReadable());
        QVERIFY(log.isWriteable());
        QVERIFY(log.isEmpty());
        QCOMPARE(log.user(), kUser);
        QCOMPARE(log.passwd(), kPassword);
        QCOMPARE(log.culture(), SLocale(u"en-US"_s, QLocale::OmitGroupSeparator));
        QVERIFY(log.append(u"e1"_s));
        QVERIFY(log.close());

        SDBText database;
        QVERIFY(database.open(place.file));
        QCOMPARE(database.key(), SDBRecord::uniqueIncKey());
        QCOMPARE(database.grants(), DBAuthGrants::ReadOnly);
        QCOMPARE(database.owner(), kUser);
        QCOMPARE(database.version(), u"2"_s);
    }

    void othersReadButDoNotWrite()
    {
        const LogPlace place;
        SLogger(place.file).open(kUser, kPassword);
        SLogger log(place.file);
        QVERIFY(log.open(u"bob"_s, u"other"_s));
        QVERIFY(log.isReadable());
        QVERIFY(!log.isWriteable());
        expectError("AuthError");
        QVERIFY(!log.append(u"e1"_s));
        QCOMPARE(log.error(), DBError::AuthError);
        QCOMPARE(log.count(), 0);
    }

    void grantsOfADatabaseThatIsTakenAsALog_data()
    {
        QTest::addColumn<DBAuthGrants>("grants");
        QTest::addColumn<bool>("isReadable");
        QTest::addColumn<bool>("isWriteable");

        QTest::newRow("none") << DBAuthGrants::None << false << false;
        QTest::newRow("read") << DBAuthGrants::ReadOnly << true << false;
        QTest::newRow("read and write") << DBAuthGrants::ReadWrite << true << true;
        QTest::newRow("write what is one's own") << DBAuthGrants::ReadOwnWrite << true << true;
        QTest::newRow("all") << DBAuthGrants::All << true << true;
    }

    void grantsOfADatabaseThatIsTakenAsALog()
    {
        QFETCH(const DBAuthGrants, grants);
        const LogPlace place;
        {
            SDBText database;
            QVERIFY(create(database, place.file, grants, SDBRecord::uniqueIncKey()));
        }
        SLogger log(place.file);
        QVERIFY(log.open(u"bob"_s, u"other"_s));
        QTEST(log.isReadable(), "isReadable");
        QTEST(log.isWriteable(), "isWriteable");
        if (!log.isWriteable())
            expectError("AuthError");
        QTEST(log.append(u"e1"_s), "isWriteable");
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(log.isReadable());
        QVERIFY(log.isWriteable());
    }

    void withoutAPasswordNobodyWrites()
    {
        const LogPlace place;
        SLogger log(place.file);
        QVERIFY(log.open(kUser, QString()));
        QVERIFY(!log.isWriteable());
        for (int i = 0; i < 2; ++i) {
            expectError("AuthError");
            QVERIFY(!log.append(u"e1"_s));
            QCOMPARE(log.error(), DBError::AuthError);
        }
        QCOMPARE(log.count(), 0);
    }

    void failedOpenIsTold_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<DBError>("error");

        QTest::newRow("empty") << QByteArray("") << DBError::WrongDB;
        QTest::newRow("no database") << QByteArray("hello\n\0world", 12) << DBError::WrongDB;
        QTest::newRow("unsigned") << QByteArray("dbkey = _uniqueinckey\n") << DBError::SignError;
    }

    void failedOpenIsTold()
    {
        QFETCH(const QByteArray, content);
        QFETCH(const DBError, error);
        const LogPlace place;
        QVERIFY(setBytes(place.file, content));
        SLogger log(place.file);
        const SignalLog opened(&log, &SLogger::opened);
        expectError(error == DBError::WrongDB ? "WrongDB" : "SignError");
        QVERIFY(!log.open(kUser, kPassword));
        QCOMPARE(opened.entries(), (QList<std::tuple<bool>>{{false}}));
        QCOMPARE(log.error(), error);
        QVERIFY(log.isNull());
        QVERIFY(!log.isReady());
        QCOMPARE(bytesOf(place.file), content);
    }

    void logInAFolderThatIsNotThereCannotBeCreated()
    {
        const LogPlace place;
        SLogger log(place.folder.filePath(u"none/machine.log"_s));
        expectError("FileNotFound");
        expectError("FileLockError");
        QVERIFY(!log.open(kUser, kPassword));
        QVERIFY(!QFile::exists(place.folder.filePath(u"none"_s)));
    }

    void folderIsNoLog()
    {
        const LogPlace place;
        SLogger log(place.folder.path());
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(u"OpenError"_s));
        QVERIFY(!log.open(kUser, kPassword));
        QCOMPARE(log.error(), DBError::OpenError);
        QVERIFY(QFileInfo(place.folder.path()).isDir());
    }

    void emptyPathIsNoLog()
    {
        SLogger log{QString()};
        expectError("FileNotFound");
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(u"CreateError"_s));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"."_s));
        QVERIFY(!log.open(kUser, kPassword));
        QVERIFY(!log.rotate(true));
        QVERIFY(!log.backup(QDir::tempPath()));
    }

    void heldLockIsTold()
    {
        const LogPlace place;
        SLogger holder(place.file);
        QVERIFY(holder.open(kUser, kPassword));
        SLogger log(place.file);
        expectError("FileLockError");
        QVERIFY(!log.open(kUser, kPassword));
        QCOMPARE(log.error(), DBError::FileLockError);
        QVERIFY(holder.append(u"e1"_s));
        QVERIFY(holder.close());
        QVERIFY(log.open(kUser, kPassword));
        QCOMPARE(idsOf(log), QStringList{u"e1"_s});
    }

    void entryStandsAsItWasAppended()
    {
        const LogPlace place;
        SLogger log(place.file);
        QVERIFY(log.open(kUser, kPassword));
        const qint64 head = log.bytes();
        SDBRecord details;
        details.insert(u"level"_s, 12);
        details.insert(SLogger::logDate(), dateOf(0));
        const SignalLog added(&log, &SLogger::logAdded);
        const SignalLog<> changed(&log, &SLogger::changed);
        QVERIFY(log.append(u"HeadCleaned"_s, details));
        QCOMPARE(added.entries(), (QList<std::tuple<QString>>{{u"HeadCleaned"_s}}));
        QCOMPARE(changed.count(), 1);
        const QByteArray entry = bytesOf(place.file).mid(head);
        QVERIFY2(entry.startsWith("\r\n\r\n"
                                  "_uniqueinckey = 0000000000000001\r\n"
                                  "level = 12\r\n"
                                  "logdate = 5250082658427387904\r\n"
                                  "logid = HeadCleaned\r\n"
                                  "_recowner = ada\r\n"
                                  "_cultureinfo = en-US\r\n"
                                  "_datetime = "),
                 entry.constData());
        QVERIFY(log.first().checkSignature());
        QCOMPARE(SLogger::recordDateTime(log.first()), utcTime(QDate(2024, 1, 1), QTime(0, 0)));
    }

    void emptyIdentifierAddsNothing()
    {
        const LogPlace place;
        SLogger log(place.file);
        QVERIFY(log.open(kUser, kPassword));
        const SignalLog<> changed(&log, &SLogger::changed);
        const qint64 before = log.bytes();
        QVERIFY(!log.append(QString()));
        QVERIFY(!log.append(QString(), dated(1)));
        QVERIFY(!log.append(QString(), QList<SDBRecord>{dated(1), dated(2)}));
        QCOMPARE(log.bytes(), before);
        QVERIFY(changed.isEmpty());
    }

    void entryTornByAFullDiskHarmsNoOther()
    {
        // Anywhere in its key line and at its end, and here and there between.
        constexpr qint64 kKeyLineEnd = 40;
        constexpr qint64 kStep = 13;
        qint64 entryBytes = 1;
        for (qint64 torn = 0; torn < entryBytes;
             torn += torn < kKeyLineEnd || torn > entryBytes - kStep ? 1 : kStep) {
            const LogPlace place;
            SLogger log(place.file, kLarge);
            QVERIFY(log.open(kUser, kPassword));
            const qint64 head = log.bytes();
            QVERIFY(appendNumbered(log, 1, 1));
            entryBytes = log.bytes() - head;
            {
                const FileSizeLimit limit(log.bytes() + torn);
                QVERIFY(!appendNumbered(log, 2, 2));
            }
            QCOMPARE(log.bytes(), head + entryBytes + torn);
            QCOMPARE(log.error(), DBError::NoError);
            QCOMPARE(idsOf(log), QStringList{u"e1"_s});
            QVERIFY(appendNumbered(log, 3, 3));
            QCOMPARE(idsOf(log), (QStringList{u"e1"_s, u"e3"_s}));

            // Not even one that lacks only the end of its last line is there afterwards.
            QVERIFY(log.close());
            QVERIFY(log.open(kUser, kPassword));
            QStringList whole;
            for (SDBIterator entry = log.begin(); !entry->isEmpty(); ++entry) {
                if (entry->checkSignature())
                    whole.append(entry->value(SLogger::logId()).toString());
            }
            QCOMPARE(whole, (QStringList{u"e1"_s, u"e3"_s}));
            QVERIFY(appendNumbered(log, 4, 4));
            QCOMPARE(idsOf(log).last(), u"e4"_s);
        }
    }

    void validDateOfTheCallerStays_data()
    {
        QTest::addColumn<QVariant>("date");

        QTest::newRow("UTC") << QVariant(dateOf(7));
        QTest::newRow("text") << QVariant(QString::number(dateOf(7)));
        QTest::newRow("local time") << QVariant(
            SDotNetCompatibilityHelper::toBinary(QDateTime(QDate(2024, 5, 6), QTime(7, 8))));
        QTest::newRow("long ago") << QVariant(1);
    }

    void validDateOfTheCallerStays()
    {
        QFETCH(const QVariant, date);
        const LogPlace place;
        SLogger log(place.file);
        QVERIFY(log.open(kUser, kPassword));
        SDBRecord record;
        record.insert(SLogger::logDate(), date);
        QVERIFY(log.append(u"e1"_s, record));
        QCOMPARE(log.first().value(SLogger::logDate()).toString(), date.toString());
    }

    void invalidDateIsReplacedByNow_data()
    {
        QTest::addColumn<QVariant>("date");

        QTest::newRow("missing") << QVariant();
        QTest::newRow("zero") << QVariant(0);
        QTest::newRow("word") << QVariant(u"yesterday"_s);
        QTest::newRow("empty text") << QVariant(QString());
        QTest::newRow("date of another form") << QVariant(u"2024-05-06T07:08:09Z"_s);
        QTest::newRow("too long a number") << QVariant(u"52500826584273879040"_s);
        QTest::newRow("list") << QVariant(QVariantList{dateOf(1), dateOf(2)});
    }

    void invalidDateIsReplacedByNow()
    {
        QFETCH(const QVariant, date);
        const LogPlace place;
        SLogger log(place.file);
        QVERIFY(log.open(kUser, kPassword));
        SDBRecord record;
        record.insert(SLogger::logDate(), date);
        const QDateTime before = QDateTime::currentDateTimeUtc();
        QVERIFY(log.append(u"e1"_s, record));
        const QDateTime written = SLogger::recordDateTime(log.first());
        QVERIFY(written >= before);
        QVERIFY(written <= QDateTime::currentDateTimeUtc());
        QCOMPARE(written.timeSpec(), Qt::UTC);
        const qint64 kind = log.first().value(SLogger::logDate()).toString().toLongLong() >> 62;
        QCOMPARE(kind, 1);
    }

    void ownIdentifierOfARecordIsReplaced()
    {
        const LogPlace place;
        SLogger log(place.file);
        QVERIFY(log.open(kUser, kPassword));
        SDBRecord record;
        record.insert(SLogger::logId(), u"other"_s);
        record.insert(SDBRecord::uniqueIncKey(), u"7"_s);
        QVERIFY(log.append(u"e1"_s, record));
        QCOMPARE(idsOf(log), QStringList{u"e1"_s});
        QCOMPARE(log.first().value(SDBRecord::uniqueIncKey()).toString(), u"0000000000000001"_s);
    }

    void recordWithoutADateHasNone()
    {
        QVERIFY(!SLogger::recordDateTime(SDBRecord()).isValid());
        QVERIFY(!SLogger::isPinned(SDBRecord()));
    }

    void listIsAddedWithOneSignal()
    {
        const LogPlace place;
        SLogger log(place.file);
        QVERIFY(log.open(kUser, kPassword));
        const SignalLog added(&log, &SLogger::logAdded);
        const SignalLog<> changed(&log, &SLogger::changed);
        QVERIFY(log.append(u"e"_s, QList<SDBRecord>{dated(1), SDBRecord(), dated(3)}));
        QCOMPARE(log.count(), 3);
        QCOMPARE(changed.count(), 1);
        QVERIFY(added.isEmpty());
        QVERIFY(!log.append(u"e"_s, QList<SDBRecord>()));
        QCOMPARE(changed.count(), 1);
        QCOMPARE(SLogger::recordDateTime(log.last()),
                 SDotNetCompatibilityHelper::fromBinary(dateOf(3)));
    }

    void listThatNobodyMayAddFails()
    {
        const LogPlace place;
        SLogger log(place.file);
        QVERIFY(log.open(kUser, QString()));
        const SignalLog<> changed(&log, &SLogger::changed);
        expectError("AuthError");
        expectError("AuthError");
        QVERIFY(!log.append(u"e"_s, QList<SDBRecord>{dated(1), dated(2)}));
        QVERIFY(changed.isEmpty());
    }

    void pinnedEntryComesToTheEnd()
    {
        const LogPlace place;
        SLogger log(place.file);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 3));
        const SignalLog pinned(&log, &SLogger::pinChanged);
        const SDBRecord entry = log.first();
        QVERIFY(!entry.contains(SLogger::logPinDown()));
        QVERIFY(log.pinDown(entry, true));
        QCOMPARE(pinned.entries(), (QList<std::tuple<QString>>{{u"e1"_s}}));
        QCOMPARE(idsOf(log), (QStringList{u"e2"_s, u"e3"_s, u"e1"_s}));
        QVERIFY(SLogger::isPinned(log.last()));
        QCOMPARE(log.last().value(SDBRecord::uniqueIncKey()).toString(), u"0000000000000004"_s);
        QCOMPARE(log.last().value(SLogger::logDate()).toString().toLongLong(), dateOf(1));
        QVERIFY(log.last().checkSignature());
        QVERIFY(!SLogger::isPinned(log.first()));

        QVERIFY(log.pinDown(log.last(), false));
        QVERIFY(!SLogger::isPinned(log.last()));
        QVERIFY(log.last().contains(SLogger::logPinDown()));
        QCOMPARE(pinned.count(), 2);
        QCOMPARE(log.count(), 3);
    }

    void entryThatIsGoneCannotBePinned()
    {
        const LogPlace place;
        SLogger log(place.file);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 2));
        const SignalLog pinned(&log, &SLogger::pinChanged);
        const SDBRecord entry = log.first();
        QVERIFY(log.pinDown(entry, true));
        QVERIFY(!log.pinDown(entry, true));
        QVERIFY(!log.pinDown(SDBRecord(), true));
        QCOMPARE(pinned.count(), 1);
        QCOMPARE(log.count(), 2);
    }

    void pinNeedsTheRightToWrite()
    {
        const LogPlace place;
        {
            SLogger log(place.file);
            QVERIFY(log.open(kUser, kPassword));
            QVERIFY(appendNumbered(log, 1, 1));
        }
        SLogger log(place.file);
        QVERIFY(log.open(u"bob"_s, u"other"_s));
        expectError("AuthError");
        QVERIFY(!log.pinDown(log.first(), true));
        QVERIFY(!SLogger::isPinned(log.first()));
    }

    void searchFindsTheLatestFirst()
    {
        const LogPlace place;
        SLogger log(place.file);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 3));
        SDBRecord again = dated(9);
        again.insert(u"part"_s, u"head"_s);
        QVERIFY(log.append(u"e2"_s, again));
        const QList<SDBRecord> found = log.search(SLogger::logId(), u"e2"_s);
        QCOMPARE(found.size(), 2);
        QCOMPARE(found.at(0).value(SLogger::logDate()).toString().toLongLong(), dateOf(9));
        QCOMPARE(found.at(1).value(SLogger::logDate()).toString().toLongLong(), dateOf(2));
        QVERIFY(log.contains(SLogger::logId(), u"e1"_s));
        QVERIFY(!log.contains(SLogger::logId(), u"e4"_s));
        // What comes later is found too.
        QVERIFY(log.append(u"e4"_s));
        QVERIFY(log.contains(SLogger::logId(), u"e4"_s));
        QVERIFY(log.contains(u"part"_s, u"head"_s));
        QVERIFY(!log.contains(u"nothing"_s, u"head"_s));
        expectError("FieldIndexError");
        QVERIFY(log.search(QString(), u"e1"_s).isEmpty());
    }

    void valuesAreTheDifferentTexts()
    {
        const LogPlace place;
        SLogger log(place.file);
        QVERIFY(log.open(kUser, kPassword));
        for (const QString &id : {u"b"_s, u"a"_s, u"b"_s})
            QVERIFY(log.append(id));
        QCOMPARE(log.values(SLogger::logId()),
                 (QList<SDBField>{{SLogger::logId(), u"a"_s}, {SLogger::logId(), u"b"_s}}));
        QVERIFY(log.addIndex(u"part"_s));
        QVERIFY(log.values(u"part"_s).isEmpty());
        expectError("FieldIndexError");
        QVERIFY(!log.addIndex(QString()));
    }

    void iteratorsWalkFromTheOldestEntry()
    {
        const LogPlace place;
        SLogger log(place.file);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 12));
        QCOMPARE(idsOf(log), numbered(1, 12));
        QCOMPARE(log.first().value(SLogger::logId()).toString(), u"e1"_s);
        QCOMPARE(log.last().value(SLogger::logId()).toString(), u"e12"_s);
        QCOMPARE(log.find(9)->value(SLogger::logId()).toString(), u"e10"_s);
        QVERIFY(log.find(12)->isEmpty());
        QVERIFY(log.find(-1)->isEmpty());
        int seen = 0;
        for (SDBIterator entry = log.begin(); entry != log.end(); ++entry)
            ++seen;
        QCOMPARE(seen, 12);
    }

    void reindexIsTold()
    {
        const LogPlace place;
        SLogger log(place.file);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 2));
        const SignalLog<> reindexed(&log, &SLogger::reindexed);
        const SignalLog<> changed(&log, &SLogger::changed);
        QVERIFY(log.reindex());
        QCOMPARE(reindexed.count(), 1);
        QCOMPARE(changed.count(), 1);
        QCOMPARE(log.count(), 2);
        QVERIFY(log.contains(SLogger::logId(), u"e2"_s));
    }

    void closeIsTold()
    {
        const LogPlace place;
        SLogger log(place.file);
        QVERIFY(log.open(kUser, kPassword));
        const SignalLog<> closed(&log, &SLogger::closed);
        const SignalLog<> changed(&log, &SLogger::changed);
        QVERIFY(log.close());
        QVERIFY(log.isNull());
        QVERIFY(!log.isReady());
        QVERIFY(log.close());
        QCOMPARE(closed.count(), 2);
        QVERIFY(changed.isEmpty());
    }

    void closedLogOpensAgain()
    {
        const LogPlace place;
        SLogger log(place.file);
        for (int i = 1; i <= 3; ++i) {
            QVERIFY(log.open(kUser, kPassword));
            QVERIFY(appendNumbered(log, i, i));
            QVERIFY(log.close());
        }
        QVERIFY(log.open(kUser, kPassword));
        QCOMPARE(idsOf(log), numbered(1, 3));
        QVERIFY(log.contains(SLogger::logId(), u"e2"_s));
    }

    void copyIsInMemory()
    {
        const LogPlace place;
        OpenLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 3));
        OpenLogger copy(log);
        QCOMPARE(copy.user(), kUser);
        QCOMPARE(copy.passwd(), kPassword);
        QCOMPARE(copy.rotateParameters(), kSmall);
        QCOMPARE(copy.pathName(), QString());
        QCOMPARE(idsOf(copy), numbered(1, 3));
        QVERIFY(copy.append(u"e4"_s));
        QCOMPARE(copy.count(), 4);
        QCOMPARE(log.count(), 3);
        QVERIFY(!copy.rotate(true));
        QCOMPARE(place.backups(), QList<int>());
    }

    void assignmentStaysInTheFile()
    {
        const LogPlace place;
        const LogPlace otherPlace;
        SLogger log(place.file, kSmall);
        QVERIFY(log.open(kUser, kPassword));
        QVERIFY(appendNumbered(log, 1, 2));
        SLogger other(otherPlace.file, kLarge);
        QVERIFY(other.open(kUser, kPassword));
        QVERIFY(appendNumbered(other, 7, 9));
        log = other;
        QCOMPARE(log.rotateParameters(), kLarge);
        QCOMPARE(log.pathName(), place.file);
        QCOMPARE(idsOf(log), numbered(7, 9));
        QVERIFY(log.close());
        QCOMPARE(idsIn(place.file), numbered(7, 9));
        log = *&log;
        QCOMPARE(log.pathName(), place.file);
    }

    void openInTheBackground()
    {
        const LogPlace place;
        SLogger log(place.file);
        QThread *opener = nullptr;
        connect(
            &log, &SLogger::opened, &log, [&](bool) { opener = QThread::currentThread(); },
            Qt::DirectConnection);
        QVERIFY(log.open(kUser, kPassword, true));
        log.waitForFinished();
        QVERIFY(log.isReady());
        QVERIFY(opener);
        QVERIFY(log.append(u"e1"_s));
        QCOMPARE(idsOf(log), QStringList{u"e1"_s});
    }

    void openInTheBackgroundDoesNotWait()
    {
        const LogPlace place;
        SLogger log(place.file);
        SLogger holder(place.file);
        QVERIFY(holder.open(kUser, kPassword));
        expectError("FileLockError");
        expectError("FileLockError");
        // Each open tries for half a second to get the lock.
        SignalLog opened(&log, &SLogger::opened);
        QVERIFY(log.open(kUser, kPassword, true));
        QVERIFY(!log.isReady());
        QVERIFY(log.open(kUser, kPassword, true));
        QVERIFY(!log.isReady());
        QVERIFY(opened.isEmpty());
        log.waitForFinished();
        QVERIFY(opened.waitForCount(2));
        QCOMPARE(opened.entries(), (QList<std::tuple<bool>>{{false}, {false}}));
        QVERIFY(!log.isReady());
    }

    void openedComesFromThePool()
    {
        const LogPlace place;
        // Waiting for the future may run its work here, so this waits for the signal.
        SLogger log(place.file);
        std::atomic<QThread *> opener{nullptr};
        connect(
            &log, &SLogger::opened, &log, [&](bool) { opener = QThread::currentThread(); },
            Qt::DirectConnection);
        QVERIFY(log.open(kUser, kPassword, true));
        QTRY_VERIFY(opener.load() != nullptr);
        QVERIFY(opener.load() != thread());
        QTRY_VERIFY(log.isReady());
    }

    void callsDuringABackgroundOpenWaitForIt()
    {
        const LogPlace place;
        {
            SLogger log(place.file);
            QVERIFY(log.open(kUser, kPassword));
            QVERIFY(appendNumbered(log, 1, 200));
        }
        SLogger log(place.file);
        SignalLog opened(&log, &SLogger::opened);
        std::atomic<bool> hasBegun{false};
        connect(
            &log, &SLogger::opened, &log, [&](bool) { hasBegun = true; }, Qt::DirectConnection);
        QVERIFY(log.open(kUser, kPassword, true));
        QTRY_VERIFY(hasBegun.load());
        QCOMPARE(log.count(), 200);
        QVERIFY(log.append(u"late"_s));
        QVERIFY(opened.waitForCount(1));
    }

    void endWaitsForTheBackgroundOpen()
    {
        const LogPlace place;
        for (int i = 0; i < 20; ++i) {
            SLogger log(place.file);
            QVERIFY(log.open(kUser, kPassword, true));
        }
        SLogger log(place.file);
        QVERIFY(log.open(kUser, kPassword));
    }

    void openInTheBackgroundWithAFullPool()
    {
        const LogPlace place;
        QThreadPool *pool = QThreadPool::globalInstance();
        const int before = pool->maxThreadCount();
        pool->setMaxThreadCount(1);
        std::atomic<bool> mayEnd{false};
        pool->start([&] {
            while (!mayEnd)
                QThread::yieldCurrentThread();
        });
        {
            SLogger log(place.file);
            QVERIFY(log.open(kUser, kPassword, true));
            QVERIFY(log.open(kUser, kPassword, true));
            QVERIFY(!log.isReady());
            log.waitForFinished();
            QVERIFY(log.isReady());
        }
        mayEnd = true;
        pool->waitForDone();
        pool->setMaxThreadCount(before);
    }

    void threadsAppendAtOnce()
    {
        constexpr int kThreads = 8;
        constexpr int kEntries = 50;
        const LogPlace place;
        SLogger log(place.file, kLarge);
        QVERIFY(log.open(kUser, kPassword, true));
        log.waitForFinished();
        std::atomic<int> failures{0};
        std::vector<std::thread> threads;
        for (int number = 0; number < kThreads; ++number) {
            threads.emplace_back([&, number] {
                for (int i = 0; i < kEntries; ++i) {
                    const QString id = u"t%1"_s.arg(number);
                    if (!log.append(id) || !log.contains(SLogger::logId(), id))
                        ++failures;
                }
            });
        }
        for (std::thread &thread : threads)
            thread.join();
        QCOMPARE(failures.load(), 0);
        QCOMPARE(log.count(), kThreads * kEntries);
        for (int number = 0; number < kThreads; ++number)
            QCOMPARE(log.search(SLogger::logId(), u"t%1"_s.arg(number)).size(), kEntries);
    }
};

QTEST_GUILESS_MAIN(tst_SLogger)
#include "tst_slogger.moc"
