// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Asks for the names of the server's pluggables. Reply: a frame with a list of QStrings.
class BRIXLIB_EXPORT SCommandPluggableList : public SConcreteCommand<SCommandPluggableList>
{
public:
    SCommandPluggableList();
};

} // namespace Talverine
