// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Asks for the name of the user who is logged in. Reply: a frame with a QString.
class BRIXLIB_EXPORT SCommandWhoAmI : public SConcreteCommand<SCommandWhoAmI>
{
public:
    SCommandWhoAmI();
};

} // namespace Talverine
