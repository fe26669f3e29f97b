// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Asks for the ids of the server's commands and, from version 2.0.0 on, for their versions. Reply:
//! a frame with both lists.
class BRIXLIB_EXPORT SCommandCommandList : public SConcreteCommand<SCommandCommandList>
{
public:
    SCommandCommandList();
};

} // namespace Talverine
