// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

/*!
 * Sending and receiving on a descriptor that does not block.
 */
namespace Talverine::SystemSocket {

//! What a wait is for.
enum class Readiness { ToReceive, ToSend };

//! Whether this system has what follows; without, nothing goes.
bool isSupported();
//! Bytes that the system took at once; 0 when it takes none now, or no more at all.
qint64 send(qintptr descriptor, const char *data, qint64 size);
//! Bytes that had arrived; 0 when there are none now, or no more come.
qint64 receive(qintptr descriptor, char *data, qint64 size);
//! Whether bytes have arrived that were not received.
bool hasBytes(qintptr descriptor);
//! Whether the wait is over within \a msec milliseconds, be it by the end of the connection.
bool waitFor(qintptr descriptor, Readiness readiness, int msec);

} // namespace Talverine::SystemSocket
