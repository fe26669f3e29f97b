// SPDX-License-Identifier: MIT
#pragma once

#include "sessionevent.h"
#include <database/opendatabase.h>
#include <process/batchthread.h>

#include <brixlib/database/log/slogger.h>

#include <memory>

namespace Brix {

/*!
 * Writes events of sessions as entries of a log, in a thread of its own. The log is rotated while
 * it is open as soon as it is over its limits.
 *
 * About 8 MiB of events wait at most. Events for which there is no room, and entries that cannot be
 * written, are lost; as soon as writing works again, an entry "AuditGap" tells how many.
 *
 * Thread: fully shared.
 */
class AuditTrail final
{
public:
    /*!
     * Opens the log \a file for its \a owner, and makes it when it is missing. Throws Failure. The
     * destructor writes what waits, for five seconds at most.
     */
    AuditTrail(const QString &file, const DatabaseLogin &owner,
               const Talverine::RotateParameters &limits);

    //! Queues \a event and returns at once.
    void write(const SessionEvent &event);

private:
    BatchThread<SessionEvent> m_thread;
};

} // namespace Brix
