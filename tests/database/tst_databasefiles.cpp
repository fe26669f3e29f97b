// SPDX-License-Identifier: MIT
// Database files between this library and a few lines of another language.
#include "sampledatabase.h"

#include <shared/goldenbytes.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QProcess>

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

//! Values of every kind that keeps its signature.
SDBRecord manyValues(const QString &name)
{
    SDBRecord record = ink(name, -5);
    record.insert(u"number"_s, 1234567.875);
    record.insert(u"small"_s, 1e-9);
    record.insert(u"yes"_s, true);
    record.insert(u"time"_s, QDateTime(QDate(2026, 11, 20), QTime(17, 16, 39, 145), Qt::UTC));
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
        const QString page = QString::fromUtf8(bytesOf(QStringLiteral(BRIX_TEXTDATABASE_PAGE)));
        const QString example = page.section(u"```text\n"_s, 1, 1).section(u"```"_s, 0, 0);
        QVERIFY(!example.isEmpty());
        Place place;
        QCOMPARE(QString(example).replace(u"\n"_s, u"\r\n"_s).toUtf8(), GoldenBytes::database());
        QVERIFY(setBytes(place.file, GoldenBytes::database()));
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
};

QTEST_GUILESS_MAIN(tst_DatabaseFiles)
#include "tst_databasefiles.moc"
