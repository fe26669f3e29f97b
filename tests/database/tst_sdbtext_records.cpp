// SPDX-License-Identifier: MIT
// Inserting, replacing, removing and walking; purge() and clear().
#include "sampledatabase.h"

#include <QtCore/QBuffer>
#include <QtCore/QDateTime>
#include <QtTest/QSignalSpy>

using namespace Talverine;
using namespace Talverine::Sample;
using namespace Qt::StringLiterals;

namespace {

//! Counts the lines of the debug log while it lives.
class LineCount
{
public:
    LineCount()
    {
        s_count = 0;
        m_before = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext &, const QString &) { ++s_count; });
    }
    ~LineCount() { qInstallMessageHandler(m_before); }
    Q_DISABLE_COPY_MOVE(LineCount)

    int count() const { return s_count; }

private:
    static inline int s_count = 0;
    QtMessageHandler m_before;
};

} // namespace

class tst_SDBText_Records : public QObject
{
    Q_OBJECT

private:
    QBuffer m_device;
    SDBText m_database;

private Q_SLOTS:
    void init()
    {
        m_database.close();
        m_device.close();
        m_device.setData({});
        QVERIFY(create(m_database, &m_device));
    }

    void cleanup() { m_database.close(); }

    // insert

    void insertTellsOfTheRecord()
    {
        QSignalSpy inserted(&m_database, &SDBText::recordInserted);
        QSignalSpy modified(&m_database, &SDBText::databaseModified);
        const QObject listener;
        connect(&m_database, &SDBText::databaseModified, &listener,
                [&] { QCOMPARE(inserted.size(), 1); });
        QVERIFY(insertAll(m_database, {u"cyan"_s}));
        QCOMPARE(inserted.size(), 1);
        QCOMPARE(inserted.at(0).at(0).toString(), u"cyan"_s);
        QCOMPARE(modified.size(), 1);
        QVERIFY(m_database.contains(u"cyan"_s));
        QVERIFY(m_database.contains(ink(u"cyan"_s)));
        QVERIFY(!m_database.contains(u"Cyan"_s));
    }

    void insertIntoAnEmptiedDeviceIsSeekError()
    {
        m_device.buffer().clear();
        expectError("SeekError");
        QVERIFY(!m_database.insert(ink(u"cyan"_s)));
        QCOMPARE(m_database.error(), DBError::SeekError);
    }

    void insertWithoutKeyIsKeyIsNull()
    {
        SDBRecord record;
        record.insert(u"level"_s, 1);
        expectError("KeyIsNull");
        QVERIFY(!m_database.insert(record));
        expectError("KeyIsNull");
        QVERIFY(!m_database.insert(ink(QString())));
        QCOMPARE(m_database.count(), 0);
    }

    void insertOfAKnownKeyIsRecExist()
    {
        QVERIFY(insertAll(m_database, {u"cyan"_s}));
        const QByteArray before = m_device.data();
        expectError("RecExist");
        QVERIFY(!m_database.insert(ink(u"cyan"_s, 2)));
        QCOMPARE(m_device.data(), before);
    }

    void fieldsOfTheDatabaseAreOverwritten()
    {
        SDBRecord record = ink(u"cyan"_s);
        record.insert(SDBRecord::OwnerKey, u"eve"_s);
        record.insert(SDBRecord::CultureKey, u"xx"_s);
        record.insert(SDBRecord::DateTimeKey, u"yesterday"_s);
        record.insert(SDBRecord::SignatureKey, u"forged"_s);
        QVERIFY(m_database.insert(record));
        const SDBRecord read = m_database[u"cyan"_s];
        QCOMPARE(read.value(SDBRecord::OwnerKey), QVariant(kUser));
        QCOMPARE(read.value(SDBRecord::CultureKey), QVariant(u"en-US"_s));
        QVERIFY(read.value(SDBRecord::DateTimeKey).toDateTime().isValid());
        QVERIFY(read.checkSignature());
    }

    void keyOfOneFieldInsertsOrReplaces()
    {
        QVERIFY(m_database.insert(u"cyan"_s, SDBField(u"level"_s, 1)));
        QVERIFY(m_database.insert(u"cyan"_s, SDBField(u"dots"_s, 7)));
        const SDBRecord read = m_database[u"cyan"_s];
        QCOMPARE(read.value(u"level"_s), QVariant(u"1"_s));
        QCOMPARE(read.value(u"dots"_s), QVariant(u"7"_s));
        QVERIFY(read.checkSignature());
        QCOMPARE(m_database.count(), 1);
        expectError("KeyIsNull");
        QVERIFY(!m_database.insert(QString(), SDBField(u"level"_s, 1)));
    }

    void uniqueKeysCountUp()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device, DBAuthGrants::All, SDBRecord::UniqueIncKey));
        for (int i = 0; i < 11; ++i)
            QVERIFY(database.insert(ink(u"cyan"_s)));
        QStringList keys = walk(database);
        QCOMPARE(keys.size(), 11);
        QCOMPARE(keys.first(), u"0000000000000001"_s);
        QCOMPARE(keys.last(), u"0000000000000011"_s);
        // The counter goes on from the highest key that is read.
        QVERIFY(database.open(&device));
        SDBRecord own = ink(u"cyan"_s);
        own.insert(SDBRecord::UniqueIncKey, u"mine"_s);
        QVERIFY(database.insert(own));
        QVERIFY(database.contains(u"0000000000000012"_s));
        QVERIFY(!database.contains(u"mine"_s));
    }

    void fieldWithoutKeyMakesARecordUnderUniqueKeys()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device, DBAuthGrants::All, SDBRecord::UniqueIncKey));
        QVERIFY(database.insert(QString(), SDBField(u"level"_s, 1)));
        QVERIFY(database.insert(QString(), SDBField(u"level"_s, 2)));
        QCOMPARE(database.count(), 2);
        QCOMPARE(database[u"0000000000000002"_s].value(u"level"_s), QVariant(u"2"_s));
    }

    void replacedRecordGetsANewUniqueKey()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device, DBAuthGrants::All, SDBRecord::UniqueIncKey));
        QVERIFY(database.insert(ink(u"cyan"_s)));
        QSignalSpy inserted(&database, &SDBText::recordInserted);
        QVERIFY(database.replace(database[u"0000000000000001"_s]));
        QCOMPARE(walk(database), QStringList{u"0000000000000002"_s});
        QCOMPARE(inserted.at(0).at(0).toString(), u"0000000000000002"_s);
    }

    void uniqueKeysComeToAnEnd()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device, DBAuthGrants::All, SDBRecord::UniqueIncKey));
        QVERIFY(device.seek(device.size()));
        device.write("\r\n_uniqueinckey = 9223372036854775807\r\n");
        QVERIFY(database.reindex());
        QCOMPARE(database.count(), 1);
        expectError("KeyIsNull");
        QVERIFY(!database.insert(ink(u"cyan"_s)));
    }

    void valuesThatLookLikeSomethingElse_data()
    {
        QTest::addColumn<QString>("value");
        QTest::addColumn<QString>("read");
        const auto same = [](const char *name, const QString &value) {
            QTest::newRow(name) << value << value;
        };
        same("a comment", u"# nothing"_s);
        same("a removed key", u"$cyan"_s);
        same("a field", u"name = magenta"_s);
        same("equals signs", u"=a==b="_s);
        same("the end of the head", u"! <-- this char ends the special record"_s);
        same("beyond ASCII", u"żółć 青 \U0001F5A8"_s);
        same("a zero", u"a\0b"_s);
        same("a carriage return within", u"a\rb"_s);
        same("digits", u"007"_s);
        same("empty", u""_s);
        same("a marker of a template", u"%1 %2 100%"_s);
        QTest::newRow("blanks at the ends are lost") << u" \t a b \u00A0"_s << u"a b"_s;
        QTest::newRow("what follows a line feed is lost") << u"a\nb"_s << u"a"_s;
    }

    void valuesThatLookLikeSomethingElse()
    {
        QFETCH(QString, value);
        QFETCH(QString, read);
        QVERIFY(m_database.insert(ink(u"cyan"_s, value)));
        QVERIFY(m_database.insert(ink(u"magenta"_s)));
        QVERIFY(m_database.open(&m_device));
        const SDBRecord record = m_database[u"cyan"_s];
        QCOMPARE(record.value(u"level"_s), QVariant(read));
        QCOMPARE(record.checkSignature(), !value.contains(u'\n'));
        QCOMPARE(walk(m_database), (QStringList{u"cyan"_s, u"magenta"_s}));
        QVERIFY(m_database[u"magenta"_s].checkSignature());
    }

    void keyThatBeginsWithADollarReadsAsRemoved()
    {
        QVERIFY(insertAll(m_database, {u"$cyan"_s}));
        QCOMPARE(m_database.count(), 1);
        QVERIFY(m_database.open(&m_device));
        QCOMPARE(m_database.count(), 0);
    }

    void keyWithBlanksAtItsEndsCannotBeRemoved()
    {
        QVERIFY(insertAll(m_database, {u" cyan "_s}));
        expectError("UnknownError");
        QVERIFY(!m_database.remove(u" cyan "_s));
        QVERIFY(m_database.open(&m_device));
        QVERIFY(m_database.remove(u"cyan"_s));
    }

    void recordOfManyLinesOfOneNameIsAnArray()
    {
        QStringList values;
        for (int i = 0; i < 100'000; ++i)
            values.append(QString::number(i));
        SDBRecord record = ink(u"cyan"_s, values);
        QVERIFY(m_database.insert(record));
        record = m_database[u"cyan"_s];
        QCOMPARE(record.value(u"level"_s).toList().size(), values.size());
        QCOMPARE(record.value(u"level"_s).toStringList(), values);
        QVERIFY(record.checkSignature());
    }

    void lineOfManyBytesIsRead()
    {
        const QString value(20'000'000, u'x');
        QVERIFY(m_database.insert(ink(u"cyan"_s, value)));
        QVERIFY(insertAll(m_database, {u"magenta"_s}));
        QVERIFY(m_database.open(&m_device));
        QCOMPARE(m_database[u"cyan"_s].value(u"level"_s).toString(), value);
        QVERIFY(m_database.contains(u"magenta"_s));
    }

    // remove

    void removeScramblesTheKeyInPlace()
    {
        QVERIFY(insertAll(m_database, {u"magenta"_s, u"cyan"_s}));
        const QByteArray before = m_device.data();
        QSignalSpy removed(&m_database, &SDBText::recordRemoved);
        QSignalSpy modified(&m_database, &SDBText::databaseModified);
        const QObject listener;
        connect(&m_database, &SDBText::databaseModified, &listener,
                [&] { QCOMPARE(removed.size(), 1); });
        QVERIFY(m_database.remove(u"magenta"_s));
        QCOMPARE(removed.at(0).at(0).toString(), u"magenta"_s);
        QCOMPARE(modified.size(), 1);
        const QByteArray after = m_device.data();
        QCOMPARE(after.size(), before.size());
        const qsizetype line = before.indexOf("name = magenta");
        QCOMPARE(after.first(line + 6), before.first(line + 6));
        QCOMPARE(after.at(line + 6), '$');
        QByteArray scrambled = after.mid(line + 7, 7);
        QVERIFY(scrambled != "magenta");
        std::sort(scrambled.begin(), scrambled.end());
        QCOMPARE(scrambled, "aaegmnt");
        QCOMPARE(after.mid(line + 14), before.mid(line + 14));
        QVERIFY(m_database.open(&m_device));
        QCOMPARE(walk(m_database), QStringList{u"cyan"_s});
    }

    void removingTwiceIsRecNotFoundAndSilent()
    {
        QVERIFY(insertAll(m_database, {u"cyan"_s}));
        QVERIFY(m_database.remove(u"cyan"_s));
        const LineCount lines;
        QVERIFY(!m_database.remove(u"cyan"_s));
        QCOMPARE(lines.count(), 0);
        QCOMPARE(m_database.error(), DBError::RecNotFound);
    }

    void keyOfOneCharacterStaysBehindTheDollar()
    {
        QVERIFY(insertAll(m_database, {u"k"_s}));
        const qsizetype line = m_device.data().indexOf("name = k");
        QVERIFY(m_database.remove(u"k"_s));
        QCOMPARE(m_device.data().mid(line, 10), "name =$k\r\n");
        QVERIFY(m_database.open(&m_device));
        QCOMPARE(m_database.count(), 0);
    }

    void removedKeyNeverTakesMoreBytesThanItHad_data()
    {
        QTest::addColumn<QByteArray>("key");
        QTest::newRow("several bytes a character") << QByteArray("żółć青");
        QTest::newRow("surrogate pairs that part") << QByteArray("\U0001F5A8a\U0001F5A9b");
        QTest::newRow("bytes that are no UTF-8") << QByteArray("a\xFF\xFE\xFD"
                                                               "b");
        QTest::newRow("a zero byte") << QByteArray("a\0b", 3);
    }

    void removedKeyNeverTakesMoreBytesThanItHad()
    {
        QFETCH(QByteArray, key);
        QVERIFY(m_device.seek(m_device.size()));
        m_device.write("\r\nname = " + key + "\r\nlevel = 1\r\n\r\nname = next\r\n");
        QVERIFY(m_database.reindex());
        const QByteArray before = m_device.data();
        QVERIFY(m_database.remove(QString::fromUtf8(key)));
        const QByteArray after = m_device.data();
        QCOMPARE(after.size(), before.size());
        const qsizetype value = before.indexOf("name = " + key) + 6;
        QCOMPARE(after.first(value), before.first(value));
        QCOMPARE(after.mid(value + 1 + key.size()), before.mid(value + 1 + key.size()));
        QVERIFY(m_database.open(&m_device));
        QCOMPARE(walk(m_database), QStringList{u"next"_s});
    }

    void removedKeyLineKeepsTheBytesOfItsName()
    {
        // A damaged byte is read as the character of this name.
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device, DBAuthGrants::All, u"\uFFFD"_s));
        QVERIFY(device.seek(device.size()));
        device.write("\r\n\xFF=ab\r\nlevel = 1\r\n");
        QVERIFY(database.reindex());
        QVERIFY(database.remove(u"ab"_s));
        QVERIFY(device.data().endsWith("\r\n\xFF=$b\r\nlevel = 1\r\n"));
        QVERIFY(database.reindex());
        QCOMPARE(database.count(), 0);
    }

    void insertAfterRemoveIndexesTheNewLine()
    {
        QVERIFY(m_database.insert(ink(u"cyan"_s, 1)));
        QVERIFY(m_database.remove(u"cyan"_s));
        QVERIFY(m_database.insert(ink(u"cyan"_s, 2)));
        QCOMPARE(m_database[u"cyan"_s].value(u"level"_s), QVariant(u"2"_s));
        QVERIFY(m_database.open(&m_device));
        QCOMPARE(m_database.count(), 1);
        QCOMPARE(m_database[u"cyan"_s].value(u"level"_s), QVariant(u"2"_s));
    }

    void removeWhenFileAndIndexDisagree()
    {
        QVERIFY(insertAll(m_database, {u"cyan"_s}));
        m_device.buffer().replace("name = cyan", "name = blue");
        const QByteArray before = m_device.data();
        expectError("UnknownError");
        QVERIFY(!m_database.remove(u"cyan"_s));
        QCOMPARE(m_device.data(), before);
        SDBRecord record;
        QVERIFY(!m_database.value(u"cyan"_s, record));
        QVERIFY(record.isEmpty());
    }

    void ownRecordsOnlyUnderReadOwnWrite()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device, DBAuthGrants::ReadOwnWrite));
        QVERIFY(insertAll(database, {u"cyan"_s}));
        database.authenticate(u"eve"_s, QString());
        QVERIFY(insertAll(database, {u"magenta"_s}));
        expectError("AuthError");
        QVERIFY(!database.remove(u"cyan"_s));
        expectError("AuthError");
        QVERIFY(!database.replace(ink(u"cyan"_s, 2)));
        QVERIFY(database.replace(ink(u"magenta"_s, 2)));
        // The name is compared as it stands.
        database.authenticate(u"Eve"_s, QString());
        expectError("AuthError");
        QVERIFY(!database.remove(u"magenta"_s));
        database.authenticate(u"eve"_s, QString());
        QVERIFY(database.remove(ink(u"magenta"_s)));
    }

    // replace

    void replaceTellsOfTheNewRecordOnly()
    {
        QVERIFY(m_database.insert(ink(u"cyan"_s, 1)));
        QSignalSpy removed(&m_database, &SDBText::recordRemoved);
        QSignalSpy inserted(&m_database, &SDBText::recordInserted);
        QSignalSpy modified(&m_database, &SDBText::databaseModified);
        QVERIFY(m_database.replace(ink(u"cyan"_s, 2)));
        QCOMPARE(removed.size(), 0);
        QCOMPARE(inserted.size(), 1);
        QCOMPARE(modified.size(), 1);
        QCOMPARE(m_database.count(), 1);
        QCOMPARE(m_database[u"cyan"_s].value(u"level"_s), QVariant(u"2"_s));
    }

    void replaceOfAMissingKeyInsertsNothing()
    {
        const QByteArray before = m_device.data();
        QVERIFY(!m_database.replace(ink(u"cyan"_s)));
        QCOMPARE(m_database.error(), DBError::RecNotFound);
        QCOMPARE(m_device.data(), before);
    }

    // Walking

    void walkEndsWithAnEmptyRecord()
    {
        QVERIFY(insertAll(m_database, {u"b"_s, u"a"_s}));
        SDBRecord record;
        QVERIFY(m_database.first(record));
        QCOMPARE(record.value(u"name"_s), QVariant(u"a"_s));
        QVERIFY(m_database.next(u"a"_s, record));
        QCOMPARE(m_database.error(), DBError::NoError);
        const LineCount lines;
        QVERIFY(!m_database.next(u"b"_s, record));
        QCOMPARE(lines.count(), 0);
        QVERIFY(record.isEmpty());
        QCOMPARE(m_database.error(), DBError::RecNotFound);
    }

    void walkIsInTheOrderOfTexts()
    {
        QVERIFY(insertAll(m_database, {u"9"_s, u"10"_s, u"B"_s, u"a"_s}));
        QCOMPARE(walk(m_database), (QStringList{u"10"_s, u"9"_s, u"B"_s, u"a"_s}));
    }

    void unknownKeysWhileWalking()
    {
        QVERIFY(insertAll(m_database, {u"a"_s, u"c"_s}));
        SDBRecord record;
        QVERIFY(!m_database.next(u"b"_s, record));
        QVERIFY(m_database.previous(u"b"_s, record));
        QCOMPARE(record.value(u"name"_s), QVariant(u"c"_s));
        QVERIFY(m_database.previous(QString(), record));
        QCOMPARE(record.value(u"name"_s), QVariant(u"c"_s));
        QVERIFY(m_database.last(record));
        QVERIFY(m_database.previous(u"c"_s, record));
        QCOMPARE(record.value(u"name"_s), QVariant(u"a"_s));
        QVERIFY(!m_database.previous(u"a"_s, record));
        QVERIFY(record.isEmpty());
    }

    void walkOfManyKeys()
    {
        QStringList names;
        for (int i = 0; i < 3000; ++i)
            names.append(QString::number((i * 7919) % 3000));
        QVERIFY(insertAll(m_database, names));
        for (int i = 0; i < 3000; i += 3)
            QVERIFY(m_database.remove(names.at(i)));
        QStringList left;
        for (int i = 0; i < 3000; ++i) {
            if (i % 3 != 0)
                left.append(names.at(i));
        }
        left.sort();
        QCOMPARE(walk(m_database), left);
        QVERIFY(m_database.open(&m_device));
        QCOMPARE(walk(m_database), left);
        QCOMPARE(m_database.find(100)->value(u"name"_s), QVariant(left.at(100)));
    }

    void deviceStandsWhereItStood()
    {
        QVERIFY(insertAll(m_database, {u"a"_s, u"b"_s}));
        QVERIFY(m_device.seek(17));
        SDBRecord record;
        QVERIFY(m_database.value(u"a"_s, record));
        QVERIFY(m_database.next(u"a"_s, record));
        QVERIFY(m_database.reindex());
        QVERIFY(!m_database.values(u"level"_s).isEmpty());
        QCOMPARE(m_device.pos(), 17);
    }

    void twoRecordsOfAKey()
    {
        QVERIFY(insertAll(m_database, {u"a"_s}));
        QVERIFY(m_device.seek(m_device.size()));
        m_device.write("\r\nname = twin\r\nlevel = 1\r\n\r\nname = twin\r\nlevel = 2\r\n");
        QVERIFY(m_database.open(&m_device));
        QCOMPARE(m_database.count(), 2);
        QCOMPARE(m_database[u"twin"_s].value(u"level"_s), QVariant(u"1"_s));
        QVERIFY(m_database.remove(u"twin"_s));
        QVERIFY(m_database.reindex());
        QCOMPARE(m_database[u"twin"_s].value(u"level"_s), QVariant(u"2"_s));
    }

    void keyLineWithoutKeyIsNoRecord()
    {
        // As a program leaves it that was killed while it wrote the key line.
        QVERIFY(insertAll(m_database, {u"a"_s}));
        QVERIFY(m_device.seek(m_device.size()));
        m_device.write("\r\n\r\nname = ");
        QVERIFY(m_database.open(&m_device));
        QCOMPARE(walk(m_database), QStringList{u"a"_s});
        QVERIFY(insertAll(m_database, {u"b"_s}));
        QVERIFY(m_database.purge());
        QCOMPARE(walk(m_database), (QStringList{u"a"_s, u"b"_s}));
    }

    void tornTailIsARecordWithoutSignature()
    {
        QVERIFY(insertAll(m_database, {u"a"_s, u"b"_s}));
        const QByteArray whole = m_device.data();
        const qsizetype begin = whole.lastIndexOf("name = b");
        for (qsizetype size = begin - 4; size < whole.size(); ++size) {
            m_database.close();
            m_device.setData(whole.first(size));
            QVERIFY(m_database.open(&m_device));
            QVERIFY(m_database[u"a"_s].checkSignature());
            // Its line end may be missing.
            QCOMPARE(m_database.contains(u"b"_s), size >= begin + 8);
            QCOMPARE(m_database[u"b"_s].checkSignature(), size >= whole.size() - 2);
            QVERIFY(m_database.insert(ink(u"c"_s)));
            QVERIFY(m_database.open(&m_device));
            QVERIFY(m_database[u"c"_s].checkSignature());
        }
    }

    // clear and purge

    void clearLeavesTheHead()
    {
        const QByteArray head = m_device.data();
        QVERIFY(insertAll(m_database, {u"a"_s, u"b"_s}));
        QVERIFY(m_database.addFieldIndex(u"level"_s));
        QSignalSpy modified(&m_database, &SDBText::databaseModified);
        QVERIFY(m_database.clear());
        QCOMPARE(modified.size(), 1);
        QCOMPARE(m_device.data(), head);
        QCOMPARE(m_database.count(), 0);
        QVERIFY(m_database.isFieldIndexed(u"level"_s));
        QCOMPARE(m_database.values(u"level"_s).size(), 0);
        QVERIFY(insertAll(m_database, {u"c"_s}));
        QCOMPARE(m_database.values(u"level"_s).size(), 1);
    }

    void purgeSortsAndDropsWhatWasRemoved()
    {
        QVERIFY(insertAll(m_database, {u"c"_s, u"a"_s, u"b"_s}));
        QVERIFY(m_database.remove(u"a"_s));
        const SDBRecord before = m_database[u"b"_s];
        QSignalSpy purged(&m_database, &SDBText::databasePurged);
        QSignalSpy modified(&m_database, &SDBText::databaseModified);
        const qint64 bytes = m_database.bytes();
        QVERIFY(m_database.purge());
        QCOMPARE(purged.size(), 1);
        QCOMPARE(modified.size(), 1);
        QVERIFY(m_database.bytes() < bytes);
        QVERIFY(!m_device.data().contains("=$"));
        QVERIFY(m_device.data().indexOf("name = b") < m_device.data().indexOf("name = c"));
        QCOMPARE(m_database[u"b"_s], before);
        QCOMPARE(walk(m_database), (QStringList{u"b"_s, u"c"_s}));
        QVERIFY(m_database.open(&m_device));
        QCOMPARE(walk(m_database), (QStringList{u"b"_s, u"c"_s}));
        QVERIFY(m_database[u"c"_s].checkSignature());
        const QByteArray once = m_device.data();
        QVERIFY(m_database.purge());
        QCOMPARE(m_device.data(), once);
    }

    void purgeKeepsRecordsAsTheyAre()
    {
        // Without a signature, with one that does not fit, with another order.
        QVERIFY(m_device.seek(m_device.size()));
        const QByteArray record = "\r\n\r\nname = a\r\n_signature = 0\r\nlevel.0 = 1\r\n"
                                  "level.1 = 2\r\n_recowner = eve\r\n";
        m_device.write(record);
        QVERIFY(m_database.reindex());
        QVERIFY(m_database.purge());
        QVERIFY(m_device.data().endsWith(record));
    }

    void purgeOfANullDatabaseIsOneLineInTheLog()
    {
        SDBText database;
        QSignalSpy purged(&database, &SDBText::databasePurged);
        const LineCount lines;
        QVERIFY(!database.purge());
        QCOMPARE(lines.count(), 1);
        QCOMPARE(database.error(), DBError::SeekError);
        QCOMPARE(purged.size(), 0);
    }

    void purgeOfAFile()
    {
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(insertAll(database, {u"c"_s, u"a"_s}));
        QVERIFY(database.purge());
        QVERIFY(QFile::exists(place.beside(u".lck"_s)));
        QVERIFY(database.open(place.file));
        QCOMPARE(walk(database), (QStringList{u"a"_s, u"c"_s}));
    }
};

QTEST_GUILESS_MAIN(tst_SDBText_Records)
#include "tst_sdbtext_records.moc"
