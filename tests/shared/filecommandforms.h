// SPDX-License-Identifier: MIT
#pragma once

#include <shared/commandforms.h>

#include <brixlib/fileservice/commands/scommandchangedir.h>
#include <brixlib/fileservice/commands/scommandcopydir.h>
#include <brixlib/fileservice/commands/scommandcopyfile.h>
#include <brixlib/fileservice/commands/scommandexists.h>
#include <brixlib/fileservice/commands/scommandfssensitivity.h>
#include <brixlib/fileservice/commands/scommandgetdev.h>
#include <brixlib/fileservice/commands/scommandgetdir.h>
#include <brixlib/fileservice/commands/scommandgetfile.h>
#include <brixlib/fileservice/commands/scommandgetfiles.h>
#include <brixlib/fileservice/commands/scommandlistdir.h>
#include <brixlib/fileservice/commands/scommandmakedir.h>
#include <brixlib/fileservice/commands/scommandpwd.h>
#include <brixlib/fileservice/commands/scommandremovedir.h>
#include <brixlib/fileservice/commands/scommandremovefile.h>
#include <brixlib/fileservice/commands/scommandrenamedir.h>
#include <brixlib/fileservice/commands/scommandrenamefile.h>
#include <brixlib/fileservice/commands/scommandsenddev.h>
#include <brixlib/fileservice/commands/scommandsendfile.h>
#include <brixlib/fileservice/commands/scommandsetpermissions.h>
#include <brixlib/fileservice/commands/scommandstorageinfo.h>

#include <limits>

namespace TestShared {

//! The commands of the file service whose fields do not depend on their version, as bytes written
//! by hand.
class FixedFileCommandForms final : public CommandForms
{
public:
    static constexpr int kOtherVersion = 0x00010305;

    FixedFileCommandForms()
    {
        using namespace Talverine;
        using namespace Qt::StringLiterals;

        pathRow<SCommandChangeDir>("change directory",
                                   "73636D64 00010000 73636D69 00010000 63645F5F"
                                   "00000008 002F 0061 0020 00E9");
        pathRow<SCommandExists>("exists", "73636D64 00010000 73636D69 00010000 65787374"
                                          "00000008 002F 0061 0020 00E9");
        pathRow<SCommandListDir>("list directory", "73636D64 00010000 73636D69 00010000 6C737464"
                                                   "00000008 002F 0061 0020 00E9");
        pathRow<SCommandMakeDir>("make directory", "73636D64 00010000 73636D69 00010000 6D6B645F"
                                                   "00000008 002F 0061 0020 00E9");
        pathRow<SCommandRemoveDir>("remove directory",
                                   "73636D64 00010000 73636D69 00010000 726D645F"
                                   "00000008 002F 0061 0020 00E9");
        pathRow<SCommandRemoveFile>("remove file", "73636D64 00010000 73636D69 00010000 726D665F"
                                                   "00000008 002F 0061 0020 00E9");
        row("one path, none given", "73636D64 00010000 73636D69 00010000 63645F5F FFFFFFFF",
            SCommandChangeDir(), SCommandChangeDir(u"other"_s));
        row("one path, empty", "73636D64 00010000 73636D69 00010000 63645F5F 00000000",
            SCommandChangeDir(u""_s), SCommandChangeDir(u"other"_s));

        pathPairRow<SCommandCopyDir>("copy directory",
                                     "73636D64 00010100 73636D69 00010000 63707964"
                                     "00000004 002F 0061 00000006 0062 002F 00E9");
        pathPairRow<SCommandCopyFile>("copy file", "73636D64 00010100 73636D69 00010000 63707966"
                                                   "00000004 002F 0061 00000006 0062 002F 00E9");
        pathPairRow<SCommandRenameDir>("rename directory",
                                       "73636D64 00010000 73636D69 00010000 726E645F"
                                       "00000004 002F 0061 00000006 0062 002F 00E9");
        pathPairRow<SCommandRenameFile>("rename file",
                                        "73636D64 00010000 73636D69 00010000 726E665F"
                                        "00000004 002F 0061 00000006 0062 002F 00E9");
        row("two paths, none given",
            "73636D64 00010000 73636D69 00010000 726E665F FFFFFFFF FFFFFFFF", SCommandRenameFile(),
            SCommandRenameFile(u"other"_s, u"target"_s));

        fieldlessRow<SCommandFSSensitivity>("file system sensitivity",
                                            "73636D64 00010000 73636D69 00010000 66737365");
        fieldlessRow<SCommandPwd>("current directory",
                                  "73636D64 00010000 73636D69 00010000 7077645F");
        fieldlessRow<SCommandStorageInfo>("storage",
                                          "73636D64 00020000 73636D69 00010000 73746F69");

        const SCommandSetPermissions otherPermissions(u"other"_s, FileEntryFlags(0x00010000));
        row("permissions, the flags before the name",
            "73636D64 00010000 73636D69 00010000 61666C70 76540000 00000002 0078",
            SCommandSetPermissions(u"x"_s, FileEntryFlags(0x76540000)), otherPermissions);
        row("permissions, only the high half is kept",
            "73636D64 00010000 73636D69 00010000 61666C70 FFFF0000 00000002 0078",
            SCommandSetPermissions(u"x"_s, FileEntryFlags(0xFFFFFFFF)), otherPermissions);
        row("permissions, none", "73636D64 00010000 73636D69 00010000 61666C70 00000000 FFFFFFFF",
            SCommandSetPermissions(), otherPermissions);

        const SCommandGetFiles otherFiles(u"other"_s, u"f"_s, u"t"_s, FileFilterFlags::RemoveAfter);
        row("get files",
            "73636D64 00010100 73636D69 00010000 67666C73"
            "00000004 002F 0061"
            "00000006 002A 003B 0062"
            "00000002 0074"
            "00000005",
            SCommandGetFiles(u"/a"_s, u"*;b"_s, u"t"_s,
                             FileFilterFlags::Recursive | FileFilterFlags::DirectoryMode),
            otherFiles);
        row("get files, path alone",
            "73636D64 00010100 73636D69 00010000 67666C73"
            "00000004 002F 0061 FFFFFFFF FFFFFFFF 00000007",
            SCommandGetFiles(u"/a"_s, FileFilterFlags::Recursive | FileFilterFlags::RemoveAfter |
                                          FileFilterFlags::DirectoryMode),
            otherFiles);
        row("get files, flags without a name",
            "73636D64 00010100 73636D69 00010000 67666C73 FFFFFFFF FFFFFFFF FFFFFFFF F0000000",
            SCommandGetFiles(QString(), FileFilterFlags(0xF0000000)), otherFiles);

        row("get device", "73636D64 00010000 73636D69 00010000 6766696F 00000004 002F 0061",
            SCommandGetDev(u"/a"_s), SCommandGetDev(u"other"_s));
        row("send device", "73636D64 00010000 73636D69 00010000 73696F66 00000004 002F 0061",
            SCommandSendDev(u"/a"_s), SCommandSendDev(u"other"_s));
    }

private:
    template<class C>
    void row(const QByteArray &name, const QByteArray &digits, const C &command, const C &other)
    {
        add(name, {hex(digits), std::make_shared<C>(command), std::make_shared<C>(command),
                   made(other, kOtherVersion)});
    }

    template<class C>
    void fieldlessRow(const QByteArray &name, const QByteArray &digits)
    {
        row(name, digits, C(), C());
    }

    template<class C>
    void pathRow(const QByteArray &name, const QByteArray &digits)
    {
        row(name, digits, C(QStringLiteral("/a é")), C(QStringLiteral("other")));
    }

    template<class C>
    void pathPairRow(const QByteArray &name, const QByteArray &digits)
    {
        row(name, digits, C(QStringLiteral("/a"), QStringLiteral("b/é")),
            C(QStringLiteral("other"), QStringLiteral("target")));
    }
};

//! The transfers of files and folders, whose fields grew with their version.
class TransferCommandForms final : public CommandForms
{
public:
    TransferCommandForms()
    {
        using namespace Talverine;
        using namespace Qt::StringLiterals;

        transferRows<SCommandGetFile>("get file", "67657466");
        transferRows<SCommandGetDir>("get directory", "67657464");
        transferRows<SCommandSendFile>("send file", "736E6466");

        transferRow("transfer without a target carries the base name", 0x00010200,
                    "73636D64 00010200 73636D69 00010000 67657466"
                    "0000000000000000 00000006 0064 002F 0066 00000002 0066 00",
                    SCommandGetFile(u"d/f"_s, false), SCommandGetFile(u"d/f"_s, u"f"_s, false));
        transferRow("transfer without anything", 0x00010200,
                    "73636D64 00010200 73636D69 00010000 67657466"
                    "0000000000000000 FFFFFFFF 00000000 00",
                    SCommandGetFile(), SCommandGetFile());
        transferRow(
            "transfer of a negative size", 0x00010100,
            "73636D64 00010100 73636D69 00010000 736E6466"
            "8000000000000000 00000006 0064 002F 0066 00",
            transfer<SCommandSendFile>(std::numeric_limits<qint64>::min(), u"t"_s, false),
            transfer<SCommandSendFile>(std::numeric_limits<qint64>::min(), QString(), false));
        transferRow("transfer just above 1.0.0 has the removal", 0x00010001,
                    "73636D64 00010001 73636D69 00010000 67657466"
                    "0000000000000102 00000006 0064 002F 0066 01",
                    transfer<SCommandGetFile>(258, u"t"_s, true),
                    transfer<SCommandGetFile>(258, QString(), true));
        transferRow("transfer just above 1.1.0 has the target", 0x00010101,
                    "73636D64 00010101 73636D69 00010000 67657466"
                    "0000000000000102 00000006 0064 002F 0066 00000002 0074 01",
                    transfer<SCommandGetFile>(258, u"t"_s, true),
                    transfer<SCommandGetFile>(258, u"t"_s, true));
        transferRow("transfer just below 2.0.0 has the size", 0x0001FFFF,
                    "73636D64 0001FFFF 73636D69 00010000 67657466"
                    "0000000000000102 00000006 0064 002F 0066 00000002 0074 01",
                    transfer<SCommandGetFile>(258, u"t"_s, true),
                    transfer<SCommandGetFile>(258, u"t"_s, true));
        transferRow("transfer of version 0", 0,
                    "73636D64 00000000 73636D69 00010000 736E6466"
                    "0000000000000102 00000006 0064 002F 0066",
                    transfer<SCommandSendFile>(258, u"t"_s, true),
                    transfer<SCommandSendFile>(258, QString(), false));
        transferRow("transfer of the lowest version", std::numeric_limits<int>::min(),
                    "73636D64 80000000 73636D69 00010000 736E6466"
                    "0000000000000102 00000006 0064 002F 0066",
                    transfer<SCommandSendFile>(258, u"t"_s, true),
                    transfer<SCommandSendFile>(258, QString(), false));
    }

private:
    // A form of a transfer: what it was made of, how it reads back, and the bytes.
    template<class C>
    void transferRow(const QByteArray &name, int version, const QByteArray &digits,
                     const C &written, const C &read)
    {
        constexpr int kOtherVersion = 0x00010305;
        const C other(QStringLiteral("other"), QStringLiteral("target"), true);
        add(name,
            {hex(digits), made(written, version), made(read, version), made(other, kOtherVersion)});
    }

    // A transfer of "d/f" that claims any size, not just that of a local file.
    template<class C>
    static C transfer(qint64 size, const QString &target, bool removeFile)
    {
        struct Sized : C
        {
            using C::C;
            using C::setFileSize;
        };
        Sized command(QStringLiteral("d/f"), target, removeFile);
        command.setFileSize(size);
        return command;
    }

    // The four forms of one class of transfers; \a id is its word in hexadecimal digits.
    template<class C>
    void transferRows(const QByteArray &name, const QByteArray &id)
    {
        const auto written = transfer<C>(258, QStringLiteral("t"), true);
        transferRow(name + " 1.0.0: size and name", 0x00010000,
                    "73636D64 00010000 73636D69 00010000" + id +
                        "0000000000000102"
                        "00000006 0064 002F 0066",
                    written, transfer<C>(258, QString(), false));
        transferRow(name + " 1.1.0: size, name, removal", 0x00010100,
                    "73636D64 00010100 73636D69 00010000" + id +
                        "0000000000000102"
                        "00000006 0064 002F 0066"
                        "01",
                    written, transfer<C>(258, QString(), true));
        transferRow(name + " 1.2.0: size, name, target, removal", 0x00010200,
                    "73636D64 00010200 73636D69 00010000" + id +
                        "0000000000000102"
                        "00000006 0064 002F 0066"
                        "00000002 0074"
                        "01",
                    written, transfer<C>(258, QStringLiteral("t"), true));
        transferRow(name + " 2.0.0: name, target, removal", 0x00020000,
                    "73636D64 00020000 73636D69 00010000" + id +
                        "00000006 0064 002F 0066"
                        "00000002 0074"
                        "01",
                    written, transfer<C>(0, QStringLiteral("t"), true));
    }
};

} // namespace TestShared
