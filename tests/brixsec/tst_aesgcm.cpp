// SPDX-License-Identifier: MIT
#include <brixsec/aesgcm_p.h>

#include <QtCore/QSet>

using namespace Talverine::Security;
using namespace Qt::StringLiterals;

namespace {

QByteArray bytesOf(const std::unique_ptr<SecureBlock> &block)
{
    return block ? QByteArray(block->data(), static_cast<qsizetype>(block->size())) : QByteArray();
}

SecureBlock blockOf(const QByteArray &bytes)
{
    return SecureBlock(bytes.constData(), static_cast<std::size_t>(bytes.size()));
}

QByteArray seal(const SecureBlock &key, const QByteArray &header, const QByteArray &plain)
{
    return sealAesGcm(key, header, plain.constData(), static_cast<std::size_t>(plain.size()));
}

const QByteArray kKey = QByteArray::fromHex("feffe9928665731c6d6a8f9467308308"
                                            "feffe9928665731c6d6a8f9467308308");

} // namespace

class tst_AesGcm : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The example of 256 bits with a header in the paper that proposes the mode.
    void opensPublishedExample()
    {
        const QByteArray header = QByteArray::fromHex("feedfacedeadbeeffeedfacedeadbeefabaddad2");
        const QByteArray nonce = QByteArray::fromHex("cafebabefacedbaddecaf888");
        const QByteArray tag = QByteArray::fromHex("76fc6ece0f4e1768cddf8853bb2d551b");
        const QByteArray cipher =
            QByteArray::fromHex("522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa"
                                "8cb08e48590dbb3da7b08b1056828838c5f61e6393ba7a0abcc9f662");
        const QByteArray plain =
            QByteArray::fromHex("d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a72"
                                "1c3c0c95956809532fcf0e2449a6b525b16aedf5aa0de657ba637b39");
        const auto opened = openAesGcm(blockOf(kKey), header, header + nonce + tag + cipher);
        QVERIFY(opened);
        QCOMPARE(bytesOf(opened), plain);
    }

    // The published example of the derivation that has neither salt nor purpose.
    void derivesPublishedExample()
    {
        const auto key = deriveKey(QByteArray(22, '\x0b'), QByteArray());
        QVERIFY(key);
        QCOMPARE(bytesOf(key).toHex(),
                 "8da4e775a563c18f715f802a063c5a31b8a11f5c5ee1879ec3454e5f3c738d2d"_ba);
    }

    void keysOfOneSecretDifferByPurpose()
    {
        const auto one = deriveKey("secret"_ba, "one"_ba);
        const auto two = deriveKey("secret"_ba, "two"_ba);
        QVERIFY(one && two);
        QCOMPARE(one->size(), kAesKeyBytes);
        QVERIFY(bytesOf(one) != bytesOf(two));
    }

    void opensWhatItSealed_data()
    {
        QTest::addColumn<qsizetype>("size");
        for (const qsizetype size : {0, 1, 15, 16, 17, 4096, 1 << 20})
            QTest::addRow("%d bytes", int(size)) << size;
    }
    void opensWhatItSealed()
    {
        QFETCH(qsizetype, size);
        const QByteArray plain(size, 'x');
        const SecureBlock key = blockOf(kKey);
        const QByteArray sealed = seal(key, "h"_ba, plain);
        QCOMPARE(sealed.size(), 1 + kGcmNonceBytes + kGcmTagBytes + size);
        const auto opened = openAesGcm(key, "h"_ba, sealed);
        QVERIFY(opened);
        QCOMPARE(bytesOf(opened), plain);
    }

    void nonceIsFreshEachTime()
    {
        const SecureBlock key = blockOf(kKey);
        QSet<QByteArray> nonces;
        for (int i = 0; i < 1000; ++i)
            nonces.insert(seal(key, "h"_ba, "text"_ba).mid(1, kGcmNonceBytes));
        QCOMPARE(nonces.size(), 1000);
    }

    void changedBitIsRefused_data()
    {
        QTest::addColumn<qsizetype>("bit");
        const qsizetype bytes = 1 + kGcmNonceBytes + kGcmTagBytes + 4;
        for (qsizetype bit = 0; bit < bytes * 8; ++bit)
            QTest::addRow("bit %d", int(bit)) << bit;
    }
    void changedBitIsRefused()
    {
        QFETCH(qsizetype, bit);
        const SecureBlock key = blockOf(kKey);
        QByteArray sealed = seal(key, "h"_ba, "text"_ba);
        QVERIFY(openAesGcm(key, "h"_ba, sealed));
        sealed[bit / 8] = static_cast<char>(sealed[bit / 8] ^ (1 << bit % 8));
        QVERIFY(!openAesGcm(key, "h"_ba, sealed));
    }

    void cutBytesAreRefused_data()
    {
        QTest::addColumn<qsizetype>("size");
        for (qsizetype size = 0; size < 1 + kGcmNonceBytes + kGcmTagBytes + 4; ++size)
            QTest::addRow("%d bytes", int(size)) << size;
    }
    void cutBytesAreRefused()
    {
        QFETCH(qsizetype, size);
        const SecureBlock key = blockOf(kKey);
        QVERIFY(!openAesGcm(key, "h"_ba, seal(key, "h"_ba, "text"_ba).first(size)));
    }

    void longerBytesOtherKeyOtherHeaderAreRefused()
    {
        const SecureBlock key = blockOf(kKey);
        const QByteArray sealed = seal(key, "h"_ba, "text"_ba);
        QVERIFY(!openAesGcm(key, "h"_ba, sealed + '\0'));
        QVERIFY(!openAesGcm(SecureBlock(kAesKeyBytes), "h"_ba, sealed));
        QVERIFY(!openAesGcm(key, "i"_ba, sealed));
        QVERIFY(!openAesGcm(key, "i"_ba, "i"_ba + sealed.mid(1)));
    }
};

QTEST_APPLESS_MAIN(tst_AesGcm)
#include "tst_aesgcm.moc"
