// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandexists.h>
#include <brixlib/fileservice/commands/scommandlistdir.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_SCommandPath : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void holdsOnePath()
    {
        SCommandExists command;
        QVERIFY(command.value().isNull());
        command.setValue(u"/a"_s);
        QVERIFY(command == SCommandExists(u"/a"_s));
        QVERIFY(command != SCommandExists(u"/b"_s));
    }

    void clearKeepsIdAndVersion()
    {
        SCommandExists command(u"/a"_s);
        command.setVersion(9);
        command.clear();
        QVERIFY(command.value().isEmpty());
        QCOMPARE(command.id(), CommandIds::kExists);
        QCOMPARE(command.version(), 9);
        QVERIFY(!command.isNull());
    }

    void classesDifferInSpiteOfEqualPaths()
    {
        const SCommandExists command(u"/a"_s);
        const SCommandListDir other(u"/a"_s);
        QVERIFY(!command.equalsTo(&other));
        QVERIFY(!other.equalsTo(&command));
    }
};

QTEST_APPLESS_MAIN(tst_SCommandPath)
#include "tst_scommandpath.moc"
