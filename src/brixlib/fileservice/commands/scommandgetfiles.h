// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/commands/scommandfilefilter.h>
#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Asks which files of a directory match, so as to fetch them. Reply: keep-alive words, then a
//! frame with the base path and a list of file names.
class BRIXLIB_EXPORT SCommandGetFiles
    : public SConcreteCommand<SCommandGetFiles, SCommandFileFilter>
{
public:
    SCommandGetFiles();
    SCommandGetFiles(const QString &path, const QString &filters, const QString &targetPath,
                     const FileFilterFlags &flags);
    //! Without patterns and without a target.
    SCommandGetFiles(const QString &path, const FileFilterFlags &flags);
};

} // namespace Talverine
