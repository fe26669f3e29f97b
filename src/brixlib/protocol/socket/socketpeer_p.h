// SPDX-License-Identifier: MIT
#pragma once

#include <QtNetwork/QHostAddress>

namespace Talverine {

//! The address of the peer of a connected socket; null if the system reports none.
QHostAddress peerAddressOf(qint64 socketDescriptor);

/*!
 * Makes the system probe a silent peer after \a seconds, and give the connection up after as long a
 * time again without an answer. Takes effect on a socket with the keep-alive option.
 */
void setKeepAliveTime(qint64 socketDescriptor, int seconds);

} // namespace Talverine
