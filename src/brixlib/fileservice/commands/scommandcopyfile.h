// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/commands/scommandpathpair.h>
#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Copies a file on the server. Reply: keep-alive words, then one result byte.
class BRIXLIB_EXPORT SCommandCopyFile : public SConcreteCommand<SCommandCopyFile, SCommandPathPair>
{
public:
    SCommandCopyFile();
    SCommandCopyFile(const QString &source, const QString &target);
};

} // namespace Talverine
