// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Asks for the current directory of the session. Reply: a frame with a QString.
class BRIXLIB_EXPORT SCommandPwd : public SConcreteCommand<SCommandPwd>
{
public:
    SCommandPwd();
};

} // namespace Talverine
