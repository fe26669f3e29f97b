// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/commands/scommandiodevice.h>
#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Sends what a device of the client holds into a file. Reply phase, client to server: the size as
//! a raw 64-bit word, then the bytes.
class BRIXLIB_EXPORT SCommandSendDev : public SConcreteCommand<SCommandSendDev, SCommandIODevice>
{
public:
    SCommandSendDev();
    explicit SCommandSendDev(const QString &fileName);
    //! \a device stays the caller's.
    SCommandSendDev(const QString &fileName, QIODevice *device);
};

} // namespace Talverine
