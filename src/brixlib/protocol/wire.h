// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/scommandid.h>

#include <QtCore/QtGlobal>

/*!
 * The numbers of the protocol between client and server. Peers of every age know them: none of them
 * ever changes. Raw words travel in big-endian order.
 */
namespace Talverine::Wire {

//! Four letters as one word, the first in the most significant byte.
constexpr quint32 word(const char (&letters)[5])
{
    quint32 value = 0;
    for (int i = 0; i < 4; ++i)
        value = value << 8 | static_cast<unsigned char>(letters[i]);
    return value;
}

//! A version as commands and their peers compare it: as one integer.
constexpr qint32 version(int majorPart, int minorPart, int patchPart)
{
    return majorPart << 16 | minorPart << 8 | patchPart;
}

// The header of a command.
inline constexpr quint32 kCommandMagic = word("scmd");
inline constexpr quint32 kIdMagic = word("scmi");
inline constexpr quint32 kIdRecordVersion = 0x00010000;
inline constexpr qint32 kDefaultCommandVersion = version(1, 0, 0);

// The exchange.
inline constexpr quint32 kAckWord = 0xA5A5A5A5;       //!< accepted, or completed
inline constexpr quint32 kNackWord = 0x55AA55AA;      //!< refused, or failed
inline constexpr quint32 kKeepAliveWord = 0x50A050A0; //!< still busy; another word follows
inline constexpr quint32 kBodyLimitBytes = 0x100000;  //!< longest body of a command
inline constexpr int kGreetingBytes = 16;             //!< the session's uuid, QUuid::toRfc4122()
inline constexpr int kKeepAliveIntervalMs = 100;

// The stream version that both ends write and read at.
inline constexpr int kHighestStreamVersion = 20; //!< QDataStream::Qt_6_0
inline constexpr int kLowestStreamVersion = 7;   //!< QDataStream::Qt_4_0

// The versions of commands from which on their reply has more in it.
inline constexpr qint32 kSinceCommandVersions = version(2, 0, 0); //!< command list: versions
inline constexpr qint32 kSinceKeepAlive = version(1, 1, 0);       //!< long work: keep-alive words
inline constexpr qint32 kSinceStorageDetails = version(1, 0, 1);  //!< storage: free bytes, type
inline constexpr qint32 kSinceRawSize = version(2, 0, 0);         //!< sent file: size word

// The record of a directory's entry, and from which version on it has a date.
inline constexpr quint32 kEntryRecordVersion = version(1, 1, 0);

} // namespace Talverine::Wire

/*!
 * The ids of all commands of the library.
 */
namespace Talverine::CommandIds {

// The base protocol.
inline constexpr SCommandId kCommandList = Wire::word("cmdl");
inline constexpr SCommandId kAuthentication = Wire::word("auth");
inline constexpr SCommandId kServerName = Wire::word("srvn");
inline constexpr SCommandId kWhoAmI = Wire::word("wami");
inline constexpr SCommandId kStreamVersion = Wire::word("strv");
inline constexpr SCommandId kPluggable = Wire::word("plgb");
inline constexpr SCommandId kPluggableList = Wire::word("plgl");
inline constexpr SCommandId kLinkTest = Wire::word("lnkt");
inline constexpr SCommandId kClientDevice = Wire::word("cldv");

// The file service.
inline constexpr SCommandId kChangeDir = Wire::word("cd__");
inline constexpr SCommandId kCopyDir = Wire::word("cpyd");
inline constexpr SCommandId kCopyFile = Wire::word("cpyf");
inline constexpr SCommandId kExists = Wire::word("exst");
inline constexpr SCommandId kFSSensitivity = Wire::word("fsse");
inline constexpr SCommandId kGetDev = Wire::word("gfio");
inline constexpr SCommandId kGetDir = Wire::word("getd");
inline constexpr SCommandId kGetFile = Wire::word("getf");
inline constexpr SCommandId kGetFiles = Wire::word("gfls");
inline constexpr SCommandId kListDir = Wire::word("lstd");
inline constexpr SCommandId kMakeDir = Wire::word("mkd_");
inline constexpr SCommandId kPwd = Wire::word("pwd_");
inline constexpr SCommandId kRemoveDir = Wire::word("rmd_");
inline constexpr SCommandId kRemoveFile = Wire::word("rmf_");
inline constexpr SCommandId kRenameDir = Wire::word("rnd_");
inline constexpr SCommandId kRenameFile = Wire::word("rnf_");
inline constexpr SCommandId kSendDev = Wire::word("siof");
inline constexpr SCommandId kSendFile = Wire::word("sndf");
inline constexpr SCommandId kSetPermissions = Wire::word("aflp");
inline constexpr SCommandId kStorageInfo = Wire::word("stoi");

} // namespace Talverine::CommandIds
