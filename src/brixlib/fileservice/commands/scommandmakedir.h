// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/commands/scommandpath.h>
#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Makes a directory and its parents. Reply: one result byte.
class BRIXLIB_EXPORT SCommandMakeDir : public SConcreteCommand<SCommandMakeDir, SCommandPath>
{
public:
    SCommandMakeDir();
    explicit SCommandMakeDir(const QString &path);
};

} // namespace Talverine
