// SPDX-License-Identifier: MIT
#include <brixlib/protocol/wire.h>

using namespace Talverine;

class tst_Wire : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void wordsAreFixed()
    {
        QCOMPARE(Wire::kCommandMagic, 0x73636D64u);
        QCOMPARE(Wire::kIdMagic, 0x73636D69u);
        QCOMPARE(Wire::kIdRecordVersion, 0x00010000u);
        QCOMPARE(Wire::kAckWord, 0xA5A5A5A5u);
        QCOMPARE(Wire::kNackWord, 0x55AA55AAu);
        QCOMPARE(Wire::kKeepAliveWord, 0x50A050A0u);
        QCOMPARE(Wire::kBodyLimitBytes, 1048576u);
        QCOMPARE(Wire::kGreetingBytes, 16);
        QCOMPARE(Wire::kHighestStreamVersion, 20);
        QCOMPARE(Wire::kLowestStreamVersion, 7);
    }

    void versionsPackThreeParts()
    {
        QCOMPARE(Wire::version(1, 2, 0), 0x00010200);
        QCOMPARE(Wire::version(2, 0, 12), 0x0002000C);
        QCOMPARE(Wire::kSinceKeepAlive, 0x00010100);
        QCOMPARE(Wire::kSinceStorageDetails, 0x00010001);
        QCOMPARE(Wire::kSinceRawSize, 0x00020000);
        QCOMPARE(Wire::kSinceCommandVersions, 0x00020000);
        QCOMPARE(Wire::kEntryRecordVersion, 0x00010100u);
    }

    void idsAreFixed_data()
    {
        QTest::addColumn<SCommandId>("id");
        QTest::addColumn<quint32>("number");
        using namespace CommandIds;
        QTest::newRow("cmdl") << kCommandList << 0x636D646Cu;
        QTest::newRow("auth") << kAuthentication << 0x61757468u;
        QTest::newRow("srvn") << kServerName << 0x7372766Eu;
        QTest::newRow("wami") << kWhoAmI << 0x77616D69u;
        QTest::newRow("strv") << kStreamVersion << 0x73747276u;
        QTest::newRow("plgb") << kPluggable << 0x706C6762u;
        QTest::newRow("plgl") << kPluggableList << 0x706C676Cu;
        QTest::newRow("lnkt") << kLinkTest << 0x6C6E6B74u;
        QTest::newRow("cldv") << kClientDevice << 0x636C6476u;
        QTest::newRow("cd__") << kChangeDir << 0x63645F5Fu;
        QTest::newRow("cpyd") << kCopyDir << 0x63707964u;
        QTest::newRow("cpyf") << kCopyFile << 0x63707966u;
        QTest::newRow("exst") << kExists << 0x65787374u;
        QTest::newRow("fsse") << kFSSensitivity << 0x66737365u;
        QTest::newRow("gfio") << kGetDev << 0x6766696Fu;
        QTest::newRow("getd") << kGetDir << 0x67657464u;
        QTest::newRow("getf") << kGetFile << 0x67657466u;
        QTest::newRow("gfls") << kGetFiles << 0x67666C73u;
        QTest::newRow("lstd") << kListDir << 0x6C737464u;
        QTest::newRow("mkd_") << kMakeDir << 0x6D6B645Fu;
        QTest::newRow("pwd_") << kPwd << 0x7077645Fu;
        QTest::newRow("rmd_") << kRemoveDir << 0x726D645Fu;
        QTest::newRow("rmf_") << kRemoveFile << 0x726D665Fu;
        QTest::newRow("rnd_") << kRenameDir << 0x726E645Fu;
        QTest::newRow("rnf_") << kRenameFile << 0x726E665Fu;
        QTest::newRow("siof") << kSendDev << 0x73696F66u;
        QTest::newRow("sndf") << kSendFile << 0x736E6466u;
        QTest::newRow("aflp") << kSetPermissions << 0x61666C70u;
        QTest::newRow("stoi") << kStorageInfo << 0x73746F69u;
    }
    void idsAreFixed()
    {
        QFETCH(const SCommandId, id);
        QFETCH(const quint32, number);
        QCOMPARE(id.id(), number);
    }
};

QTEST_APPLESS_MAIN(tst_Wire)
#include "tst_wire.moc"
