// SPDX-License-Identifier: MIT
// The commands of the base protocol against bytes written by hand.
#include <shared/basecommandforms.h>
#include <shared/commandformstest.h>

using namespace Talverine;
using namespace TestShared;
using namespace Qt::StringLiterals;

class tst_BaseCommands : public CommandFormsTest
{
    Q_OBJECT

protected:
    void addRows() const override { BaseCommandForms().addRows(); }

private Q_SLOTS:
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
#include "shared/moc_commandformstest.cpp"
#include "tst_basecommands.moc"
