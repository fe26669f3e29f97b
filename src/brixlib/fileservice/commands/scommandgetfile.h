// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/commands/scommandfile.h>
#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Fetches a file. Reply: the size as a raw 64-bit word, then the bytes.
class BRIXLIB_EXPORT SCommandGetFile : public SConcreteCommand<SCommandGetFile, SCommandFile>
{
public:
    SCommandGetFile();
    SCommandGetFile(const QString &fileName, const QString &targetFileName, bool removeFile);
    //! The target is the name part of \a fileName.
    SCommandGetFile(const QString &fileName, bool removeFile);
};

} // namespace Talverine
