// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandgetfiles.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_SCommandFileFilter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void flagsHaveFixedNumbers()
    {
        QCOMPARE(static_cast<quint32>(FileFilterFlags::Recursive), 1u);
        QCOMPARE(static_cast<quint32>(FileFilterFlags::RemoveAfter), 2u);
        QCOMPARE(static_cast<quint32>(FileFilterFlags::DirectoryMode), 4u);
        const auto type = QMetaType::fromType<FileFilterFlags>();
        QCOMPARE(QMetaType::fromName("FileFilterFlags"), type);
        QCOMPARE(QMetaType::fromName("Talverine::FileFilterFlags"), type);
    }

    void freshCommandIsEmpty()
    {
        const SCommandGetFiles command;
        QVERIFY(command.path().isEmpty());
        QVERIFY(command.filters().isEmpty());
        QVERIFY(command.targetPath().isEmpty());
        QCOMPARE(command.flags(), FileFilterFlags::None);
    }

    void everyFieldCounts()
    {
        SCommandGetFiles command(u"/a"_s, FileFilterFlags::Recursive);
        QCOMPARE(command.path(), u"/a"_s);
        QVERIFY(command.filters().isEmpty());
        QVERIFY(command.targetPath().isEmpty());
        command.setPath(u"/b"_s);
        command.setFilters(u"*.txt"_s);
        command.setTargetPath(u"t"_s);
        command.setFlags(FileFilterFlags::RemoveAfter);
        const auto removing = FileFilterFlags::RemoveAfter;
        QVERIFY(command == SCommandGetFiles(u"/b"_s, u"*.txt"_s, u"t"_s, removing));
        QVERIFY(command != SCommandGetFiles(u"/c"_s, u"*.txt"_s, u"t"_s, removing));
        QVERIFY(command != SCommandGetFiles(u"/b"_s, u"*"_s, u"t"_s, removing));
        QVERIFY(command != SCommandGetFiles(u"/b"_s, u"*.txt"_s, u"u"_s, removing));
        QVERIFY(command != SCommandGetFiles(u"/b"_s, u"*.txt"_s, u"t"_s, FileFilterFlags::None));
    }

    void clearKeepsIdAndVersion()
    {
        SCommandGetFiles command(u"/a"_s, u"*"_s, u"t"_s, FileFilterFlags::Recursive);
        command.clear();
        QVERIFY(command == SCommandGetFiles());
        QCOMPARE(command.id(), CommandIds::kGetFiles);
        QCOMPARE(command.version(), 0x00010100);
    }
};

QTEST_APPLESS_MAIN(tst_SCommandFileFilter)
#include "tst_scommandfilefilter.moc"
