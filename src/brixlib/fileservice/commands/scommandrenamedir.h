// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/commands/scommandpathpair.h>
#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Renames or moves a directory on the server. Reply: one result byte.
class BRIXLIB_EXPORT SCommandRenameDir
    : public SConcreteCommand<SCommandRenameDir, SCommandPathPair>
{
public:
    SCommandRenameDir();
    SCommandRenameDir(const QString &source, const QString &target);
};

} // namespace Talverine
