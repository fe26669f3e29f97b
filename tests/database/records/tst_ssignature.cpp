// SPDX-License-Identifier: MIT
#include <brixlib/database/records/ssignature.h>

#include <shared/seededrandom.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

using Algorithm = QCryptographicHash::Algorithm;

class tst_SSignature : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void textsHaveTheirSignature_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<Algorithm>("algorithm");
        QTest::addColumn<QString>("signature");
        QTest::addColumn<QString>("legacy");
        const QString abc1 = u"a9993e364706816aba3e25717850c26c9cd0d89d"_s;
        const QString abc256 =
            u"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"_s;
        const QString none256 =
            u"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"_s;
        QTest::newRow("ASCII, SHA-1") << u"abc"_s << QCryptographicHash::Sha1 << abc1 << abc1;
        QTest::newRow("ASCII, SHA-256")
            << u"abc"_s << QCryptographicHash::Sha256 << abc256 << abc256;
        QTest::newRow("empty") << u""_s << QCryptographicHash::Sha256 << none256 << none256;
        QTest::newRow("null") << QString() << QCryptographicHash::Sha256 << none256 << none256;
        QTest::newRow("beyond ASCII, SHA-1") << u"\u00E9\u20AC"_s << QCryptographicHash::Sha1
                                             << u"f299a77642b6437431ada56c0643f7b8e99b5622"_s
                                             << u"a9d9735f66ab6747273875613558bf6815574036"_s;
        QTest::newRow("beyond ASCII, SHA-256")
            << u"\u00E9\u20AC"_s << QCryptographicHash::Sha256
            << u"f0165711145fd4315008feb1f589eb75f63fb382417be0782a1c1cab418bc0c4"_s
            << u"6d30d770ea1294e7f6fbb54973d5c6d3d7c83a9c35e1bc6491a90f30a9cfc754"_s;
    }

    void textsHaveTheirSignature()
    {
        QFETCH(QString, text);
        QFETCH(Algorithm, algorithm);
        QTEST(SSignature::generate(text, algorithm), "signature");
        QTEST(SSignature::generate(text.toUtf8(), algorithm), "signature");
        QTEST(SSignature::generateLegacy(text, algorithm), "legacy");
    }

    void formsAgreeForAscii()
    {
        QString ascii;
        for (char16_t c = 0; c < 0x80; ++c)
            ascii += QChar(c);
        for (const Algorithm algorithm : {QCryptographicHash::Sha1, QCryptographicHash::Sha256}) {
            QCOMPARE(SSignature::generateLegacy(ascii, algorithm),
                     SSignature::generate(ascii, algorithm));
        }
    }

    void formsDifferBeyondAscii()
    {
        for (const QString &text : {u"\u0080"_s, u"\u00FF"_s, u"\u0100"_s, u"\U0001F600"_s}) {
            QVERIFY(SSignature::generateLegacy(text, QCryptographicHash::Sha256) !=
                    SSignature::generate(text, QCryptographicHash::Sha256));
        }
    }

    void legacyFormTakesTheLowByteOfEachUnit()
    {
        const QString text = u"\u0141A\uFF42\U0001F600"_s;
        const QByteArray bytes("\x41\x41\x42\x3D\x00", 5);
        QCOMPARE(SSignature::generateLegacy(text, QCryptographicHash::Sha1),
                 SSignature::generate(bytes, QCryptographicHash::Sha1));
        // Qt's Latin-1 has a question mark for what it doesn't know.
        QVERIFY(text.toLatin1() != bytes);
    }

    void lowByteOfEveryUnitIsTaken()
    {
        QString text;
        QByteArray bytes;
        for (int unit = 0; unit <= 0xFFFF; ++unit) {
            text += QChar(static_cast<char16_t>(unit));
            bytes += static_cast<char>(unit & 0xFF);
        }
        QCOMPARE(SSignature::generateLegacy(text, QCryptographicHash::Sha256),
                 SSignature::generate(bytes, QCryptographicHash::Sha256));
    }

    void bytesWithZerosAreHashedWhole()
    {
        QVERIFY(SSignature::generate(QByteArray("a\0b", 3), QCryptographicHash::Sha1) !=
                SSignature::generate(QByteArray("a"), QCryptographicHash::Sha1));
    }

    void signatureIsLowerCaseHexadecimal()
    {
        SeededRandom random;
        static const QRegularExpression hexadecimal(u"^[0-9a-f]{64}$"_s);
        for (int i = 0; i < 100; ++i) {
            const QString signature =
                SSignature::generate(random.bytes(i), QCryptographicHash::Sha256);
            QVERIFY(hexadecimal.match(signature).hasMatch());
        }
    }
};

QTEST_APPLESS_MAIN(tst_SSignature)
#include "tst_ssignature.moc"
