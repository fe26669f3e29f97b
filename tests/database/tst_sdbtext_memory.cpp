// SPDX-License-Identifier: MIT
// What a large database takes of the memory: its keys, and never the file.
#include "sampledatabase.h"

#include <shared/memorypeak.h>

#include <QtCore/QBuffer>

using namespace Talverine;
using namespace Talverine::Sample;
using namespace Qt::StringLiterals;
using TestShared::HeldMemoryPeak;

namespace {

constexpr int kRecords = 100'000;
constexpr qint64 kBytesOfAKey = 200;
// Blocks of the readers, and what comes with the first use of anything.
constexpr qint64 kSlackBytes = 4 * 1024 * 1024;

//! A key of 16 characters. Its digits, read from the end, are those of the number where \a isMixed,
//! so that the order of keys is not that of the numbers.
QByteArray keyOf(int number, bool isMixed)
{
    QByteArray digits = QByteArray::number(number).rightJustified(13, '0');
    if (isMixed)
        std::reverse(digits.begin(), digits.end());
    return "key" + digits;
}

bool appendRecords(const QString &path, bool isMixed)
{
    QFile file(path);
    if (!file.open(QIODevice::Append))
        return false;
    for (int i = 0; i < kRecords; ++i) {
        const QByteArray record = "\r\n\r\nname = " + keyOf(i, isMixed) +
                                  "\r\ngroup = " + QByteArray::number(i / 10) +
                                  "\r\ntext = " + QByteArray(200, 'x') + "\r\n";
        if (file.write(record) != record.size())
            return false;
    }
    return true;
}

} // namespace

class tst_SDBText_Memory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void longLinesAreNotHeld()
    {
        Place place;
        {
            SDBText database;
            QVERIFY(create(database, place.file));
            QVERIFY(insertAll(database, {u"a"_s}));
        }
        QFile file(place.file);
        QVERIFY(file.open(QIODevice::Append));
        file.write("filler = ");
        const QByteArray piece(1024 * 1024, 'x');
        for (int i = 0; i < 100; ++i)
            QCOMPARE(file.write(piece), piece.size());
        file.write("\r\n\r\nname = b\r\nlevel = 2\r\n");
        file.close();
        SDBText database;
        const HeldMemoryPeak memory;
        QVERIFY(database.open(place.file));
        QCOMPARE(database[u"b"_s].value(u"level"_s), QVariant(u"2"_s));
        QVERIFY2(memory.growth() < kSlackBytes, qPrintable(QString::number(memory.growth())));
    }

    void onlyKeysAreHeld_data()
    {
        QTest::addColumn<bool>("isMixed");
        // What takes more comes first: without a sanitizer, only more than ever before shows.
        QTest::newRow("in another order") << true;
        QTest::newRow("in the order of keys") << false;
    }

    void onlyKeysAreHeld()
    {
        QFETCH(bool, isMixed);
        Place place;
        {
            SDBText database;
            QVERIFY(create(database, place.file));
        }
        QVERIFY(appendRecords(place.file, isMixed));
        const HeldMemoryPeak memory;
        SDBText database;
        QVERIFY(database.open(place.file));
        QCOMPARE(database.count(), kRecords);
        QVERIFY(database.bytes() > 200 * kRecords);
        const QString key = QString::fromLatin1(keyOf(kRecords / 2, isMixed));
        QCOMPARE(database[key].value(u"group"_s).toInt(), kRecords / 20);
        SDBRecord record;
        QVERIFY(database.first(record));
        for (int i = 0; i < 1000; ++i)
            QVERIFY(database.next(record.value(u"name"_s).toString(), record));
        QVERIFY(database.find(kRecords - 1)->value(u"name"_s).isValid());
        const qint64 bytes = memory.growth() - kSlackBytes;
        QVERIFY2(bytes <= kBytesOfAKey * kRecords, qPrintable(QString::number(memory.growth())));
    }

    void searchHoldsWhatItFinds()
    {
        Place place;
        {
            SDBText database;
            QVERIFY(create(database, place.file));
        }
        QVERIFY(appendRecords(place.file, false));
        SDBText database;
        QVERIFY(database.open(place.file));
        QVERIFY(database.addFieldIndex(u"group"_s));
        const HeldMemoryPeak memory;
        QList<SDBRecord> found;
        QVERIFY(database.searchField({u"group"_s, 77}, found));
        QCOMPARE(found.size(), 10);
        // An entry of the field's index is a node with two texts.
        const qint64 bytes = memory.growth() - kSlackBytes;
        QVERIFY2(bytes <= 2 * kBytesOfAKey * kRecords,
                 qPrintable(QString::number(memory.growth())));
    }
};

QTEST_GUILESS_MAIN(tst_SDBText_Memory)
#include "tst_sdbtext_memory.moc"
