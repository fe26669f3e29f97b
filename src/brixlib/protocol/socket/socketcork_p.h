// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

namespace Talverine {

/*!
 * Tells the system whether the TCP socket \a descriptor may hold a packet back until it is full. At
 * most 200 ms pass until what was written goes out anyway; when the holding ends, it goes at once.
 * Does nothing for -1 and where the system has no such thing.
 */
void setSocketCorked(qintptr descriptor, bool corked);

/*!
 * Makes one packet of the small writes in its scope. Each packet wakes the peer's thread, and for a
 * small file that costs more than its bytes. The bytes and their order stay the same.
 */
class SocketCork
{
public:
    explicit SocketCork(qintptr descriptor)
        : m_descriptor(descriptor)
    {
        setSocketCorked(descriptor, true);
    }
    ~SocketCork() { setSocketCorked(m_descriptor, false); }
    Q_DISABLE_COPY_MOVE(SocketCork)

private:
    const qintptr m_descriptor;
};

} // namespace Talverine
