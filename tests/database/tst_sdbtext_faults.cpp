// SPDX-License-Identifier: MIT
// Disks that fill up, devices that fail, files that were damaged, programs that are killed.
#include "sampledatabase.h"

#include <brixlib/compression/compressionalgorithm.h>

#include <shared/faultdevice.h>
#include <shared/filesizelimit.h>
#include <shared/killedprocess.h>
#include <shared/seededrandom.h>

#include <QtCore/QBuffer>
#include <QtCore/QCoreApplication>
#include <QtTest/QSignalSpy>

#include <cstdio>
#include <functional>

using namespace Talverine;
using namespace Talverine::Sample;
using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

using Work = std::function<bool(SDBText &)>;

//! The bytes of a database of ada's with records of these names.
QByteArray databaseOf(const QStringList &names)
{
    QBuffer device;
    SDBText database;
    if (!create(database, &device) || !insertAll(database, names))
        qFatal("no database");
    return device.data();
}

//! A device some of whose next writes fail halfway.
class FailingWrites : public QIODevice
{
public:
    explicit FailingWrites(QBuffer *disk)
        : m_disk(disk)
    {
    }

    //! Counted from 1, from now on; 0 for none.
    void failFrom(int first, int count)
    {
        m_first = first;
        m_count = count;
        m_writes = 0;
    }

    bool open(OpenMode mode) override { return m_disk->open(mode) && QIODevice::open(mode); }
    void close() override
    {
        QIODevice::close();
        m_disk->close();
    }
    qint64 size() const override { return m_disk->size(); }
    bool seek(qint64 position) override
    {
        return m_disk->seek(position) && QIODevice::seek(position);
    }

protected:
    qint64 readData(char *data, qint64 size) override { return m_disk->read(data, size); }
    qint64 writeData(const char *data, qint64 size) override
    {
        ++m_writes;
        if (m_writes < m_first || m_writes >= m_first + m_count)
            return m_disk->write(data, size);
        m_disk->write(data, size / 2);
        return -1;
    }

private:
    QBuffer *m_disk;
    int m_first = 0;
    int m_count = 0;
    int m_writes = 0;
};

//! Opens a database as ada.
template<typename Where>
bool openAsAda(SDBText &database, const Where &where)
{
    return database.open(where) && (database.authenticate(kUser, kPassword), true);
}

//! Whether all records can be walked through; counts those whose signature fits.
bool walksWell(SDBText &database, int *signedRecords)
{
    *signedRecords = 0;
    int steps = 0;
    for (SDBIterator it = database.begin(); it != database.end(); ++it) {
        *signedRecords += it->checkSignature();
        if (++steps > database.count())
            return false;
    }
    return steps == database.count();
}

QString nameOf(int number)
{
    return QString::number(number).rightJustified(6, u'0');
}

// Enough that the time is not all spent with emptying the file.
constexpr int kRecordsToClear = 100;

// What a child does until it is killed. It tells what is done before it goes on.

void tell(const char *what, int number)
{
    std::printf("%s %d\n", what, number);
    std::fflush(stdout);
}

bool insertForEver(SDBText &database)
{
    for (int i = 0; database.insert(ink(nameOf(i), i)); ++i)
        tell("inserted", i);
    return false;
}

bool replaceForEver(SDBText &database)
{
    for (int i = 0;; i = (i + 1) % database.count()) {
        if (!database.replace(ink(nameOf(i), u"new"_s)))
            return false;
        tell("replaced", i);
    }
}

bool removeAll(SDBText &database)
{
    for (int i = 0; database.remove(nameOf(i)); ++i)
        tell("removed", i);
    return false;
}

bool purgeForEver(SDBText &database)
{
    for (int i = 0; database.purge(); ++i)
        tell("purged", i);
    return false;
}

bool clearForEver(SDBText &database)
{
    for (int i = 0; database.clear(); ++i) {
        tell("cleared", i);
        for (int number = 0; number < kRecordsToClear; ++number) {
            if (!database.insert(ink(nameOf(number))))
                return false;
        }
    }
    return false;
}

bool restoreForEver(SDBText &database)
{
    for (int i = 0; database.restore(database.fileName() + u".backup"_s); ++i)
        tell("restored", i);
    return false;
}

bool mergeForEver(SDBText &database)
{
    for (int i = 0; database.restore(database.fileName() + u".backup"_s, true); ++i)
        tell("merged", i);
    return false;
}

const QMap<QString, Work> &childWorks()
{
    static const QMap<QString, Work> works{
        {u"insert"_s, insertForEver}, {u"replace"_s, replaceForEver},
        {u"remove"_s, removeAll},     {u"purge"_s, purgeForEver},
        {u"clear"_s, clearForEver},   {u"restore"_s, restoreForEver},
        {u"merge"_s, mergeForEver}};
    return works;
}

int runChild(const QStringList &arguments)
{
    SDBText database;
    if (!openAsAda(database, arguments.at(2)))
        return 1;
    tell("ready", 0);
    std::getchar();
    return childWorks().value(arguments.at(1))(database) ? 0 : 2;
}

//! The highest number of a line such as "inserted 7" that is complete; -1 for none.
int lastTold(const QByteArray &output, const QByteArray &what)
{
    int last = -1;
    const QList<QByteArray> lines = output.left(output.lastIndexOf('\n')).split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith(what + ' '))
            last = line.mid(what.size() + 1).trimmed().toInt();
    }
    return last;
}

constexpr int kKilledRecords = 500;

} // namespace

class tst_SDBText_Faults : public QObject
{
    Q_OBJECT

private:
    // Scrambled, a key of one character or of equal ones is that key.
    static void addKeys()
    {
        QTest::addColumn<QString>("key");
        for (const char *key : {"a", "aa", "cyan"})
            QTest::newRow(key) << QString::fromLatin1(key);
    }

private Q_SLOTS:
    // Disks that fill up

    void createOnAFullDisk()
    {
        const qint64 size = databaseOf({}).size();
        for (qint64 capacity = 0; capacity < size; ++capacity) {
            QBuffer disk;
            FaultDevice device(&disk, {.capacity = capacity});
            SDBText database;
            expectError("WriteError");
            QVERIFY(!create(database, &device));
            QVERIFY(!device.isOpen());
            QVERIFY(database.isNull());
        }
    }

    void insertOnAFullDisk()
    {
        const QByteArray before = databaseOf({u"a"_s});
        const qint64 record = databaseOf({u"a"_s, u"b"_s}).size() - before.size();
        for (qint64 capacity = 0; capacity < record; ++capacity) {
            QBuffer disk;
            disk.setData(before);
            FaultDevice device(&disk, {.capacity = capacity});
            SDBText database;
            QVERIFY(openAsAda(database, &device));
            SDBRecord missing;
            QVERIFY(!database.value(u"x"_s, missing));
            QVERIFY(!database.insert(ink(u"b"_s)));
            // The error is that of the operation before.
            QCOMPARE(database.error(), DBError::RecNotFound);
            QVERIFY(!database.contains(u"b"_s));
            QVERIFY(database[u"a"_s].checkSignature());
            QVERIFY(disk.data().startsWith(before));
            // What is left of it is passed over.
            SDBText second;
            database.close();
            QVERIFY(openAsAda(second, &disk));
            QVERIFY(second[u"a"_s].checkSignature());
            QVERIFY(!second[u"b"_s].checkSignature() || capacity >= record - 2);
            QVERIFY(second.insert(ink(u"c"_s)));
            QVERIFY(second[u"c"_s].checkSignature());
        }
    }

    void removeOnAFullDisk()
    {
        QBuffer disk;
        disk.setData(databaseOf({u"a"_s}));
        FaultDevice device(&disk, {.capacity = 0});
        SDBText database;
        QVERIFY(openAsAda(database, &device));
        expectError("WriteError");
        QVERIFY(!database.remove(u"a"_s));
        QVERIFY(database[u"a"_s].checkSignature());
        expectError("WriteError");
        QVERIFY(!database.replace(ink(u"a"_s, 2)));
        QCOMPARE(database[u"a"_s].value(u"level"_s), QVariant(u"1"_s));
    }

    void replaceOnAFullDiskKeepsTheOldRecord_data()
    {
        QTest::addColumn<QString>("keyName");
        QTest::addColumn<QString>("key");
        QTest::newRow("keys of the caller") << u"name"_s << u"a"_s;
        QTest::newRow("keys of the database") << SDBRecord::uniqueIncKey() << u"0000000000000001"_s;
    }

    void replaceOnAFullDiskKeepsTheOldRecord()
    {
        QFETCH(QString, keyName);
        QFETCH(QString, key);
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file, DBAuthGrants::ReadOnly, keyName));
        const qint64 head = database.bytes();
        QVERIFY(insertAll(database, {u"a"_s}));
        const qint64 recordBytes = database.bytes() - head;
        SDBRecord changed = database[key];
        changed.insert(u"level"_s, 2);
        for (qint64 room = 0; room < recordBytes; ++room) {
            {
                const FileSizeLimit limit(database.bytes() + room);
                expectError("WriteError");
                QVERIFY(!database.replace(changed));
                QCOMPARE(database.error(), DBError::WriteError);
            }
            QCOMPARE(database[key].value(u"level"_s), QVariant(u"1"_s));
            QVERIFY(database[key].checkSignature());
            QVERIFY(database.close());
            QVERIFY(openAsAda(database, place.file));
            QCOMPARE(database.count(), 1);
            QCOMPARE(database[key].value(u"level"_s), QVariant(u"1"_s));
            QVERIFY(database[key].checkSignature());
        }
        QVERIFY(database.replace(changed));
        QCOMPARE(database.count(), 1);
        SDBRecord last;
        QVERIFY(database.last(last));
        QCOMPARE(last.value(u"level"_s), QVariant(u"2"_s));
    }

    void replaceStoppedAfterAnyByteKeepsARecord()
    {
        QBuffer made;
        made.setData(databaseOf({u"cyan"_s, u"x"_s}));
        const qint64 before = made.data().size();
        const qint64 recordBytes = databaseOf({u"cyan"_s}).size() - databaseOf({}).size();
        // The byte that decides, "name =$nayc", the blank, and the byte that is put back.
        const qint64 isDecided = recordBytes + 1;
        const qint64 all = isDecided + 11 + 1 + 1;
        for (qint64 stop = 0; stop < all; ++stop) {
            QBuffer disk;
            disk.setData(made.data());
            FaultDevice device(&disk, {.write = {.errorAt = stop}});
            SDBText database;
            QVERIFY(openAsAda(database, &device));
            const bool isDone = stop >= isDecided + 11 + 1;
            if (!isDone)
                expectError("WriteError");
            QCOMPARE(database.replace(ink(u"cyan"_s, 2)), isDone);
            database.close();
            SDBText second;
            QVERIFY(openAsAda(second, &disk));
            QCOMPARE(walk(second), (QStringList{u"cyan"_s, u"x"_s}));
            QVERIFY(second[u"cyan"_s].checkSignature());
            const QString level = stop < isDecided ? u"1"_s : u"2"_s;
            QCOMPARE(second[u"cyan"_s].value(u"level"_s), QVariant(level));
            QVERIFY(disk.data().size() <= before + recordBytes);
            // It stays so, and can be changed.
            QVERIFY(second.replace(ink(u"cyan"_s, 3)));
            second.close();
            QVERIFY(openAsAda(second, &disk));
            QCOMPARE(walk(second), (QStringList{u"cyan"_s, u"x"_s}));
            QCOMPARE(second[u"cyan"_s].value(u"level"_s), QVariant(u"3"_s));
        }
    }

    // At each byte a program may be killed; the next one removes the record.
    void recordRemovedAfterAnInterruptedReplaceStaysRemoved_data() { addKeys(); }
    void recordRemovedAfterAnInterruptedReplaceStaysRemoved()
    {
        QFETCH(QString, key);
        const QByteArray made = databaseOf({key, u"other"_s});
        const qint64 all = databaseOf({key}).size() - databaseOf({}).size() + key.size() + 10;
        for (qint64 stop = 0; stop < all; ++stop) {
            QBuffer disk;
            disk.setData(made);
            FaultDevice device(&disk, {.write = {.errorAt = stop}});
            SDBText database;
            QVERIFY(openAsAda(database, &device));
            static_cast<void>(database.replace(ink(key, 2)));
            database.close();
            SDBText next;
            QVERIFY(openAsAda(next, &disk));
            QVERIFY(next.remove(key));
            QVERIFY(next.reindex());
            QCOMPARE(walk(next), QStringList(u"other"_s));
            next.close();
            QVERIFY(openAsAda(next, &disk));
            QCOMPARE(walk(next), QStringList(u"other"_s));
            QVERIFY(next.purge());
            QCOMPARE(walk(next), QStringList(u"other"_s));
        }
    }

    // Here the program goes on when its disk works again.
    void recordRemovedAfterAFailedReplaceStaysRemoved_data() { addKeys(); }
    void recordRemovedAfterAFailedReplaceStaysRemoved()
    {
        QFETCH(QString, key);
        const QByteArray made = databaseOf({key, u"other"_s});
        // One of the writes of replace() fails, or one and some of those that put it right.
        for (int first = 1; first <= 6; ++first) {
            for (int failures = 1; failures <= 4; ++failures) {
                QBuffer disk;
                disk.setData(made);
                FailingWrites device(&disk);
                SDBText database;
                QVERIFY(openAsAda(database, &device));
                device.failFrom(first, failures);
                const bool isDone = database.replace(ink(key, 2));
                QCOMPARE(isDone, first > 4);
                device.failFrom(1, 1);
                // What is left is put right first. Without that, the removal itself fails.
                expectError("WriteError");
                QVERIFY(!database.remove(key));
                device.failFrom(0, 0);
                QVERIFY(database.insert(ink(u"third"_s)));
                QCOMPARE(database[key].value(u"level"_s), QVariant(isDone ? u"2"_s : u"1"_s));
                QVERIFY(database.remove(key));
                QVERIFY(database.reindex());
                QCOMPARE(walk(database), (QStringList{u"other"_s, u"third"_s}));
                database.close();
                QVERIFY(openAsAda(database, &disk));
                QCOMPARE(walk(database), (QStringList{u"other"_s, u"third"_s}));
            }
        }
    }

    void failedReplaceOfAnIndentedRecordKeepsItsKey()
    {
        QBuffer disk;
        disk.setData(databaseOf({u"cyan"_s, u"other"_s}).replace("name = cyan", "   name = cyan"));
        FailingWrites device(&disk);
        SDBText database;
        QVERIFY(openAsAda(database, &device));
        const QByteArray before = disk.data();
        // The one that takes the mark off.
        device.failFrom(4, 1);
        expectError("WriteError");
        QVERIFY(!database.replace(ink(u"cyan"_s, 2)));
        QVERIFY(disk.data().startsWith(before));
        QCOMPARE(database[u"cyan"_s].value(u"level"_s), QVariant(u"1"_s));
        QVERIFY(openAsAda(database, &disk));
        QCOMPARE(walk(database), (QStringList{u"cyan"_s, u"other"_s}));
    }

    // What can't be put right at the open is put right before the next change.
    void replaceThatCannotBeCompletedAtTheOpenIsCompletedLater()
    {
        const QByteArray made = databaseOf({u"cyan"_s, u"other"_s});
        const qint64 recordBytes = databaseOf({u"cyan"_s}).size() - databaseOf({}).size();
        for (qint64 stop = recordBytes + 1; stop < recordBytes + 13; ++stop) {
            QBuffer disk;
            disk.setData(made);
            FaultDevice device(&disk, {.write = {.errorAt = stop}});
            SDBText database;
            QVERIFY(openAsAda(database, &device));
            static_cast<void>(database.replace(ink(u"cyan"_s, 2)));
            database.close();
            FailingWrites second(&disk);
            second.failFrom(1, 2);
            QVERIFY(openAsAda(database, &second));
            QVERIFY(database.contains(u"cyan"_s));
            QVERIFY(!database.insert(ink(u"new"_s)));
            QVERIFY(database.insert(ink(u"new"_s)));
            QCOMPARE(database[u"cyan"_s].value(u"level"_s), QVariant(u"2"_s));
            QVERIFY(openAsAda(database, &disk));
            QCOMPARE(walk(database), (QStringList{u"cyan"_s, u"new"_s, u"other"_s}));
            QCOMPARE(database[u"cyan"_s].value(u"level"_s), QVariant(u"2"_s));
        }
    }

    void removedLastRecordStaysRemoved()
    {
        // A scrambled key of one character is that character.
        for (const QString &key : {u"a"_s, u"aa"_s, u"cyan"_s}) {
            QBuffer disk;
            SDBText database;
            QVERIFY(create(database, &disk));
            QVERIFY(insertAll(database, {key}));
            QVERIFY(database.replace(ink(key, 2)));
            QVERIFY(database.remove(key));
            QVERIFY(openAsAda(database, &disk));
            QCOMPARE(database.count(), 0);
        }
    }

    void recordTornByAFullDiskHidesNoOther()
    {
        const QByteArray before = databaseOf({});
        const qint64 recordBytes = databaseOf({u"ink10"_s}).size() - before.size();
        for (qint64 room = 0; room < recordBytes; ++room) {
            for (const QString &next : {u"ink1"_s, u"ink10"_s}) {
                Place place;
                QVERIFY(setBytes(place.file, before));
                SDBText database;
                QVERIFY(openAsAda(database, place.file));
                {
                    const FileSizeLimit limit(before.size() + room);
                    QVERIFY(!database.insert(ink(u"ink10"_s)));
                }
                QVERIFY(database.insert(ink(next, 2)));
                // The index is made from the text.
                QVERIFY(database.close());
                QFile::remove(place.beside(u".idx"_s));
                QVERIFY(openAsAda(database, place.file));
                QCOMPARE(walk(database), QStringList{next});
                QVERIFY(database[next].checkSignature());
                QCOMPARE(database[next].value(u"level"_s), QVariant(u"2"_s));
            }
        }
    }

    void clearAndPurgeOnAFullDisk()
    {
        const QByteArray before = databaseOf({u"a"_s, u"b"_s});
        for (qint64 capacity = 0; capacity < before.size(); capacity += 7) {
            QBuffer disk;
            disk.setData(before);
            FaultDevice device(&disk, {.capacity = capacity});
            SDBText database;
            QVERIFY(openAsAda(database, &device));
            expectError("WriteError");
            QVERIFY(!database.purge());
            QVERIFY(database.error() == DBError::WriteError);
        }
    }

    // A record behind a part of a head would be acknowledged and never found again.
    void clearThatCannotWriteTheHeadClosesTheDatabase()
    {
        const QByteArray before = databaseOf({u"a"_s});
        QBuffer disk;
        disk.setData(before);
        FaultDevice device(&disk, {.capacity = 100});
        SDBText database;
        QVERIFY(openAsAda(database, &device));
        expectError("WriteError");
        QVERIFY(!database.clear());
        QVERIFY(database.isNull());
        QVERIFY(!device.isOpen());
        expectError("SeekError");
        QVERIFY(!database.insert(ink(u"b"_s)));
    }

    void backupOnAFullDisk_data()
    {
        QTest::addColumn<Compression::CompressionAlgorithm>("algorithm");
        QTest::newRow("plain") << Compression::CompressionAlgorithm::Uncompressed;
        QTest::newRow("compressed") << Compression::CompressionAlgorithm::Lz4;
    }

    void backupOnAFullDisk()
    {
        QFETCH(Compression::CompressionAlgorithm, algorithm);
        QBuffer device;
        device.setData(databaseOf({u"a"_s}));
        const QByteArray before = device.data();
        SDBText database;
        QVERIFY(openAsAda(database, &device));
        database.setBackupCompressor(algorithm);
        for (const qint64 capacity : {0, 1, 20, 24, 100}) {
            QBuffer disk;
            FaultDevice backup(&disk, {.capacity = capacity});
            expectError("WriteError");
            QVERIFY(!database.backup(&backup, true));
            QCOMPARE(device.data(), before);
        }
        FaultDevice closed(&device, {.failsToOpen = true});
        const bool isPlain = algorithm == Compression::CompressionAlgorithm::Uncompressed;
        expectError(isPlain ? "OpenError" : "WriteError");
        QVERIFY(!database.backup(&closed));
    }

    void restoreOnAFullDisk()
    {
        QBuffer backup;
        backup.setData(databaseOf({u"a"_s}));
        QBuffer disk;
        disk.setData(databaseOf({u"b"_s}));
        FaultDevice device(&disk, {.capacity = 100});
        SDBText database;
        QVERIFY(openAsAda(database, &device));
        expectError("WriteError");
        QVERIFY(!database.restore(&backup));
        QCOMPARE(database.error(), DBError::WriteError);
    }

    void operatorsOnAFullDisk()
    {
        QBuffer source;
        source.setData(databaseOf({u"b"_s, u"c"_s}));
        SDBText other;
        QVERIFY(openAsAda(other, &source));
        QBuffer disk;
        disk.setData(databaseOf({u"a"_s}));
        FaultDevice device(&disk, {.capacity = 300});
        SDBText database;
        QVERIFY(openAsAda(database, &device));
        expectError("WriteError");
        database += other;
        QCOMPARE(database.error(), DBError::WriteError);
        QVERIFY(database[u"a"_s].checkSignature());
        QVERIFY(database[u"b"_s].checkSignature());
        QVERIFY(!database.contains(u"c"_s));
    }

    // Devices that fail

    void deviceThatMovesAByteAtATime()
    {
        QBuffer disk;
        FaultDevice device(&disk, {.read = {.pieceBytes = 1}, .write = {.pieceBytes = 1}});
        SDBText database;
        QVERIFY(create(database, &device));
        QVERIFY(insertAll(database, {u"a"_s, u"b"_s}));
        QVERIFY(database.remove(u"a"_s));
        QVERIFY(database.open(&device));
        QCOMPARE(walk(database), QStringList{u"b"_s});
        QVERIFY(database[u"b"_s].checkSignature());
    }

    void deviceThatFailsToOpen()
    {
        QBuffer disk;
        FaultDevice device(&disk, {.failsToOpen = true});
        SDBText database;
        expectError("OpenError");
        QVERIFY(!database.open(&device));
        expectError("CreateError");
        QVERIFY(!create(database, &device));
    }

    void readErrorsAreNoEnds()
    {
        // An index of the keys up to there would lose the others with the next purge().
        QBuffer disk;
        disk.setData(databaseOf({u"a"_s, u"b"_s, u"c"_s}));
        QTest::failOnWarning(QRegularExpression(u".*"_s));
        for (qint64 at = 0; at < disk.size(); ++at) {
            FaultDevice device(&disk, {.read = {.errorAt = at}});
            SDBText database;
            QVERIFY(!database.open(&device));
            QVERIFY(database.error() == DBError::ReadError ||
                    database.error() == DBError::WrongDB || database.error() == DBError::SignError);
        }
    }

    void readErrorInARecord()
    {
        QBuffer disk;
        disk.setData(databaseOf({u"a"_s, u"b"_s}));
        // The head and the index have been read by then.
        FaultDevice measured(&disk);
        SDBText database;
        QVERIFY(openAsAda(database, &measured));
        const qint64 opened = measured.bytesRead();
        database.close();
        FaultDevice device(&disk, {.read = {.errorAt = opened + 10}});
        QVERIFY(openAsAda(database, &device));
        SDBRecord record;
        expectError("ReadError");
        QVERIFY(!database.value(u"a"_s, record));
        QVERIFY(record.isEmpty());
    }

    void readErrorWhileIndexingAField()
    {
        QBuffer disk;
        disk.setData(databaseOf({u"a"_s, u"b"_s, u"c"_s}));
        FaultDevice measured(&disk, {.read = {.pieceBytes = 16}});
        SDBText database;
        QVERIFY(openAsAda(database, &measured));
        const qint64 opened = measured.bytesRead();
        database.close();
        // Behind the first record.
        const qint64 second = disk.data().indexOf("name = b");
        FaultDevice device(&disk, {.read = {.pieceBytes = 16, .errorAt = opened + second}});
        QVERIFY(openAsAda(database, &device));
        // Half of the values are none.
        QCOMPARE(database.values(u"level"_s), QList<SDBField>());
        QCOMPARE(database.error(), DBError::ReadError);
        QList<SDBRecord> found;
        expectError("ReadError");
        QVERIFY(!database.searchField({u"level"_s, 1}, found));
        QVERIFY(found.isEmpty());
        QCOMPARE(database.error(), DBError::ReadError);
    }

    void readErrorInARecordThatWasFound()
    {
        QBuffer disk;
        disk.setData(databaseOf({u"a"_s}));
        FaultDevice measured(&disk);
        SDBText database;
        QVERIFY(openAsAda(database, &measured));
        QVERIFY(!database.values(u"level"_s).isEmpty());
        const qint64 indexed = measured.bytesRead();
        database.close();
        FaultDevice device(&disk, {.read = {.errorAt = indexed + 10}});
        QVERIFY(openAsAda(database, &device));
        QVERIFY(!database.values(u"level"_s).isEmpty());
        QList<SDBRecord> found;
        expectError("ReadError");
        QVERIFY(!database.searchField({u"level"_s, 1}, found));
        QCOMPARE(database.error(), DBError::ReadError);
    }

    void mergeThatReadsOnlyAPartFails()
    {
        QBuffer disk;
        disk.setData(databaseOf({u"a"_s, u"b"_s}));
        QBuffer target;
        target.setData(databaseOf({}));
        SDBText database;
        QVERIFY(openAsAda(database, &target));
        FaultDevice whole(&disk);
        QVERIFY(database.restore(&whole, true));
        QVERIFY(database.clear());
        // The last read is that of the last record.
        FaultDevice part(&disk, {.read = {.errorAt = whole.bytesRead() - 10}});
        QSignalSpy restored(&database, &SDBText::databaseRestored);
        expectError("ReadError");
        QVERIFY(!database.restore(&part, true));
        QCOMPARE(database.error(), DBError::ReadError);
        QCOMPARE(restored.size(), 1);
        QCOMPARE(restored.at(0).at(0).toBool(), false);
        QCOMPARE(walk(database), QStringList{u"a"_s});
    }

    void plusThatReadsOnlyAPartFails()
    {
        QBuffer disk;
        disk.setData(databaseOf({u"a"_s, u"b"_s}));
        FaultDevice whole(&disk);
        SDBText other;
        QVERIFY(other.open(&whole));
        other.close();
        FaultDevice part(&disk, {.read = {.errorAt = whole.bytesRead() + 10}});
        QVERIFY(other.open(&part));
        QBuffer target;
        target.setData(databaseOf({u"z"_s}));
        SDBText database;
        QVERIFY(openAsAda(database, &target));
        expectError("ReadError");
        database += other;
        QCOMPARE(database.error(), DBError::ReadError);
        QCOMPARE(walk(database), QStringList{u"z"_s});
    }

    void databaseWhoseFileIsGoneCanBeBackedUp()
    {
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"a"_s}));
        const QByteArray before = bytesOf(place.file);
        QVERIFY(QFile::remove(place.file));
        const QString backup = place.folder.filePath(u"backup.db"_s);
        QVERIFY(database.backup(backup));
        QCOMPARE(bytesOf(backup), before);
    }

    // Files that were damaged

    void fileCutAnywhereKeepsWhatIsWhole()
    {
        const QByteArray whole = databaseOf({u"a"_s, u"b"_s, u"c"_s});
        const qsizetype head = databaseOf({}).size();
        const qsizetype record = (whole.size() - head) / 3;
        for (qsizetype size = head; size <= whole.size(); ++size) {
            QBuffer device;
            device.setData(whole.first(size));
            SDBText database;
            QVERIFY(openAsAda(database, &device));
            int signedRecords = 0;
            QVERIFY(walksWell(database, &signedRecords));
            // The last line's end does not matter.
            QCOMPARE(signedRecords, int((size - head + 2) / record));
            QVERIFY(database.count() <= signedRecords + 1);
        }
    }

    void anyByteChanged()
    {
        const QByteArray whole = databaseOf({u"a"_s, u"bb"_s, u"ccc"_s});
        const qsizetype head = databaseOf({}).size();
        SeededRandom random;
        for (qsizetype at = 0; at < whole.size(); ++at) {
            QByteArray bytes = whole;
            bytes[at] = static_cast<char>(bytes.at(at) ^ random.between(1, 255));
            QBuffer device(&bytes);
            SDBText database;
            const bool opened = database.open(&device);
            QVERIFY(opened || at < head);
            // The names of the head's fields are not signed: the owner may have got lost.
            if (!opened || !database.authenticate(kUser, kPassword))
                continue;
            int signedRecords = 0;
            QVERIFY(walksWell(database, &signedRecords));
            // Where a key line is lost, the record before it takes its lines, and both are.
            QVERIFY(signedRecords >= 1);
            QVERIFY(database.purge());
            int left = 0;
            QVERIFY(walksWell(database, &left));
            QCOMPARE(left, signedRecords);
        }
    }

    void linesOfNoise()
    {
        SeededRandom random;
        for (int round = 0; round < 50; ++round) {
            QByteArray bytes = databaseOf({u"a"_s});
            for (int i = 0; i < 200; ++i) {
                if (random.chance(30))
                    bytes += random.chance(50) ? "name = " : "\r\n name.1=";
                bytes += random.bytes(random.between(0, 40));
                if (random.chance(50))
                    bytes += "\r\n";
            }
            QBuffer device(&bytes);
            SDBText database;
            QVERIFY(openAsAda(database, &device));
            QVERIFY(database[u"a"_s].value(u"level"_s).isValid());
            int signedRecords = 0;
            QVERIFY(walksWell(database, &signedRecords));
            for (const SDBField &key : database.values(QString())) {
                if (key.value().toString() != u"a")
                    QVERIFY(database.remove(key.value().toString()));
            }
            QCOMPARE(walk(database), QStringList{u"a"_s});
            QVERIFY(database.open(&device));
            QVERIFY(database.contains(u"a"_s));
        }
    }

    void linesThatAreNoKeysAreNotHeld()
    {
        // A line is as long as its file may be; only a record's own lines are read whole.
        QByteArray bytes = databaseOf({u"a"_s});
        bytes += "\r\nfiller = " + QByteArray(100'000'000, 'x') + "\r\n\r\nname = b\r\n";
        QBuffer device(&bytes);
        SDBText database;
        QVERIFY(openAsAda(database, &device));
        QVERIFY(database.contains(u"b"_s));
    }

    // Programs that are killed

    void killedProgram_data()
    {
        QTest::addColumn<QString>("work");
        for (const QString &work : childWorks().keys())
            QTest::newRow(qPrintable(work)) << work;
    }

    void killedProgram()
    {
        QFETCH(QString, work);
        SeededRandom random;
        for (int round = 0; round < 6; ++round) {
            Place place;
            QStringList names;
            for (int i = 0; i < kKilledRecords && work != u"insert"; ++i)
                names.append(nameOf(i));
            QVERIFY(setBytes(place.file, databaseOf(names)));
            QVERIFY(setBytes(place.beside(u".backup"_s), databaseOf(names)));

            KilledProcess child;
            child.process().setProgram(QCoreApplication::applicationFilePath());
            child.process().setArguments({u"child"_s, work, place.file});
            // What it has there then goes with the folder.
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            environment.insert(u"TMPDIR"_s, place.folder.path());
            child.process().setProcessEnvironment(environment);
            QVERIFY(child.start());
            QTRY_VERIFY_WITH_TIMEOUT(child.output().contains("ready"), 30'000);
            // Its lock keeps this program out.
            if (round == 0) {
                SDBText database;
                expectError("FileLockError");
                QVERIFY(!database.open(place.file));
            }
            child.process().write("go\n");
            child.killAfter(std::chrono::milliseconds(random.between(0, 60)));
            checkAfterKill(work, place, child.output());
            if (QTest::currentTestFailed())
                return;
        }
    }

private:
    void checkAfterKill(const QString &work, const Place &place, const QByteArray &told)
    {
        SDBText database;
        QVERIFY(openAsAda(database, place.file));
        int signedRecords = 0;
        QVERIFY(walksWell(database, &signedRecords));
        if (work == u"insert") {
            // All that was told of, and at most one more.
            const int inserted = lastTold(told, "inserted") + 1;
            QVERIFY(signedRecords >= inserted);
            QVERIFY(database.count() <= inserted + 1);
        } else if (work == u"replace") {
            QCOMPARE(signedRecords, kKilledRecords);
            QCOMPARE(database.count(), kKilledRecords);
        } else if (work == u"remove") {
            const int removed = lastTold(told, "removed") + 1;
            QVERIFY(database.count() <= kKilledRecords - removed);
            QVERIFY(signedRecords >= kKilledRecords - removed - 1);
        } else if (work == u"clear") {
            // None of those that were there before comes back.
            QVERIFY(lastTold(told, "cleared") < 0 || database.count() <= kRecordsToClear);
            QVERIFY(signedRecords >= database.count() - 1);
        } else if (work == u"merge") {
            checkMergedAfterKill(database, signedRecords);
        } else {
            // Purged or not, and restored or not, the records are the same.
            QCOMPARE(signedRecords, kKilledRecords);
            QCOMPARE(database.count(), kKilledRecords);
        }
        QVERIFY(database.insert(ink(u"after"_s)));
        QVERIFY(database[u"after"_s].checkSignature());
    }

    void checkMergedAfterKill(SDBText &database, int signedRecords)
    {
        QCOMPARE(signedRecords, kKilledRecords);
        QCOMPARE(database.count(), kKilledRecords);
        QVERIFY(database.restore(database.fileName() + u".backup"_s, true));
        QVERIFY(walksWell(database, &signedRecords));
        QCOMPARE(signedRecords, kKilledRecords);
        QCOMPARE(database.count(), kKilledRecords);
    }
};

int main(int count, char *arguments[])
{
    QCoreApplication application(count, arguments);
    if (application.arguments().value(1) == u"child")
        return runChild(application.arguments().sliced(1));
    tst_SDBText_Faults test;
    return QTest::qExec(&test, count, arguments);
}

#include "tst_sdbtext_faults.moc"
