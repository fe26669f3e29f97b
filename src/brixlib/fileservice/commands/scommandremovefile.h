// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/commands/scommandpath.h>
#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Removes a file. Reply: one result byte.
class BRIXLIB_EXPORT SCommandRemoveFile : public SConcreteCommand<SCommandRemoveFile, SCommandPath>
{
public:
    SCommandRemoveFile();
    explicit SCommandRemoveFile(const QString &path);
};

} // namespace Talverine
