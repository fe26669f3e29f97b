// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandcopyfile.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_SCommandPathPair : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void firstIsTheSourceAndSecondTheTarget()
    {
        SCommandCopyFile command(u"/a"_s, u"/b"_s);
        QCOMPARE(command.first(), u"/a"_s);
        QCOMPARE(command.second(), u"/b"_s);
        command.setFirst(u"/c"_s);
        command.setSecond(u"/d"_s);
        QVERIFY(command == SCommandCopyFile(u"/c"_s, u"/d"_s));
        QVERIFY(command != SCommandCopyFile(u"/d"_s, u"/c"_s));
    }

    void clearKeepsIdAndVersion()
    {
        SCommandCopyFile command(u"/a"_s, u"/b"_s);
        command.clear();
        QVERIFY(command.first().isEmpty());
        QVERIFY(command.second().isEmpty());
        QCOMPARE(command.id(), CommandIds::kCopyFile);
        QCOMPARE(command.version(), 0x00010100);
    }
};

QTEST_APPLESS_MAIN(tst_SCommandPathPair)
#include "tst_scommandpathpair.moc"
