// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QUuid>

//! What well-behaved peers say up to the point where a session is open, so that an input can begin
//! behind it.
namespace Fuzz::SessionBytes {

//! The uuid of every session.
QUuid uuid();
//! What a server sends first.
QByteArray greeting();

//! The login of the client "alice".
QByteArray login();
//! The bytes of the command that makes "a.txt" a remote device.
QByteArray deviceCommand();

//! What a server of today answers to a login and what follows it: the list of its commands, and the
//! stream version.
QByteArray welcome();
//! What a server answers to a login and to the command for a remote device.
QByteArray deviceWelcome();

} // namespace Fuzz::SessionBytes
