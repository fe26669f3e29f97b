// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/wire.h>

#include <QtCore/QByteArray>
#include <QtCore/QStringView>

/*!
 * The numbers with which inputs pick what a target does. An input that once found an error must
 * find it again: no number changes, further ones go behind the last.
 */
namespace Fuzz {

//! "commands": the first byte.
inline constexpr Talverine::SCommandId kCommandsOfInputs[] = {
    Talverine::CommandIds::kAuthentication,
    Talverine::CommandIds::kClientDevice,
    Talverine::CommandIds::kCommandList,
    Talverine::CommandIds::kLinkTest,
    Talverine::CommandIds::kPluggable,
    Talverine::CommandIds::kPluggableList,
    Talverine::CommandIds::kServerName,
    Talverine::CommandIds::kStreamVersion,
    Talverine::CommandIds::kWhoAmI,
    Talverine::CommandIds::kChangeDir,
    Talverine::CommandIds::kCopyDir,
    Talverine::CommandIds::kCopyFile,
    Talverine::CommandIds::kExists,
    Talverine::CommandIds::kFSSensitivity,
    Talverine::CommandIds::kGetDev,
    Talverine::CommandIds::kGetDir,
    Talverine::CommandIds::kGetFile,
    Talverine::CommandIds::kGetFiles,
    Talverine::CommandIds::kListDir,
    Talverine::CommandIds::kMakeDir,
    Talverine::CommandIds::kPwd,
    Talverine::CommandIds::kRemoveDir,
    Talverine::CommandIds::kRemoveFile,
    Talverine::CommandIds::kRenameDir,
    Talverine::CommandIds::kRenameFile,
    Talverine::CommandIds::kSendDev,
    Talverine::CommandIds::kSendFile,
    Talverine::CommandIds::kSetPermissions,
    Talverine::CommandIds::kStorageInfo,
};

//! "commands": half the second byte. Those in use, those just beside them, and the extremes.
inline constexpr qint32 kVersionsOfInputs[] = {
    0,          0x00010000, 0x00010001, 0x00010100, 0x00010101, 0x00010200,
    0x0001FFFF, 0x00020000, 0x00020001, 0x7FFFFFFF, -1,
};

//! "serversession": the first byte.
enum class ServerStage : quint8 {
    Connected,
    LoggedIn,
    InDevice, //!< within a session of a remote device
};

//! "clientreplies": the first byte.
enum class ClientStage : quint8 {
    Connected, //!< without a login, so that the server's commands are not known
    LoggedIn,  //!< at a server of today
    LoggingIn, //!< the input answers the login
};

//! "clientreplies": a byte for each operation.
enum class ClientOperation : quint8 {
    CommandList,
    ServerName,
    WhoAmI,
    Pluggable,
    PluggableList,
    LinkTest,
    ChangeDir,
    Pwd,
    ListDir,
    MakeDir,
    RemoveDir,
    RemoveFile,
    Exists,
    RenameDir,
    RenameFile,
    CopyDir,
    CopyFile,
    SetFilePermissions,
    StorageInfo,
    FileSystemSensitivity,
    GetFile,
    GetFiles,
    GetDir,
    GetDevice,
    SendFile,
    SendDir,
    SendDevice,
    Authenticate,
};
inline constexpr int kClientOperations = int(ClientOperation::Authenticate) + 1;

//! "clientdevice": the first byte.
enum class DeviceStage : quint8 {
    Connected,
    Opening, //!< the login is over and the file is being opened
};

//! "clientdevice": a byte for each call.
enum class DeviceCall : quint8 {
    ReadFew,
    ReadMany,
    Write,
    Seek,
    Size,
    BytesAvailable,
    AtEnd,
    Copy,
    Close,
};
inline constexpr int kDeviceCalls = int(DeviceCall::Close) + 1;

//! "replies": the first byte.
enum class ReplyList : quint8 { Commands, Texts };

//! "databaserecords" and "databasefiles": the name of the key field. The last ones are what damaged
//! bytes are read as, and what is lost at the beginning of a line.
inline constexpr QStringView kKeyNamesOfInputs[] = {
    u"name", u"dbkey", u"_uniqueinckey", u"\u017C\u00F3", u"\uFFFD", u"\uFEFFname",
};

//! "databasefiles": bits of the first byte.
enum class DatabasePart : quint8 {
    Head = 1,       //!< a good head stands before the file's bytes
    Copy = 2,       //!< there is a copy of a head
    GoodCopy = 4,   //!< there is one, and it is good
    Index = 8,      //!< there is an index
    IndexHead = 16, //!< the right checksum stands before the index's bytes
};

} // namespace Fuzz
