// SPDX-License-Identifier: MIT
// Database files between this library and a few lines of another language.
#include "sampledatabase.h"

#include <shared/goldenbytes.h>
#include <shared/utctime.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>

using namespace Talverine;
using namespace Talverine::Sample;
using namespace Qt::StringLiterals;

namespace {

//! What the other program prints; an empty text when it fails.
QByteArray runPeer(const QString &command, const QString &file)
{
    QProcess peer;
    peer.start(QStringLiteral(BRIX_PYTHON), {QStringLiteral(BRIX_TEXTDATABASE), command, file});
    if (!peer.waitForFinished(60'000) || peer.exitCode() != 0) {
        qWarning("%s", peer.readAllStandardError().constData());
        return QByteArray();
    }
    return "done\n" + peer.readAllStandardOutput();
}

//! Head and records as the other program reads them.
QList<QJsonObject> readByPeer(const QString &file)
{
    QList<QJsonObject> objects;
    for (const QByteArray &line : runPeer(u"read"_s, file).split('\n').mid(1)) {
        if (!line.isEmpty())
            objects.append(QJsonDocument::fromJson(line).object());
    }
    return objects;
}

QString page()
{
    return QString::fromUtf8(bytesOf(QStringLiteral(BRIX_TEXTDATABASE_PAGE)));
}

//! Values of every kind that keeps its signature.
SDBRecord manyValues(const QString &name)
{
    SDBRecord record = ink(name, -5);
    record.insert(u"number"_s, 1234567.875);
    record.insert(u"small"_s, 1e-9);
    record.insert(u"yes"_s, true);
    record.insert(u"time"_s, utcTime(QDate(2026, 11, 20), QTime(17, 16, 39, 145)));
    record.insert(u"text"_s, u"ż € 青 \U0001F5A8 = # $"_s);
    record.insert(u"empty"_s, u""_s);
    record.insert(u"blanks"_s, u"  within  "_s);
    record.insert(u"list"_s, QVariantList{1, 2.5, u"three"_s, false});
    record.insert(u"one"_s, QStringList{u"alone"_s});
    record.insert(u"bytes"_s, QByteArray("\x00\x0A\xFF", 3));
    return record;
}

} // namespace

class tst_DatabaseFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void otherProgramVerifiesOurRecords_data()
    {
        QTest::addColumn<QString>("culture");
        for (const char *culture : {"en_US", "it_IT", "sv_SE", "ar_EG", "hi_IN", "C", "sr_Latn_RS"})
            QTest::newRow(culture) << QString::fromLatin1(culture);
    }

    void otherProgramVerifiesOurRecords()
    {
        QFETCH(QString, culture);
        Place place;
        {
            SDBText database;
            database.authenticate(kUser, kPassword);
            QVERIFY(database.create(place.file, u"name"_s, DBAuthGrants::All, QLocale(culture)));
            for (const QString &name : {u"a"_s, u"żółć"_s, u"c"_s})
                QVERIFY(database.insert(manyValues(name)));
            QVERIFY(database.remove(u"a"_s));
            QVERIFY(database.replace(database[u"c"_s]));
        }
        const QList<QJsonObject> objects = readByPeer(place.file);
        QCOMPARE(objects.size(), 3);
        for (const QJsonObject &object : objects)
            QVERIFY2(object.value("ok"_L1).toBool(), QJsonDocument(object).toJson().constData());
        const QJsonObject fields = objects.at(1).value("fields"_L1).toObject();
        QCOMPARE(fields.value("list"_L1).toArray().size(), 4);
        QCOMPARE(fields.value("text"_L1).toArray().at(0).toString(), u"ż € 青 \U0001F5A8 = # $"_s);
        // What is read here is what was read there.
        SDBText database;
        QVERIFY(database.open(place.file));
        const SDBRecord record = database[u"żółć"_s];
        QVERIFY(record.checkSignature());
        QCOMPARE(record.count(), fields.size());
        for (const SDBField &field : record.fields()) {
            QCOMPARE(QJsonArray::fromVariantList(field.valueList()),
                     fields.value(field.key()).toArray());
        }
    }

    void recordsOfTheOtherProgramAreRead()
    {
        Place place;
        QVERIFY(!runPeer(u"write"_s, place.file).isEmpty());
        SDBText database;
        QVERIFY(database.open(place.file));
        QVERIFY(database.authenticate(kUser, kPassword));
        QCOMPARE(database.version(), u"7"_s);
        QCOMPARE(walk(database), (QStringList{u"cyan"_s, u"magenta"_s, u"yellow"_s}));
        for (SDBIterator it = database.begin(); it != database.end(); ++it)
            QVERIFY(it->checkSignature());
        QCOMPARE(database[u"yellow"_s].signature().size(), 40);
        QCOMPARE(database[u"magenta"_s].value(u"tags"_s).toStringList(),
                 (QStringList{u"a"_s, u"b = c"_s, u"#d"_s}));
        // Written anew, a record gets the chain.
        QVERIFY(database.replace(database[u"yellow"_s]));
        QCOMPARE(database[u"yellow"_s].signature().size(), 64);
        QVERIFY(database[u"yellow"_s].checkSignature());
    }

    void exampleOfThePageIsADatabase()
    {
        const QString example = page().section(u"```text\n"_s, 1, 1).section(u"```"_s, 0, 0);
        QCOMPARE(QString(example).replace(u"\n"_s, u"\r\n"_s).toUtf8(), GoldenBytes::database());
        Place place;
        QVERIFY(setBytes(place.file, GoldenBytes::database()));
        const QList<QJsonObject> objects = readByPeer(place.file);
        QCOMPARE(objects.size(), 2);
        for (const QJsonObject &object : objects)
            QVERIFY(object.value("ok"_L1).toBool());
        SDBText database;
        QVERIFY(database.open(place.file));
        QVERIFY(database.authenticate(kUser, kPassword));
        QCOMPARE(walk(database), (QStringList{u"cyan"_s}));
        QVERIFY(database[u"cyan"_s].checkSignature());
        QCOMPARE(database[u"cyan"_s].value(u"tags"_s).toStringList(),
                 (QStringList{u"water"_s, u"matt"_s}));
        // The removed record of the page once had the same key.
        QVERIFY(database.remove(u"cyan"_s));
        const QByteArray bytes = bytesOf(place.file);
        const qsizetype first = bytes.indexOf("name =$");
        QVERIFY(first >= 0);
        QCOMPARE(bytes.mid(first, 12), bytes.mid(bytes.lastIndexOf("name =$"), 12));
        QVERIFY(first != bytes.lastIndexOf("name =$"));
    }

    void removedRecordOfThePageWasSigned()
    {
        QByteArray bytes = GoldenBytes::database();
        bytes.replace("name = cyan", "name = blue").replace("name =$ncay", "name = cyan");
        Place place;
        QVERIFY(setBytes(place.file, bytes));
        SDBText database;
        QVERIFY(database.open(place.file));
        QCOMPARE(database[u"cyan"_s].value(u"level"_s).toString(), u"7"_s);
        QVERIFY(database[u"cyan"_s].checkSignature());
        QVERIFY(!database[u"blue"_s].checkSignature());
    }

    void bytesOfThePageStandWhereItTells()
    {
        static const QRegularExpression row(u"^ +(\\d+)  ((?:[0-9A-F]{2} )+)"_s,
                                            QRegularExpression::MultilineOption);
        const QByteArray database = GoldenBytes::database();
        int rows = 0;
        qsizetype end = 0;
        for (const QRegularExpressionMatch &match : row.globalMatch(page())) {
            const QByteArray bytes = QByteArray::fromHex(match.captured(2).toLatin1());
            const qsizetype offset = match.captured(1).toLongLong();
            QCOMPARE(database.mid(offset, bytes.size()).toHex(' '), bytes.toHex(' '));
            end = offset + bytes.size();
            ++rows;
        }
        QCOMPARE(rows, 8);
        QCOMPARE(end, database.size());
    }

    void indexOfThePageIsThatOfTheExample()
    {
        static const QRegularExpression row(u"^    ((?:[0-9A-F]{2} +)+)"_s,
                                            QRegularExpression::MultilineOption);
        const QString example = page().section(u"The index of the example"_s, 1, 1);
        QByteArray index;
        for (const QRegularExpressionMatch &match : row.globalMatch(example))
            index += QByteArray::fromHex(match.captured(1).toLatin1());
        QVERIFY(index.startsWith("IDX4"));
        Place place;
        QVERIFY(setBytes(place.file, GoldenBytes::database()));
        SDBText database;
        QVERIFY(database.open(place.file));
        QCOMPARE(database.values(u"level"_s).size(), 1);
        database.close();
        QCOMPARE(bytesOf(place.beside(u".idx"_s)).toHex(' '), index.toHex(' '));
        QCOMPARE(bytesOf(place.file), GoldenBytes::database());
    }

    void copyOfTheHeadIsThatOfTheExample()
    {
        Place place;
        QVERIFY(setBytes(place.file, GoldenBytes::database()));
        SDBText database;
        QVERIFY(database.open(place.file));
        QCOMPARE(bytesOf(place.beside(u".srec"_s)), GoldenBytes::databaseHead());
    }

    // What the page says the format does not promise

    void linesWithinAValueBecomeFieldsAndRecords()
    {
        SDBRecord forged = ink(u"forged"_s);
        QVERIFY(forged.updateSignature());
        QString note = u"a\nlost\nlevel = 9\n"_s;
        for (const SDBField &field : forged.fields())
            note += field.toString() + u'\n';
        // Takes the lines that come behind the value.
        note += u"name = rest"_s;
        SDBRecord record = ink(u"cyan"_s);
        record.insert(u"note"_s, note);
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(database.insert(record));
        QVERIFY(database.open(place.file));
        QCOMPARE(walk(database), (QStringList{u"cyan"_s, u"forged"_s, u"rest"_s}));
        QCOMPARE(database[u"cyan"_s].value(u"note"_s).toString(), u"a"_s);
        QCOMPARE(database[u"cyan"_s].value(u"level"_s).toStringList(),
                 (QStringList{u"1"_s, u"9"_s}));
        QVERIFY(!database[u"cyan"_s].checkSignature());
        QVERIFY(database[u"forged"_s].checkSignature());
    }

    void arrayAsAKeyIsReadAsSeveralRecords()
    {
        SDBRecord record = ink(u"cyan"_s);
        record.replace(u"name"_s, QStringList{u"cyan"_s, u"blue"_s});
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(database.insert(record));
        QCOMPARE(database.count(), 1);
        QVERIFY(database.open(place.file));
        QCOMPARE(walk(database), (QStringList{u"blue"_s, u"cyan"_s}));
    }

    void namesOfOneBeginningAreReadAsOneArray()
    {
        SDBRecord record = ink(u"cyan"_s);
        record.insert(u"level.high"_s, 9);
        Place place;
        SDBText database;
        QVERIFY(create(database, place.file));
        QVERIFY(database.insert(record));
        const SDBRecord read = database[u"cyan"_s];
        QCOMPARE(read.value(u"level"_s).toStringList(), (QStringList{u"1"_s, u"9"_s}));
        QVERIFY(!read.contains(u"level.high"_s));
    }
};

QTEST_GUILESS_MAIN(tst_DatabaseFiles)
#include "tst_databasefiles.moc"
