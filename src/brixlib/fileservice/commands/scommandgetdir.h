// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/commands/scommandfile.h>
#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Fetches a directory, in the old form that SCommandGetFiles replaces. Reply: a frame with a list
//! of file names.
class BRIXLIB_EXPORT SCommandGetDir : public SConcreteCommand<SCommandGetDir, SCommandFile>
{
public:
    SCommandGetDir();
    SCommandGetDir(const QString &fileName, const QString &targetFileName, bool removeFile);
    //! The target is the name part of \a fileName.
    SCommandGetDir(const QString &fileName, bool removeFile);
};

} // namespace Talverine
