// SPDX-License-Identifier: MIT
#include <brixlib/database/records/sha256_p.h>

#include <shared/seededrandom.h>

#include <QtCore/QCryptographicHash>

using namespace Talverine;

namespace {

QByteArray hashed(Sha256 &hash, QByteArrayView first, QByteArrayView second = {})
{
    const Sha256::Digest digest = hash.hash(first, second);
    return QByteArray(digest.data(), digest.size()).toHex();
}

QByteArray expected(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
}

} // namespace

class tst_Sha256 : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void messagesHaveTheirHash()
    {
        Sha256 hash;
        QCOMPARE(hashed(hash, "abc"),
                 QByteArray("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
        QCOMPARE(hashed(hash, {}),
                 QByteArray("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"));
        QCOMPARE(hashed(hash, "a", "bc"), hashed(hash, "abc"));
        QCOMPARE(hashed(hash, {}, "abc"), hashed(hash, "abc", {}));
    }

    void hashesAreThoseOfQt()
    {
        SeededRandom random;
        Sha256 hash;
        for (int i = 0; i < 500; ++i) {
            const QByteArray first = random.bytes(random.between(0, 200));
            const QByteArray second = random.bytes(random.between(0, 200));
            QCOMPARE(hashed(hash, first, second), expected(first + second));
        }
    }
};

QTEST_APPLESS_MAIN(tst_Sha256)
#include "tst_sha256.moc"
