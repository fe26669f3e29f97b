// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Asks whether the server's file system tells upper from lower case. Reply: one raw word.
class BRIXLIB_EXPORT SCommandFSSensitivity : public SConcreteCommand<SCommandFSSensitivity>
{
public:
    SCommandFSSensitivity();
};

} // namespace Talverine
