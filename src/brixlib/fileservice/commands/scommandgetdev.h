// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/commands/scommandiodevice.h>
#include <brixlib/protocol/sconcretecommand.h>

namespace Talverine {

//! Fetches a file into a device of the client. Reply: the size as a raw 64-bit word, then the
//! bytes.
class BRIXLIB_EXPORT SCommandGetDev : public SConcreteCommand<SCommandGetDev, SCommandIODevice>
{
public:
    SCommandGetDev();
    explicit SCommandGetDev(const QString &fileName);
    //! \a device stays the caller's.
    SCommandGetDev(const QString &fileName, QIODevice *device);
};

} // namespace Talverine
