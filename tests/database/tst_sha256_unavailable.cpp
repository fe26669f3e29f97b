// SPDX-License-Identifier: MIT
// A machine may be configured so that the fast implementation has no such algorithm.
#include <brixlib/database/records/sha256_p.h>

#include <openssl/evp.h>
#include <openssl/provider.h>

using namespace Talverine;

class tst_Sha256Unavailable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // With another provider loaded the default one is not loaded by itself.
        m_provider = OSSL_PROVIDER_load(nullptr, "null");
        QVERIFY(m_provider);
        QVERIFY(!EVP_MD_fetch(nullptr, "SHA256", nullptr));
    }

    void cleanupTestCase() { OSSL_PROVIDER_unload(m_provider); }

    void hashIsTheSame()
    {
        Sha256 hash;
        for (int i = 0; i < 2; ++i) {
            const Sha256::Digest digest = hash.hash("a", "bc");
            QCOMPARE(QByteArray(digest.data(), digest.size()).toHex(),
                     QByteArray("ba7816bf8f01cfea414140de5dae2223"
                                "b00361a396177a9cb410ff61f20015ad"));
        }
    }

private:
    OSSL_PROVIDER *m_provider = nullptr;
};

QTEST_APPLESS_MAIN(tst_Sha256Unavailable)
#include "tst_sha256_unavailable.moc"
