// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/commands/scommandpath.h>
#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Asks for the entries of a directory. Reply: a frame with a list of SFileEntry records.
class BRIXLIB_EXPORT SCommandListDir : public SConcreteCommand<SCommandListDir, SCommandPath>
{
public:
    SCommandListDir();
    explicit SCommandListDir(const QString &path);
};

} // namespace Talverine
