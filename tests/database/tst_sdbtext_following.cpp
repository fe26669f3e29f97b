// SPDX-License-Identifier: MIT
// A database that a backup has left without its lock, and another program that replaces its file.
#include "sampledatabase.h"

#include <QtCore/QBuffer>

using namespace Talverine;
using namespace Talverine::Sample;
using namespace Qt::StringLiterals;

namespace {

using Work = bool (*)(SDBText &);

//! Makes a database in memory with records of level 2.
bool make(SDBText &database, QBuffer *device, const QStringList &names,
          const QString &key = u"name"_s)
{
    if (!create(database, device, DBAuthGrants::ReadOnly, key))
        return false;
    for (const QString &name : names) {
        if (!database.insert(ink(name, 2)))
            return false;
    }
    return true;
}

bool insertField(SDBText &database)
{
    return database.insert(u"c"_s, SDBField(u"place"_s, 7)) &&
           database[u"c"_s].value(u"level"_s) == QVariant(u"1"_s);
}

bool insertRecord(SDBText &database)
{
    return database.insert(ink(u"d"_s));
}

bool replaceRecord(SDBText &database)
{
    return database.replace(ink(u"c"_s, 2));
}

bool removeRecord(SDBText &database)
{
    return database.remove(ink(u"c"_s));
}

bool add(SDBText &database)
{
    QBuffer device;
    SDBText other;
    if (!make(other, &device, {u"d"_s}))
        return false;
    database += other;
    return database.error() == DBError::NoError;
}

bool subtract(SDBText &database)
{
    QBuffer device;
    SDBText other;
    if (!make(other, &device, {u"c"_s}))
        return false;
    database -= other;
    return database.error() == DBError::NoError;
}

bool restoreFrom(SDBText &database, bool merge)
{
    QBuffer device;
    SDBText other;
    QBuffer backup;
    return make(other, &device, {u"c"_s, u"d"_s}) && other.backup(&backup) &&
           database.restore(&backup, merge);
}

bool merge(SDBText &database)
{
    return restoreFrom(database, true);
}

bool restore(SDBText &database)
{
    return restoreFrom(database, false);
}

bool assign(SDBText &database)
{
    QBuffer device;
    SDBText other;
    if (!make(other, &device, {u"d"_s}))
        return false;
    database = other;
    return database.error() == DBError::NoError;
}

bool clear(SDBText &database)
{
    return database.clear();
}

bool purge(SDBText &database)
{
    return database.purge();
}

bool backupAndClear(SDBText &database)
{
    QBuffer backup;
    return database.backup(&backup, true);
}

//! Another program that replaces the file, and then has the records "b" and "c".
bool replaceFile(const QString &file)
{
    SDBText second;
    second.authenticate(kUser, kPassword);
    return second.open(file) && second.remove(u"a"_s) && second.purge() &&
           insertAll(second, {u"c"_s});
}

//! Another program that replaces the file by a database with other settings.
bool replaceSettings(const QString &file, DBAuthGrants grants, const QString &key)
{
    QBuffer device;
    SDBText other;
    SDBText second;
    second.authenticate(kUser, kPassword);
    if (!create(other, &device, grants, key) || !second.open(file))
        return false;
    second = other;
    return second.error() == DBError::NoError;
}

//! A database of "a" and "b" that has let go of its lock by a backup.
bool makeUnlocked(SDBText &database, const QString &file,
                  DBAuthGrants grants = DBAuthGrants::ReadOnly)
{
    QBuffer backup;
    return create(database, file, grants) && insertAll(database, {u"a"_s, u"b"_s}) &&
           database.backup(&backup);
}

} // namespace

Q_DECLARE_METATYPE(Work)

class tst_SDBText_Following : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void changesTheNewFile_data()
    {
        QTest::addColumn<Work>("work");
        QTest::addColumn<QStringList>("names");
        const QStringList both{u"b"_s, u"c"_s};
        const QStringList three{u"b"_s, u"c"_s, u"d"_s};
        QTest::newRow("insert a field") << &insertField << both;
        QTest::newRow("insert") << &insertRecord << three;
        QTest::newRow("replace") << &replaceRecord << both;
        QTest::newRow("remove") << &removeRecord << QStringList(u"b"_s);
        QTest::newRow("add") << &add << three;
        QTest::newRow("subtract") << &subtract << QStringList(u"b"_s);
        QTest::newRow("merge") << &merge << three;
        QTest::newRow("restore") << &restore << QStringList{u"c"_s, u"d"_s};
        QTest::newRow("assign") << &assign << QStringList(u"d"_s);
        QTest::newRow("clear") << &clear << QStringList();
        QTest::newRow("purge") << &purge << both;
        QTest::newRow("backup and clear") << &backupAndClear << QStringList();
    }

    void changesTheNewFile()
    {
        QFETCH(const Work, work);
        QFETCH(const QStringList, names);
        const Place place;
        SDBText database;
        QVERIFY(makeUnlocked(database, place.file));
        QVERIFY(replaceFile(place.file));
        QVERIFY(work(database));
        QCOMPARE(walk(database), names);
        database.close();
        SDBText third;
        QVERIFY(third.open(place.file));
        QCOMPARE(walk(third), names);
    }

    void readsTheNewFile()
    {
        const Place place;
        const auto isFollowed = [&](auto read) {
            QFile::remove(place.file);
            SDBText database;
            return makeUnlocked(database, place.file) && database.addFieldIndex(u"level"_s) &&
                   replaceFile(place.file) && read(database);
        };
        SDBRecord record;
        QVERIFY(isFollowed([&](SDBText &database) { return database.value(u"c"_s, record); }));
        QVERIFY(isFollowed([&](SDBText &database) {
            return database.first(record) && record.value(u"name"_s) == QVariant(u"b"_s);
        }));
        QVERIFY(isFollowed([&](SDBText &database) {
            return database.last(record) && record.value(u"name"_s) == QVariant(u"c"_s);
        }));
        QVERIFY(isFollowed([&](SDBText &database) { return database.next(u"b"_s, record); }));
        QVERIFY(isFollowed([&](SDBText &database) { return !database.next(u"c"_s, record); }));
        QVERIFY(isFollowed([&](SDBText &database) {
            return database.find(1)->value(u"name"_s) == QVariant(u"c"_s);
        }));
        QVERIFY(isFollowed([&](SDBText &database) {
            QList<SDBRecord> found;
            return database.searchField(SDBField(u"level"_s, 1), found) && found.size() == 2 &&
                   found.first().value(u"name"_s) == QVariant(u"c"_s);
        }));
        QVERIFY(isFollowed([&](SDBText &database) {
            return database.values(QString()).last() == SDBField(u"name"_s, u"c"_s);
        }));
        QVERIFY(isFollowed(
            [&](SDBText &database) { return database.reindex() && database.contains(u"c"_s); }));
        QVERIFY(isFollowed(
            [&](SDBText &database) { return database.bytes() == QFileInfo(place.file).size(); }));
        QVERIFY(isFollowed([&](SDBText &database) {
            SDBText other;
            return other.open(place.file) && database == other;
        }));
    }

    void backupHasTheRecordsOfTheOtherProgram_data()
    {
        QTest::addColumn<bool>("clearAfter");
        QTest::newRow("alone") << false;
        QTest::newRow("with clearing") << true;
    }

    void backupHasTheRecordsOfTheOtherProgram()
    {
        QFETCH(const bool, clearAfter);
        const Place place;
        SDBText database;
        QVERIFY(makeUnlocked(database, place.file));
        QVERIFY(replaceFile(place.file));
        QBuffer backup;
        QVERIFY(database.backup(&backup, clearAfter));
        SDBText copy;
        QVERIFY(copy.open(&backup));
        QCOMPARE(walk(copy), (QStringList{u"b"_s, u"c"_s}));
        QCOMPARE(database.count(), clearAfter ? 0 : 2);
    }

    void ownPathIsNoBackup_data()
    {
        QTest::addColumn<bool>("isLocked");
        QTest::newRow("unlocked") << false;
        QTest::newRow("locked") << true;
    }

    void ownPathIsNoBackup()
    {
        QFETCH(const bool, isLocked);
        const Place place;
        const QString beside = place.folder.filePath(u"other.db"_s);
        SDBText database;
        if (isLocked)
            QVERIFY(create(database, place.file) && insertAll(database, {u"a"_s}));
        else
            QVERIFY(makeUnlocked(database, place.file));
        {
            SDBText other;
            QVERIFY(create(other, beside) && insertAll(other, {u"c"_s}));
        }
        // By any program, which needs no lock.
        std::filesystem::rename(beside.toStdString(), place.file.toStdString());
        const QByteArray before = bytesOf(place.file);
        expectError("OpenError");
        QVERIFY(!database.backup(place.file));
        QCOMPARE(database.error(), DBError::OpenError);
        expectError("OpenError");
        QVERIFY(!database.restore(place.file));
        QCOMPARE(database.error(), DBError::OpenError);
        QCOMPARE(bytesOf(place.file), before);
    }

    void grantsOfTheNewFileDecide_data()
    {
        QTest::addColumn<Work>("work");
        QTest::newRow("insert a field") << &insertField;
        QTest::newRow("insert") << &insertRecord;
        QTest::newRow("replace") << &replaceRecord;
        QTest::newRow("remove") << &removeRecord;
        QTest::newRow("add") << &add;
        QTest::newRow("subtract") << &subtract;
        QTest::newRow("merge") << &merge;
        QTest::newRow("restore") << &restore;
        QTest::newRow("assign") << &assign;
        QTest::newRow("clear") << &clear;
        QTest::newRow("purge") << &purge;
    }

    void grantsOfTheNewFileDecide()
    {
        QFETCH(const Work, work);
        const Place place;
        SDBText database;
        QVERIFY(makeUnlocked(database, place.file, DBAuthGrants::All));
        database.authenticate(u"eve"_s, QString());
        QVERIFY(replaceSettings(place.file, DBAuthGrants::ReadOnly, u"name"_s));
        const QByteArray before = bytesOf(place.file);
        expectError("AuthError");
        QVERIFY(!work(database));
        QCOMPARE(database.error(), DBError::AuthError);
        QCOMPARE(bytesOf(place.file), before);
        // Nobody is locked out.
        SDBText other;
        QVERIFY(other.open(place.file));
    }

    void keyOfTheNewFileDecides()
    {
        for (const Work work : {&add, &subtract, &merge, &restore}) {
            const Place place;
            SDBText database;
            QVERIFY(makeUnlocked(database, place.file));
            QVERIFY(replaceSettings(place.file, DBAuthGrants::ReadOnly, u"number"_s));
            const QByteArray before = bytesOf(place.file);
            expectError("KeyIsNull");
            QVERIFY(!work(database));
            QCOMPARE(database.error(), DBError::KeyIsNull);
            QCOMPARE(bytesOf(place.file), before);
        }
    }

    void contentIsNotReplacedWhileAnotherProgramHasTheLock_data()
    {
        QTest::addColumn<Work>("work");
        QTest::newRow("purge") << &purge;
        QTest::newRow("clear") << &clear;
        QTest::newRow("restore") << &restore;
        QTest::newRow("assign") << &assign;
        QTest::newRow("backup and clear") << &backupAndClear;
    }

    void contentIsNotReplacedWhileAnotherProgramHasTheLock()
    {
        QFETCH(const Work, work);
        const Place place;
        SDBText database;
        QVERIFY(makeUnlocked(database, place.file));
        SDBText other;
        QVERIFY(other.open(place.file));
        const QByteArray before = bytesOf(place.file);
        expectError("FileLockError");
        QVERIFY(!work(database));
        QCOMPARE(database.error(), DBError::FileLockError);
        QVERIFY(database.isNull());
        QCOMPARE(bytesOf(place.file), before);
        QCOMPARE(walk(other), (QStringList{u"a"_s, u"b"_s}));
    }

    void headOfTheNewFileIsItsOwn()
    {
        const Place place;
        {
            SDBText made;
            QVERIFY(create(made, place.file) && insertAll(made, {u"a"_s, u"b"_s}));
        }
        QByteArray bytes = bytesOf(place.file);
        QVERIFY(setBytes(place.file, bytes.replace("dbkey", "xxxxx")));
        SDBText database;
        database.authenticate(kUser, kPassword);
        QVERIFY(database.open(place.file));
        QBuffer first;
        QVERIFY(database.backup(&first));
        QVERIFY(first.data().size() > bytes.size());
        QVERIFY(replaceFile(place.file));
        QBuffer second;
        QVERIFY(database.backup(&second));
        QCOMPARE(second.data(), bytesOf(place.file));
    }
};

QTEST_GUILESS_MAIN(tst_SDBText_Following)
#include "tst_sdbtext_following.moc"
