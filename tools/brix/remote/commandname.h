// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/scommandid.h>

#include <QtCore/QString>

namespace Brix {

//! The four letters of a command's id.
QString commandName(const Talverine::SCommandId &id);
//! "1.2.0" of 0x00010200.
QString versionText(qint32 version);

} // namespace Brix
