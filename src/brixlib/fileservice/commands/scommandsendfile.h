// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/commands/scommandfile.h>
#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Sends a file. Reply phase, client to server: the size as a raw 64-bit word (not below version
//! 2.0.0, whose fields hold it), then the bytes.
class BRIXLIB_EXPORT SCommandSendFile : public SConcreteCommand<SCommandSendFile, SCommandFile>
{
public:
    SCommandSendFile();
    SCommandSendFile(const QString &fileName, const QString &targetFileName, bool removeFile);
    //! The target is the name part of \a fileName.
    SCommandSendFile(const QString &fileName, bool removeFile);
};

} // namespace Talverine
