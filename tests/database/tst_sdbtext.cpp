// SPDX-License-Identifier: MIT
// The file of a database, its opening and closing, and who may do what.
#include "sampledatabase.h"

#include <shared/goldenbytes.h>

#include <brixlib/database/records/ssignature.h>
#include <brixlib/database/sdbtext.h>

#include <brixrt/slocale.h>

#include <QtCore/QBuffer>
#include <QtCore/QCryptographicHash>
#include <QtCore/QLockFile>
#include <QtTest/QSignalSpy>

using namespace Talverine;
using namespace Talverine::Sample;
using namespace Qt::StringLiterals;

namespace {

//! The signature of texts in ASCII, computed here.
QByteArray chainOf(const QList<QByteArray> &texts)
{
    const auto hash = [](const QByteArray &bytes) {
        return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
    };
    QByteArray state = hash({});
    for (const QByteArray &text : texts)
        state = hash(state + text);
    return state;
}

const QByteArray kPasswordHash =
    QCryptographicHash::hash("secret", QCryptographicHash::Sha1).toHex();

//! The bytes of a head; the last fields are left out where their values are.
QByteArray headOf(const QList<QByteArray> &values)
{
    const QList<QByteArray> names{"dbkey",    "dbowner",       "dbpasswd",
                                  "dbgrants", "dbcultureinfo", "dbversion"};
    QByteArray head = GoldenBytes::databaseComment();
    for (qsizetype i = 0; i < values.size(); ++i)
        head += names.at(i) + " = " + values.at(i) + "\r\n";
    return head + "_signature = " + chainOf(values) +
           "\r\n"
           "dbkey = ! <-- this char ends the special record\r\n"
           "\r\n\r\n"
           "# --- Data starts here ---\r\n";
}

QByteArray headOfAda()
{
    return headOf({"name", "ada", kPasswordHash, "readonly", "en-US", "1.2"});
}

void expectHeadCopy()
{
    QTest::ignoreMessage(QtDebugMsg, "SDBText::loadSpecialRecordBackup: database corrupted! "
                                     "Using the backup index.");
}

} // namespace

class tst_SDBText : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newOneIsNull()
    {
        SDBText database;
        QVERIFY(database.isNull());
        QVERIFY(database.isEmpty());
        QCOMPARE(database.count(), 0);
        QCOMPARE(database.bytes(), 0);
        QCOMPARE(database.fileName(), QString());
        QCOMPARE(database.error(), DBError::NoError);
        QCOMPARE(database.grants(), DBAuthGrants::All);
        QCOMPARE(database.backupCompressor(), Compression::CompressionAlgorithm::Uncompressed);
        SDBRecord record;
        QVERIFY(!database.first(record));
        QCOMPARE(database.error(), DBError::RecNotFound);
        expectError("KeyIsNull");
        QVERIFY(!database.insert(ink(u"cyan"_s)));
    }

    void namesOfTheSpecialRecord()
    {
        QCOMPARE(SDBText::Key, u"dbkey"_s);
        QCOMPARE(SDBText::Owner, u"dbowner"_s);
        QCOMPARE(SDBText::Password, u"dbpasswd"_s);
        QCOMPARE(SDBText::Grants, u"dbgrants"_s);
        QCOMPARE(SDBText::Version, u"dbversion"_s);
        QCOMPARE(SDBText::Culture, u"dbcultureinfo"_s);
    }

    void emptyDatabaseIsItsHead()
    {
        Place place;
        SDBText database;
        QVERIFY(database.authenticate(kUser, kPassword));
        const QLocale english(QLocale::English, QLocale::UnitedStates);
        QVERIFY(database.create(place.file, u"name"_s, DBAuthGrants::ReadOnly, english, u"1.2"_s));
        QCOMPARE(bytesOf(place.file), headOfAda());
        QCOMPARE(bytesOf(place.beside(u".srec"_s)), headOfAda());
        QCOMPARE(database.bytes(), headOfAda().size());
        QCOMPARE(database.fileName(), place.file);
    }

    void recordStandsAsItWasInserted()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        SDBRecord record;
        record.insert(u"level"_s, 12);
        record.insert(u"tags"_s, QStringList{u"a"_s, u"b"_s});
        record.insert(u"name"_s, u"cyan"_s);
        record.insert(u"nothing"_s, QVariant());
        const qsizetype before = device.data().size();
        QVERIFY(database.insert(record));
        SDBRecord read;
        QVERIFY(database.value(u"cyan"_s, read));
        QVERIFY(read.checkSignature());
        const QByteArray time = read.value(SDBRecord::DateTimeKey).toString().toLatin1();
        const QByteArray signature = chainOf({"cyan", "12", "a", "b", "ada", "en-US", time});
        QCOMPARE(device.data().mid(before), "\r\n\r\n"
                                            "name = cyan\r\n"
                                            "level = 12\r\n"
                                            "tags.0 = a\r\n"
                                            "tags.1 = b\r\n"
                                            "_recowner = ada\r\n"
                                            "_cultureinfo = en-US\r\n"
                                            "_datetime = " +
                                                time + "\r\n_signature = " + signature + "\r\n");
        const QDateTime written = read.value(SDBRecord::DateTimeKey).toDateTime();
        QCOMPARE(written.offsetFromUtc(), 0);
        QVERIFY(qAbs(written.secsTo(QDateTime::currentDateTimeUtc())) < 60);
    }

    void recordsAreThereAfterOpeningAgain()
    {
        Place place;
        {
            SDBText database;
            QVERIFY(create(database, place.file));
            QVERIFY(insertAll(database, {u"yellow"_s, u"cyan"_s, u"magenta"_s}));
        }
        SDBText database;
        QSignalSpy opened(&database, &SDBText::databaseOpened);
        QVERIFY(database.open(place.file));
        QCOMPARE(opened.size(), 1);
        QCOMPARE(opened.at(0).at(0).toBool(), true);
        QCOMPARE(database.count(), 3);
        QCOMPARE(database.key(), u"name"_s);
        QCOMPARE(database.owner(), kUser);
        QCOMPARE(walk(database), (QStringList{u"cyan"_s, u"magenta"_s, u"yellow"_s}));
        SDBRecord record = database[u"magenta"_s];
        QCOMPARE(record.value(u"level"_s), QVariant(u"1"_s));
        QVERIFY(record.checkSignature());
    }

    void valuesAreWrittenInTheCulture()
    {
        QBuffer device;
        SDBText database;
        database.authenticate(kUser, kPassword);
        QVERIFY(database.create(&device, u"name"_s, DBAuthGrants::All, QLocale(u"it_IT"_s)));
        QVERIFY(database.insert(ink(u"cyan"_s, 1234.5)));
        QVERIFY(device.data().contains("\r\nlevel = 1234,5\r\n"));
        QCOMPARE(database[u"cyan"_s].value(u"level"_s), QVariant(u"1234,5"_s));
        QVERIFY(database[u"cyan"_s].checkSignature());
        QCOMPARE(database.culture(), SLocale(u"it-IT"_s, QLocale::OmitGroupSeparator));
    }

    void linesOfANameAreAnArrayWhereverTheyStand()
    {
        QByteArray bytes = headOfAda() +
                           "not = of a record\r\nname = cyan\r\ntag.1 = a\r\nlevel = 1\r\n"
                           "= no name\r\nno equals sign\r\n\r\ntag.0 = b\r\nempty =\r\n"
                           "# a = comment\r\ntag = c\r\nname = $nayc\r\ntag = d\r\n";
        QBuffer device(&bytes);
        SDBText database;
        QVERIFY(database.open(&device));
        QCOMPARE(walk(database), QStringList{u"cyan"_s});
        const SDBRecord record = database[u"cyan"_s];
        QCOMPARE(record.count(), 4);
        QCOMPARE(record.value(u"tag"_s), QVariant(QVariantList{u"a"_s, u"b"_s, u"c"_s}));
        QCOMPARE(record.value(u"level"_s), QVariant(u"1"_s));
        QVERIFY(record.contains(u"empty"_s));
        QCOMPARE(record.value(u"empty"_s), QVariant(u""_s));
    }

    // Opening and closing

    void missingFileIsNotFound()
    {
        SDBText database;
        QSignalSpy opened(&database, &SDBText::databaseOpened);
        expectError("FileNotFound");
        QVERIFY(!database.open(u"/nowhere/inks.db"_s));
        QCOMPARE(database.error(), DBError::FileNotFound);
        QCOMPARE(opened.size(), 0);
    }

    void folderCannotBeOpened()
    {
        Place place;
        const QString folder = place.folder.filePath(u"folder"_s);
        QVERIFY(QDir().mkdir(folder));
        SDBText database;
        QSignalSpy opened(&database, &SDBText::databaseOpened);
        expectError("OpenError");
        QVERIFY(!database.open(folder));
        QCOMPARE(opened.size(), 1);
        QVERIFY(!QFile::exists(folder + u".lck"_s));
        expectError("CreateError");
        QVERIFY(!database.create(folder, u"name"_s));
        QCOMPARE(opened.size(), 1);
        QVERIFY(!QFile::exists(folder + u".lck"_s));
    }

    void folderThatTakesNoLockIsFileLockError()
    {
        SDBText database;
        expectError("FileLockError");
        QVERIFY(!database.open(u"/proc/version"_s));
        QCOMPARE(database.error(), DBError::FileLockError);
        QVERIFY(database.isNull());
    }

    void createWithoutKeyName()
    {
        Place place;
        SDBText database;
        QSignalSpy opened(&database, &SDBText::databaseOpened);
        expectError("KeyIsNull");
        QVERIFY(!database.create(place.file, QString()));
        QVERIFY(!QFile::exists(place.file));
        QCOMPARE(opened.size(), 0);
    }

    void createClosesWhatIsOpenOnce()
    {
        Place place;
        const QString folder = place.folder.filePath(u"folder"_s);
        QVERIFY(QDir().mkdir(folder));
        SDBText database;
        QVERIFY(create(database, place.file));
        QSignalSpy closed(&database, &SDBText::databaseClosed);
        QSignalSpy opened(&database, &SDBText::databaseOpened);
        QVERIFY(create(database, place.file));
        QCOMPARE(closed.size(), 1);
        QCOMPARE(opened.size(), 1);
        expectError("KeyIsNull");
        QVERIFY(!database.create(folder, QString()));
        QVERIFY(!database.isNull());
        QCOMPARE(closed.size(), 1);
    }

    void createThatFailsLeavesTheOpenDatabase_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QByteArray>("error");
        QTest::newRow("a directory") << u"directory"_s << QByteArray("CreateError");
        QTest::newRow("a missing directory") << u"missing/inks.db"_s << QByteArray("FileLockError");
        QTest::newRow("locked by another") << u"locked.db"_s << QByteArray("FileLockError");
    }

    void createThatFailsLeavesTheOpenDatabase()
    {
        QFETCH(QString, path);
        QFETCH(QByteArray, error);
        Place place;
        QVERIFY(QDir().mkdir(place.folder.filePath(u"directory"_s)));
        SDBText locked;
        QVERIFY(create(locked, place.folder.filePath(u"locked.db"_s)));
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"a"_s}));
        const QByteArray before = bytesOf(place.file);
        QSignalSpy closed(&database, &SDBText::databaseClosed);
        QSignalSpy opened(&database, &SDBText::databaseOpened);
        expectError(error.constData());
        QVERIFY(!database.create(place.folder.filePath(path), u"name"_s));
        QCOMPARE(closed.size(), 0);
        QCOMPARE(opened.size(), 0);
        QVERIFY(!database.isNull());
        QCOMPARE(bytesOf(place.file), before);
        QVERIFY(insertAll(database, {u"b"_s}));
        QCOMPARE(walk(database), (QStringList{u"a"_s, u"b"_s}));
        // It also keeps its lock.
        SDBText second;
        expectError("FileLockError");
        QVERIFY(!second.open(place.file));
    }

    void createInPlaceThatFailsLeavesTheOpenDatabase()
    {
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"a"_s}));
        // Nothing can be written under the name of the open file any more.
        QVERIFY(QFile::rename(place.file, place.beside(u".moved"_s)));
        QVERIFY(QDir().mkdir(place.file));
        QSignalSpy closed(&database, &SDBText::databaseClosed);
        expectError("CreateError");
        QVERIFY(!database.create(place.file, u"name"_s));
        QCOMPARE(closed.size(), 0);
        QCOMPARE(walk(database), QStringList{u"a"_s});
    }

    void createUnderAnotherNameOfTheOpenFile()
    {
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"a"_s}));
        QVERIFY(create(database, place.folder.filePath(u"./inks.db"_s)));
        QCOMPARE(database.count(), 0);
        QVERIFY(insertAll(database, {u"b"_s}));
        QCOMPARE(walk(database), QStringList{u"b"_s});
    }

    void headThatCouldNotBeReadIsNotWritten()
    {
        constexpr qsizetype kHeadLimitBytes = 1024 * 1024;
        Place place;
        QVERIFY(setBytes(place.file, "precious"));
        SDBText database;
        database.authenticate(kUser, kPassword);
        QSignalSpy opened(&database, &SDBText::databaseOpened);
        expectError("CreateError");
        QVERIFY(!database.create(place.file, u"name"_s, DBAuthGrants::All, QLocale::c(),
                                 QString(kHeadLimitBytes, u'1')));
        QCOMPARE(database.error(), DBError::CreateError);
        QCOMPARE(bytesOf(place.file), "precious");
        QCOMPARE(opened.size(), 0);
        // Two bytes a character.
        database.authenticate(QString(kHeadLimitBytes / 2, u'\u00e9'), kPassword);
        expectError("CreateError");
        QVERIFY(!database.create(place.file, u"name"_s));
        QCOMPARE(bytesOf(place.file), "precious");
        // A head that is nearly as long is read again.
        const QString version(kHeadLimitBytes - 1000, u'1');
        database.authenticate(kUser, kPassword);
        QVERIFY(database.create(place.file, u"name"_s, DBAuthGrants::All, QLocale::c(), version));
        QVERIFY(database.close());
        QVERIFY(database.open(place.file));
        QCOMPARE(database.version(), version);
    }

    void closedIsEmittedBeforeOpened_data()
    {
        QTest::addColumn<bool>("isCreation");
        QTest::newRow("open") << false;
        QTest::newRow("create") << true;
    }

    void closedIsEmittedBeforeOpened()
    {
        QFETCH(bool, isCreation);
        Place place;
        QStringList names;
        SDBText database;
        QVERIFY(create(database, place.file));
        connect(&database, &SDBText::databaseOpened, this,
                [&](bool result) { names.append(result ? u"opened"_s : u"not opened"_s); });
        connect(&database, &SDBText::databaseClosed, this, [&] { names.append(u"closed"_s); });
        QVERIFY(isCreation ? create(database, place.file) : database.open(place.file));
        QCOMPARE(names, (QStringList{u"closed"_s, u"opened"_s}));
        disconnect(&database, nullptr, this, nullptr);
    }

    void failedOpenForgetsTheFormerSettings()
    {
        Place place;
        const QString notes = place.folder.filePath(u"notes.txt"_s);
        QVERIFY(setBytes(notes, "notes"));
        SDBText database;
        QVERIFY(create(database, place.file));
        expectError("WrongDB");
        QVERIFY(!database.open(notes));
        QCOMPARE(database.fileName(), notes);
        QCOMPARE(database.key(), QString());
        QCOMPARE(database.owner(), QString());
        QCOMPARE(database.version(), QString());
    }

    void fileThatIsNoDatabaseIsNotReplaced_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QByteArray>("error");
        QTest::newRow("a text") << QByteArray("notes") << QByteArray("WrongDB");
        QTest::newRow("a changed head")
            << headOfAda().replace("1.2", "1.3") << QByteArray("SignError");
    }

    void fileThatIsNoDatabaseIsNotReplaced()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QByteArray, error);
        Place place;
        QBuffer device;
        SDBText other;
        QVERIFY(create(other, &device, DBAuthGrants::All));
        QBuffer backup;
        QVERIFY(other.backup(&backup));
        const QString file = place.folder.filePath(u"notes.txt"_s);
        QVERIFY(setBytes(file, bytes));
        SDBText database;
        database.authenticate(kUser, kPassword);
        expectError(error.constData());
        QVERIFY(!database.open(file));
        QSignalSpy modified(&database, &SDBText::databaseModified);
        expectError("KeyIsNull");
        QVERIFY(!database.clear());
        QCOMPARE(database.error(), DBError::KeyIsNull);
        expectError("KeyIsNull");
        QVERIFY(!database.restore(&backup));
        QCOMPARE(database.error(), DBError::KeyIsNull);
        expectError("KeyIsNull");
        database = other;
        QCOMPARE(database.error(), DBError::KeyIsNull);
        QVERIFY(database.isNull());
        QCOMPARE(modified.size(), 0);
        QCOMPARE(bytesOf(file), bytes);
        QCOMPARE(QDir(place.folder.path()).entryList(QDir::Files), QStringList{u"notes.txt"_s});
    }

    void slotsCanBeCalledByName()
    {
        const QMetaObject &object = SDBText::staticMetaObject;
        QList<QByteArray> names;
        for (int i = object.methodOffset(); i < object.methodCount(); ++i)
            names.append(object.method(i).methodSignature());
        QCOMPARE(
            names,
            QList<QByteArray>(
                {"close()", "setBackupCompressor(Talverine::Compression::CompressionAlgorithm)",
                 "setBackupCompressor(Compression::CompressionAlgorithm)", "reindex()"}));
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        QSignalSpy closed(&database, &SDBText::databaseClosed);
        QSignalSpy reindexed(&database, &SDBText::databaseReindexed);
        bool result = false;
        QVERIFY(QMetaObject::invokeMethod(&database, "reindex", Q_RETURN_ARG(bool, result)));
        QVERIFY(result);
        QCOMPARE(reindexed.size(), 1);
        result = false;
        QVERIFY(QMetaObject::invokeMethod(&database, "close", Q_RETURN_ARG(bool, result)));
        QVERIFY(result);
        QCOMPARE(closed.size(), 1);
        QVERIFY(database.isNull());
    }

    void compressorIsSetByEitherSignature_data()
    {
        QTest::addColumn<QByteArray>("signature");
        QTest::newRow("whole") << QByteArray(
            "setBackupCompressor(Talverine::Compression::CompressionAlgorithm)");
        QTest::newRow("short") << QByteArray(
            "setBackupCompressor(Compression::CompressionAlgorithm)");
    }

    void compressorIsSetByEitherSignature()
    {
        QFETCH(QByteArray, signature);
        using Compression::CompressionAlgorithm;
        SDBText database;
        const QMetaObject *object = database.metaObject();
        const int index = object->indexOfSlot(signature.constData());
        QVERIFY(index >= 0);
        QVERIFY(object->method(index).invoke(
            &database,
            Q_ARG(Talverine::Compression::CompressionAlgorithm, CompressionAlgorithm::Zip)));
        QCOMPARE(database.backupCompressor(), CompressionAlgorithm::Zip);
    }

    void openBeginsWithClose()
    {
        Place place;
        SDBText database;
        QSignalSpy closed(&database, &SDBText::databaseClosed);
        QVERIFY(create(database, place.file));
        QCOMPARE(closed.size(), 1);
        QVERIFY(database.close());
        QVERIFY(database.close());
        QCOMPARE(closed.size(), 3);
        QCOMPARE(database.error(), DBError::NoError);
        QVERIFY(database.isNull());
        QCOMPARE(database.fileName(), place.file);
    }

    void emptyFileIsWrongDbAndItsBackupIsNotTried()
    {
        Place place;
        {
            SDBText database;
            QVERIFY(create(database, place.file));
        }
        QVERIFY(QFile::exists(place.beside(u".srec"_s)));
        QVERIFY(setBytes(place.file, {}));
        SDBText database;
        QSignalSpy opened(&database, &SDBText::databaseOpened);
        expectError("WrongDB");
        QVERIFY(!database.open(place.file));
        QCOMPARE(database.error(), DBError::WrongDB);
        QVERIFY(database.isNull());
        QCOMPARE(opened.at(0).at(0).toBool(), false);
        QCOMPARE(bytesOf(place.file), QByteArray());
        QVERIFY(database.close());
        QCOMPARE(database.error(), DBError::NoError);
    }

    void fileWithoutKeyLineFallsBackToTheHeadCopy()
    {
        Place place;
        {
            SDBText database;
            QVERIFY(create(database, place.file));
            QVERIFY(insertAll(database, {u"cyan"_s}));
        }
        const QByteArray copy = bytesOf(place.beside(u".srec"_s));
        QByteArray bytes = bytesOf(place.file);
        bytes.replace("dbkey", "xxxxx");
        QVERIFY(setBytes(place.file, bytes));
        const QByteArray otherCopy = QByteArray(copy).replace("\r\n", "\n");
        QVERIFY(setBytes(place.beside(u".srec"_s), otherCopy));
        SDBText database;
        expectHeadCopy();
        QVERIFY(database.open(place.file));
        QCOMPARE(walk(database), QStringList{u"cyan"_s});
        QVERIFY(database[u"cyan"_s].checkSignature());
        // What is in use is not written over.
        QCOMPARE(bytesOf(place.beside(u".srec"_s)), otherCopy);
        // A backup and a copy have a sound head.
        QBuffer backup;
        QVERIFY(database.backup(&backup));
        QVERIFY(backup.data().startsWith(copy));
        SDBText second;
        QVERIFY(second.open(&backup));
        QCOMPARE(walk(second), QStringList{u"cyan"_s});
        QBuffer device;
        QVERIFY(create(second, &device, DBAuthGrants::All, u"id"_s));
        QVERIFY(database.authenticate(kUser, kPassword));
        second = database;
        QCOMPARE(second.error(), DBError::NoError);
        QVERIFY(device.data().startsWith(copy));
        QCOMPARE(walk(second), QStringList{u"cyan"_s});
    }

    void headCutAnywhereBesideItsCopy()
    {
        // As clear() leaves it where the program is killed.
        const QByteArray head = headOfAda();
        const qsizetype keyLine = head.indexOf("dbkey =") + 7;
        const qsizetype signatureEnd = head.indexOf("\r\ndbkey = !");
        // Each lock is forced to disk, so only some of the cuts within comment and signed fields.
        QList<qsizetype> sizes;
        for (qsizetype size = 0; size < head.size(); ++size) {
            if (size % 20 == 0 || qAbs(size - keyLine) < 10 || size >= signatureEnd - 1)
                sizes.append(size);
        }
        Place place;
        for (const qsizetype size : sizes) {
            QVERIFY(setBytes(place.file, head.first(size)));
            QVERIFY(setBytes(place.beside(u".srec"_s), head));
            const bool isFromCopy = size > 0 && size < keyLine;
            const bool opens = isFromCopy || size >= signatureEnd;
            if (isFromCopy)
                expectHeadCopy();
            else if (!opens)
                expectError(size == 0 ? "WrongDB" : "SignError");
            SDBText database;
            QCOMPARE(database.open(place.file), opens);
            if (!opens)
                continue;
            // What is inserted is there the next time.
            database.authenticate(kUser, kPassword);
            QVERIFY(insertAll(database, {u"cyan"_s, u"magenta"_s}));
            QVERIFY(database[u"cyan"_s].checkSignature());
            if (isFromCopy)
                expectHeadCopy();
            QTest::ignoreMessage(QtDebugMsg, "SDBText::indexLoad: reindexing due to empty index "
                                             "(don't worry)");
            QVERIFY(database.open(place.file));
            QCOMPARE(walk(database), (QStringList{u"cyan"_s, u"magenta"_s}));
            QVERIFY(database[u"cyan"_s].checkSignature());
            QVERIFY(database[u"magenta"_s].checkSignature());
            database.close();
            QVERIFY(QFile::remove(place.beside(u".idx"_s)));
        }
    }

    void fileWithoutKeyLineAndWithoutHeadCopyIsWrongDb()
    {
        Place place;
        QVERIFY(setBytes(place.file, "Dear Sir or Madam,\r\n"));
        SDBText database;
        expectError("WrongDB");
        QVERIFY(!database.open(place.file));
        QCOMPARE(bytesOf(place.file), "Dear Sir or Madam,\r\n");
        QVERIFY(!QFile::exists(place.beside(u".lck"_s)));
        QVERIFY(!QFile::exists(place.beside(u".srec"_s)));
        QVERIFY(!QFile::exists(place.beside(u".idx"_s)));
    }

    void headCopyOfAnotherDatabaseIsSigned()
    {
        Place place;
        const QString other = place.folder.filePath(u"other.db"_s);
        {
            SDBText database;
            QVERIFY(create(database, other, DBAuthGrants::All, u"id"_s));
        }
        QVERIFY(QFile::copy(other + u".srec"_s, place.beside(u".srec"_s)));
        QVERIFY(setBytes(place.file, "name = cyan\r\nid = 5\r\n"));
        SDBText database;
        expectHeadCopy();
        QVERIFY(database.open(place.file));
        QCOMPARE(walk(database), QStringList{u"5"_s});
    }

    void changedByteOfTheHeadIsSignError_data()
    {
        QTest::addColumn<QByteArray>("name");
        for (const char *name : {"dbkey", "dbowner", "dbpasswd", "dbgrants", "dbcultureinfo",
                                 "dbversion", "_signature"})
            QTest::newRow(name) << QByteArray(name);
    }

    void changedByteOfTheHeadIsSignError()
    {
        QFETCH(QByteArray, name);
        QByteArray bytes = headOfAda();
        const qsizetype value = bytes.indexOf(name + " = ") + name.size() + 3;
        bytes[value] = bytes.at(value) == '0' ? '1' : '0';
        QBuffer device(&bytes);
        SDBText database;
        expectError("SignError");
        QVERIFY(!database.open(&device));
        QCOMPARE(database.error(), DBError::SignError);
        QVERIFY(database.isNull());
        QVERIFY(!device.isOpen());
    }

    void versionIsTwoWithoutOne_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        const QList<QByteArray> values{"name", "ada", kPasswordHash, "readonly", "en-US"};
        QTest::newRow("no line") << headOf(values);
        QTest::newRow("no value") << headOf(values + QList<QByteArray>{""});
    }

    void versionIsTwoWithoutOne()
    {
        QFETCH(QByteArray, bytes);
        QBuffer device(&bytes);
        SDBText database;
        QVERIFY(database.open(&device));
        QCOMPARE(database.version(), u"2"_s);
    }

    void cultureIsEnglishWithoutOne()
    {
        QByteArray bytes = headOf({"name", "ada", kPasswordHash, "readonly", "", "1"});
        QBuffer device(&bytes);
        SDBText database;
        QVERIFY(database.open(&device));
        QCOMPARE(database.culture(), SLocale(u"en-US"_s, QLocale::OmitGroupSeparator));
    }

    void headWithoutKeyNameIsKeyIsNull()
    {
        QByteArray bytes = headOf({"", "ada", kPasswordHash, "readonly", "en-US", "1"});
        QBuffer device(&bytes);
        SDBText database;
        expectError("KeyIsNull");
        QVERIFY(!database.open(&device));
    }

    void grantsAreReadInAnyCase()
    {
        QByteArray bytes = headOf({"name", "ada", kPasswordHash, "ReadOwnWrite", "en-US", "1"});
        QBuffer device(&bytes);
        SDBText database;
        QVERIFY(database.open(&device));
        QCOMPARE(database.grants(), DBAuthGrants::ReadOwnWrite);
    }

    void headIsReadHoweverItIsLaidOut_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        const QByteArray sound = headOfAda() + "\r\n\r\nname = cyan\r\nlevel = 1\r\n";
        const auto changed = [&](const char *before, const char *after) {
            return QByteArray(sound).replace(before, after);
        };
        QTest::newRow("as written") << sound;
        QTest::newRow("LF only") << changed("\r\n", "\n");
        QTest::newRow("blanks before the lines") << changed("\n", "\n \t ");
        QTest::newRow("comments between") << changed("\n", "\n  # = x\n");
        QTest::newRow("no blank lines") << changed("\r\n\r\n", "\r\n");
        QTest::newRow("no last line end") << sound.chopped(2);
        QTest::newRow("a byte order mark first") << "\xEF\xBB\xBF" + sound;
        QTest::newRow("a million blank lines")
            << changed("---\r\n", QByteArray("---\n" + QByteArray(1'000'000, '\n')).constData());
        QTest::newRow("two million blank lines within the head")
            << changed("dbgrants", (QByteArray(2'000'000, '\n') + "dbgrants").constData());
        QTest::newRow("blanks at the ends of the lines") << changed("\r\n", " \t\r\n");
    }

    void headIsReadHoweverItIsLaidOut()
    {
        QFETCH(QByteArray, bytes);
        QBuffer device(&bytes);
        SDBText database;
        QVERIFY(database.open(&device));
        QCOMPARE(walk(database), QStringList{u"cyan"_s});
        QCOMPARE(database[u"cyan"_s].value(u"level"_s), QVariant(u"1"_s));
    }

    void damagedBytesOfAHeadFail()
    {
        // Cut at every byte: what opens has all of its head.
        const QByteArray head = headOfAda();
        const qsizetype signatureEnd = head.indexOf("\r\ndbkey = !");
        for (qsizetype size = 0; size < head.size(); ++size) {
            QByteArray bytes = head.first(size);
            QBuffer device(&bytes);
            SDBText database;
            const bool isSigned = size >= signatureEnd;
            if (!isSigned) {
                const bool hasKeyLine = size >= head.indexOf("dbkey =") + 7;
                expectError(hasKeyLine ? "SignError" : "WrongDB");
            }
            QCOMPARE(database.open(&device), isSigned);
        }
    }

    void headWithoutEndIsNotReadOn()
    {
        // The whole file would be taken for one record, and held.
        QByteArray bytes = headOfAda().replace("dbkey = !", "xbkey = !");
        bytes += QByteArray("filler = 0123456789\r\n").repeated(500'000);
        QBuffer device(&bytes);
        SDBText database;
        expectError("SignError");
        QVERIFY(!database.open(&device));
    }

    void keyFieldMayBeCalledAsInTheHead()
    {
        // The head's own lines then count as records.
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device, DBAuthGrants::All, u"dbkey"_s));
        QCOMPARE(database.count(), 2);
        SDBRecord record;
        record.insert(u"dbkey"_s, u"cyan"_s);
        QVERIFY(database.insert(record));
        QVERIFY(database.open(&device));
        QCOMPARE(database.count(), 3);
        QVERIFY(database[u"cyan"_s].checkSignature());
    }

    void headIsEndedByARecordOfItsKeyName()
    {
        QByteArray bytes = headOf({"dbkey", "ada", kPasswordHash, "readonly", "en-US", "1"});
        bytes.truncate(bytes.indexOf("dbkey = !"));
        QBuffer device(&bytes);
        SDBText database;
        QVERIFY(database.open(&device));
        QVERIFY(database.authenticate(kUser, kPassword));
        QCOMPARE(walk(database), QStringList{u"dbkey"_s});
        SDBRecord record;
        record.insert(u"dbkey"_s, u"cyan"_s);
        QVERIFY(database.insert(record));
        QVERIFY(database.open(&device));
        QCOMPARE(walk(database), (QStringList{u"cyan"_s, u"dbkey"_s}));
        QVERIFY(database[u"cyan"_s].checkSignature());
    }

    void nameOfTheKeyFieldIsCutAsAllNames()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device, DBAuthGrants::All, u"a.b"_s));
        SDBRecord record;
        record.insert(u"a.b"_s, u"cyan"_s);
        QVERIFY(database.insert(record));
        QCOMPARE(database.count(), 1);
        QVERIFY(database.open(&device));
        QCOMPARE(database.count(), 0);
    }

    // Companions

    void databaseInABufferHasNoCompanions()
    {
        Place place;
        const QString before = QDir::currentPath();
        QVERIFY(QDir::setCurrent(place.folder.path()));
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        QVERIFY(insertAll(database, {u"cyan"_s}));
        SDBText second;
        // No lock keeps the second out.
        QVERIFY(second.open(&device));
        second.close();
        database.close();
        QVERIFY(QDir::setCurrent(before));
        QCOMPARE(QDir(place.folder.path()).entryList(QDir::Files | QDir::Hidden), QStringList());
    }

    void lockKeepsOthersOutWhileOpen()
    {
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(QFile::exists(place.beside(u".lck"_s)));
        SDBText second;
        expectError("FileLockError");
        QVERIFY(!second.open(place.file));
        QCOMPARE(second.error(), DBError::FileLockError);
        expectError("FileLockError");
        QVERIFY(!second.create(place.file, u"id"_s));
        database.close();
        QVERIFY(!QFile::exists(place.beside(u".lck"_s)));
        QVERIFY(second.open(place.file));
        QCOMPARE(second.key(), u"name"_s);
    }

    void lockOfALivingProgramHoldsHoweverOld()
    {
        Place place;
        {
            SDBText database;
            QVERIFY(create(database, place.file));
        }
        QLockFile lock(place.beside(u".lck"_s));
        QVERIFY(lock.tryLock());
        QFile file(place.beside(u".lck"_s));
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.setFileTime(QDateTime::currentDateTime().addDays(-300),
                                 QFileDevice::FileModificationTime));
        SDBText database;
        expectError("FileLockError");
        QVERIFY(!database.open(place.file));
    }

    void emptyLockOfAKilledProgramIsTaken()
    {
        Place place;
        {
            SDBText database;
            QVERIFY(create(database, place.file));
        }
        QFile lock(place.beside(u".lck"_s));
        QVERIFY(lock.open(QIODevice::WriteOnly));
        lock.close();
        SDBText database;
        QVERIFY(database.open(place.file));
        QVERIFY(QFileInfo(lock.fileName()).size() > 0);
    }

    void emptyLockOfALivingProgramHolds()
    {
        Place place;
        {
            SDBText database;
            QVERIFY(create(database, place.file));
        }
        QLockFile lock(place.beside(u".lck"_s));
        QVERIFY(lock.tryLock());
        QVERIFY(QFile::resize(place.beside(u".lck"_s), 0));
        SDBText database;
        expectError("FileLockError");
        QVERIFY(!database.open(place.file));
    }

    void sameObjectMayOpenItsFileAgain()
    {
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"cyan"_s}));
        QVERIFY(database.open(place.file));
        QCOMPARE(database.count(), 1);
        QVERIFY(database.create(place.file, u"name"_s));
        QCOMPARE(database.count(), 0);
    }

    void headCopyThatCannotBeWrittenIsNoFailure()
    {
        Place place;
        QVERIFY(QDir().mkdir(place.beside(u".srec"_s)));
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"cyan"_s}));
        QVERIFY(database.open(place.file));
        QCOMPARE(database.error(), DBError::NoError);
        QCOMPARE(database.count(), 1);
    }

    void headCopyHasThePermissionsOfTheDatabase_data()
    {
        QTest::addColumn<QFileDevice::Permissions>("permissions");
        const QFileDevice::Permissions owner = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
        QTest::newRow("owner") << owner;
        QTest::newRow("group") << (owner | QFileDevice::ReadGroup | QFileDevice::WriteGroup);
        QTest::newRow("all") << (owner | QFileDevice::ReadGroup | QFileDevice::ReadOther);
    }

    void headCopyHasThePermissionsOfTheDatabase()
    {
        QFETCH(QFileDevice::Permissions, permissions);
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(QFile::setPermissions(place.file, permissions));
        const QString copy = place.beside(u".srec"_s);
        // One that was there, and a new one.
        QVERIFY(database.open(place.file));
        QCOMPARE(QFile::permissions(copy), QFile::permissions(place.file));
        QVERIFY(QFile::remove(copy));
        QVERIFY(database.open(place.file));
        QCOMPARE(QFile::permissions(copy), QFile::permissions(place.file));
        QCOMPARE(bytesOf(copy), bytesOf(place.file));
    }

    void headCopyIsWrittenAtEveryOpening()
    {
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        const QByteArray copy = bytesOf(place.beside(u".srec"_s));
        QVERIFY(QFile::remove(place.beside(u".srec"_s)));
        QVERIFY(database.open(place.file));
        QCOMPARE(bytesOf(place.beside(u".srec"_s)), copy);
    }

    // Users

    void everybodyIsNotTheOwnerButMayWorkUnderAll()
    {
        QBuffer device;
        {
            SDBText database;
            QVERIFY(create(database, &device, DBAuthGrants::All));
        }
        SDBText database;
        QVERIFY(database.open(&device));
        QVERIFY(!database.authenticate(u"Everybody"_s, QString()));
        QVERIFY(insertAll(database, {u"cyan"_s}));
        QCOMPARE(database[u"cyan"_s].value(SDBRecord::OwnerKey), QVariant(u"Everybody"_s));
        QVERIFY(database.remove(u"cyan"_s));
        QVERIFY(database.purge());
        QVERIFY(database.clear());
    }

    void ownerMayBeNamedInOtherCase()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        QSignalSpy authenticated(&database, &SDBText::userAutenticated);
        QVERIFY(database.authenticate(u"ADA"_s, kPassword));
        QVERIFY(!database.authenticate(u"ADA"_s, u"Secret"_s));
        QVERIFY(!database.authenticate(u"eve"_s, kPassword));
        QVERIFY(!database.authenticate(QString(), kPassword));
        QCOMPARE(authenticated.size(), 4);
        QCOMPARE(authenticated.at(0).at(0).toBool(), true);
        QCOMPARE(authenticated.at(1).at(0).toBool(), false);
    }

    // Not by the low bytes of its characters, as records are signed.
    void passwordIsHashedInUtf8()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(database.authenticate(kUser, u"\u00E9\u20AC"_s));
        QVERIFY(database.create(&device, u"name"_s));
        QVERIFY(
            device.data().contains("\r\ndbpasswd = f299a77642b6437431ada56c0643f7b8e99b5622\r\n"));
        QVERIFY(database.authenticate(kUser, u"\u00E9\u20AC"_s));
        QVERIFY(!database.authenticate(kUser, u"\u00E9\u21AC"_s));
    }

    void nullDatabaseTakesAnyUserName()
    {
        SDBText database;
        QVERIFY(database.authenticate(u"eve"_s, QString()));
        QVERIFY(!database.authenticate(QString(), kPassword));
    }

    void nobodyOwnsADatabaseWithoutPassword()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(database.authenticate(kUser, QString()));
        QVERIFY(database.create(&device, u"name"_s, DBAuthGrants::ReadOnly));
        QVERIFY(device.data().contains("\r\ndbpasswd = \r\n"));
        QVERIFY(!database.authenticate(kUser, QString()));
        QCOMPARE(database.grants(), DBAuthGrants::ReadOnly);
        expectError("AuthError");
        QVERIFY(!insertAll(database, {u"cyan"_s}));
        QVERIFY(database.open(&device));
    }

    void grantsOpenWhatTheyName_data()
    {
        QTest::addColumn<DBAuthGrants>("grants");
        QTest::addColumn<bool>("reads");
        QTest::addColumn<bool>("writes");
        QTest::addColumn<bool>("inserts");
        QTest::newRow("None") << DBAuthGrants::None << false << false << false;
        QTest::newRow("ReadOnly") << DBAuthGrants::ReadOnly << true << false << false;
        QTest::newRow("ReadWrite") << DBAuthGrants::ReadWrite << true << true << true;
        QTest::newRow("ReadOwnWrite") << DBAuthGrants::ReadOwnWrite << true << false << true;
        QTest::newRow("All") << DBAuthGrants::All << true << true << true;
    }

    void grantsOpenWhatTheyName()
    {
        QFETCH(DBAuthGrants, grants);
        QFETCH(bool, reads);
        QFETCH(bool, writes);
        QFETCH(bool, inserts);
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device, grants));
        QVERIFY(insertAll(database, {u"cyan"_s, u"magenta"_s}));
        QCOMPARE(database.grants(), DBAuthGrants::All);
        QVERIFY(!database.authenticate(u"eve"_s, u"apple"_s));
        QCOMPARE(database.grants(), grants);
        const auto agrees = [](bool allowed, const auto &operation) {
            if (!allowed)
                expectError("AuthError");
            return operation() == allowed;
        };
        SDBRecord record;
        QList<SDBRecord> records;
        QBuffer backup;
        QVERIFY(agrees(reads, [&] { return database.value(u"cyan"_s, record); }));
        QVERIFY(agrees(reads, [&] { return database.first(record); }));
        QVERIFY(agrees(reads, [&] { return database.last(record); }));
        QVERIFY(agrees(reads, [&] { return database.addFieldIndex(u"level"_s); }));
        QVERIFY(agrees(reads, [&] { return database.searchField({u"level"_s, 1}, records); }));
        QVERIFY(agrees(reads, [&] { return database.reindex(); }));
        QVERIFY(agrees(reads, [&] { return database.backup(&backup); }));
        QCOMPARE(database.values(QString()).isEmpty(), !reads);
        QVERIFY(agrees(inserts, [&] { return database.insert(ink(u"yellow"_s)); }));
        QVERIFY(agrees(inserts, [&] { return database.replace(ink(u"yellow"_s, 2)); }));
        QVERIFY(agrees(writes, [&] { return database.remove(u"cyan"_s); }));
        QVERIFY(agrees(inserts, [&] { return database.remove(u"yellow"_s); }));
        QVERIFY(agrees(writes, [&] { return database.purge(); }));
        QVERIFY(agrees(writes, [&] { return database.clear(); }));
        QCOMPARE(database.count(), writes ? 0 : 2);
    }

    void deviceGoneWhileOpen()
    {
        SDBText database;
        {
            QBuffer device;
            QVERIFY(create(database, &device));
            QVERIFY(insertAll(database, {u"cyan"_s}));
        }
        QVERIFY(database.isNull());
        SDBRecord record;
        expectError("SeekError");
        QVERIFY(!database.value(u"cyan"_s, record));
        expectError("SeekError");
        QVERIFY(!database.insert(ink(u"magenta"_s)));
        expectError("UnknownError");
        QVERIFY(!database.remove(u"cyan"_s));
        expectError("SeekError");
        QVERIFY(!database.reindex());
        expectError("ResetError");
        QVERIFY(!database.clear());
        QVERIFY(database.close());
    }

    void deviceClosedBehindItsBack()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        QVERIFY(insertAll(database, {u"cyan"_s}));
        device.close();
        SDBRecord record;
        expectError("SeekError");
        QVERIFY(!database.value(u"cyan"_s, record));
        expectError("SeekError");
        QVERIFY(!database.insert(ink(u"magenta"_s)));
        QVERIFY(database.open(&device));
        QCOMPARE(database.count(), 1);
    }

    void noDevice()
    {
        SDBText database;
        expectError("OpenError");
        QVERIFY(!database.open(static_cast<QIODevice *>(nullptr)));
        expectError("CreateError");
        QVERIFY(!database.create(static_cast<QIODevice *>(nullptr), u"name"_s));
        expectError("OpenError");
        QVERIFY(!database.restore(static_cast<QIODevice *>(nullptr)));
    }
};

QTEST_GUILESS_MAIN(tst_SDBText)
#include "tst_sdbtext.moc"
