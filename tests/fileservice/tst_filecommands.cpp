// SPDX-License-Identifier: MIT
// The commands of the file service against bytes written by hand.
#include <shared/filecommandforms.h>

using namespace Talverine;
using namespace TestShared;
using namespace Qt::StringLiterals;

namespace {

void addForms()
{
    CommandForms::addColumn();
    FixedFileCommandForms().addRows();
    TransferCommandForms().addRows();
}

void addFixedForms()
{
    CommandForms::addColumn();
    FixedFileCommandForms().addRows();
}

} // namespace

class tst_FileCommands : public QObject
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

    void headerVersionChangesNoOtherByte_data() { addFixedForms(); }
    void headerVersionChangesNoOtherByte()
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

    void defaultVersionsAreThoseOfTheClasses()
    {
        QCOMPARE(SCommandGetFile().version(), 0x00010200);
        QCOMPARE(SCommandGetDir().version(), 0x00010200);
        QCOMPARE(SCommandSendFile().version(), 0x00020000);
    }

    void sentFileLoweredTo110HasSizeNameAndRemovalButNoTarget()
    {
        SCommandSendFile command(u"d/f"_s, u"t"_s, true);
        command.setVersion(0x00010100);
        QByteArray bytes;
        QVERIFY(command.serializeArray(bytes));
        QCOMPARE(bytes.toHex(), hex("73636D64 00010100 73636D69 00010000 736E6466"
                                    "0000000000000000 00000006 0064 002F 0066 01")
                                    .toHex());
    }
};

QTEST_APPLESS_MAIN(tst_FileCommands)
#include "tst_filecommands.moc"
