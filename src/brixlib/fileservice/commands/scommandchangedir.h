// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/commands/scommandpath.h>
#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Changes the current directory of the session; an empty path means the root. Reply: one result
//! byte.
class BRIXLIB_EXPORT SCommandChangeDir : public SConcreteCommand<SCommandChangeDir, SCommandPath>
{
public:
    SCommandChangeDir();
    explicit SCommandChangeDir(const QString &path);
};

} // namespace Talverine
