// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Asks how full the server's storage is. Reply: raw words; see docs/formats/file-commands.md.
class BRIXLIB_EXPORT SCommandStorageInfo : public SConcreteCommand<SCommandStorageInfo>
{
public:
    SCommandStorageInfo();
};

} // namespace Talverine
