// SPDX-License-Identifier: MIT
#include <shared/goldenbytes.h>
#include <shared/memorypeak.h>

#include <brixlib/protocol/replies.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr SCommandId kAuth(0x61757468);
constexpr SCommandId kList(0x636D646C);

template<class Write>
QByteArray written(Write write, QDataStream::Version version)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(version);
    write(stream);
    return bytes;
}

// The result of a reader and the status in which it left the stream.
template<class Read>
auto readFrom(const QByteArray &bytes, Read read, QDataStream::Status *status)
{
    QDataStream stream(bytes);
    stream.setVersion(QDataStream::Qt_5_6);
    auto result = read(stream);
    *status = stream.status();
    return result;
}

const QByteArray idsAuthAndList = GoldenBytes::commandIds();

} // namespace

class tst_Replies : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void oldCommandListIsTheIdsInTheGivenOrder()
    {
        for (const auto version : {QDataStream::Qt_5_6, QDataStream::Qt_6_0}) {
            const auto write = [](QDataStream &s) { Replies::writeCommandIds(s, {kAuth, kList}); };
            QCOMPARE(written(write, version).toHex(), idsAuthAndList.toHex());
        }
    }

    void newCommandListHasOneIdAndItsVersion()
    {
        for (const auto version : {QDataStream::Qt_5_6, QDataStream::Qt_6_0}) {
            const auto write = [](QDataStream &s) {
                Replies::writeCommandVersions(s, {{kList, 0x00020000}});
            };
            QCOMPARE(written(write, version).toHex(),
                     QByteArray::fromHex("00000001 73636D69 00010000 636D646C"
                                         "00000001 00020000")
                         .toHex());
        }
    }

    void bothListsOfTheNewFormMatchByPosition()
    {
        QHash<SCommandId, qint32> versions;
        for (int i = 1; i <= 100; ++i)
            versions.insert(SCommandId(static_cast<unsigned int>(i)), i * 1000);
        const QByteArray bytes =
            written([&](QDataStream &s) { Replies::writeCommandVersions(s, versions); },
                    QDataStream::Qt_5_6);
        QDataStream stream(bytes);
        qint32 count = 0;
        stream >> count;
        QCOMPARE(count, 100);
        QList<SCommandId> ids(100);
        for (SCommandId &id : ids)
            stream >> id;
        stream >> count;
        QCOMPARE(count, 100);
        for (const SCommandId &id : std::as_const(ids)) {
            qint32 version = 0;
            stream >> version;
            QCOMPARE(version, versions.value(id));
        }
        QVERIFY(stream.atEnd());
    }

    void commandListWithoutVersionsGivesVersionZeroForEveryId()
    {
        QDataStream::Status status{};
        const auto list = readFrom(idsAuthAndList, Replies::readCommandList, &status);
        QCOMPARE(status, QDataStream::Ok);
        QCOMPARE(list.ids, (QList<SCommandId>{kAuth, kList}));
        const QHash<SCommandId, qint32> versions{{kAuth, 0}, {kList, 0}};
        QCOMPARE(list.versions, versions);
    }

    void commandListWithVersionsIsRead()
    {
        QDataStream::Status status{};
        const auto list = readFrom(idsAuthAndList + GoldenBytes::commandVersions(),
                                   Replies::readCommandList, &status);
        QCOMPARE(status, QDataStream::Ok);
        QCOMPARE(list.ids, (QList<SCommandId>{kAuth, kList}));
        const QHash<SCommandId, qint32> versions{{kAuth, 0x00010000}, {kList, 0x00020000}};
        QCOMPARE(list.versions, versions);
    }

    void idWithoutItsVersionGetsZero()
    {
        QDataStream::Status status{};
        const auto list = readFrom(idsAuthAndList + QByteArray::fromHex("00000001 00010000"),
                                   Replies::readCommandList, &status);
        QCOMPARE(status, QDataStream::Ok);
        const QHash<SCommandId, qint32> versions{{kAuth, 0x00010000}, {kList, 0}};
        QCOMPARE(list.versions, versions);
    }

    void versionWithoutAnIdIsIgnored()
    {
        QDataStream::Status status{};
        const auto list = readFrom(QByteArray::fromHex("00000001 73636D69 00010000 61757468"
                                                       "00000002 00000005 00000006"),
                                   Replies::readCommandList, &status);
        QCOMPARE(status, QDataStream::Ok);
        const QHash<SCommandId, qint32> versions{{kAuth, 5}};
        QCOMPARE(list.versions, versions);
    }

    void damagedIdRecordIsANullIdAndTheRestStays()
    {
        QDataStream::Status status{};
        const auto list = readFrom(QByteArray::fromHex("00000002"
                                                       "73636D68 00010000 61757468"
                                                       "73636D69 00010000 636D646C"),
                                   Replies::readCommandList, &status);
        QCOMPARE(status, QDataStream::Ok);
        QCOMPARE(list.ids, (QList<SCommandId>{SCommandId(), kList}));
    }

    void emptyListsAreRead()
    {
        QDataStream::Status status{};
        const auto zero = QByteArray::fromHex("00000000");
        QVERIFY(readFrom(zero, Replies::readCommandList, &status).ids.isEmpty());
        QCOMPARE(status, QDataStream::Ok);
        QVERIFY(readFrom(zero + zero, Replies::readCommandList, &status).ids.isEmpty());
        QCOMPARE(status, QDataStream::Ok);
        QVERIFY(readFrom(zero, Replies::readTexts, &status).isEmpty());
        QCOMPARE(status, QDataStream::Ok);
    }

    void cutCommandListIsEmptyAndTheStreamIsBad()
    {
        const QByteArray whole = idsAuthAndList + QByteArray::fromHex("00000002 00000001 00000002");
        for (qsizetype size = 0; size < whole.size(); ++size) {
            // There the form without versions ends, and is whole.
            if (size == idsAuthAndList.size())
                continue;
            QDataStream::Status status{};
            const auto list = readFrom(whole.first(size), Replies::readCommandList, &status);
            QCOMPARE(status, QDataStream::ReadPastEnd);
            QVERIFY(list.ids.isEmpty() && list.versions.isEmpty());
        }
    }

    void textsAreACountAndStrings()
    {
        const QByteArray bytes = GoldenBytes::texts();
        for (const auto version : {QDataStream::Qt_5_6, QDataStream::Qt_6_0}) {
            const auto write = [](QDataStream &s) {
                Replies::writeTexts(s, {u"aé"_s, u""_s, QString()});
            };
            QCOMPARE(written(write, version).toHex(), bytes.toHex());
        }
        QDataStream::Status status{};
        QCOMPARE(readFrom(bytes, Replies::readTexts, &status),
                 (QList<QString>{u"aé"_s, u""_s, QString()}));
        QCOMPARE(status, QDataStream::Ok);
    }

    void cutTextsAreEmptyAndTheStreamIsBad()
    {
        const auto whole = QByteArray::fromHex("00000002 00000002 0061 00000004 0062 0063");
        for (qsizetype size = 0; size < whole.size(); ++size) {
            QDataStream::Status status{};
            QVERIFY(readFrom(whole.first(size), Replies::readTexts, &status).isEmpty());
            QCOMPARE(status, QDataStream::ReadPastEnd);
        }
    }

    void claimedCountsAndLengthsCostNoMemory_data()
    {
        QTest::addColumn<QByteArray>("texts");
        QTest::addColumn<QByteArray>("commands");
        const auto most = QByteArray::fromHex("FFFFFFFF");
        const auto mostSigned = QByteArray::fromHex("7FFFFFFF");
        const auto item = QByteArray::fromHex("00000002 0061");
        QTest::newRow("a count alone") << most << most;
        QTest::newRow("a signed count alone") << mostSigned << mostSigned;
        QTest::newRow("a count, one item")
            << mostSigned + item << mostSigned + idsAuthAndList.mid(4);
        QTest::newRow("a length, a false count of versions")
            << QByteArray::fromHex("00000001 7FFFFFFE 0061") << idsAuthAndList + most;
        QTest::newRow("an item and a length, one version")
            << mostSigned + item + QByteArray::fromHex("7FFFFFFE")
            << idsAuthAndList + mostSigned + QByteArray::fromHex("00010000");
    }
    void claimedCountsAndLengthsCostNoMemory()
    {
        QFETCH(const QByteArray, texts);
        QFETCH(const QByteArray, commands);
        const TestShared::MemoryPeak peak;
        QVERIFY(peak.isValid());
        QDataStream::Status status{};
        QVERIFY(readFrom(texts, Replies::readTexts, &status).isEmpty());
        QCOMPARE(status, QDataStream::ReadPastEnd);
        QVERIFY(readFrom(commands, Replies::readCommandList, &status).ids.isEmpty());
        QCOMPARE(status, QDataStream::ReadPastEnd);
        QVERIFY2(peak.growth() < 16 * 1024 * 1024, qPrintable(QString::number(peak.growth())));
    }
};

QTEST_APPLESS_MAIN(tst_Replies)
#include "tst_replies.moc"
