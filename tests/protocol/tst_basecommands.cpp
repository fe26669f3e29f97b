// SPDX-License-Identifier: MIT
// The commands of the base protocol against bytes written by hand.
#include <shared/commandforms.h>

#include <brixlib/protocol/commands/scommandauthentication.h>
#include <brixlib/protocol/commands/scommandclientdevice.h>
#include <brixlib/protocol/commands/scommandcommandlist.h>
#include <brixlib/protocol/commands/scommandlinktest.h>
#include <brixlib/protocol/commands/scommandpluggable.h>
#include <brixlib/protocol/commands/scommandpluggablelist.h>
#include <brixlib/protocol/commands/scommandservername.h>
#include <brixlib/protocol/commands/scommandstreamversion.h>
#include <brixlib/protocol/commands/scommandwhoami.h>

#include <limits>

using namespace Talverine;
using namespace TestShared;
using namespace Qt::StringLiterals;

namespace {

constexpr int kOtherVersion = 0x00030405;

template<class C>
void row(const char *name, const char *digits, const C &command, const C &other)
{
    QTest::newRow(name) << CommandForm{hex(digits), std::make_shared<C>(command),
                                       std::make_shared<C>(command), made(other, kOtherVersion)};
}

template<class C>
void fieldlessRow(const char *name, const char *digits)
{
    row(name, digits, C(), C());
}

void addForms()
{
    QTest::addColumn<CommandForm>("form");

    fieldlessRow<SCommandCommandList>("command list",
                                      "73636D64 00020000 73636D69 00010000 636D646C");
    fieldlessRow<SCommandServerName>("server name", "73636D64 00010000 73636D69 00010000 7372766E");
    fieldlessRow<SCommandWhoAmI>("who am I", "73636D64 00010000 73636D69 00010000 77616D69");
    fieldlessRow<SCommandPluggableList>("pluggable list",
                                        "73636D64 00010000 73636D69 00010000 706C676C");

    const SCommandAuthentication otherLogin(u"other"_s, "x");
    row("authentication, an SCommandAuthentication of Alice travels as alice",
        "73636D64 00010000 73636D69 00010000 61757468"
        "0000000A 0061 006C 0069 0063 0065"
        "0000000C 0061 0062 0063 0031 0032 0033",
        SCommandAuthentication(u"Alice"_s, "abc123"), otherLogin);
    row("authentication, no values",
        "73636D64 00010000 73636D69 00010000 61757468 FFFFFFFF FFFFFFFF", SCommandAuthentication(),
        otherLogin);
    row("authentication, empty values",
        "73636D64 00010000 73636D69 00010000 61757468 00000000 00000000",
        SCommandAuthentication(u""_s, ""), otherLogin);
    row("authentication, letters beyond ASCII",
        "73636D64 00010000 73636D69 00010000 61757468"
        "00000006 00E9 D83D DE00"
        "00000002 00E9",
        SCommandAuthentication(u"É\U0001F600"_s, "\xC3\xA9"), otherLogin);

    const SCommandStreamVersion otherStream(QDataStream::Qt_4_0);
    row("stream version", "73636D64 00010000 73636D69 00010000 73747276 00000014",
        SCommandStreamVersion(QDataStream::Qt_6_0), otherStream);

    const SCommandPluggable otherPluggable(u"other"_s, "x");
    row("pluggable",
        "73636D64 00010000 73636D69 00010000 706C6762"
        "00000008 0065 0063 0068 006F"
        "00000003 00 FF 7F",
        SCommandPluggable(u"echo"_s, QByteArray("\x00\xFF\x7F", 3)), otherPluggable);
    row("pluggable, no values", "73636D64 00010000 73636D69 00010000 706C6762 FFFFFFFF FFFFFFFF",
        SCommandPluggable(QString(), QByteArray()), otherPluggable);
    row("pluggable, empty values", "73636D64 00010000 73636D69 00010000 706C6762 00000000 00000000",
        SCommandPluggable(u""_s, ""), otherPluggable);

    const SCommandLinkTest otherTest(7, 8);
    row("link test", "73636D64 00010000 73636D69 00010000 6C6E6B74 00000002 00000003",
        SCommandLinkTest(2, 3), otherTest);
    row("link test, extremes", "73636D64 00010000 73636D69 00010000 6C6E6B74 80000000 7FFFFFFF",
        SCommandLinkTest(std::numeric_limits<qint32>::min(), 0x7FFFFFFF), otherTest);
    row("link test, more seconds than 32 bits",
        "73636D64 00010000 73636D69 00010000 6C6E6B74 00000000 00000005",
        SCommandLinkTest(0, 0x700000005LL), otherTest);

    const SCommandClientDevice otherDevice(u"other"_s);
    row("client device",
        "73636D64 00010000 73636D69 00010000 636C6476 00000008 002F 0061 002F 0062",
        SCommandClientDevice(u"/a/b"_s), otherDevice);
    row("client device, no name", "73636D64 00010000 73636D69 00010000 636C6476 FFFFFFFF",
        SCommandClientDevice(), otherDevice);
}

} // namespace

class tst_BaseCommands : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writes_data() { addForms(); }
    void writes()
    {
        QFETCH(const CommandForm, form);
        verifyWritten(form);
    }

    void reads_data() { addForms(); }
    void reads()
    {
        QFETCH(const CommandForm, form);
        verifyRead(form, form.bytes);
    }

    void headerVersionIsTakenAndHasNoRange_data() { addForms(); }
    void headerVersionIsTakenAndHasNoRange()
    {
        QFETCH(const CommandForm, form);
        for (const int version : versionsFromPeers())
            verifyVersion(form, version);
    }

    void truncationAtEveryByteIsRefused_data() { addForms(); }
    void truncationAtEveryByteIsRefused()
    {
        QFETCH(const CommandForm, form);
        verifyRefusedAtEveryTruncation(form);
    }

    void everyWrongMagicAndIdIsRefused_data() { addForms(); }
    void everyWrongMagicAndIdIsRefused()
    {
        QFETCH(const CommandForm, form);
        verifyRefusedForEveryWrongMagic(form);
    }

    void wordAtIdRecordVersionMayBeAnything_data() { addForms(); }
    void wordAtIdRecordVersionMayBeAnything()
    {
        QFETCH(const CommandForm, form);
        verifyIdRecordVersionIgnored(form);
    }

    void spareBytesAreAccepted_data() { addForms(); }
    void spareBytesAreAccepted()
    {
        QFETCH(const CommandForm, form);
        verifySpareBytesAccepted(form);
    }

    void claimedLengthsCostNoMemory_data() { addForms(); }
    void claimedLengthsCostNoMemory()
    {
        QFETCH(const CommandForm, form);
        verifyClaimsCostNoMemory(form);
    }

    void oddTextLengthIsRefused()
    {
        const SCommandClientDevice other(u"other"_s);
        verifyRefused({{}, {}, {}, std::make_shared<SCommandClientDevice>(other)},
                      hex("73636D64 00010000 73636D69 00010000 636C6476 00000003 002F 0061"));
    }

    void usernameIsLowerCasedByConstructorAndReaderOnly()
    {
        SCommandAuthentication command(u"ÄLICE"_s, "hash");
        QCOMPARE(command.username(), u"älice"_s);

        command.setUsername(u"Bob"_s);
        QCOMPARE(command.username(), u"Bob"_s);
        QByteArray bytes;
        QVERIFY(command.serializeArray(bytes));
        QVERIFY(bytes.contains(QByteArray("\0B\0o\0b", 6)));

        SCommandAuthentication read;
        QVERIFY(read.deserializeArray(bytes));
        QCOMPARE(read.username(), u"bob"_s);
        QCOMPARE(read.hashedPassword(), QByteArray("hash"));
    }

    void authenticationComparesNameAndHashByteForByte()
    {
        const SCommandAuthentication command(u"alice"_s, "hash");
        QVERIFY(command == SCommandAuthentication(u"alice"_s, "hash"));
        QVERIFY(command != SCommandAuthentication(u"alice"_s, "Hash"));
        QVERIFY(command != SCommandAuthentication(u"alicf"_s, "hash"));
        SCommandAuthentication upper = command;
        upper.setUsername(u"Alice"_s);
        QVERIFY(command != upper);
        SCommandAuthentication hashed = command;
        hashed.setHashedPassword("other");
        QCOMPARE(hashed.hashedPassword(), QByteArray("other"));
        QVERIFY(command != hashed);
    }

    void streamVersionIsKeptInFull_data()
    {
        QTest::addColumn<quint32>("word");
        QTest::addColumn<int>("seen");
        QTest::newRow("lowest") << 7u << 7;
        QTest::newRow("newer than any known") << 31u << 31;
        QTest::newRow("beyond the enumeration") << 1000u << 31;
        QTest::newRow("negative") << 0xFFFFFFFFu << 0;
    }
    void streamVersionIsKeptInFull()
    {
        QFETCH(const quint32, word);
        QFETCH(const int, seen);
        const QByteArray bytes = hex("73636D64 00010000 73636D69 00010000 73747276 00000000");
        SCommandStreamVersion command(QDataStream::Qt_6_0);
        QVERIFY(command.deserializeArray(withWord(bytes, kHeaderBytes, word)));
        QCOMPARE(static_cast<int>(command.streamVersion()), seen);
        QByteArray again;
        QVERIFY(command.serializeArray(again));
        QCOMPARE(again, withWord(bytes, kHeaderBytes, word));
    }

    void accessorsKeepWhatIsSet()
    {
        SCommandStreamVersion stream(QDataStream::Qt_6_0);
        QCOMPARE(stream.streamVersion(), QDataStream::Qt_6_0);
        stream.setStreamVersion(QDataStream::Qt_5_6);
        QCOMPARE(stream.streamVersion(), QDataStream::Qt_5_6);

        SCommandPluggable pluggable(u"name"_s, "in");
        QCOMPARE(pluggable.command(), u"name"_s);
        QCOMPARE(pluggable.params(), QByteArray("in"));
        pluggable.setCommand(u"other"_s);
        pluggable.setParams("out");
        QVERIFY(pluggable == SCommandPluggable(u"other"_s, "out"));

        const SCommandLinkTest test(3, 4);
        QCOMPARE(test.uploadSeconds(), 3);
        QCOMPARE(test.downloadSeconds(), 4);

        SCommandClientDevice device(u"/a"_s);
        QCOMPARE(device.fileName(), u"/a"_s);
        device.setFileName(u"/b"_s);
        QVERIFY(device == SCommandClientDevice(u"/b"_s));
    }

    void linkTestSettersAreForDerivedClasses()
    {
        struct Longer : SCommandLinkTest
        {
            Longer()
                : SCommandLinkTest(1, 1)
            {
                setUploadSeconds(10);
                setDownloadSeconds(20);
            }
        };
        const Longer test;
        QCOMPARE(test.uploadSeconds(), 10);
        QCOMPARE(test.downloadSeconds(), 20);
    }
};

QTEST_APPLESS_MAIN(tst_BaseCommands)
#include "tst_basecommands.moc"
