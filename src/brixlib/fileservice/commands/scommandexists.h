// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/commands/scommandpath.h>
#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Asks whether a path exists. Reply: one result byte.
class BRIXLIB_EXPORT SCommandExists : public SConcreteCommand<SCommandExists, SCommandPath>
{
public:
    SCommandExists();
    explicit SCommandExists(const QString &path);
};

} // namespace Talverine
