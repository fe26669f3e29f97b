// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

namespace Talverine {

//! How far a connection has ended, as the system sees it.
enum class SocketHangUp {
    None,         //!< open, or not known
    PeerFinished, //!< the peer sends no more; what it sent may still wait to be read
    Lost,         //!< reset or closed in both directions
};

/*!
 * Looks at the socket \a descriptor without reading from it and without waiting; None for -1.
 * A QTcpSocket learns that its peer has gone only when its events run.
 */
SocketHangUp socketHangUp(qintptr descriptor);

} // namespace Talverine
