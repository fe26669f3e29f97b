// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandsetpermissions.h>

#include <brixlib/foundation/scontexthelper.h>
#include <brixlib/protocol/scommandhelper.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_SCommandSetPermissions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lowHalfIsDroppedAndLeavesTheCommandNull()
    {
        const SCommandSetPermissions command(u"x"_s, FileEntryFlags(0x000000FF));
        QCOMPARE(command.permissions(), FileEntryFlags::None);
        QVERIFY(command.isNull());
    }

    void highHalfIsKept()
    {
        const SCommandSetPermissions command(u"x"_s, FileEntryFlags(0x0001FFFF));
        QCOMPARE(command.permissions(), FileEntryFlags(0x00010000));
        QVERIFY(!command.isNull());
    }

    void setterKeepsTheHighHalfToo()
    {
        SCommandSetPermissions command;
        command.setFileName(u"x"_s);
        command.setPermissions(FileEntryFlags(0x6644003F));
        QVERIFY(command == SCommandSetPermissions(u"x"_s, FileEntryFlags(0x66440000)));
    }

    void isNullWithoutANameOrWithoutPermissions()
    {
        const auto flags = FileEntryFlags(0x66440000);
        QVERIFY(SCommandSetPermissions().isNull());
        QVERIFY(SCommandSetPermissions(u""_s, flags).isNull());
        QVERIFY(SCommandSetPermissions(u"x"_s, FileEntryFlags::None).isNull());
        QVERIFY(!SCommandSetPermissions(u"x"_s, flags).isNull());
    }

    void readerTakesTheFlagsFirstAndDropsTheirLowHalf()
    {
        SCommandSetPermissions command;
        QVERIFY(command.deserializeArray(QByteArray::fromHex(
            "73636D64 00010000 73636D69 00010000 61666C70 6644003F 00000002 0078")));
        QCOMPARE(command.fileName(), u"x"_s);
        QCOMPARE(command.permissions(), FileEntryFlags(0x66440000));
    }

    void nullCommandFromThePeerIsStillBuilt()
    {
        const unsigned int context = SContextHelper::newContextId();
        SCommandHelper::registerCommand(new SCommandSetPermissions, context);
        const std::unique_ptr<SCommand> command(SCommandHelper::createCommand(
            QByteArray::fromHex(
                "73636D64 00010000 73636D69 00010000 61666C70 000000FF 00000002 0078"),
            context));
        QVERIFY(command);
        QVERIFY(command->isNull());
        SCommandHelper::deregisterCommands(context);
    }

    void everyFieldCounts()
    {
        const SCommandSetPermissions command(u"x"_s, FileEntryFlags(0x66440000));
        QVERIFY(command != SCommandSetPermissions(u"y"_s, FileEntryFlags(0x66440000)));
        QVERIFY(command != SCommandSetPermissions(u"x"_s, FileEntryFlags(0x66000000)));
    }

    void clearKeepsIdAndVersion()
    {
        SCommandSetPermissions command(u"x"_s, FileEntryFlags(0x66440000));
        command.clear();
        QVERIFY(command == SCommandSetPermissions());
        QCOMPARE(command.id(), CommandIds::kSetPermissions);
    }
};

QTEST_APPLESS_MAIN(tst_SCommandSetPermissions)
#include "tst_scommandsetpermissions.moc"
