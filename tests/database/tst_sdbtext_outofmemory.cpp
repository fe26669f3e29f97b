// SPDX-License-Identifier: MIT
// A database that holds more than there is memory for.
#include "sampledatabase.h"

#include <shared/memorylimit.h>

#include <QtCore/QBuffer>

using namespace Talverine;
using namespace Talverine::Sample;
using namespace Qt::StringLiterals;

namespace {

constexpr int kMiB = 1 << 20;
constexpr qint64 kHugeBytes = 4 * MemoryLimit::kBytes;

//! A database of the records "a" and "z", and between them the lines \a before a text of kHugeBytes
//! that takes no place on the disk.
bool makeHuge(const Place &place, const QByteArray &before)
{
    {
        SDBText database;
        if (!create(database, place.file) || !insertAll(database, {u"a"_s}))
            return false;
    }
    QFile file(place.file);
    return file.open(QIODevice::ReadWrite | QIODevice::Append) && file.write(before) > 0 &&
           file.flush() && file.resize(file.size() + kHugeBytes) &&
           file.write("\r\n\r\n\r\nname = z\r\nlevel = 1\r\n") > 0;
}

} // namespace

class tst_SDBText_OutOfMemory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void valueThatIsTooLargeCantBeRead()
    {
        Place place;
        QVERIFY(makeHuge(place, "\r\n\r\nname = huge\r\ntext = x"));
        const MemoryLimit limit;
        SDBText database;
        QVERIFY(database.open(place.file));
        QVERIFY(database.authenticate(kUser, kPassword));
        QCOMPARE(database.count(), 3);
        SDBRecord record;
        expectError("ReadError");
        QVERIFY(!database.value(u"huge"_s, record));
        QCOMPARE(database.error(), DBError::ReadError);
        QVERIFY(record.isEmpty());
        QVERIFY(database.value(u"z"_s, record));
        // Whoever asks for a part must not get it for all.
        QCOMPARE(database.values(u"text"_s), QList<SDBField>());
        QCOMPARE(database.error(), DBError::ReadError);
        // It can be removed without being read.
        QVERIFY(database.remove(u"huge"_s));
        QCOMPARE(walk(database), (QStringList{u"a"_s, u"z"_s}));
    }

    void mergeOfAValueThatIsTooLargeFails()
    {
        Place place;
        QVERIFY(makeHuge(place, "\r\n\r\nname = huge\r\ntext = x"));
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device));
        const MemoryLimit limit;
        expectError("ReadError");
        QVERIFY(!database.restore(place.file, true));
        QCOMPARE(database.error(), DBError::ReadError);
        QVERIFY(!database.contains(u"huge"_s));
    }

    void keyThatIsTooLargeCantBeOpened()
    {
        Place place;
        QVERIFY(makeHuge(place, "\r\n\r\nname = x"));
        const MemoryLimit limit;
        SDBText database;
        expectError("ReadError");
        QVERIFY(!database.open(place.file));
        QCOMPARE(database.error(), DBError::ReadError);
        QVERIFY(database.isNull());
    }

    void headThatIsTooLargeIsNoDatabase()
    {
        Place place;
        QFile file(place.file);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write("dbkey = x") > 0 && file.flush() &&
                file.resize(kHugeBytes));
        file.close();
        const MemoryLimit limit;
        SDBText database;
        expectError("WrongDB");
        QVERIFY(!database.open(place.file));
        QVERIFY(database.isNull());
    }

    void purgeForWhichMemoryMayNotDoLosesNothing()
    {
        for (int size = 4; size <= 16; ++size) {
            Place place;
            SDBText database;
            QVERIFY(create(database, place.file));
            const QString text(size * kMiB, u'x');
            QVERIFY(database.insert(ink(u"b"_s, text)));
            QVERIFY(insertAll(database, {u"a"_s}));
            {
                const MemoryLimit limit;
                const bool isPurged = database.purge();
                QCOMPARE(database.error() == DBError::NoError, isPurged);
            }
            QCOMPARE(walk(database), (QStringList{u"a"_s, u"b"_s}));
            QCOMPARE(database[u"b"_s].value(u"level"_s), QVariant(text));
            QVERIFY(!QFile::exists(place.beside(u".brixnew"_s)));
            QVERIFY(database.open(place.file));
            QCOMPARE(walk(database), (QStringList{u"a"_s, u"b"_s}));
        }
    }

    // The file is copied in pieces.
    void assignmentOfAFileNeedsNoMemoryForIt()
    {
        const Place place;
        const Place source;
        QVERIFY(makeHuge(source, "\r\n\r\nname = huge\r\ntext = x"));
        SDBText other;
        QVERIFY(other.open(source.file));
        QVERIFY(other.authenticate(kUser, kPassword));
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"old"_s}));
        const MemoryLimit limit;
        database = other;
        QCOMPARE(database.error(), DBError::NoError);
        QCOMPARE(database.count(), 3);
        QVERIFY(!database.contains(u"old"_s));
    }

    void copyInMemoryThatIsTooLargeFails()
    {
        Place place;
        QVERIFY(makeHuge(place, "\r\n\r\n# "));
        SDBText database;
        QVERIFY(database.open(place.file));
        QVERIFY(database.authenticate(kUser, kPassword));
        const MemoryLimit limit;
        expectError("WriteError");
        const SDBText copy(database);
        QCOMPARE(copy.error(), DBError::WriteError);
        SDBRecord record;
        QVERIFY(database.value(u"z"_s, record));
    }
};

QTEST_GUILESS_MAIN(tst_SDBText_OutOfMemory)
#include "tst_sdbtext_outofmemory.moc"
