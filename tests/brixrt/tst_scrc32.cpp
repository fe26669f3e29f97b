// SPDX-License-Identifier: MIT
#include <brixrt/scrc32.h>

#include <shared/recordingdevice.h>
#include <shared/seededrandom.h>

#include <zlib.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr quint32 kCastagnoli = 0x1EDC6F41;

//! The checksum bit by bit, the way the mathematics tell it.
quint32 bitwise(const QByteArray &data, quint32 polynomial)
{
    quint32 mirror = 0;
    for (int bit = 0; bit < 32; ++bit) {
        if (polynomial & (1U << bit))
            mirror |= 1U << (31 - bit);
    }
    quint32 word = 0xFFFFFFFF;
    for (const char byte : data) {
        word ^= static_cast<uchar>(byte);
        for (int bit = 0; bit < 8; ++bit)
            word = (word & 1) ? (word >> 1) ^ mirror : word >> 1;
    }
    return word ^ 0xFFFFFFFF;
}

} // namespace

class tst_SCrc32 : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshValueIsZero()
    {
        QCOMPARE(SCrc32().value(), 0U);
        QCOMPARE(SCrc32(kCastagnoli).value(), 0U);
    }

    void knownValues_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<quint32>("polynomial");
        QTest::addColumn<quint32>("value");
        QTest::newRow("nothing") << QByteArray() << 0x04C11DB7U << 0U;
        QTest::newRow("digits") << "123456789"_ba << 0x04C11DB7U << 0xCBF43926U;
        QTest::newRow("the polynomial as a decimal") << "123456789"_ba << 79764919U << 0xCBF43926U;
        QTest::newRow("one zero") << QByteArray(1, '\0') << 0x04C11DB7U << 0xD202EF8DU;
        QTest::newRow("32 zeros") << QByteArray(32, '\0') << 0x04C11DB7U << 0x190A55ADU;
        QTest::newRow("32 times 0xFF") << QByteArray(32, '\xFF') << 0x04C11DB7U << 0xFF6CAB0BU;
        QTest::newRow("request of a discoverer") << QByteArray::fromHex("00000000"
                                                                        "08000000"
                                                                        "0000000000000000"
                                                                        "0000"
                                                                        "00000000"
                                                                        "06000000"
                                                                        "436c69656e74")
                                                 << 0x04C11DB7U << 0x68916DC2U;
        QTest::newRow("another polynomial") << "123456789"_ba << kCastagnoli << 0xE3069283U;
        QTest::newRow("yet another") << "123456789"_ba << 0x741B8CD7U << 0x2D3DD0AEU;
    }

    void knownValues()
    {
        QFETCH(QByteArray, data);
        QFETCH(quint32, polynomial);
        SCrc32 crc(polynomial);
        crc.update(data);
        QTEST(crc.value(), "value");
        QTEST(SCrc32::hash(data, polynomial), "value");
        QTEST(SCrc32::hash(data.constData(), static_cast<quint64>(data.size()), polynomial),
              "value");
        QBuffer device(&data);
        QVERIFY(device.open(QIODevice::ReadOnly));
        bool ok = false;
        QTEST(SCrc32::hash(&device, &ok, polynomial), "value");
        QVERIFY(ok);
    }

    // Long ones are taken many bytes at a time, from wherever they begin.
    void longDataAgreesWithZlib()
    {
        SeededRandom random;
        const QByteArray data = random.bytes(200'000);
        for (int i = 0; i < 300; ++i) {
            const qint64 from = random.between(0, 70);
            const qint64 size = random.between(0, data.size() - from);
            const QByteArray part = QByteArray::fromRawData(data.constData() + from, size);
            const auto *bytes = reinterpret_cast<const Bytef *>(part.constData());
            QCOMPARE(SCrc32::hash(part), quint32(crc32_z(0, bytes, static_cast<z_size_t>(size))));
        }
    }

    void ordinaryPolynomialIsTheDefault()
    {
        QCOMPARE(SCrc32::hash("123456789"_ba), 0xCBF43926U);
        QCOMPARE(SCrc32::hash("123456789", 9), 0xCBF43926U);
        QBuffer device;
        device.setData("123456789"_ba);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(SCrc32::hash(&device, nullptr), 0xCBF43926U);
    }

    void agreesWithTheMathematics()
    {
        SeededRandom random;
        for (int round = 0; round < 50; ++round) {
            const QByteArray data = random.bytes(random.between(0, 300));
            const auto polynomial = static_cast<quint32>(random.between(0, 0xFFFFFFFF));
            QCOMPARE(SCrc32::hash(data, polynomial), bitwise(data, polynomial));
            QCOMPARE(SCrc32::hash(data), bitwise(data, SCrc32::kOrdinaryPolynomial));
        }
    }

    void piecesGiveTheSameAsTheWhole()
    {
        const QByteArray data = SeededRandom().bytes(300);
        for (const quint32 polynomial : {SCrc32::kOrdinaryPolynomial, kCastagnoli}) {
            for (qsizetype cut = 0; cut <= data.size(); ++cut) {
                SCrc32 crc(polynomial);
                crc.update(data.first(cut));
                crc.update(data.sliced(cut));
                QCOMPARE(crc.value(), SCrc32::hash(data, polynomial));
            }
        }
    }

    void noBytesChangeNothing()
    {
        SCrc32 crc;
        crc.update("123456789"_ba);
        crc.update(QByteArray());
        crc.update("x", 0);
        crc.update(nullptr, 0);
        QCOMPARE(crc.value(), 0xCBF43926U);
    }

    void clearStartsAgain()
    {
        for (const quint32 polynomial : {SCrc32::kOrdinaryPolynomial, kCastagnoli}) {
            SCrc32 crc(polynomial);
            crc.update("something else"_ba);
            crc.clear();
            QCOMPARE(crc.value(), 0U);
            crc.update("123456789"_ba);
            QCOMPARE(crc.value(), SCrc32::hash("123456789"_ba, polynomial));
        }
    }

    void copiesGoOnByThemselves()
    {
        for (const quint32 polynomial : {SCrc32::kOrdinaryPolynomial, kCastagnoli}) {
            SCrc32 crc(polynomial);
            crc.update("1234"_ba);
            SCrc32 copy = crc;
            crc.update("something else"_ba);
            copy.update("56789"_ba);
            QCOMPARE(copy.value(), SCrc32::hash("123456789"_ba, polynomial));
            crc = copy;
            QCOMPARE(crc.value(), copy.value());
        }
    }

    void deviceIsReadFromItsPosition()
    {
        QBuffer device;
        device.setData("head123456789"_ba);
        QVERIFY(device.open(QIODevice::ReadOnly));
        QVERIFY(device.seek(4));
        bool ok = false;
        QCOMPARE(SCrc32::hash(&device, &ok), 0xCBF43926U);
        QVERIFY(ok);
        QVERIFY(device.isOpen());
        QCOMPARE(device.pos(), 13);
    }

    void deviceOfManyPieces()
    {
        RecordingDevice device(SeededRandom().bytes(300'000));
        QVERIFY(device.open(QIODevice::ReadOnly));
        bool ok = false;
        QCOMPARE(SCrc32::hash(&device, &ok), bitwise(device.bytes, SCrc32::kOrdinaryPolynomial));
        QVERIFY(ok);
        QVERIFY(device.reads.size() > 3);
    }

    void deviceThatGivesLittleAtOnce()
    {
        RecordingDevice device("123456789"_ba);
        device.pieceBytes = 2;
        device.sequential = true;
        QVERIFY(device.open(QIODevice::ReadOnly));
        bool ok = false;
        QCOMPARE(SCrc32::hash(&device, &ok), 0xCBF43926U);
        QVERIFY(ok);
    }

    void noDeviceIsAFailure()
    {
        bool ok = true;
        QCOMPARE(SCrc32::hash(nullptr, &ok, SCrc32::kOrdinaryPolynomial), 0U);
        QVERIFY(!ok);
        QCOMPARE(SCrc32::hash(static_cast<QIODevice *>(nullptr), nullptr), 0U);
    }

    void closedDeviceIsAFailure()
    {
        RecordingDevice device("123456789"_ba);
        bool ok = true;
        QCOMPARE(SCrc32::hash(&device, &ok), 0U);
        QVERIFY(!ok);
    }

    void deviceForWritingIsAFailure()
    {
        RecordingDevice device("123456789"_ba);
        QVERIFY(device.open(QIODevice::WriteOnly));
        bool ok = true;
        QCOMPARE(SCrc32::hash(&device, &ok), 0U);
        QVERIFY(!ok);
    }

    void failedReadIsAFailure()
    {
        RecordingDevice device("123456789"_ba);
        device.failsToRead = true;
        QVERIFY(device.open(QIODevice::ReadOnly));
        bool ok = true;
        QCOMPARE(SCrc32::hash(&device, &ok), 0U);
        QVERIFY(!ok);
    }
};

QTEST_APPLESS_MAIN(tst_SCrc32)
#include "tst_scrc32.moc"
