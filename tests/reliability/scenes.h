// SPDX-License-Identifier: MIT
#pragma once

#include "faultstage.h"

/*!
 * A scene for each command, as small as it can be.
 */
namespace Scenes {

//! The commands of the base protocol, by name. The server needs preparing by addPluggable().
QMap<QByteArray, FaultStage::Scene> baseCommands();
//! The commands of the file service.
QMap<QByteArray, FaultStage::Scene> fileCommands();

//! Fetches a small file, of which the client has an older one.
FaultStage::Scene getFile();
//! Sends a small file, of which the server has an older one.
FaultStage::Scene sendFile();
//! A remote device that is written, read and asked, until a call fails.
FaultStage::Scene device();

//! Gives the sessions of \a server the pluggable that is called by baseCommands().
void addPluggable(FileServer &server);

} // namespace Scenes
