// SPDX-License-Identifier: MIT
// The index of keys, that of fields, and the file that keeps them.
#include "sampledatabase.h"

#include <brixrt/scrc32.h>

#include <shared/goldenbytes.h>

#include <QtCore/QBuffer>
#include <QtCore/QFileInfo>
#include <QtCore/QtEndian>
#include <QtTest/QSignalSpy>

using namespace Talverine;
using namespace Talverine::Sample;
using namespace Qt::StringLiterals;

namespace {

template<typename T>
QByteArray number(T value)
{
    QByteArray bytes(sizeof value, Qt::Uninitialized);
    qToBigEndian(value, bytes.data());
    return bytes;
}

QByteArray array(const QByteArray &bytes)
{
    return number(quint32(bytes.size())) + bytes;
}

QByteArray hashOf(const QString &file)
{
    return QByteArray::number(SCrc32::hash(bytesOf(file)), 16);
}

//! What begins an index file of a database.
QByteArray indexHead(const QString &file)
{
    return "IDX4" + array(hashOf(file));
}

void expectIndexLine(const char *text)
{
    QTest::ignoreMessage(QtDebugMsg, (QByteArray("SDBText::indexLoad: ") + text).constData());
}

//! Makes a file of records a, b and c at the levels 1, 2 and 1.
bool makeFile(const QString &file)
{
    SDBText database;
    return create(database, file) && database.insert(ink(u"a"_s, 1)) &&
           database.insert(ink(u"b"_s, 2)) && database.insert(ink(u"c"_s, 1));
}

qint64 positionOf(const QString &file, const QByteArray &line)
{
    return bytesOf(file).indexOf("\n" + line) + 1;
}

QStringList namesOf(const QList<SDBRecord> &records)
{
    QStringList names;
    for (const SDBRecord &record : records)
        names.append(record.value(u"name"_s).toString());
    return names;
}

} // namespace

class tst_SDBText_Index : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // It has the keys and texts of records.
    void indexFileHasThePermissionsOfTheDatabase()
    {
        Place place;
        for (const auto permissions :
             {QFileDevice::ReadOwner | QFileDevice::WriteOwner,
              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup}) {
            SDBText database;
            QVERIFY(create(database, place.file));
            QVERIFY(QFile::setPermissions(place.file, permissions));
            QVERIFY(insertAll(database, {u"cyan"_s}));
            QVERIFY(database.close());
            QCOMPARE(QFile::permissions(place.beside(u".idx"_s)), QFile::permissions(place.file));
        }
    }

    // The file

    void closeWritesTheIndex()
    {
        Place place;
        {
            SDBText database;
            QVERIFY(create(database, place.file));
            QVERIFY(database.insert(ink(u"b"_s, u"żó"_s)));
            QVERIFY(database.insert(ink(u"a"_s, 1)));
            QCOMPARE(database.values(u"level"_s).size(), 2);
            QVERIFY(!QFile::exists(place.beside(u".idx"_s)));
            database.close();
            QVERIFY(QFile::exists(place.beside(u".idx"_s)));
        }
        const QByteArray expected = indexHead(place.file) + number(qint64(2)) +                 //
                                    array("a") + number(positionOf(place.file, "name = a\r")) + //
                                    array("b") + number(positionOf(place.file, "name = b\r")) + //
                                    number(qint64(1)) + array("level") + number(qint64(2)) +    //
                                    array("1") + array("a") + array("\xC5\xBC\xC3\xB3") +
                                    array("b");
        QCOMPARE(bytesOf(place.beside(u".idx"_s)), expected);
    }

    void whatCloseWritesIsReadAsAnEmptyIndex()
    {
        Place place;
        QVERIFY(makeFile(place.file));
        SDBText database;
        expectIndexLine("reindexing due to empty index (don't worry)");
        QVERIFY(database.open(place.file));
        QCOMPARE(database.count(), 3);
    }

    void indexWithCountsOf32BitsIsLoaded()
    {
        Place place;
        QVERIFY(makeFile(place.file));
        // Of two of the three keys, so that it shows where the keys are from.
        const QByteArray index = indexHead(place.file) + number(qint32(2)) +                 //
                                 array("a") + number(positionOf(place.file, "name = a\r")) + //
                                 array("c") + number(positionOf(place.file, "name = c\r")) + //
                                 number(qint32(1)) + array("level") + number(qint32(2)) +    //
                                 array("1") + array("c") + array("7") + array("a");
        QVERIFY(setBytes(place.beside(u".idx"_s), index));
        SDBText database;
        {
            const DebugLines lines;
            QVERIFY(database.open(place.file));
            QCOMPARE(lines.all(), QStringList());
        }
        QCOMPARE(walk(database), (QStringList{u"a"_s, u"c"_s}));
        QCOMPARE(database.fieldsIndexed(), QStringList{u"level"_s});
        const QList<SDBField> values = database.values(u"level"_s);
        QCOMPARE(values.size(), 2);
        QCOMPARE(values.at(1).value(), QVariant(u"7"_s));
    }

    void indexWrittenByHandIsLoaded()
    {
        Place place;
        QVERIFY(setBytes(place.file, GoldenBytes::database()));
        QVERIFY(setBytes(place.beside(u".idx"_s),
                         indexHead(place.file) + GoldenBytes::databaseIndexItems()));
        SDBText database;
        QVERIFY(database.open(place.file));
        QVERIFY(database[u"cyan"_s].checkSignature());
        QVERIFY(database.contains(u"żó"_s));
        QCOMPARE(database.count(), 2);
        QCOMPARE(database.values(u"level"_s), QList<SDBField>{SDBField(u"level"_s, u"12"_s)});
    }

    void loadedIndexWithoutPairsIsBuiltWhenUsed()
    {
        // As close() writes an index that was added and not used.
        Place place;
        QVERIFY(makeFile(place.file));
        const QByteArray index = indexHead(place.file) + number(qint32(1)) +                 //
                                 array("a") + number(positionOf(place.file, "name = a\r")) + //
                                 number(qint32(1)) + array("level") + number(qint32(0));
        QVERIFY(setBytes(place.beside(u".idx"_s), index));
        SDBText database;
        QVERIFY(database.open(place.file));
        QCOMPARE(database.count(), 1);
        QCOMPARE(database.fieldsIndexed(), QStringList{u"level"_s});
        QList<SDBRecord> found;
        QVERIFY(database.searchField({u"level"_s, 2}, found));
        QCOMPARE(namesOf(found), QStringList{u"b"_s});
        // It was passed on the way, as all were.
        QCOMPARE(database.count(), 3);
    }

    void loadedIndexKeepsEveryCharacter()
    {
        Place place;
        const QString key = u"\uFEFFa"_s;
        {
            SDBText database;
            QVERIFY(create(database, place.file));
            QVERIFY(database.insert(ink(key, u"\uFEFFb"_s)));
        }
        const QByteArray index = indexHead(place.file) + number(qint32(1)) + array(key.toUtf8()) +
                                 number(positionOf(place.file, "name = ")) + number(qint32(1)) +
                                 array("level") + number(qint32(1)) + array("\uFEFFb") +
                                 array(key.toUtf8());
        QVERIFY(setBytes(place.beside(u".idx"_s), index));
        SDBText database;
        QVERIFY(database.open(place.file));
        QVERIFY(database.contains(key));
        QList<SDBRecord> found;
        QVERIFY(database.searchField({u"level"_s, u"\uFEFFb"_s}, found));
        QCOMPARE(namesOf(found), QStringList{key});
    }

    void uniqueKeysGoOnFromALoadedIndex()
    {
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file, DBAuthGrants::All, SDBRecord::UniqueIncKey));
        QVERIFY(database.insert(ink(u"cyan"_s)));
        database.close();
        const QByteArray index = indexHead(place.file) + number(qint32(3)) +         //
                                 array("0000000000000041") + number(qint64(0)) +     //
                                 array("99999999999999999999") + number(qint64(0)) + //
                                 array("x77") + number(qint64(0)) + number(qint32(0));
        QVERIFY(setBytes(place.beside(u".idx"_s), index));
        QVERIFY(database.open(place.file));
        QCOMPARE(database.count(), 3);
        QVERIFY(database.insert(ink(u"magenta"_s)));
        QVERIFY(database.contains(u"0000000000000042"_s));
        // Read anew, the counter is that of the text alone.
        QVERIFY(database.remove(u"0000000000000042"_s));
        QVERIFY(database.reindex());
        QVERIFY(database.insert(ink(u"yellow"_s)));
        QVERIFY(database.contains(u"0000000000000002"_s));
    }

    void indexThatCannotBeTrustedIsBuiltAnew_data()
    {
        QTest::addColumn<QByteArray>("tail");
        const QByteArray key = array("a") + number(qint64(0));
        QTest::newRow("no counts") << QByteArray();
        QTest::newRow("half a count") << QByteArray(2, '\0');
        QTest::newRow("more keys than there are") << number(qint32(2)) + key;
        QTest::newRow("an absurd count of keys") << number(qint32(0x7FFFFFFF)) + key;
        QTest::newRow("a key longer than the file")
            << number(qint32(1)) + number(quint32(~0u)) + key;
        QTest::newRow("a key a byte too long") << number(qint32(1)) + number(quint32(2)) + "a";
        QTest::newRow("half a position") << number(qint32(1)) + key.chopped(4);
        QTest::newRow("no count of fields") << number(qint32(1)) + key;
        QTest::newRow("more fields than there are") << number(qint32(1)) + key + number(qint32(1));
        QTest::newRow("an absurd count of pairs") << number(qint32(1)) + key + number(qint32(1)) +
                                                         array("level") +
                                                         number(qint32(0x7FFFFFFF)) + array("1");
    }

    void indexThatCannotBeTrustedIsBuiltAnew()
    {
        QFETCH(QByteArray, tail);
        Place place;
        QVERIFY(makeFile(place.file));
        QVERIFY(setBytes(place.beside(u".idx"_s), indexHead(place.file) + tail));
        SDBText database;
        QVERIFY(database.open(place.file));
        QCOMPARE(walk(database), (QStringList{u"a"_s, u"b"_s, u"c"_s}));
        QVERIFY(database[u"b"_s].checkSignature());
        QCOMPARE(database.fieldsIndexed(), QStringList());
    }

    void negativeCountMeansNoKeys()
    {
        Place place;
        QVERIFY(makeFile(place.file));
        const QByteArray index = indexHead(place.file) + number(qint32(-1)) + number(qint32(1)) +
                                 array("level") + number(qint32(1)) + array("7") + array("a");
        QVERIFY(setBytes(place.beside(u".idx"_s), index));
        SDBText database;
        QVERIFY(database.open(place.file));
        QCOMPARE(database.count(), 0);
        // The load goes on behind them.
        QCOMPARE(database.values(u"level"_s), QList<SDBField>{SDBField(u"level"_s, u"7"_s)});
        QVERIFY(database.reindex());
        QCOMPARE(database.count(), 3);
    }

    void indexOfRandomBytes()
    {
        Place place;
        QVERIFY(makeFile(place.file));
        QByteArray bytes("IDX4");
        for (int i = 0; i < 60; ++i) {
            QVERIFY(setBytes(place.beside(u".idx"_s), bytes));
            SDBText database;
            QVERIFY(database.open(place.file));
            QCOMPARE(database.count(), 3);
            bytes.append(static_cast<char>(i * 37 % 256));
        }
        QVERIFY(setBytes(place.beside(u".idx"_s), "XDI4"));
        SDBText database;
        expectIndexLine("the file is not a valid index!");
        QVERIFY(database.open(place.file));
    }

    void indexOfAChangedFileIsNotUsed()
    {
        Place place;
        QVERIFY(makeFile(place.file));
        QByteArray bytes = bytesOf(place.file);
        bytes.replace("level = 2", "level = 3");
        QVERIFY(setBytes(place.file, bytes));
        SDBText database;
        expectIndexLine("hash does not match!");
        QVERIFY(database.open(place.file));
        QCOMPARE(database.count(), 3);
        QVERIFY(!database[u"b"_s].checkSignature());
    }

    void indexOfAReplacedFileIsNotUsedWhenItDoesNotMatch()
    {
        Place place;
        QVERIFY(makeFile(place.file));
        SDBText database;
        QVERIFY(database.open(place.file));
        database.authenticate(kUser, kPassword);
        QBuffer backup;
        QVERIFY(database.backup(&backup));
        {
            SDBText other;
            QVERIFY(other.open(place.file));
            other.authenticate(kUser, kPassword);
            QVERIFY(other.purge());
        }
        // A count of keys, or the text would be read while the file is compared.
        QVERIFY(setBytes(place.beside(u".idx"_s), "IDX4" + array("0") + number(3)));
        expectIndexLine("hash does not match!");
        QVERIFY(database.insert(ink(u"d"_s)));
        QCOMPARE(walk(database), (QStringList{u"a"_s, u"b"_s, u"c"_s, u"d"_s}));
    }

    void databaseInMemoryWritesNoIndexAndNoLine()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        QVERIFY(insertAll(database, {u"a"_s}));
        const QByteArray before = device.data();
        const DebugLines lines;
        QVERIFY(database.close());
        QCOMPARE(lines.all(), QStringList());
        QCOMPARE(device.data(), before);
    }

    void databaseThatClosesItselfForgetsItsKeys()
    {
        Place place;
        QVERIFY(makeFile(place.file));
        SDBText database;
        QVERIFY(database.open(place.file));
        database.authenticate(kUser, kPassword);
        QBuffer backup;
        QVERIFY(database.backup(&backup));
        SDBText other;
        QVERIFY(other.open(place.file));
        other.authenticate(kUser, kPassword);
        QVERIFY(QFile::remove(place.beside(u".idx"_s)));
        QSignalSpy closed(&database, &SDBText::databaseClosed);
        expectError("FileLockError");
        QVERIFY(!database.clear());
        QVERIFY(database.isNull());
        QCOMPARE(database.count(), 0);
        QVERIFY(!database.contains(u"a"_s));
        QCOMPARE(closed.size(), 0);
        QVERIFY(database.close());
        QCOMPARE(closed.size(), 1);
        QVERIFY(!QFile::exists(place.beside(u".idx"_s)));
        QCOMPARE(other.count(), 3);
    }

    void databaseWhoseNewFileCantBeReadForgetsItsKeys()
    {
        Place place;
        QVERIFY(makeFile(place.file));
        SDBText database;
        QVERIFY(database.open(place.file));
        database.authenticate(kUser, kPassword);
        QBuffer backup;
        QVERIFY(database.backup(&backup));
        QVERIFY(QFile::remove(place.beside(u".idx"_s)));
        QVERIFY(QFile::remove(place.beside(u".srec"_s)));
        QVERIFY(QFile::rename(place.file, place.beside(u".old"_s)));
        QVERIFY(setBytes(place.file, "notes"));
        expectError("WrongDB");
        QVERIFY(!database.insert(ink(u"d"_s)));
        QVERIFY(database.isNull());
        QCOMPARE(database.count(), 0);
        QVERIFY(database.close());
        QVERIFY(!QFile::exists(place.beside(u".idx"_s)));
        QCOMPARE(bytesOf(place.file), "notes");
    }

    void databaseWithoutRecordsRemovesItsIndex()
    {
        Place place;
        QVERIFY(makeFile(place.file));
        QVERIFY(QFile::exists(place.beside(u".idx"_s)));
        SDBText database;
        QVERIFY(database.open(place.file));
        database.authenticate(kUser, kPassword);
        QVERIFY(database.clear());
        database.close();
        QVERIFY(!QFile::exists(place.beside(u".idx"_s)));
        QVERIFY(create(database, place.file));
        database.close();
        QVERIFY(!QFile::exists(place.beside(u".idx"_s)));
    }

    void indexOutlivesFurtherCloses()
    {
        Place place;
        QVERIFY(makeFile(place.file));
        const QByteArray index = bytesOf(place.beside(u".idx"_s));
        {
            SDBText database;
            QVERIFY(database.open(place.file));
            database.close();
            database.close();
        }
        QCOMPARE(bytesOf(place.beside(u".idx"_s)), index);
    }

    void indexThatCannotBeWritten()
    {
        Place place;
        QVERIFY(QDir().mkdir(place.beside(u".idx"_s)));
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"a"_s}));
        QTest::ignoreMessage(QtDebugMsg, "SDBText::indexSave: unable to write the index!");
        QVERIFY(database.close());
    }

    void indexOnAFullDisk()
    {
        Place place;
        QVERIFY(QFile::link(u"/dev/full"_s, place.beside(u".idx"_s)));
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"a"_s}));
        QTest::ignoreMessage(QtDebugMsg, "SDBText::indexSave: unable to write the index!");
        QVERIFY(database.close());
        QVERIFY(!QFileInfo(place.beside(u".idx"_s)).isSymLink());
    }

    void indexOfAFileThatIsGone()
    {
        Place place;
        QVERIFY(makeFile(place.file));
        SDBText database;
        QVERIFY(database.open(place.file));
        QVERIFY(QFile::remove(place.file));
        QTest::ignoreMessage(QtDebugMsg, "SDBText::indexSave: unable to calculate hash!");
        QVERIFY(database.close());
        QVERIFY(!QFile::exists(place.beside(u".idx"_s)));
        QVERIFY(!QFile::exists(place.file));
    }

    // Field indexes

    void searchFindsTheLatestFirst()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        QVERIFY(database.insert(ink(u"a"_s, 1)));
        QVERIFY(database.insert(ink(u"b"_s, 2)));
        QVERIFY(database.addFieldIndex(u"level"_s));
        QVERIFY(database.insert(ink(u"c"_s, 1)));
        QList<SDBRecord> found;
        QVERIFY(database.searchField({u"level"_s, 1}, found));
        QCOMPARE(namesOf(found), (QStringList{u"c"_s, u"a"_s}));
        QVERIFY(database.insert(ink(u"d"_s, 1)));
        QVERIFY(database.searchField({u"level"_s, u"1"_s}, found));
        QCOMPARE(namesOf(found), (QStringList{u"d"_s, u"c"_s, u"a"_s}));
        QVERIFY(!database.searchField({u"level"_s, 9}, found));
        QVERIFY(found.isEmpty());
        QCOMPARE(database.error(), DBError::RecNotFound);
    }

    void searchOfAnUnknownFieldIsFieldIndexError()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        QVERIFY(insertAll(database, {u"a"_s}));
        QList<SDBRecord> found;
        expectError("FieldIndexError");
        QVERIFY(!database.searchField({u"level"_s, 1}, found));
        QVERIFY(!database.isFieldIndexed(u"level"_s));
        // This call adds the index by itself.
        QCOMPARE(database.values(u"level"_s), QList<SDBField>{SDBField(u"level"_s, u"1"_s)});
        QVERIFY(database.isFieldIndexed(u"level"_s));
        QVERIFY(database.searchField({u"level"_s, 1}, found));
        expectError("FieldIndexError");
        QVERIFY(!database.searchField({u"level"_s, QVariant()}, found));
        expectError("FieldIndexError");
        QVERIFY(!database.searchField({QString(), 1}, found));
    }

    void fieldIndexesAreNamed()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        expectError("FieldIndexError");
        QVERIFY(!database.addFieldIndex(QString()));
        expectError("FieldIndexError");
        QVERIFY(!database.delFieldIndex(QString()));
        expectError("FieldIndexError");
        QVERIFY(!database.isFieldIndexed(QString()));
        QVERIFY(database.addFieldIndex(u"level"_s));
        QVERIFY(database.addFieldIndex(u"level"_s));
        QCOMPARE(database.fieldsIndexed(), QStringList{u"level"_s});
        QVERIFY(database.delFieldIndex(u"nothing"_s));
        QVERIFY(database.delFieldIndex(u"level"_s));
        QCOMPARE(database.fieldsIndexed(), QStringList());
    }

    void fieldIndexesNeedTheRightToRead()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device, DBAuthGrants::None));
        QVERIFY(insertAll(database, {u"a"_s}));
        QVERIFY(database.addFieldIndex(u"level"_s));
        QVERIFY(!database.authenticate(u"eve"_s, u"apple"_s));
        expectError("AuthError");
        QVERIFY(!database.addFieldIndex(u"dots"_s));
        expectError("AuthError");
        QVERIFY(!database.delFieldIndex(u"level"_s));
        expectError("AuthError");
        QVERIFY(!database.isFieldIndexed(u"level"_s));
        QList<SDBRecord> found;
        expectError("AuthError");
        QVERIFY(!database.searchField({u"level"_s, 1}, found));
        QSignalSpy reindexed(&database, &SDBText::databaseReindexed);
        expectError("AuthError");
        QVERIFY(!database.reindex());
        QCOMPARE(reindexed.size(), 0);
        QVERIFY(database.authenticate(kUser, kPassword));
        QCOMPARE(database.fieldsIndexed(), QStringList{u"level"_s});
    }

    void valuesWithoutTheRightToReadAreSilent()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device, DBAuthGrants::None));
        QVERIFY(insertAll(database, {u"a"_s}));
        QVERIFY(!database.authenticate(u"eve"_s, u"apple"_s));
        const DebugLines lines;
        QVERIFY(database.values(u"level"_s).isEmpty());
        QCOMPARE(database.error(), DBError::AuthError);
        QVERIFY(database.values(QString()).isEmpty());
        QCOMPARE(database.error(), DBError::AuthError);
        QCOMPARE(database.fieldsIndexed(), QStringList());
        QCOMPARE(lines.all(), QStringList());
    }

    void closedDatabaseHasNoValues()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        QVERIFY(insertAll(database, {u"a"_s}));
        QCOMPARE(database.values(u"level"_s).size(), 1);
        database.close();
        QCOMPARE(database.values(u"level"_s), QList<SDBField>());
        QCOMPARE(database.error(), DBError::SeekError);
        QList<SDBRecord> found{ink(u"b"_s)};
        expectError("SeekError");
        QVERIFY(!database.searchField({u"level"_s, u"name"_s}, found));
        QVERIFY(found.isEmpty());
        // It has no key field then.
        expectError("OpenError");
        QVERIFY(!database.open(static_cast<QIODevice *>(nullptr)));
        QCOMPARE(database.values(u"level"_s), QList<SDBField>());
        QCOMPARE(database.fieldsIndexed(), QStringList{u"level"_s});
    }

    void searchGoesByTheTextOfTheCulture()
    {
        QBuffer device;
        SDBText database;
        database.authenticate(kUser, kPassword);
        QVERIFY(database.create(&device, u"name"_s, DBAuthGrants::ReadOnly,
                                QLocale(QLocale::Italian, QLocale::Italy)));
        QVERIFY(database.insert(ink(u"a"_s, 1.5)));
        QVERIFY(database.addFieldIndex(u"level"_s));
        QList<SDBRecord> found;
        QVERIFY(database.searchField({u"level"_s, 1.5}, found));
        QVERIFY(database.insert(ink(u"b"_s, 1.5)));
        QVERIFY(database.searchField({u"level"_s, 1.5}, found));
        QCOMPARE(namesOf(found), (QStringList{u"b"_s, u"a"_s}));
        QVERIFY(database.searchField({u"level"_s, u"1,5"_s}, found));
        QVERIFY(!database.searchField({u"level"_s, u"1.5"_s}, found));
        QCOMPARE(database.values(u"level"_s), QList<SDBField>{SDBField(u"level"_s, u"1,5"_s)});
    }

    void emptyTextsAreNotIndexed()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        QVERIFY(database.insert(ink(u"a"_s, u""_s)));
        QVERIFY(database.insert(ink(u"b"_s, 1)));
        QCOMPARE(database.values(u"level"_s).size(), 1);
        QVERIFY(database.insert(ink(u"c"_s, u""_s)));
        QCOMPARE(database.values(u"level"_s), QList<SDBField>{SDBField(u"level"_s, u"1"_s)});
        QList<SDBRecord> found;
        QVERIFY(!database.searchField({u"level"_s, u""_s}, found));
        QCOMPARE(database.error(), DBError::RecNotFound);
    }

    void searchMatchesWholeArrays()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        QVERIFY(database.insert(ink(u"a"_s, QStringList{u"1"_s, u"2"_s})));
        QVERIFY(database.insert(ink(u"b"_s, u"1"_s)));
        QVERIFY(database.addFieldIndex(u"level"_s));
        QList<SDBRecord> found;
        QVERIFY(database.searchField({u"level"_s, QVariantList{1, 2}}, found));
        QCOMPARE(namesOf(found), QStringList{u"a"_s});
        QVERIFY(database.searchField({u"level"_s, u"1\r\n2"_s}, found));
        QVERIFY(!database.searchField({u"level"_s, 2}, found));
    }

    void removedRecordsDropOutOfASearch()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        QVERIFY(insertAll(database, {u"a"_s, u"b"_s}));
        QVERIFY(database.addFieldIndex(u"level"_s));
        QList<SDBRecord> found;
        QVERIFY(database.searchField({u"level"_s, 1}, found));
        QVERIFY(database.remove(u"a"_s));
        QVERIFY(database.searchField({u"level"_s, 1}, found));
        QCOMPARE(namesOf(found), QStringList{u"b"_s});
        QVERIFY(database.remove(u"b"_s));
        QVERIFY(!database.searchField({u"level"_s, 1}, found));
        QCOMPARE(database.values(u"level"_s).size(), 1);
        QVERIFY(database.reindex());
        QCOMPARE(database.values(u"level"_s).size(), 0);
    }

    void indexDoesNotFollowReplacements()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        QVERIFY(insertAll(database, {u"a"_s, u"b"_s}));
        QVERIFY(database.addFieldIndex(u"level"_s));
        QList<SDBRecord> found;
        QVERIFY(database.searchField({u"level"_s, 1}, found));
        QVERIFY(database.replace(ink(u"a"_s, 2)));
        QVERIFY(database.searchField({u"level"_s, 2}, found));
        QCOMPARE(namesOf(found), QStringList{u"a"_s});
        QVERIFY(database.searchField({u"level"_s, 1}, found));
        QCOMPARE(namesOf(found), (QStringList{u"b"_s, u"a"_s}));
        QVERIFY(database.reindex());
        QVERIFY(database.searchField({u"level"_s, 1}, found));
        QCOMPARE(namesOf(found), QStringList{u"b"_s});
    }

    void textOfTheKeyFieldsNameMakesAnIndexStale()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        QVERIFY(database.insert(ink(u"a"_s, u"name"_s)));
        QVERIFY(database.addFieldIndex(u"level"_s));
        QList<SDBRecord> found;
        QVERIFY(database.searchField({u"level"_s, u"name"_s}, found));
        QVERIFY(database.insert(ink(u"b"_s, u"name"_s)));
        QVERIFY(database.remove(u"a"_s));
        QVERIFY(database.searchField({u"level"_s, u"name"_s}, found));
        QCOMPARE(namesOf(found), QStringList{u"b"_s});
    }

    void indexOfAFieldThatNoRecordHas()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        QVERIFY(insertAll(database, {u"a"_s}));
        QVERIFY(database.addFieldIndex(u"dots"_s));
        QList<SDBRecord> found;
        QVERIFY(!database.searchField({u"dots"_s, 1}, found));
        SDBRecord record = ink(u"b"_s);
        record.insert(u"dots"_s, 1);
        QVERIFY(database.insert(record));
        QVERIFY(database.searchField({u"dots"_s, 1}, found));
        QCOMPARE(namesOf(found), QStringList{u"b"_s});
    }

    void namesOfFieldIndexesOutliveCloseButNotTheObject()
    {
        Place place;
        QVERIFY(makeFile(place.file));
        QList<SDBRecord> found;
        SDBText database;
        QVERIFY(database.open(place.file));
        QVERIFY(database.addFieldIndex(u"level"_s));
        QVERIFY(database.searchField({u"level"_s, 1}, found));
        database.close();
        QVERIFY(database.open(place.file));
        QCOMPARE(database.fieldsIndexed(), QStringList{u"level"_s});
        QVERIFY(database.searchField({u"level"_s, 1}, found));
        QCOMPARE(found.size(), 2);
        database.close();
        SDBText second;
        QVERIFY(second.open(place.file));
        QCOMPARE(second.fieldsIndexed(), QStringList());
    }

    void fieldIndexesOutliveADatabaseOfAnotherKey()
    {
        QBuffer first;
        QBuffer second;
        SDBText database;
        QVERIFY(create(database, &first, DBAuthGrants::All, u"id"_s));
        QVERIFY(database.addFieldIndex(u"level"_s));
        QVERIFY(create(database, &second));
        QVERIFY(insertAll(database, {u"a"_s}));
        QCOMPARE(database.values(u"level"_s).size(), 1);
    }

    void valuesWithoutNameAreTheKeys()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        QVERIFY(insertAll(database, {u"b"_s, u"a"_s}));
        QCOMPARE(database.values(QString()),
                 (QList<SDBField>{SDBField(u"name"_s, u"a"_s), SDBField(u"name"_s, u"b"_s)}));
    }

    void reindexTells()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        QVERIFY(insertAll(database, {u"a"_s}));
        QSignalSpy reindexed(&database, &SDBText::databaseReindexed);
        DBError told = DBError::UnknownError;
        connect(&database, &SDBText::databaseReindexed, this, [&] { told = database.error(); });
        QVERIFY(database.reindex());
        QCOMPARE(reindexed.size(), 1);
        QCOMPARE(reindexed.at(0).at(0).toBool(), true);
        QCOMPARE(told, DBError::NoError);
        QCOMPARE(database.count(), 1);
        database.close();
        expectError("SeekError");
        QVERIFY(!database.reindex());
        QCOMPARE(reindexed.size(), 2);
        QCOMPARE(reindexed.at(1).at(0).toBool(), false);
        QCOMPARE(told, DBError::SeekError);
    }
};

QTEST_GUILESS_MAIN(tst_SDBText_Index)
#include "tst_sdbtext_index.moc"
