// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/commands/scommandpathpair.h>
#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Renames or moves a file on the server. Reply: one result byte.
class BRIXLIB_EXPORT SCommandRenameFile
    : public SConcreteCommand<SCommandRenameFile, SCommandPathPair>
{
public:
    SCommandRenameFile();
    SCommandRenameFile(const QString &source, const QString &target);
};

} // namespace Talverine
