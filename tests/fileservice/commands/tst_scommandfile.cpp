// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/commands/scommandgetfile.h>
#include <brixlib/fileservice/commands/scommandsendfile.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_SCommandFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_folder.isValid());
        QFile file(m_name);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write("seven.."), 7);
    }

    void freshCommandIsEmpty()
    {
        const SCommandGetFile command;
        QCOMPARE(command.fileSize(), 0);
        QVERIFY(command.fileName().isEmpty());
        QVERIFY(command.targetFileName().isEmpty());
        QVERIFY(!command.removeFile());
    }

    void sizeIsThatOfTheLocalFileWhenBuilt()
    {
        QCOMPARE(SCommandSendFile(m_name, u"t"_s, true).fileSize(), 7);
        QCOMPARE(SCommandGetFile(m_name, false).fileSize(), 7);
        QCOMPARE(SCommandSendFile(m_folder.filePath(u"missing"_s), true).fileSize(), 0);
    }

    void sizeIsTakenAgainOnlyIfAsked()
    {
        SCommandSendFile command(m_name, true);
        command.setFileName(m_folder.filePath(u"missing"_s), false);
        QCOMPARE(command.fileSize(), 7);
        command.setFileName(command.fileName(), true);
        QCOMPARE(command.fileSize(), 0);
        command.setFileName(m_name, true);
        QCOMPARE(command.fileSize(), 7);
        command.setFileName(QString(), true);
        QCOMPARE(command.fileSize(), 0);
    }

    void targetIsTheBaseNameUnlessOneIsSet()
    {
        SCommandGetFile command(u"/a/b/c.txt"_s, false);
        QCOMPARE(command.targetFileName(), u"c.txt"_s);
        command.setTargetFileName(u"/d/e"_s);
        QCOMPARE(command.targetFileName(), u"/d/e"_s);
        command.setTargetFileName(u""_s);
        QCOMPARE(command.targetFileName(), u"c.txt"_s);
    }

    void fetchedFileWithoutTargetTravelsWithTheBaseNameAndNoSize()
    {
        const SCommandGetFile command(m_folder.filePath(u"remote/only.bin"_s), false);
        QByteArray bytes;
        QVERIFY(command.serializeArray(bytes));
        SCommandGetFile read;
        QVERIFY(read.deserializeArray(bytes));
        QCOMPARE(read.fileSize(), 0);
        QCOMPARE(read.targetFileName(), u"only.bin"_s);
        // What was only implied is now set, and so stays when the source is renamed.
        read.setFileName(u"other"_s, false);
        QCOMPARE(read.targetFileName(), u"only.bin"_s);
    }

    void fieldsThatTheVersionOmitsComeAsDefaults()
    {
        SCommandSendFile sent(m_name, u"t"_s, true);
        sent.setVersion(0x00010000);
        QByteArray bytes;
        QVERIFY(sent.serializeArray(bytes));
        SCommandSendFile read(u"x"_s, u"y"_s, true);
        QVERIFY(read.deserializeArray(bytes));
        QCOMPARE(read.fileSize(), 7);
        QCOMPARE(read.targetFileName(), QFileInfo(m_name).fileName());
        QVERIFY(!read.removeFile());
    }

    void everyFieldCounts()
    {
        const SCommandGetFile command(m_name, u"t"_s, false);
        QVERIFY(command == SCommandGetFile(m_name, u"t"_s, false));
        QVERIFY(command != SCommandGetFile(m_name, u"t"_s, true));
        QVERIFY(command != SCommandGetFile(m_name, u"u"_s, false));
        SCommandGetFile renamed = command;
        renamed.setFileName(u"x"_s, false);
        QVERIFY(command != renamed);
        SCommandGetFile resized(u"missing"_s, u"t"_s, false);
        resized.setFileName(m_name, false);
        QVERIFY(command != resized);
        SCommandGetFile removing = command;
        removing.setRemoveFile(true);
        QVERIFY(removing.removeFile());
        QVERIFY(command != removing);
    }

    void clearKeepsIdAndVersion()
    {
        SCommandSendFile command(m_name, u"t"_s, true);
        command.clear();
        QCOMPARE(command.fileSize(), 0);
        QVERIFY(command.fileName().isEmpty());
        QVERIFY(command.targetFileName().isEmpty());
        QVERIFY(!command.removeFile());
        QCOMPARE(command.id(), CommandIds::kSendFile);
        QCOMPARE(command.version(), 0x00020000);
    }

private:
    const QTemporaryDir m_folder;
    const QString m_name = m_folder.filePath(u"seven.bin"_s);
};

QTEST_APPLESS_MAIN(tst_SCommandFile)
#include "tst_scommandfile.moc"
