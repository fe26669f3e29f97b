// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Asks for the server's name. Reply: a frame with a QString.
class BRIXLIB_EXPORT SCommandServerName : public SConcreteCommand<SCommandServerName>
{
public:
    SCommandServerName();
};

} // namespace Talverine
