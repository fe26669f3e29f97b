// SPDX-License-Identifier: MIT
// The commands of the file service against bytes written by hand.
#include <shared/commandformstest.h>
#include <shared/filecommandforms.h>

using namespace Talverine;
using namespace TestShared;
using namespace Qt::StringLiterals;

class tst_FileCommands : public CommandFormsTest
{
    Q_OBJECT

protected:
    void addRows() const override
    {
        FixedFileCommandForms().addRows();
        TransferCommandForms().addRows();
    }
    void addRowsOfAnyVersion() const override { FixedFileCommandForms().addRows(); }

private Q_SLOTS:
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
#include "shared/moc_commandformstest.cpp"
#include "tst_filecommands.moc"
