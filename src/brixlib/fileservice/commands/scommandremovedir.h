// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/commands/scommandpath.h>
#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Removes a directory with all that is below it. Reply: one result byte.
class BRIXLIB_EXPORT SCommandRemoveDir : public SConcreteCommand<SCommandRemoveDir, SCommandPath>
{
public:
    SCommandRemoveDir();
    explicit SCommandRemoveDir(const QString &path);
};

} // namespace Talverine
