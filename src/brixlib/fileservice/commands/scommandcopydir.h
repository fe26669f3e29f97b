// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/commands/scommandpathpair.h>
#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Copies a directory on the server. Reply: keep-alive words, then one result byte.
class BRIXLIB_EXPORT SCommandCopyDir : public SConcreteCommand<SCommandCopyDir, SCommandPathPair>
{
public:
    SCommandCopyDir();
    SCommandCopyDir(const QString &source, const QString &target);
};

} // namespace Talverine
