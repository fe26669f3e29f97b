// SPDX-License-Identifier: MIT
#include <shared/goldenbytes.h>
#include <shared/memorypeak.h>
#include <shared/utctime.h>

#include <brixlib/fileservice/filereplies.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

QByteArray written(const QList<SFileEntry> &entries, QDataStream::Version version)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(version);
    Replies::writeEntries(stream, entries);
    return bytes;
}

QList<SFileEntry> readFrom(const QByteArray &bytes, QDataStream::Status *status,
                           QDataStream::Version version = QDataStream::Qt_5_6)
{
    QDataStream stream(bytes);
    stream.setVersion(version);
    const QList<SFileEntry> entries = Replies::readEntries(stream);
    *status = stream.status();
    return entries;
}

} // namespace

class tst_FileReplies : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void entryIsVersionNameSizeFlagsDate()
    {
        const QDateTime date = utcTime(QDate(2024, 1, 2), QTime(3, 4, 5, 678));
        const QList<SFileEntry> entries{
            SFileEntry(u"a"_s, 258, date, FileEntryFlags(0x66440006)),
            SFileEntry(u".."_s, 0, QDateTime(), FileEntryFlags::Directory)};
        const QByteArray bytes = GoldenBytes::entries();
        for (const auto version : {QDataStream::Qt_5_6, QDataStream::Qt_6_0}) {
            QCOMPARE(written(entries, version).toHex(), bytes.toHex());
            QDataStream::Status status{};
            QCOMPARE(readFrom(bytes, &status, version), entries);
            QCOMPARE(status, QDataStream::Ok);
        }
    }

    void emptyListIsACount()
    {
        QCOMPARE(written({}, QDataStream::Qt_5_6), QByteArray(4, '\0'));
        QDataStream::Status status{};
        QVERIFY(readFrom(QByteArray(4, '\0'), &status).isEmpty());
        QCOMPARE(status, QDataStream::Ok);
    }

    void olderRecordHasNoDate_data()
    {
        QTest::addColumn<quint32>("recordVersion");
        QTest::newRow("0") << 0u;
        QTest::newRow("1.0.0") << 0x00010000u;
        QTest::newRow("just below 1.1.0") << 0x000100FFu;
    }
    void olderRecordHasNoDate()
    {
        QFETCH(const quint32, recordVersion);
        QByteArray bytes;
        QDataStream stream(&bytes, QIODevice::WriteOnly);
        stream << 2u;
        for (const char letter : {'a', 'b'})
            stream << recordVersion << QString(QLatin1Char(letter)) << qint64(7) << 4u;
        QDataStream::Status status{};
        const QList<SFileEntry> entries = readFrom(bytes, &status);
        QCOMPARE(status, QDataStream::Ok);
        QCOMPARE(entries,
                 (QList<SFileEntry>{SFileEntry(u"a"_s, 7, QDateTime(), FileEntryFlags::Readable),
                                    SFileEntry(u"b"_s, 7, QDateTime(), FileEntryFlags::Readable)}));
        QVERIFY(entries.first().lastModified().isNull());
    }

    // A zone or a number that no system knows costs the entry its date at most.
    void anyDateIsRead_data()
    {
        QTest::addColumn<QByteArray>("date");
        const auto row = [](const char *name, const char *digits) {
            QTest::newRow(name) << QByteArray::fromHex(digits);
        };
        row("last of all days", "7FFFFFFFFFFFFFFF 00000000 01");
        row("first of all days", "8000000000000001 00000000 00");
        row("negative time", "0000000000258A98 80000000 01");
        row("more time than a day has", "0000000000258A98 7FFFFFFF 00");
        row("offset", "0000000000258A98 00000000 02 00000E10");
        row("offset of years", "0000000000258A98 00000000 02 7FFFFFFF");
        row("zone", "0000000000258A98 00000000 03 00000006 0055 0054 0043");
        row("unknown zone", "0000000000258A98 00000000 03 00000008 002E 002E 002F 0078");
        row("zone without a name", "0000000000258A98 00000000 03 FFFFFFFF");
        row("unknown kind", "0000000000258A98 00000000 7F");
        row("negative kind", "0000000000258A98 00000000 FF");
    }
    void anyDateIsRead()
    {
        QFETCH(const QByteArray, date);
        const auto fields = QByteArray::fromHex("00010100 00000002 0061 0000000000000007 00000004");
        for (const auto version : {QDataStream::Qt_5_6, QDataStream::Qt_6_0}) {
            QDataStream::Status status{};
            const QList<SFileEntry> entries = readFrom(
                QByteArray::fromHex("00000002") + fields + date + fields + date, &status, version);
            QCOMPARE(status, QDataStream::Ok);
            QCOMPARE(entries.size(), 2);
            for (const SFileEntry &entry : entries) {
                QCOMPARE(entry.fileName(), u"a"_s);
                QCOMPARE(entry.size(), 7);
                QCOMPARE(entry.flags(), FileEntryFlags::Readable);
            }
        }
    }

    void newerRecordIsReadAsTheKnownOne()
    {
        QByteArray bytes = written({SFileEntry(u"a"_s, 7, QDateTime(), FileEntryFlags::Hidden)},
                                   QDataStream::Qt_5_6);
        bytes.replace(4, 4, QByteArray::fromHex("FFFFFFFF"));
        QDataStream::Status status{};
        QCOMPARE(readFrom(bytes, &status).size(), 1);
        QCOMPARE(status, QDataStream::Ok);
    }

    void cutListIsEmptyAndTheStreamStaysBad()
    {
        const SFileEntry entry(u"name"_s, 7, utcTime(QDate(2024, 1, 2), QTime(3, 4)),
                               FileEntryFlags::Readable);
        const QByteArray whole = written({entry, entry}, QDataStream::Qt_5_6);
        for (qsizetype size = 0; size < whole.size(); ++size) {
            QDataStream::Status status{};
            QVERIFY(readFrom(whole.first(size), &status).isEmpty());
            QCOMPARE(status, QDataStream::ReadPastEnd);
        }
    }

    void claimedCountsAndLengthsCostNoMemory_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("a count alone") << QByteArray::fromHex("FFFFFFFF");
        QTest::newRow("a name of 2 GiB") << QByteArray::fromHex("00000001 00010100 7FFFFFFE 0061");
        QTest::newRow("a zone with a name of 2 GiB")
            << QByteArray::fromHex("00000001 00010100 00000000 0000000000000000 00000000"
                                   "0000000000258A98 00000000 03 7FFFFFFE 0055");
        QTest::newRow("an entry, then a name of 4 GiB")
            << QByteArray::fromHex("7FFFFFFF 00010000 00000000 0000000000000000 00000000"
                                   "00010000 FFFFFFFE");
    }
    void claimedCountsAndLengthsCostNoMemory()
    {
        QFETCH(const QByteArray, bytes);
        const TestShared::MemoryPeak peak;
        QVERIFY(peak.isValid());
        QDataStream::Status status{};
        QVERIFY(readFrom(bytes, &status).isEmpty());
        QCOMPARE(status, QDataStream::ReadPastEnd);
        QVERIFY2(peak.growth() < 16 * 1024 * 1024, qPrintable(QString::number(peak.growth())));
    }
};

QTEST_APPLESS_MAIN(tst_FileReplies)
#include "tst_filereplies.moc"
